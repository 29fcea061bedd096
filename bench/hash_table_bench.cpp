// Lookups by text key: the registry's table against std::unordered_map.
//
// Both hold the same keys, shaped as registry keys (20 to 40 characters).
// The table's entries carry their whole text with a module part behind the
// key, as the registry's do; the map is keyed by std::string and looked up
// through std::string_view without building a string. Each pass asks the
// keys in a shuffled order, so that neither side walks memory in sequence.
#include "bench/registry_keys.h"
#include "comm/charstr.h"
#include "comm/hash_table.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

struct entry
{
    velk::charstr ifcname;
    void* creator;
    uint32_t keylen;
};
using registry_table = velk::token_hash_table<entry>;

using bench::key_of;
using bench::lookup_keys;
using bench::std_map;

void fill(registry_table& t, int n)
{
    for (int i = 0; i < n; ++i) {
        std::string key = key_of(i, false);
        std::string full = key + "*hostprobe_plugin.so:140714283171840";
        entry* e = t.insert_unique(velk::token(full.data(), key.size()));
        e->ifcname = velk::token(full.data(), full.size());
        e->keylen = static_cast<uint32_t>(key.size());
        e->creator = e;
    }
}

void table_find(benchmark::State& state, bool missing)
{
    int n = static_cast<int>(state.range(0));
    registry_table t;
    fill(t, n);
    std::vector<std::string> keys = lookup_keys(n, missing);
    std::vector<velk::token> tokens;
    for (const std::string& k : keys)
        tokens.emplace_back(k.data(), k.size());
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(t.find_value(tokens[i]));
        if (++i == tokens.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

static void BM_hash_table_find_existing(benchmark::State& state) { table_find(state, false); }
static void BM_unordered_map_find_existing(benchmark::State& state) { bench::std_map_find(state, false); }
static void BM_hash_table_find_missing(benchmark::State& state) { table_find(state, true); }
static void BM_unordered_map_find_missing(benchmark::State& state) { bench::std_map_find(state, true); }

// 10 to 10,000 entries: one module's keys up to a host full of modules.
BENCHMARK(BM_hash_table_find_existing)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(BM_unordered_map_find_existing)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(BM_hash_table_find_missing)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(BM_unordered_map_find_missing)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
