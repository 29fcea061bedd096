// The bins of a memory space: where its free chunks wait, apart from the top
// and the designated remainder.
//
// Small bins (chunks under 256 bytes) are circular doubly linked lists of one
// size each, used last in, first out at the head's forward side. Tree bins
// (256 bytes and more) are bitwise tries on the chunk size, one per range of
// sizes, with like-sized chunks in a ring at one node. A bit in small_map or
// tree_map is set exactly when its bin is not empty. Every link is checked
// against least_address and against its neighbour before it is followed or
// changed; a failed check traps.
#pragma once

#include "comm/alloc/mspace_chunk.h"

#include <cstdint>

namespace velk::mspace_impl {

// -- Bin arithmetic ---------------------------------------------------------------

inline bool is_small(uint64_t size) { return size < min_large_size; }
inline uint32_t small_index(uint64_t size) { return static_cast<uint32_t>(size >> small_bin_shift); }
inline uint64_t small_index_size(uint32_t i) { return uint64_t(i) << small_bin_shift; }
inline uint32_t bin_bit(uint32_t i) { return uint32_t(1) << i; }
// All bits above the lowest set bit of x.
inline uint32_t bits_above(uint32_t x) { return (x << 1) | (0u - (x << 1)); }
inline uint32_t lowest_bit_index(uint32_t x) { return static_cast<uint32_t>(__builtin_ctz(x)); }

inline chunk* small_bin(mspace_state* m, uint32_t i)
{
    return reinterpret_cast<chunk*>(&m->small_bins[i * 2]);
}

// The tree bin a free chunk of size bytes (256 or more) belongs to.
inline uint32_t tree_index(uint64_t size);
// How far a size is shifted so that the first bit the trie of bin i decides
// on stands at the top of the word.
inline uint32_t tree_leftshift(uint32_t i);

// Links every small bin to itself; leaves the maps alone.
void init_bins(mspace_state* m);

// -- Small bins ---------------------------------------------------------------------

inline void insert_small(mspace_state* m, chunk* c, uint64_t size)
{
    uint32_t i = small_index(size);
    chunk* bin = small_bin(m, i);
    chunk* forward = bin;
    if (!(m->small_map & bin_bit(i)))
        m->small_map |= bin_bit(i);
    else if (ok_address(m, bin->fd))
        forward = bin->fd;
    else
        corruption_trap();
    bin->fd = c;
    forward->bk = c;
    c->fd = forward;
    c->bk = bin;
}

inline void unlink_small(mspace_state* m, chunk* c, uint64_t size)
{
    uint32_t i = small_index(size);
    chunk* bin = small_bin(m, i);
    chunk* forward = c->fd;
    chunk* back = c->bk;
    if (forward != bin && !(ok_address(m, forward) && forward->bk == c))
        corruption_trap();
    if (back == forward) { // c was alone
        m->small_map &= ~bin_bit(i);
        return;
    }
    if (back != bin && !(ok_address(m, back) && back->fd == c))
        corruption_trap();
    forward->bk = back;
    back->fd = forward;
}

// Unlinks and returns the first chunk of the non-empty small bin i.
inline chunk* take_first_small(mspace_state* m, uint32_t i)
{
    chunk* bin = small_bin(m, i);
    chunk* c = bin->fd;
    chunk* forward = c->fd;
    if (!ok_address(m, c))
        corruption_trap();
    if (forward == bin)
        m->small_map &= ~bin_bit(i);
    else if (ok_address(m, forward) && forward->bk == c) {
        forward->bk = bin;
        bin->fd = forward;
    } else
        corruption_trap();
    return c;
}

// -- Tree bins ----------------------------------------------------------------------

inline void insert_large(mspace_state* m, chunk* c, uint64_t size);
inline void unlink_large(mspace_state* m, chunk* c);

// Best fit for a large chunk size nb from the tree bins, split and in use,
// or null when the designated remainder fits at least as well.
inline chunk* tree_alloc_large(mspace_state* m, uint64_t nb);
// Best fit for a small chunk size nb from the lowest non-empty tree bin;
// tree_map must not be 0. The leftover becomes the designated remainder.
inline chunk* tree_alloc_small(mspace_state* m, uint64_t nb);

// -- Either kind ----------------------------------------------------------------------

inline void insert_chunk(mspace_state* m, chunk* c, uint64_t size)
{
    if (is_small(size))
        insert_small(m, c, size);
    else
        insert_large(m, c, size);
}

inline void unlink_chunk(mspace_state* m, chunk* c, uint64_t size)
{
    if (is_small(size))
        unlink_small(m, c, size);
    else
        unlink_large(m, c);
}

// Makes c the designated remainder; the old one goes to its bin.
inline void replace_remainder(mspace_state* m, chunk* c, uint64_t size)
{
    if (m->remainder_size != 0)
        insert_chunk(m, m->remainder_chunk, m->remainder_size);
    m->remainder_size = size;
    m->remainder_chunk = c;
}

} // namespace velk::mspace_impl

// The definitions of the tree functions declared above.
#include "comm/alloc/mspace_tree.h"
