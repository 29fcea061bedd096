#include "comm/dynarray.h"

#include "tests/support/array_requests.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <new>
#include <vector>

using velk::array_request;
using velk::comm_array_allocator;
using velk::dynarray;
using velk::testing::array_requests;

namespace {

// -- An allocator policy that grants exactly what is asked ---------------------
// Its size is the last request in bytes, so "capacity full" is a state a test
// can make; it records every request with the count word right after it. Its
// blocks are physically larger (at least 4 KiB), so a resize in place can be
// granted without writing past real memory.

struct exact_policy
{
    struct request
    {
        array_request kind;
        uint64_t count;
        uint64_t word;
        bool granted;
    };

    static inline std::vector<request> log;
    static inline std::map<const void*, uint64_t> granted;
    static inline int size_queries = 0;
    static inline bool in_place = false;    // grant resizes in place
    static inline bool fail_next = false;   // the next alloc or realloc throws
    static inline bool refuse_growth = false; // realloc answers null, as a reserved block

    static constexpr uint64_t physical_floor = 4096;

    static void clear()
    {
        log.clear();
        size_queries = 0;
        in_place = fail_next = refuse_growth = false;
    }

    template <class T>
    static T* alloc(uint64_t count, velk::mspace = nullptr)
    {
        throw_if_asked();
        void* p = comm_array_allocator::alloc(physical(count * sizeof(T)), 1);
        return static_cast<T*>(grant(array_request::alloc, p, count, sizeof(T)));
    }

    template <class T>
    static T* realloc(T* p, uint64_t count, velk::mspace = nullptr)
    {
        throw_if_asked();
        if (refuse_growth) {
            log.push_back({array_request::realloc, count, 0, false});
            return nullptr;
        }
        granted.erase(p);
        void* q = comm_array_allocator::realloc(p, physical(count * sizeof(T)), 1);
        return static_cast<T*>(grant(array_request::realloc, q, count, sizeof(T)));
    }

    template <class T>
    static bool resize_in_place(T* p, uint64_t count)
    {
        bool ok = in_place && count * sizeof(T) <= comm_array_allocator::size(p);
        if (ok)
            grant(array_request::resize_in_place, p, count, sizeof(T));
        else
            log.push_back({array_request::resize_in_place, count, 0, false});
        return ok;
    }

    static void free(void* p)
    {
        log.push_back({array_request::free, count(p), 0, true});
        granted.erase(p);
        comm_array_allocator::free(p);
    }

    static uint64_t size(const void* p)
    {
        ++size_queries;
        return p ? granted.at(p) : 0;
    }
    static uint64_t count(const void* p) { return comm_array_allocator::count(p); }
    static void set_count(void* p, uint64_t n) { comm_array_allocator::set_count(p, n); }

    // The asks (not frees) made since the last clear.
    static std::vector<request> asks()
    {
        std::vector<request> out;
        for (const request& r : log)
            if (r.kind != array_request::free)
                out.push_back(r);
        return out;
    }

private:
    static uint64_t physical(uint64_t bytes) { return bytes > physical_floor ? bytes : physical_floor; }

    static void throw_if_asked()
    {
        if (fail_next) {
            fail_next = false;
            throw std::bad_alloc();
        }
    }

    static void* grant(array_request kind, void* p, uint64_t count, uint64_t elem_size)
    {
        granted[p] = count * elem_size;
        set_count(p, count);
        log.push_back({kind, count, comm_array_allocator::count(p), true});
        return p;
    }
};

using exact_array = dynarray<uint32_t, uint32_t, exact_policy>;

class DynarrayExact : public ::testing::Test
{
protected:
    void SetUp() override { exact_policy::clear(); }
    void TearDown() override { exact_policy::clear(); }

    // An array whose count and capacity are both n.
    static void make_full(exact_array& a, uint32_t n)
    {
        uint32_t* p = a.add(n);
        for (uint32_t i = 0; i < n; ++i)
            p[i] = i;
        ASSERT_EQ(a.size(), n);
        ASSERT_EQ(a.capacity(), n);
        exact_policy::clear();
    }

    static uint64_t only_ask()
    {
        std::vector<exact_policy::request> asks = exact_policy::asks();
        EXPECT_EQ(asks.size(), 1u);
        return asks.empty() ? 0 : asks[0].count;
    }
};

// -- Element types that count their lives ----------------------------------------

struct lives
{
    static inline int defaults = 0, values = 0, copies = 0, moves = 0, destroyed = 0;
    static inline int dead_reads = 0; // copies or moves from an object already destroyed
    static inline std::vector<int> destroyed_ids;
    static inline std::set<const void*> alive;

    static void clear()
    {
        defaults = values = copies = moves = destroyed = dead_reads = 0;
        destroyed_ids.clear();
    }
    static int made() { return defaults + values + copies + moves; }
    static void born(const void* p) { alive.insert(p); }
    static void read(const void* p) { dead_reads += alive.count(p) ? 0 : 1; }
};

// R: whether the type says it may be moved by its bytes. A move by bytes
// bypasses the constructors, so alive (and dead_reads) only hold for R false.
template <bool R>
struct counted
{
    int id = -1;

    counted() { ++lives::defaults; lives::born(this); }
    explicit counted(int i) : id(i) { ++lives::values; lives::born(this); }
    counted(const counted& o) : id(o.id) { ++lives::copies; lives::read(&o); lives::born(this); }
    counted(counted&& o) noexcept : id(o.id) { ++lives::moves; lives::read(&o); lives::born(this); }
    counted& operator=(const counted&) = default;
    counted& operator=(counted&&) noexcept = default;
    ~counted()
    {
        ++lives::destroyed;
        lives::destroyed_ids.push_back(id);
        lives::alive.erase(this);
    }
};

using movable_counted = counted<false>;
using relocatable_counted = counted<true>;

} // namespace

template <>
struct velk::relocatable<relocatable_counted> : std::true_type {};

namespace {

class DynarrayLives : public ::testing::Test
{
protected:
    void SetUp() override { lives::clear(); }
};

template <class T>
void push_ids(dynarray<T>& a, int n)
{
    for (int i = 0; i < n; ++i)
        a.push(T(i));
}

} // namespace

// -- Edge cases of the growth rules ----------------------------------------------

TEST_F(DynarrayExact, AddOfZeroOnNullReturnsNull)
{
    exact_array a;
    EXPECT_EQ(a.add(0), nullptr);
}

TEST_F(DynarrayExact, AddOfZeroOnNullAllocatesNothing)
{
    exact_array a;
    a.add(0);
    EXPECT_TRUE(exact_policy::log.empty());
    EXPECT_EQ(a.ptr(), nullptr);
}

TEST_F(DynarrayExact, FirstAddOnNullRequestsExactlyN)
{
    exact_array a;
    a.add(7);
    EXPECT_EQ(only_ask(), 7u);
}

TEST_F(DynarrayExact, AddOfOneToTenFullRequestsFifteen)
{
    exact_array a;
    make_full(a, 10);
    a.add(1);
    EXPECT_EQ(only_ask(), 15u);
}

TEST_F(DynarrayExact, AddOfSixToTenFullRequestsSixteen)
{
    exact_array a;
    make_full(a, 10);
    a.add(6);
    EXPECT_EQ(only_ask(), 16u);
}

TEST_F(DynarrayExact, AllocOfElevenWithTenFullRequestsTwenty)
{
    exact_array a;
    make_full(a, 10);
    a.alloc(11);
    EXPECT_EQ(exact_policy::asks().back().count, 20u);
}

TEST_F(DynarrayExact, AllocOfThirtyWithTenFullRequestsThirty)
{
    exact_array a;
    make_full(a, 10);
    a.alloc(30);
    EXPECT_EQ(exact_policy::asks().back().count, 30u);
}

TEST(DynarrayCountWord, HoldsTheRequestRightAfterRealloc)
{
    dynarray<uint32_t> a;
    a.add(10); // from 10 on, half the count is more than one element
    while (a.size() < a.capacity())
        a.add(1);
    uint64_t c = a.size();
    array_requests requests;
    a.add(1);
    ASSERT_EQ(requests.asks().size(), 1u);
    EXPECT_EQ(requests.asks()[0].kind, array_request::realloc);
    EXPECT_EQ(requests.asks()[0].word, c + c / 2);
}

TEST(DynarrayCountWord, HoldsTheArrayCountAfterAdd)
{
    dynarray<uint32_t> a;
    a.add(1);
    while (a.size() < a.capacity())
        a.add(1);
    uint64_t c = a.size();
    a.add(1);
    EXPECT_EQ(comm_array_allocator::count(a.ptr()), c + 1);
}

TEST(DynarrayCountWord, HoldsTheRequestRightAfterAlloc)
{
    dynarray<uint32_t> a;
    a.alloc(4);
    uint64_t cap = a.capacity();
    array_requests requests;
    a.alloc(static_cast<uint32_t>(cap + 1));
    std::vector<array_requests::request> asks = requests.asks();
    ASSERT_FALSE(asks.empty());
    EXPECT_NE(asks.back().p, nullptr);
    EXPECT_EQ(asks.back().word, cap + 1 > 8 ? cap + 1 : 8u); // larger of n and 2 * 4
}

TEST(DynarrayCountWord, HoldsTheArrayCountAfterAlloc)
{
    dynarray<uint32_t> a;
    a.alloc(4);
    uint32_t n = static_cast<uint32_t>(a.capacity() + 1);
    a.alloc(n);
    EXPECT_EQ(comm_array_allocator::count(a.ptr()), n);
}

TEST(DynarrayResize, SmallerCountKeepsTheElementsAboveUnchanged)
{
    dynarray<uint32_t> a;
    uint32_t* p = a.add(10);
    for (uint32_t i = 0; i < 10; ++i)
        p[i] = 100 + i;
    a.resize(3);
    ASSERT_EQ(a.ptr(), p);
    for (uint32_t i = 3; i < 10; ++i)
        EXPECT_EQ(p[i], 100 + i);
}

TEST_F(DynarrayLives, ResizeToSmallerCountDestroysNothing)
{
    dynarray<relocatable_counted> a;
    push_ids(a, 5);
    relocatable_counted* p = a.ptr();
    int before = lives::destroyed;
    a.resize(2);
    EXPECT_EQ(lives::destroyed, before);
    std::destroy(p + 2, p + 5); // the caller's part, after a resize down
}

// -- More of the growth rules ------------------------------------------------------

TEST_F(DynarrayExact, PushOnOneFullRequestsTwo)
{
    exact_array a;
    make_full(a, 1);
    a.push();
    EXPECT_EQ(only_ask(), 2u);
}

TEST_F(DynarrayExact, PushOnTenFullRequestsFifteen)
{
    exact_array a;
    make_full(a, 10);
    a.push();
    EXPECT_EQ(only_ask(), 15u);
}

TEST_F(DynarrayExact, AddWithinCapacityMakesNoRequest)
{
    exact_array a;
    make_full(a, 10);
    a.resize(4);
    exact_policy::clear();
    a.add(6);
    EXPECT_TRUE(exact_policy::log.empty());
    EXPECT_EQ(a.size(), 10u);
}

TEST_F(DynarrayExact, GrowthByAddKeepsTheContents)
{
    exact_array a;
    make_full(a, 10);
    a.add(1);
    for (uint32_t i = 0; i < 10; ++i)
        EXPECT_EQ(a[i], i);
}

TEST_F(DynarrayExact, ResizeAboveFullCapacityRequestsHalfAgain)
{
    exact_array a;
    make_full(a, 10);
    a.resize(12);
    EXPECT_EQ(only_ask(), 15u);
}

TEST_F(DynarrayExact, ResizeFarAboveFullCapacityRequestsTheNewCount)
{
    exact_array a;
    make_full(a, 10);
    a.resize(40);
    EXPECT_EQ(only_ask(), 40u);
}

TEST_F(DynarrayExact, ResizeWithinCapacityMakesNoRequest)
{
    exact_array a;
    make_full(a, 10);
    a.resize(2);
    a.resize(9);
    EXPECT_TRUE(exact_policy::log.empty());
    EXPECT_EQ(a.size(), 9u);
}

TEST_F(DynarrayExact, InsertGapOnTenFullRequestsTwenty)
{
    exact_array a;
    make_full(a, 10);
    a.insert_gap(0, 1);
    EXPECT_EQ(only_ask(), 20u);
}

TEST_F(DynarrayExact, InsertGapLargerThanTheCountRequestsTheNewCount)
{
    exact_array a;
    make_full(a, 10);
    a.insert_gap(0, 25);
    EXPECT_EQ(only_ask(), 35u);
}

TEST_F(DynarrayExact, InsertGapOnNullRequestsTheGap)
{
    exact_array a;
    a.insert_gap(0, 3);
    EXPECT_EQ(only_ask(), 3u);
}

TEST_F(DynarrayExact, InsertGapKeepsHeadAndMovesTail)
{
    exact_array a;
    make_full(a, 5);
    uint32_t* gap = a.insert_gap(2, 3);
    ASSERT_EQ(gap, a.ptr() + 2);
    ASSERT_EQ(a.size(), 8u);
    EXPECT_EQ(a[0], 0u);
    EXPECT_EQ(a[1], 1u);
    EXPECT_EQ(a[5], 2u);
    EXPECT_EQ(a[6], 3u);
    EXPECT_EQ(a[7], 4u);
}

TEST_F(DynarrayExact, AllocWithinTheCountAsksNoCapacity)
{
    exact_array a;
    make_full(a, 10);
    a.alloc(5);
    EXPECT_EQ(exact_policy::size_queries, 0);
    EXPECT_EQ(a.size(), 5u);
}

TEST_F(DynarrayExact, AllocWithinCapacityMakesNoRequest)
{
    exact_array a;
    make_full(a, 10);
    a.resize(2);
    exact_policy::clear();
    uint32_t* before = a.ptr();
    EXPECT_EQ(a.alloc(9), before);
    EXPECT_TRUE(exact_policy::log.empty());
    EXPECT_EQ(a.size(), 9u);
}

TEST_F(DynarrayExact, AllocOnNullRequestsN)
{
    exact_array a;
    a.alloc(6);
    EXPECT_EQ(only_ask(), 6u);
    EXPECT_EQ(a.size(), 6u);
}

TEST_F(DynarrayExact, AllocTriesTheBlockInPlaceFirst)
{
    exact_array a;
    make_full(a, 10);
    exact_policy::in_place = true;
    uint32_t* before = a.ptr();
    a.alloc(11);
    ASSERT_EQ(exact_policy::log.size(), 1u);
    EXPECT_EQ(exact_policy::log[0].kind, array_request::resize_in_place);
    EXPECT_EQ(a.ptr(), before);
}

TEST_F(DynarrayExact, AllocInPlaceLeavesTheRequestInTheWordThenTheCount)
{
    exact_array a;
    make_full(a, 10);
    exact_policy::in_place = true;
    a.alloc(11);
    EXPECT_EQ(exact_policy::log[0].word, 20u);
    EXPECT_EQ(a.size(), 11u);
}

TEST_F(DynarrayExact, AllocRefusedInPlaceFreesThenAllocates)
{
    exact_array a;
    make_full(a, 10);
    a.alloc(11);
    ASSERT_EQ(exact_policy::log.size(), 3u);
    EXPECT_EQ(exact_policy::log[0].kind, array_request::resize_in_place);
    EXPECT_FALSE(exact_policy::log[0].granted);
    EXPECT_EQ(exact_policy::log[1].kind, array_request::free);
    EXPECT_EQ(exact_policy::log[2].kind, array_request::alloc);
    EXPECT_EQ(exact_policy::log[2].count, 20u);
}

// -- Failures ------------------------------------------------------------------------

TEST_F(DynarrayExact, FailedGrowthLeavesTheArrayUnchanged)
{
    exact_array a;
    make_full(a, 10);
    uint32_t* before = a.ptr();
    exact_policy::fail_next = true;
    EXPECT_THROW(a.add(1), std::bad_alloc);
    EXPECT_EQ(a.ptr(), before);
    EXPECT_EQ(a.size(), 10u);
    EXPECT_EQ(a[9], 9u);
}

TEST_F(DynarrayExact, FailedAllocAfterTheFreeLeavesTheArrayNull)
{
    exact_array a;
    make_full(a, 10);
    exact_policy::fail_next = true;
    EXPECT_THROW(a.alloc(11), std::bad_alloc);
    EXPECT_EQ(a.ptr(), nullptr);
    EXPECT_EQ(a.size(), 0u);
}

TEST_F(DynarrayExact, GrowthRefusedByAReservedBlockGivesANullBase)
{
    exact_array a;
    make_full(a, 10);
    uint32_t* block = a.ptr();
    exact_policy::refuse_growth = true;
    EXPECT_EQ(a.add(1), nullptr);
    EXPECT_EQ(a.ptr(), nullptr);
    exact_policy::free(block); // the reserved block stays its owner's
}

// -- Lives of elements -------------------------------------------------------------

TEST_F(DynarrayLives, PushDefaultConstructsOneElement)
{
    dynarray<movable_counted> a;
    a.push();
    EXPECT_EQ(lives::defaults, 1);
    EXPECT_EQ(lives::made(), 1);
}

TEST_F(DynarrayLives, PushOfAPlainRecordValueInitialises)
{
    struct record
    {
        uint32_t a;
        uint64_t b;
    };
    dynarray<record> a;
    a.add(3);
    memset(a.ptr(), 0xAB, 3 * sizeof(record));
    a.resize(0);
    record* r = a.push();
    EXPECT_EQ(r->a, 0u);
    EXPECT_EQ(r->b, 0u);
}

TEST_F(DynarrayLives, PushOfAnLvalueCopiesOnce)
{
    dynarray<movable_counted> a;
    movable_counted v(5);
    lives::clear();
    a.push(v);
    EXPECT_EQ(lives::copies, 1);
    EXPECT_EQ(lives::made(), 1);
    EXPECT_EQ(a[0].id, 5);
}

TEST_F(DynarrayLives, PushOfOwnElementSurvivesGrowth)
{
    dynarray<movable_counted> a;
    push_ids(a, 1);
    while (a.size() < a.capacity())
        a.push();
    lives::clear();
    a.push(a[0]); // growth moves and destroys a[0] before the copy is made
    EXPECT_EQ(lives::dead_reads, 0);
    EXPECT_EQ(a.last().id, 0);
}

TEST_F(DynarrayLives, PushOfOwnMovedElementSurvivesGrowth)
{
    dynarray<movable_counted> a;
    push_ids(a, 1);
    while (a.size() < a.capacity())
        a.push();
    lives::clear();
    a.push(std::move(a[0]));
    EXPECT_EQ(lives::dead_reads, 0);
    EXPECT_EQ(a.last().id, 0);
}

TEST_F(DynarrayLives, GrowthOfRelocatableElementsMovesNone)
{
    dynarray<relocatable_counted> a;
    push_ids(a, 1);
    lives::clear();
    while (a.size() < a.capacity())
        a.push();
    lives::clear();
    a.push();
    EXPECT_EQ(lives::moves, 0);
    EXPECT_EQ(lives::destroyed, 0);
}

TEST_F(DynarrayLives, GrowthOfOtherElementsMovesEachAndDestroysTheOld)
{
    dynarray<movable_counted> a;
    push_ids(a, 1);
    while (a.size() < a.capacity())
        a.push();
    int c = a.size();
    lives::clear();
    a.push();
    EXPECT_EQ(lives::moves, c);
    EXPECT_EQ(lives::destroyed, c);
    EXPECT_EQ(a[0].id, 0);
}

TEST_F(DynarrayLives, DiscardDestroysInIndexOrder)
{
    dynarray<relocatable_counted> a;
    push_ids(a, 4);
    lives::clear();
    a.discard();
    EXPECT_EQ(lives::destroyed_ids, (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(a.ptr(), nullptr);
}

TEST_F(DynarrayLives, DestructorDestroysEveryElement)
{
    {
        dynarray<movable_counted> a;
        push_ids(a, 6);
    }
    EXPECT_EQ(lives::destroyed, lives::made());
}

TEST_F(DynarrayLives, ResetDestroysAllAndKeepsTheBlock)
{
    dynarray<relocatable_counted> a;
    push_ids(a, 3);
    relocatable_counted* block = a.ptr();
    lives::clear();
    a.reset();
    EXPECT_EQ(lives::destroyed, 3);
    EXPECT_EQ(a.ptr(), block);
    EXPECT_EQ(a.size(), 0u);
}

TEST_F(DynarrayLives, CopyConstructsEachElementOnce)
{
    dynarray<movable_counted> a;
    push_ids(a, 5);
    lives::clear();
    dynarray<movable_counted> b(a);
    EXPECT_EQ(lives::copies, 5);
    EXPECT_EQ(lives::made(), 5);
}

TEST_F(DynarrayLives, CopyRequestsExactlyTheSourceCount)
{
    dynarray<uint32_t> a;
    a.add(7);
    array_requests requests;
    dynarray<uint32_t> b(a);
    ASSERT_EQ(requests.asks().size(), 1u);
    EXPECT_EQ(requests.asks()[0].count, 7u);
    EXPECT_EQ(b.size(), 7u);
}

TEST_F(DynarrayLives, CopyAssignmentReplacesAndDestroysTheOld)
{
    dynarray<movable_counted> a, b;
    push_ids(a, 2);
    push_ids(b, 3);
    lives::clear();
    b = a;
    EXPECT_EQ(lives::copies, 2);
    EXPECT_EQ(lives::destroyed, 3);
    EXPECT_EQ(b.size(), 2u);
}

TEST_F(DynarrayLives, MoveTakesTheBlockWithoutTouchingElements)
{
    dynarray<movable_counted> a;
    push_ids(a, 3);
    movable_counted* block = a.ptr();
    lives::clear();
    dynarray<movable_counted> b(std::move(a));
    EXPECT_EQ(b.ptr(), block);
    EXPECT_EQ(a.ptr(), nullptr);
    EXPECT_EQ(lives::made(), 0);
}

TEST_F(DynarrayLives, PopMovesOutAndDestroysTheSlot)
{
    dynarray<movable_counted> a;
    push_ids(a, 2);
    movable_counted out;
    lives::clear();
    EXPECT_TRUE(a.pop(out));
    EXPECT_EQ(out.id, 1);
    EXPECT_EQ(lives::destroyed, 1);
    EXPECT_EQ(a.size(), 1u);
}

TEST_F(DynarrayLives, DelDestroysTheRemovedAndClosesTheGap)
{
    dynarray<relocatable_counted> a;
    push_ids(a, 5);
    lives::clear();
    a.del(1, 2);
    EXPECT_EQ(lives::destroyed_ids, (std::vector<int>{1, 2}));
    ASSERT_EQ(a.size(), 3u);
    EXPECT_EQ(a[1].id, 3);
    EXPECT_EQ(a[2].id, 4);
}

TEST_F(DynarrayLives, DelOfOtherElementsMovesTheTailDown)
{
    dynarray<movable_counted> a;
    push_ids(a, 5);
    lives::clear();
    a.del(0, 2);
    ASSERT_EQ(a.size(), 3u);
    EXPECT_EQ(a[0].id, 2);
    EXPECT_EQ(a[2].id, 4);
    EXPECT_EQ(lives::destroyed, 2);
}

TEST_F(DynarrayLives, DelPastTheEndIsLimitedToTheCount)
{
    dynarray<uint32_t> a;
    a.push(1);
    a.push(2);
    a.push(3);
    a.del(1, 100);
    ASSERT_EQ(a.size(), 1u);
    EXPECT_EQ(a[0], 1u);
}

TEST_F(DynarrayLives, ArrayOfArraysGrowsWithoutLeaks)
{
    dynarray<dynarray<uint32_t>> outer;
    for (uint32_t i = 0; i < 50; ++i)
        outer.push()->push(i);
    EXPECT_EQ(outer[49][0], 49u);
}

// -- The empty forms: null, and a kept block with count 0 ------------------------------

namespace {

enum class empty_form { null, count0 };

class DynarrayEmpty : public ::testing::TestWithParam<empty_form>
{
protected:
    void SetUp() override
    {
        if (GetParam() == empty_form::count0) {
            a.add(3);
            a.reset();
        }
        block = a.ptr();
    }

    dynarray<uint32_t> a;
    uint32_t* block = nullptr;
};

} // namespace

TEST_P(DynarrayEmpty, HasNoElements)
{
    EXPECT_EQ(a.size(), 0u);
    EXPECT_TRUE(a.is_empty());
    EXPECT_EQ(a.begin(), a.end());
}

TEST_P(DynarrayEmpty, AddOfZeroGivesTheBase)
{
    EXPECT_EQ(a.add(0), block);
}

TEST_P(DynarrayEmpty, AddGivesElementZero)
{
    uint32_t* p = a.add(2);
    EXPECT_EQ(p, a.ptr());
    EXPECT_EQ(a.size(), 2u);
}

TEST_P(DynarrayEmpty, PushMakesOneZeroElement)
{
    a.push();
    ASSERT_EQ(a.size(), 1u);
    EXPECT_EQ(a[0], 0u);
}

TEST_P(DynarrayEmpty, PopGivesFalse)
{
    uint32_t out = 9;
    EXPECT_FALSE(a.pop(out));
    EXPECT_EQ(out, 9u);
}

TEST_P(DynarrayEmpty, AllocOfZeroKeepsTheForm)
{
    EXPECT_EQ(a.alloc(0), block);
    EXPECT_EQ(a.size(), 0u);
}

TEST_P(DynarrayEmpty, AllocGivesTheCount)
{
    a.alloc(4);
    EXPECT_EQ(a.size(), 4u);
}

TEST_P(DynarrayEmpty, ResizeOfZeroKeepsTheForm)
{
    EXPECT_EQ(a.resize(0), block);
    EXPECT_EQ(a.ptr(), block);
}

TEST_P(DynarrayEmpty, ResizeGivesTheCount)
{
    a.resize(5);
    EXPECT_EQ(a.size(), 5u);
}

TEST_P(DynarrayEmpty, InsertGapGivesElementZero)
{
    uint32_t* p = a.insert_gap(0, 2);
    EXPECT_EQ(p, a.ptr());
    EXPECT_EQ(a.size(), 2u);
}

TEST_P(DynarrayEmpty, DelDoesNothing)
{
    a.del(0, 1);
    EXPECT_EQ(a.ptr(), block);
    EXPECT_EQ(a.size(), 0u);
}

TEST_P(DynarrayEmpty, ResetKeepsTheForm)
{
    a.reset();
    EXPECT_EQ(a.ptr(), block);
    EXPECT_EQ(a.size(), 0u);
}

TEST_P(DynarrayEmpty, CopyIsNull)
{
    dynarray<uint32_t> b(a);
    EXPECT_EQ(b.ptr(), nullptr);
}

TEST_P(DynarrayEmpty, DiscardLeavesNull)
{
    a.discard();
    EXPECT_EQ(a.ptr(), nullptr);
}

TEST_P(DynarrayEmpty, CapacityIsZeroOnlyWhenNull)
{
    EXPECT_EQ(a.capacity() == 0, block == nullptr);
}

INSTANTIATE_TEST_SUITE_P(Forms, DynarrayEmpty, ::testing::Values(empty_form::null, empty_form::count0),
                         [](const ::testing::TestParamInfo<empty_form>& info) {
                             return info.param == empty_form::null ? "null" : "count0";
                         });

// -- Smaller facts -----------------------------------------------------------------------

TEST(Dynarray, IsOnePointerWide)
{
    EXPECT_EQ(sizeof(dynarray<uint64_t>), sizeof(void*));
}

TEST(Dynarray, ElementsAreSixteenByteAligned)
{
    dynarray<char> a;
    a.add(1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(a.ptr()) % 16, 0u);
}

TEST(Dynarray, AddReturnsTheFirstNewElement)
{
    dynarray<uint32_t> a;
    a.add(3);
    uint32_t* p = a.add(2);
    EXPECT_EQ(p, a.ptr() + 3);
    EXPECT_EQ(a.size(), 5u);
}

TEST(Dynarray, PublicCountIsTheLowBitsOfTheWord)
{
    dynarray<uint8_t, uint16_t> a;
    a.add(1);
    comm_array_allocator::set_count(a.ptr(), 0x10005);
    EXPECT_EQ(a.size(), 5u);
    comm_array_allocator::set_count(a.ptr(), 1);
}

TEST(Dynarray, PushedValuesReadBackInOrder)
{
    dynarray<uint64_t> a;
    for (uint64_t i = 0; i < 1000; ++i)
        a.push(i * 3);
    ASSERT_EQ(a.size(), 1000u);
    for (uint64_t i = 0; i < 1000; ++i)
        ASSERT_EQ(a[i], i * 3);
}

TEST(Dynarray, SwapExchangesBlocks)
{
    dynarray<uint32_t> a, b;
    a.push(1);
    uint32_t* block = a.ptr();
    a.swap(b);
    EXPECT_EQ(a.ptr(), nullptr);
    EXPECT_EQ(b.ptr(), block);
}
