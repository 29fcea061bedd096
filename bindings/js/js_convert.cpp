// js_convert: texts and script exceptions.
#include "bindings/js/js_convert.h"

namespace velk::js {

v8::MaybeLocal<v8::String> make_string(v8::Isolate* isolate, const token& text)
{
    // A null token has no characters to point at; V8 wants a valid pointer.
    const char* p = text.ptr() ? text.ptr() : "";
    return v8::String::NewFromUtf8(isolate, p, v8::NewStringType::kNormal, static_cast<int>(text.lens()));
}

bool to_text(v8::Isolate* isolate, v8::Local<v8::Value> value, charstr& out)
{
    out.reset();
    if (value.IsEmpty())
        return false;
    v8::String::Utf8Value utf8(isolate, value);
    if (!*utf8)
        return false;
    out.set(*utf8, static_cast<uint32_t>(utf8.length()));
    return true;
}

void throw_script_error(v8::Isolate* isolate, error_maker kind, const token& text)
{
    v8::Local<v8::String> message;
    if (!make_string(isolate, text).ToLocal(&message))
        message = v8::String::Empty(isolate);
    isolate->ThrowException(kind(message));
}

void throw_type_error(v8::Isolate* isolate, const exception& e)
{
    throw_script_error(isolate, &v8::Exception::TypeError, token(e.what()));
}

} // namespace velk::js
