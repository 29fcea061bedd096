// lua_errors: native failures as located Lua errors, Lua errors as
// exceptions.
#include "bindings/lua/lua_errors.h"

#include "bindings/lua/lua_ext.h"
#include "comm/charstr.h"

namespace velk::lua {

int lua_add_location(lua_State* L)
{
    luaL_where_ext(L, 1);
    charstr text;
    if (lua_isnil(L, -1)) {
        text << "Unknown file(unknow line): " << lua_toltoken(L, -2);
        lua_settop(L, -3);
    } else {
        // message, file, line
        text << lua_toltoken(L, -2) << '(' << static_cast<int64_t>(lua_tointeger(L, -1)) << "): "
             << lua_toltoken(L, -3);
        lua_settop(L, -4);
    }
    lua_pushtoken(L, text);
    return 1;
}

void lua_throw_error(lua_State* L, const token& source)
{
    // The text is copied before the pop: the string may go with it.
    exception e(lua_toltoken(L, -1));
    if (!source.is_empty())
        e << " (" << source << ')';
    lua_settop(L, -2);
    throw e;
}

int located_failure(lua_State* L, const char* text)
{
    lua_pushtoken(L, token(text));
    lua_add_location(L);
    return -1;
}

} // namespace velk::lua
