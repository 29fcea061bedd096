// File: comm/utf.h
//
// 8-bit and 16-bit text: the fast, lenient UTF-8 reader utf8_to_utf16, the
// code-page conversions multibyte_to_wide and wide_to_charstr, and under
// them the strict UTF-8 <-> UTF-16 transcoders that stand in for the
// platform's converters, the narrow code page being UTF-8
// (comm/os/codepage.h is the seam).
//
//   std::u16string wide;
//   multibyte_to_wide("caf\xC3\xA9", code_page_utf8, wide);   // u"caf\u00E9"
//   charstr back;
//   wide_to_charstr(back, wide.c_str(), -1);                  // "caf\xC3\xA9"
//
// The transcoders are strict and total, as the platform's converters without
// flags are: every well-formed character comes through, supplementary ones
// as surrogate pairs, and each ill-formed piece becomes U+FFFD, never an
// error. What is ill-formed follows Unicode 15, section 3.9, table 3-7:
// overlong forms, encoded surrogates, values above U+10FFFF and stray or
// missing continuation bytes. Each maximal subpart of an ill-formed sequence
// gives one U+FFFD ("U+FFFD substitution of maximal subparts"): "\xE2\x82" at
// the end of the text is one U+FFFD, "\xC0\x80" is two. On the UTF-16 side a
// lone surrogate gives one U+FFFD.
//
// 16-bit text is char16_t (std::u16string): the platform's wchar_t is 32 bits.
#pragma once

#include <cstdint>
#include <string>

namespace velk {

class charstr;
class token;

// The replacement character, U+FFFD.
constexpr char32_t utf_replacement = 0xFFFD;

// Converts n bytes of UTF-8 into at most dst_n units at dst; a character
// whose units don't all fit is left out, with everything behind it. Gives the
// units written. With dst null nothing is written and the result is the
// number of units the whole text needs. A zero byte is a character like any other.
uint32_t transcode_utf8_to_utf16(const char* src, uint32_t n, char16_t* dst, uint32_t dst_n);

// Converts n units of UTF-16 into at most dst_n bytes at dst, with the same
// rules for what doesn't fit and for a null dst. Gives the bytes written.
uint32_t transcode_utf16_to_utf8(const char16_t* src, uint32_t n, char* dst, uint32_t dst_n);

// -- The Part's conversions -----------------------------------------------------

// Windows code page numbers, as the platform knows them. On this platform the
// narrow code page is UTF-8, so both name the same conversion.
constexpr uint32_t code_page_acp = 0;
constexpr uint32_t code_page_utf8 = 65001;

// A fast UTF-8 reader that checks little, into dst of n units: a byte below
// 128 is itself; 192 to 253 start a sequence of 2 to 6 bytes (its following
// bytes are not checked); any other byte is one unit 0xFFFF.
// Values above 0xFFFF keep their low 16 bits: no surrogate pairs are made
// (transcode_utf8_to_utf16 makes them). At most n - 1 units are
// written and a zero behind them; a zero unit ends the text. Gives the units
// written, and 0, with a zero at dst[0], when the last sequence is cut off by
// the end of src. n of 1 writes only that zero; n of 0 writes nothing.
uint32_t utf8_to_utf16(const token& src, char16_t* dst, uint32_t n);

// Appends src, converted from code_page, to dst: dst grows by src's length,
// the text is converted into it and dst is cut back to the units written.
// Invalid input becomes U+FFFD. True when any unit was written. The system's
// own code pages (0, 1 and 3, as Windows numbers them) and code_page_utf8 are
// UTF-8; any other code page writes nothing.
bool multibyte_to_wide(const token& src, uint32_t code_page, std::u16string& dst);

// Appends wide text to dst in the system's code page (UTF-8 here). len is in
// units; -1 (any negative) means up to a zero unit; a null src appends
// nothing. The string grows by exactly the bytes the text takes. Lone surrogates become U+FFFD. Gives the
// bytes written. Throws std::bad_alloc with dst unchanged.
int32_t wide_to_charstr(charstr& dst, const char16_t* src, int32_t len);

} // namespace velk
