#include "comm/alloc/commalloc.h"

#include "comm/alloc/mspace.h"
#include "comm/singleton.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

using velk::comm_array_allocator;

namespace {

// A space of the test's own, destroyed with the fixture.
class ArrayAllocatorSpace : public ::testing::Test
{
protected:
    void SetUp() override { space = velk::mspace_create(0, true, 8); }
    void TearDown() override { velk::mspace_destroy(space); }
    velk::mspace space = nullptr;
};

} // namespace

TEST(ArrayAllocator, CountZeroGivesARealBlock)
{
    void* p = comm_array_allocator::alloc(0, 4);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(comm_array_allocator::count(p), 0u);
    EXPECT_GT(comm_array_allocator::size(p), 0u);
    comm_array_allocator::free(p);
}

TEST(ArrayAllocator, NullHasNoSizeAndNoCount)
{
    EXPECT_EQ(comm_array_allocator::size(nullptr), 0u);
    EXPECT_EQ(comm_array_allocator::count(nullptr), 0u);
}

TEST(ArrayAllocator, CountWordHoldsTheCount)
{
    int* p = comm_array_allocator::alloc<int>(37);
    EXPECT_EQ(comm_array_allocator::count(p), 37u);
    EXPECT_GE(comm_array_allocator::capacity(p), 37u);
    comm_array_allocator::free(p);
}

TEST(ArrayAllocator, EveryArrayPointerIs16Aligned)
{
    void* blocks[200];
    for (int i = 0; i < 200; ++i) {
        blocks[i] = comm_array_allocator::alloc(static_cast<uint64_t>(i * 13), 1);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(blocks[i]) % 16, 0u) << i;
    }
    for (void* p : blocks)
        comm_array_allocator::free(p);
}

TEST(ArrayAllocator, LargeBlocksAre16AlignedToo)
{
    void* p = comm_array_allocator::alloc(1u << 20, 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    comm_array_allocator::free(p);
}

TEST(ArrayAllocator, ShrinkingKeepsDataAndStoresCount)
{
    char* p = comm_array_allocator::alloc<char>(100);
    memset(p, 'x', 100);
    char* q = comm_array_allocator::realloc(p, 10);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(comm_array_allocator::count(q), 10u);
    EXPECT_EQ(memcmp(q, "xxxxxxxxxx", 10), 0);
    comm_array_allocator::free(q);
}

TEST(ArrayAllocator, GrowingKeepsData)
{
    char* p = comm_array_allocator::alloc<char>(16);
    memcpy(p, "0123456789abcdef", 16);
    p = comm_array_allocator::realloc(p, 100000);
    EXPECT_EQ(memcmp(p, "0123456789abcdef", 16), 0);
    EXPECT_EQ(comm_array_allocator::count(p), 100000u);
    comm_array_allocator::free(p);
}

TEST_F(ArrayAllocatorSpace, ReallocOfNullAllocatesInTheGivenSpace)
{
    void* p = comm_array_allocator::realloc(nullptr, 10, 1, space);
    EXPECT_EQ(velk::mspace_owner(static_cast<char*>(p) - 8), space);
    comm_array_allocator::free(p);
}

TEST_F(ArrayAllocatorSpace, ReallocKeepsABlockInItsOwnSpace)
{
    void* p = comm_array_allocator::alloc(10, 1);
    velk::mspace own = velk::mspace_owner(static_cast<char*>(p) - 8);
    ASSERT_NE(own, space);
    p = comm_array_allocator::realloc(p, 5000, 1, space);
    EXPECT_EQ(velk::mspace_owner(static_cast<char*>(p) - 8), own);
    comm_array_allocator::free(p);
}

TEST_F(ArrayAllocatorSpace, BlockFreedOnAnotherThreadLeavesOwnerCorrect)
{
    uint64_t before = velk::mspace_statistics(space).used_bytes;
    void* p = comm_array_allocator::alloc(1000, 1, space);
    EXPECT_GT(velk::mspace_statistics(space).used_bytes, before);
    std::thread other([p] { comm_array_allocator::free(p); });
    other.join();
    EXPECT_EQ(velk::mspace_statistics(space).used_bytes, before);
    void* q = comm_array_allocator::alloc(1000, 1, space);
    EXPECT_NE(q, nullptr);
    comm_array_allocator::free(q);
}

TEST_F(ArrayAllocatorSpace, ReservedBlockThatCannotGrowGivesNull)
{
    // A reserved block is made by the space; the array pointer sits one word in.
    void* block = velk::mspace_reserve_block(space, 4096);
    ASSERT_NE(block, nullptr);
    uint64_t capacity = velk::mspace_reserved_capacity(block);
    ASSERT_GT(capacity, 0u);
    void* p = static_cast<char*>(block) + 8;
    comm_array_allocator::set_count(p, 1);
    EXPECT_EQ(comm_array_allocator::realloc(p, capacity * 2, 1), nullptr);
    EXPECT_EQ(comm_array_allocator::count(p), 1u);
    void* grown = comm_array_allocator::realloc(p, 100, 1);
    EXPECT_EQ(grown, p);
    EXPECT_EQ(comm_array_allocator::count(p), 100u);
    velk::mspace_release(block);
}

TEST(GlobalAlloc, GivesUsableBlocksAndTakesNull)
{
    void* p = velk::global_alloc(24);
    ASSERT_NE(p, nullptr);
    memset(p, 1, 24);
    velk::global_release(p);
    velk::global_release(nullptr);
}

TEST(ArraySpace, SharedRegistrationLeavesAnExistingSpaceAlone)
{
    velk::mspace before = velk::comm_array_space();
    int32_t nodes = velk::process_singleton_manager().count();
    velk::comm_array_mspace_ensure_shared("comm/log/logger", 227);
    EXPECT_EQ(velk::comm_array_space(), before);
    EXPECT_EQ(velk::process_singleton_manager().count(), nodes);
}
