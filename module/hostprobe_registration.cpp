// The plug-in's static registration: the key tables of xt::hostprobe_plugin
// and the static initialisers that enter them when the module is loaded.
//
// Three groups of keys, started in this order: native, JavaScript, Lua.
// Their sites stay in this one file, since only definitions of one
// translation unit start in a fixed order. The module's exit functions take
// each group's keys out again, in reverse order, when it is unloaded.
//
// Linked into the plug-in module only: a program that links the plug-in's
// objects directly (the tests) registers nothing by accident. A build
// without V8 (HOSTPROBE_WITH_JS 0, the Windows build) enters the native and
// Lua groups only.
#if HOSTPROBE_WITH_JS
#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "bindings/js/hostprobe_plugin_js_dispatcher.h"
#endif
#include "bindings/lua/hostprobe_plugin_lua_creator.h"
#include "bindings/lua/hostprobe_plugin_lua_dispatcher.h"
#include "interface/ifc_autoregger.h"
#include "plugin/hostprobe_plugin.h"

namespace {

using xt::hostprobe_plugin_dispatcher;
#if HOSTPROBE_WITH_JS
using xt::js::hostprobe_plugin_js_dispatcher;
#endif
using xt::lua::hostprobe_plugin_lua_dispatcher;

// Native: the wrapper creator, and the creator under the interface's hash.
void register_native_group(bool on)
{
    using xt::hostprobe_plugin;
    velk::register_key(on, hostprobe_plugin::native_wrapper_key, &hostprobe_plugin_dispatcher::native_wrapper_creator);
    velk::register_key(on, hostprobe_plugin::native_creator_key, &hostprobe_plugin_dispatcher::native_creator);
}

#if HOSTPROBE_WITH_JS
// JavaScript: the script context creator, and the dispatcher's creator,
// wrapper and maker.
void register_js_group(bool on)
{
    velk::register_key(on, xt::js::creator_js_key, &xt::js::create_with_script);
    velk::register_key(on, hostprobe_plugin_js_dispatcher::create_js_key, &hostprobe_plugin_js_dispatcher::create_js);
    velk::register_key(on, hostprobe_plugin_js_dispatcher::wrapper_js_key, &hostprobe_plugin_js_dispatcher::wrapper_js);
    velk::register_key(on, hostprobe_plugin_js_dispatcher::maker_js_key, &hostprobe_plugin_js_dispatcher::maker_js);
}
#endif

// Lua: the class registration, the script context creator, and the
// dispatcher's creator and wrapper.
void register_lua_group(bool on)
{
    velk::register_key(on, hostprobe_plugin_lua_dispatcher::register_class_key,
                       &hostprobe_plugin_lua_dispatcher::register_class);
    velk::register_key(on, xt::lua::creator_lua_key, &xt::lua::create_with_script);
    velk::register_key(on, hostprobe_plugin_lua_dispatcher::create_lua_key, &hostprobe_plugin_lua_dispatcher::create_lua);
    velk::register_key(on, hostprobe_plugin_lua_dispatcher::wrapper_lua_key,
                       &hostprobe_plugin_lua_dispatcher::wrapper_lua);
}

const velk::autoregger_site<&register_native_group> native_group;
#if HOSTPROBE_WITH_JS
const velk::autoregger_site<&register_js_group> js_group;
#endif
const velk::autoregger_site<&register_lua_group> lua_group;

} // namespace
