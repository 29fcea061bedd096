// The plug-in's static registration: the key tables of xt::hostprobe_plugin
// and the static initialisers that enter them when the module is loaded.
//
// Three groups, started in this order: native (keys 1-2), JavaScript (3-6)
// and Lua (7-10). Their sites stay in this one file, since only definitions
// of one translation unit start in a fixed order. The script groups join
// with their bindings. Each group's keys are taken out again by the module's
// exit functions, in reverse order, when the module is unloaded.
//
// Linked into the plug-in module only: a program that links the plug-in's
// objects directly (the tests) registers nothing by accident.
#include "interface/ifc_autoregger.h"
#include "plugin/hostprobe_plugin.h"

namespace {

using xt::hostprobe_plugin_dispatcher;

// Keys 1-2.
void register_native_group(bool on)
{
    using xt::hostprobe_plugin;
    velk::register_key(on, hostprobe_plugin::native_wrapper_key, &hostprobe_plugin_dispatcher::native_wrapper_creator);
    velk::register_key(on, hostprobe_plugin::native_creator_key, &hostprobe_plugin_dispatcher::native_creator);
}

const velk::autoregger_site<&register_native_group> native_group;

} // namespace
