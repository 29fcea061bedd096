// Platform seam of the clocks: the raw readings the timer code is built on.
#pragma once

#include <cstdint>

namespace velk::os {

uint64_t perf_counter();      // a monotonic count
uint64_t perf_frequency();    // counts per second
uint64_t system_filetime();   // wall clock, 100 ns units since 1601-01-01 UTC
int64_t seconds_since_1970(); // the runtime's time()
uint32_t tick_ms();           // monotonic milliseconds, taken to 32 bits

} // namespace velk::os
