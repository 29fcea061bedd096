// Statistics and limits of a space: the walk that counts its chunks, the
// footprint and its limit, trimming and the choice of direct blocks.
#include "comm/alloc/mspace.h"

#include "comm/alloc/mspace_handle.h"
#include "comm/alloc/mspace_lock.h"
#include "comm/alloc/mspace_system.h"

#include <atomic>
#include <cstdio>

namespace velk {

using namespace mspace_impl;

// Free bytes start as the top and what stands behind it; a walk of each
// segment from its first chunk, up to the top, the segment's end or a
// fencepost, adds every chunk to arena and every free one to the free count.
mspace_stats mspace_statistics(mspace msp)
{
    mspace_state* m = state_of(msp);
    mspace_stats st{};
    space_guard guard(m);
    if (!m->top_chunk)
        return st;
    uint64_t free_count = 1;
    uint64_t free_bytes = m->top_size + top_foot(m);
    uint64_t arena = free_bytes;
    for (const segment* s = &m->first_segment; s; s = s->next) {
        uintptr_t end = address(s->base) + s->size;
        for (chunk* q = aligned_chunk(s->base, m->align_offset);
             address(q) < end && q != m->top_chunk && q->head != fencepost_head && chunk_size(q) != 0;
             q = next_chunk(q)) {
            arena += chunk_size(q);
            if (!is_inuse(q)) {
                free_bytes += chunk_size(q);
                ++free_count;
            }
        }
    }
    st.arena = arena;
    st.free_chunks = free_count;
    st.direct_bytes = m->footprint - arena;
    st.peak_bytes = m->peak_footprint;
    st.used_bytes = m->footprint - free_bytes;
    st.free_bytes = free_bytes;
    st.top_bytes = m->top_size;
    return st;
}

void mspace_print_statistics(mspace msp)
{
    mspace_stats st = mspace_statistics(msp);
    std::fprintf(stderr, "max system bytes = %10lu\n", static_cast<unsigned long>(st.peak_bytes));
    std::fprintf(stderr, "system bytes     = %10lu\n",
                 static_cast<unsigned long>(mspace_footprint(msp)));
    std::fprintf(stderr, "in use bytes     = %10lu\n", static_cast<unsigned long>(st.used_bytes));
}

int mspace_trim(mspace msp, uint64_t pad)
{
    mspace_state* m = state_of(msp);
    space_guard guard(m);
    return system_trim(m, pad);
}

uint64_t mspace_footprint(mspace msp)
{
    return state_of(msp)->footprint;
}

uint64_t mspace_peak_footprint(mspace msp)
{
    return state_of(msp)->peak_footprint;
}

uint64_t mspace_footprint_limit(mspace msp)
{
    uint64_t limit = state_of(msp)->footprint_limit;
    return limit == 0 ? ~uint64_t(0) : limit;
}

uint64_t mspace_set_footprint_limit(mspace msp, uint64_t bytes)
{
    mspace_state* m = state_of(msp);
    mspace_init_parameters();
    {
        space_guard guard(m);
        m->footprint_limit = (bytes == 0 || bytes == ~uint64_t(0)) ? 0 : granularity_align(bytes);
    }
    return mspace_footprint_limit(msp);
}

bool mspace_track_large_blocks(mspace msp, bool track)
{
    mspace_state* m = state_of(msp);
    space_guard guard(m);
    // Atomic: space_guard reads the lock bit of the same word without the lock.
    std::atomic_ref<uint32_t> flags(m->flags);
    uint32_t before = track ? flags.fetch_and(~space_direct) : flags.fetch_or(space_direct);
    return (before & space_direct) == 0;
}

mspace_stats global_statistics()
{
    return mspace_statistics(&global_state);
}

int global_trim(uint64_t pad)
{
    return mspace_trim(&global_state, pad);
}

} // namespace velk
