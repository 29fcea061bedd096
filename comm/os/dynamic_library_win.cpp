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

charstr dynamic_library::last_failure()
{
    DWORD code = GetLastError();
    if (!code)
        return charstr();
    char* text = nullptr;
    DWORD n = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                             nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    while (n && (text[n - 1] == '\n' || text[n - 1] == '\r' || text[n - 1] == ' '))
        --n; // the system's text ends its line
    charstr out;
    if (n)
        out = token(text, n);
    LocalFree(text);
    SetLastError(0); // given once, as the POSIX loader gives its words
    return out;
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
