// script_log: how a script's text becomes a log line.
//
// A script says the level of a line with a word at its start, as every text
// given to the logger may: "error:", "warn:"/"warning:", "msg:", "info:",
// "dbg:"/"debug:", "perf:", in any case. The word and the white space behind
// it are taken off; without a word the line is of level 4 (information).
// The words are the logger's own (log_level_from_text).
//
//   $log("warning: disk almost full")   // level 2, text "disk almost full"
#pragma once

#include "comm/token.h"

#include <v8.h>

#include <cstdint>

namespace velk::js {

// "$log" (message): a line from the source of the calling interface object
// (its interface_name), or "js" for the global function, with that object
// as the context. No argument: nothing is logged. Gives undefined.
void log_callback(const v8::FunctionCallbackInfo<v8::Value>& info);

} // namespace velk::js
