// lua_context: the context table and its functions implements, log and
// query_interface.
#include "bindings/lua/lua_context.h"

#include "bindings/lua/creator_lookup.h"
#include "bindings/lua/lua_errors.h"
#include "bindings/lua/lua_ext.h"
#include "bindings/lua/lua_state.h"
#include "comm/charstr.h"
#include "comm/exception.h"
#include "comm/log/logger.h"
#include "comm/log/logmsg.h"
#include "interface/registrar.h"

namespace velk::lua {

namespace {

// The file's name: what follows the last "/" or "\".
token file_name(token path)
{
    const char* p = path.ptre();
    while (p > path.ptr() && p[-1] != '/' && p[-1] != '\\')
        --p;
    return token(p, path.ptre());
}

int implements_body(lua_State* L)
{
    token name = lua_gettop(L) ? lua_toltoken(L, -1) : token();
    charstr key;
    key << "lua::register_class." << name;
    creator_fn c = get_creator(key);
    if (!c) {
        charstr text;
        text << name << " class registring funcion not found!";
        throw exception(token(text));
    }
    lua_pushvalue(L, LUA_ENVIRONINDEX); // the context table, where the class goes
    reinterpret_cast<lua_CFunction>(c)(L);
    lua_settop(L, -2);
    return 0;
}

int query_interface_body(lua_State* L)
{
    if (lua_gettop(L) < 1)
        throw exception("Invalid params!");
    lua_pushvalue(L, 1);
    lua_remove(L, 1);
    creator_fn c = creator_named_on_top(L);
    lua_settop(L, -2);
    // The creator takes the calling function's environment as the context.
    using create_fn = int (*)(lua_State*, iref<registry_handle>*);
    return reinterpret_cast<create_fn>(c)(L, nullptr);
}

} // namespace

lua_context::lua_context(lua_State* L, const token& script_path) : registry_handle(main_thread(L))
{
    lua_createtable(L, 0, 0);
    lua_pushvalue(L, -1);
    lua_setmetatable(L, -2); // misses fall through "__index" to the globals
    lua_pushvalue(L, LUA_GLOBALSINDEX);
    lua_setfield(L, -2, names::index);
    const struct
    {
        token name;
        lua_CFunction fn;
    } functions[] = {
        {names::implements, &context_implements},
        {names::log, &context_log},
        {names::query_interface, &context_query_interface},
    };
    for (const auto& f : functions) {
        lua_pushcclosure(L, f.fn, 0);
        lua_pushvalue(L, -2);
        lua_setfenv(L, -2); // the function's environment is the context
        lua_setfield(L, -2, f.name);
    }
    // The table goes into the registry from L's stack, whichever thread L
    // is: the registry is the state's.
    _ref = luaL_ref(L, LUA_REGISTRYINDEX);
    if (script_path.is_empty())
        return;
    push();
    lua_pushtoken(_L, file_name(script_path));
    lua_setfield(_L, -2, names::ctx_inf);
    lua_settop(_L, -2);
}

int context_implements(lua_State* L) { return guarded<&implements_body>(L); }

int context_log(lua_State* L)
{
    if (lua_gettop(L) == 0)
        return 0; // nothing to say
    lua_pushvalue(L, LUA_ENVIRONINDEX);
    lua_getfield(L, -1, names::ctx_inf);
    token source = lua_isnil(L, -1) ? token("Unknown script") : lua_toltoken(L, -1);
    // Hashed here: the source is the script's, known only at run time.
    tokenhash hashed(source);
    token text = lua_toltoken(L, -3);
    if (log_ref msg = create_log_msg(log_level::none, hashed, nullptr); msg && !text.is_empty())
        *msg << text;
    // The line goes out as msg drops, while the source is still on the stack.
    lua_settop(L, -3);
    return 0;
}

int context_query_interface(lua_State* L) { return guarded<&query_interface_body>(L); }

} // namespace velk::lua
