// command_line: the options of the reference host and its number readers.
#include "host/command_line.h"

#include <cstring>

namespace host {

namespace {

bool is_help(const char* arg) { return !strcmp(arg, "--help") || !strcmp(arg, "-h"); }

// The magnitude of the digits from digits to the end of text, up to limit.
// False, with the reason in error, for no digit, a non-digit, or a value
// above limit.
bool read_magnitude(const char* text, const char* digits, uint64_t limit, uint64_t& out,
                    velk::charstr& error)
{
    uint64_t v = 0;
    const char* p = digits;
    for (; *p >= '0' && *p <= '9'; ++p) {
        v = v * 10 + uint64_t(*p - '0');
        if (v > limit) { // checked at each digit, so v never wraps
            error << "'" << text << "' is out of range";
            return false;
        }
    }
    if (p == digits || *p) {
        error << "'" << text << "' is not a number";
        return false;
    }
    out = v;
    return true;
}

} // namespace

bool parse_command_line(int argc, char** argv, command_line& out, velk::charstr& error)
{
    int i = 1;
    for (; i < argc && argv[i][0] == '-' && !is_help(argv[i]); ++i) {
        if (strcmp(argv[i], "--plugin") != 0) {
            error << "unknown option '" << argv[i] << "'";
            return false;
        }
        if (++i == argc) {
            error << "--plugin needs the path of the plug-in";
            return false;
        }
        out.plugin_path = argv[i];
    }
    if (i < argc)
        out.command = is_help(argv[i]) ? "--help" : argv[i++];
    out.args = argv + i;
    out.arg_count = argc - i;
    return true;
}

bool parse_uint32(const char* text, uint32_t& out, velk::charstr& error)
{
    uint64_t v = 0;
    if (*text == '-') {
        error << "'" << text << "' is negative (expected an unsigned 32-bit number)";
        return false;
    }
    if (!read_magnitude(text, text, UINT32_MAX, v, error)) {
        error << " (expected an unsigned 32-bit number)";
        return false;
    }
    out = static_cast<uint32_t>(v);
    return true;
}

bool parse_int32(const char* text, int32_t& out, velk::charstr& error)
{
    bool negative = *text == '-';
    // The most negative value has one more unit than the most positive.
    uint64_t limit = negative ? uint64_t(INT32_MAX) + 1 : uint64_t(INT32_MAX);
    uint64_t v = 0;
    if (!read_magnitude(text, text + negative, limit, v, error)) {
        error << " (expected a signed 32-bit number)";
        return false;
    }
    out = static_cast<int32_t>(negative ? -static_cast<int64_t>(v) : static_cast<int64_t>(v));
    return true;
}

} // namespace host
