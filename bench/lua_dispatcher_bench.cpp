// A script's call through the plug-in's Lua dispatcher against the same call
// to a minimal plain C API method, in one LuaJIT state and one run. The
// program is a host: it exports its registry, loads the real plug-in
// (HOSTPROBE_PLUGIN, from the build) and makes the interface object with the
// plug-in's context creator, bound as `o`.
//
// The baseline `r` has the dispatcher's shape at its least: an object table
// that is its own metatable, holding a userdata under "__cthis", whose
// class table's C functions take self, read the userdata with
// lua_touserdata and do the work: double the argument, or push a fixed
// text with lua_pushlstring.
//
// Each benchmark runs one Lua loop of N calls per iteration, N from
// --calls=N (default 100000, one short pass; the figure of record is
// --calls=10000000). The benchmarks named *_vs_raw_* time both loops in
// each iteration, in the thread's CPU time, and report dispatcher/raw as
// `ratio`; the goal for testfunction is 1.5 or less. mersenne_twister and
// getMAC do real work per call, so their loops run N/100 and N/1000 calls.
#include "bench/script_loop_bench.h"
#include "bench/thread_cpu_clock.h"
#include "bindings/lua/hostprobe_plugin_lua_creator.h"
#include "bindings/lua/lua_context.h"
#include "bindings/lua/lua_state.h"
#include "comm/exception.h"
#include "comm/metastream/fmtstream_lua_capi.h"
#include "interface/registrar.h"
#include "plugin/host_interface.h"
#include "plugin/hostprobe_plugin.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include <lua.hpp>

namespace {

// -- The raw baseline ---------------------------------------------------------------

// What the baseline's userdata points to: the factor of its testfunction and
// the text of its getMAC, so that both read through self.
struct raw_object
{
    int32_t factor = 2;
    velk::charstr text;
};

raw_object* raw_self(lua_State* L)
{
    lua_getfield(L, 1, "__cthis");
    auto* p = static_cast<raw_object**>(lua_touserdata(L, -1));
    lua_settop(L, -2);
    return p ? *p : nullptr;
}

int raw_double(lua_State* L)
{
    raw_object* self = raw_self(L);
    if (!self)
        return luaL_error(L, "raw object without __cthis");
    // In unsigned arithmetic: it wraps as the dispatcher's 32-bit result does.
    auto x = static_cast<uint32_t>(lua_tointeger(L, 2));
    lua_pushinteger(L, static_cast<int32_t>(x * static_cast<uint32_t>(self->factor)));
    return 1;
}

int raw_text(lua_State* L)
{
    raw_object* self = raw_self(L);
    if (!self)
        return luaL_error(L, "raw object without __cthis");
    lua_pushlstring(L, self->text.ptr(), self->text.lens());
    return 1;
}

// Pushes the baseline's object table for self.
void push_raw_object(lua_State* L, raw_object* self)
{
    lua_createtable(L, 0, 2); // the class table
    lua_pushcfunction(L, &raw_double);
    lua_setfield(L, -2, "testfunction");
    lua_pushcfunction(L, &raw_text);
    lua_setfield(L, -2, "getMAC");
    lua_createtable(L, 0, 2); // the object table, its own metatable
    lua_pushvalue(L, -1);
    lua_setmetatable(L, -2);
    *static_cast<raw_object**>(lua_newuserdata(L, sizeof(raw_object*))) = self;
    lua_setfield(L, -2, "__cthis");
    lua_insert(L, -2);
    lua_setfield(L, -2, "__index");
}

// The loops, one function each, so that LuaJIT traces each on its own. They
// live in the context that the creator makes, as a host's script would.
constexpr const char* loops = R"(
function loop_raw(n) local s = 0 for i = 1, n do s = s + r:testfunction(i) end return s end
function loop_testfunction(n) local s = 0 for i = 1, n do s = s + o:testfunction(i) end return s end
function loop_mersenne_twister(n) local s = 0 for i = 1, n do s = s + o:mersenne_twister(i) end return s end
function loop_raw_getMAC(n) local s = 0 for i = 1, n do s = s + #r:getMAC() end return s end
function loop_getMAC(n) local s = 0 for i = 1, n do s = s + #o:getMAC() end return s end
)";

// -- The host -------------------------------------------------------------------------

class lua_bench_host
{
public:
    lua_bench_host()
    {
        plugin = dlopen(HOSTPROBE_PLUGIN, RTLD_NOW | RTLD_LOCAL);
        if (!plugin)
            fail("cannot load the plug-in: ", dlerror());
        L = velk::lua::new_state();
        if (!L)
            fail("no memory for a Lua state", "");
        make_context();
    }

    // The object and the context first, then the state, whose finalizers
    // give back what the script dropped, and the plug-in last.
    ~lua_bench_host()
    {
        probe.release();
        context.release();
        lua_close(L);
        dlclose(plugin);
    }

    // Calls the loop function name of the context with n; gives its result.
    double call(const char* name, int64_t n)
    {
        context->push();
        lua_getfield(L, -1, name);
        lua_pushinteger(L, static_cast<lua_Integer>(n));
        if (lua_pcall(L, 1, 1, 0) != 0)
            fail(name, lua_tostring(L, -1));
        double result = lua_tonumber(L, -1);
        lua_settop(L, -3);
        return result;
    }

    lua_State* state() const { return L; }
    // getMAC's text, in this program's memory.
    const velk::charstr& mac_text() const { return raw.text; }

private:
    [[noreturn]] static void fail(const char* what, const char* detail)
    {
        fprintf(stderr, "%s%s\n", what, detail ? detail : "");
        std::exit(1);
    }

    void make_context()
    {
        auto create = reinterpret_cast<xt::lua::creator_lua_fn>(velk::get_creator(xt::lua::creator_lua_key));
        if (!create)
            fail("the plug-in has no Lua context creator", "");
        velk::lua::script_source script;
        script.text = velk::token(loops);
        script.url = "=bench";
        try {
            create(probe, L, script, velk::iref<velk::stubsmith_interface>(new xt::host_interface),
                   "o", &context);
        } catch (const velk::exception& e) {
            fail("the loops fail to load: ", e.what());
        }
        if (!probe || !context)
            fail("the context creator made no object", "");
        // The same text as the dispatcher's getMAC, copied into this
        // program's memory: the plug-in's block must not outlive the plug-in.
        velk::charstr mac = probe->getMAC();
        raw.text = velk::token(mac);
        context->push();
        push_raw_object(L, &raw);
        lua_setfield(L, -2, "r");
        lua_settop(L, -2);
    }

    void* plugin = nullptr;
    lua_State* L = nullptr;
    raw_object raw;
    velk::iref<xt::hostprobe_plugin> probe;
    velk::iref<velk::lua::lua_context> context;
};

lua_bench_host* host = nullptr;

void BM_raw_testfunction(benchmark::State& state) { bench::run_loop(state, *host, "loop_raw", state.range(0)); }

void BM_dispatcher_testfunction(benchmark::State& state)
{
    bench::run_loop(state, *host, "loop_testfunction", state.range(0));
}

void BM_dispatcher_mersenne_twister(benchmark::State& state)
{
    bench::run_loop(state, *host, "loop_mersenne_twister", bench::calls_of_heavy_loop(state, 100));
}

void BM_dispatcher_getMAC(benchmark::State& state)
{
    bench::run_loop(state, *host, "loop_getMAC", bench::calls_of_heavy_loop(state, 1000));
}

void BM_testfunction_vs_raw_c_function(benchmark::State& state)
{
    bench::compare_loops(state, *host, "loop_raw", "loop_testfunction", state.range(0));
}

// getMAC queries the adapters on each call; the baseline only pushes its
// text. The ratio shows what the query and the way through to_lua cost.
void BM_getMAC_vs_raw_pushlstring(benchmark::State& state)
{
    bench::compare_loops(state, *host, "loop_raw_getMAC", "loop_getMAC", bench::calls_of_heavy_loop(state, 1000));
}

// The result's way alone, without the adapter query: getMAC's text pushed
// through the thread's streamer (a metastream run into the Lua format, as
// a method wrapper does it) against one lua_pushlstring of the same bytes.
void BM_to_lua_vs_raw_pushlstring(benchmark::State& state)
{
    constexpr int rounds = 1000;
    lua_State* L = host->state();
    const velk::charstr& text = host->mac_text();
    velk::lua_streamer_context& s = velk::lua_streamer_context::get_lua_streamer(true);
    double streamed = 0, raw = 0;
    for (auto _ : state) {
        double t0 = bench::thread_cpu_ns();
        for (int r = 0; r < rounds; ++r) {
            s.bind_stack(L);
            s.to_lua(text);
            lua_settop(L, -2);
        }
        double t1 = bench::thread_cpu_ns();
        for (int r = 0; r < rounds; ++r) {
            lua_pushlstring(L, text.ptr(), text.lens());
            lua_settop(L, -2);
        }
        double t2 = bench::thread_cpu_ns();
        streamed += t1 - t0;
        raw += t2 - t1;
    }
    double n = double(state.iterations()) * rounds;
    state.counters["to_lua_ns_per_call"] = streamed / n;
    state.counters["raw_ns_per_call"] = raw / n;
    state.counters["ratio"] = streamed / raw;
}

} // namespace

int main(int argc, char** argv)
{
    return bench::loop_bench_main(argc, argv, host,
                                  {
                                      {"BM_raw_testfunction", &BM_raw_testfunction},
                                      {"BM_dispatcher_testfunction", &BM_dispatcher_testfunction},
                                      {"BM_testfunction_vs_raw_c_function", &BM_testfunction_vs_raw_c_function},
                                      {"BM_dispatcher_mersenne_twister", &BM_dispatcher_mersenne_twister},
                                      {"BM_dispatcher_getMAC", &BM_dispatcher_getMAC},
                                      {"BM_getMAC_vs_raw_pushlstring", &BM_getMAC_vs_raw_pushlstring},
                                      {"BM_to_lua_vs_raw_pushlstring", &BM_to_lua_vs_raw_pushlstring},
                                  });
}
