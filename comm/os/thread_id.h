// Platform seam of thread identity: the calling thread's id, the kernel's
// 32-bit thread id, which is never 0 for a running thread.
#pragma once

#include <unistd.h>

#include <cstdint>

namespace velk::os {

inline uint32_t current_thread_id() { return static_cast<uint32_t>(gettid()); }

} // namespace velk::os
