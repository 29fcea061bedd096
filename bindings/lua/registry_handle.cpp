// registry_handle, weak_registry_handle: the four operations on the registry
// and on its weak table.
#include "bindings/lua/registry_handle.h"

#include <cstdlib>
#include <new>

namespace velk::lua {

// -- Strong: a reference of the registry -------------------------------------

registry_handle::~registry_handle()
{
    if (_ref != 0)
        luaL_unref(_L, LUA_REGISTRYINDEX, _ref);
}

void registry_handle::reset()
{
    if (_ref == 0)
        return;
    luaL_unref(_L, LUA_REGISTRYINDEX, _ref);
    _ref = 0;
}

void registry_handle::set()
{
    if (_ref != 0)
        reset();
    _ref = luaL_ref(_L, LUA_REGISTRYINDEX);
}

void registry_handle::push()
{
    if (_ref != 0)
        lua_rawgeti(_L, LUA_REGISTRYINDEX, _ref);
}

void* registry_handle::operator new(size_t size)
{
    if (void* p = std::malloc(size))
        return p;
    throw std::bad_alloc();
}

void registry_handle::operator delete(void* p) { std::free(p); }

// -- Weak: a reference of the table with weak values --------------------------

weak_registry_handle::~weak_registry_handle()
{
    reset(); // the base then finds ref 0 and does nothing
}

void weak_registry_handle::reset()
{
    if (_ref == 0)
        return;
    lua_rawgeti(_L, LUA_REGISTRYINDEX, weak_table_slot);
    luaL_unref(_L, -1, _ref);
    _ref = 0;
    lua_settop(_L, -2);
}

void weak_registry_handle::set()
{
    if (_ref != 0)
        reset();
    lua_rawgeti(_L, LUA_REGISTRYINDEX, weak_table_slot);
    lua_insert(_L, -2); // the weak table goes under the value
    _ref = luaL_ref(_L, -2);
    lua_settop(_L, -2);
}

void weak_registry_handle::push()
{
    if (_ref == 0)
        return;
    lua_rawgeti(_L, LUA_REGISTRYINDEX, weak_table_slot);
    lua_rawgeti(_L, -1, _ref);
    lua_insert(_L, -2);
    lua_settop(_L, -2); // nil when the value has been collected
}

} // namespace velk::lua
