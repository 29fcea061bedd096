// Platform seam of the console and the debugger: standard output and
// standard error, their colours by console attribute, and the debugger's
// output.
//
// An attribute is the console's colour word: foreground bits 1 blue,
// 2 green, 4 red, 8 bright; background the same bits times 16. Attribute 7
// is the console's normal colour.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velk::os {

// The consoles: standard output and standard error.
inline constexpr int32_t console_stdout = 1;
inline constexpr int32_t console_stderr = 2;

// Writes len bytes to the console stream (console_stdout or
// console_stderr), without a flush.
void console_write(int32_t stream, const char* text, size_t len);
void console_flush(int32_t stream);

// Colours of what is written next to stream; nothing unless colours are on.
void console_set_attribute(int32_t stream, uint16_t attribute);

// -1: colours when the stream is a terminal (the default); 0 never;
// 1 always.
void console_set_colour_mode(int32_t mode);

// The ANSI sequence of an attribute, into buf (room for 16 bytes), without
// a terminating zero; gives its length. Attribute 7 is the reset; a
// background of 0 leaves the terminal's own background.
uint32_t console_attribute_sequence(uint16_t attribute, char* buf);

// Text for an attached debugger; nothing on this platform.
void debugger_output(const char* text);

} // namespace velk::os
