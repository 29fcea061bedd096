// script_globals: $include, $query_interface and their installation.
#include "bindings/js/script_globals.h"

#include "bindings/js/js_convert.h"
#include "bindings/js/script_context.h"
#include "bindings/js/script_file.h"
#include "bindings/js/script_log.h"
#include "bindings/js/url_encode.h"
#include "comm/dir/directory.h"
#include "comm/exception.h"
#include "interface/registrar.h"

namespace velk::js {

namespace {

constexpr token file_scheme = "file:///";

bool is_trailing_white(char c) { return c == '\t' || c == '\n' || c == '\r' || c == ' '; }

void throw_error(v8::Isolate* isolate, const token& words, const token& what)
{
    charstr text;
    text << words << what;
    throw_script_error(isolate, &v8::Exception::Error, text);
}

v8::Local<v8::String> result_name(v8::Isolate* isolate)
{
    return v8::String::NewFromUtf8Literal(isolate, "$result", v8::NewStringType::kInternalized);
}

// $include without arguments: where the calling script stands, when the
// registry refuses that.
void include_nothing(const v8::FunctionCallbackInfo<v8::Value>& info)
{
    v8::Isolate* isolate = info.GetIsolate();
    charstr out;
    token relative;
    if (rebase_path(token(""), 0, out, relative) == rebase_ok)
        return;
    charstr url;
    url << file_scheme;
    url_encode(relative, url);
    v8::Local<v8::String> s;
    if (make_string(isolate, url).ToLocal(&s))
        info.GetReturnValue().Set(s);
}

// Compiles and runs text under name; gives the value the file left in
// $result, and leaves $result undefined. Empty, with the script exception
// rethrown, when compiling or running throws.
v8::Local<v8::Value> run_included(v8::Isolate* isolate, v8::Local<v8::Context> context, const token& text,
                                  const token& name)
{
    v8::Local<v8::String> source;
    v8::Local<v8::String> resource;
    if (!make_string(isolate, text).ToLocal(&source) || !make_string(isolate, name).ToLocal(&resource)) {
        throw_error(isolate, "file too long for a script: ", name);
        return {};
    }
    v8::Local<v8::Object> global = context->Global();
    v8::TryCatch caught(isolate);
    if (global->Set(context, result_name(isolate), v8::Undefined(isolate)).IsNothing()) {
        caught.ReThrow();
        return {};
    }
    v8::ScriptOrigin origin(isolate, resource);
    v8::Local<v8::Script> script;
    if (!v8::Script::Compile(context, source, &origin).ToLocal(&script)) {
        caught.ReThrow();
        return {};
    }
    v8::Local<v8::Value> ignored;
    if (!script->Run(context).ToLocal(&ignored)) {
        caught.ReThrow();
        return {};
    }
    v8::Local<v8::Value> result;
    if (!global->Get(context, result_name(isolate)).ToLocal(&result) ||
        global->Set(context, result_name(isolate), v8::Undefined(isolate)).IsNothing()) {
        caught.ReThrow();
        return {};
    }
    return result;
}

void include_file(const v8::FunctionCallbackInfo<v8::Value>& info)
{
    v8::Isolate* isolate = info.GetIsolate();
    v8::Local<v8::Context> context = isolate->GetCurrentContext();
    // A second argument is converted, as callers of old passed a mode; its
    // value is not used.
    if (info.Length() >= 2 && info[1]->Int32Value(context).IsNothing())
        return;
    charstr path;
    if (!to_text(isolate, info[0], path))
        return;
    const char* end = path.ptre();
    while (end > path.ptr() && is_trailing_white(end[-1]))
        --end;
    token wanted(path.ptr(), end);

    charstr full;
    token relative;
    if (rebase_path(wanted, 0, full, relative) != rebase_ok) {
        throw_error(isolate, "invalid path ", wanted);
        return;
    }
    // The fence of rebase_path is textual: a link below the root may still
    // lead out of it. A file that is there must lie below the root with its
    // links resolved too.
    const charstr& root = root_path();
    if (!root.is_empty() && directory::is_regular(full) && !directory::lies_within(root, full)) {
        throw_error(isolate, "invalid path ", wanted);
        return;
    }
    charstr text;
    if (!read_script_file(full, text)) {
        throw_error(isolate, "error opening file ", full);
        return;
    }
    charstr name;
    name << file_scheme << relative;
    v8::Local<v8::Value> result = run_included(isolate, context, text, name);
    if (!result.IsEmpty())
        info.GetReturnValue().Set(result);
}

} // namespace

void include_callback(const v8::FunctionCallbackInfo<v8::Value>& info)
{
    v8::Isolate* isolate = info.GetIsolate();
    v8::HandleScope scope(isolate);
    try {
        if (info.Length() == 0)
            include_nothing(info);
        else
            include_file(info);
    } catch (const exception& e) { // no registry in the process
        throw_type_error(isolate, e);
    }
}

void query_interface_callback(const v8::FunctionCallbackInfo<v8::Value>& info)
{
    v8::Isolate* isolate = info.GetIsolate();
    if (info.Length() == 0) {
        throw_script_error(isolate, &v8::Exception::Error, "Interface creator name missing");
        return;
    }
    v8::HandleScope scope(isolate);
    try {
        charstr key;
        if (!to_text(isolate, info[0], key))
            return;
        creator_fn c = get_creator(key);
        if (!c) {
            charstr text;
            text << "interface creator " << key << " not found";
            throw_script_error(isolate, &v8::Exception::Error, text);
            return;
        }
        v8::Local<v8::Value> out;
        reinterpret_cast<script_creator_fn>(c)(out, info);
        if (!out.IsEmpty())
            info.GetReturnValue().Set(out);
    } catch (const exception& e) { // no registry, or a creator's failure
        throw_type_error(isolate, e);
    }
}

bool install_globals(v8::Local<v8::Context> context)
{
    struct global_function
    {
        const char* name;
        v8::FunctionCallback callback;
    };
    static constexpr global_function globals[] = {
        {"$include", &include_callback},
        {"$query_interface", &query_interface_callback},
        {"$log", &log_callback},
    };
    v8::Isolate* isolate = context->GetIsolate();
    v8::HandleScope scope(isolate);
    v8::Local<v8::Object> global = context->Global();
    for (const global_function& g : globals) {
        v8::Local<v8::String> name;
        v8::Local<v8::Function> fn;
        if (!v8::String::NewFromUtf8(isolate, g.name, v8::NewStringType::kInternalized).ToLocal(&name) ||
            !v8::FunctionTemplate::New(isolate, g.callback)->GetFunction(context).ToLocal(&fn) ||
            global->Set(context, name, fn).IsNothing())
            return false;
    }
    return true;
}

} // namespace velk::js
