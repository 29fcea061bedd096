// raw_field: field 0 of an interface object, read straight from V8's heap
// on the road of every method call.
//
// The API's readers are calls into the library, and GetInternalField makes a
// handle even on its inline path: a profile of a script's call put about
// half the callback's time there (InternalFieldCount, IsExternal,
// External::Value, HandleScope::CreateHandle). This reader is inline code
// with no handle. It relies on this V8's (10.2) object layout, partly beyond
// its public header; raw_interface_field_checked compares it with the API
// once, before any template uses it, and a mismatch leaves the API's road.
#pragma once

#include <v8.h>

#include <cstdint>

#if V8_MAJOR_VERSION == 10 && V8_MINOR_VERSION == 2 && !defined(V8_COMPRESS_POINTERS) &&                        \
    !defined(V8_SANDBOXED_EXTERNAL_POINTERS) && !defined(V8_MAP_PACKING) && defined(__x86_64__)
#define VELK_JS_RAW_FIELDS 1
#else
#define VELK_JS_RAW_FIELDS 0
#endif

namespace velk::js {

#if VELK_JS_RAW_FIELDS
// Where this V8 keeps what the read needs beyond its public header, as
// its own InternalFieldCount and External::Value read them.
namespace raw_layout {
// Map: the start of in-object properties, in words; internal fields lie
// between the object header and that start.
inline constexpr int map_inobject_start = 9;
// An External: its instance type and where its pointer lies.
inline constexpr int external_type = 0x841;
inline constexpr int external_value = 3 * v8::internal::kApiTaggedSize;
} // namespace raw_layout
#endif

// Field 0 of an interface object: true with the pointer (possibly null)
// when obj is an object of an object template with exactly two internal
// fields and field 0 holds an External; false for anything else, which the
// caller then judges through the API. Nothing can move obj during the read:
// it allocates nothing on the V8 heap.
inline bool raw_interface_field(v8::Local<v8::Object> obj, void*& out)
{
#if VELK_JS_RAW_FIELDS
    using A = v8::internal::Address;
    using I = v8::internal::Internals;
    A o = *reinterpret_cast<const A*>(*obj);
    if (!I::HasHeapObjectTag(o))
        return false;
    int type = I::GetInstanceType(o);
    if (type < I::kFirstJSApiObjectType || type > I::kLastJSApiObjectType)
        return false; // objects of templates only; any other kind goes the API's road
    A map = I::ReadTaggedPointerField(o, I::kHeapObjectMapOffset);
    constexpr int header_words = I::kJSObjectHeaderSize / v8::internal::kApiTaggedSize;
    if (I::ReadRawField<uint8_t>(map, raw_layout::map_inobject_start) != header_words + 2)
        return false; // not two internal fields
    A f0 = I::ReadRawField<A>(o, I::kJSObjectHeaderSize);
    if (!I::HasHeapObjectTag(f0) || I::GetInstanceType(f0) != raw_layout::external_type)
        return false;
    out = reinterpret_cast<void*>(I::ReadRawField<A>(f0, raw_layout::external_value));
    return true;
#else
    (void)obj;
    (void)out;
    return false;
#endif
}

// Whether raw_interface_field agrees with the API on the library at hand:
// checked once per module, on objects made for the purpose in context,
// when the template is built. False keeps the module on the API's road; so
// does a build for another V8.
bool raw_interface_field_checked(v8::Isolate* isolate, v8::Local<v8::Context> context);

} // namespace velk::js
