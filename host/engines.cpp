#include "host/engines.h"

#include <lua.hpp>
#if HOSTPROBE_WITH_JS
#include <v8.h>
#endif

namespace host {

#if HOSTPROBE_WITH_JS
std::string v8_version()
{
    return v8::V8::GetVersion();
}
#endif

std::string luajit_version()
{
    lua_State* L = luaL_newstate();
    if (!L)
        return "unknown (no Lua state)";
    luaL_openlibs(L);
    std::string version = "unknown";
    if (luaL_dostring(L, "return jit.version") == 0 && lua_isstring(L, -1))
        version = lua_tostring(L, -1);
    lua_close(L);
    return version;
}

} // namespace host
