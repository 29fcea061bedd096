// Platform seam of the text encodings: the system's converters between a
// narrow code page and UTF-16 (MultiByteToWideChar and WideCharToMultiByte
// on Windows, without flags).
//
// Both give the units or bytes written, at most dst_n; with dst null, the
// number the whole text needs. 0 means nothing was converted: an empty text,
// or a code page this system doesn't have. Ill-formed input is replaced with
// U+FFFD, never refused.
#pragma once

#include <cstdint>

namespace velk::os {

uint32_t multibyte_to_wide(uint32_t code_page, const char* src, uint32_t n, char16_t* dst, uint32_t dst_n);
uint32_t wide_to_multibyte(uint32_t code_page, const char16_t* src, uint32_t n, char* dst, uint32_t dst_n);

} // namespace velk::os
