// 8-bit and 16-bit text. The strict transcoders work one character at a
// time, decoded to its value and encoded again (see utf.h for what counts as
// ill-formed); the Part's conversions sit on top, through the platform seam.
#include "comm/utf.h"

#include "comm/charstr.h"
#include "comm/os/codepage.h"
#include "comm/token.h"

#include <new>

namespace velk {

// -- Strict transcoding --------------------------------------------------------

namespace {

struct decoded
{
    char32_t value;
    uint32_t len; // bytes or units taken from the source
};

// One character of UTF-8 from s, avail > 0 bytes there. The ranges of the
// second byte come from Unicode's table 3-7: E0 and F0 exclude the overlong
// forms, ED the surrogates, F4 the values above U+10FFFF.
decoded decode_utf8(const unsigned char* s, uint32_t avail)
{
    uint32_t b = s[0];
    if (b < 0x80)
        return {b, 1};
    uint32_t follow;
    char32_t c;
    uint32_t lo = 0x80, hi = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) {
        follow = 1;
        c = b & 0x1F;
    } else if (b >= 0xE0 && b <= 0xEF) {
        follow = 2;
        c = b & 0x0F;
        if (b == 0xE0)
            lo = 0xA0;
        else if (b == 0xED)
            hi = 0x9F;
    } else if (b >= 0xF0 && b <= 0xF4) {
        follow = 3;
        c = b & 0x07;
        if (b == 0xF0)
            lo = 0x90;
        else if (b == 0xF4)
            hi = 0x8F;
    } else { // a continuation byte, C0, C1 or F5 to FF: never a start
        return {utf_replacement, 1};
    }
    for (uint32_t i = 1; i <= follow; ++i) {
        // cut off, or a byte out of range: the bytes so far are one maximal subpart
        if (i >= avail || s[i] < lo || s[i] > hi)
            return {utf_replacement, i};
        c = (c << 6) | (s[i] & 0x3F);
        lo = 0x80;
        hi = 0xBF;
    }
    return {c, follow + 1};
}

// One character of UTF-16 from s, avail > 0 units there.
decoded decode_utf16(const char16_t* s, uint32_t avail)
{
    char32_t u = s[0];
    if (u < 0xD800 || u > 0xDFFF)
        return {u, 1};
    if (u <= 0xDBFF && avail > 1 && s[1] >= 0xDC00 && s[1] <= 0xDFFF)
        return {0x10000 + ((u - 0xD800) << 10) + (s[1] - 0xDC00), 2};
    return {utf_replacement, 1}; // a lone surrogate
}

uint32_t utf16_units(char32_t c) { return c < 0x10000 ? 1 : 2; }

uint32_t utf8_bytes(char32_t c) { return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4; }

void encode_utf16(char32_t c, char16_t* d)
{
    if (c < 0x10000) {
        d[0] = static_cast<char16_t>(c);
        return;
    }
    c -= 0x10000;
    d[0] = static_cast<char16_t>(0xD800 + (c >> 10));
    d[1] = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
}

void encode_utf8(char32_t c, uint32_t len, char* d)
{
    if (len == 1) {
        d[0] = static_cast<char>(c);
        return;
    }
    // The lead byte: len ones, a zero, then the top bits of c.
    static constexpr unsigned char lead[5] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (uint32_t i = len - 1; i > 0; --i) {
        d[i] = static_cast<char>(0x80 | (c & 0x3F));
        c >>= 6;
    }
    d[0] = static_cast<char>(lead[len] | c);
}

} // namespace

uint32_t transcode_utf8_to_utf16(const char* src, uint32_t n, char16_t* dst, uint32_t dst_n)
{
    const unsigned char* s = reinterpret_cast<const unsigned char*>(src);
    uint32_t written = 0;
    for (uint32_t i = 0; i < n;) {
        if (s[i] < 0x80 && dst) { // the common case, without the decoder
            if (written == dst_n)
                break;
            dst[written++] = s[i++];
            continue;
        }
        decoded d = decode_utf8(s + i, n - i);
        uint32_t units = utf16_units(d.value);
        if (dst) {
            if (dst_n - written < units) // doesn't fit whole
                break;
            encode_utf16(d.value, dst + written);
        }
        written += units;
        i += d.len;
    }
    return written;
}

uint32_t transcode_utf16_to_utf8(const char16_t* src, uint32_t n, char* dst, uint32_t dst_n)
{
    uint32_t written = 0;
    for (uint32_t i = 0; i < n;) {
        decoded d = decode_utf16(src + i, n - i);
        uint32_t bytes = utf8_bytes(d.value);
        if (dst) {
            if (dst_n - written < bytes) // doesn't fit whole
                break;
            encode_utf8(d.value, bytes, dst + written);
        }
        written += bytes;
        i += d.len;
    }
    return written;
}

// -- The Part's conversions -------------------------------------------------------

uint32_t utf8_to_utf16(const token& src, char16_t* dst, uint32_t n)
{
    // Bytes of a sequence by its lead byte, for (lead - 192) / 4.
    static constexpr uint8_t sequence_length[16] = {2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 5, 6};
    // The lead and following bytes' marker bits, summed with their shifts,
    // for sequences of 1 to 6 bytes: subtracting them leaves the value.
    static constexpr uint32_t markers[7] = {0, 0, 0x3080, 0xE2080, 0x3C82080, 0xFA082080, 0x82082080};
    if (n == 0) // no room even for the terminator: nothing is written
        return 0;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(src.ptr());
    const unsigned char* e = reinterpret_cast<const unsigned char*>(src.ptre());
    uint32_t w = 0;
    while (s < e && w < n - 1) {
        uint32_t b = *s;
        uint32_t len = 1;
        uint32_t v = b;
        if (b >= 192 && b <= 253) {
            len = sequence_length[(b - 192) / 4];
            if (len > static_cast<uint32_t>(e - s)) { // cut off by the end of the source
                dst[0] = 0;
                return 0;
            }
            v = 0;
            for (uint32_t k = 0; k < len; ++k)
                v = (v << 6) + s[k]; // 32 bits, wrapping: the markers are made for it
            v -= markers[len];
        } else if (b >= 128) {
            v = 0xFFFF;
        }
        s += len;
        char16_t unit = static_cast<char16_t>(v); // above 0xFFFF: the low 16 bits
        if (unit == 0)
            break;
        dst[w++] = unit;
    }
    dst[w] = 0;
    return w;
}

bool multibyte_to_wide(const token& src, uint32_t code_page, std::u16string& dst)
{
    // UTF-8 never takes more units than bytes: one unit for up to 3 bytes,
    // two for 4, one U+FFFD for at least one byte.
    size_t old = dst.size();
    dst.resize(old + src.lens());
    uint32_t written = os::multibyte_to_wide(code_page, src.ptr(), src.lens(), dst.data() + old, src.lens());
    dst.resize(old + written);
    return written > 0;
}

int32_t wide_to_charstr(charstr& dst, const char16_t* src, int32_t len)
{
    // Growing by len bytes is enough only for a one-byte code page; UTF-8
    // takes up to 3 bytes a unit, so the size is asked first.
    if (!src)
        return 0;
    uint32_t n = static_cast<uint32_t>(len);
    if (len < 0)
        for (n = 0; src[n]; ++n) {}
    uint32_t bytes = os::wide_to_multibyte(code_page_acp, src, n, nullptr, 0);
    if (bytes == 0)
        return 0;
    if (bytes > INT32_MAX - dst.lens())
        throw std::bad_alloc();
    char* p = dst.append_buffer(bytes);
    return static_cast<int32_t>(os::wide_to_multibyte(code_page_acp, src, n, p, bytes));
}

} // namespace velk
