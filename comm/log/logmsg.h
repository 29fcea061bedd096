// The log call of the library and the message it builds.
//
// create_log_msg gives a counted reference to a pooled message, or an empty
// reference when the line is not wanted. The caller appends to the message;
// the line is delivered to its logger when the last reference goes, and
// written on the logger's own thread. An empty reference means: write
// nothing and go on. A log line never fails its caller.
//
//   VELK_LOG(log_level::warning, "ifcreg") << "key refused: " << key;
//
// Levels run from log_level::none (decide from the text) to
// log_level::perf; source is a short name
// whose text must stay valid until the line is written (a literal). The
// message is made by the host's log hook when the process's registry holds
// one, else by the host's logger, else by this module's own logger (see
// comm/log/logger.h).
#pragma once

#include "comm/charstr.h"
#include "comm/ref.h"
#include "comm/token.h"

#include <cstddef>
#include <cstdint>

namespace velk {

// The levels of a log line. A logger lets a line through when its level is
// no higher than the logger's; the numbers are a contract between modules.
namespace log_level {
inline constexpr int32_t none = -1;   // no level given: the text's first words decide
inline constexpr int32_t fatal = 0;   // "FATAL: "
inline constexpr int32_t error = 1;   // "ERROR: "
inline constexpr int32_t warning = 2; // "WARNING: "
inline constexpr int32_t message = 3; // "INFO: ", shown brighter than info
inline constexpr int32_t info = 4;    // "INFO: "
inline constexpr int32_t debug = 5;   // "DEBUG: "
inline constexpr int32_t perf = 6;    // "PERF: ", timed from the message's making
inline constexpr int32_t all = 7;     // a logger's level that lets every line through
} // namespace log_level

class logger;
class logger_file;
class log_writer;
class policy_msg;

// A message as it lives in the pool. It belongs to its composer until the
// last release of the composer's references, then to the logger's writer.
class logmsg
{
public:
    // Appends whatever a charstr takes: text, characters, numbers.
    template <class T>
    logmsg& operator<<(const T& v)
    {
        _text << v;
        return *this;
    }

    // The line so far, with the level's prefix and the source in front.
    charstr& text() { return _text; }
    const charstr& text() const { return _text; }
    // The level; -1 until delivery decides it from the text.
    int32_t type() const { return _type; }
    const tokenhash& source() const { return _source; }
    // The logger that will deliver it; null once delivered.
    logger* target() const { return _logger; }
    // Where it is written; set at delivery, empty for the console alone.
    const ref<logger_file>& file() const { return _file; }

private:
    friend class logger;
    friend class log_writer;
    friend class policy_msg;

    logger* _logger = nullptr;
    ref<logger_file> _file;
    tokenhash _source;
    int32_t _type = -1;
    charstr _text;
    uint64_t _start = 0; // nanosecond clock at creation, for level 6 only
    int32_t _console = 1; // the logger's console stream, set at delivery
};

using log_ref = ref<logmsg>;

// A new message of level type from source, or an empty reference when the
// level refuses it. context is handed to the host's hook. Goes the installed
// route first (see install_log_route), else to the module's own logger.
// Throws std::bad_alloc when a message can't be allocated; nothing else.
log_ref create_log_msg(int32_t type, const tokenhash& source, const void* context);

// The part of a log call that lies above the library: the interface registry
// installs it, so that lines reach the host's hooks. A route answers true
// when it took the line (out filled, or left empty when the host's logger
// refused it), false to leave the line to the module's own logger.
using log_route_fn = bool (*)(log_ref& out, int32_t type, const tokenhash& source, const void* context);
// The host's logger by the same route, or null to leave it to the module's.
using logger_route_fn = logger* (*)();

// Installs the route of every later log call of this module; nulls take it
// away. A module without a registry keeps the default, its own logger.
void install_log_route(log_route_fn route, logger_route_fn logger_route);

// The logger that create_log_msg uses when the host gives no log hook: the
// host's, through the registry's logger hook, else this module's own.
logger* get_logger();

// Makes l this module's own logger in place of the console logger made on
// first use; null goes back to that one. l must outlive its use.
void set_module_logger(logger* l);

// The module's own logger: the one of set_module_logger, or the console
// logger, made on first use. Null only once the module's static objects
// are ending, when log lines are dropped.
logger* module_logger();

// The prefix of a level: "FATAL: " for 0 up to "PERF: " for 6; empty otherwise.
token log_level_prefix(int32_t type);

// The source of a log call. A literal is measured and hashed by the
// compiler, so that a refused call costs no hashing; any other text is
// taken as it is.
//
// The compiler's result is a plain pair, made a tokenhash at the call: clang
// 14 returns a tokenhash (a class with a base) from a consteval function
// with its end pointer null, and the source's text then runs on past the literal.
struct log_literal
{
    token text;
    uint32_t hash;
    constexpr operator tokenhash() const { return tokenhash(text, hash); }
};

template <size_t N>
consteval log_literal log_source(const char (&literal)[N])
{
    return log_literal{token(literal), tokenhash(literal).hash()};
}
inline const tokenhash& log_source(const tokenhash& source) { return source; }

} // namespace velk

#define VELK_LOG(type, source)                                                                         \
    if (::velk::log_ref velk_log_msg_ = ::velk::create_log_msg(type, ::velk::log_source(source), nullptr); \
        !velk_log_msg_) {                                                                              \
    } else                                                                                             \
        *velk_log_msg_
