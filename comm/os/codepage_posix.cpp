// Text encodings, POSIX side: the narrow code page is UTF-8, so the system's
// own code pages (CP_ACP, CP_OEMCP, CP_THREAD_ACP) and CP_UTF8 all mean UTF-8,
// converted by the library's own code. Other code pages don't exist here.
#include "comm/os/codepage.h"

#include "comm/utf.h"

namespace velk::os {

namespace {

// CP_ACP, CP_OEMCP, CP_THREAD_ACP and CP_UTF8, as Windows numbers them.
bool is_utf8(uint32_t code_page)
{
    return code_page == 0 || code_page == 1 || code_page == 3 || code_page == 65001;
}

} // namespace

uint32_t multibyte_to_wide(uint32_t code_page, const char* src, uint32_t n, char16_t* dst, uint32_t dst_n)
{
    return is_utf8(code_page) ? transcode_utf8_to_utf16(src, n, dst, dst_n) : 0;
}

uint32_t wide_to_multibyte(uint32_t code_page, const char16_t* src, uint32_t n, char* dst, uint32_t dst_n)
{
    return is_utf8(code_page) ? transcode_utf16_to_utf8(src, n, dst, dst_n) : 0;
}

} // namespace velk::os
