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
#endif
