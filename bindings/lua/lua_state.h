// lua_state: the set-up that every Lua state needs before the binding may
// make an object in it.
//
// Registry slot 1 holds a table with weak values, where weak_registry_handle
// keeps its references; slot 2 holds the metatable given to the "__cthis"
// userdata of a weak object table, whose __gc drops the one reference that
// the userdata holds to its dispatcher. Both are made right after the state,
// so that luaL_ref gives them the numbers 1 and 2. The set-up also records
// the state's main thread, which handles keep in place of a coroutine that
// may end before them.
//
//   lua_State* L = velk::lua::new_state();
//   if (!L) ...                        // no memory for a state
//   ...
//   lua_close(L);                      // after the last handle of L is gone
#pragma once

#include <lua.hpp>

namespace velk::lua {

// Registry slots 1 (a table with weak values) and 2 (the metatable whose __gc
// drops one reference of the dispatcher in a "__cthis" userdata), made right
// after the state. Asserts when the slots come out with other numbers: the
// state had references already. Raises a Lua memory error as the API does.
void setup_state(lua_State* L);

// luaL_newstate, luaL_openlibs, setup_state. Null when the state can't be made.
lua_State* new_state();

// The main thread of L's state, as setup_state recorded it; L itself in a
// state that was not set up. Handles that outlive a call keep this one.
lua_State* main_thread(lua_State* L);

} // namespace velk::lua
