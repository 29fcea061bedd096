// interface_from_lua: the native object behind a script's handle on the
// host's object, the argument that a Lua creator receives.
//
// Reads only raw fields, so that no metamethod of a script's table runs in
// the middle of native frames.
#pragma once

#include "comm/iref.h"
#include "interface/stubsmith_interface.h"

#include <lua.hpp>

namespace velk::lua {

// The host_interface object (hash 0x38934D07) behind the object table at -1
// of L, with a reference added; null when the value is no table, has no
// "__cthis" or no "__class_hash", "__cthis" is no userdata of one pointer or
// holds null, the class hash is not the object's own, or the object is of
// another interface. The value is popped in all cases. Never throws.
iref<stubsmith_interface> interface_from_lua(lua_State* L);

} // namespace velk::lua
