// charstr: the owning, growable, zero-terminated string of the library.
//
// One pointer wide: a dynarray of char whose count includes the terminating
// zero, so a text of n > 0 characters has a count of n + 1 and byte n is 0.
// Three states are empty and every operation accepts each of them: a null
// buffer, a buffer with count 0 (kept after reset), and a buffer with count 1
// (the terminator alone). Appends grow by half the count and keep the text;
// assignment grows by doubling and does not keep it.
//
//   charstr path;
//   path << root << '/' << name << ".log";
//   open(path.c_str());
//
// Text goes into functions as token and out of them through charstr&. Any
// operation that changes the string may move its buffer: tokens and pointers
// taken from it are then invalid. A source text given to an assignment, an
// append or an insert must not lie within the string itself.
#pragma once

#include "comm/dynarray.h"
#include "comm/opcd.h"
#include "comm/token.h"
#include "comm/txtconv.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace velk {

class charstr
{
public:
    // Null: nothing allocated.
    charstr() = default;

    // A literal, measured by fix_literal_length; an empty one allocates nothing.
    template <size_t N>
    charstr(const char (&literal)[N]) { *this = token(literal); }

    // len < 0: a zero-terminated text, measured by a scan (null stays empty).
    // len of 0 or a null text leaves the string empty.
    charstr(const char* text, int64_t len);

    // An empty token leaves the string null.
    explicit charstr(const token& t) { set(t.ptr(), t.lens()); }

    // A buffer of exactly other's count; null when other's count is 0.
    charstr(const charstr& other) = default;
    charstr(charstr&& other) noexcept = default;

    // Text: copied (see set); no text: reset. Throws std::bad_alloc.
    charstr& operator=(const charstr& other);
    // Takes other's buffer, this string's own is released; other becomes null.
    charstr& operator=(charstr&& other) noexcept = default;
    charstr& operator=(const token& t) { return set(t.ptr(), t.lens()); }
    template <size_t N>
    charstr& operator=(const char (&literal)[N]) { return *this = token(literal); }

    // -- Reading ---------------------------------------------------------------

    // The buffer, which may be null.
    const char* ptr() const { return _buf.ptr(); }
    char* ptr() { return _buf.ptr(); }
    // One past the last character (the terminator's place); null for null.
    const char* ptre() const { return ptr() ? ptr() + lens() : nullptr; }
    // Never null: the static empty text when the count is 0.
    const char* c_str() const { return count() ? ptr() : empty_text; }

    // Characters without the terminator.
    uint32_t lens() const
    {
        uint32_t c = count();
        return c ? c - 1 : 0;
    }
    bool is_empty() const { return count() < 2; }

    // (ptr, ptr + lens): null for a null string, empty for the other two.
    operator token() const { return token(ptr(), ptre()); }

    // Equal lengths and bytes; every empty form equals every empty text.
    bool operator==(const token& t) const;
    bool operator==(const charstr& s) const { return *this == token(s); }
    template <size_t N>
    bool operator==(const char (&literal)[N]) const { return *this == token(literal); }

    // -- Assignment ------------------------------------------------------------

    // Keeps the buffer: the first byte becomes 0 and the count 0.
    void reset();

    // The text [text, text + n): n of 0 is reset; else the array's alloc of
    // n + 1, which does not keep the old text. Throws std::bad_alloc, and the
    // old text may be gone by then.
    charstr& set(const char* text, uint32_t n);

    // -- Appends: each throws std::bad_alloc with the string unchanged ------------

    // Room for n > 0 more characters, terminated behind them: the caller
    // writes exactly n bytes at the result.
    char* append_buffer(uint32_t n)
    {
        // With a terminator in place and room behind it: the span starts over it.
        if (count() != 0)
            if (char* p = _buf.add_within(n)) {
                p[n - 1] = 0;
                return p - 1;
            }
        return append_buffer_grow(n);
    }

    // Nothing for an empty token: an empty string keeps its form.
    charstr& append(const token& t)
    {
        uint32_t n = t.lens();
        if (n == 0)
            return *this;
        if (count() != 0)
            if (char* p = _buf.add_within(n)) {
                copy_text(p - 1, t.ptr(), n);
                p[n - 1] = 0;
                return *this;
            }
        return append_grow(t);
    }
    // A literal, measured by fix_literal_length.
    template <size_t N>
    charstr& append(const char (&literal)[N]) { return append(token(literal)); }
    // A zero-terminated text; null is ignored.
    template <class T, std::enable_if_t<std::is_same_v<T, const char*> || std::is_same_v<T, char*>, int> = 0>
    charstr& append(T czstr) { return czstr ? append(token(czstr)) : *this; }
    charstr& append(const charstr& s);
    // A char of 0 is ignored.
    charstr& append(char c)
    {
        if (c == 0)
            return *this;
        if (count() != 0)
            if (char* p = _buf.add_within(1)) {
                p[-1] = c;
                p[0] = 0;
                return *this;
            }
        return append_grow(c);
    }

    // -- Numbers: the writers of comm/txtconv ---------------------------

    // Decimal digits, "-" first for a negative value.
    charstr& append_int(int32_t v);
    charstr& append_int(int64_t v);
    charstr& append_uint(uint16_t v);
    charstr& append_uint(uint32_t v);
    charstr& append_uint(uint64_t v);

    // magnitude in radix 2 to 36, the sign (-1 "-", 0 none, 1 "+") first,
    // padded to min_size by align (num_align). Gives the position, from the
    // buffer's start, where the digits end. See charstrconv::append_num.
    uint32_t append_num(uint32_t radix, uint64_t magnitude, int32_t sign, uint32_t min_size = 0,
                        int32_t align = align_right);
    // Groups of three digits with separator (0: none) between them.
    charstr& append_num_thousands(int64_t value, char separator, uint32_t min_size = 0,
                                  int32_t align = align_right);
    // The value with a metric letter; see charstrconv::append_num_metric.
    charstr& append_num_metric(int64_t value, uint32_t width, int32_t align, char separator);
    // n copies of c.
    charstr& append_fill(uint32_t n, char c);

    // nfrac < 0: exactly -nfrac decimals; nfrac > 0: at most nfrac, trailing
    // zeros dropped but one kept. The string grows by width bytes (0:
    // |nfrac| + 4), the writer fills them without ever passing them, with
    // fewer decimals, an exponent form, "!!!" or "?"s when the value needs
    // more, and the string is cut back to what was written.
    charstr& append_float(double v, int32_t nfrac, uint32_t width = 0);

    // The code's text, and " : " with the detail when it has one.
    charstr& append(const opcd& e);

    charstr& operator<<(const token& t) { return append(t); }
    template <size_t N>
    charstr& operator<<(const char (&literal)[N]) { return append(token(literal)); }
    template <class T, std::enable_if_t<std::is_same_v<T, const char*> || std::is_same_v<T, char*>, int> = 0>
    charstr& operator<<(T czstr) { return append(czstr); }
    charstr& operator<<(const charstr& s) { return append(s); }
    charstr& operator<<(char c) { return append(c); }
    // Every integer type goes to the writer of its width: 32 bits and below
    // (16 and below when unsigned), or 64 bits.
    template <class I, std::enable_if_t<std::is_integral_v<I> && !std::is_same_v<I, char> && !std::is_same_v<I, bool>, int> = 0>
    charstr& operator<<(I v)
    {
        if constexpr (std::is_signed_v<I> && sizeof(I) <= 4)
            return append_int(static_cast<int32_t>(v));
        else if constexpr (std::is_signed_v<I>)
            return append_int(static_cast<int64_t>(v));
        else if constexpr (sizeof(I) <= 2)
            return append_uint(static_cast<uint16_t>(v));
        else if constexpr (sizeof(I) <= 4)
            return append_uint(static_cast<uint32_t>(v));
        else
            return append_uint(static_cast<uint64_t>(v));
    }
    charstr& operator<<(float v) { return append_float(v, 6); }
    charstr& operator<<(double v) { return append_float(v, 10); }
    charstr& operator<<(const opcd& e) { return append(e); }

    // -- Editing ---------------------------------------------------------------

    // Inserts t before pos; a negative pos counts from the end (-1: before the
    // last character). False, nothing changed, for a pos beyond the text.
    // Grows by the larger of the new count and twice the old. Throws
    // std::bad_alloc with the string unchanged.
    bool insert(int32_t pos, const token& t);

    // Removes n characters from pos (negative: from the end). Nothing when
    // pos + n runs past the text. Gives whether anything was removed.
    bool del(int32_t pos, uint32_t n);

    // n >= 0: cuts a longer text to n characters; otherwise keeps the length
    // and writes a zero at the last byte (terminates an external fill).
    // n < 0: removes -n characters from the end, or resets when that is all.
    void resize(int32_t n);

    // External fill: room for max characters, the last byte zeroed, the old
    // text not kept. Follow with resize to the length written, or with
    // correct_length. Throws std::bad_alloc.
    char* alloc_buf(uint32_t max);
    // Cuts the text at its first zero byte.
    void correct_length();

    void swap(charstr& other) noexcept { _buf.swap(other._buf); }

    // The array under the text, for stream containers that fill it in place.
    // Its count includes the terminator whenever there is text: whoever
    // changes the count keeps that rule.
    dynarray<char, uint32_t, comm_array_allocator>& dynarray_ref() { return _buf; }

private:
    static constexpr char empty_text[1] = "";

    uint32_t count() const { return _buf.size(); }

    // The appends when the string has no terminator or no room: out of line.
    char* append_buffer_grow(uint32_t n);
    charstr& append_grow(const token& t);
    charstr& append_grow(char c);

    // n > 0 bytes; up to 16 by overlapping word moves, so the short pieces
    // an append usually gets need no call.
    static void copy_text(char* to, const char* from, uint32_t n)
    {
        if (n > 16) {
            memcpy(to, from, n);
        } else if (n >= 8) {
            uint64_t a, b;
            memcpy(&a, from, 8);
            memcpy(&b, from + n - 8, 8);
            memcpy(to, &a, 8);
            memcpy(to + n - 8, &b, 8);
        } else if (n >= 4) {
            uint32_t a, b;
            memcpy(&a, from, 4);
            memcpy(&b, from + n - 4, 4);
            memcpy(to, &a, 4);
            memcpy(to + n - 4, &b, 4);
        } else {
            char a = from[0], b = from[n / 2], c = from[n - 1];
            to[0] = a;
            to[n / 2] = b;
            to[n - 1] = c;
        }
    }

    dynarray<char, uint32_t, comm_array_allocator> _buf;
};

template <>
struct relocatable<charstr> : std::true_type {};

} // namespace velk
