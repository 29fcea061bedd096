// The tree bins of a memory space, inline so that allocation and release
// compile into one piece with them: they run on every large request.
//
// Tree bin i holds the sizes from (2 + (i & 1)) << ((i >> 1) + 7) to below
// the start of bin i + 1 (tree_index; bin 31: everything from 12 MiB on). Its trie decides on the size's
// bits from the highest one that varies within the bin downwards: bit 0 to
// child[0], bit 1 to child[1]. Any node may hold any size of its subtree, so
// searches keep the best fit seen on the way. The root's parent is the bin
// slot itself; chunks in a node's side ring have a null parent.
#pragma once

#include "comm/alloc/mspace_bins.h"

namespace velk::mspace_impl {

// Sizes whose shifted value exceeds this land in the last bin.
inline constexpr uint64_t last_tree_bin_key = 0xFFFF;
inline constexpr uint32_t top_bit = 63;

inline chunk* leftmost_child(const chunk* t)
{
    return t->child[0] ? t->child[0] : t->child[1];
}

inline void* bin_slot_as_parent(mspace_state* m, uint32_t i)
{
    return &m->tree_bins[i];
}

// Hangs x below the tree node t at the first free place its size leads to,
// or into t's side ring if a node of equal size is met.
inline void insert_into_trie(mspace_state* m, chunk* t, chunk* x, uint64_t size)
{
    uint64_t key = size << tree_leftshift(x->index);
    for (;;) {
        if (chunk_size(t) == size) {
            chunk* forward = t->fd;
            if (!ok_address(m, t) || !ok_address(m, forward))
                corruption_trap();
            t->fd = x;
            forward->bk = x;
            x->fd = forward;
            x->bk = t;
            x->parent = nullptr;
            return;
        }
        chunk** slot = &t->child[(key >> top_bit) & 1];
        key <<= 1;
        if (*slot) {
            t = *slot;
            continue;
        }
        if (!ok_address(m, slot))
            corruption_trap();
        *slot = x;
        x->parent = t;
        x->fd = x->bk = x;
        return;
    }
}

// Detaches and returns the right-most leaf under x (preferring child[1]),
// which will take x's place; null if x has no children.
inline chunk* detach_replacement_leaf(mspace_state* m, chunk* x)
{
    chunk** slot = &x->child[1];
    chunk* r = *slot;
    if (!r) {
        slot = &x->child[0];
        r = *slot;
        if (!r)
            return nullptr;
    }
    for (;;) {
        chunk** next = &r->child[1];
        if (!*next) {
            next = &r->child[0];
            if (!*next)
                break;
        }
        slot = next;
        r = *slot;
    }
    if (!ok_address(m, slot))
        corruption_trap();
    *slot = nullptr;
    return r;
}

// Puts r where the tree node x was: under x's parent xp (or the bin slot),
// with x's children.
inline void replace_tree_node(mspace_state* m, chunk* x, chunk* xp, chunk* r)
{
    chunk** bin = &m->tree_bins[x->index];
    if (x == *bin) {
        *bin = r;
        if (!r)
            m->tree_map &= ~bin_bit(x->index);
    } else if (ok_address(m, xp)) {
        if (xp->child[0] == x)
            xp->child[0] = r;
        else
            xp->child[1] = r;
    } else
        corruption_trap();
    if (!r)
        return;
    if (!ok_address(m, r))
        corruption_trap();
    r->parent = xp;
    for (int side = 0; side < 2; ++side) {
        chunk* c = x->child[side];
        if (!c)
            continue;
        if (!ok_address(m, c))
            corruption_trap();
        r->child[side] = c;
        c->parent = r;
    }
}

// Takes the chosen chunk v out of its tree, puts it in use with chunk size
// nb and returns it. The leftover goes whole with v when under a minimum
// chunk; otherwise to a bin (large request) or to the designated remainder
// (small request).
inline chunk* take_tree_chunk(mspace_state* m, chunk* v, uint64_t nb, uint64_t leftover, bool small)
{
    chunk* rest = chunk_at(v, nb);
    if (!ok_address(m, v) || address(rest) <= address(v))
        corruption_trap();
    unlink_large(m, v);
    if (leftover < min_chunk) {
        set_inuse_and_pinuse(m, v, leftover + nb);
        return v;
    }
    set_size_and_pinuse_of_inuse_chunk(m, v, nb);
    set_size_and_pinuse_of_free_chunk(rest, leftover);
    if (small)
        replace_remainder(m, rest, leftover);
    else
        insert_chunk(m, rest, leftover);
    return v;
}

// -- Bin arithmetic ---------------------------------------------------------------

inline uint32_t tree_index(uint64_t size)
{
    uint64_t x = size >> tree_bin_shift;
    if (x == 0)
        return 0;
    if (x > last_tree_bin_key)
        return tree_bin_count - 1;
    uint32_t k = top_bit - static_cast<uint32_t>(__builtin_clzll(x));
    return (k << 1) + static_cast<uint32_t>((size >> (k + (tree_bin_shift - 1))) & 1);
}

inline uint32_t tree_leftshift(uint32_t i)
{
    // Bin i's sizes agree down to bit (i >> 1) + 7; the trie starts one below.
    return i == tree_bin_count - 1 ? 0 : top_bit - ((i >> 1) + tree_bin_shift - 2);
}


// -- Insertion and removal ----------------------------------------------------------

inline void insert_large(mspace_state* m, chunk* x, uint64_t size)
{
    uint32_t i = tree_index(size);
    x->index = i;
    x->child[0] = x->child[1] = nullptr;
    if (!(m->tree_map & bin_bit(i))) {
        m->tree_map |= bin_bit(i);
        m->tree_bins[i] = x;
        x->parent = static_cast<chunk*>(bin_slot_as_parent(m, i));
        x->fd = x->bk = x;
        return;
    }
    insert_into_trie(m, m->tree_bins[i], x, size);
}

inline void unlink_large(mspace_state* m, chunk* x)
{
    chunk* xp = x->parent;
    chunk* r;
    if (x->bk != x) { // x has like-sized siblings: the one behind takes its place
        chunk* forward = x->fd;
        r = x->bk;
        if (!ok_address(m, forward) || forward->bk != x || r->fd != x)
            corruption_trap();
        forward->bk = r;
        r->fd = forward;
    } else
        r = detach_replacement_leaf(m, x);
    if (xp) // x is a tree node, not a ring member
        replace_tree_node(m, x, xp, r);
}

// -- Searches -----------------------------------------------------------------------

// Walks the trie of nb's own bin with the bits of nb, keeping the best fit
// and the last right subtree passed over; when the walk falls off, that
// subtree holds the next larger sizes. Failing that, the next non-empty bin.
// From wherever this ends, the left-most descent finds the smallest size.
// The result is taken only if it leaves less than the designated remainder
// would (unsigned: an empty remainder accepts anything).
inline chunk* tree_alloc_large(mspace_state* m, uint64_t nb)
{
    chunk* best = nullptr;
    uint64_t leftover = 0 - nb;
    uint32_t i = tree_index(nb);
    chunk* t = m->tree_bins[i];
    if (t) {
        uint64_t key = nb << tree_leftshift(i);
        chunk* right_subtree = nullptr;
        for (;;) {
            uint64_t rem = chunk_size(t) - nb;
            if (rem < leftover) {
                best = t;
                leftover = rem;
                if (rem == 0)
                    break;
            }
            chunk* right = t->child[1];
            t = t->child[(key >> top_bit) & 1];
            if (right && right != t)
                right_subtree = right;
            if (!t) {
                t = right_subtree;
                break;
            }
            key <<= 1;
        }
    }
    if (!t && !best) {
        uint32_t larger = bits_above(bin_bit(i)) & m->tree_map;
        if (larger)
            t = m->tree_bins[lowest_bit_index(larger)];
    }
    for (; t; t = leftmost_child(t)) {
        uint64_t rem = chunk_size(t) - nb;
        if (rem < leftover) {
            leftover = rem;
            best = t;
        }
    }
    if (!best || leftover >= m->remainder_size - nb)
        return nullptr;
    return take_tree_chunk(m, best, nb, leftover, false);
}

inline chunk* tree_alloc_small(mspace_state* m, uint64_t nb)
{
    chunk* t = m->tree_bins[lowest_bit_index(m->tree_map)];
    chunk* best = t;
    uint64_t leftover = chunk_size(t) - nb;
    while ((t = leftmost_child(t)) != nullptr) {
        uint64_t rem = chunk_size(t) - nb;
        if (rem < leftover) {
            leftover = rem;
            best = t;
        }
    }
    return take_tree_chunk(m, best, nb, leftover, true);
}

} // namespace velk::mspace_impl
