// Benchmark helper: registry-shaped keys and the standard map they are
// measured against, shared by the hash table and registry benchmarks so both
// run the same workload.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace bench {

// Heterogeneous lookup: a std::string_view finds a std::string key without a copy.
struct string_hash
{
    using is_transparent = void;
    size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
};
struct string_equal
{
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const noexcept { return a == b; }
};
using std_map = std::unordered_map<std::string, void*, string_hash, string_equal>;

// The forms of registry keys, one after the other; missing keys never match.
inline std::string key_of(int i, bool missing)
{
    std::string n = std::to_string(i) + (missing ? "x" : "");
    switch (i % 4) {
    case 0: return "xt::iface" + n + "@wrapper";
    case 1: return "xt::iface" + n + ".create@3445205045";
    case 2: return "xt::js::iface" + n + ".create";
    default: return "xt::iface" + n + "@maker.js";
    }
}

// Lookup keys for a pass: n present or n missing keys, shuffled.
inline std::vector<std::string> lookup_keys(int n, bool missing)
{
    std::vector<std::string> keys;
    for (int i = 0; i < n; ++i)
        keys.push_back(key_of(i, missing));
    std::shuffle(keys.begin(), keys.end(), std::mt19937(12345)); // fixed: runs compare
    return keys;
}

// Fills m with the first n present keys.
inline void fill(std_map& m, int n)
{
    for (int i = 0; i < n; ++i)
        m.emplace(key_of(i, false), &m);
}

// The standard map's side of a lookup benchmark: range(0) keys, present or missing.
inline void std_map_find(benchmark::State& state, bool missing)
{
    int n = static_cast<int>(state.range(0));
    std_map m;
    fill(m, n);
    std::vector<std::string> keys = lookup_keys(n, missing);
    std::vector<std::string_view> views(keys.begin(), keys.end());
    size_t i = 0;
    for (auto _ : state) {
        auto it = m.find(views[i]);
        benchmark::DoNotOptimize(it == m.end() ? nullptr : it->second);
        if (++i == views.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace bench
