// interface_object: the two fields, the conversion back to native, and the
// object template.
#include "bindings/js/interface_object.h"

#include "bindings/js/js_convert.h"

namespace velk::js {

void write_interface_fields(v8::Isolate* isolate, v8::Local<v8::Object> obj, stubsmith_interface* ifc,
                            uint32_t hash)
{
    obj->SetInternalField(field_interface, v8::External::New(isolate, ifc));
    obj->SetInternalField(field_hash, v8::External::New(isolate, reinterpret_cast<void*>(uintptr_t(hash))));
}

iref<stubsmith_interface> interface_from_script(v8::Local<v8::Value> value, uint32_t wanted_hash)
{
    if (value.IsEmpty() || !value->IsObject())
        return nullptr;
    stubsmith_interface* ifc = nullptr;
    uint32_t hash = 0;
    if (!read_interface_fields(value.As<v8::Object>(), ifc, hash) || !ifc)
        return nullptr;
    // A call through field 0 before anything else is known of it: the price
    // of telling interface objects from other objects of two fields.
    if (ifc->interface_hash() != hash)
        return nullptr;
    if (!ifc->is_derived(static_cast<int32_t>(wanted_hash)))
        return nullptr;
    return iref<stubsmith_interface>(ifc->real_interface());
}

v8::Local<v8::ObjectTemplate> build_object_template(v8::Isolate* isolate, const token& tag,
                                                    const function_entry* functions, uint32_t count)
{
    v8::Local<v8::ObjectTemplate> t = v8::ObjectTemplate::New(isolate);
    t->SetInternalFieldCount(interface_field_count);
    v8::Local<v8::String> tag_text;
    if (make_string(isolate, tag).ToLocal(&tag_text))
        t->Set(v8::Symbol::GetToStringTag(isolate), tag_text, v8::DontEnum);
    for (uint32_t i = 0; i < count; ++i) {
        const function_entry& f = functions[i];
        v8::Local<v8::String> name =
            v8::String::NewFromOneByte(isolate, reinterpret_cast<const uint8_t*>(f.name),
                                       v8::NewStringType::kInternalized)
                .ToLocalChecked(); // a short literal: only exhaustion refuses it, which aborts anyway
        // Methods are no constructors: `new o.getMAC()` is refused by V8.
        v8::Local<v8::FunctionTemplate> fn = v8::FunctionTemplate::New(
            isolate, f.callback, v8::Local<v8::Value>(), v8::Local<v8::Signature>(), 0,
            v8::ConstructorBehavior::kThrow);
        t->Set(name, fn);
    }
    return t;
}

} // namespace velk::js
