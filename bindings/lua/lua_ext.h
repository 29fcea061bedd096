// lua_ext: what the binding adds on top of the Lua C API, and the fixed
// names that all of its code shares.
//
// The additions take text as velk::token, so that names and messages reach
// Lua without a zero-terminated copy where the API allows it. They stand in
// the global namespace beside the functions they complete: a token key picks
// the token form of lua_getfield and lua_setfield, a C string the standard
// one.
//
//   lua_getfield(L, -1, velk::lua::names::cthis);   // token form
//   if (lua_hasfield(L, 1, velk::lua::names::cthis)) ...
//
// Every function here works on the given stack only and raises Lua errors
// as the API beneath it does (a memory error, or a metamethod's error when
// it runs one); none throws a native exception.
#pragma once

#include "comm/token.h"

#include <lua.hpp>

#include <cstddef>
#include <cstdint>

namespace velk::lua {

// The fixed names of the binding, measured at compile time. "__newindex",
// "__memcount" and "__gc" belong to the generated shape and have no use in
// this module.
namespace names {
inline constexpr token index = "__index";
inline constexpr token newindex = "__newindex";
inline constexpr token memcount = "__memcount";
inline constexpr token implements = "implements";
inline constexpr token cthis = "__cthis";
inline constexpr token class_hash = "__class_hash";
inline constexpr token gc = "__gc";
inline constexpr token log = "log";
inline constexpr token ctx_inf = "__ctx_inf";
inline constexpr token query_interface = "query_interface";
} // namespace names

} // namespace velk::lua

// Pushes the token's bytes as one Lua string (a null token gives "").
void lua_pushtoken(lua_State* L, const velk::token& text);

// The token over the string that lua_tolstring gives for index: a number
// there is converted in place, as lua_tolstring does. Any other value gives
// a null token, and length, when given, receives 0. The token is valid while
// the value stays on the stack.
velk::token lua_toltoken(lua_State* L, int index, size_t* length = nullptr);

// luaL_loadbuffer with the chunk's name as a token; the name is made
// zero-terminated for Lua (a short name on the stack, a long one on the
// heap). Results as luaL_loadbuffer's. Throws std::bad_alloc only for a
// name too long for the stack buffer when memory runs out.
int luaL_loadbuffer(lua_State* L, const char* buffer, size_t size, const velk::token& name);

// As luaL_loadbuffer, for source text only: a precompiled chunk, which the
// runtime would take without verifying it, is refused with LUA_ERRSYNTAX and
// the message "NAME: precompiled bytecode is refused: a script must be Lua
// source text", NAME being the chunk named as Lua names it in its messages.
// Nothing else is pushed or loaded then.
int luaL_loadtext(lua_State* L, const char* buffer, size_t size, const velk::token& name);

// lua_getfield and lua_setfield with a token key; the key may hold zero
// bytes. Both run metamethods as the standard forms do.
void lua_getfield(lua_State* L, int index, const velk::token& key);
void lua_setfield(lua_State* L, int index, const velk::token& key);

// True when the value at index is a table holding a value other than nil
// under key, read raw (no metamethod). Anything that isn't a table gives
// false. The stack is left as it was.
bool lua_hasfield(lua_State* L, int index, const velk::token& key);

// For the Lua function at stack level (1: the function that called the
// running native function), pushes its chunk's name, then its current line
// as a number. Pushes nil alone when there is no such level, or when it is
// not a Lua function with a line.
void luaL_where_ext(lua_State* L, int32_t level);
