#include "comm/iref.h"

#include "comm/policy_base.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

struct probe : velk::counted_base
{
    static inline int alive = 0;
    probe() { ++alive; }
    ~probe() override { --alive; }
};

// Records its last release instead of deleting at once.
struct hooked : velk::counted_base
{
    bool* released;
    explicit hooked(bool* flag) : released(flag) {}
    void release_hook() override
    {
        *released = true;
        delete this;
    }
};

} // namespace

TEST(Iref, NewObjectHasNoReferences)
{
    probe* p = new probe;
    EXPECT_EQ(p->refcount(), 0u);
    velk::iref<probe> r(p);
    EXPECT_EQ(p->refcount(), 1u);
}

TEST(Iref, LastReleaseDeletesObject)
{
    {
        velk::iref<probe> r(new probe);
        EXPECT_EQ(probe::alive, 1);
    }
    EXPECT_EQ(probe::alive, 0);
}

TEST(Iref, ReleaseLeavesHandleNull)
{
    velk::iref<probe> r(new probe);
    r.release();
    EXPECT_TRUE(r.is_empty());
    EXPECT_EQ(probe::alive, 0);
}

TEST(Iref, CopyCountsAndAssignmentReleasesOld)
{
    velk::iref<probe> a(new probe), b(new probe);
    velk::iref<probe> c = a;
    EXPECT_EQ(a->refcount(), 2u);
    c = b;
    EXPECT_EQ(a->refcount(), 1u);
    EXPECT_EQ(b->refcount(), 2u);
    a = b;
    EXPECT_EQ(probe::alive, 1);
}

TEST(Iref, CreateWithNullMakesDefaultObject)
{
    velk::iref<probe> r;
    probe* p = r.create();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(r.get(), p);
    EXPECT_EQ(p->refcount(), 1u);
}

TEST(Iref, CreateCountsNewBeforeReleasingOld)
{
    // The old object holds the only reference to the new one: were the old
    // released first, the new one would die with it.
    struct owner : velk::counted_base
    {
        velk::iref<probe> child;
    };
    auto* o = new owner;
    probe* child = o->child.create();
    velk::iref<velk::counted_base> h(o);
    h.create(child);
    EXPECT_EQ(h.get(), child);
    EXPECT_EQ(child->refcount(), 1u);
    EXPECT_EQ(probe::alive, 1);
}

TEST(Iref, ReleaseHookRunsOnLastReleaseOnly)
{
    bool released = false;
    velk::iref<hooked> a(new hooked(&released));
    velk::iref<hooked> b = a;
    a.release();
    EXPECT_FALSE(released);
    b.release();
    EXPECT_TRUE(released);
}

TEST(Iref, ConcurrentCopiesKeepCountExact)
{
    velk::iref<probe> shared(new probe);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 100000; ++i) {
                velk::iref<probe> copy = shared;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(shared->refcount(), 1u);
    shared.release();
    EXPECT_EQ(probe::alive, 0);
}
