// command_line: what the user asked the reference host to do.
//
//   hostprobe [--plugin PATH] [COMMAND [ARGUMENT...]]
//
// Options come before the command; everything after the command is its
// arguments, checked by the command itself. No command means "version".
// Numbers are read strictly: decimal digits only (a "-" first where the
// type is signed), no blanks, nothing behind them, within the 32-bit range.
#pragma once

#include "comm/charstr.h"

#include <cstdint>

namespace host {

struct command_line
{
    const char* plugin_path = nullptr; // --plugin; null: next to the executable
    const char* command = "version";
    char** args = nullptr;             // the command's arguments
    int arg_count = 0;
};

// Reads argv. False, with the reason in error, for an option without its
// value or an unknown option; "--help" and "-h" are read as the command
// "--help".
bool parse_command_line(int argc, char** argv, command_line& out, velk::charstr& error);

// Strict readers of a command's numeric argument. False, with the reason in
// error, for anything but a number of the type's range.
bool parse_uint32(const char* text, uint32_t& out, velk::charstr& error);
bool parse_int32(const char* text, int32_t& out, velk::charstr& error);

} // namespace host
