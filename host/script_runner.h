// script_runner: the reference host runs a JavaScript file with the plug-in's
// interface object, as a scriptable host does.
//
//   hostprobe run FILE.js [--bind NAME] [--root DIR]
//
// The host starts V8 and one isolate, and asks the registry for the
// plug-in's context creator ("xt::hostprobe_plugin.create@creator.js"),
// which makes the interface object for a new host_interface object, binds
// it in a fresh context under NAME ("probe" unless --bind says otherwise),
// and runs the file there. The root of $include paths is DIR, or else the
// script's own folder; the script is named "file:///" and its path below the
// root in messages, so that its includes resolve from where it lies.
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"
#include "host/commands.h"

namespace host {

// Where a request's script and root lie, made absolute against the current
// directory and compacted: the script's path, the root with its trailing
// separator, and the script's name in messages ("file:///" + its path below
// the root, or its full path when it lies outside the root). False, with
// the reason in error, when the paths can't be made. Throws std::bad_alloc.
struct script_place
{
    velk::charstr path;
    velk::charstr root;
    velk::charstr url;
};
bool place_script(const run_request& r, script_place& out, velk::charstr& error);

// Runs the script of place with the loaded plug-in. Gives the exit status:
// 0 when it ran; 1, with the creator's words on standard error (e.g.
// "file:///a.js(3): ReferenceError: x is not defined (load_script)"), when
// the plug-in has no context creator, the file can't be read, or the
// script fails to compile or throws. Throws velk::exception when the
// process has no registry, std::bad_alloc.
int run_script(const run_request& r, const script_place& place);

} // namespace host
