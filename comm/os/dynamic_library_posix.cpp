// Modules on POSIX: dlopen with immediate binding and local symbols, so that
// each module keeps its own copy of the library.
#include "comm/dynamic_library.h"

#include <dlfcn.h>

namespace velk {

bool dynamic_library::open(const char* name)
{
    _handle = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    return _handle != nullptr;
}

charstr dynamic_library::last_failure()
{
    const char* reason = dlerror(); // null when the loader has nothing to say
    return reason ? charstr(token(reason)) : charstr();
}

bool dynamic_library::close()
{
    if (!_handle || dlclose(_handle) != 0)
        return false;
    _handle = nullptr;
    return true;
}

void* dynamic_library::symbol(const char* name) const
{
    return _handle ? dlsym(_handle, name) : nullptr;
}

} // namespace velk
