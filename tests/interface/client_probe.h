// Test probe of a client module: it hooks one client on an interface of the
// host at load ("probe::served@client-7.probe_client"), through the same
// static registration as the plug-in. Two builds of one source differ only
// in the number that the hook answers, so a test can tell which one is
// loaded. It exports this table and its registrars, nothing else.
#pragma once

#include "comm/os/module.h"

#include <cstdint>

namespace velk::testing {

// The client hook's creator: answers the build of the module that holds it.
using client_probe_hook_fn = int (*)();

struct client_probe
{
    int build;
    const char* interface_name; // the interface the client hooks
    const char* client_name;
    uint32_t hash;
    uint64_t (*module_handle)();
};

using client_probe_table_fn = const client_probe* (*)();

} // namespace velk::testing

extern "C" VELK_MODULE_EXPORT const velk::testing::client_probe* client_probe_table();
