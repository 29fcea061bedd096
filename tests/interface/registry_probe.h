// Test probe of a second module beside the plug-in: a module with its own
// copy of velk and one key of its own, entered by a static registration.
// It exports this table and its registrars, nothing else.
#pragma once

#include "interface/interface_register.h"

#include <cstdint>

namespace velk::testing {

struct registry_probe
{
    // The key that the module's static registration enters, and its creator.
    const char* own_key;
    creator_fn (*own_creator)();

    // The module's front: what it finds and what it answers.
    interface_register_impl* (*registrar)();
    bool (*register_creator)(const char* key, creator_fn creator);
    creator_fn (*get_creator)(const char* key);
    uint64_t (*module_handle)();
};

using registry_probe_table_fn = const registry_probe* (*)();

} // namespace velk::testing

extern "C" VELK_MODULE_EXPORT const velk::testing::registry_probe* registry_probe_table();
