// Modules on Windows: LoadLibraryA, FreeLibrary and GetProcAddress. A DLL
// always keeps its own symbols, so each module has its own copy of the
// library without further flags.
#include "comm/dynamic_library.h"

#include <windows.h>

namespace velk {

bool dynamic_library::open(const char* name)
{
    _handle = LoadLibraryA(name);
    return _handle != nullptr;
}

bool dynamic_library::close()
{
    if (!_handle || !FreeLibrary(static_cast<HMODULE>(_handle)))
        return false;
    _handle = nullptr;
    return true;
}

void* dynamic_library::symbol(const char* name) const
{
    return _handle ? reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(_handle), name)) : nullptr;
}

} // namespace velk
