// console: the part of the console seam that is the same on every system,
// the ANSI sequence of a text attribute.
#include "comm/os/console.h"

namespace velk::os {

namespace {

// ANSI colour index of three attribute bits (blue 1, green 2, red 4):
// ANSI counts red 1, green 2, blue 4.
uint32_t ansi_index(uint32_t bits) { return ((bits & 4) ? 1 : 0) | (bits & 2) | ((bits & 1) ? 4 : 0); }

char* put_number(char* p, uint32_t v)
{
    if (v >= 100)
        *p++ = static_cast<char>('0' + v / 100);
    if (v >= 10)
        *p++ = static_cast<char>('0' + v / 10 % 10);
    *p++ = static_cast<char>('0' + v % 10);
    return p;
}

} // namespace

// The sequences are part of the seam's contract on every system, whatever
// the console itself takes.
uint32_t console_attribute_sequence(uint16_t attribute, char* buf)
{
    char* p = buf;
    *p++ = '\x1b';
    *p++ = '[';
    if (attribute == 7) {
        *p++ = '0';
    } else {
        uint32_t fg = attribute & 15, bg = (attribute >> 4) & 15;
        p = put_number(p, ((fg & 8) ? 90 : 30) + ansi_index(fg & 7));
        if (bg) {
            *p++ = ';';
            p = put_number(p, ((bg & 8) ? 100 : 40) + ansi_index(bg & 7));
        }
    }
    *p++ = 'm';
    return static_cast<uint32_t>(p - buf);
}

} // namespace velk::os
