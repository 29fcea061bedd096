// Uncontended lock and unlock: comm_mutex against std::recursive_mutex.
#include "comm/pthreadx.h"

#include <benchmark/benchmark.h>

#include <mutex>

static void BM_comm_mutex_uncontended(benchmark::State& state)
{
    velk::comm_mutex m(500);
    for (auto _ : state) {
        m.lock();
        m.unlock();
    }
}
BENCHMARK(BM_comm_mutex_uncontended);

static void BM_std_recursive_mutex_uncontended(benchmark::State& state)
{
    std::recursive_mutex m;
    for (auto _ : state) {
        m.lock();
        m.unlock();
    }
}
BENCHMARK(BM_std_recursive_mutex_uncontended);
