#include "comm/pthreadx.h"

#include "comm/timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

// Runs the timed-lock steps against a lock that is never free and records
// what they did.
struct steps_record
{
    int attempts = 0;
    std::vector<int32_t> sleeps;
};

steps_record run_steps(uint32_t ms)
{
    steps_record r;
    bool taken = velk::timed_lock_steps(
        ms, [&] { ++r.attempts; return false; }, [&](int32_t w) { r.sleeps.push_back(w); });
    EXPECT_FALSE(taken);
    return r;
}

} // namespace

TEST(TimedLock, ZeroMakesTwoAttemptsWithoutSleep)
{
    steps_record r = run_steps(0);
    EXPECT_EQ(r.attempts, 2);
    EXPECT_TRUE(r.sleeps.empty());
}

TEST(TimedLock, OneMakesTwoAttemptsWithoutSleep)
{
    steps_record r = run_steps(1);
    EXPECT_EQ(r.attempts, 2);
    EXPECT_TRUE(r.sleeps.empty());
}

TEST(TimedLock, TwentySleepsNineteenOnce)
{
    steps_record r = run_steps(20);
    EXPECT_EQ(r.attempts, 2);
    EXPECT_EQ(r.sleeps, std::vector<int32_t>{19});
}

TEST(TimedLock, TwentyOneSleepsTenTwice)
{
    steps_record r = run_steps(21);
    EXPECT_EQ(r.attempts, 3);
    EXPECT_EQ(r.sleeps, (std::vector<int32_t>{10, 10}));
}

TEST(TimedLock, FirstAttemptThatSucceedsEndsIt)
{
    int attempts = 0;
    EXPECT_TRUE(velk::timed_lock_steps(100, [&] { return ++attempts == 2; }, [](int32_t) {}));
    EXPECT_EQ(attempts, 2);
}

TEST(CommMutex, TimedLockFailsWhileAnotherThreadHoldsIt)
{
    velk::comm_mutex m(500);
    std::atomic<bool> held{false}, done{false};
    std::thread owner([&] {
        m.lock();
        held = true;
        while (!done)
            velk::sleep(1);
        m.unlock();
    });
    while (!held)
        velk::sleep(0);
    EXPECT_FALSE(m.try_lock());
    EXPECT_FALSE(m.timed_lock(5));
    done = true;
    owner.join();
    EXPECT_TRUE(m.timed_lock(5));
    m.unlock();
}

TEST(CommMutex, IsRecursiveForItsOwner)
{
    velk::comm_mutex m(100);
    m.lock();
    EXPECT_TRUE(m.try_lock());
    m.unlock();
    m.unlock();
}

TEST(CommMutex, GuardsACounterAcrossThreads)
{
    velk::comm_mutex m(500);
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 50000; ++i) {
                velk::comm_mutex_guard g(m);
                ++counter;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(counter, 200000);
}

TEST(CommMutex, DestroyingUninitialisedMutexDoesNothing)
{
    auto* m = new velk::comm_mutex(velk::comm_mutex::no_init);
    EXPECT_FALSE(m->is_initialised());
    delete m;
    velk::comm_mutex late(velk::comm_mutex::no_init);
    late.init(10);
    EXPECT_TRUE(late.is_initialised());
    EXPECT_TRUE(late.try_lock());
    late.unlock();
}

TEST(CommMutexGuard, NullPointerLocksNothing)
{
    velk::comm_mutex_guard g(static_cast<velk::comm_mutex*>(nullptr));
    SUCCEED();
}

TEST(Sleep, NegativeReturnsAtOnce)
{
    velk::nsec_timer t;
    velk::sleep(-1);
    EXPECT_LT(t.time_ns(), 1000000u);
}

TEST(Sleep, SleepsAtLeastTheTime)
{
    velk::nsec_timer t;
    velk::sleep(3);
    EXPECT_GE(t.time_ns(), 3000000u);
}

TEST(Semaphore, CountsDownToZero)
{
    velk::comm_semaphore s(2);
    EXPECT_TRUE(s.try_lock());
    EXPECT_TRUE(s.lock());
    EXPECT_FALSE(s.try_lock());
}

TEST(Semaphore, UnlockStopsAtMaximum)
{
    velk::comm_semaphore s(1);
    EXPECT_FALSE(s.unlock());
    EXPECT_TRUE(s.try_lock());
    EXPECT_TRUE(s.unlock());
    EXPECT_TRUE(s.try_lock());
}

TEST(Semaphore, NotCreatedReportsNotTaken)
{
    velk::comm_semaphore s;
    EXPECT_FALSE(s.is_valid());
    EXPECT_FALSE(s.try_lock());
    EXPECT_FALSE(s.lock());
    EXPECT_TRUE(s.init(1));
    EXPECT_FALSE(s.init(1));
    EXPECT_TRUE(s.try_lock());
}

TEST(Semaphore, TimedLockExpires)
{
    velk::comm_semaphore s(1);
    ASSERT_TRUE(s.try_lock());
    velk::nsec_timer t;
    EXPECT_FALSE(s.timed_lock(5));
    EXPECT_GE(t.time_ns(), 4000000u);
}

TEST(Event, StartsUnsignalledAndResetsItself)
{
    velk::comm_event e(true);
    EXPECT_FALSE(e.try_wait());
    EXPECT_TRUE(e.signal());
    EXPECT_TRUE(e.try_wait());
    EXPECT_FALSE(e.try_wait());
}

TEST(Event, WakesAWaiterOnAnotherThread)
{
    velk::comm_event e(true);
    std::thread waker([&] {
        velk::sleep(2);
        e.signal();
    });
    EXPECT_TRUE(e.wait());
    waker.join();
}

TEST(Event, TimedWaitExpires)
{
    velk::comm_event e(true);
    EXPECT_FALSE(e.timed_wait(3));
}

TEST(Event, NotCreatedReportsNotTaken)
{
    velk::comm_event e;
    EXPECT_FALSE(e.try_wait());
    EXPECT_FALSE(e.signal());
}
