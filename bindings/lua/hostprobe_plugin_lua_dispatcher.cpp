// hostprobe_plugin_lua_dispatcher: the interface's methods as the class
// table's functions, generated from the method list, and its Lua creators.
#include "bindings/lua/hostprobe_plugin_lua_dispatcher.h"

#include "bindings/lua/hostprobe_plugin_lua_creator.h"
#include "bindings/lua/interface_from_lua.h"
#include "bindings/lua/lua_state.h"
#include "comm/exception.h"
#include "comm/metastream/fmtstream_lua_capi.h"
#include "plugin/hostprobe_plugin_methods.h"

namespace xt::lua {

namespace {

using dispatcher = hostprobe_plugin_lua_dispatcher;
using lua_object = velk::lua::lua_object<dispatcher>;

// -- The methods, one row of the method list each -------------------------------

#define XT_LUA_METHOD_INFO(name, index, signature)                                        \
    constexpr velk::lua::method_info<signature> name##_info{                              \
        #name, index, "Wrong number of arguments in hostprobe_plugin." #name,             \
        "Caller is not valid object in hostprobe_plugin." #name,                          \
        "Null interface object in hostprobe_plugin." #name};
XT_HOSTPROBE_PLUGIN_METHODS(XT_LUA_METHOD_INFO)
#undef XT_LUA_METHOD_INFO

#define XT_LUA_METHOD_ENTRY(name, index, signature) {#name, &lua_object::method<name##_info>},
const velk::lua::class_function class_table[] = {
    {"log", &lua_object::log},
    {"query_interface", &lua_object::query_interface},
    XT_HOSTPROBE_PLUGIN_METHODS(XT_LUA_METHOD_ENTRY)
};
#undef XT_LUA_METHOD_ENTRY

} // namespace

const velk::tokenhash& hostprobe_plugin_lua_dispatcher::log_source()
{
    static constexpr velk::tokenhash source(velk::token("xt::hostprobe_plugin"), 0x74BDD968u);
    return source;
}

const velk::lua::class_function* hostprobe_plugin_lua_dispatcher::class_functions(uint32_t& count)
{
    count = sizeof class_table / sizeof class_table[0];
    return class_table;
}

int hostprobe_plugin_lua_dispatcher::register_class(lua_State* L)
{
    return lua_object::register_class(L);
}

velk::iref<velk::lua::registry_handle>& hostprobe_plugin_lua_dispatcher::make_object(
    velk::iref<velk::lua::registry_handle>& out, bool weak)
{
    return lua_object::make_object(this, out, weak);
}

velk::iref<velk::lua::registry_handle>& hostprobe_plugin_lua_dispatcher::wrapper_lua(
    velk::iref<velk::lua::registry_handle>& out, hostprobe_plugin* ifc,
    velk::iref<velk::lua::registry_handle> context)
{
    out.release();
    if (!ifc)
        return out; // context goes with this frame
    // An object table that exists already is the answer.
    if (ifc->backend() == velk::backend_lua) {
        auto* d = static_cast<dispatcher*>(ifc);
        if (d->object) {
            out = d->object;
            return out;
        }
    }
    velk::iref<dispatcher> d(new dispatcher(ifc, *context));
    d->make_object(out, true);
    return out; // the object table holds the only reference to d now
}

int hostprobe_plugin_lua_dispatcher::create_lua(lua_State* L, velk::iref<velk::lua::registry_handle>* context)
{
    if (lua_gettop(L) != 1)
        throw velk::exception("Wrong number of arguments in hostprobe_plugin.create");
    velk::lua_streamer_context& streamer = velk::lua_streamer_context::get_lua_streamer(true);
    streamer.bind_stack(L);
    lua_pushvalue(L, 1);
    velk::iref<velk::stubsmith_interface> host = velk::lua::interface_from_lua(L);

    // Held locally from the start: a dispatcher that the native creator
    // leaves unbound ends with this reference.
    velk::iref<dispatcher> d(new dispatcher);
    velk::iref<hostprobe_plugin> made;
    native_create(made, d.get(), host);
    if (!made) {
        lua_pushnil(L);
        return 1;
    }
    if (context) {
        d->context = *context;
    } else {
        // The calling function's environment is the context.
        d->context->set_state(velk::lua::main_thread(L));
        lua_pushvalue(L, LUA_ENVIRONINDEX);
        d->context->set();
    }
    velk::iref<velk::lua::registry_handle> object;
    d->make_object(object, true);
    object->push();
    return 1;
}

} // namespace xt::lua
