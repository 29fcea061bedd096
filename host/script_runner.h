// script_runner: what `hostprobe run` does for a script of either language.
//
//   hostprobe run FILE [--bind NAME] [--root DIR] [--timeout SECONDS] [--max-heap MB]
//
// The file's extension picks the language: ".js" runs in V8 (js_runner),
// ".lua" in LuaJIT (lua_runner); any other is a wrong command line, refused
// before the plug-in loads. Each runner keeps the request's limits
// (js_limits, lua_limits). The script's place (its full path, the root and
// its name in messages) is made here once for both.
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"
#include "host/commands.h"

namespace host {

enum class script_language { javascript, lua };

// The language of file by its extension, ".js" or ".lua" (lower case, as
// the registry's include rule has it). False, with the reason in error, for
// any other extension or none.
bool choose_language(const char* file, script_language& out, velk::charstr& error);

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

// Runs the script of place in language with the loaded plug-in: the exit
// status of run_js_script or run_lua_script, which say what fails.
int run_script(script_language language, const run_request& r, const script_place& place);

// The plug-in's script context creator under key, as the type Fn that the
// key promises; null, with the reason on standard error, when the plug-in
// registered none.
void* script_creator(const velk::token& key);
template <class Fn>
Fn find_script_creator(const velk::token& key)
{
    return reinterpret_cast<Fn>(script_creator(key));
}

} // namespace host
