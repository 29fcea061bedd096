// Memory spaces: heap corruption and misuse end the process on the spot with
// a trap instruction, and nothing is written on the way out.
#include "comm/alloc/mspace.h"

#include "comm/alloc/mspace_chunk.h" // the magic, to forge a footer
#include "tests/support/process_env.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

// The trap ends the process at once (SIGILL, or the illegal instruction's
// exception on Windows); the pattern matches only an empty standard error.
#define EXPECT_TRAP(statement) EXPECT_EXIT(statement, velk::testing::ended_by_trap(), "^$")

using velk::mspace;

constexpr uint64_t in_use_48 = 48 | 3; // head of an in-use 48-byte chunk

void release_twice(uint64_t size)
{
    mspace s = velk::mspace_create(0, true, 0);
    void* p = velk::mspace_alloc(s, size);
    velk::mspace_alloc(s, 16); // keeps p out of the top
    velk::mspace_release(p);
    velk::mspace_release(p);
}

// Foreign memory laid out like a chunk at words 0 and 1, user memory from
// word 2, the footer at word 6.
void release_forged(uint64_t head, uint64_t footer)
{
    alignas(16) static uint64_t words[16];
    words[1] = head;
    words[6] = footer;
    velk::mspace_release(&words[2]);
}

} // namespace

TEST(MspaceDeathTest, ReleaseOfAPointerIntoZeroedForeignMemoryTraps)
{
    EXPECT_TRAP(release_forged(0, 0));
}

TEST(MspaceDeathTest, ReleaseOfAForeignPointerWithAGarbageFooterTraps)
{
    EXPECT_TRAP(release_forged(in_use_48, 0x123456789));
}

TEST(MspaceDeathTest, ReleaseOfABlockWhoseFooterNamesNoSpaceTraps)
{
    alignas(16) static uint64_t not_a_space[128]; // zero: no magic
    uint64_t footer = reinterpret_cast<uintptr_t>(not_a_space) ^ velk::mspace_impl::mspace_magic;
    EXPECT_TRAP(release_forged(in_use_48, footer));
}

TEST(MspaceDeathTest, ReleaseOfAForeignBlockThatLooksInUseTraps)
{
    EXPECT_TRAP({
        // Another allocator's block with a plausible head: only the footer
        // (zero here) can tell.
        alignas(16) static uint64_t words[32];
        words[1] = 128 | 3;
        velk::mspace_release(&words[2]);
    });
}

TEST(MspaceDeathTest, DoubleReleaseOfASmallBlockTraps)
{
    EXPECT_TRAP(release_twice(100));
}

TEST(MspaceDeathTest, DoubleReleaseOfALargeBlockTraps)
{
    EXPECT_TRAP(release_twice(1000));
}

TEST(MspaceDeathTest, ReleaseOfTheSpaceHandleTraps)
{
    EXPECT_TRAP(velk::mspace_release(velk::mspace_create(0, true, 0)));
}

TEST(MspaceDeathTest, ResizeOfAReleasedBlockTraps)
{
    EXPECT_TRAP({
        mspace s = velk::mspace_create(0, true, 0);
        void* p = velk::mspace_alloc(s, 100);
        velk::mspace_alloc(s, 16);
        velk::mspace_release(p);
        velk::mspace_resize_in_place(p, 200);
    });
}

TEST(MspaceDeathTest, AllocationOnAHandleThatIsNoSpaceTraps)
{
    EXPECT_TRAP({
        alignas(16) static uint64_t not_a_space[128];
        velk::mspace_alloc(not_a_space, 10);
    });
}

TEST(MspaceDeathTest, DestroyOfAHandleThatIsNoSpaceTraps)
{
    EXPECT_TRAP({
        alignas(16) static uint64_t not_a_space[128];
        velk::mspace_destroy(not_a_space);
    });
}

TEST(MspaceDeathTest, UseOfADestroyedSpaceInCallerMemoryTraps)
{
    EXPECT_TRAP({
        alignas(16) static unsigned char buffer[8192];
        mspace s = velk::mspace_create_at(buffer, sizeof(buffer), false, 0);
        velk::mspace_destroy(s);
        velk::mspace_alloc(s, 10);
    });
}

TEST(MspaceDeathTest, BrokenSmallBinLinkTraps)
{
    EXPECT_TRAP({
        mspace s = velk::mspace_create(0, true, 0);
        void* p = velk::mspace_alloc(s, 100);
        velk::mspace_alloc(s, 16);
        velk::mspace_release(p);
        static_cast<uint64_t*>(p)[0] = 0x10; // fd now points below every region
        velk::mspace_alloc(s, 100);
    });
}

TEST(MspaceDeathTest, BrokenTreeLinkTraps)
{
    EXPECT_TRAP({
        mspace s = velk::mspace_create(0, true, 0);
        void* a = velk::mspace_alloc(s, 1000);
        velk::mspace_alloc(s, 16);
        void* b = velk::mspace_alloc(s, 1000);
        velk::mspace_alloc(s, 16);
        velk::mspace_release(a);
        velk::mspace_release(b); // a ring of two equal chunks
        static_cast<uint64_t*>(b)[0] = 0x10;
        velk::mspace_alloc(s, 1000);
    });
}

TEST(MspaceDeathTest, ClearedPreviousInUseBitTraps)
{
    EXPECT_TRAP({
        mspace s = velk::mspace_create(0, true, 0);
        void* p = velk::mspace_alloc(s, 100);
        void* next = velk::mspace_alloc(s, 100);
        velk::mspace_alloc(s, 16);
        static_cast<uint64_t*>(next)[-1] &= ~uint64_t(1); // next's head forgets p
        velk::mspace_release(p);
    });
}
