// The bytecode of a Lua chunk, for the tests that show that a runner refuses
// precompiled chunks: made with string.dump in a state of its own.
#pragma once

#include <lua.hpp>

#include <string>

namespace velk::testing {

// The chunk of source as bytecode; empty if source does not compile.
inline std::string lua_bytecode(const char* source)
{
    lua_State* L = luaL_newstate();
    luaL_openlibs(L);
    lua_getglobal(L, "string");
    lua_getfield(L, -1, "dump");
    std::string code;
    if (luaL_loadstring(L, source) == 0 && lua_pcall(L, 1, 1, 0) == 0) {
        size_t n = 0;
        const char* s = lua_tolstring(L, -1, &n);
        code.assign(s, n);
    }
    lua_close(L);
    return code;
}

} // namespace velk::testing
