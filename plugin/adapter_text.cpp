#include "plugin/adapter_text.h"

#include <cstdint>

namespace xt {

namespace {

// The six bytes of a link-layer (MAC) address: only they enter the sums.
constexpr int summed_bytes = 6;

// Lower-case hexadecimal of v, without prefix or padding: 0 gives "0".
void append_hex(velk::charstr& text, uint32_t v)
{
    char digits[8]; // 32 bits are at most 8 hexadecimal digits
    int n = 0;
    do {
        digits[n++] = "0123456789abcdef"[v & 0xF];
        v >>= 4;
    } while (v);
    while (n)
        text << digits[--n];
}

} // namespace

velk::charstr adapter_text(std::span<const adapter_address> adapters)
{
    velk::charstr text;
    if (adapters.empty())
        return text;
    // Signed 32-bit counters, as the sums have always been kept; no machine
    // has the 2^23 adapters that would overflow them.
    int32_t sums[summed_bytes] = {};
    for (const adapter_address& a : adapters)
        for (int k = 0; k < summed_bytes; ++k)
            sums[k] += a.bytes[k];
    // Only the text after the last adapter is kept, so it is written once.
    for (int32_t s : sums)
        append_hex(text, static_cast<uint32_t>(s));
    return text;
}

velk::charstr query_adapter_text(adapter_lister list)
{
    velk::dynarray<adapter_address> adapters;
    if (!list(adapters))
        return {};
    return adapter_text(std::span<const adapter_address>(adapters.ptr(), adapters.size()));
}

} // namespace xt
