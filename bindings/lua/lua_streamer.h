// lua_streamer: the binding's road to the thread's lua_streamer_context, the
// format stream that moves typed values on and off the Lua stack.
//
// The method wrappers and the script-side creator reach the streamer only
// through these four calls, so that the generated shape doesn't depend on
// the format stream's headers.
#pragma once

#include "comm/charstr.h"
#include "comm/iref.h"
#include "interface/stubsmith_interface.h"

#include <lua.hpp>

namespace velk::lua {

// Makes L the stack of the thread's streamer. Throws std::bad_alloc when the
// streamer can't be made.
void bind_streamer(lua_State* L);

// Pushes text as one Lua string, on the bound stack L. Throws velk::exception
// when the streamer fails.
void text_to_lua(lua_State* L, const charstr& text);

// Fills text from the value on top of L and pops it. Throws velk::exception
// ("... expected string" and the like) when the value is no text.
void text_from_lua(lua_State* L, charstr& text);

// The host_interface behind the object table on top of L, with a reference
// added; null when the value is no object table or holds another interface.
// The value is popped in all cases.
iref<stubsmith_interface> interface_from_lua(lua_State* L);

} // namespace velk::lua
