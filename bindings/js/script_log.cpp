// script_log: the level words and $log.
#include "bindings/js/script_log.h"

#include "bindings/js/interface_object.h"
#include "bindings/js/js_convert.h"
#include "comm/log/logmsg.h"

namespace velk::js {

namespace {

struct level_word
{
    token word;
    int32_t type;
};

// The order in which the words are tried; the first that fits decides.
// "msg:" gives 3 and "info:" 4: a text that says "msg:" stands out more.
constexpr level_word level_words[] = {
    {"error:", 1}, {"warn:", 2}, {"warning:", 2}, {"info:", 4},
    {"msg:", 3},   {"dbg:", 5},  {"debug:", 5},   {"perf:", 6},
};

// Without a word, a line is information.
constexpr int32_t default_log_type = 4;

bool is_white(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

} // namespace

int32_t log_type_from_text(token& text)
{
    int32_t type = default_log_type;
    for (const level_word& w : level_words) {
        if (text.consume_prefix_icase(w.word)) {
            type = w.type;
            break;
        }
    }
    const char* p = text.ptr();
    while (p < text.ptre() && is_white(*p))
        ++p;
    text = token(p, text.ptre());
    return type;
}

void log_callback(const v8::FunctionCallbackInfo<v8::Value>& info)
{
    if (info.Length() == 0)
        return;
    v8::Isolate* isolate = info.GetIsolate();
    v8::HandleScope scope(isolate);
    // Called as a method of an interface object, the line is that object's.
    stubsmith_interface* ifc = nullptr;
    uint32_t hash = 0;
    if (!read_interface_fields(info.This(), ifc, hash))
        ifc = nullptr;
    charstr text;
    if (!to_text(isolate, info[0], text))
        return; // its toString threw: that exception is the answer
    static const tokenhash script_source("js");
    const tokenhash& source = ifc ? ifc->interface_name() : script_source;
    token rest = text;
    int32_t type = log_type_from_text(rest);
    if (log_ref msg = create_log_msg(type, source, ifc))
        *msg << rest;
    // The line goes out as the last reference drops, here.
}

} // namespace velk::js
