// The context creator of xt::hostprobe_plugin and its native creator's cache.
#include "bindings/js/hostprobe_plugin_js_creator.h"

#include "bindings/js/hostprobe_plugin_js_dispatcher.h"
#include "bindings/js/js_convert.h"
#include "bindings/js/script_context.h"
#include "bindings/js/script_file.h"
#include "bindings/js/script_globals.h"
#include "comm/exception.h"
#include "interface/registrar.h"

#include <atomic>

namespace xt::js {

namespace {

using dispatcher = hostprobe_plugin_js_dispatcher;

// Filled on first use without a guard: racing threads store the same value.
// Never reset: the creator lives in this module, as this cache does.
std::atomic<velk::creator_fn> native_creator_cache{nullptr};

// Throws what the script exception in caught says, after words.
[[noreturn]] void throw_caught(v8::Isolate* isolate, const v8::TryCatch& caught, const velk::token& words)
{
    velk::charstr why;
    why << words;
    velk::charstr text;
    if (caught.HasCaught() && !caught.Exception().IsEmpty() && velk::js::to_text(isolate, caught.Exception(), text))
        why << ": " << text;
    throw velk::exception(velk::token(why));
}

// The context of a page, from the host's creator.
v8::Local<v8::Context> page_context(const velk::js::script_source& script, hostprobe_plugin* ifc)
{
    velk::creator_fn c = velk::get_creator(velk::js::page_context_key);
    if (!c)
        throw velk::exception("unable to acquire the system context creator interface");
    v8::Local<v8::Context> context;
    reinterpret_cast<velk::js::page_context_fn>(c)(context, script, ifc);
    if (context.IsEmpty())
        throw velk::exception("unable to create context");
    return context;
}

// A new context with the script globals.
v8::Local<v8::Context> new_script_context(v8::Isolate* isolate)
{
    v8::TryCatch caught(isolate);
    v8::Local<v8::Context> context = v8::Context::New(isolate);
    if (context.IsEmpty())
        throw_caught(isolate, caught, "unable to create context");
    v8::Context::Scope in_context(context);
    if (!velk::js::install_globals(context))
        throw_caught(isolate, caught, "unable to install the script globals");
    return context;
}

// Makes d's script object, held strongly, and publishes it under bindname.
void publish_object(dispatcher* d, v8::Local<v8::Context> context, const velk::token& bindname)
{
    v8::Isolate* isolate = context->GetIsolate();
    v8::TryCatch caught(isolate);
    v8::Local<v8::Object> obj;
    if (!dispatcher::make_object(d, context, false).ToLocal(&obj))
        throw_caught(isolate, caught, "unable to create the script object");
    d->object.Reset(isolate, obj);
    if (bindname.is_empty())
        return;
    v8::Local<v8::String> name;
    if (!velk::js::make_string(isolate, bindname).ToLocal(&name) ||
        context->Global()->Set(context, name, obj).IsNothing())
        throw_caught(isolate, caught, "unable to publish the script object");
}

// The text to run: the file's content, or the text, behind the prefix.
// Gives a view into buffer or into the script's own text.
velk::token script_text(const velk::js::script_source& script, velk::charstr& buffer)
{
    if (script.is_path) {
        buffer << script.prefix;
        if (!velk::js::read_script_file(script.text, buffer)) {
            velk::charstr why;
            why << script.text << " not found";
            throw velk::exception(velk::token(why));
        }
        return buffer;
    }
    if (script.prefix.is_empty())
        return script.text;
    buffer << script.prefix << script.text;
    return buffer;
}

// Steps after the object exists: the context, the object and the script.
void bind_and_run(dispatcher* d, const velk::js::script_source& script, const velk::token& bindname,
                  v8::EscapableHandleScope& scope, v8::Local<v8::Context>* out_context)
{
    v8::Isolate* isolate = scope.GetIsolate();
    v8::Local<v8::Context> page;
    if (script.is_path) {
        velk::js::page_test t = velk::js::test_page(script.text);
        // A page makes its own context; a script that only has a page's
        // address is still a file to open.
        if (t.page && !t.is_js)
            page = page_context(script, d);
    }
    v8::Local<v8::Context> context = page;
    if (context.IsEmpty())
        context = script.context.IsEmpty() ? new_script_context(isolate) : script.context;
    if (out_context)
        *out_context = scope.Escape(context);
    v8::Context::Scope in_context(context);

    if (!page.IsEmpty() || script.text.is_null()) {
        publish_object(d, context, bindname);
        return;
    }
    velk::charstr buffer;
    velk::token text = script_text(script, buffer);
    // The object exists before the script runs: the script sees it.
    publish_object(d, context, bindname);
    velk::token url = script.url.is_empty() && script.is_path ? script.text : script.url;
    velk::js::load_script(text, url, velk::js::load_throw_native);
}

} // namespace

velk::iref<hostprobe_plugin>& native_create(velk::iref<hostprobe_plugin>& out, hostprobe_plugin* instance,
                                            const velk::iref<velk::stubsmith_interface>& arg)
{
    velk::creator_fn c = native_creator_cache.load(std::memory_order_relaxed);
    if (!c) {
        c = velk::get_creator(hostprobe_plugin::native_creator_key);
        native_creator_cache.store(c, std::memory_order_relaxed);
    }
    if (!c) {
        velk::js::report_missing_creator("create", "xt::hostprobe_plugin.create", "@3445205045");
        out.release();
        return out;
    }
    return reinterpret_cast<native_creator_fn>(c)(out, instance, arg);
}

velk::iref<hostprobe_plugin>& create_with_script(velk::iref<hostprobe_plugin>& out,
                                                 const velk::js::script_source& script,
                                                 const velk::iref<velk::stubsmith_interface>& arg,
                                                 const velk::token& bindname, v8::Local<v8::Context>* out_context)
{
    v8::Isolate* isolate = script.context.IsEmpty() ? v8::Isolate::GetCurrent() : script.context->GetIsolate();
    if (!isolate) {
        out.release();
        throw velk::exception("no V8 isolate is entered");
    }
    v8::EscapableHandleScope scope(isolate);
    {
        // The local reference ends the dispatcher if the native creator
        // leaves it unbound; otherwise out holds it.
        velk::iref<dispatcher> d(new dispatcher);
        native_create(out, d.get(), arg);
    }
    if (!out)
        throw velk::exception("failed to create interface object");
    try {
        bind_and_run(static_cast<dispatcher*>(out.get()), script, bindname, scope, out_context);
    } catch (...) {
        // No object for a failed creation: the dispatcher ends, unless
        // something the script made holds it, and a script object that
        // outlives it answers undefined.
        out.release();
        throw;
    }
    return out;
}

} // namespace xt::js
