// Aligned allocation in the global space: a block over-allocated by the
// alignment plus 16, with the leading and the trailing slack given back.
// Only a space with offset 0 can align this way, which the global space is.
#include "comm/alloc/mspace.h"

#include "comm/alloc/mspace_core.h"
#include "comm/alloc/mspace_lock.h"

namespace velk {

using namespace mspace_impl;

namespace {

// Over-allocates by the alignment plus 16, then gives back the leading slack
// (a direct chunk just moves forward in its region) and the trailing slack.
// The alignment is a power of two of at least 32; only for spaces with
// offset 0.
void* alloc_aligned(mspace_state* m, uint64_t align, uint64_t bytes)
{
    if (align <= alignment)
        return mspace_alloc(m, bytes);
    uint64_t a = min_chunk;
    while (a < align)
        a <<= 1;
    if (bytes >= max_request - a)
        return nullptr;
    uint64_t nb = request_size(bytes);
    void* mem = mspace_alloc(m, nb + a + min_chunk - chunk_overhead);
    if (!mem)
        return nullptr;
    space_guard guard(m);
    chunk* p = memory_chunk(mem);
    if (address(mem) & (a - 1)) {
        chunk* spot = memory_chunk(reinterpret_cast<void*>((address(mem) + a - 1) & ~(a - 1)));
        chunk* pos = address(spot) - address(p) >= min_chunk ? spot : chunk_at(spot, a);
        uint64_t lead = address(pos) - address(p);
        uint64_t size = chunk_size(p) - lead;
        if (is_direct(p)) {
            pos->prev_foot = p->prev_foot + lead;
            pos->head = size;
        } else {
            set_inuse(m, pos, size);
            set_inuse(m, p, lead);
            dispose_chunk(m, p, lead);
        }
        p = pos;
    }
    if (!is_direct(p) && chunk_size(p) > nb + min_chunk) {
        uint64_t rest = chunk_size(p) - nb;
        chunk* r = chunk_at(p, nb);
        set_inuse(m, p, nb);
        set_inuse(m, r, rest);
        dispose_chunk(m, r, rest);
    }
    return chunk_memory(p);
}

} // namespace

int global_alloc_aligned(void** out, uint64_t align, uint64_t bytes)
{
    constexpr int invalid_argument = 22; // the POSIX codes of a bad alignment
    constexpr int out_of_memory = 12;    // and of a failed allocation
    void* p;
    if (align == alignment)
        p = mspace_alloc(&global_state, bytes);
    else {
        uint64_t words = align / word;
        if (align % word != 0 || !is_power_of_two(words))
            return invalid_argument;
        if (bytes > max_request - align)
            return out_of_memory;
        p = alloc_aligned(&global_state, align, bytes);
    }
    if (!p)
        return out_of_memory;
    *out = p;
    return 0;
}

void* global_alloc_page_aligned(uint64_t bytes)
{
    mspace_init_parameters();
    return alloc_aligned(&global_state, params.page_size, bytes);
}

void* global_alloc_whole_pages(uint64_t bytes)
{
    mspace_init_parameters();
    uint64_t page = params.page_size;
    uint64_t rounded = (bytes + page - 1) & ~(page - 1);
    if (rounded < bytes)
        return nullptr;
    return alloc_aligned(&global_state, page, rounded);
}

} // namespace velk
