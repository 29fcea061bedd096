// Test probe of a module: what a plug-in built with its own copy of velk
// answers about its singletons. The probe modules export this table and
// sglo_registrar, nothing else; the tests load them with dlopen.
#pragma once

#include "comm/alloc/mspace.h"
#include "comm/singleton.h"

#include <cstdint>

namespace velk::testing {

// The object behind every probe singleton. It records which module made it
// and which module's init ran on it last, so that a test can tell the
// modules' code apart.
struct probe_instance
{
    char created_by = 0;
    int inits = 0;
    char last_init_by = 0;
};

struct singleton_probe
{
    char tag; // 'A' or 'B': which of the two builds this is

    // Registers a process-wide probe_instance under type_name.
    probe_instance* (*shared_instance)(const char* type_name);
    // The same through the typed use, under the run-time name of one class.
    probe_instance* (*typed_shared_instance)();
    // The module's local probe_instance, kept in a static as use sites do,
    // and removed by an exit function of the module.
    probe_instance* (*local_instance)();
    // Registers a new local probe_instance on every call.
    probe_instance* (*fresh_local_instance)();
    // remove_singleton of the module.
    void (*remove)(probe_instance* instance);
    // How often this module's create function has run.
    int (*creates)();
    // Counter that the local singleton's destroy raises; null stops it.
    void (*watch_local_destroy)(int* counter);

    global_singleton_manager* (*process_manager)();
    global_singleton_manager* (*own_shared_manager)();
    // The module calling sglo_registrar by name: the loader may bind that to
    // the main program's export.
    global_singleton_manager* (*registrar_by_name)();
    // os::main_program_symbol, called from inside the module.
    void* (*main_program_symbol)(const char* name);
    // A plain default lookup from inside the module, without the check that
    // the hit lies in the main program.
    void* (*default_lookup)(const char* name);
    // The module's handle and file, from an address inside it.
    uint64_t (*module_handle)();
    const char* (*module_file)();

    // The module's array space after its logger has made its message pool.
    mspace (*array_space_after_logger)();
    // The space that holds a dynarray made in the module.
    mspace (*dynarray_space)();
};

using singleton_probe_table_fn = const singleton_probe* (*)();

} // namespace velk::testing

extern "C" VELK_MODULE_EXPORT const velk::testing::singleton_probe* singleton_probe_table();
