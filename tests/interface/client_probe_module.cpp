// A client module for the test of module replacement: it hooks one client on
// the host's interface "probe::served" at load and takes the hook out at
// unload, as any module's static registration does. CLIENT_BUILD, given by
// the build, tells the two builds of this source apart.
#include "tests/interface/client_probe.h"

#include "interface/ifc_autoregger.h"

#ifndef CLIENT_BUILD
#error "CLIENT_BUILD names the build of the client module"
#endif

namespace {

int client_hook() { return CLIENT_BUILD; }

void register_client_group(bool on)
{
    velk::register_key(on, "probe::served@client-7.probe_client", &client_hook);
}

const velk::autoregger_site<&register_client_group> client_group;

uint64_t module_handle() { return velk::os::module_handle_of(reinterpret_cast<const void*>(&client_hook)); }

constexpr velk::testing::client_probe probe = {
    CLIENT_BUILD, "probe::served", "probe_client", 7, &module_handle,
};

} // namespace

extern "C" const velk::testing::client_probe* client_probe_table() { return &probe; }
