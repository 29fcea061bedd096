// The chunk algorithms of one memory space.
//
// Allocation prefers, in this order: an exact small bin, a split of a larger
// small bin, a best fit from the tree bins, the designated remainder (the
// rest of the last split, which keeps runs of small requests together), the
// top, and finally new memory from the system. Release merges both ways so
// that no two free chunks ever adjoin.
#include "comm/alloc/mspace_core.h"

#include "comm/alloc/mspace_bins.h"
#include "comm/alloc/mspace_handle.h"
#include "comm/alloc/mspace_lock.h"
#include "comm/alloc/mspace_reserved.h"
#include "comm/alloc/mspace_system.h"

namespace velk::mspace_impl {

namespace {

// -- Cutting ------------------------------------------------------------------------

// Splits the chunk c of csize bytes at nb; the rest, if it can stand as a
// chunk, becomes the designated remainder, else it goes along with c.
chunk* split_small(mspace_state* m, chunk* c, uint64_t csize, uint64_t nb)
{
    uint64_t rest = csize - nb;
    if (rest < min_chunk) {
        set_inuse_and_pinuse(m, c, csize);
        return c;
    }
    set_size_and_pinuse_of_inuse_chunk(m, c, nb);
    chunk* r = chunk_at(c, nb);
    set_size_and_pinuse_of_free_chunk(r, rest);
    replace_remainder(m, r, rest);
    return c;
}

chunk* cut_from_remainder(mspace_state* m, uint64_t nb)
{
    chunk* p = m->remainder_chunk;
    uint64_t rest = m->remainder_size - nb;
    if (rest >= min_chunk) {
        chunk* r = chunk_at(p, nb);
        m->remainder_chunk = r;
        m->remainder_size = rest;
        set_size_and_pinuse_of_free_chunk(r, rest);
        set_size_and_pinuse_of_inuse_chunk(m, p, nb);
    } else {
        uint64_t whole = m->remainder_size;
        m->remainder_size = 0;
        m->remainder_chunk = nullptr;
        set_inuse_and_pinuse(m, p, whole);
    }
    return p;
}

// -- Small requests ------------------------------------------------------------------

// A small request from the small bins or the tree: bin nb / 8 or the one
// above it whole; else, if the designated remainder is too small, a split
// of the lowest larger small bin or the best fit from the tree. Null leaves
// the request to the remainder, the top or the system.
chunk* alloc_small_from_bins(mspace_state* m, uint64_t nb)
{
    uint32_t i = small_index(nb);
    uint32_t bits = m->small_map >> i;
    if (bits & 3) { // an exact fit, or 8 bytes more: taken whole, no split
        i += ~bits & 1;
        chunk* c = take_first_small(m, i);
        set_inuse_and_pinuse(m, c, small_index_size(i));
        return c;
    }
    if (nb <= m->remainder_size)
        return nullptr;
    if (bits) {
        uint32_t larger = (bits << i) & bits_above(bin_bit(i));
        uint32_t j = lowest_bit_index(larger);
        chunk* c = take_first_small(m, j);
        return split_small(m, c, small_index_size(j), nb);
    }
    if (m->tree_map)
        return tree_alloc_small(m, nb);
    return nullptr;
}

// -- Merging ---------------------------------------------------------------------------

// Merges the free chunk p (psize bytes, already merged with what precedes it)
// with what follows and puts it in its place: a bin, the top or the
// designated remainder. With release set, a large top is trimmed and a large
// chunk counts towards the next scan for empty segments.
void merge_forward_and_bin(mspace_state* m, chunk* p, uint64_t psize, chunk* next, bool release)
{
    if (cinuse(next)) {
        set_free_with_pinuse(p, psize, next);
    } else if (next == m->top_chunk) {
        uint64_t tsize = m->top_size += psize;
        m->top_chunk = p;
        p->head = tsize | pinuse_bit;
        if (p == m->remainder_chunk) {
            m->remainder_chunk = nullptr;
            m->remainder_size = 0;
        }
        if (release && tsize > m->trim_check)
            system_trim(m, 0);
        return;
    } else if (next == m->remainder_chunk) {
        m->remainder_size += psize;
        m->remainder_chunk = p;
        set_size_and_pinuse_of_free_chunk(p, m->remainder_size);
        return;
    } else {
        uint64_t nsize = chunk_size(next);
        psize += nsize;
        unlink_chunk(m, next, nsize);
        set_size_and_pinuse_of_free_chunk(p, psize);
        if (p == m->remainder_chunk) {
            m->remainder_size = psize;
            return;
        }
    }
    if (is_small(psize)) {
        insert_small(m, p, psize);
        return;
    }
    insert_large(m, p, psize);
    if (release && --m->release_checks == 0)
        release_unused_segments(m);
}

// Releases the in-use chunk p of psize bytes: see release_locked and
// dispose_chunk, which differ only in release.
void free_chunk(mspace_state* m, chunk* p, uint64_t psize, bool release)
{
    if (!ok_address(m, p) || !is_inuse(p))
        corruption_trap();
    chunk* next = chunk_at(p, psize);
    if (!pinuse(p)) { // a direct chunk, or the previous chunk is free
        if (is_direct(p)) {
            release_direct(m, p);
            return;
        }
        uint64_t prev_size = p->prev_foot;
        chunk* prev = chunk_before(p, prev_size);
        if (!ok_address(m, prev))
            corruption_trap();
        psize += prev_size;
        p = prev;
        if (p != m->remainder_chunk)
            unlink_chunk(m, p, prev_size);
        else if ((next->head & inuse_bits) == inuse_bits) { // only the sizes change
            m->remainder_size = psize;
            set_free_with_pinuse(p, psize, next);
            return;
        }
    }
    if (address(next) <= address(p) || !pinuse(next))
        corruption_trap();
    merge_forward_and_bin(m, p, psize, next, release);
}

// -- Resizing in place -------------------------------------------------------------------

// A direct chunk stays when it still suits nb: not small, not too tight, and
// wasting at most two granules. It never grows, as the system can't remap.
bool direct_keeps(const chunk* p, uint64_t nb)
{
    uint64_t size = chunk_size(p);
    return !is_small(nb) && size >= nb + word && size - nb <= (params.granularity << 1);
}

// Gives up the tail of p beyond nb if it can stand as a chunk.
void shrink_in_place(mspace_state* m, chunk* p, uint64_t nb)
{
    uint64_t rest = chunk_size(p) - nb;
    if (rest < min_chunk)
        return;
    chunk* r = chunk_at(p, nb);
    set_inuse(m, p, nb);
    set_inuse(m, r, rest);
    dispose_chunk(m, r, rest);
}

bool grow_into_top(mspace_state* m, chunk* p, uint64_t nb)
{
    uint64_t total = chunk_size(p) + m->top_size;
    if (total <= nb) // the top must not vanish
        return false;
    chunk* top = chunk_at(p, nb);
    set_inuse(m, p, nb);
    top->head = (total - nb) | pinuse_bit;
    m->top_chunk = top;
    m->top_size = total - nb;
    return true;
}

bool grow_into_remainder(mspace_state* m, chunk* p, uint64_t nb)
{
    uint64_t total = chunk_size(p) + m->remainder_size;
    if (total < nb)
        return false;
    uint64_t rest = total - nb;
    if (rest >= min_chunk) {
        chunk* r = chunk_at(p, nb);
        chunk* n = chunk_at(r, rest);
        set_inuse(m, p, nb);
        set_size_and_pinuse_of_free_chunk(r, rest);
        clear_pinuse_of(n);
        m->remainder_size = rest;
        m->remainder_chunk = r;
    } else {
        set_inuse(m, p, total);
        m->remainder_size = 0;
        m->remainder_chunk = nullptr;
    }
    return true;
}

bool grow_into_free(mspace_state* m, chunk* p, chunk* next, uint64_t nb)
{
    uint64_t nsize = chunk_size(next);
    uint64_t total = chunk_size(p) + nsize;
    if (total < nb)
        return false;
    unlink_chunk(m, next, nsize);
    uint64_t rest = total - nb;
    if (rest < min_chunk) {
        set_inuse(m, p, total);
        return true;
    }
    chunk* r = chunk_at(p, nb);
    set_inuse(m, p, nb);
    set_inuse(m, r, rest);
    dispose_chunk(m, r, rest);
    return true;
}

} // namespace

// -- Allocation ----------------------------------------------------------------------------

// 1. Small request (224 bytes or less): the small bins, or the tree when the
//    small bins have nothing and the remainder is too small.
// 2. Larger request: the best fit from the tree; an oversized one becomes all
//    ones so that everything below refuses it.
// 3. The designated remainder, if it fits.
// 4. The top, if it is strictly larger, so that the top never vanishes.
// 5. The system.
void* alloc_locked(mspace_state* m, uint64_t bytes, bool allow_direct)
{
    uint64_t nb;
    if (bytes <= max_small_request) {
        nb = request_size(bytes);
        if (chunk* c = alloc_small_from_bins(m, nb))
            return chunk_memory(c);
    } else if (bytes >= max_request) {
        nb = ~uint64_t(0);
    } else {
        nb = pad_request(bytes);
        if (m->tree_map) {
            if (chunk* c = tree_alloc_large(m, nb))
                return chunk_memory(c);
        }
    }
    if (nb <= m->remainder_size)
        return chunk_memory(cut_from_remainder(m, nb));
    if (nb < m->top_size)
        return chunk_memory(cut_from_top(m, nb));
    chunk* c = system_alloc(m, nb, allow_direct);
    return c ? chunk_memory(c) : nullptr;
}

// -- Release -------------------------------------------------------------------------------

void release_locked(mspace_state* m, chunk* p)
{
    free_chunk(m, p, chunk_size(p), true);
}

void dispose_chunk(mspace_state* m, chunk* p, uint64_t psize)
{
    free_chunk(m, p, psize, false);
}

// -- Resize in place --------------------------------------------------------------------------

chunk* resize_locked(mspace_state* m, chunk* p, uint64_t nb)
{
    uint64_t size = chunk_size(p);
    chunk* next = chunk_at(p, size);
    if (!ok_address(m, p) || !is_inuse(p) || address(next) <= address(p) || !pinuse(next))
        corruption_trap();
    if (is_direct(p))
        return direct_keeps(p, nb) ? p : nullptr;
    if (size >= nb) {
        shrink_in_place(m, p, nb);
        return p;
    }
    bool grown = false;
    if (next == m->top_chunk)
        grown = grow_into_top(m, p, nb);
    else if (next == m->remainder_chunk)
        grown = grow_into_remainder(m, p, nb);
    else if (!cinuse(next))
        grown = grow_into_free(m, p, next, nb);
    return grown ? p : nullptr;
}

} // namespace velk::mspace_impl

// The two entry points that run on every block live here, beside the chunk
// algorithms, so that each compiles into one function without calls.
namespace velk {

using namespace mspace_impl;

void* mspace_alloc(mspace msp, uint64_t bytes)
{
    mspace_state* m = state_for_alloc(msp);
    space_guard guard(m);
    return alloc_locked(m, bytes);
}

void mspace_release(void* p)
{
    if (!p)
        return;
    chunk* c = memory_chunk(p);
    uint64_t head = load_head(c);
    if (head & reserved_bit) {
        release_reserved(c);
        return;
    }
    mspace_state* m = owner_of(c, head);
    space_guard guard(m);
    release_locked(m, c);
}

} // namespace velk
