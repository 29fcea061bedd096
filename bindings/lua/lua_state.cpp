// lua_state: registry slots 1 and 2, and the record of the main thread.
#include "bindings/lua/lua_state.h"

#include "bindings/lua/lua_ext.h"
#include "bindings/lua/registry_handle.h"
#include "comm/commassert.h"
#include "comm/policy_base.h"

namespace velk::lua {

namespace {

// The registry key of the main thread. A text, not the address of a static:
// every module that meets the state must find it.
constexpr token main_thread_key = "velk::lua::main_thread";

// __gc of a weak object table's "__cthis" userdata: the one reference that
// the userdata holds goes. Nothing for a userdata cut loose (null).
int release_cthis(lua_State* L)
{
    auto* p = static_cast<counted_base**>(lua_touserdata(L, 1));
    if (p && *p) {
        counted_base* object = *p;
        *p = nullptr; // a finalizer that runs twice finds nothing more
        object->release_refcount();
    }
    return 0;
}

} // namespace

void setup_state(lua_State* L)
{
    // Slot 1: the weak table, its own metatable with weak values.
    lua_createtable(L, 0, 1);
    lua_pushvalue(L, -1);
    lua_setmetatable(L, -2);
    lua_pushliteral(L, "v");
    lua_setfield(L, -2, "__mode");
    int weak = luaL_ref(L, LUA_REGISTRYINDEX);
    // Slot 2: the metatable of the userdata that own a reference.
    lua_createtable(L, 0, 1);
    lua_pushcfunction(L, &release_cthis);
    lua_setfield(L, -2, names::gc);
    int gc = luaL_ref(L, LUA_REGISTRYINDEX);
    VELK_ASSERT_MSG(weak == weak_table_slot && gc == weak_gc_metatable_slot,
                    "a Lua state was set up after references were taken in its registry");

    lua_pushthread(L);
    lua_setfield(L, LUA_REGISTRYINDEX, main_thread_key);
}

lua_State* new_state()
{
    lua_State* L = luaL_newstate();
    if (!L)
        return nullptr;
    luaL_openlibs(L);
    setup_state(L);
    return L;
}

lua_State* main_thread(lua_State* L)
{
    lua_getfield(L, LUA_REGISTRYINDEX, main_thread_key);
    lua_State* main = lua_tothread(L, -1);
    lua_settop(L, -2);
    return main ? main : L;
}

} // namespace velk::lua
