// creator_lookup: the step that a script's query_interface shares, whether
// it comes from a context table or from an object's class table: the
// registry's creator named by the string on top of the stack.
#pragma once

#include "interface/stubsmith_interface.h"

#include <lua.hpp>

namespace velk::lua {

// The creator named by the value on top of the stack, which stays there.
// Throws velk::exception "Interface creator name missing." when the value
// is no string (a number counts as one), "interface creator <name> not
// found" when the registry has no such key; and as get_creator throws when
// the process has no registry.
creator_fn creator_named_on_top(lua_State* L);

} // namespace velk::lua
