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

} // namespace

void console_write(int32_t stream, const char* text, size_t len) { fwrite(text, 1, len, file_of(stream)); }

void console_flush(int32_t stream) { fflush(file_of(stream)); }

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
