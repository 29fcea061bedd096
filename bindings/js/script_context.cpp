// script_context: the page test, running a script, paths by the stack, and
// the report of a missing creator.
#include "bindings/js/script_context.h"

#include "bindings/js/js_convert.h"
#include "comm/dir/path_algebra.h"
#include "comm/dynarray.h"
#include "comm/exception.h"
#include "comm/log/logmsg.h"
#include "interface/registrar.h"

namespace velk::js {

namespace {

bool starts_with(const token& t, const token& prefix)
{
    return t.lens() >= prefix.lens() && token(t.ptr(), prefix.lens()) == prefix;
}

bool ends_with(const token& t, const token& suffix)
{
    return t.lens() >= suffix.lens() && token(t.ptre() - suffix.lens(), suffix.lens()) == suffix;
}

// "name(line): text", or the text alone when V8 kept no message, and then
// " (load_script)".
charstr describe_failure(v8::Isolate* isolate, v8::Local<v8::Context> context, const v8::TryCatch& caught)
{
    charstr out;
    v8::Local<v8::Message> message = caught.Message();
    if (!message.IsEmpty()) {
        charstr name;
        to_text(isolate, message->GetScriptResourceName(), name);
        out << name << '(' << message->GetLineNumber(context).FromMaybe(0) << "): ";
    }
    charstr text;
    if (caught.HasTerminated())
        text = "execution terminated";
    else if (!to_text(isolate, caught.Exception(), text))
        text = "an exception that can't be shown as text";
    out << text << " (load_script)";
    return out;
}

} // namespace

page_test test_page(const token& path)
{
    token part = path;
    for (const char* p = path.ptr(); p < path.ptre(); ++p) {
        if (*p == '?') {
            part = token(path.ptr(), p);
            break;
        }
    }
    page_test t;
    t.page = starts_with(part, "http://") || starts_with(part, "https://") || ends_with(part, ".html");
    t.is_js = ends_with(part, ".js");
    return t;
}

v8::Local<v8::Script> load_script(const token& text, const token& url, int32_t mode)
{
    v8::Isolate* isolate = v8::Isolate::GetCurrent();
    v8::EscapableHandleScope scope(isolate);
    v8::Local<v8::Context> context = isolate->GetCurrentContext();
    v8::Local<v8::String> source;
    v8::Local<v8::String> name;
    if (!make_string(isolate, text).ToLocal(&source) || !make_string(isolate, url).ToLocal(&name)) {
        charstr why;
        why << url << ": the script is longer than V8 takes (load_script)";
        throw exception(token(why));
    }
    v8::TryCatch caught(isolate);
    v8::ScriptOrigin origin(isolate, name);
    v8::Local<v8::Script> script;
    v8::Local<v8::Value> result;
    if (v8::Script::Compile(context, source, &origin).ToLocal(&script) && script->Run(context).ToLocal(&result))
        return scope.Escape(script);
    if (mode == load_rethrow) {
        caught.ReThrow();
        return {};
    }
    charstr why = describe_failure(isolate, context, caught);
    throw exception(token(why));
}

int rebase_path(const token& path, uint32_t frame, charstr& out, token& relative)
{
    relative = token();
    v8::Isolate* isolate = v8::Isolate::GetCurrent();
    v8::HandleScope scope(isolate);
    v8::Local<v8::StackTrace> trace =
        v8::StackTrace::CurrentStackTrace(isolate, static_cast<int>(frame + 1), v8::StackTrace::kScriptName);
    if (frame >= static_cast<uint32_t>(trace->GetFrameCount()))
        return rebase_no_frame;
    charstr script_name;
    v8::Local<v8::String> name = trace->GetFrame(isolate, frame)->GetScriptName();
    if (!name.IsEmpty())
        to_text(isolate, name, script_name);
    // The script's directory, with its separator; nothing for a bare name.
    token current = script_name;
    current = current.cut_back_at_group(path_algebra::separators, cut_separator_to_returned | cut_empty_if_none);
    token include = path;
    // "file:///x" keeps one "/": a path from the root.
    if (starts_with(include, "file:///"))
        include = token(include.ptr() + 7, include.ptre());
    return resolve_include_path(current, include, out, &relative) ? rebase_ok : rebase_unresolved;
}

void report_missing_creator(const token& source, const token& name, const token& version)
{
    dynarray<creator_match> found;
    find_creators(name, token(""), found); // an empty script: native creators only
    log_ref msg = create_log_msg(log_level::warning, tokenhash(source), nullptr);
    if (!msg)
        return;
    if (found.size() == 0) {
        *msg << "interface creator not found (" << name << ")";
        return;
    }
    *msg << "interface creator version mismatch (requested " << name << version << ", found ";
    for (uint32_t i = 0; i < found.size(); ++i) {
        if (i)
            *msg << ", ";
        *msg << found[i].key;
    }
    *msg << ")";
}

} // namespace velk::js
