// script_globals: the functions that every script context made by this
// module has on its global object, in this order:
//
//   $include(path [, n])            runs a file below the root; gives what it put in $result
//   $query_interface(key, ...)      calls the script-side creator under key with its own arguments
//   $log(message)                   a log line; a level word may lead ("warn: ...")
//
// $query_interface and $log are also methods of interface objects.
//
// An included file hands back a value by assigning it to the global
// property "$result"; the value of its last expression is dropped:
//
//   // lib/format.js
//   $result = function (label, value) { return label + ": " + value; };
//   // probe.js
//   var format = $include("lib/format.js");
#pragma once

#include <v8.h>

namespace velk::js {

// The signature of a script-side creator, the kind of creator that
// $query_interface may name ("xt::js::hostprobe_plugin.create"): it reads
// its arguments from the calling script function's info and fills out.
using script_creator_fn = v8::Local<v8::Value>& (*)(v8::Local<v8::Value>& out,
                                                     const v8::FunctionCallbackInfo<v8::Value>& info);

// "$include". Without arguments: undefined when the calling script's own
// directory resolves below the root, else "file:///" and the URL-encoded
// part behind the root. With a path (trailing blanks, tabs and line ends
// dropped): runs the file it resolves to, relative to the calling script,
// and gives its $result. Script Errors: "invalid path " + path for a path
// that leads out of the root or that the host refuses, "error opening file "
// + full path for a file that can't be read; an error in the included file
// is rethrown as it is.
void include_callback(const v8::FunctionCallbackInfo<v8::Value>& info);

// "$query_interface". Script Errors: "Interface creator name missing"
// without arguments, "interface creator " + key + " not found" for an
// unknown key. Only creators of script_creator_fn's form may be named: the
// registry can't tell a creator's signature, and any other kind called
// here is undefined behaviour.
void query_interface_callback(const v8::FunctionCallbackInfo<v8::Value>& info);

// Installs $include, $query_interface and $log on the global object of
// context. False when V8 refuses one (a pending exception says why).
bool install_globals(v8::Local<v8::Context> context);

} // namespace velk::js
