// lua_limits: the time and heap limits of one Lua run.
//
// Heap: the state is made with an allocator that counts its bytes and
// refuses a block that would go beyond the limit; Lua raises its memory
// error ("not enough memory") and the script fails unless it catches it.
// A LuaJIT built for 64-bit without GC64 makes no state with an allocator
// of ours (lua_newstate gives null, and says so on standard error): there
// the state is LuaJIT's own, and the count hook below compares lua_gc's
// count with the limit instead, after a full collection.
//
// Time: a count hook looks at the monotonic clock every hook_interval
// instructions and raises an error at the deadline. From then on it runs at
// every instruction, so a script that catches the error meets it again at
// once. LuaJIT calls no hook from compiled code: while a hook is needed the
// JIT compiler is off, and jit.on refuses to turn it back on. Nor does it
// call one in a finalizer, and no hook reaches into a long native call
// (string.rep, a pattern match): a watchdog ends the process a grace period
// after the deadline when the hook has not stopped the script by then.
//
//   lua_limits limits(r.limits);       // outlives the state
//   lua_State* L = limits.new_state();
//   bool ran = run the script;
//   limits.finish(L);
//   if (limits.hit() == lua_limits::reason::time) status = limits.report();
//   lua_close(L);
#pragma once

#include "host/run_limits.h"
#include "host/watchdog.h"

#include <lua.hpp>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace host {

class lua_limits
{
public:
    enum class reason { none, time, heap };

    // How the heap limit is kept: by the state's allocator when LuaJIT
    // takes one, or by the count hook. Tests pick the hook to reach it.
    enum class heap_check { allocator, count_hook };

    explicit lua_limits(const run_limits& limits, heap_check how = heap_check::allocator);
    lua_limits(const lua_limits&) = delete;
    lua_limits& operator=(const lua_limits&) = delete;

    // A state set up as velk::lua::new_state sets one up, under the
    // limits from now on: the clock starts here. Null when no state can be
    // made. Once per object, and the object must outlive the state (its
    // allocator counts into it). Throws std::system_error when the clock's
    // thread can't be started (the state is closed then).
    lua_State* new_state();

    // The limits let go of L: the hook goes, the allocator refuses nothing
    // more, and the clock stops. Call after the script, before lua_close,
    // whose finalizers run unlimited.
    void finish(lua_State* L);

    // The first limit that a script reached: its deadline passed, or an
    // allocation was refused. The script may have caught the heap's error.
    reason hit() const { return _hit.load(); }

    // Prints the message of hit() (not none); gives the exit status.
    int report() const;

private:
    static void* allocate(void* ud, void* block, size_t old_size, size_t new_size);
    static void hook(lua_State* L, lua_Debug* ar);
    lua_State* make_state();
    void install(lua_State* L);
    const char* check(lua_State* L);
    bool over_heap_limit(lua_State* L) const;
    void mark(reason why);

    run_limits _limits;
    heap_check _how;
    uint64_t _heap_limit = 0;  // bytes; 0: none
    uint64_t _in_use = 0;      // bytes the allocator has given out
    bool _armed = false;       // the allocator refuses beyond the limit
    bool _count_by_hook = false;
    std::chrono::steady_clock::time_point _deadline;
    std::atomic<reason> _hit{reason::none};
    watchdog _last_resort;
};

} // namespace host
