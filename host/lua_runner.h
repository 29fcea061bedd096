// lua_runner: the reference host runs a Lua file with the plug-in's
// interface object, as a scriptable host does.
//
// The host makes a Lua state set up for the binding, and asks the registry
// for the plug-in's context creator ("xt::hostprobe_plugin.create@creator.lua"),
// which makes the interface object for a new host_interface object, binds
// its object table in a fresh context under the request's name, and runs
// the file there. The chunk is named "@" and the path as the user gave it,
// so that Lua's messages read "examples/probe.lua:3: ...".
#pragma once

#include "host/commands.h"
#include "host/script_runner.h"

namespace host {

// Runs the Lua file of place with the loaded plug-in, within the request's
// limits. Gives the exit status: 0 when it ran; 1, with the words on
// standard error, when the plug-in has no Lua context creator, no state can
// be made, the file can't be read ("<path> not found"), or the script fails
// to load or raises an error (Lua's message, e.g. "a.lua:3: attempt to call
// global 'x' (a nil value)"); 1 and "script ran out of memory (limit N MB)"
// when it failed after an allocation beyond the heap limit was refused; 3
// and "script timed out after N s" when its time ran out, caught or not.
// Every object of the plug-in is gone and the state closed when it returns,
// so the plug-in may be unloaded. Throws velk::exception when the process
// has no registry, std::bad_alloc.
int run_lua_script(const run_request& r, const script_place& place);

} // namespace host
