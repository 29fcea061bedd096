// interface_from_lua: the host's object behind a script's handle on it.
#include "bindings/lua/interface_from_lua.h"

namespace velk::lua {

namespace {

// The host's interface, as the plug-in knows it: by its hash alone.
constexpr uint32_t host_interface_hash = 0x38934D07u;

} // namespace

iref<stubsmith_interface> interface_from_lua(lua_State* L)
{
    iref<stubsmith_interface> result;
    stubsmith_interface* object = nullptr;
    uint32_t hash = 0;
    bool fields = false;
    if (lua_type(L, -1) == LUA_TTABLE) {
        // Raw reads: a metamethod of a script's table could raise a Lua
        // error here, in the middle of native frames.
        lua_pushliteral(L, "__cthis");
        lua_rawget(L, -2);
        lua_pushliteral(L, "__class_hash");
        lua_rawget(L, -3);
        fields = lua_type(L, -2) != LUA_TNIL && lua_type(L, -1) != LUA_TNIL;
        if (fields) {
            // Only a userdata of one pointer is one that an object table holds.
            void** u = static_cast<void**>(lua_touserdata(L, -2));
            if (u && lua_objlen(L, -2) == sizeof(void*))
                object = static_cast<stubsmith_interface*>(*u);
            hash = uint32_t(lua_tointeger(L, -1));
        }
        lua_settop(L, -3);
    }
    // A userdata that holds null is no object: nothing to ask.
    if (object && hash == object->interface_hash() && object->is_derived(int32_t(host_interface_hash)))
        result = object->real_interface();
    lua_settop(L, -2);
    return result;
}

} // namespace velk::lua
