// Test helper: modules loaded as a host loads them, on either system: dlopen
// with immediate binding and local symbols, or LoadLibraryA.
#pragma once

#include "tests/support/windows_api.h"

#if !defined(_WIN32)
#include <dlfcn.h>
#endif

namespace velk::testing {

// The module at path, loaded (or counted once more); null when it can't be.
inline void* load_module(const char* path)
{
#if defined(_WIN32)
    return LoadLibraryA(path);
#else
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
#endif
}

// An export of a loaded module, or null.
inline void* module_symbol(void* module, const char* name)
{
#if defined(_WIN32)
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
#else
    return dlsym(module, name);
#endif
}

// Counts the module once less; true when the loader accepted it.
inline bool unload_module(void* module)
{
#if defined(_WIN32)
    return FreeLibrary(static_cast<HMODULE>(module)) != FALSE;
#else
    return dlclose(module) == 0;
#endif
}

// Whether the module at path is in the process: a lookup that never loads.
inline bool module_in_process(const char* path)
{
#if defined(_WIN32)
    return GetModuleHandleA(path) != nullptr;
#else
    void* h = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (!h)
        return false;
    dlclose(h);
    return true;
#endif
}

// The loader's word on the last failure, for a test's message.
inline const char* module_error()
{
#if defined(_WIN32)
    static char text[32];
    wsprintfA(text, "error %lu", GetLastError());
    return text;
#else
    const char* e = dlerror();
    return e ? e : "no error";
#endif
}

} // namespace velk::testing
