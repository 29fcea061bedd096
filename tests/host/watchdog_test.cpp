// watchdog: expire when the time is up, overrun a grace period later, and
// nothing of either once cancel() has returned.
#include "host/watchdog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using namespace std::chrono_literals;

namespace {

// Waits up to two seconds for flag; true when it was set.
bool comes_true(const std::atomic<bool>& flag)
{
    auto give_up = std::chrono::steady_clock::now() + 2s;
    while (!flag && std::chrono::steady_clock::now() < give_up)
        std::this_thread::sleep_for(1ms);
    return flag;
}

} // namespace

TEST(Watchdog, NeverStartedHasNotExpired)
{
    host::watchdog dog;
    EXPECT_FALSE(dog.cancel());
}

TEST(Watchdog, CancelBeforeTheLimitCallsNeither)
{
    std::atomic<bool> expired{false}, overran{false};
    host::watchdog dog;
    dog.start(10s, 0s, [&] { expired = true; }, [&] { overran = true; });
    auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(dog.cancel());
    EXPECT_LT(std::chrono::steady_clock::now() - before, 1s) << "cancel waited for the deadline";
    EXPECT_FALSE(expired);
    EXPECT_FALSE(overran);
}

TEST(Watchdog, ExpireRunsWhenTheTimeIsUp)
{
    std::atomic<bool> expired{false};
    host::watchdog dog;
    dog.start(20ms, 10s, [&] { expired = true; }, nullptr);
    EXPECT_TRUE(comes_true(expired));
    EXPECT_TRUE(dog.cancel());
}

TEST(Watchdog, OverrunFollowsAfterTheGrace)
{
    std::atomic<bool> overran{false};
    host::watchdog dog;
    dog.start(10ms, 10ms, nullptr, [&] { overran = true; });
    EXPECT_TRUE(comes_true(overran));
    EXPECT_TRUE(dog.cancel());
}

TEST(Watchdog, CancelWithinTheGraceStopsTheOverrun)
{
    std::atomic<bool> expired{false}, overran{false};
    host::watchdog dog;
    dog.start(10ms, 10s, [&] { expired = true; }, [&] { overran = true; });
    ASSERT_TRUE(comes_true(expired));
    EXPECT_TRUE(dog.cancel());
    EXPECT_FALSE(overran);
}

TEST(Watchdog, SecondCancelChangesNothing)
{
    host::watchdog dog;
    dog.start(10ms, 10s, nullptr, nullptr);
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(dog.cancel());
    EXPECT_TRUE(dog.cancel());
}
