// Windows side of the console seam: the runtime's standard streams for the
// text, SetConsoleTextAttribute on the console's handle for the colours, and
// OutputDebugStringA for an attached debugger.
#include "comm/os/console.h"

#include <windows.h>

#include <atomic>
#include <cstdio>

namespace velk::os {

namespace {

std::atomic<int32_t> colour_mode{-1};

FILE* file_of(int32_t stream) { return stream == console_stderr ? stderr : stdout; }

HANDLE handle_of(int32_t stream)
{
    return GetStdHandle(stream == console_stderr ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
}

// A handle is a console when the console answers for its mode; a file or a
// pipe has no colours.
bool is_console(int32_t stream)
{
    DWORD mode;
    HANDLE h = handle_of(stream);
    return h != INVALID_HANDLE_VALUE && h && GetConsoleMode(h, &mode);
}

bool colours_on(int32_t stream)
{
    int32_t mode = colour_mode.load(std::memory_order_relaxed);
    if (mode >= 0)
        return mode != 0;
    static const bool out_console = is_console(console_stdout);
    static const bool err_console = is_console(console_stderr);
    return stream == console_stderr ? err_console : out_console;
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

// Kept on this side too: the sequences are part of the seam's contract,
// whatever the console itself takes.
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
    // The runtime's buffer goes out first, so the colour starts where it should.
    fflush(file_of(stream));
    SetConsoleTextAttribute(handle_of(stream), attribute);
}

void console_set_colour_mode(int32_t mode) { colour_mode.store(mode, std::memory_order_relaxed); }

void debugger_output(const char* text) { OutputDebugStringA(text); }

} // namespace velk::os
