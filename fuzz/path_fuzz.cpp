// Fuzz target of the path algebra. An input is a flag byte, then a root and a
// path divided by the first "|". What must hold for any input:
// - append_path with check_climb: a failure leaves dst as it was; a result of
//   -1 (no climb) lies below the root, as is_subpath sees it, before and after
//   both are compacted.
// - compact_path never grows a path, leaves it unchanged on failure, and a
//   second pass changes nothing.
// - a path lies below itself, and the relative path from it to itself is empty.
// Include paths, which the registry resolves with this algebra, have a target
// of their own (include_path_fuzz).
#include "comm/dir/path_algebra.h"
#include "fuzz/fuzz_check.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using velk::charstr;
using velk::path_algebra;
using velk::token;

namespace {

fuzz_inputs inputs{"path_fuzz", "root", "path", {}, {}};
token& root_in = inputs.first;
token& path_in = inputs.second;

void check_append(const token& root, const token& path)
{
    charstr dst(root);
    int r = path_algebra::append_path(dst, path, true);
    if (r == 0) {
        REQUIRE(dst == root);
        return;
    }
    if (r == 1)
        return; // a climb or an absolute path: the caller must look itself
    REQUIRE(r == -1);

    token below = dst;
    REQUIRE(path_algebra::is_subpath(root, below));

    charstr croot(root);
    charstr cdst(dst);
    if (!path_algebra::compact_path(croot, 0))
        return;
    REQUIRE(path_algebra::compact_path(cdst, 0));
    token cbelow = cdst;
    REQUIRE(path_algebra::is_subpath(croot, cbelow));
}

void check_compact(const token& in, char replacement)
{
    charstr once(in);
    bool ok = path_algebra::compact_path(once, replacement);
    REQUIRE(once.lens() <= in.lens());
    if (!ok) {
        REQUIRE(once == in);
        return;
    }
    // A relative path whose first kept segment reads as a drive ("./C:x")
    // changes its kind; a second pass then reads it differently.
    if (path_algebra::is_absolute_path(once) != path_algebra::is_absolute_path(in))
        return;
    charstr twice(once);
    REQUIRE(path_algebra::compact_path(twice, replacement));
    REQUIRE(twice == once);
}

void check_self(const token& in)
{
    token rest = in;
    REQUIRE(path_algebra::is_subpath(in, rest));
    REQUIRE(rest.is_empty());
    charstr out;
    REQUIRE(path_algebra::get_relative_path(in, in, out, false));
    REQUIRE(out.is_empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    // Bits 0-1 of the flag byte pick the replacement, bit 2 src_is_file.
    static const char replacements[4] = {0, '/', '\\', 0};
    char replacement = replacements[data[0] & 3];
    bool src_is_file = data[0] & 4;

    const char* text = reinterpret_cast<const char*>(data + 1);
    size_t n = size - 1;
    const char* bar = static_cast<const char*>(memchr(text, '|', n));
    root_in = bar ? token(text, bar) : token(text, text);
    path_in = bar ? token(bar + 1, text + n) : token(text, text + n);

    check_append(root_in, path_in);
    check_compact(root_in, replacement);
    check_compact(path_in, replacement);
    check_self(root_in);
    check_self(path_in);

    charstr out;
    path_algebra::get_relative_path(root_in, path_in, out, src_is_file);
    return 0;
}
