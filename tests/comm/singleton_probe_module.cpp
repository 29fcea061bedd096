// A probe module: built twice, as two plug-ins that each link their own copy
// of velk, and loaded by the cross-module tests. PROBE_TAG tells the builds
// apart in what they record.
#include "tests/comm/singleton_probe.h"

#include "comm/alloc/commalloc.h"
#include "comm/dynarray.h"
#include "comm/log/logger.h"
#include "comm/os/module.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#ifndef PROBE_TAG
#error "PROBE_TAG names the build of the probe module: 'A' or 'B'"
#endif

namespace velk::testing {

// One class, registered by its run-time type name from both builds.
struct probe_typed : probe_instance
{
};

} // namespace velk::testing

namespace {

using velk::testing::probe_instance;
using velk::testing::probe_typed;

int create_count = 0;
int* local_destroy_counter = nullptr;
probe_instance* the_local = nullptr;

void* create_probe()
{
    ++create_count;
    auto* p = new probe_instance;
    p->created_by = PROBE_TAG;
    return p;
}

void destroy_probe(void* p) { delete static_cast<probe_instance*>(p); }

void init_probe(void* p)
{
    auto* instance = static_cast<probe_instance*>(p);
    ++instance->inits;
    instance->last_init_by = PROBE_TAG;
}

void destroy_local_probe(void* p)
{
    if (local_destroy_counter)
        ++*local_destroy_counter;
    destroy_probe(p);
}

// The exit function that the site owning the_local enrols: it runs when the
// module is unloaded.
void remove_local()
{
    if (the_local)
        velk::remove_singleton(the_local);
    the_local = nullptr;
}

// Enrols remove_local through a static's destruction, which is tied to this
// module: ThreadSanitizer takes over std::atexit and runs its functions only
// at the end of the process, after the module's code is gone.
struct local_exit
{
    ~local_exit() { remove_local(); }
};

probe_instance* shared_instance(const char* type_name)
{
    return static_cast<probe_instance*>(velk::register_singleton(
        &create_probe, &destroy_probe, &init_probe, type_name, __FILE__, __LINE__, false));
}

probe_instance* typed_shared_instance()
{
    return velk::register_singleton_of<probe_typed>(false, __FILE__, __LINE__, &init_probe);
}

probe_instance* local_instance()
{
    if (!the_local) {
        the_local = static_cast<probe_instance*>(velk::register_singleton(
            &create_probe, &destroy_local_probe, nullptr, "probe_local", __FILE__, __LINE__, true));
        static local_exit enrolled; // made after the_local's manager, so it goes before it
    }
    return the_local;
}

probe_instance* fresh_local_instance()
{
    return static_cast<probe_instance*>(velk::register_singleton(
        &create_probe, &destroy_probe, nullptr, "probe_fresh", __FILE__, __LINE__, true));
}

void remove(probe_instance* instance) { velk::remove_singleton(instance); }

int creates() { return create_count; }

void watch_local_destroy(int* counter) { local_destroy_counter = counter; }

velk::global_singleton_manager* process_manager() { return &velk::process_singleton_manager(); }

velk::global_singleton_manager* own_shared_manager() { return &velk::own_shared_singleton_manager(); }

// Through the exported name, as any caller inside the module would write it.
velk::global_singleton_manager* registrar_by_name() { return sglo_registrar(); }

void* main_program_symbol(const char* name) { return velk::os::main_program_symbol(name); }

// dlsym judges the search scope by its caller, which must be this module and
// not, through a tail call, the test program: the barrier keeps the call.
// Windows has no default search; its nearest pitfall is a lookup in the
// caller's own module.
void* default_lookup(const char* name)
{
#if defined(_WIN32)
    HMODULE self = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCSTR>(&default_lookup), &self);
    void* sym = reinterpret_cast<void*>(GetProcAddress(self, name));
#else
    void* sym = dlsym(RTLD_DEFAULT, name);
#endif
    asm volatile("" : : "r"(sym) : "memory");
    return sym;
}

uint64_t module_handle() { return velk::os::module_handle_of(reinterpret_cast<const void*>(&create_probe)); }

const char* module_file() { return velk::os::module_file_of(reinterpret_cast<const void*>(&create_probe)); }

velk::mspace array_space_after_logger()
{
    velk::log_message_pool();
    return velk::comm_array_space();
}

velk::mspace dynarray_space()
{
    velk::dynarray<int> numbers;
    *numbers.add(1) = 1;
    return velk::mspace_owner(reinterpret_cast<const char*>(numbers.ptr()) - 8);
}

constexpr velk::testing::singleton_probe probe = {
    PROBE_TAG,
    &shared_instance,
    &typed_shared_instance,
    &local_instance,
    &fresh_local_instance,
    &remove,
    &creates,
    &watch_local_destroy,
    &process_manager,
    &own_shared_manager,
    &registrar_by_name,
    &main_program_symbol,
    &default_lookup,
    &module_handle,
    &module_file,
    &array_space_after_logger,
    &dynarray_space,
};

} // namespace

extern "C" const velk::testing::singleton_probe* singleton_probe_table() { return &probe; }
