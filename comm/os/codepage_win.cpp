// Text encodings on Windows: the system's own converters, without flags, so
// that ill-formed input turns into U+FFFD as on the other platform.
#include "comm/os/codepage.h"

#include <windows.h>

#include <climits>

namespace velk::os {

namespace {
// The converters count in int; longer texts are cut to what they can take.
int as_count(uint32_t n) { return n > INT_MAX ? INT_MAX : static_cast<int>(n); }
} // namespace

uint32_t multibyte_to_wide(uint32_t code_page, const char* src, uint32_t n, char16_t* dst, uint32_t dst_n)
{
    if (n == 0)
        return 0;
    int r = MultiByteToWideChar(code_page, 0, src, as_count(n), reinterpret_cast<wchar_t*>(dst),
                                dst ? as_count(dst_n) : 0);
    return r > 0 ? static_cast<uint32_t>(r) : 0;
}

uint32_t wide_to_multibyte(uint32_t code_page, const char16_t* src, uint32_t n, char* dst, uint32_t dst_n)
{
    if (n == 0)
        return 0;
    int r = WideCharToMultiByte(code_page, 0, reinterpret_cast<const wchar_t*>(src), as_count(n), dst,
                                dst ? as_count(dst_n) : 0, nullptr, nullptr);
    return r > 0 ? static_cast<uint32_t>(r) : 0;
}

} // namespace velk::os
