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

} // namespace

void console_write(int32_t stream, const char* text, size_t len) { fwrite(text, 1, len, file_of(stream)); }

void console_flush(int32_t stream) { fflush(file_of(stream)); }

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
