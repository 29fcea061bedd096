// Platform seam of thread identity: the calling thread's id, the system's
// 32-bit thread id (the kernel's on Linux, GetCurrentThreadId on Windows),
// which is never 0 for a running thread.
#pragma once

#include <cstdint>

#if defined(_WIN32)
namespace velk::os {
// Out of line, so that <windows.h> stays out of the library's headers.
uint32_t current_thread_id();
} // namespace velk::os
#else
#include <unistd.h>

namespace velk::os {
inline uint32_t current_thread_id() { return static_cast<uint32_t>(gettid()); }
} // namespace velk::os
#endif
