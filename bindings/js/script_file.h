// script_file: reading a script's whole text from a file.
//
// Through the library's file stream for whole files (bifstream), mode "r",
// in blocks of 4096 bytes, as the Lua binding reads its scripts.
//
//   charstr text = prefix;
//   if (!velk::js::read_script_file(path, text)) ...   // text holds prefix + file
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"

namespace velk::js {

// The size of one read.
inline constexpr uint32_t script_read_block = 4096;

// Appends the whole content of the file at path to out. False when the file
// can't be opened or read (a directory, for one): out then holds what it
// held before. Throws std::bad_alloc.
bool read_script_file(const token& path, charstr& out);

} // namespace velk::js
