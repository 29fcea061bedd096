// The creator of xt::hostprobe_plugin with a script context, under
// "xt::hostprobe_plugin.create@creator.js", and the cached way to the native
// creator that all JavaScript creators of the interface share.
//
// A host hands the creator a script (its text or its path), its own
// host_interface object and a name; it gets an interface object, bound to a
// script object that the script sees under that name, and the script runs.
//
//   velk::js::script_source s;
//   s.text = "/srv/scripts/probe.js";   s.is_path = true;   s.url = "file:///probe.js";
//   velk::iref<xt::hostprobe_plugin> p;
//   reinterpret_cast<xt::js::creator_js_fn>(velk::get_creator(xt::js::creator_js_key))(
//       p, s, host_object, "probe", nullptr);
//
// Objects are made for one isolate of the process, the first one asked;
// the binding keeps a mark in that isolate's last data slot (see
// script_object.h), which the host must leave alone.
#pragma once

#include "bindings/js/script_source.h"
#include "comm/iref.h"
#include "comm/token.h"
#include "plugin/hostprobe_plugin.h"

#include <v8.h>

namespace xt::js {

inline constexpr velk::token creator_js_key = "xt::hostprobe_plugin.create@creator.js";

// The native creator under hostprobe_plugin::native_creator_key, looked up
// on the first call and cached, called with (out, instance, arg). When the
// registry has none, the reason is logged (source "create": not found, or
// found only under another interface hash) and out is null; the lookup is
// tried again on the next call. Throws std::bad_alloc, velk::exception when
// the process has no registry.
velk::iref<hostprobe_plugin>& native_create(velk::iref<hostprobe_plugin>& out, hostprobe_plugin* instance,
                                            const velk::iref<velk::stubsmith_interface>& arg);

// "xt::hostprobe_plugin.create@creator.js". Makes the interface object for
// arg, and a script object of it held strongly by the dispatcher, published
// on the global object under bindname unless that is empty. Then, unless
// the script is a page or has no text, runs the script in its context. The
// context is script.context if given (nothing is installed in it), a page's
// context from the host's creator under "~html@system_context_getter2" when
// script is the path of a page, or else a new context with $include,
// $query_interface and $log; out_context, if not null, receives it.
//
// On any failure it throws velk::exception, and out is null (a script
// object that outlives its dispatcher answers undefined):
//   "no V8 isolate is entered"                 no context given, and no isolate current
//   "failed to create interface object"        the native creator gave nothing
//   "unable to acquire the system context creator interface"
//   "unable to create context"                 the host's page creator gave none
//   path + " not found"                        the script file can't be read
//   "name(line): text (load_script)"           the script failed to compile or run
// Also std::bad_alloc.
velk::iref<hostprobe_plugin>& create_with_script(velk::iref<hostprobe_plugin>& out,
                                                 const velk::js::script_source& script,
                                                 const velk::iref<velk::stubsmith_interface>& arg,
                                                 const velk::token& bindname,
                                                 v8::Local<v8::Context>* out_context);

using creator_js_fn = decltype(&create_with_script);

} // namespace xt::js
