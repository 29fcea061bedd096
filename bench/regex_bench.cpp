// Regular expressions, measured three ways.
// - Patterns that make a backtracking matcher explode, over 1k to 1M
//   characters: the time must grow linearly (Google Benchmark fits the
//   complexity; look for "O(N)" and a small RMS).
// - Full matches of registry-style patterns over 10,000 registry-like keys,
//   as the registry selects names: velk against std::regex_match and
//   RE2::FullMatch. Goals: at least 5 times faster than std::regex on every
//   pattern, within 3 times of RE2. Time per iteration is one key.
// - An unanchored search through 1 MiB of text, in bytes per second, against
//   std::regex_search and RE2::PartialMatch.
#include "bench/registry_keys.h"
#include "comm/regex/regex.h"

#include <benchmark/benchmark.h>
#include <re2/re2.h>

#include <regex>
#include <string>
#include <vector>

using velk::regex;
using velk::token;

namespace {

// -- Linear time on pathological patterns ---------------------------------------

void pathological(benchmark::State& state, const char* pattern, char fill, bool full)
{
    regex re;
    re.compile(pattern);
    std::string text(static_cast<size_t>(state.range(0)), fill);
    token in(text.data(), text.size());
    for (auto _ : state)
        benchmark::DoNotOptimize(full ? re.match(in) : re.find(in));
    state.SetComplexityN(state.range(0));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_velk_nested_star_find(benchmark::State& state) { pathological(state, "(a*)*b", 'a', false); }

// The same through the rounds of an anchored run: a sub-match slot keeps the
// run off the memo of states.
void BM_velk_nested_star_match_rounds(benchmark::State& state)
{
    regex re;
    re.compile("(a*)*b");
    std::string text(static_cast<size_t>(state.range(0)), 'a');
    token in(text.data(), text.size());
    token subs[2];
    for (auto _ : state)
        benchmark::DoNotOptimize(re.match(in, subs, 2));
    state.SetComplexityN(state.range(0));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
void BM_velk_nested_plus_match(benchmark::State& state) { pathological(state, "(a+a+)+b", 'a', true); }
void BM_velk_alternation_star_match(benchmark::State& state) { pathological(state, "(a|aa|aaa)*b", 'a', true); }

BENCHMARK(BM_velk_nested_star_find)->RangeMultiplier(10)->Range(1000, 1000000)->Complexity(benchmark::oN);
BENCHMARK(BM_velk_nested_star_match_rounds)->RangeMultiplier(10)->Range(1000, 1000000)->Complexity(benchmark::oN);
BENCHMARK(BM_velk_nested_plus_match)->RangeMultiplier(10)->Range(1000, 1000000)->Complexity(benchmark::oN);
BENCHMARK(BM_velk_alternation_star_match)->RangeMultiplier(10)->Range(1000, 1000000)->Complexity(benchmark::oN);

// -- Registry-style full matches -----------------------------------------------------

// The shared registry workload, and the forms it lacks: script creators and
// Lua class registrations.
const std::vector<std::string>& keys()
{
    static const std::vector<std::string> k = [] {
        std::vector<std::string> all = bench::lookup_keys(10000, false);
        for (size_t i = 7; i < all.size(); i += 8) {
            std::string n = std::to_string(i);
            all[i] = i % 16 == 7 ? "xt::iface" + n + ".create@creator.js" : "lua::register_class.xt_iface" + n;
        }
        return all;
    }();
    return k;
}

const char* const patterns[] = {
    "xt::.*",
    ".*@creator\\.js",
    "xt::iface[0-9]+\\..*@[0-9]+",
    "xt::hostprobe_plugin\\..*@[0-9]+",
    "[a-z_:]+@wrapper",
    "[a-z_:0-9]+@wrapper",
    "xt::(js|lua)::.*",
    ".*@(wrapper|maker\\.js)",
};

template <class MATCH>
void full_match(benchmark::State& state, MATCH&& matches)
{
    const std::vector<std::string>& k = keys();
    size_t i = 0;
    int64_t hits = 0;
    for (auto _ : state) {
        hits += matches(k[i]);
        if (++i == k.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["hit_rate"] = benchmark::Counter(static_cast<double>(hits) / static_cast<double>(state.iterations()));
    state.SetLabel(patterns[state.range(0)]);
}

void BM_full_velk(benchmark::State& state)
{
    regex re;
    re.compile(patterns[state.range(0)]);
    full_match(state, [&](const std::string& key) {
        return !re.match(token(key.data(), key.size())).is_empty();
    });
}

void BM_full_std_regex(benchmark::State& state)
{
    std::regex re(patterns[state.range(0)], std::regex::ECMAScript | std::regex::optimize);
    full_match(state, [&](const std::string& key) { return std::regex_match(key, re); });
}

void BM_full_re2(benchmark::State& state)
{
    RE2 re(patterns[state.range(0)]);
    full_match(state, [&](const std::string& key) { return RE2::FullMatch(key, re); });
}

constexpr int npatterns = sizeof(patterns) / sizeof(patterns[0]);
BENCHMARK(BM_full_velk)->DenseRange(0, npatterns - 1);
BENCHMARK(BM_full_std_regex)->DenseRange(0, npatterns - 1);
BENCHMARK(BM_full_re2)->DenseRange(0, npatterns - 1);

// -- Unanchored search through 1 MiB ---------------------------------------------------

// Registry keys, one per line, up to 1 MiB, with the sought key as the last line.
const std::string& mib_text()
{
    static const std::string text = [] {
        std::string t;
        const std::vector<std::string>& k = keys();
        for (size_t i = 0; t.size() < (1u << 20) - 64; ++i)
            t += k[i % k.size()] + "\n";
        t += "xt::hostprobe_plugin.create@3445205045\n";
        return t;
    }();
    return text;
}

// The first two start with a fixed character, which find jumps to: a rare
// one, and one that starts every line. The third runs every alternative from
// every position.
const char* const search_patterns[] = {
    "hostprobe_plugin\\.create@[0-9]+",
    "xt::hostprobe_plugin\\.create@[0-9]+",
    "[a-z]+_plugin\\.create@[0-9]+",
};

void BM_search_velk(benchmark::State& state)
{
    regex re;
    re.compile(search_patterns[state.range(0)]);
    const std::string& text = mib_text();
    for (auto _ : state)
        benchmark::DoNotOptimize(re.find(token(text.data(), text.size())));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
    state.SetLabel(search_patterns[state.range(0)]);
}

void BM_search_std_regex(benchmark::State& state)
{
    std::regex re(search_patterns[state.range(0)], std::regex::ECMAScript | std::regex::optimize);
    const std::string& text = mib_text();
    for (auto _ : state)
        benchmark::DoNotOptimize(std::regex_search(text, re));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
    state.SetLabel(search_patterns[state.range(0)]);
}

void BM_search_re2(benchmark::State& state)
{
    RE2 re(search_patterns[state.range(0)]);
    const std::string& text = mib_text();
    for (auto _ : state)
        benchmark::DoNotOptimize(RE2::PartialMatch(text, re));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
    state.SetLabel(search_patterns[state.range(0)]);
}

BENCHMARK(BM_search_velk)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_search_std_regex)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_search_re2)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

} // namespace
