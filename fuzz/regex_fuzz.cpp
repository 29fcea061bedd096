// Fuzz target of regular expressions. An input is a flag byte, then a
// pattern and a text divided by the first byte 0xFF (none: all pattern, no
// text). Bits 0-2 of the flag byte are literal, ignore_case and dot_all.
// What must hold for any input:
// - compile either succeeds or throws velk::exception with one of the
//   compiler's own texts; nothing else escapes, nothing crashes or hangs;
// - every run gives null or a token inside the text, and its slots are null
//   or inside the text, slot 0 with a null begin;
// - match gives null, an empty token, or a token from the text's start;
//   leading gives null or a token from the start;
// - the anchored runs give the same with and without sub-match slots (one
//   goes through the per-thread memo, the other through the rounds).
// Patterns are cut at 512 bytes and texts at 4096, so that one input runs in
// well under a millisecond: work is bounded by their product.
#include "comm/exception.h"
#include "comm/regex/regex.h"
#include "fuzz/fuzz_check.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using velk::regex;
using velk::token;

namespace {

fuzz_inputs inputs{"regex_fuzz", "pattern", "text", {}, {}};
token& pattern_in = inputs.first;
token& text_in = inputs.second;

bool known_failure(const char* text)
{
    static const char* const known[] = {"unmatched left paren", "unmatched right paren", "malformed '[]'",
                                        "unknown operator in evaluntil", "can't happen: operator stack underflow"};
    for (const char* k : known)
        if (strcmp(text, k) == 0)
            return true;
    return strncmp(text, "missing operand for ", 20) == 0;
}

bool inside(const token& t, const token& text)
{
    return t.is_null() || (t.ptr() >= text.ptr() && t.ptre() <= text.ptre() && t.ptr() <= t.ptre());
}

void check_slots(const token* subs, uint32_t n, const token& text)
{
    REQUIRE(subs[0].ptr() == nullptr);
    REQUIRE(subs[0].ptre() == nullptr || (subs[0].ptre() >= text.ptr() && subs[0].ptre() <= text.ptre()));
    for (uint32_t k = 1; k < n; ++k)
        REQUIRE(inside(subs[k], text));
}

constexpr uint32_t nslots = 6;

void check_runs(const regex& re, const token& text)
{
    token subs[nslots];

    token found = re.find(text, subs, nslots);
    REQUIRE(inside(found, text));
    check_slots(subs, nslots, text);
    REQUIRE(re.find(text).ptr() == found.ptr() && re.find(text).ptre() == found.ptre());

    token whole = re.match(text);
    REQUIRE(inside(whole, text));
    REQUIRE(whole.is_null() || whole.is_empty() || whole.ptr() == text.ptr());
    token whole_slots = re.match(text, subs, nslots);
    check_slots(subs, nslots, text);
    REQUIRE(whole.ptr() == whole_slots.ptr() && whole.ptre() == whole_slots.ptre());

    token lead = re.leading(text);
    REQUIRE(inside(lead, text));
    REQUIRE(lead.is_null() || lead.ptr() == text.ptr());
    token lead_slots = re.leading(text, subs, 1);
    REQUIRE(lead.ptr() == lead_slots.ptr() && lead.ptre() == lead_slots.ptre());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    bool literal = data[0] & 1;
    bool ignore_case = data[0] & 2;
    bool dot_all = data[0] & 4;
    const char* rest = reinterpret_cast<const char*>(data + 1);
    size_t n = size - 1;
    const char* bar = static_cast<const char*>(memchr(rest, 0xFF, n));
    size_t plen = bar ? static_cast<size_t>(bar - rest) : n;
    size_t tlen = bar ? n - plen - 1 : 0;
    pattern_in = token(rest, plen < 512 ? plen : 512);
    text_in = token(rest + n - (tlen < 4096 ? tlen : 4096), rest + n);

    // The text ends where the input does, so a read past it is seen; the
    // pattern gets a block of its own size for the same reason.
    char* pattern = static_cast<char*>(malloc(pattern_in.lens() ? pattern_in.lens() : 1));
    memcpy(pattern, pattern_in.ptr(), pattern_in.lens());
    regex re;
    bool compiled = true;
    try {
        re.compile(token(pattern, pattern_in.lens()), literal, ignore_case, dot_all);
    } catch (const velk::exception& e) {
        REQUIRE(known_failure(e.what()));
        REQUIRE(!re.is_compiled());
        compiled = false;
    }
    free(pattern);
    if (compiled)
        check_runs(re, text_in);
    return 0;
}
