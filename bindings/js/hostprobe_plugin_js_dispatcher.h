// xt::js::hostprobe_plugin_js_dispatcher: the JavaScript dispatcher of
// xt::hostprobe_plugin, and the three ways in which scripts and native code
// get one.
//
// A script sees an ordinary object that prints as "xt::hostprobe_plugin" and
// whose methods getMAC, mersenne_twister and testfunction call native code
// through the interface's method table; it also has $log, $query_interface,
// $rebind_events and $ctx. The object and the dispatcher may each outlive
// the other without harm: see interface_wrapper_base.
//
// Registered keys (the JavaScript group of the plug-in's registration):
//
//   "xt::hostprobe_plugin@wrapper.js"   wrapper_js   a script object for a native interface
//   "xt::hostprobe_plugin@maker.js"     maker_js     a dispatcher and its object around a native object
//   "xt::js::hostprobe_plugin.create"   create_js    what $query_interface calls
//
// Everything here runs on the thread of the isolate, inside it.
#pragma once

#include "bindings/js/interface_object.h"
#include "bindings/js/interface_wrapper_base.h"
#include "plugin/hostprobe_plugin.h"

#include <v8.h>

#include <cstdint>

namespace xt::js {

class hostprobe_plugin_js_dispatcher : public velk::js::interface_wrapper_base<xt::hostprobe_plugin>
{
public:
    static constexpr velk::token wrapper_js_key = "xt::hostprobe_plugin@wrapper.js";
    static constexpr velk::token maker_js_key = "xt::hostprobe_plugin@maker.js";
    static constexpr velk::token create_js_key = "xt::js::hostprobe_plugin.create";

    // The functions of the object template, in the order scripts list them:
    // the three methods, then $log, $query_interface, $rebind_events, $ctx.
    static const velk::js::function_entry* functions(uint32_t& count);

    // A new script object of d in context; see script_object::make_object.
    static v8::MaybeLocal<v8::Object> make_object(hostprobe_plugin_js_dispatcher* d,
                                                  v8::Local<v8::Context> context, bool weak);

    // "@wrapper.js": the script object of ifc in context (the current one
    // when empty). A JavaScript dispatcher with a live object gives that
    // object: an object is never wrapped twice. Any other interface gets a
    // new dispatcher that wraps it, held by a new weak object. A null ifc
    // gives the script value null; out stays empty when V8 refuses the
    // object, or when there is neither a context nor an entered isolate.
    // Throws std::bad_alloc.
    static v8::Local<v8::Value>& wrapper_js(v8::Local<v8::Value>& out, velk::stubsmith_interface* ifc,
                                            v8::Local<v8::Context> context);

    // "@maker.js": a new dispatcher bound to host, with a script object in
    // context (the current one when empty) that it holds strongly; out holds
    // the dispatcher. A null host, an object that V8 refuses, or neither a
    // context nor an entered isolate gives a null out. Throws std::bad_alloc.
    static velk::iref<hostprobe_plugin>& maker_js(velk::iref<hostprobe_plugin>& out, velk::counted_base* host,
                                                  v8::Local<v8::Context> context);

    // "xt::js::hostprobe_plugin.create", called by $query_interface with its
    // own callback info: args[0] is the key, args[1] the host's object. A
    // new object with a weak hold on its dispatcher, or the script value
    // null when args[1] isn't a host_interface object. Another count than 2
    // throws the script Error "Wrong number of arguments in create" and
    // gives undefined. Throws std::bad_alloc.
    static v8::Local<v8::Value>& create_js(v8::Local<v8::Value>& out,
                                           const v8::FunctionCallbackInfo<v8::Value>& info);
};

// The signatures that the keys promise, for hosts that find them.
using wrapper_js_fn = decltype(&hostprobe_plugin_js_dispatcher::wrapper_js);
using maker_js_fn = decltype(&hostprobe_plugin_js_dispatcher::maker_js);
using create_js_fn = decltype(&hostprobe_plugin_js_dispatcher::create_js);

} // namespace xt::js
