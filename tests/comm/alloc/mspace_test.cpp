// Memory spaces: the edge cases of the allocator's contract, one fact per
// test, and the behaviour of every public operation.
#include "comm/alloc/mspace.h"

#include "comm/alloc/commalloc.h"
#include "comm/alloc/mspace_check.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using velk::mspace;

constexpr uint64_t kib = 1024;
constexpr uint64_t mib = 1024 * 1024;
constexpr uint64_t granule = 64 * kib;       // the allocation granularity
constexpr uint64_t max_request = ~uint64_t(0) - 127; // 2^64 - 128

uint64_t granule_round(uint64_t n)
{
    return (n + granule - 1) & ~(granule - 1);
}

// A fresh locked space with offset 0, destroyed after the test.
class space_test : public ::testing::Test
{
protected:
    void SetUp() override
    {
        space = velk::mspace_create(0, true, 0);
        ASSERT_NE(space, nullptr);
    }
    void TearDown() override
    {
        if (space) {
            EXPECT_TRUE(velk::mspace_check(space).ok()) << velk::mspace_check(space).problem;
            velk::mspace_destroy(space);
        }
    }
    void expect_consistent()
    {
        velk::mspace_check_result r = velk::mspace_check(space);
        EXPECT_TRUE(r.ok()) << r.problem;
    }
    mspace space = nullptr;
};

// A space like the global one before its first allocation, in local storage.
class regionless_test : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_LE(velk::mspace_state_bytes(), sizeof(storage));
        space = velk::mspace_init_regionless(storage);
    }
    void TearDown() override { velk::mspace_destroy(space); }
    alignas(16) unsigned char storage[1024];
    mspace space = nullptr;
};

using ChunkSize = space_test;
using SmallPath = space_test;
using TreePath = space_test;
using Limits = space_test;
using Top = space_test;
using GlobalSpaceStart = regionless_test;
using Owner = space_test;
using UsableSize = space_test;
using Reserved = space_test;
using Direct = space_test;
using SmallBin = space_test;
using Resize = space_test;
using ResizeInPlace = space_test;
using Statistics = space_test;
using FootprintLimit = space_test;
using TrackLargeBlocks = space_test;
using AllocZeroed = space_test;
using Group = space_test;
using Check = space_test;
using Trim = regionless_test;

} // namespace

// -- Edge cases ---------------------------------------------------------------------

TEST_F(ChunkSize, RequestsOf0To16TakeA32ByteChunkWith16UsableBytes)
{
    for (uint64_t n = 0; n <= 16; ++n) {
        void* p = velk::mspace_alloc(space, n);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(velk::mspace_chunk_size(p), 32u) << "request " << n;
        EXPECT_EQ(velk::mspace_usable_size(p), 16u) << "request " << n;
    }
}

TEST_F(ChunkSize, RequestOf17TakesA48ByteChunkWith32UsableBytes)
{
    void* p = velk::mspace_alloc(space, 17);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(velk::mspace_chunk_size(p), 48u);
    EXPECT_EQ(velk::mspace_usable_size(p), 32u);
}

TEST_F(SmallPath, RequestOf224IsServedFromItsSmallBin)
{
    void* a = velk::mspace_alloc(space, 224);
    void* guard = velk::mspace_alloc(space, 16);
    velk::mspace_release(a);
    ASSERT_NE(velk::mspace_check(space).small_map & (1u << 30), 0u); // 240-byte bin
    EXPECT_EQ(velk::mspace_alloc(space, 224), a);
    EXPECT_EQ(velk::mspace_check(space).small_map, 0u);
    velk::mspace_release(guard);
}

TEST_F(TreePath, RequestOf225IsServedFromTheTreeBin)
{
    void* a = velk::mspace_alloc(space, 225);
    void* guard = velk::mspace_alloc(space, 16);
    velk::mspace_release(a);
    ASSERT_EQ(velk::mspace_check(space).tree_map, 1u); // the 256-byte chunk in tree bin 0
    EXPECT_EQ(velk::mspace_alloc(space, 225), a);
    EXPECT_EQ(velk::mspace_check(space).tree_map, 0u);
    velk::mspace_release(guard);
}

TEST_F(TreePath, RequestOf225DoesNotTakeTheLargestSmallChunk)
{
    void* small = velk::mspace_alloc(space, 224);
    void* guard = velk::mspace_alloc(space, 16);
    velk::mspace_release(small);
    void* p = velk::mspace_alloc(space, 225);
    EXPECT_NE(p, small);
    EXPECT_NE(velk::mspace_check(space).small_map & (1u << 30), 0u);
    velk::mspace_release(guard);
}

TEST_F(Limits, RequestOf2To64Minus128FailsWithoutTouchingTheSystem)
{
    uint64_t before = velk::mspace_footprint(space);
    velk::mspace_stats st = velk::mspace_statistics(space);
    EXPECT_EQ(velk::mspace_alloc(space, max_request), nullptr);
    EXPECT_EQ(velk::mspace_footprint(space), before);
    EXPECT_EQ(velk::mspace_statistics(space).top_bytes, st.top_bytes);
}

TEST_F(Limits, LargestRequestFailsWhenNoRegionCanHoldIt)
{
    EXPECT_EQ(velk::mspace_alloc(space, max_request - 1), nullptr);
}

TEST_F(Top, AllocationOfExactlyTopSizeGoesToTheSystem)
{
    uint64_t top = velk::mspace_statistics(space).top_bytes;
    uint64_t before = velk::mspace_footprint(space);
    void* p = velk::mspace_alloc(space, top - 16); // chunk size == top size
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(velk::mspace_chunk_size(p), top);
    EXPECT_GE(velk::mspace_footprint(space), before + granule);
}

TEST_F(Top, AllocationOneChunkBelowTopSizeIsCutFromTheTop)
{
    uint64_t top = velk::mspace_statistics(space).top_bytes;
    uint64_t before = velk::mspace_footprint(space);
    ASSERT_NE(velk::mspace_alloc(space, top - 32), nullptr);
    EXPECT_EQ(velk::mspace_footprint(space), before);
    EXPECT_EQ(velk::mspace_statistics(space).top_bytes, 16u);
}

TEST_F(GlobalSpaceStart, FirstAllocationOf1MiBIsNotDirect)
{
    void* first = velk::mspace_alloc(space, mib);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(velk::mspace_direct_region_size(first), 0u);
    velk::mspace_release(first);
}

TEST_F(GlobalSpaceStart, SecondAllocationOf1MiBIsDirect)
{
    void* first = velk::mspace_alloc(space, mib);
    void* second = velk::mspace_alloc(space, mib);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(velk::mspace_direct_region_size(second), 0u);
    velk::mspace_release(second);
    velk::mspace_release(first);
}

TEST(ArraySpace, EveryUserPointerIs8Modulo16)
{
    mspace s = velk::mspace_create(0, true, 8);
    ASSERT_NE(s, nullptr);
    std::vector<void*> blocks;
    for (uint64_t n : {0, 1, 8, 17, 100, 224, 225, 1000, 5000, 70000, 300000, 1048576})
        blocks.push_back(velk::mspace_alloc(s, n));
    for (void*& p : blocks)
        p = velk::mspace_resize(s, p, velk::mspace_usable_size(p) * 2 + 40);
    uint64_t sizes[3] = {10, 300, 40};
    void* group[3];
    ASSERT_NE(velk::mspace_alloc_group(s, 3, sizes, 0, group), nullptr);
    blocks.insert(blocks.end(), group, group + 3);
    blocks.push_back(velk::mspace_reserve_block(s, 100));
    for (void* p : blocks) {
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 8u);
    }
    for (void* p : blocks)
        velk::mspace_release(p);
    EXPECT_TRUE(velk::mspace_check(s).ok()) << velk::mspace_check(s).problem;
    velk::mspace_destroy(s);
}

TEST_F(Owner, OfADirectBlockIsItsSpace)
{
    void* p = velk::mspace_alloc(space, mib);
    ASSERT_NE(velk::mspace_direct_region_size(p), 0u);
    EXPECT_EQ(velk::mspace_owner(p), space);
    velk::mspace_release(p);
}

TEST_F(UsableSize, OfAReleasedBlockInABinIsZero)
{
    void* p = velk::mspace_alloc(space, 100);
    void* guard = velk::mspace_alloc(space, 100);
    velk::mspace_release(p);
    ASSERT_NE(velk::mspace_check(space).small_map, 0u);
    EXPECT_EQ(velk::mspace_usable_size(p), 0u);
    velk::mspace_release(guard);
}

TEST_F(Reserved, ResizeBeyondCapacityReturnsNullAndLeavesTheBlockIntact)
{
    void* r = velk::mspace_reserve_block(space, mib);
    ASSERT_NE(r, nullptr);
    uint64_t capacity = velk::mspace_reserved_capacity(r);
    uint64_t usable = velk::mspace_usable_size(r);
    std::memset(r, 0x5a, usable);
    EXPECT_EQ(velk::mspace_resize_in_place(r, capacity + 1), nullptr);
    EXPECT_EQ(velk::mspace_resize(space, r, capacity + 1), nullptr);
    EXPECT_EQ(velk::mspace_reserved_capacity(r), capacity);
    EXPECT_EQ(velk::mspace_usable_size(r), usable);
    for (uint64_t i = 0; i < usable; ++i)
        ASSERT_EQ(static_cast<unsigned char*>(r)[i], 0x5a) << "byte " << i;
    velk::mspace_release(r);
}

TEST_F(Reserved, ShrinkingChangesNothing)
{
    void* r = velk::mspace_reserve_block(space, mib);
    ASSERT_NE(velk::mspace_resize_in_place(r, 200000), nullptr);
    uint64_t usable = velk::mspace_usable_size(r);
    EXPECT_EQ(velk::mspace_resize_in_place(r, 10), r);
    EXPECT_EQ(velk::mspace_resize(space, r, 10), r);
    EXPECT_EQ(velk::mspace_usable_size(r), usable);
    velk::mspace_release(r);
}

TEST_F(Direct, ReleaseTakesFootprintDownByTheWholeRegionAtOnce)
{
    uint64_t before = velk::mspace_footprint(space);
    void* p = velk::mspace_alloc(space, mib);
    uint64_t region = granule_round(mib + 16 + 63); // chunk size plus 63, in granules
    ASSERT_EQ(velk::mspace_footprint(space), before + region);
    velk::mspace_release(p);
    EXPECT_EQ(velk::mspace_footprint(space), before);
}

TEST_F(SmallBin, TwoEqualChunksReleasedInTurnComeBackInReverseOrder)
{
    void* a = velk::mspace_alloc(space, 40);
    void* guard_a = velk::mspace_alloc(space, 40);
    void* b = velk::mspace_alloc(space, 40);
    void* guard_b = velk::mspace_alloc(space, 40);
    velk::mspace_release(a);
    velk::mspace_release(b);
    EXPECT_EQ(velk::mspace_alloc(space, 40), b);
    EXPECT_EQ(velk::mspace_alloc(space, 40), a);
    velk::mspace_release(guard_a);
    velk::mspace_release(guard_b);
}

TEST_F(SmallBin, MergingWithTheOnlyChunkOfABinEmptiesThatBin)
{
    void* a = velk::mspace_alloc(space, 40);
    void* b = velk::mspace_alloc(space, 40);
    void* guard = velk::mspace_alloc(space, 40);
    velk::mspace_release(a);
    ASSERT_EQ(velk::mspace_check(space).small_map, 1u << 8); // one 64-byte chunk
    velk::mspace_release(b);                                 // merges with it
    EXPECT_EQ(velk::mspace_check(space).small_map, 1u << 16); // one 128-byte chunk
    velk::mspace_release(guard);
}

// -- Reserved blocks ---------------------------------------------------------------------

TEST_F(Reserved, CapacityIsTheReservationLessTheHeader)
{
    void* r = velk::mspace_reserve_block(space, 100000);
    // 100000 + 31 in whole granules, less 16 bytes of header (offset 0).
    EXPECT_EQ(velk::mspace_reserved_capacity(r), granule_round(100031) - 16);
    velk::mspace_release(r);
}

TEST_F(Reserved, FirstPageIsWhatIsUsable)
{
    void* r = velk::mspace_reserve_block(space, mib);
    EXPECT_EQ(velk::mspace_usable_size(r), 4096u - 16);
    velk::mspace_release(r);
}

TEST_F(Reserved, GrowsInPlaceUpToItsCapacityAndTheMemoryIsWritable)
{
    void* r = velk::mspace_reserve_block(space, 300000);
    uint64_t capacity = velk::mspace_reserved_capacity(r);
    for (uint64_t n : {5000u, 70000u, 300000u}) {
        ASSERT_EQ(velk::mspace_resize_in_place(r, n), r);
        ASSERT_GE(velk::mspace_usable_size(r), n);
        std::memset(r, 0x33, n);
    }
    ASSERT_EQ(velk::mspace_resize_in_place(r, capacity), r);
    EXPECT_EQ(velk::mspace_usable_size(r), capacity);
    std::memset(r, 0x44, capacity);
    velk::mspace_release(r);
}

TEST_F(Reserved, CountsTowardsNoFootprintAndHasNoOwner)
{
    uint64_t before = velk::mspace_footprint(space);
    void* r = velk::mspace_reserve_block(space, mib);
    EXPECT_EQ(velk::mspace_footprint(space), before);
    EXPECT_EQ(velk::mspace_owner(r), nullptr);
    velk::mspace_release(r);
}

TEST_F(Reserved, OrdinaryBlocksHaveNoReservedCapacity)
{
    void* p = velk::mspace_alloc(space, 100);
    EXPECT_EQ(velk::mspace_reserved_capacity(p), 0u);
    EXPECT_EQ(velk::mspace_reserved_capacity(nullptr), 0u);
}

// -- Null pointers ---------------------------------------------------------------------

TEST(NullPointer, IsAcceptedByEveryQuery)
{
    velk::mspace_release(nullptr);
    EXPECT_EQ(velk::mspace_usable_size(nullptr), 0u);
    EXPECT_EQ(velk::mspace_owner(nullptr), nullptr);
    EXPECT_EQ(velk::mspace_resize_in_place(nullptr, 10), nullptr);
}

// -- Resizing ------------------------------------------------------------------------------

TEST_F(Resize, OfNullAllocatesInTheNamedSpace)
{
    void* p = velk::mspace_resize(space, nullptr, 100);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(velk::mspace_owner(p), space);
}

TEST_F(Resize, GrowsInPlaceIntoTheTop)
{
    void* p = velk::mspace_alloc(space, 100);
    EXPECT_EQ(velk::mspace_resize(space, p, 5000), p);
    EXPECT_GE(velk::mspace_usable_size(p), 5000u);
    expect_consistent();
}

TEST_F(Resize, ThatMovesKeepsTheDataAndReleasesTheOldBlock)
{
    void* p = velk::mspace_alloc(space, 100);
    void* guard = velk::mspace_alloc(space, 100);
    std::memset(p, 0x7e, 100);
    void* q = velk::mspace_resize(space, p, 5000);
    ASSERT_NE(q, p);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(static_cast<unsigned char*>(q)[i], 0x7e);
    EXPECT_EQ(velk::mspace_usable_size(p), 0u); // the old chunk lies in a bin
    velk::mspace_release(guard);
    expect_consistent();
}

TEST_F(Resize, ToASmallerSizeStaysAndGivesTheTailBack)
{
    void* p = velk::mspace_alloc(space, 1000);
    void* guard = velk::mspace_alloc(space, 16);
    EXPECT_EQ(velk::mspace_resize(space, p, 100), p);
    EXPECT_EQ(velk::mspace_usable_size(p), 112u); // chunk of 128
    EXPECT_NE(velk::mspace_check(space).binned_chunks, 0u);
    velk::mspace_release(guard);
}

TEST_F(Resize, KeepsABlockInTheSpaceThatOwnsIt)
{
    mspace other = velk::mspace_create(0, true, 0);
    void* p = velk::mspace_alloc(space, 100);
    void* guard = velk::mspace_alloc(space, 100);
    void* q = velk::mspace_resize(other, p, 10000);
    EXPECT_EQ(velk::mspace_owner(q), space);
    velk::mspace_release(guard);
    velk::mspace_release(q);
    velk::mspace_destroy(other);
}

TEST_F(Resize, ToAnOversizedRequestFailsAndKeepsTheBlock)
{
    void* p = velk::mspace_alloc(space, 100);
    std::memset(p, 1, 100);
    EXPECT_EQ(velk::mspace_resize(space, p, max_request), nullptr);
    EXPECT_EQ(velk::mspace_usable_size(p), 112u);
    EXPECT_EQ(static_cast<unsigned char*>(p)[99], 1);
}

TEST_F(Resize, OfADirectBlockThatShrinksALittleStays)
{
    void* p = velk::mspace_alloc(space, mib);
    EXPECT_EQ(velk::mspace_resize(space, p, mib - 10000), p); // wastes under two granules
    velk::mspace_release(p);
}

TEST_F(Resize, OfADirectBlockThatGrowsMoves)
{
    void* p = velk::mspace_alloc(space, mib);
    static_cast<unsigned char*>(p)[mib - 1] = 9;
    void* q = velk::mspace_resize(space, p, 2 * mib);
    ASSERT_NE(q, nullptr);
    EXPECT_NE(q, p);
    EXPECT_EQ(static_cast<unsigned char*>(q)[mib - 1], 9);
    velk::mspace_release(q);
}

TEST_F(ResizeInPlace, FailsWhenTheNextChunkIsInUse)
{
    void* p = velk::mspace_alloc(space, 100);
    void* guard = velk::mspace_alloc(space, 100);
    EXPECT_EQ(velk::mspace_resize_in_place(p, 1000), nullptr);
    EXPECT_EQ(velk::mspace_usable_size(p), 112u);
    velk::mspace_release(guard);
}

TEST_F(ResizeInPlace, GrowsIntoAFreeNeighbour)
{
    void* p = velk::mspace_alloc(space, 100);
    void* next = velk::mspace_alloc(space, 1000);
    void* guard = velk::mspace_alloc(space, 100);
    velk::mspace_release(next);
    EXPECT_EQ(velk::mspace_resize_in_place(p, 600), p);
    EXPECT_GE(velk::mspace_usable_size(p), 600u);
    velk::mspace_release(guard);
    expect_consistent();
}

TEST_F(ResizeInPlace, GrowsIntoTheDesignatedRemainder)
{
    void* big = velk::mspace_alloc(space, 3000);
    void* guard = velk::mspace_alloc(space, 100);
    velk::mspace_release(big);
    void* p = velk::mspace_alloc(space, 100); // splits the free chunk; the rest is the remainder
    ASSERT_EQ(p, big);
    ASSERT_NE(velk::mspace_check(space).remainder_size, 0u);
    EXPECT_EQ(velk::mspace_resize_in_place(p, 2000), p);
    velk::mspace_release(guard);
    expect_consistent();
}

// -- Blocks and spaces ---------------------------------------------------------------------

TEST(Spaces, ReleaseFindsTheOwnerOfEachBlock)
{
    mspace a = velk::mspace_create(0, true, 0);
    mspace b = velk::mspace_create(0, false, 8);
    void* pa = velk::mspace_alloc(a, 5000);
    void* pb = velk::mspace_alloc(b, 5000);
    uint64_t used_a = velk::mspace_statistics(a).used_bytes;
    velk::mspace_release(pa);
    velk::mspace_release(pb);
    EXPECT_LT(velk::mspace_statistics(a).used_bytes, used_a);
    EXPECT_TRUE(velk::mspace_check(a).ok());
    EXPECT_TRUE(velk::mspace_check(b).ok());
    velk::mspace_destroy(a);
    velk::mspace_destroy(b);
}

TEST(Spaces, CreateWithAnAbsurdCapacityGivesNull)
{
    EXPECT_EQ(velk::mspace_create(~uint64_t(0) - 5000, true, 0), nullptr);
}

TEST(Spaces, CreateRoundsTheRegionToGranules)
{
    mspace s = velk::mspace_create(100000, true, 0);
    EXPECT_EQ(velk::mspace_footprint(s), granule_round(100000 + 1040));
    velk::mspace_destroy(s);
}

TEST(Spaces, DestroyReturnsTheBytesOfAllSegments)
{
    mspace s = velk::mspace_create(0, true, 0);
    for (int i = 0; i < 20; ++i)
        velk::mspace_alloc(s, 100000);
    uint64_t segments = velk::mspace_check(s).segment_bytes;
    EXPECT_GT(segments, granule);
    EXPECT_EQ(velk::mspace_destroy(s), segments);
}

TEST(SpacesAt, LiveInTheCallersMemory)
{
    alignas(16) static unsigned char buffer[64 * 1024];
    mspace s = velk::mspace_create_at(buffer, sizeof(buffer), false, 0);
    ASSERT_NE(s, nullptr);
    void* p = velk::mspace_alloc(s, 1000);
    EXPECT_GE(static_cast<unsigned char*>(s), buffer);
    EXPECT_GT(static_cast<unsigned char*>(p), buffer);
    EXPECT_LT(static_cast<unsigned char*>(p), buffer + sizeof(buffer));
    EXPECT_EQ(velk::mspace_destroy(s), 0u);
}

TEST(SpacesAt, GrowBeyondTheCallersMemory)
{
    std::vector<unsigned char> buffer(8 * 1024);
    mspace s = velk::mspace_create_at(buffer.data(), buffer.size(), true, 0);
    ASSERT_NE(s, nullptr);
    std::vector<void*> blocks;
    for (int i = 0; i < 100; ++i)
        blocks.push_back(velk::mspace_alloc(s, 1000));
    EXPECT_GT(velk::mspace_footprint(s), buffer.size());
    for (void* p : blocks)
        velk::mspace_release(p);
    EXPECT_TRUE(velk::mspace_check(s).ok()) << velk::mspace_check(s).problem;
    velk::mspace_destroy(s);
}

TEST(SpacesAt, RefuseACapacityOfAtMost1040PlusTheOffset)
{
    alignas(16) static unsigned char buffer[2048];
    EXPECT_EQ(velk::mspace_create_at(buffer, 1040, false, 0), nullptr);
    EXPECT_EQ(velk::mspace_create_at(buffer, 1048, false, 8), nullptr);
    EXPECT_NE(velk::mspace_create_at(buffer, 1041, false, 0), nullptr);
}

TEST(SpacesAt, AcceptABaseOffTheOffsetsResidue)
{
    alignas(16) static unsigned char buffer[16 * 1024];
    mspace s = velk::mspace_create_at(buffer + 8, sizeof(buffer) - 8, false, 0);
    ASSERT_NE(s, nullptr);
    void* p = velk::mspace_alloc(s, 100);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    velk::mspace_release(p);
    EXPECT_TRUE(velk::mspace_check(s).ok()) << velk::mspace_check(s).problem;
}

// -- Statistics and limits -------------------------------------------------------------------

TEST_F(Statistics, OfAFreshSpaceCountTheStateAsUsedAndTheTopAsFree)
{
    velk::mspace_stats st = velk::mspace_statistics(space);
    EXPECT_EQ(st.arena, velk::mspace_footprint(space));
    EXPECT_EQ(st.free_chunks, 1u);
    EXPECT_EQ(st.used_bytes, 960u); // the state chunk
    EXPECT_EQ(st.free_bytes + st.used_bytes, velk::mspace_footprint(space));
    EXPECT_EQ(st.direct_bytes, 0u);
}

TEST_F(Statistics, CountDirectBlocksOutsideTheArena)
{
    void* p = velk::mspace_alloc(space, mib);
    velk::mspace_stats st = velk::mspace_statistics(space);
    EXPECT_EQ(st.direct_bytes, velk::mspace_direct_region_size(p));
    EXPECT_EQ(st.peak_bytes, velk::mspace_peak_footprint(space));
    velk::mspace_release(p);
}

TEST_F(Statistics, CountFreeChunksInBins)
{
    void* a = velk::mspace_alloc(space, 100);
    void* guard = velk::mspace_alloc(space, 100);
    velk::mspace_release(a);
    EXPECT_EQ(velk::mspace_statistics(space).free_chunks, 2u);
    velk::mspace_release(guard);
}

TEST(GlobalStatistics, OfASpaceWithoutATopAreAllZero)
{
    alignas(16) unsigned char storage[1024];
    mspace s = velk::mspace_init_regionless(storage);
    velk::mspace_stats st = velk::mspace_statistics(s);
    EXPECT_EQ(st.arena + st.free_chunks + st.peak_bytes + st.free_bytes + st.top_bytes, 0u);
}

TEST_F(Statistics, PrintWritesThreeLinesToStandardError)
{
    testing::internal::CaptureStderr();
    velk::mspace_print_statistics(space);
    std::string out = testing::internal::GetCapturedStderr();
    EXPECT_NE(out.find("max system bytes = "), std::string::npos);
    EXPECT_NE(out.find("system bytes     =      65536\n"), std::string::npos);
    EXPECT_NE(out.find("in use bytes     =        960\n"), std::string::npos);
}

TEST_F(FootprintLimit, IsNoneUntilSet)
{
    EXPECT_EQ(velk::mspace_footprint_limit(space), ~uint64_t(0));
}

TEST_F(FootprintLimit, IsRoundedUpToTheGranularity)
{
    EXPECT_EQ(velk::mspace_set_footprint_limit(space, 100000), 2 * granule);
}

TEST_F(FootprintLimit, OfZeroMeansNone)
{
    velk::mspace_set_footprint_limit(space, 100000);
    EXPECT_EQ(velk::mspace_set_footprint_limit(space, 0), ~uint64_t(0));
}

TEST_F(FootprintLimit, StopsGrowthBeyondIt)
{
    velk::mspace_set_footprint_limit(space, 4 * granule);
    EXPECT_EQ(velk::mspace_alloc(space, mib), nullptr);
    EXPECT_EQ(velk::mspace_alloc(space, 4 * granule), nullptr);
    EXPECT_NE(velk::mspace_alloc(space, 2 * granule), nullptr);
    EXPECT_LE(velk::mspace_footprint(space), 4 * granule);
}

TEST_F(TrackLargeBlocks, KeepsLargeBlocksInsideTheSegments)
{
    EXPECT_FALSE(velk::mspace_track_large_blocks(space, true));
    void* p = velk::mspace_alloc(space, mib);
    EXPECT_EQ(velk::mspace_direct_region_size(p), 0u);
    EXPECT_TRUE(velk::mspace_track_large_blocks(space, false));
    velk::mspace_release(p);
}

TEST(Parameters, DirectThresholdDecidesWhatGoesDirect)
{
    mspace s = velk::mspace_create(0, true, 0);
    ASSERT_EQ(velk::mspace_set_parameter(velk::mspace_param_direct_threshold, 8192), 1);
    void* p = velk::mspace_alloc(s, 100000); // more than the top holds: a matter for the system
    velk::mspace_set_parameter(velk::mspace_param_direct_threshold, 256 * 1024);
    EXPECT_NE(velk::mspace_direct_region_size(p), 0u);
    velk::mspace_release(p);
    velk::mspace_destroy(s);
}

TEST(Parameters, GranularityMustBeAPowerOfTwoOfAtLeastAPage)
{
    EXPECT_EQ(velk::mspace_set_parameter(velk::mspace_param_granularity, 3 * 65536), 0);
    EXPECT_EQ(velk::mspace_set_parameter(velk::mspace_param_granularity, 1024), 0);
}

TEST(Parameters, UnknownCodeIsRefused)
{
    EXPECT_EQ(velk::mspace_set_parameter(5, 1), 0);
}

TEST_F(Trim, GivesBackWhatTheTopHoldsBeyondThePad)
{
    velk::mspace_set_parameter(velk::mspace_param_trim_threshold, -1); // no trim on release
    std::vector<void*> blocks;
    for (int i = 0; i < 40; ++i)
        blocks.push_back(velk::mspace_alloc(space, 200000));
    for (auto it = blocks.rbegin(); it != blocks.rend(); ++it)
        velk::mspace_release(*it);
    velk::mspace_set_parameter(velk::mspace_param_trim_threshold, 2 * 1024 * 1024);
    uint64_t before = velk::mspace_footprint(space);
    EXPECT_EQ(velk::mspace_trim(space, 0), 1);
    EXPECT_LT(velk::mspace_footprint(space), before);
    EXPECT_TRUE(velk::mspace_check(space).ok()) << velk::mspace_check(space).problem;
}

TEST_F(Trim, OfASpaceWithoutATopGivesNothing)
{
    EXPECT_EQ(velk::mspace_trim(space, 0), 0);
}

// -- Zeroed and grouped blocks -------------------------------------------------------------

TEST_F(AllocZeroed, ClearsReusedMemory)
{
    void* dirty = velk::mspace_alloc(space, 500);
    void* guard = velk::mspace_alloc(space, 16);
    std::memset(dirty, 0xff, 500);
    velk::mspace_release(dirty);
    auto* p = static_cast<unsigned char*>(velk::mspace_alloc_zeroed(space, 50, 10));
    ASSERT_EQ(static_cast<void*>(p), dirty);
    for (int i = 0; i < 500; ++i)
        ASSERT_EQ(p[i], 0) << "byte " << i;
    velk::mspace_release(guard);
}

TEST_F(AllocZeroed, FailsOnAnOverflowingProduct)
{
    EXPECT_EQ(velk::mspace_alloc_zeroed(space, uint64_t(1) << 33, uint64_t(1) << 33), nullptr);
}

TEST_F(Group, OfEqualSizesLiesAtAdjacentAddresses)
{
    uint64_t size = 40;
    void* table[4];
    ASSERT_EQ(velk::mspace_alloc_group(space, 4, &size, velk::mspace_group_equal_sizes, table), table);
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(static_cast<char*>(table[i]) - static_cast<char*>(table[i - 1]), 64);
    for (void* p : table)
        velk::mspace_release(p);
}

TEST_F(Group, WithATableOfItsOwnReleasesEachBlockAlone)
{
    uint64_t sizes[3] = {10, 300, 5000};
    void** table = velk::mspace_alloc_group(space, 3, sizes, velk::mspace_group_clear, nullptr);
    ASSERT_NE(table, nullptr);
    for (int i = 0; i < 3; ++i) {
        ASSERT_GE(velk::mspace_usable_size(table[i]), sizes[i]);
        for (uint64_t b = 0; b < sizes[i]; ++b)
            ASSERT_EQ(static_cast<unsigned char*>(table[i])[b], 0);
    }
    velk::mspace_release(table[1]);
    velk::mspace_release(table[0]);
    velk::mspace_release(table[2]);
    velk::mspace_release(table);
    expect_consistent();
}

TEST_F(Group, ReleaseSkipsAndCountsForeignBlocks)
{
    mspace other = velk::mspace_create(0, true, 0);
    void* table[5] = {velk::mspace_alloc(space, 100), velk::mspace_alloc(space, 100),
                      velk::mspace_alloc(other, 100), nullptr, velk::mspace_alloc(space, 3000)};
    void* foreign = table[2];
    EXPECT_EQ(velk::mspace_release_group(space, table, 5), 1u);
    EXPECT_EQ(table[0], nullptr);
    EXPECT_EQ(table[2], foreign);
    EXPECT_EQ(table[4], nullptr);
    EXPECT_EQ(velk::mspace_statistics(space).used_bytes, 960u);
    velk::mspace_release(foreign);
    velk::mspace_destroy(other);
}

// -- The consistency check itself ---------------------------------------------------------------

TEST_F(Check, ReportsAWrongFooter)
{
    void* p = velk::mspace_alloc(space, 100);
    void* guard = velk::mspace_alloc(space, 100);
    uint64_t* footer = reinterpret_cast<uint64_t*>(static_cast<char*>(p) + 112);
    uint64_t saved = *footer;
    *footer = 12345;
    EXPECT_FALSE(velk::mspace_check(space).ok());
    *footer = saved;
    velk::mspace_release(guard);
}

TEST_F(Check, ReportsABinnedChunkWithTheWrongSize)
{
    void* p = velk::mspace_alloc(space, 100);
    void* guard = velk::mspace_alloc(space, 100);
    velk::mspace_release(p);
    uint64_t* head = reinterpret_cast<uint64_t*>(static_cast<char*>(p) - 8);
    uint64_t saved = *head;
    *head = saved + 16;
    EXPECT_FALSE(velk::mspace_check(space).ok());
    *head = saved;
    velk::mspace_release(guard);
}

// -- The global space -----------------------------------------------------------------------------

TEST(GlobalSpace, BacksGlobalAlloc)
{
    void* p = velk::global_alloc(100);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(velk::mspace_owner(p), velk::global_mspace());
    EXPECT_GE(velk::global_usable_size(p), 100u);
    velk::global_release(p);
    EXPECT_TRUE(velk::mspace_check(velk::global_mspace()).ok());
}

TEST(GlobalSpace, ResizesByTheFooter)
{
    void* p = velk::global_alloc(100);
    std::memset(p, 3, 100);
    void* q = velk::global_resize(p, 100000);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(static_cast<unsigned char*>(q)[99], 3);
    EXPECT_EQ(velk::mspace_owner(q), velk::global_mspace());
    velk::global_release(q);
}

TEST(GlobalSpace, AlignedAllocationHonoursTheAlignment)
{
    for (uint64_t align : {8u, 32u, 64u, 256u, 4096u, 65536u}) {
        void* p = nullptr;
        ASSERT_EQ(velk::global_alloc_aligned(&p, align, 1000), 0) << align;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % align, 0u) << align;
        EXPECT_GE(velk::global_usable_size(p), 1000u);
        velk::global_release(p);
    }
    EXPECT_TRUE(velk::mspace_check(velk::global_mspace()).ok());
}

TEST(GlobalSpace, AlignedDirectBlocksGoBackWhole)
{
    void* warm = velk::global_alloc(16); // a top exists, so large blocks go direct
    velk::mspace_stats before = velk::global_statistics();
    void* p = nullptr;
    ASSERT_EQ(velk::global_alloc_aligned(&p, 65536, mib), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 65536, 0u);
    EXPECT_NE(velk::mspace_direct_region_size(p), 0u);
    velk::global_release(p);
    EXPECT_EQ(velk::global_statistics().direct_bytes, before.direct_bytes);
    velk::global_release(warm);
}

TEST(GlobalSpace, AlignedAllocationRefusesABadAlignment)
{
    void* p = nullptr;
    EXPECT_EQ(velk::global_alloc_aligned(&p, 24, 100), 22);
    EXPECT_EQ(velk::global_alloc_aligned(&p, 4, 100), 22);
    EXPECT_EQ(velk::global_alloc_aligned(&p, 0, 100), 22);
    EXPECT_EQ(p, nullptr);
}

TEST(GlobalSpace, AlignedAllocationReportsAnImpossibleSize)
{
    void* p = nullptr;
    EXPECT_EQ(velk::global_alloc_aligned(&p, 64, ~uint64_t(0) - 10), 12);
}

TEST(GlobalSpace, WholePagesAreAlignedAndRoundedUp)
{
    void* p = velk::global_alloc_whole_pages(5000);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 4096, 0u);
    EXPECT_GE(velk::global_usable_size(p), 8192u);
    velk::global_release(p);
    void* q = velk::global_alloc_page_aligned(5000);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 4096, 0u);
    velk::global_release(q);
}

TEST(GlobalSpace, ZeroedGroupOfEqualSizesGivesClearedBlocks)
{
    uint64_t size = 24;
    void** table = velk::global_alloc_group(10, &size, velk::mspace_group_equal_sizes | velk::mspace_group_clear, nullptr);
    ASSERT_NE(table, nullptr);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(static_cast<uint64_t*>(table[i])[0], 0u);
        velk::global_release(table[i]);
    }
    velk::global_release(table);
}

TEST(GlobalSpace, ZeroedAllocationClears)
{
    auto* p = static_cast<unsigned char*>(velk::global_alloc_zeroed(10, 30));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 300; ++i)
        ASSERT_EQ(p[i], 0);
    velk::global_release(p);
}

TEST(GlobalSpace, ResizeInPlaceToASmallerSizeKeepsThePointer)
{
    void* p = velk::global_alloc(1000);
    EXPECT_EQ(velk::global_resize_in_place(p, 50), p);
    EXPECT_EQ(velk::global_usable_size(p), 64u);
    velk::global_release(p);
}

TEST(GlobalSpace, AlignmentOf16IsPlainAllocation)
{
    void* p = nullptr;
    ASSERT_EQ(velk::global_alloc_aligned(&p, 16, 100), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    velk::global_release(p);
}

TEST(GlobalSpace, TrimKeepsItConsistent)
{
    void* p = velk::global_alloc(3 * 1024 * 1024);
    velk::global_release(p);
    velk::global_trim(0);
    EXPECT_TRUE(velk::mspace_check(velk::global_mspace()).ok());
}

TEST(GlobalSpace, CannotBeDestroyed)
{
    void* p = velk::global_alloc(10);
    EXPECT_EQ(velk::mspace_destroy(velk::global_mspace()), 0u);
    EXPECT_GT(velk::mspace_footprint(velk::global_mspace()), 0u);
    velk::global_release(p);
}
