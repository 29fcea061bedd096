// Fuzz target of number conversions from and to text. An input is a radix
// byte, an nfrac byte, a separator byte, eight bytes of a number, then a
// text (shorter inputs are padded with zeros). What must hold for any input:
// - touint reads the text's leading digits of the radix, wrapping as
//   unsigned 64-bit arithmetic does, and reads nothing past the token;
// - a number that append_num writes in any radix, and that append_dec writes
//   signed, is read back to the same value;
// - hex_decode leaves its source within the text and as many bytes unread as
//   it says, and the bytes it read encode back to the digits it consumed;
// - append_float and append_fixed stay within their span, for any double
//   (NaN and the infinities too) and any nfrac.
// Every text sits in a block of its own size, so a read past it is seen.
#include "comm/charstr.h"
#include "comm/txtconv.h"
#include "fuzz/fuzz_check.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <memory>

using velk::charstr;
using velk::token;
namespace conv = velk::charstrconv;

namespace {

fuzz_inputs inputs{"number_fuzz", "text", "written", {}, {}};
token& text_in = inputs.first;
token& written = inputs.second;

uint32_t digit_of(char ch)
{
    unsigned char c = static_cast<unsigned char>(ch);
    return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'z' ? c - 'a' + 10 : c >= 'A' && c <= 'Z' ? c - 'A' + 10 : 99;
}

// The reading rule, spelled out: leading digits below radix, wrapping.
uint64_t leading_digits(const token& t, uint32_t radix)
{
    uint64_t v = 0;
    for (uint32_t i = 0; i < t.lens() && digit_of(t.ptr()[i]) < radix; ++i)
        v = v * radix + digit_of(t.ptr()[i]);
    return v;
}

void check_touint(const token& text, uint32_t radix)
{
    REQUIRE(text.touint(radix) == leading_digits(text, radix));
}

void check_round_trip(uint64_t magnitude, uint32_t radix)
{
    charstr out;
    conv::append_num(out, radix, magnitude, 0);
    written = out;
    REQUIRE(token(out).touint(radix) == magnitude);

    int64_t value = static_cast<int64_t>(magnitude);
    charstr dec;
    conv::append_dec(dec, value);
    written = dec;
    token digits = dec;
    bool negative = digits.first_char() == '-';
    REQUIRE(negative == (value < 0));
    uint64_t read = token(digits.ptr() + (negative ? 1 : 0), digits.ptre()).touint(10);
    REQUIRE((negative ? 0 - read : read) == magnitude);
    written = token();
}

bool same_hex(const char* a, const char* b, uint32_t n)
{
    for (uint32_t i = 0; i < n; ++i)
        if (toupper(static_cast<unsigned char>(a[i])) != toupper(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

void check_hex(const token& text, char separator)
{
    constexpr uint32_t room = 64;
    uint8_t bytes[room] = {};
    token src = text;
    uint32_t unread = conv::hex_decode(src, bytes, room, separator);
    REQUIRE(unread <= room);
    REQUIRE(src.ptr() >= text.ptr() && src.ptre() == text.ptre());
    uint32_t read = room - unread;
    // Without a separator the digits consumed are exactly the bytes read,
    // two each; encoded back they give the same digits.
    if (separator != 0 || read == 0)
        return;
    REQUIRE(src.ptr() - text.ptr() == read * 2);
    std::unique_ptr<char[]> back(new char[read * 2]);
    char* end = back.get();
    conv::hex_encode(bytes, end, read, 1);
    REQUIRE(end == back.get() + read * 2);
    REQUIRE(same_hex(back.get(), text.ptr(), read * 2));
}

void check_float(double value, int32_t nfrac, uint32_t span)
{
    std::unique_ptr<char[]> block(new char[span ? span : 1]);
    char* start = block.get();
    char* end = start + span;
    char* out = conv::append_float(start, end, value, nfrac);
    REQUIRE(out >= start && out <= end);
    for (int32_t align : {-2, -1, 0, 1, 2}) {
        out = conv::append_fixed(start, end, value, nfrac, align);
        REQUIRE(out >= start && out <= end);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    uint8_t head[11] = {};
    memcpy(head, data, size < sizeof head ? size : sizeof head);
    uint32_t radix = 2 + head[0] % 35;
    int32_t nfrac = static_cast<int8_t>(head[1]) % 24;
    char separator = static_cast<char>(head[2] & 0x80 ? 0 : head[2]);
    uint64_t number;
    memcpy(&number, head + 3, sizeof number);
    double as_double;
    memcpy(&as_double, head + 3, sizeof as_double);

    size_t n = size > sizeof head ? size - sizeof head : 0;
    std::unique_ptr<char[]> text(new char[n ? n : 1]);
    memcpy(text.get(), data + sizeof head, n);
    text_in = token(text.get(), n);

    check_touint(text_in, radix);
    check_touint(text_in, 10);
    check_touint(text_in, 16);
    check_round_trip(number, radix);
    check_round_trip(text_in.touint(radix), radix);
    check_hex(text_in, separator);
    check_hex(text_in, 0);
    check_float(as_double, nfrac, head[0] % 48);
    return 0;
}
