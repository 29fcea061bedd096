// File: comm/txtconv.h
//
// Text and number conversion: the digit writers behind charstr's <<, a
// floating-point writer that fits a value into a fixed span and never writes
// past it, hexadecimal text, and the conversions between 8-bit and 16-bit
// text (those in comm/utf.h). Nothing here goes through the runtime's printf
// family, and nothing keeps state.
//
//   charstr s;
//   charstrconv::append_num(s, 16, 0xbeef, 0, 8, align_right_zeros); // "0000beef"
//   charstrconv::append_num_thousands(s, -1234567, ',');             // "-1,234,567"
//   char field[8];
//   char* e = charstrconv::append_fixed(field, field + 8, 3.14159, -2, align_right); // "    3.14"
//
// Two families, two contracts:
// - The charstr writers grow the string through its append_buffer
//   and throw std::bad_alloc with the string unchanged.
// - The span writers (append_fixed, append_float, append_fraction, the hex
//   writers) are given [start, end) and never write past end. A value that
//   does not fit shows as fewer digits, an exponent form, "!!!" or a span of
//   "?", never as an error.
//
// Differences from std::to_chars: a span is always filled with something
// (there is no "too small" result), a positive number of decimals is a
// maximum with trailing zeros dropped, and digits of the float writer are
// rounded by adding half a unit of the last place (so they are not always the
// shortest or the correctly rounded ones).
#pragma once

#include <cstdint>

namespace velk {

class charstr;
class token;

// Alignment in a field, shared by the integer and the float writers.
enum num_align : int32_t {
    align_center = 0,          // see append_num about its padding
    align_right = 1,           // filled with blanks on the left
    align_right_zeros = 2,     // filled with zeros, the sign before them
    align_left = -1,           // filled with blanks on the right (any other value too)
    align_left_zero_bytes = -2 // filled with zero bytes on the right
};

namespace charstrconv {

// -- Integers into a charstr --------------------------------------------------

// Decimal digits, "-" first for a negative value; 0 gives "0", and the most
// negative values come out in full. Each grows the string once.
void append_dec(charstr& dst, int32_t v);
void append_dec(charstr& dst, int64_t v);
void append_dec(charstr& dst, uint16_t v);
void append_dec(charstr& dst, uint32_t v);
void append_dec(charstr& dst, uint64_t v);

// The general form: magnitude in radix 2 to 36 (letters from "a" above 9),
// a sign of 0 (none), negative ("-") or positive ("+"), padded to min_size by
// align. Gives the position, from the buffer's start, where the digits end.
// align_center with a padding of 2 or more writes padding / 2 blanks before
// and the whole padding after, so the text is longer than min_size; the
// string is grown for all of it. A radix outside 2 to 36 is asserted and
// taken as 10.
uint32_t append_num(charstr& dst, uint32_t radix, uint64_t magnitude, int32_t sign,
                    uint32_t min_size = 0, int32_t align = align_right);

// Decimal in groups of three from the low end, separator between groups
// when not 0; the groups below the top one keep their leading zeros. Padded
// to min_size by align, as append_num. Gives the position where the digits end.
uint32_t append_num_thousands(charstr& dst, int64_t value, char separator,
                              uint32_t min_size = 0, int32_t align = align_right);

// The value with a metric letter from " kMGTPEZY" at index digits / 3 (so
// three digits already take "k": 999 at width 8 is "   999 k"). With width
// not 0 and align 1 or more the field is raised to 6, or 7 with a separator,
// and ends with the separator (if not 0) and the letter; otherwise no letter
// is written and the field is width, or 5 when width is 0. A negative value
// is measured by its magnitude and written with "-".
void append_num_metric(charstr& dst, int64_t value, uint32_t width, int32_t align, char separator);

// n copies of c; n of 0 appends nothing.
void append_fill(charstr& dst, uint32_t n, char c);

// -- Floating point into a span -----------------------------------------------
//
// nfrac < 0 asks for exactly -nfrac digits after the point; nfrac > 0 for at
// most nfrac, trailing zeros dropped but the first kept ("2.0"); 0 for none.
// For a value below 1 and nfrac > 0, nfrac counts significant digits. The
// digits are cut to the span, and when the integer part does not fit the
// value takes an exponent form ("1.0e300", "1.5e-20"), or "!!!", or a span
// of "?". Infinities and NaN, which nothing passes, fill the span with "?".

// Gives the end of what was written, at or before end.
char* append_float(char* start, char* end, double value, int32_t nfrac);

// The same, aligned in [start, end) by align (see num_align): the right
// forms fill the span and give end, the centre and left forms give the end
// of the text (the fill behind it is written too). Any align value from 3 up
// to 0xFFFFFFFD (as unsigned) writes nothing and gives start.
char* append_fixed(char* start, char* end, double value, int32_t nfrac, int32_t align);

// The digits of fraction (0 <= fraction < 1) behind the decimal point: n is
// the smaller of the room and |nfrac|, with half a unit of the n-th digit
// added first when round is true (a carry out of the fraction can't be shown:
// the digits stay at 9). nfrac > 0 ends behind the last digit that isn't 0,
// at least one digit standing; nfrac <= 0 keeps n digits. With n below 1
// nothing is written and the result is start, or start + 1 for nfrac > 0
// (so with no room the result lies past end: don't call it so).
char* append_fraction(char* start, char* end, double fraction, int32_t nfrac, bool round);

// -- Hexadecimal ----------------------------------------------------------------

// Reads up to n bytes from pairs of hex digits of either case, a separator
// (when not 0) skipped before each pair after the first. src moves past what
// was read. Stops at a character that isn't a hex digit: at a pair's first
// digit src stays there; at its second, src goes back to the first, and the
// byte keeps the high half that was read. Gives the number of bytes unread.
uint32_t hex_decode(token& src, void* dst, uint32_t n, char separator = 0);

// Writes count items of item_size bytes each, every item from its last byte
// to its first (a little-endian number reads as in source code), two
// upper-case digits per byte, separator (when not 0) between items. dst moves
// past what was written; no terminating zero. Writes count * item_size * 2
// bytes, plus count - 1 separators.
void hex_encode(const void* src, char*& dst, uint32_t count, uint32_t item_size, char separator = 0);

// One Intel HEX data record (type 0): ":", count, address high and low,
// "00", the data, the checksum, "\r\n" and a zero byte. dst needs
// 14 + 2 * count bytes. Gives the length, the zero byte not counted.
uint32_t hex_record(char* dst, uint16_t address, uint8_t count, const void* data);

} // namespace charstrconv

} // namespace velk
