// interface_object: the script side of an interface object, for any
// interface and any module.
//
// An interface object is a V8 object with exactly two internal fields:
// field 0 an External of the native interface (a stubsmith_interface
// pointer, null once its dispatcher is gone), field 1 an External whose
// pointer value is the interface hash. That pair is the contract by which
// native code of every module recognises such an object, whichever template
// made it. This header reads and writes the pair, and turns a script value
// back into a counted native interface.
//
//   velk::iref<velk::stubsmith_interface> host = velk::js::interface_from_script(info[1], 0x38934D07);
#pragma once

#include "comm/iref.h"
#include "interface/stubsmith_interface.h"

#include <v8.h>

#include <cstdint>

namespace velk::js {

inline constexpr int field_interface = 0;
inline constexpr int field_hash = 1;
inline constexpr int interface_field_count = 2;

// One function of an object template: its property name and its callback.
struct function_entry
{
    const char* name;
    v8::FunctionCallback callback;
};

// Reads the pair of an interface object. False, outputs unchanged, when obj
// isn't one: another number of internal fields, or a field that isn't an
// External. ptr may come back null: the dispatcher is gone. Inline: every
// method call reads it.
inline bool read_interface_fields(v8::Local<v8::Object> obj, stubsmith_interface*& ptr, uint32_t& hash)
{
    if (obj.IsEmpty() || obj->InternalFieldCount() != interface_field_count)
        return false;
    v8::Local<v8::Value> f0 = obj->GetInternalField(field_interface);
    v8::Local<v8::Value> f1 = obj->GetInternalField(field_hash);
    if (!f0->IsExternal() || !f1->IsExternal())
        return false;
    ptr = static_cast<stubsmith_interface*>(f0.As<v8::External>()->Value());
    // The hash rides in the pointer's value; only its low 32 bits count.
    hash = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(f1.As<v8::External>()->Value()));
    return true;
}

// Writes the pair into an object of a template with two internal fields.
void write_interface_fields(v8::Isolate* isolate, v8::Local<v8::Object> obj, stubsmith_interface* ifc,
                            uint32_t hash);

// The native interface of value, with one more reference, when value is an
// interface object whose interface derives from wanted_hash: its
// real_interface. Null for anything else: no object, another number of
// fields, a gone dispatcher, an object whose field 1 disagrees with its
// interface's own hash (field 0 is trusted to point at an interface to ask
// that), or an interface of another kind. Throws nothing.
iref<stubsmith_interface> interface_from_script(v8::Local<v8::Value> value, uint32_t wanted_hash);

// A template for interface objects: two internal fields, Symbol.toStringTag
// set to tag, and the functions, in order, under one-byte internalised
// names. Local to the caller's handle scope.
v8::Local<v8::ObjectTemplate> build_object_template(v8::Isolate* isolate, const token& tag,
                                                    const function_entry* functions, uint32_t count);

} // namespace velk::js
