// Modules on POSIX: dlopen with immediate binding and local symbols, so that
// each module keeps its own copy of the library.
#include "comm/dynamic_library.h"

#include <dlfcn.h>

namespace velk {

bool dynamic_library::open(const char* name)
{
    _handle = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    _error.reset();
    if (!_handle) {
        const char* reason = dlerror(); // null when the loader has nothing to say
        if (reason)
            _error = token(reason);
    }
    return _handle != nullptr;
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
