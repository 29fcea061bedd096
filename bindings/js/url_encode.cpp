// url_encode: the character table, made at compile time, so that no first
// use has to fill it and no two threads can race on it.
#include "bindings/js/url_encode.h"

#include <array>

namespace velk::js {

namespace {

constexpr std::array<uint8_t, 256> make_url_table()
{
    std::array<uint8_t, 256> t{};
    for (int c = '0'; c <= '9'; ++c)
        t[c] = 1;
    for (int c = 'A'; c <= 'Z'; ++c)
        t[c] = 1;
    for (int c = 'a'; c <= 'z'; ++c)
        t[c] = 1;
    for (char c : token("-_.~!*'()"))
        t[static_cast<unsigned char>(c)] = 1;
    for (char c : token(";,/?:@&=+$"))
        t[static_cast<unsigned char>(c)] = 2;
    return t;
}

constexpr std::array<uint8_t, 256> url_table = make_url_table();
constexpr char hex_digits[] = "0123456789abcdef";

} // namespace

uint8_t url_char_class(unsigned char c) { return url_table[c]; }

void url_encode(const token& text, charstr& out)
{
    for (char ch : text) {
        auto c = static_cast<unsigned char>(ch);
        if (url_table[c]) {
            out << ch;
        } else {
            char escaped[3] = {'%', hex_digits[c >> 4], hex_digits[c & 15]};
            out << token(escaped, 3);
        }
    }
}

} // namespace velk::js
