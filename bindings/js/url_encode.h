// url_encode: the escaping of a path for a file URL.
//
// Letters, digits and the marks "-_.~!*'()" pass as they are, and so do the
// reserved characters ";,/?:@&=+$": a whole URL keeps its separators. Every
// other byte becomes "%" and two lower-case hexadecimal digits.
//
//   charstr url = "file:///";
//   velk::js::url_encode("my dir/a.js", url);   // "file:///my%20dir/a.js"
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"

namespace velk::js {

// Appends text to out, escaped. Throws std::bad_alloc.
void url_encode(const token& text, charstr& out);

// The class of byte c: 0 must be escaped, 1 unreserved, 2 reserved.
uint8_t url_char_class(unsigned char c);

} // namespace velk::js
