// A second module for the tests of real modules: it links its own copy of
// velk, enters one key at load through the same static registration as the
// plug-in, and offers its front to the test.
#include "tests/interface/registry_probe.h"

#include "comm/os/module.h"
#include "interface/ifc_autoregger.h"
#include "interface/registrar.h"

namespace {

constexpr char own_key[] = "probe::second_module@wrapper";

void own_creator_body() {}

velk::creator_fn own_creator() { return reinterpret_cast<velk::creator_fn>(&own_creator_body); }

void register_probe_group(bool on)
{
    velk::register_key(on, own_key, &own_creator_body);
}

const velk::autoregger_site<&register_probe_group> probe_group;

velk::interface_register_impl* registrar() { return velk::registrar(); }

bool register_creator(const char* key, velk::creator_fn creator) { return velk::register_creator(key, creator); }

velk::creator_fn get_creator(const char* key) { return velk::get_creator(key); }

uint64_t module_handle() { return velk::os::module_handle_of(reinterpret_cast<const void*>(&own_creator_body)); }

constexpr velk::testing::registry_probe probe = {
    own_key, &own_creator, &registrar, &register_creator, &get_creator, &module_handle,
};

} // namespace

extern "C" const velk::testing::registry_probe* registry_probe_table() { return &probe; }
