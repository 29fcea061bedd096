#include "plugin/mersenne_twister.h"

#include <gtest/gtest.h>

#include <random>

TEST(MersenneTwister, AgreesWithStandardGeneratorOverManySeeds)
{
    std::mt19937 seeds(7);
    for (int i = 0; i < 2000; ++i) {
        uint32_t seed = seeds();
        std::mt19937 reference(seed);
        ASSERT_EQ(xt::mt19937_first_output(seed), reference()) << "seed " << seed;
    }
}

TEST(MersenneTwister, AgreesWithStandardGeneratorAtTheEdgesOfTheSeedRange)
{
    for (uint32_t seed : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        std::mt19937 reference(seed);
        EXPECT_EQ(xt::mt19937_first_output(seed), reference()) << "seed " << seed;
    }
}
