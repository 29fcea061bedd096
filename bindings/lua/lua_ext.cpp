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

namespace {

// luaL_loadbufferx with a token name; a null mode takes text and bytecode.
int load_named(lua_State* L, const char* buffer, size_t size, const velk::token& name, const char* mode)
{
    // Chunk names are short as a rule: a stack copy spares the heap.
    char local[256];
    if (name.lens() < sizeof local) {
        if (name.lens())
            std::memcpy(local, name.ptr(), name.lens());
        local[name.lens()] = 0;
        return luaL_loadbufferx(L, buffer, size, local, mode);
    }
    velk::charstr copy(name);
    return luaL_loadbufferx(L, buffer, size, copy.c_str(), mode);
}

// Pushes the chunk's name as Lua's messages show it: a file's ("@") and a
// literal ("=") name without the mark, any other in [string "..."].
void push_chunk_id(lua_State* L, const velk::token& name)
{
    if (!name.is_empty() && (name.ptr()[0] == '@' || name.ptr()[0] == '=')) {
        lua_pushlstring(L, name.ptr() + 1, name.lens() - 1);
        return;
    }
    lua_pushliteral(L, "[string \"");
    lua_pushtoken(L, name);
    lua_pushliteral(L, "\"]");
    lua_concat(L, 3);
}

} // namespace

int luaL_loadbuffer(lua_State* L, const char* buffer, size_t size, const velk::token& name)
{
    return load_named(L, buffer, size, name, nullptr);
}

int luaL_loadtext(lua_State* L, const char* buffer, size_t size, const velk::token& name)
{
    int status = load_named(L, buffer, size, name, "t");
    // The runtime's own words, "wrong mode", name neither the file nor why.
    if (status != 0 && size && buffer[0] == LUA_SIGNATURE[0]) {
        lua_pop(L, 1);
        push_chunk_id(L, name);
        lua_pushliteral(L, ": precompiled bytecode is refused: a script must be Lua source text");
        lua_concat(L, 2);
    }
    return status;
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
