// creator_lookup: a script's creator name looked up in the registry.
#include "bindings/lua/creator_lookup.h"

#include "bindings/lua/lua_ext.h"
#include "comm/charstr.h"
#include "comm/exception.h"
#include "interface/registrar.h"

namespace velk::lua {

creator_fn creator_named_on_top(lua_State* L)
{
    if (!lua_isstring(L, -1))
        throw exception("Interface creator name missing.");
    token name = lua_toltoken(L, -1);
    creator_fn c = get_creator(name);
    if (!c) {
        charstr text;
        text << "interface creator " << name << " not found";
        throw exception(token(text));
    }
    return c;
}

} // namespace velk::lua
