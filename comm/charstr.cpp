// charstr: assignment, appends, editing and the number writers.
//
// Every function here starts from the count, so that the three empty forms
// (null, count 0, count 1) take the same paths: "count 0" covers null too.
#include "comm/charstr.h"

#include <charconv>
#include <cstring>

namespace velk {

namespace {

// Digits of m, the last one first, ending at end; gives the first digit.
char* decimal_digits(uint64_t m, char* end)
{
    do {
        *--end = static_cast<char>('0' + m % 10);
        m /= 10;
    } while (m);
    return end;
}

// -- Float text ------------------------------------------------------------
// A plain writer until the library has its own fitting float writer: fixed
// form with as many of the asked decimals as fit, then an exponent form, then
// "?"s. Never writes past room.

// The longest fixed text: 309 integer digits, a sign, a point, the decimals.
constexpr int max_decimals = 100;
constexpr size_t scratch_size = 309 + 2 + max_decimals + 8;

// Drops trailing zeros of a fraction, keeping one digit behind the point.
size_t trim_fraction(const char* text, size_t len)
{
    const char* point = static_cast<const char*>(memchr(text, '.', len));
    if (!point)
        return len;
    size_t keep = static_cast<size_t>(point - text) + 2;
    while (len > keep && text[len - 1] == '0')
        --len;
    return len;
}

// Writes v in format with decimals from most down to 0, the first that fits.
size_t write_fitting(char* out, size_t room, double v, std::chars_format format, int most, bool trim)
{
    char scratch[scratch_size];
    for (int decimals = most; decimals >= 0; --decimals) {
        auto [end, ec] = std::to_chars(scratch, scratch + scratch_size, v, format, decimals);
        if (ec != std::errc())
            continue;
        size_t len = static_cast<size_t>(end - scratch);
        if (trim && format == std::chars_format::fixed)
            len = trim_fraction(scratch, len);
        if (len <= room) {
            memcpy(out, scratch, len);
            return len;
        }
    }
    return SIZE_MAX;
}

// Gives the number of bytes written, at most room.
size_t write_float(char* out, size_t room, double v, int32_t nfrac)
{
    int64_t asked = nfrac < 0 ? -int64_t(nfrac) : nfrac;
    int most = static_cast<int>(asked < max_decimals ? asked : max_decimals);
    bool trim = nfrac > 0;
    size_t len = write_fitting(out, room, v, std::chars_format::fixed, most, trim);
    if (len == SIZE_MAX)
        len = write_fitting(out, room, v, std::chars_format::scientific, most, false);
    if (len == SIZE_MAX) {
        memset(out, '?', room);
        len = room;
    }
    return len;
}

} // namespace

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
char* charstr::append_buffer(uint32_t n)
{
    // With a terminator the span starts over it; without, one comes too.
    uint32_t has_terminator = count() ? 1 : 0;
    char* p = _buf.add(n + 1 - has_terminator) - has_terminator;
    p[n] = 0;
    return p;
}

charstr& charstr::append(const token& t)
{
    uint32_t n = t.lens();
    if (n)
        memcpy(append_buffer(n), t.ptr(), n);
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

charstr& charstr::append(char c)
{
    if (c == 0)
        return *this;
    // An empty string with no terminator gets the char and one: count 2.
    char* p = count() ? _buf.add(1) - 1 : _buf.alloc(2);
    p[0] = c;
    p[1] = 0;
    return *this;
}

charstr& charstr::append_uint(uint64_t v)
{
    char digits[20]; // 2^64 - 1 has 20 digits
    char* end = digits + sizeof digits;
    return append(token(decimal_digits(v, end), end));
}

charstr& charstr::append_int(int64_t v)
{
    char digits[20]; // 2^63 has 19 digits, and the sign
    char* end = digits + sizeof digits;
    // The magnitude in unsigned 64 bits: the most negative value has no positive.
    uint64_t m = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    char* first = decimal_digits(m, end);
    if (v < 0)
        *--first = '-';
    return append(token(first, end));
}

charstr& charstr::append_float(double v, int32_t nfrac, uint32_t width)
{
    uint32_t decimals = nfrac < 0 ? 0u - static_cast<uint32_t>(nfrac) : static_cast<uint32_t>(nfrac);
    uint32_t room = width ? width : decimals + 4;
    uint32_t old = lens();
    char* p = append_buffer(room);
    size_t written = write_float(p, room, v, nfrac);
    resize(static_cast<int32_t>(old + written));
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
