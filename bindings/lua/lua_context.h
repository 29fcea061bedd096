// lua_context: the table a Lua script runs in, and its three functions.
//
// The context table is the environment of the script's functions: it is its
// own metatable, and its "__index" is the Lua globals table, so that what
// the script doesn't define falls through to the globals. It offers
// implements, log and query_interface, native functions whose environment
// is the table itself, and, for a script file, "__ctx_inf", the file's name
// without folders, which log uses as its source. The class tables of the
// interfaces that the script uses are stored in it by name.
//
// A lua_context is a strong registry handle of the table: the table lives as
// long as one reference to the handle does. Objects made in the context hold
// it by a weak handle only.
//
//   velk::iref<velk::lua::lua_context> c(new velk::lua::lua_context(L, "/srv/probe.lua"));
//   c->push();                         // the table, e.g. for lua_setfenv
#pragma once

#include "bindings/lua/registry_handle.h"
#include "comm/token.h"

#include <lua.hpp>

namespace velk::lua {

class lua_context : public registry_handle
{
public:
    // Makes the context table on L (kept on L's main thread) and holds it.
    // With a script_path, "__ctx_inf" is the part after the last "/" or "\".
    // The stack is left as it was. Raises a Lua memory error as the API does.
    explicit lua_context(lua_State* L, const token& script_path = token());
};

// The context table's functions. Each runs with the context table as its
// environment (LUA_ENVIRONINDEX); a failure becomes a Lua error whose text
// starts with the calling script's file and line.

// implements(name): makes the class table of the interface whose Lua class
// registration is "lua::register_class." + name in the context. Nothing on
// the stack. Fails with "<name> class registring funcion not found!".
int context_implements(lua_State* L);

// log(text): a line of the level that the text's first word gives (see
// log_level_from_text), from the source "__ctx_inf", or "Unknown script"
// when the context has none. Nothing on the stack.
int context_log(lua_State* L);

// query_interface(name, ...): calls the script-side creator under name with
// the remaining arguments and the context of the caller; gives the one value
// that it pushes. Fails with "Invalid params!" (no argument), "Interface
// creator name missing." (name not a string) or "interface creator <name>
// not found".
int context_query_interface(lua_State* L);

} // namespace velk::lua
