// Test helper: the Windows API for the helpers that run on either system,
// without the macros that clash with the standard library (min, max) and
// without the parts no test uses. Empty on other systems.
#pragma once

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef NOGDI
#define NOGDI
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

namespace velk::testing {

// Whether the program runs under wine rather than Windows: its ntdll has an
// export of its own. For the few cases where wine answers differently.
inline bool under_wine()
{
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version");
}

} // namespace velk::testing
#endif
