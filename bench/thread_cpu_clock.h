// Benchmark helper: the calling thread's CPU clock, for benchmarks that time
// two ways in one iteration and report their ratio.
//
// On a busy machine wall time counts other processes' turns too; the
// thread's CPU time does not, so a ratio of two such times holds there.
#pragma once

#include <ctime>

namespace bench {

// The thread's CPU time in nanoseconds. A read is a system call of a few
// hundred nanoseconds: time enough work between two reads.
inline double thread_cpu_ns()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) * 1e9 + double(t.tv_nsec);
}

} // namespace bench
