// The log call of the library.
//
// create_log_msg gives a counted message, or an empty handle when the line is
// not wanted. The caller appends to a message; the line is delivered when the
// last reference goes. An empty handle means: write nothing and go on. A log
// line never fails its caller.
//
//   VELK_LOG(2, "ifcreg") << "key refused: " << key;
//
// Levels run from -1 (decide from the text) to 6; source is a short name.
// The host's hook makes the message when it gives one; otherwise, until the
// logger is in place, a message is written to the console at its last
// release, with the prefix of its level.
#pragma once

#include "comm/charstr.h"
#include "comm/iref.h"
#include "comm/policy_base.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

class logmsg : public counted_base
{
public:
    logmsg(int32_t type, const tokenhash& source) : _type(type), _source(source) {}

    // Appends whatever a charstr takes: text, characters, numbers.
    template <class T>
    logmsg& operator<<(const T& v)
    {
        _text << v;
        return *this;
    }

    int32_t type() const { return _type; }
    const tokenhash& source() const { return _source; }
    token text() const { return _text; }

protected:
    // Delivery happens here, at the last release.
    void release_hook() override;

private:
    int32_t _type;
    tokenhash _source;
    charstr _text;
};

using log_ref = iref<logmsg>;

// What makes this module's messages instead of the console when the host
// gives no hook; null restores the console.
using log_hook_fn = log_ref (*)(int32_t type, const tokenhash& source, const void* context);
void set_log_hook(log_hook_fn hook);

// A new message of level type from source, or an empty handle. Never throws
// for a refused line; std::bad_alloc when a message can't be allocated.
// Made by the host's log hook when the process's interface registry holds
// one (defined with the registry's front, interface/registrar.cpp), else as
// create_fallback_log_msg.
log_ref create_log_msg(int32_t type, const tokenhash& source, const void* context);

// The module's own message, for a process whose host gives no log hook: made
// by the hook of set_log_hook if one is set, else written to the console.
log_ref create_fallback_log_msg(int32_t type, const tokenhash& source, const void* context);

// The prefix of a level: "FATAL: " for 0 up to "PERF: " for 6; empty otherwise.
token log_level_prefix(int32_t type);

} // namespace velk

#define VELK_LOG(type, source)                                                            \
    if (::velk::log_ref velk_log_msg_ = ::velk::create_log_msg(type, source, nullptr); !velk_log_msg_) { \
    } else                                                                                \
        *velk_log_msg_
