// Benchmark helper: the script dispatcher benchmarks' common part, for any
// script engine. A host calls a script's loop function of n calls and gives
// its result; these time one loop per iteration, or a baseline loop and a
// dispatcher loop side by side; loop_bench_main is the program's main, with
// --calls=N from the command line.
//
//   struct my_host { double call(const char* loop, int64_t n); };
//   bench::run_loop(state, host, "loop_testfunction", state.range(0));
//
// What the engine needs around a call (an entered isolate, say) the
// benchmark sets up before it calls these.
#pragma once

#include "bench/thread_cpu_clock.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace bench {

// One benchmark of a loop: per iteration, one loop of n calls. The first
// call is a warm-up, so that the engine compiles the loop before it counts.
template <class Host>
void run_loop(benchmark::State& state, Host& host, const char* loop, int64_t n)
{
    host.call(loop, n);
    for (auto _ : state)
        benchmark::DoNotOptimize(host.call(loop, n));
    state.SetItemsProcessed(state.iterations() * n);
    state.counters["ns_per_call"] =
        benchmark::Counter(double(state.iterations() * n), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Both loops in each iteration, each timed on its own in the thread's CPU
// time: the dispatcher's time per call, the baseline's, and their `ratio`.
template <class Host>
void compare_loops(benchmark::State& state, Host& host, const char* raw_loop, const char* dispatcher_loop, int64_t n)
{
    host.call(raw_loop, n);
    host.call(dispatcher_loop, n);
    double raw = 0, dispatched = 0;
    for (auto _ : state) {
        double t0 = thread_cpu_ns();
        benchmark::DoNotOptimize(host.call(raw_loop, n));
        double t1 = thread_cpu_ns();
        benchmark::DoNotOptimize(host.call(dispatcher_loop, n));
        double t2 = thread_cpu_ns();
        raw += t1 - t0;
        dispatched += t2 - t1;
    }
    double total = double(state.iterations() * n);
    state.counters["raw_ns_per_call"] = raw / total;
    state.counters["dispatcher_ns_per_call"] = dispatched / total;
    state.counters["ratio"] = dispatched / raw;
}

// The calls of a loop whose calls do real work: the benchmark's N over
// divisor, at least one.
inline int64_t calls_of_heavy_loop(const benchmark::State& state, int64_t divisor)
{
    return std::max<int64_t>(1, state.range(0) / divisor);
}

// N when --calls isn't given: one short pass. The figure of record is
// --calls=10000000.
inline constexpr int64_t default_calls = 100000;

// Takes --calls=N out of the arguments before the benchmark library sees
// them; gives N (at least 1), or default_calls when it isn't given.
inline int64_t take_calls_argument(int& argc, char** argv)
{
    int64_t calls = default_calls;
    int out = 1;
    for (int i = 1; i < argc; ++i) {
        if (!strncmp(argv[i], "--calls=", 8))
            calls = std::max<int64_t>(1, atoll(argv[i] + 8));
        else
            argv[out++] = argv[i];
    }
    argc = out;
    return calls;
}

// A benchmark of the program, registered with N from --calls.
struct loop_benchmark
{
    const char* name;
    void (*fn)(benchmark::State&);
};

// The main of a loop benchmark program: takes --calls=N, makes the host
// once the arguments are known good (a wrong flag starts no engine),
// registers each benchmark with N, in milliseconds, runs them and deletes
// the host. Gives the exit status.
template <class Host>
int loop_bench_main(int argc, char** argv, Host*& host, std::initializer_list<loop_benchmark> benchmarks)
{
    const int64_t calls = take_calls_argument(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    host = new Host;
    for (const loop_benchmark& b : benchmarks)
        benchmark::RegisterBenchmark(b.name, b.fn)->Arg(calls)->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    delete host;
    host = nullptr;
    return 0;
}

} // namespace bench
