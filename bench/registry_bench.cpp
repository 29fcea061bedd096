// The interface registry: get_creator, the front's lookup with its version
// check and the registry's mutex, against a std::unordered_map keyed by
// std::string and looked up through std::string_view, bare and behind a
// recursive lock; and the time to load the plug-in, its static
// registration included, and to unload it, its keys' removal included.
//
// This program exports its registry as a host does. Keys have the shapes of
// registry keys, 20 to 40 characters; each pass asks them in a shuffled
// order. HOSTPROBE_PLUGIN is the plug-in's path from the build.
#include "bench/registry_keys.h"
#include "interface/registrar.h"

#include <dlfcn.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

using bench::key_of;
using bench::lookup_keys;
using bench::std_map;

void some_creator() {}

// n keys in the process's registry for the life of the object.
class registered_keys
{
public:
    explicit registered_keys(int n) : _n(n)
    {
        auto c = reinterpret_cast<velk::creator_fn>(&some_creator);
        for (int i = 0; i < n; ++i)
            velk::register_creator(key_of(i, false).c_str(), c);
    }
    ~registered_keys()
    {
        for (int i = 0; i < _n; ++i)
            velk::register_creator(key_of(i, false).c_str(), nullptr);
    }

private:
    int _n;
};

void registry_get(benchmark::State& state, bool missing)
{
    int n = static_cast<int>(state.range(0));
    registered_keys keys(n);
    std::vector<std::string> texts = lookup_keys(n, missing);
    std::vector<velk::token> tokens;
    for (const std::string& k : texts)
        tokens.emplace_back(k.data(), k.size());
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(velk::get_creator(tokens[i]));
        if (++i == tokens.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

// The same map behind a recursive lock, as a table that many threads share
// must be: the registry's mutex is recursive too.
void locked_std_find(benchmark::State& state, bool missing)
{
    int n = static_cast<int>(state.range(0));
    std_map m;
    std::recursive_mutex lock;
    bench::fill(m, n);
    std::vector<std::string> keys = lookup_keys(n, missing);
    std::vector<std::string_view> views(keys.begin(), keys.end());
    size_t i = 0;
    for (auto _ : state) {
        void* found;
        {
            std::lock_guard<std::recursive_mutex> guard(lock);
            auto it = m.find(views[i]);
            found = it == m.end() ? nullptr : it->second;
        }
        benchmark::DoNotOptimize(found);
        if (++i == views.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

void* load_plugin() { return dlopen(HOSTPROBE_PLUGIN, RTLD_NOW | RTLD_LOCAL); }

} // namespace

static void BM_get_creator_existing(benchmark::State& state) { registry_get(state, false); }
static void BM_unordered_map_find_existing(benchmark::State& state) { bench::std_map_find(state, false); }
static void BM_get_creator_missing(benchmark::State& state) { registry_get(state, true); }
static void BM_unordered_map_find_missing(benchmark::State& state) { bench::std_map_find(state, true); }

static void BM_locked_unordered_map_find_existing(benchmark::State& state) { locked_std_find(state, false); }
static void BM_locked_unordered_map_find_missing(benchmark::State& state) { locked_std_find(state, true); }

// 10 to 1,000 entries: one module's keys up to a host full of modules.
BENCHMARK(BM_get_creator_existing)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(BM_unordered_map_find_existing)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(BM_locked_unordered_map_find_existing)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(BM_get_creator_missing)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(BM_unordered_map_find_missing)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(BM_locked_unordered_map_find_missing)->Arg(10)->Arg(100)->Arg(1000);

// Loading maps the module, runs its static initialisers and enters its keys.
static void BM_dlopen_plugin(benchmark::State& state)
{
    for (auto _ : state) {
        void* h = load_plugin();
        state.PauseTiming();
        if (!h) {
            state.SkipWithError(dlerror());
            break;
        }
        dlclose(h);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_dlopen_plugin)->Unit(benchmark::kMicrosecond);

// Unloading runs the module's exit functions, which remove its keys, and unmaps it.
static void BM_dlclose_plugin(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        void* h = load_plugin();
        if (!h) {
            state.SkipWithError(dlerror());
            break;
        }
        state.ResumeTiming();
        dlclose(h);
    }
}
BENCHMARK(BM_dlclose_plugin)->Unit(benchmark::kMicrosecond);
