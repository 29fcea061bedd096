// The plug-in's generator against std::mt19937 doing the same work: seeding
// plus one refill for the first output.
#include "plugin/mersenne_twister.h"

#include <benchmark/benchmark.h>

#include <random>

static void BM_mt19937_first_output(benchmark::State& state)
{
    uint32_t seed = 1;
    for (auto _ : state)
        benchmark::DoNotOptimize(xt::mt19937_first_output(seed++));
}
BENCHMARK(BM_mt19937_first_output);

static void BM_std_mt19937_first_output(benchmark::State& state)
{
    uint32_t seed = 1;
    for (auto _ : state) {
        std::mt19937 gen(seed++);
        benchmark::DoNotOptimize(gen());
    }
}
BENCHMARK(BM_std_mt19937_first_output);
