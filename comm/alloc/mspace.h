// Memory spaces: the general-purpose allocator under everything else.
//
// A space is an independent heap with one spin lock (or none, for a space of
// one thread); there are no per-thread caches. Blocks carry boundary tags: a
// footer behind each in-use block names its space, so a block is released,
// resized or measured without naming its space, by any thread and from any
// module. Memory comes from the system in whole granules (64 KiB); requests
// of 256 KiB and more get a region of their own (a direct block) that goes
// back the moment it is released.
//
// Two spaces exist in normal running: the global space (a static space that
// needs no creation, behind global_alloc and global_release of
// comm/alloc/commalloc.h) and the array space of the front end.
//
//   velk::mspace s = velk::mspace_create(0, true, 0);
//   void* p = velk::mspace_alloc(s, 100);   // null when memory runs out
//   velk::mspace_release(p);                // finds its space by itself
//   velk::mspace_destroy(s);
//
// Failures: an allocation that can't be served returns null, with no
// message. Heap corruption and misuse (a pointer the allocator never gave, a
// double release, a damaged header or link, a handle that is not a space)
// stop the process at once with a trap instruction, without a message.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velk {

// Handle of a memory space: the address of its state.
using mspace = void*;

// What a walk of a space finds; ten fields in this order.
struct mspace_stats
{
    uint64_t arena;        // bytes in segments
    uint64_t free_chunks;  // free chunks, the top counted as one
    uint64_t unused_a;     // always 0
    uint64_t unused_b;     // always 0
    uint64_t direct_bytes; // footprint less arena: the regions of direct blocks
    uint64_t peak_bytes;   // peak footprint
    uint64_t unused_c;     // always 0
    uint64_t used_bytes;   // footprint less free bytes
    uint64_t free_bytes;   // free chunks, top and what stands behind it
    uint64_t top_bytes;    // the top chunk
};

// Options of mspace_alloc_group.
inline constexpr uint32_t mspace_group_equal_sizes = 1; // sizes points to one size for all
inline constexpr uint32_t mspace_group_clear = 2;       // the blocks come zeroed

// Codes of mspace_set_parameter.
inline constexpr int mspace_param_trim_threshold = -1;
inline constexpr int mspace_param_granularity = -2;
inline constexpr int mspace_param_direct_threshold = -3;

// -- Parameters ---------------------------------------------------------------

// Makes sure the process-wide parameters are set (page size, granularity,
// thresholds). Idempotent and thread-safe; traps if the system reports a page
// size or granularity that is not a power of two.
void mspace_init_parameters();

// Sets trim threshold (-1), granularity (-2: a power of two of at least one
// page) or direct threshold (-3); value -1 stands for the largest value.
// Returns 1, or 0 for an unknown code or a refused granularity. Meant for
// start-up: spaces in use by other threads read the values without a lock.
int mspace_set_parameter(int code, int value);

// -- Creation -----------------------------------------------------------------

// A new space with a region of capacity bytes plus its own overhead, in whole
// granules (0: one granule), that grows as needed. locked: whether threads
// share it. Only the low four bits of align_offset count: every block of the
// space then lies at that offset modulo 16. Null if the capacity is absurd or
// the system refuses.
mspace mspace_create(uint64_t capacity, bool locked, uint64_t align_offset);

// A new space laid out in the caller's memory [base, base + capacity), which
// it never gives back; it grows with system regions when full. Null if the
// capacity is at most 1040 plus the offset or leaves no room for a top.
mspace mspace_create_at(void* base, uint64_t capacity, bool locked, uint64_t align_offset);

// Gives every system region of the space's segments back and returns their
// bytes; the handle and every block in the space die, except direct blocks,
// which stay until released. Traps if msp is not a space. The global space
// is never destroyed: 0.
uint64_t mspace_destroy(mspace msp);

// -- Blocks ---------------------------------------------------------------------

// A block of at least bytes bytes, or null. Traps if msp is not a space.
void* mspace_alloc(mspace msp, uint64_t bytes);

// count * size bytes, zeroed; an overflowing product fails. Null on failure.
void* mspace_alloc_zeroed(mspace msp, uint64_t count, uint64_t size);

// Releases a block of any space; null does nothing. Traps on a pointer the
// allocator never gave and on a block released already.
void mspace_release(void* p);

// Resizes p to bytes, in place if possible, else by moving it within the
// space that owns it (msp names the space only for a null p, which acts as
// mspace_alloc). Null on failure, and p stays valid and unchanged.
void* mspace_resize(mspace msp, void* p, uint64_t bytes);

// Resizes p to bytes without moving it: p, or null if it can't stay (then p
// is unchanged). A reserved block grows within its reservation.
void* mspace_resize_in_place(void* p, uint64_t bytes);

// Bytes usable in the block p: 0 for null and for a released block in a bin.
uint64_t mspace_usable_size(const void* p);

// mspace_usable_size of a block the caller holds, read from its header in
// place: the containers ask it on every growth test. The header word sits
// just before p (chunk layout: previous foot, head, memory); its low three
// bits are flags, 4 marking a reserved block, which has its own measure.
inline uint64_t mspace_usable_size_in_use(const void* p)
{
    uint64_t head = __atomic_load_n(static_cast<const uint64_t*>(p) - 1, __ATOMIC_RELAXED);
    if (head & 4)
        return mspace_usable_size(p);
    return (head & ~uint64_t(7)) - 16; // less the two header words
}

// The space that owns the block p; null for null and for a reserved block.
// Traps if the footer does not name a space.
mspace mspace_owner(const void* p);

// -- Reserved blocks ----------------------------------------------------------------
// A reserved block is a region reserved at full size with only its first
// page committed; it grows in place up to its capacity and never moves. It
// counts towards no footprint and takes no lock.

// A reserved block able to grow to at least bytes, or null.
void* mspace_reserve_block(mspace msp, uint64_t bytes);

// The capacity of a reserved block; 0 for null and for every other block.
uint64_t mspace_reserved_capacity(const void* p);

// -- Groups ---------------------------------------------------------------------------

// count blocks with adjacent addresses out of one allocation, each released
// on its own later. sizes: one size per block, or with
// mspace_group_equal_sizes one size for all. table receives the pointers; if
// null, the table is allocated behind the blocks and released with its own
// pointer. Returns the table, or null on failure (nothing allocated).
void** mspace_alloc_group(mspace msp, uint64_t count, const uint64_t* sizes, uint32_t options,
                          void** table);

// Releases the count blocks of table that belong to msp, nulling their
// entries; returns how many entries were skipped as not msp's.
uint64_t mspace_release_group(mspace msp, void** table, uint64_t count);

// -- Space statistics and limits ----------------------------------------------------------

mspace_stats mspace_statistics(mspace msp);
// Writes "max system bytes", "system bytes" and "in use bytes" to stderr.
void mspace_print_statistics(mspace msp);

// Gives back memory beyond pad bytes of top and empty segments: 1 if
// anything went back, else 0.
int mspace_trim(mspace msp, uint64_t pad);

// Bytes obtained from the system and not given back, and their peak. Read
// without the lock.
uint64_t mspace_footprint(mspace msp);
uint64_t mspace_peak_footprint(mspace msp);
// The footprint limit; all ones for none.
uint64_t mspace_footprint_limit(mspace msp);
// Sets the footprint limit, rounded up to the granularity; 0 or all ones
// mean none. Returns the limit as mspace_footprint_limit reads it.
uint64_t mspace_set_footprint_limit(mspace msp, uint64_t bytes);

// track true: large blocks stay inside the segments (and die with the space)
// instead of getting regions of their own. Returns the previous setting.
bool mspace_track_large_blocks(mspace msp, bool track);

// -- The global space ---------------------------------------------------------------------
// A static space of this module: offset 0, locked, no region until its first
// allocation. Its allocation and release are global_alloc and global_release
// in comm/alloc/commalloc.h.

// The handle of the global space, for the operations that take a handle.
mspace global_mspace();

uint64_t global_usable_size(const void* p);
mspace_stats global_statistics();
void* global_alloc_zeroed(uint64_t count, uint64_t size);
// As mspace_resize; the owner comes from the block.
void* global_resize(void* p, uint64_t bytes);
void* global_resize_in_place(void* p, uint64_t bytes);
void** global_alloc_group(uint64_t count, const uint64_t* sizes, uint32_t options, void** table);
int global_trim(uint64_t pad);

// POSIX style: stores a block of bytes bytes aligned to alignment in *out and
// returns 0; 22 if alignment is not a power of two multiple of 8, 12 if the
// size can't fit or memory runs out (*out untouched).
int global_alloc_aligned(void** out, uint64_t alignment, uint64_t bytes);
// A block aligned to a page, or null.
void* global_alloc_page_aligned(uint64_t bytes);
// A block aligned to a page, its size rounded up to whole pages, or null.
void* global_alloc_whole_pages(uint64_t bytes);

} // namespace velk
