// script_file: whole-file reads through the library's file stream.
#include "bindings/js/script_file.h"

#include "comm/binstream/bifstream.h"
#include "comm/zstring.h"

#include <cstdint>

namespace velk::js {

namespace {

// A text's length is a 32-bit count, and resize takes it signed: a file
// that would pass this can't be a script anyway (V8's strings end far
// below it).
constexpr uint32_t max_text_length = INT32_MAX - script_read_block;

} // namespace

bool read_script_file(const token& path, charstr& out)
{
    bifstream file;
    if (file.open(zstring(path), "r"))
        return false;
    const uint32_t original = out.lens();
    uint32_t length = original;
    for (;;) {
        if (length > max_text_length) {
            out.resize(static_cast<int32_t>(original));
            return false;
        }
        char* block = out.append_buffer(script_read_block);
        uint64_t left = script_read_block;
        opcd e = file.read_raw(block, left); // left: what the block still lacks
        length += script_read_block - static_cast<uint32_t>(left);
        out.resize(static_cast<int32_t>(length)); // drops the unread part of the block
        if (e == ers::no_more)
            return true; // a short block is the end of the file
        if (e) {
            out.resize(static_cast<int32_t>(original));
            return false;
        }
    }
}

} // namespace velk::js
