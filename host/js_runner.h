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

#include <memory>

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

// V8 kept for many runs in one process, for a program that runs script
// after script (the fuzz target): V8 starts with the first object and stays
// until the process ends; each object is one isolate, its heap within the
// limits given here. A process uses either this or run_js_script, which
// ends V8 after its one run.
class js_engine
{
public:
    // Starts V8 if it isn't yet and makes the isolate.
    explicit js_engine(const run_limits& limits);
    // Disposes the isolate; V8 stays.
    ~js_engine();
    js_engine(const js_engine&) = delete;
    js_engine& operator=(const js_engine&) = delete;

    // Runs the JavaScript file of place on the isolate as run_js_script
    // does, with the same exit status and words; the time limit is the
    // request's, the heap limit the one of construction.
    int run(const run_request& r, const script_place& place);

private:
    struct isolate_state; // V8's types stay out of this header
    std::unique_ptr<isolate_state> _state;
};

} // namespace host
