// xt::lua::hostprobe_plugin_lua_dispatcher: the Lua dispatcher of
// xt::hostprobe_plugin, its class table and object tables, and the ways in
// which scripts and native code get one.
//
// A script sees an object table that is its own metatable, whose "__index"
// is the class table of its context (getMAC, mersenne_twister, testfunction,
// log, query_interface), and which holds the dispatcher's address in a
// userdata under "__cthis" and the interface hash under "__class_hash".
// Methods are called with ":" (obj:testfunction(21)).
//
// Registered keys (the Lua group of the plug-in's registration):
//
//   "lua::register_class.xt_hostprobe_plugin"  register_class  the class table, in a context
//   "xt::lua::hostprobe_plugin.create"         create_lua      what query_interface calls
//   "xt::hostprobe_plugin@wrapper.lua"         wrapper_lua     an object table for a native interface
//
// Everything here runs on the thread of the Lua state, with a state that
// velk::lua::setup_state prepared.
#pragma once

#include "bindings/lua/interface_wrapper_base.h"
#include "bindings/lua/lua_object.h"
#include "bindings/lua/registry_handle.h"
#include "comm/iref.h"
#include "comm/token.h"
#include "plugin/hostprobe_plugin.h"

#include <lua.hpp>

namespace xt::lua {

class hostprobe_plugin_lua_dispatcher : public velk::lua::interface_wrapper_base<xt::hostprobe_plugin>
{
public:
    static constexpr velk::token register_class_key = "lua::register_class.xt_hostprobe_plugin";
    static constexpr velk::token create_lua_key = "xt::lua::hostprobe_plugin.create";
    static constexpr velk::token wrapper_lua_key = "xt::hostprobe_plugin@wrapper.lua";
    // The class table's name in a context table.
    static constexpr velk::token class_name = "xt_hostprobe_plugin";

    // An empty dispatcher, bound later by a creator.
    hostprobe_plugin_lua_dispatcher() = default;
    // A wrapper of ifc (not null) in the context table of ctx; see wrap.
    hostprobe_plugin_lua_dispatcher(stubsmith_interface* ifc, velk::lua::registry_handle& ctx) { wrap(ifc, ctx); }

    // The source of the object log's lines: the interface's name with the
    // hash that the generator fixed for it, 0x74BDD968, which is not the
    // token_hash of the name. Filters of the host match on that number.
    static const velk::tokenhash& log_source();

    // The class table's functions, in order: log, query_interface, then the
    // methods in the order of the interface's method list.
    static const velk::lua::class_function* class_functions(uint32_t& count);

    // "lua::register_class.xt_hostprobe_plugin": sets the class table in the
    // context table on top of L's stack, which stays. Gives 0.
    static int register_class(lua_State* L);

    // A new object table of this dispatcher, in the context table of
    // context, into a new handle in out: a weak_registry_handle whose table
    // holds one reference to this dispatcher (weak), or a registry_handle
    // and no reference (strong, for a dispatcher that holds it in object).
    // The class table is made in the context first when it has none. The
    // context handle must hold a table. Gives out.
    velk::iref<velk::lua::registry_handle>& make_object(velk::iref<velk::lua::registry_handle>& out, bool weak);

    // "xt::hostprobe_plugin@wrapper.lua": the object table of ifc in the
    // context table of context, which it takes over. A Lua dispatcher that
    // holds its object table gives that handle: a table is never made twice
    // for one object. Any other interface gets a new dispatcher that wraps
    // it, held by a new weak object table. A null ifc gives a null out.
    // Throws std::bad_alloc.
    static velk::iref<velk::lua::registry_handle>& wrapper_lua(velk::iref<velk::lua::registry_handle>& out,
                                                                hostprobe_plugin* ifc,
                                                                velk::iref<velk::lua::registry_handle> context);

    // "xt::lua::hostprobe_plugin.create", called by query_interface with the
    // host's object table alone on the stack: pushes a new weak object table
    // for it, or nil when it holds no host_interface. The object lives in
    // *context when given, else in the calling function's environment.
    // Gives 1. Throws velk::exception "Wrong number of arguments in
    // hostprobe_plugin.create" for another stack than one value: it has no
    // guard of its own and runs under its caller's.
    static int create_lua(lua_State* L, velk::iref<velk::lua::registry_handle>* context);
};

// The signatures that the keys promise, for hosts that find them.
using register_class_fn = decltype(&hostprobe_plugin_lua_dispatcher::register_class);
using wrapper_lua_fn = decltype(&hostprobe_plugin_lua_dispatcher::wrapper_lua);
using create_lua_fn = decltype(&hostprobe_plugin_lua_dispatcher::create_lua);

} // namespace xt::lua
