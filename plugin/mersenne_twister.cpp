#include "plugin/mersenne_twister.h"

namespace xt {

namespace {
constexpr int n = 624;
constexpr int m = 397;
constexpr uint32_t seed_multiplier = 1812433253u;
constexpr uint32_t matrix_a = 0x9908B0DFu;
constexpr uint32_t upper_mask = 0x80000000u;
constexpr uint32_t lower_mask = 0x7FFFFFFFu;
} // namespace

uint32_t mt19937_first_output(uint32_t seed)
{
    // 2n words: the refill writes state[i + n] and later steps read the words
    // that earlier steps wrote, so the loop runs in rising order of i.
    uint32_t state[2 * n];
    state[0] = seed;
    for (int i = 1; i < n; ++i)
        state[i] = seed_multiplier * (state[i - 1] ^ (state[i - 1] >> 30)) + static_cast<uint32_t>(i);

    for (int i = 0; i < n; ++i) {
        uint32_t y = (state[i] & upper_mask) | (state[i + 1] & lower_mask);
        state[i + n] = state[i + m] ^ (y >> 1) ^ ((y & 1) ? matrix_a : 0u);
    }

    uint32_t y = state[n];
    y ^= y >> 11;
    y ^= (y << 7) & 0x9D2C5680u;
    y ^= (y << 15) & 0xEFC60000u;
    y ^= y >> 18;
    return y;
}

} // namespace xt
