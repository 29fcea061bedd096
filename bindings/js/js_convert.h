// js_convert: values and failures across the border between native code and
// V8 scripts.
//
// Texts go to scripts as UTF-8 of their exact length; numbers of 32 bits go
// as V8 integers, which are signed: an unsigned value above 0x7FFFFFFF
// reaches a script as a negative number, by design of the binding. Native
// failures never cross V8 frames as C++ exceptions: a velk::exception is
// turned into a script TypeError at the border.
//
//   uint32_t seed = velk::js::from_script<uint32_t>(context, info[0]);
//   velk::js::set_result(info.GetReturnValue(), isolate, value);
#pragma once

#include "bindings/js/creation_context.h"
#include "comm/charstr.h"
#include "comm/exception.h"
#include "comm/token.h"

#include <v8.h>

#include <cstdint>

namespace velk::js {

// -- Texts ------------------------------------------------------------------

// A normal (not internalised) V8 string of text's exact length. Empty when
// V8 refuses it (a text beyond V8's string limit).
v8::MaybeLocal<v8::String> make_string(v8::Isolate* isolate, const token& text);

// The text of value as String() would give it, as UTF-8, into out. False,
// out empty, when the conversion throws; the script exception stays pending
// then. Throws std::bad_alloc.
bool to_text(v8::Isolate* isolate, v8::Local<v8::Value> value, charstr& out);

// -- Script exceptions ------------------------------------------------------

// The constructors of the script's error objects that native code throws.
using error_maker = v8::Local<v8::Value> (*)(v8::Local<v8::String> message);

// Throws a script exception of the given kind with the text; the caller
// returns to V8 next.
void throw_script_error(v8::Isolate* isolate, error_maker kind, const token& text);

// The script's TypeError for a native failure: the exception's own text
// (its built text, or else its static one), nothing else of it.
void throw_type_error(v8::Isolate* isolate, const exception& e);

// -- Numbers ----------------------------------------------------------------

// An argument as the native type takes it, by the script's own conversion
// in the call's context ("21" gives 21). A number that fits is taken as it
// is, with no context to enter; anything else is converted in the entered
// context. A conversion that throws leaves the script exception pending and
// gives 0: the method is still called.
template <class T>
T from_script(creation_context& context, v8::Local<v8::Value> value);

// Whether value is a small integer, which V8 keeps in the handle's slot
// itself: read inline, where IsInt32 and Int32::Value are two calls into
// the library on every call of a method.
inline bool small_integer(v8::Local<v8::Value> value, int32_t& out)
{
    using I = v8::internal::Internals;
    v8::internal::Address raw = *reinterpret_cast<const v8::internal::Address*>(*value);
    if (I::HasHeapObjectTag(raw))
        return false;
    out = I::SmiValue(raw);
    return true;
}

template <>
inline uint32_t from_script<uint32_t>(creation_context& context, v8::Local<v8::Value> value)
{
    int32_t small = 0;
    if (small_integer(value, small) && small >= 0)
        return static_cast<uint32_t>(small);
    if (value->IsUint32())
        return value.As<v8::Uint32>()->Value();
    return value->Uint32Value(context.enter()).FromMaybe(0u);
}

template <>
inline int32_t from_script<int32_t>(creation_context& context, v8::Local<v8::Value> value)
{
    int32_t small = 0;
    if (small_integer(value, small))
        return small;
    if (value->IsInt32())
        return value.As<v8::Int32>()->Value();
    return value->Int32Value(context.enter()).FromMaybe(0);
}

// -- Results ----------------------------------------------------------------

// Integers are set in place, as a V8 integer would hold them: signed 32
// bits, so an unsigned result wraps to a negative number.
inline void set_result(v8::ReturnValue<v8::Value> rv, v8::Isolate*, int32_t v) { rv.Set(v); }
inline void set_result(v8::ReturnValue<v8::Value> rv, v8::Isolate*, uint32_t v)
{
    rv.Set(static_cast<int32_t>(v));
}

// A text as a normal string; nothing is set when V8 refuses the string.
inline void set_result(v8::ReturnValue<v8::Value> rv, v8::Isolate* isolate, const charstr& v)
{
    v8::Local<v8::String> s;
    if (make_string(isolate, v).ToLocal(&s))
        rv.Set(s);
}

} // namespace velk::js
