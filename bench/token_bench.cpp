// token_hash over short keys, the length of registry keys and log sources.
#include "comm/token.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

static std::vector<std::string> short_keys()
{
    std::vector<std::string> keys;
    for (int i = 0; i < 1024; ++i)
        keys.push_back("xt::iface" + std::to_string(i) + ".create");
    return keys;
}

static void BM_token_hash_short_keys(benchmark::State& state)
{
    std::vector<std::string> keys = short_keys();
    size_t i = 0;
    for (auto _ : state) {
        const std::string& k = keys[i++ & 1023];
        benchmark::DoNotOptimize(velk::token(k.data(), k.size()).hash());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 20);
}
BENCHMARK(BM_token_hash_short_keys);

static void BM_std_hash_short_keys(benchmark::State& state)
{
    std::vector<std::string> keys = short_keys();
    size_t i = 0;
    std::hash<std::string_view> h;
    for (auto _ : state) {
        const std::string& k = keys[i++ & 1023];
        benchmark::DoNotOptimize(h(std::string_view(k)));
    }
}
BENCHMARK(BM_std_hash_short_keys);
