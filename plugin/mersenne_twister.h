// The first output of the 32-bit Mersenne Twister MT19937 for a seed.
#pragma once

#include <cstdint>

namespace xt {

// A fresh generator on the stack on every call: seeding, one refill of 624
// words, tempering of the first. No state survives; 5489 gives 3499211612.
uint32_t mt19937_first_output(uint32_t seed);

} // namespace xt
