// Clocks on Windows: the performance counter, the system time as a file
// time, and the multimedia timer's millisecond tick.
#include "comm/os/clock.h"

#include <windows.h>
#include <mmsystem.h>

#include <ctime>

namespace velk::os {

uint64_t perf_counter()
{
    LARGE_INTEGER v;
    QueryPerformanceCounter(&v);
    return static_cast<uint64_t>(v.QuadPart);
}

uint64_t perf_frequency()
{
    LARGE_INTEGER v;
    QueryPerformanceFrequency(&v);
    return static_cast<uint64_t>(v.QuadPart);
}

uint64_t system_filetime()
{
    SYSTEMTIME st;
    GetSystemTime(&st);
    FILETIME ft;
    SystemTimeToFileTime(&st, &ft);
    return (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}

int64_t seconds_since_1970() { return static_cast<int64_t>(::time(nullptr)); }

uint32_t tick_ms() { return timeGetTime(); }

} // namespace velk::os
