// lua_ext: the token forms over the Lua C API.
#include "bindings/lua/lua_ext.h"

#include "comm/charstr.h"

#include <cstring>

void lua_pushtoken(lua_State* L, const velk::token& text)
{
    lua_pushlstring(L, text.ptr() ? text.ptr() : "", text.lens());
}

velk::token lua_toltoken(lua_State* L, int index, size_t* length)
{
    size_t n = 0;
    const char* s = lua_tolstring(L, index, &n);
    if (length)
        *length = s ? n : 0;
    return s ? velk::token(s, n) : velk::token();
}

int luaL_loadbuffer(lua_State* L, const char* buffer, size_t size, const velk::token& name)
{
    // Chunk names are short as a rule: a stack copy spares the heap.
    char local[256];
    if (name.lens() < sizeof local) {
        if (name.lens())
            std::memcpy(local, name.ptr(), name.lens());
        local[name.lens()] = 0;
        return luaL_loadbuffer(L, buffer, size, local);
    }
    velk::charstr copy(name);
    return luaL_loadbuffer(L, buffer, size, copy.c_str());
}

void lua_getfield(lua_State* L, int index, const velk::token& key)
{
    if (index < 0 && index > LUA_REGISTRYINDEX)
        index = lua_gettop(L) + index + 1; // the key goes above it
    lua_pushtoken(L, key);
    lua_gettable(L, index);
}

void lua_setfield(lua_State* L, int index, const velk::token& key)
{
    if (index < 0 && index > LUA_REGISTRYINDEX)
        index = lua_gettop(L) + index + 1; // the key goes between it and the value
    lua_pushtoken(L, key);
    lua_insert(L, -2);
    lua_settable(L, index);
}

bool lua_hasfield(lua_State* L, int index, const velk::token& key)
{
    if (!lua_istable(L, index))
        return false;
    if (index < 0 && index > LUA_REGISTRYINDEX)
        index = lua_gettop(L) + index + 1;
    lua_pushtoken(L, key);
    lua_rawget(L, index);
    bool found = !lua_isnil(L, -1);
    lua_settop(L, -2);
    return found;
}

void luaL_where_ext(lua_State* L, int32_t level)
{
    lua_Debug ar;
    if (lua_getstack(L, level, &ar) && lua_getinfo(L, "Sl", &ar) && ar.currentline > 0 && ar.source) {
        // "@file" and "=name" are the API's marks of a chunk named by its
        // host; the name alone is what a reader wants.
        const char* source = ar.source;
        if (*source == '@' || *source == '=')
            ++source;
        lua_pushstring(L, source);
        lua_pushinteger(L, ar.currentline);
        return;
    }
    lua_pushnil(L);
}
