// script_object: the failures that every method callback may throw, the
// identity of an isolate, and the check of the raw field read.
#include "bindings/js/script_object.h"

#include <random>

namespace velk::js {

uintptr_t isolate_identity(v8::Isolate* isolate)
{
    const uint32_t slot = v8::Isolate::GetNumberOfDataSlots() - 1;
    if (void* mark = isolate->GetData(slot))
        return reinterpret_cast<uintptr_t>(mark);
    // Random rather than counted: each module would count from its own
    // start, and two of them would mark two isolates alike. As wide as the
    // slot, so that what is read back is what was made.
    std::random_device source;
    uintptr_t mark = 0;
    while (mark == 0)
        mark = static_cast<uintptr_t>((uint64_t(source()) << 32) ^ source());
    isolate->SetData(slot, reinterpret_cast<void*>(mark));
    return mark;
}

void throw_argument_count(v8::Isolate* isolate, const char* full_name)
{
    charstr text;
    text << "Wrong number of arguments in " << full_name;
    throw_script_error(isolate, &v8::Exception::SyntaxError, text);
}

void throw_null_interface(v8::Isolate* isolate, const char* full_name)
{
    charstr text;
    text << "Null interface object in " << full_name;
    throw_script_error(isolate, &v8::Exception::ReferenceError, text);
}

bool raw_interface_field_checked(v8::Isolate* isolate, v8::Local<v8::Context> context)
{
#if VELK_JS_RAW_FIELDS
    if (context.IsEmpty())
        context = isolate->GetCurrentContext();
    if (context.IsEmpty())
        return false;
    v8::HandleScope scope(isolate);
    v8::Context::Scope in_context(context);
    // Objects of templates with 2, 1 and 3 fields, some with a property as
    // well; only those of two fields with an External may read as one. A
    // method's receiver can be any of them.
    int marker = 0;
    auto make = [&](int fields, v8::Local<v8::Value> f0, bool property) -> v8::Local<v8::Object> {
        v8::Local<v8::ObjectTemplate> t = v8::ObjectTemplate::New(isolate);
        t->SetInternalFieldCount(fields);
        if (property)
            t->Set(isolate, "p", v8::Integer::New(isolate, 1));
        v8::Local<v8::Object> o;
        if (!t->NewInstance(context).ToLocal(&o))
            return o;
        o->SetInternalField(0, f0);
        return o;
    };
    auto agrees = [&](v8::Local<v8::Object> o, bool is, void* ptr) {
        void* p = nullptr;
        return !o.IsEmpty() && raw_interface_field(o, p) == is && (!is || p == ptr);
    };
    v8::Local<v8::Value> ext = v8::External::New(isolate, &marker);
    v8::Local<v8::Value> null_ext = v8::External::New(isolate, nullptr);
    // One whose property is deleted: its properties move to a dictionary.
    v8::Local<v8::Object> dictionary = make(2, ext, true);
    if (dictionary.IsEmpty() ||
        !dictionary->Delete(context, v8::String::NewFromUtf8Literal(isolate, "p")).FromMaybe(false))
        return false;
    return agrees(make(2, ext, false), true, &marker) && agrees(make(2, ext, true), true, &marker) &&
           agrees(dictionary, true, &marker) &&
           agrees(make(2, null_ext, false), true, nullptr) &&
           agrees(make(2, v8::Null(isolate), false), false, nullptr) &&
           agrees(make(2, v8::Integer::New(isolate, 3), false), false, nullptr) &&
           agrees(make(1, ext, false), false, nullptr) && agrees(make(3, ext, true), false, nullptr) &&
           agrees(v8::Object::New(isolate), false, nullptr);
#else
    (void)isolate;
    (void)context;
    return false;
#endif
}

} // namespace velk::js
