// script_file: whole-file reads.
#include "bindings/js/script_file.h"

#include <cstdint>
#include <cstdio>

namespace velk::js {

namespace {

// A text's length is a 32-bit count, and resize takes it signed: a file
// that would pass this can't be a script anyway (V8's strings end far
// below it).
constexpr uint32_t max_text_length = INT32_MAX - script_read_block;

struct file_closer
{
    FILE* f;
    ~file_closer()
    {
        if (f)
            fclose(f);
    }
};

} // namespace

bool read_script_file(const token& path, charstr& out)
{
    charstr name(path); // fopen wants the terminator that a token lacks
    file_closer file{fopen(name.c_str(), "r")};
    if (!file.f)
        return false;
    const uint32_t original = out.lens();
    uint32_t length = original;
    size_t n = 0;
    do {
        if (length > max_text_length) {
            out.resize(static_cast<int32_t>(original));
            return false;
        }
        char* block = out.append_buffer(script_read_block);
        n = fread(block, 1, script_read_block, file.f);
        length += static_cast<uint32_t>(n);
        out.resize(static_cast<int32_t>(length)); // drops the unread part of the block
    } while (n == script_read_block);
    if (ferror(file.f)) {
        out.resize(static_cast<int32_t>(original));
        return false;
    }
    return true;
}

} // namespace velk::js
