// Streaming functions of primitives and arrays, and the helpers with which a
// type's author writes one for a structure.
//
// Every streaming function has the one shape stream_meta(metastream&, T*):
// reading when m.reading, writing when m.writing, else defining (obj null).
// Primitives go through data_read and data_write; arrays (dynarray<T>,
// T[N]) through a container and read_container or write_container; a
// structure through struct_begin, member and struct_end.
//
//   struct point { int32_t x; charstr tag; dynarray<point> children; };
//   void stream_meta(metastream& m, point* p)
//   {
//       if (!m.struct_begin("point", p))
//           return;
//       m.member("x", p, &point::x);
//       m.member("tag", p, &point::tag, metastream::member_optional);
//       m.member("children", p, &point::children);
//       m.struct_end();
//   }
//
// metastream.h includes this file at its end, after the class; a file that
// includes this one alone gets metastream.h first.
#pragma once

#include "comm/metastream/metastream.h"

#include "comm/binstream/bstype.h"
#include "comm/binstream/container.h"
#include "comm/dynarray.h"
#include "comm/exception.h"

#include <cstdint>
#include <typeinfo>

namespace velk {

// -- Primitives ------------------------------------------------------------------
// Their names are the map's keys; a number's name tells its kind.

void stream_meta(metastream& m, int8_t* obj);
void stream_meta(metastream& m, uint8_t* obj);
void stream_meta(metastream& m, int16_t* obj);
void stream_meta(metastream& m, uint16_t* obj);
void stream_meta(metastream& m, int32_t* obj);
void stream_meta(metastream& m, uint32_t* obj);
void stream_meta(metastream& m, int64_t* obj);
void stream_meta(metastream& m, uint64_t* obj);
void stream_meta(metastream& m, float* obj);
void stream_meta(metastream& m, double* obj);
void stream_meta(metastream& m, bool* obj);

namespace meta {

// The element function of a container of compound elements: the element's
// own streaming function. The streams do not look at the result.
template <class T>
opcd stream_element(void* m, void* element, binstream_container_base*)
{
    stream_meta(*static_cast<metastream*>(m), static_cast<T*>(element));
    return {};
}

template <class T>
constexpr bstype::kind element_kind()
{
    if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, bstype::key>)
        return std::is_same_v<T, bstype::key> ? bstype::kind(bstype::kind::char_word)
                                              : bstype::kind_of<T>();
    else
        return bstype::kind(bstype::kind::compound_word);
}

// A dynarray as read: emptied first (block kept), then elements appended,
// one by one value-initialised, or as a block for primitives.
template <class T>
class dynarray_reader : public binstream_container<T, uint32_t>
{
public:
    explicit dynarray_reader(dynarray<T>& a)
        : binstream_container<T, uint32_t>(element_kind<T>(), &stream_element<T>, &stream_element<T>), array(&a)
    {
        a.reset();
    }
    const void* extract(uint64_t) override { return nullptr; }
    void* insert(uint64_t n) override
    {
        if (n == 1)
            return array->push();
        return array->add(static_cast<uint32_t>(n)); // only primitives come in blocks
    }
    bool is_continuous() const override { return true; }
    uint64_t count() const override { return array->size(); }

    dynarray<T>* array;
};

// A fixed array as read: elements are overwritten from the first; those
// beyond N go to a scratch element and are counted, so that the caller can
// report them instead of writing past the array.
template <class T, size_t N>
class fixed_reader : public binstream_container<T, uint32_t>
{
public:
    explicit fixed_reader(T (&a)[N])
        : binstream_container<T, uint32_t>(element_kind<T>(), &stream_element<T>, &stream_element<T>), array(a)
    {}
    const void* extract(uint64_t) override { return nullptr; }
    void* insert(uint64_t n) override
    {
        if (pos + n <= N) {
            T* p = array + pos;
            pos += n;
            return p;
        }
        excess += n;
        if (n == 1) {
            scratch = T();
            return &scratch;
        }
        return nullptr; // a block that does not fit: refused whole
    }
    bool is_continuous() const override { return true; }
    uint64_t count() const override { return N; }

    T* array;
    uint64_t pos = 0;
    uint64_t excess = 0;
    T scratch{};
};

} // namespace meta

// -- Arrays ------------------------------------------------------------------------

// dynarray<T>: a dynamic array of T, named by its run-time type.
template <class T>
void stream_meta(metastream& m, dynarray<T>* obj)
{
    using A = dynarray<T>;
    if (m.reading) {
        if (m.write_var_name(true) == ers::no_more) // absent and optional: kept
            return;
        meta::dynarray_reader<T> c(*obj);
        m.read_container(c);
    } else if (m.writing) {
        binstream_container_fixed_array<T, uint32_t> c(obj->ptr(), obj->size(), meta::element_kind<T>(),
                                                       &meta::stream_element<T>, &meta::stream_element<T>);
        m.write_container(c);
    } else {
        auto ptr = [](void* o) -> void* { return static_cast<A*>(o)->ptr(); };
        auto count = [](const void* o) -> uint64_t { return static_cast<const A*>(o)->size(); };
        auto push = [](void* o, uint64_t& i) -> void* { ++i; return static_cast<A*>(o)->push(); };
        auto next = [](void* o, uint64_t& i) -> void* { return static_cast<A*>(o)->ptr() + i++; };
        if (m.define_array(typeid(A).name(), obj, sizeof(A), std::is_arithmetic_v<T>, ptr, count, push, next,
                           meta::dynamic_array_size))
            stream_meta(m, static_cast<T*>(nullptr));
    }
}

// T[N]: a fixed array. Reading overwrites the elements given and keeps the
// rest; more than N elements on input throw velk::exception.
template <class T, size_t N>
void stream_meta(metastream& m, T (*obj)[N])
{
    using A = T[N];
    if (m.reading) {
        if (m.write_var_name(true) == ers::no_more)
            return;
        meta::fixed_reader<T, N> c(*obj);
        m.read_container(c);
        if (c.excess) {
            charstr msg;
            msg << " - array of " << uint64_t(N) << " elements given " << uint64_t(N + c.excess);
            m.raise(1, msg, true);
        }
    } else if (m.writing) {
        binstream_container_fixed_array<T, uint32_t> c(*obj, N, meta::element_kind<T>(),
                                                       &meta::stream_element<T>, &meta::stream_element<T>);
        m.write_container(c);
    } else {
        auto ptr = [](void* o) -> void* { return *static_cast<A*>(o); };
        auto count = [](const void*) -> uint64_t { return N; };
        auto next = [](void* o, uint64_t& i) -> void* { return *static_cast<A*>(o) + i++; };
        if (m.define_array(typeid(A).name(), obj, sizeof(A), std::is_arithmetic_v<T>, ptr, count, next, next, N))
            stream_meta(m, static_cast<T*>(nullptr));
    }
}

// -- Structure helpers ---------------------------------------------------------------

template <class S>
bool metastream::struct_begin(const token& name, S* obj)
{
    if (reading || writing)
        return struct_begin_rw();
    return define_struct(name, sizeof(S)) != nullptr;
}

template <class T>
void metastream::member_at(const token& name, T* p, uint32_t flags, const meta::byte_array* defval)
{
    if (writing) {
        if (!(flags & member_obsolete))
            stream_meta(*this, p);
        return;
    }
    if (reading) {
        var_desc* v = cur_var;
        last_absent = nullptr;
        stream_meta(*this, p);
        if ((flags & member_obsolete) && v && last_absent != v)
            warn_obsolete(name);
        return;
    }
    var_name = name;
    stream_meta(*this, static_cast<T*>(nullptr));
    var_desc* v = last_var; // the member just added
    v->optional = (flags & (member_optional | member_obsolete)) ? 1 : 0;
    v->obsolete = (flags & member_obsolete) ? 1 : 0;
    if (defval)
        v->defval = *defval;
}

template <class S, class T>
void metastream::member(const token& name, S* obj, T S::*field, uint32_t flags, const meta::byte_array* defval)
{
    member_at(name, obj ? &(obj->*field) : static_cast<T*>(nullptr), flags, defval);
}

template <class T>
void metastream::write_cached(const T& obj)
{
    reset(false, true);
    // The blob's first word leads to the value: the root's slot.
    cache.add(sizeof(uint64_t));
    word_at(cache, 0) = 0;
    begin_run(1);
    stream_meta(*this, static_cast<T*>(nullptr));
    describe_root();
    writing = 1;
    stream_meta(*this, const_cast<T*>(&obj));
    writing = 0;
    rw_state = 0; // nothing went to a format: nothing to flush
}

template <class T>
meta::byte_array metastream::make_default(const T& value)
{
    metastream m;
    m.write_cached(value);
    meta::byte_array out;
    out.swap(m.cache);
    return out;
}

} // namespace velk
