// commands: the reference host's commands that work on the plug-in.
//
// Each is read from its arguments first, before any module is loaded, so
// that a wrong command line fails the same way with or without a plug-in.
// Running one prints its result on standard output and gives the exit
// status: 0, or 1 with the reason on standard error.
#pragma once

#include "comm/charstr.h"
#include "comm/regex/regex.h"
#include "comm/token.h"
#include "host/method_call.h"
#include "host/run_limits.h"
#include "plugin/hostprobe_plugin.h"

#include <cstdint>

namespace host {

// keys NAME [SCRIPT]: the keys that find_creators answers.
// keys --pattern REGEX: the keys that find_by_pattern answers.
struct keys_request
{
    velk::token name;
    velk::token script; // null when not given: any script part matches
    bool by_pattern = false;
    velk::regex pattern; // compiled while the arguments are read
};

// call METHOD [ARG...]: one method of the plug-in's interface, with its
// argument words, which parse_call has checked against the method's row.
struct call_request
{
    const method_call* method = nullptr;
    char** words = nullptr;
    int word_count = 0;
};

// Each reads a command's arguments; false with the reason in error for a
// wrong count, an unknown method, a malformed number or a bad pattern.
bool parse_keys(int argc, char** args, keys_request& out, velk::charstr& error);
bool parse_call(int argc, char** args, call_request& out, velk::charstr& error);

// run FILE [--bind NAME] [--root DIR] [--timeout SECONDS] [--max-heap MB]:
// a script with the interface object (host/script_runner runs it).
struct run_request
{
    const char* file = nullptr;
    const char* bind = "probe";
    const char* root = nullptr; // null: the script's folder
    run_limits limits;          // none unless given
};

// Reads run's arguments: the file, and the options --bind NAME, --root DIR,
// --timeout SECONDS and --max-heap MB in any order around it. False, with
// the reason in error, for no file, two files, an option without its value,
// an empty name, a limit that is not a whole number from 1 up (32-bit), or
// an unknown option.
bool parse_run(int argc, char** args, run_request& out, velk::charstr& error);

// Each runs a command against the loaded plug-in. Throw velk::exception
// when the process has no registry, std::bad_alloc.
int run_keys(const keys_request& r);
int run_call(const call_request& r);

} // namespace host
