// lua_limits: the counting allocator, the count hook and the clock.
#include "host/lua_limits.h"

#include "bindings/lua/lua_state.h"

#include <cstdlib>

namespace host {

namespace {

constexpr uint64_t mb = uint64_t(1) << 20;

// Instructions between two looks at the clock. A look costs some tens of
// nanoseconds, a thousand interpreted instructions some microseconds: the
// hook takes about 1% of the run and overshoots the deadline by as little.
constexpr int hook_interval = 1000;

// How long the hook has, after the deadline, before the process is ended
// from outside (see the watchdog in the header).
constexpr auto grace = std::chrono::seconds(2);

// The registry key under which a state keeps its limits: the address of
// this object, unique in the process.
const char registry_key = 0;

// The errors the hook raises. The runner tells them by hit(), not by text.
constexpr const char* timed_out_text = "script timed out";
constexpr const char* no_memory_text = "not enough memory"; // Lua's own words for it

int refuse_jit(lua_State* L)
{
    return luaL_error(L, "the JIT compiler stays off in a run with --timeout or --max-heap");
}

// Compiled code calls no hook: the JIT compiler goes off, and stays off.
void keep_jit_off(lua_State* L)
{
    luaJIT_setmode(L, 0, LUAJIT_MODE_ENGINE | LUAJIT_MODE_OFF);
    lua_getglobal(L, "jit");
    if (lua_istable(L, -1)) {
        lua_pushcfunction(L, &refuse_jit);
        lua_setfield(L, -2, "on");
    }
    lua_settop(L, -2);
}

lua_limits* limits_of(lua_State* L)
{
    lua_pushlightuserdata(L, const_cast<char*>(&registry_key));
    lua_rawget(L, LUA_REGISTRYINDEX);
    auto* p = static_cast<lua_limits*>(lua_touserdata(L, -1));
    lua_settop(L, -2);
    return p;
}

} // namespace

lua_limits::lua_limits(const run_limits& limits, heap_check how)
    : _limits(limits), _how(how), _heap_limit(uint64_t(limits.heap_mb) * mb)
{
}

int lua_limits::report() const
{
    return hit() == reason::time ? report_timeout(_limits) : report_out_of_memory(_limits.heap_mb);
}

// -- The state ------------------------------------------------------------------

lua_State* lua_limits::make_state()
{
    if (_heap_limit && _how == heap_check::allocator) {
        if (lua_State* L = lua_newstate(&allocate, this))
            return L;
    }
    _count_by_hook = _heap_limit != 0; // no allocator of ours: the hook counts
    return luaL_newstate();
}

lua_State* lua_limits::new_state()
{
    lua_State* L = make_state();
    if (!L)
        return nullptr;
    luaL_openlibs(L);
    velk::lua::setup_state(L);
    try {
        install(L);
    } catch (...) {
        lua_close(L);
        throw;
    }
    return L;
}

// Set-up is not limited: a memory error there would have no pcall to go to.
void lua_limits::install(lua_State* L)
{
    _armed = _heap_limit != 0;
    if (!_limits.seconds && !_count_by_hook)
        return;
    lua_pushlightuserdata(L, const_cast<char*>(&registry_key));
    lua_pushlightuserdata(L, this);
    lua_rawset(L, LUA_REGISTRYINDEX);
    keep_jit_off(L);
    lua_sethook(L, &hook, LUA_MASKCOUNT, hook_interval);
    if (!_limits.seconds)
        return;
    _deadline = std::chrono::steady_clock::now() + std::chrono::seconds(_limits.seconds);
    run_limits limits = _limits;
    _last_resort.start(std::chrono::seconds(_limits.seconds), grace, nullptr,
                       [limits] { end_process(report_timeout(limits)); });
}

void lua_limits::finish(lua_State* L)
{
    _last_resort.cancel();
    lua_sethook(L, nullptr, 0, 0);
    _armed = false;
}

void lua_limits::mark(reason why)
{
    reason none = reason::none;
    _hit.compare_exchange_strong(none, why);
}

// -- The allocator -------------------------------------------------------------

// Lua's allocator contract: new_size 0 frees; a block that shrinks must not
// fail. A refused block stays as it was, and Lua raises its memory error.
void* lua_limits::allocate(void* ud, void* block, size_t old_size, size_t new_size)
{
    auto* self = static_cast<lua_limits*>(ud);
    size_t old = block ? old_size : 0; // old_size means nothing for a new block
    if (new_size == 0) {
        free(block);
        self->_in_use -= old;
        return nullptr;
    }
    if (new_size > old && self->_armed && self->_in_use - old + new_size > self->_heap_limit) {
        self->mark(reason::heap);
        return nullptr;
    }
    void* p = realloc(block, new_size);
    if (p)
        self->_in_use = self->_in_use - old + new_size;
    return p;
}

// -- The hook ------------------------------------------------------------------

bool lua_limits::over_heap_limit(lua_State* L) const
{
    auto in_use = [L] { return uint64_t(lua_gc(L, LUA_GCCOUNT, 0)) * 1024 + uint64_t(lua_gc(L, LUA_GCCOUNTB, 0)); };
    if (in_use() <= _heap_limit)
        return false;
    lua_gc(L, LUA_GCCOLLECT, 0); // garbage doesn't count
    return in_use() > _heap_limit;
}

// The error to raise now, or null.
const char* lua_limits::check(lua_State* L)
{
    if (_limits.seconds && std::chrono::steady_clock::now() >= _deadline) {
        mark(reason::time);
        return timed_out_text;
    }
    if (_count_by_hook && _armed && over_heap_limit(L)) {
        mark(reason::heap);
        return no_memory_text;
    }
    return nullptr;
}

void lua_limits::hook(lua_State* L, lua_Debug*)
{
    lua_limits* self = limits_of(L);
    const char* error = self ? self->check(L) : nullptr;
    if (!error)
        return;
    if (error == timed_out_text)
        lua_sethook(L, &hook, LUA_MASKCOUNT, 1); // a caught timeout comes back at the next instruction
    lua_pushstring(L, error);
    lua_error(L);
}

} // namespace host
