// Inside the memory spaces: the constants, the chunk with its boundary tags,
// the segment record, the state of a space and the process-wide parameters.
// Private to comm/alloc; the public surface is comm/alloc/mspace.h.
//
// Invariants of every space: each chunk starts at the space's alignment
// offset modulo 16 and has a size that is a multiple of 16; two free chunks
// are never neighbours; a free chunk's size is repeated in the prev_foot word
// of the chunk behind it, and an in-use chunk's prev_foot word behind it (its
// footer) holds the space's address XOR mspace_magic. The top chunk is in no
// bin and is always followed by a head word of value top_foot.
#pragma once

#include <atomic>
#include <cstdint>

namespace velk::mspace_impl {

// -- Constants ---------------------------------------------------------------

// Fixed at build time and never randomised, so that every module of the
// process agrees on it and can release the blocks of another module's space.
inline constexpr uint64_t mspace_magic = 0x451d92ec560b19adull;

inline constexpr uint64_t word = sizeof(uint64_t);
// Chunk starts share one residue modulo this; user pointers too.
inline constexpr uint64_t alignment = 16;
inline constexpr uint64_t align_mask = alignment - 1;
// prev_foot and head stand in front of the user memory.
inline constexpr uint64_t chunk_overhead = 2 * word;
// prev_foot, head, fd and bk: what a free chunk must hold.
inline constexpr uint64_t min_chunk = 4 * word;
// Requests below this still take a whole minimum chunk: 32 - 16 - 1.
inline constexpr uint64_t min_request = min_chunk - chunk_overhead - 1;
// 2^64 - 128: below it no padding or rounding of a request can wrap.
inline constexpr uint64_t max_request = uint64_t(0) - (min_chunk << 2);

// Small bins: bin i holds chunks of exactly 8 * i bytes.
inline constexpr uint32_t small_bin_count = 32;
inline constexpr uint32_t small_bin_shift = 3;
// Tree bins hold chunks from 1 << 8 = 256 bytes on.
inline constexpr uint32_t tree_bin_count = 32;
inline constexpr uint32_t tree_bin_shift = 8;
inline constexpr uint64_t min_large_size = uint64_t(1) << tree_bin_shift;
inline constexpr uint64_t max_small_size = min_large_size - 1;
// 255 - 15 - 16 = 224: the largest request whose chunk is still small.
inline constexpr uint64_t max_small_request = max_small_size - align_mask - chunk_overhead;

// The scan for empty segments runs at most once per this many releases of
// large chunks.
inline constexpr uint64_t release_check_rate = 4095;

// Head bits.
inline constexpr uint64_t pinuse_bit = 1;   // the previous chunk is in use
inline constexpr uint64_t cinuse_bit = 2;   // this chunk is in use
inline constexpr uint64_t reserved_bit = 4; // a reserved chunk that grows in place
inline constexpr uint64_t inuse_bits = pinuse_bit | cinuse_bit;
inline constexpr uint64_t flag_bits = inuse_bits | reserved_bit;
// The head of a fencepost: a word-sized "chunk" marked in use on both sides,
// so that no merge ever crosses it: 8 + 3 = 11.
inline constexpr uint64_t fencepost_head = word | inuse_bits;

// Flags of a space.
inline constexpr uint32_t space_direct = 1;         // large requests get regions of their own
inline constexpr uint32_t space_locked = 2;         // the lock word is used
inline constexpr uint32_t space_noncontiguous = 4;  // regions need not adjoin (always set)
inline constexpr uint32_t default_space_flags = space_direct | space_locked | space_noncontiguous;

// Flags of a segment.
inline constexpr uint32_t segment_owned = 1;  // a system region of this space
inline constexpr uint32_t segment_extern = 8; // memory supplied by the caller, never given back

// Fixed sizes derived from the layout below.
inline constexpr uint64_t pad_request(uint64_t n)
{
    return (n + chunk_overhead + align_mask) & ~align_mask;
}

// The chunk size that serves a request of n bytes.
inline constexpr uint64_t request_size(uint64_t n)
{
    return n < min_request ? min_chunk : pad_request(n);
}

// -- Chunk and segment record --------------------------------------------------

// A chunk as seen from its address. prev_foot belongs to the chunk before;
// user memory starts at fd. The tree fields exist only in free chunks of
// min_large_size and more.
struct chunk
{
    uint64_t prev_foot;
    uint64_t head;
    chunk* fd;
    chunk* bk;
    chunk* child[2];
    chunk* parent; // null for a chunk in the side list of a tree node
    uint32_t index;
};

// One region (or run of adjoining regions) of a space.
struct segment
{
    uint8_t* base;
    uint64_t size;
    segment* next;
    uint32_t flags;
};

// A segment record lives in an in-use chunk of its own near its region's end.
inline constexpr uint64_t segment_chunk = pad_request(sizeof(segment));
static_assert(segment_chunk == 48);

// -- State of a space ----------------------------------------------------------

// The fields in the order the allocator has always laid them out; the handle
// of a space is the address of this record.
struct mspace_state
{
    uint32_t small_map; // bit i: small bin i is not empty
    uint32_t tree_map;  // bit i: tree bin i is not empty
    uint64_t remainder_size;
    uint64_t top_size;
    uint8_t* least_address; // lowest address ever obtained; all sanity checks compare to it
    chunk* remainder_chunk;  // the designated remainder, preferred for small requests
    chunk* top_chunk;
    uint64_t trim_check;     // top_size above which a release trims
    uint64_t release_checks; // countdown to the next scan for empty segments
    uint64_t magic;          // mspace_magic once the space is set up
    // Bin i's head is a pseudo-chunk at word 2i whose fd and bk are words
    // 2i + 2 and 2i + 3, hence one pair more than there are bins.
    chunk* small_bins[(small_bin_count + 1) * 2];
    chunk* tree_bins[tree_bin_count];
    uint64_t footprint;
    uint64_t peak_footprint;
    uint64_t footprint_limit; // 0: none
    uint32_t flags;
    uint32_t lock;
    uint64_t align_offset;  // 0 to 15
    segment first_segment;  // the newest region
    void* extension;        // always null
    uint64_t extension_size; // always 0
};

// The state sits in an in-use chunk at the start of its space's first region.
inline constexpr uint64_t state_chunk = pad_request(sizeof(mspace_state));
static_assert(sizeof(mspace_state) == 944 && state_chunk == 960);

// -- Process-wide parameters -----------------------------------------------------

struct parameters
{
    uint64_t magic; // 0 until mspace_init_parameters has run
    uint64_t page_size;
    uint64_t granularity;
    uint64_t direct_threshold;
    uint64_t trim_threshold;
    uint32_t default_flags;
};

extern parameters params;
extern mspace_state global_state;

// -- Address arithmetic ----------------------------------------------------------
// Done on integers: corrupt sizes must reach the checks, not wrap a pointer.

inline uintptr_t address(const void* p)
{
    return reinterpret_cast<uintptr_t>(p);
}

inline chunk* chunk_at(const void* base, uint64_t offset)
{
    return reinterpret_cast<chunk*>(address(base) + offset);
}

inline chunk* chunk_before(const void* base, uint64_t offset)
{
    return reinterpret_cast<chunk*>(address(base) - offset);
}

// The distance that moves address a to the residue offset modulo 16.
inline uint64_t align_distance(uintptr_t a, uint64_t offset)
{
    return (offset - a) & align_mask;
}

inline chunk* aligned_chunk(const void* base, uint64_t offset)
{
    return chunk_at(base, align_distance(address(base), offset));
}

inline bool is_power_of_two(uint64_t x)
{
    return x != 0 && (x & (x - 1)) == 0;
}

inline uint64_t granularity_align(uint64_t n)
{
    return (n + params.granularity - 1) & ~(params.granularity - 1);
}

// -- Chunk fields ------------------------------------------------------------------

// The head of an in-use chunk is read by its owner without the lock (to tell
// a reserved chunk, to find the footer) while the lock holder may flip its
// pinuse bit on behalf of the chunk before it. Those two sides use relaxed
// atomic access, plain moves on this hardware, so that this is no data race.
inline uint64_t load_head(const chunk* c)
{
    return std::atomic_ref<uint64_t>(const_cast<uint64_t&>(c->head)).load(std::memory_order_relaxed);
}

inline void store_head(chunk* c, uint64_t head)
{
    std::atomic_ref<uint64_t>(c->head).store(head, std::memory_order_relaxed);
}

// Only the lock holder changes a head, so load and store need not be one step.
inline void set_pinuse_of(chunk* c) { store_head(c, load_head(c) | pinuse_bit); }
inline void clear_pinuse_of(chunk* c) { store_head(c, load_head(c) & ~pinuse_bit); }

inline uint64_t chunk_size(const chunk* c) { return c->head & ~flag_bits; }
inline chunk* next_chunk(const chunk* c) { return chunk_at(c, chunk_size(c)); }
inline chunk* prev_chunk(const chunk* c) { return chunk_before(c, c->prev_foot); }
inline void* chunk_memory(const chunk* c) { return reinterpret_cast<void*>(address(c) + chunk_overhead); }
inline chunk* memory_chunk(const void* p) { return chunk_before(p, chunk_overhead); }

inline bool pinuse(const chunk* c) { return (c->head & pinuse_bit) != 0; }
inline bool cinuse(const chunk* c) { return (c->head & cinuse_bit) != 0; }
// Free chunks always have an in-use predecessor, so bits 0 and 1 read 1.
inline bool is_inuse(const chunk* c) { return (c->head & inuse_bits) != pinuse_bit; }
inline bool is_direct(const chunk* c) { return (c->head & flag_bits) == 0; }
inline bool is_reserved(const chunk* c) { return (c->head & reserved_bit) != 0; }

// -- Space fields ----------------------------------------------------------------

// What stands behind the top: room for a segment record and a minimum chunk,
// so that a new region can always be linked in, plus the offset.
inline uint64_t top_foot(const mspace_state* m)
{
    return segment_chunk + min_chunk + m->align_offset;
}

inline uint64_t footer_of(const mspace_state* m)
{
    return address(m) ^ mspace_magic;
}

inline bool ok_address(const mspace_state* m, const void* p)
{
    return address(p) >= address(m->least_address);
}

inline bool is_global(const mspace_state* m)
{
    return m == &global_state;
}

// The magic is read without the lock, and the global space gets it with its
// first region while other threads may already look: it is published with
// release ordering, so that whoever sees it sees the space set up.
inline bool has_magic(const mspace_state* m)
{
    auto& magic = const_cast<uint64_t&>(m->magic);
    return std::atomic_ref<uint64_t>(magic).load(std::memory_order_acquire) == mspace_magic;
}

inline void set_magic(mspace_state* m, uint64_t magic)
{
    std::atomic_ref<uint64_t>(m->magic).store(magic, std::memory_order_release);
}

// -- Writing heads and footers ----------------------------------------------------

inline void mark_inuse_foot(const mspace_state* m, chunk* c, uint64_t size)
{
    chunk_at(c, size)->prev_foot = footer_of(m);
}

// Keeps c's own pinuse bit; marks the chunk behind as having an in-use predecessor.
inline void set_inuse(const mspace_state* m, chunk* c, uint64_t size)
{
    c->head = (c->head & pinuse_bit) | size | cinuse_bit;
    set_pinuse_of(chunk_at(c, size));
    mark_inuse_foot(m, c, size);
}

inline void set_inuse_and_pinuse(const mspace_state* m, chunk* c, uint64_t size)
{
    c->head = size | inuse_bits;
    set_pinuse_of(chunk_at(c, size));
    mark_inuse_foot(m, c, size);
}

// For a chunk whose successor is set up separately.
inline void set_size_and_pinuse_of_inuse_chunk(const mspace_state* m, chunk* c, uint64_t size)
{
    c->head = size | inuse_bits;
    mark_inuse_foot(m, c, size);
}

inline void set_size_and_pinuse_of_free_chunk(chunk* c, uint64_t size)
{
    c->head = size | pinuse_bit;
    chunk_at(c, size)->prev_foot = size;
}

inline void set_free_with_pinuse(chunk* c, uint64_t size, chunk* next)
{
    clear_pinuse_of(next);
    set_size_and_pinuse_of_free_chunk(c, size);
}

// -- Corruption -------------------------------------------------------------------

// Heap corruption and misuse stop the process on the spot: no message, no
// handler, nothing that could allocate from a heap that can't be trusted.
[[noreturn]] inline void corruption_trap()
{
    __builtin_trap();
}

} // namespace velk::mspace_impl
