// The creator of xt::hostprobe_plugin with a Lua script context, under
// "xt::hostprobe_plugin.create@creator.lua", and the cached way to the
// native creator that all Lua creators of the interface share.
//
// A host hands the creator a state set up by velk::lua::setup_state, a
// script (its text or its path), its own host_interface object and a name;
// it gets an interface object whose object table the script sees under that
// name in its context, and the script runs.
//
//   velk::lua::script_source s;
//   s.text = "/srv/scripts/probe.lua";   s.is_path = true;
//   velk::iref<xt::hostprobe_plugin> p;
//   reinterpret_cast<xt::lua::creator_lua_fn>(velk::get_creator(xt::lua::creator_lua_key))(
//       p, L, s, host_object, "probe", nullptr);
#pragma once

#include "bindings/lua/lua_context.h"
#include "bindings/lua/script_source.h"
#include "comm/iref.h"
#include "comm/token.h"
#include "plugin/hostprobe_plugin.h"

#include <lua.hpp>

namespace xt::lua {

inline constexpr velk::token creator_lua_key = "xt::hostprobe_plugin.create@creator.lua";

// The native creator under hostprobe_plugin::native_creator_key, looked up
// on the first call and cached, called with (out, instance, arg). When the
// registry has none, out is null, and the lookup is tried again on the next
// call. Throws std::bad_alloc, velk::exception when the process has no
// registry.
velk::iref<hostprobe_plugin>& native_create(velk::iref<hostprobe_plugin>& out, hostprobe_plugin* instance,
                                            const velk::iref<velk::stubsmith_interface>& arg);

// "xt::hostprobe_plugin.create@creator.lua". Makes the interface object for
// arg and its object table, held strongly by the dispatcher and set in the
// context under bindname unless that is empty. Unless source.text is null,
// the script first runs as one chunk in the context: source.context if
// given (nothing is installed in it, and a reference is added), else a new
// one. context_out, if not null, receives the context in use.
//
// On failure it throws velk::exception, out is null, and the context keeps
// what the chunk did before the failure:
//   "failed to create interface object"    the native creator gave nothing
//   path + " not found"                    the script file can't be read
//   "Can't load script without context!"   the given context holds no table
//   Lua's own message                      a syntax or run-time error of the chunk
//   name + ": precompiled bytecode is refused: a script must be Lua source text"
//                                          the chunk is bytecode; nothing of it runs
// Also std::bad_alloc. L must be set up by velk::lua::setup_state, and the
// stack is left as it was.
velk::iref<hostprobe_plugin>& create_with_script(velk::iref<hostprobe_plugin>& out, lua_State* L,
                                                 const velk::lua::script_source& source,
                                                 const velk::iref<velk::stubsmith_interface>& arg,
                                                 const velk::token& bindname,
                                                 velk::iref<velk::lua::lua_context>* context_out);

using creator_lua_fn = decltype(&create_with_script);

} // namespace xt::lua
