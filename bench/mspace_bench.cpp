// Memory spaces against the runtime's malloc and free, single-threaded, on
// the same precomputed workloads: slots that are refilled at random, so that
// blocks live for random spans; every block is written whole.
//
//   small:  8 to 512 bytes, 16384 slots, 3,000,000 steps
//   small_hot: the same sizes over 256 slots, all in the cache
//   larger: 1 KiB to 200 KiB (log-uniform, below the direct threshold), 512
//           slots, 300,000 steps
//   direct: 256 KiB to 4 MiB, 32 slots (every block a region of its own),
//           2,000 steps
//
// The runtime's malloc keeps a per-thread cache in front of its bins, which
// the memory spaces by design do not have; run with
// GLIBC_TUNABLES=glibc.malloc.tcache_count=0 to compare with its bins alone.
//
// The step counts are fixed, so that each benchmark is one run on a fresh
// heap and its resident-set figure is its own.
//
// Counters: peak_footprint_MiB (the space's peak footprint) and
// peak_rss_growth_MiB (the growth of the process's peak resident set during
// the run, after giving back what the previous run left). The runtime heap
// keeps some memory across runs, so run one benchmark per process for the
// cleanest resident-set figures.
#include "comm/alloc/mspace.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr double mib = 1024.0 * 1024.0;
constexpr size_t sequence_length = 1 << 20;
// Enough steps for each workload to reach its steady state many times over.
constexpr benchmark::IterationCount small_steps = 3'000'000;
constexpr benchmark::IterationCount larger_steps = 300'000;
constexpr benchmark::IterationCount direct_steps = 2'000;

struct operation
{
    uint32_t slot;
    uint32_t size;
};

struct workload
{
    std::vector<operation> ops;
    uint32_t slots;
};

workload make_workload(uint32_t slots, uint32_t min_size, uint32_t max_size, bool log_uniform)
{
    std::mt19937_64 rng(42);
    workload w{{}, slots};
    w.ops.resize(sequence_length);
    double lo = std::log(min_size), hi = std::log(max_size);
    for (operation& op : w.ops) {
        op.slot = static_cast<uint32_t>(rng() % slots);
        if (log_uniform)
            op.size = static_cast<uint32_t>(
                std::exp(lo + (hi - lo) * (static_cast<double>(rng() >> 11) / 9007199254740992.0)));
        else
            op.size = min_size + static_cast<uint32_t>(rng() % (max_size - min_size + 1));
    }
    return w;
}

const workload& small_workload()
{
    static workload w = make_workload(16384, 8, 512, false);
    return w;
}

// The same sizes over few slots: every block stays in the cache, so that
// the figure is the allocator's own work rather than its cache misses.
const workload& small_hot_workload()
{
    static workload w = make_workload(256, 8, 512, false);
    return w;
}

const workload& larger_workload()
{
    static workload w = make_workload(512, 1024, 200 * 1024, true);
    return w;
}

const workload& direct_workload()
{
    static workload w = make_workload(32, 256 * 1024, 4 * 1024 * 1024, true);
    return w;
}

// Resident set sizes from /proc: current, and peak since the last reset.
uint64_t proc_status_kib(const char* key)
{
    FILE* f = std::fopen("/proc/self/status", "r");
    if (!f)
        return 0;
    char line[256];
    uint64_t value = 0;
    size_t n = std::strlen(key);
    while (std::fgets(line, sizeof(line), f))
        if (std::strncmp(line, key, n) == 0)
            value = std::strtoull(line + n, nullptr, 10);
    std::fclose(f);
    return value;
}

// Gives back the runtime heap's free memory and restarts the peak resident
// set, so that a run's peak growth is its own.
uint64_t start_rss_measurement()
{
    malloc_trim(0);
    if (FILE* f = std::fopen("/proc/self/clear_refs", "w")) {
        std::fputs("5", f);
        std::fclose(f);
    }
    return proc_status_kib("VmRSS:");
}

double peak_rss_growth_mib(uint64_t start_kib)
{
    uint64_t peak = proc_status_kib("VmHWM:");
    return peak > start_kib ? static_cast<double>(peak - start_kib) / 1024.0 : 0.0;
}

// Runs the workload over an allocator: each step releases what the slot
// holds and fills it with a new block, written whole.
template <class Alloc, class Release>
void run(benchmark::State& state, const workload& w, Alloc alloc, Release release)
{
    std::vector<void*> slots(w.slots, nullptr);
    size_t i = 0;
    for (auto _ : state) {
        const operation& op = w.ops[i];
        if (++i == w.ops.size())
            i = 0;
        void*& slot = slots[op.slot];
        if (slot)
            release(slot);
        slot = alloc(op.size);
        std::memset(slot, static_cast<int>(i), op.size);
        benchmark::DoNotOptimize(slot);
    }
    for (void* p : slots)
        if (p)
            release(p);
}

void run_mspace(benchmark::State& state, const workload& w, bool locked)
{
    uint64_t rss = start_rss_measurement();
    velk::mspace space = velk::mspace_create(0, locked, 0);
    run(
        state, w, [space](uint64_t n) { return velk::mspace_alloc(space, n); },
        [](void* p) { velk::mspace_release(p); });
    state.counters["peak_footprint_MiB"] = static_cast<double>(velk::mspace_peak_footprint(space)) / mib;
    state.counters["peak_rss_growth_MiB"] = peak_rss_growth_mib(rss);
    velk::mspace_destroy(space);
}

void run_malloc(benchmark::State& state, const workload& w)
{
    uint64_t rss = start_rss_measurement();
    run(
        state, w, [](uint64_t n) { return std::malloc(n); }, [](void* p) { std::free(p); });
    state.counters["peak_rss_growth_MiB"] = peak_rss_growth_mib(rss);
}

} // namespace

static void BM_small_mspace_locked(benchmark::State& state)
{
    run_mspace(state, small_workload(), true);
}
BENCHMARK(BM_small_mspace_locked)->Iterations(small_steps);

static void BM_small_mspace_unlocked(benchmark::State& state)
{
    run_mspace(state, small_workload(), false);
}
BENCHMARK(BM_small_mspace_unlocked)->Iterations(small_steps);

static void BM_small_malloc(benchmark::State& state)
{
    run_malloc(state, small_workload());
}
BENCHMARK(BM_small_malloc)->Iterations(small_steps);

static void BM_small_hot_mspace_locked(benchmark::State& state)
{
    run_mspace(state, small_hot_workload(), true);
}
BENCHMARK(BM_small_hot_mspace_locked)->Iterations(small_steps);

static void BM_small_hot_malloc(benchmark::State& state)
{
    run_malloc(state, small_hot_workload());
}
BENCHMARK(BM_small_hot_malloc)->Iterations(small_steps);

static void BM_larger_mspace_locked(benchmark::State& state)
{
    run_mspace(state, larger_workload(), true);
}
BENCHMARK(BM_larger_mspace_locked)->Iterations(larger_steps);

static void BM_larger_malloc(benchmark::State& state)
{
    run_malloc(state, larger_workload());
}
BENCHMARK(BM_larger_malloc)->Iterations(larger_steps);

static void BM_direct_mspace_locked(benchmark::State& state)
{
    run_mspace(state, direct_workload(), true);
}
BENCHMARK(BM_direct_mspace_locked)->Iterations(direct_steps);

static void BM_direct_malloc(benchmark::State& state)
{
    run_malloc(state, direct_workload());
}
BENCHMARK(BM_direct_malloc)->Iterations(direct_steps);
