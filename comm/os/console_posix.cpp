// POSIX side of the console seam: stdio's standard output and error, and
// ANSI colour sequences, written only to a terminal unless forced.
#include "comm/os/console.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>

namespace velk::os {

namespace {

std::atomic<int32_t> colour_mode{-1};

FILE* file_of(int32_t stream) { return stream == console_stderr ? stderr : stdout; }

bool colours_on(int32_t stream)
{
    int32_t mode = colour_mode.load(std::memory_order_relaxed);
    if (mode >= 0)
        return mode != 0;
    // Asked once: a stream does not change what it is.
    static const bool out_terminal = isatty(STDOUT_FILENO) != 0;
    static const bool err_terminal = isatty(STDERR_FILENO) != 0;
    return stream == console_stderr ? err_terminal : out_terminal;
}

// ANSI colour index of three attribute bits (blue 1, green 2, red 4):
// ANSI counts red 1, green 2, blue 4.
uint32_t ansi_index(uint32_t bits) { return ((bits & 4) ? 1 : 0) | (bits & 2) | ((bits & 1) ? 4 : 0); }

char* put_number(char* p, uint32_t v)
{
    if (v >= 100)
        *p++ = static_cast<char>('0' + v / 100);
    if (v >= 10)
        *p++ = static_cast<char>('0' + v / 10 % 10);
    *p++ = static_cast<char>('0' + v % 10);
    return p;
}

} // namespace

void console_write(int32_t stream, const char* text, size_t len) { fwrite(text, 1, len, file_of(stream)); }

void console_flush(int32_t stream) { fflush(file_of(stream)); }

uint32_t console_attribute_sequence(uint16_t attribute, char* buf)
{
    char* p = buf;
    *p++ = '\x1b';
    *p++ = '[';
    if (attribute == 7) {
        *p++ = '0';
    } else {
        uint32_t fg = attribute & 15, bg = (attribute >> 4) & 15;
        p = put_number(p, ((fg & 8) ? 90 : 30) + ansi_index(fg & 7));
        if (bg) {
            *p++ = ';';
            p = put_number(p, ((bg & 8) ? 100 : 40) + ansi_index(bg & 7));
        }
    }
    *p++ = 'm';
    return static_cast<uint32_t>(p - buf);
}

void console_set_attribute(int32_t stream, uint16_t attribute)
{
    if (!colours_on(stream))
        return;
    char buf[16];
    fwrite(buf, 1, console_attribute_sequence(attribute, buf), file_of(stream));
}

void console_set_colour_mode(int32_t mode) { colour_mode.store(mode, std::memory_order_relaxed); }

void debugger_output(const char*) {}

} // namespace velk::os
