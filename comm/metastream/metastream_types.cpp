// Streaming functions of the library's own types: char, bstype::key,
// charstr, and the numbers. Each reads, writes or defines by the state of
// the metastream it is given.
#include "comm/metastream/metastream.h"

#include <typeinfo>

namespace velk {

// -- Streaming functions of char, bstype::key and charstr ---------------------------

void stream_meta(metastream& m, char* obj)
{
    if (m.reading)
        m.data_read(obj, bstype::kind::char_word);
    else if (m.writing)
        m.data_write(obj, bstype::kind::char_word);
    else
        m.define_primitive("char", bstype::kind::char_word);
}

// A key's characters stream as char; on a plain binstream they are 0xA0001.
void stream_meta(metastream& m, bstype::key* obj)
{
    if (m.reading)
        m.data_read(obj, bstype::kind::char_word);
    else if (m.writing)
        m.data_write(obj, bstype::kind::char_word);
    else
        m.define_primitive("bstype::key", bstype::kind::char_word);
}

namespace {

opcd stream_char(void* m, void* element, binstream_container_base*)
{
    stream_meta(*static_cast<metastream*>(m), static_cast<char*>(element));
    return {};
}

void* charstr_ptr(void* obj)
{
    return static_cast<charstr*>(obj)->ptr();
}

uint64_t charstr_count(const void* obj)
{
    return static_cast<const charstr*>(obj)->lens();
}

// One character appended, the terminator kept behind it.
void* charstr_push(void* obj, uint64_t& index)
{
    auto* s = static_cast<charstr*>(obj);
    s->append('\x01');
    ++index;
    return s->ptr() + s->lens() - 1;
}

void* charstr_next(void* obj, uint64_t& index)
{
    return static_cast<charstr*>(obj)->ptr() + index++;
}

// The run-time type name, measured once: every run defines the type anew.
const token& charstr_type_name()
{
    static const token name(typeid(charstr).name());
    return name;
}

} // namespace

void stream_meta(metastream& m, charstr* obj)
{
    if (m.reading) {
        // An absent optional member keeps its text.
        if (m.write_var_name(true) == ers::no_more)
            return;
        obj->reset();
        auto& chars = obj->dynarray_ref();
        dynarray_binstream_container<char, uint32_t> c(chars, bstype::kind::char_word, &stream_char,
                                                       &stream_char);
        m.read_container(c);
        if (!chars.is_empty())
            *chars.add(1) = 0;
    } else if (m.writing) {
        binstream_container_fixed_array<char, uint32_t> c(obj->ptr(), obj->lens(), bstype::kind::char_word,
                                                          &stream_char, &stream_char);
        m.write_container(c);
    } else if (m.define_array(charstr_type_name(), obj, sizeof(charstr), 0, &charstr_ptr, &charstr_count,
                              &charstr_push, &charstr_next, meta::dynamic_array_size)) {
        m.define_primitive("char", bstype::kind::char_word);
    }
}

// -- Numbers ---------------------------------------------------------------------------

namespace {

template <class T>
void stream_number(metastream& m, T* obj, const token& name)
{
    constexpr bstype::kind t = bstype::kind_of<T>();
    if (m.reading)
        m.data_read(obj, t);
    else if (m.writing)
        m.data_write(obj, t);
    else
        m.define_primitive(name, t);
}

} // namespace

void stream_meta(metastream& m, int8_t* obj) { stream_number(m, obj, "int8"); }
void stream_meta(metastream& m, uint8_t* obj) { stream_number(m, obj, "uint8"); }
void stream_meta(metastream& m, int16_t* obj) { stream_number(m, obj, "int16"); }
void stream_meta(metastream& m, uint16_t* obj) { stream_number(m, obj, "uint16"); }
void stream_meta(metastream& m, int32_t* obj) { stream_number(m, obj, "int32"); }
void stream_meta(metastream& m, uint32_t* obj) { stream_number(m, obj, "uint32"); }
void stream_meta(metastream& m, int64_t* obj) { stream_number(m, obj, "int64"); }
void stream_meta(metastream& m, uint64_t* obj) { stream_number(m, obj, "uint64"); }
void stream_meta(metastream& m, float* obj) { stream_number(m, obj, "float"); }
void stream_meta(metastream& m, double* obj) { stream_number(m, obj, "double"); }
void stream_meta(metastream& m, bool* obj) { stream_number(m, obj, "bool"); }

} // namespace velk
