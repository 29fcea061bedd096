// hostprobe_plugin_js_dispatcher: the interface's methods as script
// callbacks, its object template, and its three JavaScript creators.
#include "bindings/js/hostprobe_plugin_js_dispatcher.h"

#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "bindings/js/script_globals.h"
#include "bindings/js/script_log.h"
#include "bindings/js/script_object.h"

namespace xt::js {

namespace {

using dispatcher = hostprobe_plugin_js_dispatcher;
using script_object = velk::js::script_object<dispatcher>;

// -- The methods, one method_info per row of the method list --------------------

#define XT_HOSTPROBE_JS_INFO(name, index, signature)                    \
    constexpr velk::js::method_info<signature> name##_info{              \
        #name, "hostprobe_plugin." #name, hostprobe_plugin::m_##name};
XT_HOSTPROBE_PLUGIN_METHODS(XT_HOSTPROBE_JS_INFO)
#undef XT_HOSTPROBE_JS_INFO

// The methods in table order, then the functions every interface object has.
const velk::js::function_entry function_table[] = {
#define XT_HOSTPROBE_JS_FUNCTION(name, index, signature) {#name, &script_object::method<name##_info>},
    XT_HOSTPROBE_PLUGIN_METHODS(XT_HOSTPROBE_JS_FUNCTION)
#undef XT_HOSTPROBE_JS_FUNCTION
    {"$log", &velk::js::log_callback},
    {"$query_interface", &velk::js::query_interface_callback},
    {"$rebind_events", &script_object::rebind_events},
    {"$ctx", &script_object::ctx},
};

v8::Isolate* isolate_of(v8::Local<v8::Context> context)
{
    return context.IsEmpty() ? v8::Isolate::GetCurrent() : context->GetIsolate();
}

} // namespace

const velk::js::function_entry* hostprobe_plugin_js_dispatcher::functions(uint32_t& count)
{
    count = sizeof function_table / sizeof function_table[0];
    return function_table;
}

v8::MaybeLocal<v8::Object> hostprobe_plugin_js_dispatcher::make_object(hostprobe_plugin_js_dispatcher* d,
                                                                       v8::Local<v8::Context> context, bool weak)
{
    return script_object::make_object(d, context, weak);
}

v8::Local<v8::Value>& hostprobe_plugin_js_dispatcher::wrapper_js(v8::Local<v8::Value>& out,
                                                                 velk::stubsmith_interface* ifc,
                                                                 v8::Local<v8::Context> context)
{
    v8::Isolate* isolate = isolate_of(context);
    if (!isolate)
        return out; // no context given, and no isolate entered: nothing to make
    if (!ifc) {
        out = v8::Null(isolate);
        return out;
    }
    if (context.IsEmpty())
        context = isolate->GetCurrentContext();
    v8::Context::Scope in_context(context);
    v8::EscapableHandleScope scope(isolate);

    // A script object that exists already is the answer.
    if (ifc->backend() == velk::backend_js && ifc->interface_hash() == hash) {
        auto* d = static_cast<dispatcher*>(static_cast<hostprobe_plugin*>(ifc));
        if (!d->object.IsEmpty()) {
            out = scope.Escape(d->object.Get(isolate));
            return out;
        }
    }
    velk::iref<dispatcher> d(new dispatcher);
    d->wrap(ifc);
    v8::Local<v8::Object> obj;
    if (make_object(d.get(), context, true).ToLocal(&obj))
        out = scope.Escape(obj);
    return out; // the script object holds the only reference now
}

velk::iref<hostprobe_plugin>& hostprobe_plugin_js_dispatcher::maker_js(velk::iref<hostprobe_plugin>& out,
                                                                      velk::counted_base* host,
                                                                      v8::Local<v8::Context> context)
{
    if (!host) {
        out.release();
        return out;
    }
    v8::Isolate* isolate = isolate_of(context);
    if (!isolate) {
        out.release();
        return out;
    }
    if (context.IsEmpty())
        context = isolate->GetCurrentContext();
    v8::Context::Scope in_context(context);
    v8::HandleScope scope(isolate);
    auto* d = new dispatcher;
    d->bind_host(host);
    out = d;
    v8::Local<v8::Object> obj;
    if (!make_object(d, context, false).ToLocal(&obj)) {
        out.release(); // the only reference: the dispatcher ends
        return out;
    }
    d->object.Reset(isolate, obj);
    return out;
}

v8::Local<v8::Value>& hostprobe_plugin_js_dispatcher::create_js(v8::Local<v8::Value>& out,
                                                                const v8::FunctionCallbackInfo<v8::Value>& info)
{
    v8::Isolate* isolate = info.GetIsolate();
    if (info.Length() != 2) {
        velk::js::throw_script_error(isolate, &v8::Exception::Error, "Wrong number of arguments in create");
        out = v8::Undefined(isolate);
        return out;
    }
    v8::EscapableHandleScope scope(isolate);
    v8::Local<v8::Context> context = isolate->GetCurrentContext();
    v8::Context::Scope in_context(context);

    velk::iref<velk::stubsmith_interface> host =
        velk::js::interface_from_script(info[1], hostprobe_plugin::host_interface_hash);
    // Held locally from the start: a dispatcher that the native creator
    // leaves unbound ends with this reference.
    velk::iref<dispatcher> d(new dispatcher);
    velk::iref<hostprobe_plugin> made;
    native_create(made, d.get(), host);
    if (!made) {
        out = scope.Escape(v8::Null(isolate));
        return out;
    }
    v8::Local<v8::Object> obj;
    if (make_object(d.get(), context, true).ToLocal(&obj))
        out = scope.Escape(obj);
    return out;
}

} // namespace xt::js
