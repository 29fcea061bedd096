// Fuzz target of include path resolution. An input is a flag byte, then a
// current path and an include path divided by the first "|". Bit 0 of the
// flag byte picks the registry: one whose host accepts every include, or
// one whose host refuses them all. What must hold for any input:
// - a resolved path lies below the registry's root, keeps no ".." segment,
//   and the relative part handed back is what follows the root in it;
// - the host is asked about an include taken from the root and nothing
//   else, and its refusal is the result;
// - resolving the same input twice gives the same path.
#include "comm/dir/path_algebra.h"
#include "fuzz/fuzz_check.h"
#include "interface/interface_register.h"

#include <cstdint>
#include <cstring>

using velk::charstr;
using velk::path_algebra;
using velk::token;

namespace {

fuzz_inputs inputs{"include_path_fuzz", "current", "include", {}, {}};
token& current_in = inputs.first;
token& include_in = inputs.second;

int host_calls = 0;

bool accept_all(const token&)
{
    ++host_calls;
    return true;
}

bool refuse_all(const token&)
{
    ++host_calls;
    return false;
}

// One registry of each kind for the whole run: a root is fixed by the first setup.
velk::interface_register_impl& registry(bool refusing)
{
    static velk::interface_register_impl* accepting = [] {
        auto* r = new velk::interface_register_impl;
        r->setup("/fuzz/root/", nullptr, accept_all, nullptr);
        return r;
    }();
    static velk::interface_register_impl* refusing_one = [] {
        auto* r = new velk::interface_register_impl;
        r->setup("/fuzz/root/", nullptr, refuse_all, nullptr);
        return r;
    }();
    return refusing ? *refusing_one : *accepting;
}

// True when a ".." segment stands anywhere in text (either separator).
bool has_climb(const token& text)
{
    const char* p = text.ptr();
    uint32_t n = text.lens();
    for (uint32_t i = 0; i + 1 < n; ++i) {
        bool starts = i == 0 || path_algebra::is_separator(p[i - 1]);
        bool ends = i + 2 == n || path_algebra::is_separator(p[i + 2]);
        if (starts && ends && p[i] == '.' && p[i + 1] == '.')
            return true;
    }
    return false;
}

// The host decides only on an include taken from the root: a leading
// separator or an absolute path.
bool taken_from_root(const token& include)
{
    return path_algebra::is_separator(include.first_char()) || path_algebra::is_absolute_path(include);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    bool refusing = data[0] & 1;
    const char* text = reinterpret_cast<const char*>(data + 1);
    size_t n = size - 1;
    const char* bar = static_cast<const char*>(memchr(text, '|', n));
    current_in = bar ? token(text, bar) : token(text, text);
    include_in = bar ? token(bar + 1, text + n) : token(text, text + n);

    velk::interface_register_impl& r = registry(refusing);
    charstr out;
    token relative;
    host_calls = 0;
    bool resolved = r.resolve_include_path(current_in, include_in, out, &relative);
    REQUIRE(host_calls <= 1);
    if (host_calls == 1)
        REQUIRE(taken_from_root(include_in));
    if (refusing && taken_from_root(include_in))
        REQUIRE(!resolved);
    if (!resolved)
        return 0;

    token below = out;
    REQUIRE(path_algebra::is_subpath(r.root_path(), below));
    REQUIRE(!has_climb(below));
    REQUIRE(relative.ptr() == below.ptr() && relative.lens() == below.lens());

    charstr again;
    REQUIRE(r.resolve_include_path(current_in, include_in, again, nullptr));
    REQUIRE(again == out);
    return 0;
}
