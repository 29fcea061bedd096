#include "comm/timer.h"

#include "comm/pthreadx.h"

#include <gtest/gtest.h>

TEST(Clock, CurrentTimeNsNeverDecreases)
{
    uint64_t last = velk::current_time_ns();
    for (int i = 0; i < 100000; ++i) {
        uint64_t now = velk::current_time_ns();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(Clock, CounterSplitLosesNothingForLargeCounts)
{
    // One frequency's worth of counts is one second, whatever the frequency.
    EXPECT_EQ(velk::counter_to_ns(0), 0u);
    // Far beyond where counts times 1e9 would overflow, yet within 64 bits
    // of nanoseconds for any counter of 2 MHz or more (Windows counts at 10 MHz).
    uint64_t big = 1ull << 55;
    EXPECT_GT(velk::counter_to_ns(big), velk::counter_to_ns(big - 1));
}

TEST(Clock, TimeOfDayAdvancesWithTheCounter)
{
    uint64_t a = velk::time_of_day_ns();
    velk::sleep(2);
    uint64_t b = velk::time_of_day_ns();
    EXPECT_GE(b - a, 1000000u);
    EXPECT_LT(b - a, 10000000000u);
}

TEST(NsecTimer, TimeAfterResetIsSmallAndNotNegative)
{
    velk::nsec_timer t;
    t.reset();
    double s = t.time();
    EXPECT_GE(s, 0.0);
    EXPECT_LT(s, 1.0);
}

TEST(NsecTimer, BaseIsAdded)
{
    velk::nsec_timer t;
    t.set_base(5000000000ull);
    EXPECT_GE(t.time_ns(), 5000000000ull);
}

TEST(NsecTimer, SecondsOfTopBitValueStayUnsigned)
{
    velk::nsec_timer t;
    t.set_base(1ull << 63);
    EXPECT_GT(t.time(), 9.2e9);
}

TEST(MsecTimer, SinceCountsAcrossTheTickWrap)
{
    // Started 5 ms before the 32-bit tick wrapped, read 3 ms after.
    EXPECT_EQ(velk::msec_timer::since(0xFFFFFFFBu, 3u), 8u);
}

TEST(MsecTimer, ResetBackReadsAsStartedEarlier)
{
    velk::msec_timer t;
    t.reset_back(5);
    EXPECT_GE(t.time(), 5u);
    EXPECT_LT(t.time(), 1000u);
}

TEST(MsecTimer, TimeToNextPastDueIsLargeUnsigned)
{
    // The period is in microseconds: 2 periods of 10 us are long past after 100 ms.
    velk::msec_timer t(10);
    t.reset_back(100);
    EXPECT_GT(t.time_to_next(2), 0x80000000u);
}

TEST(MsecTimer, TimeToNextAheadIsPositive)
{
    velk::msec_timer t(1000000); // one second, in microseconds
    t.reset();
    uint32_t left = t.time_to_next(1);
    EXPECT_LE(left, 1000000u);
    EXPECT_GT(left, 900000u);
}

TEST(MsecTimer, TicksCountElapsedPeriods)
{
    velk::msec_timer t(10);
    t.reset_back(1000);
    uint32_t ticks = t.ticks();
    EXPECT_GE(ticks, 100000u);
    EXPECT_LT(ticks, 200000u);
}

TEST(MsecTimer, TimeResetRestarts)
{
    velk::msec_timer t;
    t.reset_back(500);
    EXPECT_GE(t.time_reset(), 500u);
    EXPECT_LT(t.time(), 500u);
}
