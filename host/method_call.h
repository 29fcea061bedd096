// method_call: the plug-in's methods as the `call` command reaches them, one
// entry per row of the interface's method list (plugin/hostprobe_plugin_methods.h).
//
// An entry reads its method's arguments from command-line words by the
// row's signature, calls the method through an interface object and writes
// the result as text. A new row gets its entry by itself; an argument or
// result type that no reader or writer here knows fails to build.
#pragma once

#include "comm/charstr.h"
#include "plugin/hostprobe_plugin.h"

#include <cstdint>

namespace host {

struct method_call
{
    const char* name;
    uint32_t index;
    // Reads words as the method's arguments and keeps nothing. False, with
    // the reason in error, for a wrong count or a malformed number.
    bool (*check)(const char* name, int count, char** words, velk::charstr& error);
    // Reads words, which check accepted, calls the method of p and appends
    // the result to text. What the method throws reaches the caller.
    void (*call)(const xt::hostprobe_plugin& p, uint32_t index, char** words, velk::charstr& text);
    // Appends the arguments as the help shows them: " N (unsigned 32-bit)"
    // for each one, nothing for none.
    void (*describe)(velk::charstr& out);
};

// The entry of the method called name (exact case), or null.
const method_call* find_method_call(const char* name);

// Appends the methods' names as a sentence: "getMAC, mersenne_twister or
// testfunction".
void append_method_names(velk::charstr& out);

// Appends the methods with their arguments, as append_method_names does:
// "getMAC, mersenne_twister N (unsigned 32-bit) or testfunction N (signed 32-bit)".
void append_method_usage(velk::charstr& out);

} // namespace host
