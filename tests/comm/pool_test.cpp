#include "comm/pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

struct item
{
    static inline int alive = 0;
    std::atomic<int> holders{0}; // how many takers have it right now
    item() { ++alive; }
    ~item() { --alive; }
};

struct plain_node
{
    plain_node* next = nullptr;
};

} // namespace

// -- Tagged stack --------------------------------------------------------------

TEST(TaggedStack, HeadAndTagFormOneAlignedSixteenByteUnit)
{
    EXPECT_EQ(sizeof(velk::tagged_stack<plain_node>), 16u);
    EXPECT_EQ(alignof(velk::tagged_stack<plain_node>), 16u);
}

TEST(TaggedStack, PopOfEmptyGivesNull)
{
    velk::tagged_stack<plain_node> stack;
    EXPECT_EQ(stack.pop_node(), nullptr);
}

TEST(TaggedStack, PushThenPopGivesTheNodeBack)
{
    velk::tagged_stack<plain_node> stack;
    plain_node n;
    stack.push_node(&n);
    EXPECT_EQ(stack.pop_node(), &n);
    EXPECT_TRUE(stack.is_empty());
}

TEST(TaggedStack, LastPushedIsFirstPopped)
{
    velk::tagged_stack<plain_node> stack;
    plain_node a, b;
    stack.push_node(&a);
    stack.push_node(&b);
    EXPECT_EQ(stack.pop_node(), &b);
    EXPECT_EQ(stack.pop_node(), &a);
}

// The tag is what defeats ABA: a head popped and pushed back must not look
// unchanged.
TEST(TaggedStack, EveryChangeIncrementsTheTag)
{
    velk::tagged_stack<plain_node> stack;
    plain_node n;
    stack.push_node(&n);
    stack.pop_node();
    stack.push_node(&n);
    EXPECT_EQ(stack.tag(), 3u);
}

TEST(TaggedStack, PopOfEmptyLeavesTheTag)
{
    velk::tagged_stack<plain_node> stack;
    stack.pop_node();
    EXPECT_EQ(stack.tag(), 0u);
}

// -- Pool ------------------------------------------------------------------------

TEST(Pool, HasTheFourWordsOfTwoTaggedHeads)
{
    EXPECT_EQ(sizeof(velk::pool<item*>), 32u);
}

TEST(Pool, EmptyPoolGivesNull)
{
    velk::pool<item*> p;
    EXPECT_EQ(p.create_instance(), nullptr);
}

TEST(Pool, ReleaseThenCreateOnOneThreadGivesTheSamePointer)
{
    velk::pool<item*> p;
    item a;
    p.release_instance(&a);
    EXPECT_EQ(p.create_instance(), &a);
}

TEST(Pool, ActsAsAStack)
{
    velk::pool<item*> p;
    item a, b;
    p.release_instance(&a);
    p.release_instance(&b);
    EXPECT_EQ(p.create_instance(), &b);
    EXPECT_EQ(p.create_instance(), &a);
    EXPECT_EQ(p.create_instance(), nullptr);
}

TEST(Pool, TakingTheLastItemLeavesItEmpty)
{
    velk::pool<item*> p;
    item a;
    p.release_instance(&a);
    p.create_instance();
    EXPECT_TRUE(p.is_empty());
}

// The sanitized build checks that the nodes are freed.
TEST(Pool, DestructionLeavesTheStoredObjectsAlive)
{
    item* kept = new item;
    {
        velk::pool<item*> p;
        p.release_instance(kept);
        item spare;
        p.release_instance(&spare);
        p.create_instance(); // one node on each stack
    }
    EXPECT_EQ(item::alive, 1);
    delete kept;
}

// Several threads take and give back a fixed set of items as fast as they
// can. A taken item is marked; a second taker of a marked item would be a
// duplicate. At the end every item is in the pool exactly once.
TEST(Pool, ConcurrentTakersNeitherLoseNorDuplicateItems)
{
    constexpr int thread_count = 4; // above a small machine's cores: preemption mid-exchange
    constexpr int batch = 3;        // items a thread holds at once
    constexpr int item_count = 8;   // fewer than 4 x 3: the pool runs dry at times
    constexpr int rounds = 100000;
    std::vector<item> items(item_count);
    velk::pool<item*> p;
    for (item& i : items)
        p.release_instance(&i);

    std::atomic<int> duplicates{0};
    auto taker = [&] {
        for (int r = 0; r < rounds; ++r) {
            item* held[batch] = {};
            for (item*& h : held) {
                h = p.create_instance();
                if (h && h->holders.fetch_add(1) != 0)
                    ++duplicates;
            }
            for (item* h : held) {
                if (h) {
                    h->holders.fetch_sub(1);
                    p.release_instance(h);
                }
            }
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t)
        threads.emplace_back(taker);
    for (std::thread& t : threads)
        t.join();

    EXPECT_EQ(duplicates.load(), 0);
    std::vector<int> seen(item_count, 0);
    int taken = 0;
    while (item* i = p.create_instance()) {
        ++seen[i - items.data()];
        ++taken;
    }
    EXPECT_EQ(taken, item_count);
    for (int n : seen)
        EXPECT_EQ(n, 1);
}
