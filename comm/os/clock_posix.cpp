// Clocks on POSIX: the monotonic clock stands for the performance counter
// (frequency 1e9) and for the millisecond tick; the real-time clock for the
// system time.
#include "comm/os/clock.h"

#include <ctime>

namespace velk::os {

namespace {
constexpr uint64_t ns_per_s = 1000000000ull;
// Seconds from 1601-01-01 to 1970-01-01: 369 years, 89 of them leap years.
constexpr uint64_t filetime_epoch_s = 11644473600ull;

uint64_t monotonic_ns()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * ns_per_s + static_cast<uint64_t>(ts.tv_nsec);
}
} // namespace

uint64_t perf_counter() { return monotonic_ns(); }

uint64_t perf_frequency() { return ns_per_s; }

uint64_t system_filetime()
{
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return (static_cast<uint64_t>(ts.tv_sec) + filetime_epoch_s) * 10000000ull
         + static_cast<uint64_t>(ts.tv_nsec) / 100;
}

int64_t seconds_since_1970() { return static_cast<int64_t>(::time(nullptr)); }

uint32_t tick_ms() { return static_cast<uint32_t>(monotonic_ns() / 1000000ull); }

} // namespace velk::os
