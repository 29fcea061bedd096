// lua_errors: the border between native failures and Lua errors.
//
// No native exception may cross a Lua frame: Lua's own unwinding would skip
// the frames' bookkeeping, and a protected call would see only "C++
// exception". So every native function that can fail comes in two: an outer
// function, the one Lua calls, and an inner one, which does the work and
// catches at its own border. The inner one leaves the message, with the
// caller's file and line in front, on the stack and gives -1; the outer
// one, which owns no native object, raises it with lua_error.
//
//   int my_body(lua_State* L) { ... throw velk::exception("bad") ... }
//   lua_pushcclosure(L, &velk::lua::guarded<&my_body>, 0);
//
// The other way, lua_throw_error turns a Lua error on the stack into a
// velk::exception for native callers.
#pragma once

#include "comm/exception.h"
#include "comm/token.h"

#include <exception>

#include <lua.hpp>

namespace velk::lua {

// The message on top of the stack is replaced by "file(line): message", the
// file and line being those of the Lua function that called the running
// native function; "Unknown file(unknow line): message" when there is none.
// Gives 1.
int lua_add_location(lua_State* L);

// Throws a velk::exception with the text of the message on top of the stack
// (its string form; empty for a value that has none), followed by " (source)"
// when source is not empty. The message is popped first.
[[noreturn]] void lua_throw_error(lua_State* L, const token& source);

// Leaves text, located by lua_add_location, on the stack and gives -1: the
// inner functions' answer to a native failure.
int located_failure(lua_State* L, const char* text);

// The inner function of Body: runs it and catches at its border.
// velk::exception and std::exception become the located message and -1.
// Lua's own errors pass untouched: they are not native exceptions.
template <int (*Body)(lua_State*)>
int inner(lua_State* L)
{
    try {
        return Body(L);
    } catch (const exception& e) {
        return located_failure(L, e.what());
    } catch (const std::exception& e) {
        return located_failure(L, e.what());
    }
}

// The outer function of Body, the one Lua calls: lua_error on -1, Body's
// count otherwise.
template <int (*Body)(lua_State*)>
int guarded(lua_State* L)
{
    int n = inner<Body>(L);
    if (n < 0)
        return lua_error(L); // no native object lives in this frame
    return n;
}

} // namespace velk::lua
