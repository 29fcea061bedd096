// js_runner: the reference host runs a JavaScript file with the plug-in's
// interface object, as a scriptable host does.
//
// The host starts V8 and one isolate, and asks the registry for the
// plug-in's context creator ("xt::hostprobe_plugin.create@creator.js"),
// which makes the interface object for a new host_interface object, binds
// it in a fresh context under the request's name, and runs the file there.
// The root of $include paths is the place's root; the script is named by
// the place's url ("file:///" and its path below the root) in messages, so
// that its includes resolve from where it lies.
#pragma once

#include "host/commands.h"
#include "host/script_runner.h"

namespace host {

// Runs the JavaScript file of place with the loaded plug-in, within the
// request's limits. Gives the exit status: 0 when it ran; 1, with the
// creator's words on standard error (e.g. "file:///a.js(3): ReferenceError:
// x is not defined (load_script)"), when the plug-in has no context
// creator, the file can't be read, or the script fails to compile or
// throws; 1 too, with a line "file:///a.js: unhandled promise rejection:
// TEXT" for each, when the script leaves a rejected promise unhandled; 1
// and "script ran out of memory (limit N MB)" when its heap reached the
// limit; 3 and "script timed out after N s" when its time ran out. V8
// starts once per process, so a process runs one script. Throws velk::exception when the process has no
// registry, std::bad_alloc.
int run_js_script(const run_request& r, const script_place& place);

} // namespace host
