// charstr: assignment, appends and editing; the numbers go to comm/txtconv.
//
// Every function here starts from the count, so that the three empty forms
// (null, count 0, count 1) take the same paths: "count 0" covers null too.
#include "comm/charstr.h"

#include <cstring>

namespace velk {

// -- Construction and assignment ---------------------------------------------

charstr::charstr(const char* text, int64_t len)
{
    if (!text || len == 0)
        return;
    set(text, static_cast<uint32_t>(len < 0 ? strlen(text) : static_cast<size_t>(len)));
}

charstr& charstr::operator=(const charstr& other)
{
    if (this == &other)
        return *this;
    if (other.count() > 1)
        return set(other.ptr(), other.lens());
    reset();
    return *this;
}

void charstr::reset()
{
    if (count())
        ptr()[0] = 0;
    _buf.reset();
}

charstr& charstr::set(const char* text, uint32_t n)
{
    if (n == 0) {
        reset();
        return *this;
    }
    char* p = _buf.alloc(n + 1);
    memcpy(p, text, n);
    p[n] = 0;
    return *this;
}

bool charstr::operator==(const token& t) const
{
    uint32_t n = lens();
    return n == t.lens() && (n == 0 || memcmp(ptr(), t.ptr(), n) == 0);
}

// -- Appends -----------------------------------------------------------------

// A charstr buffer comes from the array space and is never a reserved block,
// so add does not give null here.
char* charstr::append_buffer_grow(uint32_t n)
{
    // With a terminator the span starts over it; without, one comes too.
    uint32_t has_terminator = count() ? 1 : 0;
    char* p = _buf.add(n + 1 - has_terminator) - has_terminator;
    p[n] = 0;
    return p;
}

charstr& charstr::append_grow(const token& t)
{
    uint32_t n = t.lens();
    memcpy(append_buffer_grow(n), t.ptr(), n);
    return *this;
}

charstr& charstr::append(const charstr& s)
{
    if (s.count() < 2)
        return *this;
    uint32_t n = s.lens();
    char* to = append_buffer(n);
    // s may be this string: its text is read only after the buffer has grown.
    memcpy(to, s.ptr(), n);
    return *this;
}

charstr& charstr::append_grow(char c)
{
    // An empty string with no terminator gets the char and one: count 2.
    char* p = count() ? _buf.add(1) - 1 : _buf.alloc(2);
    p[0] = c;
    p[1] = 0;
    return *this;
}

// -- Numbers and codes ---------------------------------------------------------

charstr& charstr::append_int(int32_t v)
{
    charstrconv::append_dec(*this, v);
    return *this;
}

charstr& charstr::append_int(int64_t v)
{
    charstrconv::append_dec(*this, v);
    return *this;
}

charstr& charstr::append_uint(uint16_t v)
{
    charstrconv::append_dec(*this, v);
    return *this;
}

charstr& charstr::append_uint(uint32_t v)
{
    charstrconv::append_dec(*this, v);
    return *this;
}

charstr& charstr::append_uint(uint64_t v)
{
    charstrconv::append_dec(*this, v);
    return *this;
}

uint32_t charstr::append_num(uint32_t radix, uint64_t magnitude, int32_t sign, uint32_t min_size, int32_t align)
{
    return charstrconv::append_num(*this, radix, magnitude, sign, min_size, align);
}

charstr& charstr::append_num_thousands(int64_t value, char separator, uint32_t min_size, int32_t align)
{
    charstrconv::append_num_thousands(*this, value, separator, min_size, align);
    return *this;
}

charstr& charstr::append_num_metric(int64_t value, uint32_t width, int32_t align, char separator)
{
    charstrconv::append_num_metric(*this, value, width, align, separator);
    return *this;
}

charstr& charstr::append_fill(uint32_t n, char c)
{
    charstrconv::append_fill(*this, n, c);
    return *this;
}

// The span is cut back to the writer's end, as an offset from the buffer's
// start; resize keeps the text before the span, whatever was written.
charstr& charstr::append_float(double v, int32_t nfrac, uint32_t width)
{
    uint32_t decimals = nfrac < 0 ? 0u - static_cast<uint32_t>(nfrac) : static_cast<uint32_t>(nfrac);
    uint32_t room = width ? width : decimals + 4;
    char* p = append_buffer(room);
    char* written = charstrconv::append_float(p, p + room, v, nfrac);
    resize(static_cast<int32_t>(written - ptr()));
    return *this;
}

charstr& charstr::append(const opcd& e)
{
    append(token(e.text()));
    const char* info = e.info();
    if (*info)
        append(" : ").append(token(info));
    return *this;
}

// -- Editing -----------------------------------------------------------------

bool charstr::insert(int32_t pos, const token& t)
{
    uint32_t len = lens();
    int64_t at = pos < 0 ? int64_t(pos) + len : pos;
    if (at < 0 || at > len)
        return false;
    uint32_t n = t.lens();
    if (n == 0)
        return true;
    if (count() == 0) { // no terminator yet: it comes with the text
        char* p = _buf.insert_gap(0, n + 1);
        memcpy(p, t.ptr(), n);
        p[n] = 0;
    } else {
        memcpy(_buf.insert_gap(static_cast<uint32_t>(at), n), t.ptr(), n);
    }
    return true;
}

bool charstr::del(int32_t pos, uint32_t n)
{
    uint32_t len = lens();
    int64_t at = pos < 0 ? int64_t(pos) + len : pos;
    if (n == 0 || at < 0 || at + n > len)
        return false;
    // The terminator is the last element: it moves down with the tail.
    _buf.del(static_cast<uint32_t>(at), n);
    return true;
}

void charstr::resize(int32_t n)
{
    uint32_t len = lens();
    if (n >= 0) {
        if (static_cast<uint32_t>(n) < len) {
            _buf.resize(static_cast<uint32_t>(n) + 1);
            ptr()[n] = 0;
        } else if (count()) {
            ptr()[count() - 1] = 0;
        }
        return;
    }
    uint32_t cut = 0u - static_cast<uint32_t>(n); // also right for INT32_MIN
    if (cut >= len) {
        reset();
        return;
    }
    _buf.resize(count() - cut);
    ptr()[count() - 1] = 0;
}

char* charstr::alloc_buf(uint32_t max)
{
    char* p = _buf.alloc(max + 1);
    p[max] = 0;
    return p;
}

void charstr::correct_length()
{
    if (count() == 0)
        return;
    const void* zero = memchr(ptr(), 0, count());
    resize(static_cast<int32_t>(zero ? static_cast<const char*>(zero) - ptr() : lens()));
}

} // namespace velk
