// Memory of a space from and back to the system: the top chunk, segments,
// direct chunks for large requests, trimming and the release of empty
// segments. Every function here runs with the space's lock held.
//
// A segment is a run of adjoining system regions of one space; first_segment
// in the state describes the newest, and each older one is described by a
// record in an in-use chunk near its own end. footprint is the sum of the
// segments' sizes and of the regions of live direct chunks.
#pragma once

#include "comm/alloc/mspace_chunk.h"

#include <cstdint>

namespace velk::mspace_impl {

// Behind a direct chunk: its footer, a fencepost head and a zero word, plus
// room for the aligning distance in front, rounded to 16: region size less
// chunk size.
inline constexpr uint64_t direct_overhead = 48;
// A direct region is the chunk size plus this, in whole granules: the
// overhead above plus the largest aligning distance.
inline constexpr uint64_t direct_padding = direct_overhead + align_mask;

// Sets up c as the top chunk of size bytes; the word behind it gets top_foot
// and the trim check is reset.
void init_top(mspace_state* m, chunk* c, uint64_t size);

// Cuts an in-use chunk of size nb from the front of the top; nb must be
// less than top_size, so that the top never vanishes.
inline chunk* cut_from_top(mspace_state* m, uint64_t nb)
{
    chunk* p = m->top_chunk;
    uint64_t rest = m->top_size - nb;
    chunk* r = chunk_at(p, nb);
    m->top_size = rest;
    m->top_chunk = r;
    r->head = rest | pinuse_bit;
    set_size_and_pinuse_of_inuse_chunk(m, p, nb);
    return p;
}

// Sets up the top at the aligned start of a region that is not otherwise
// used from there on: the rest less top_foot, in whole units of 16.
void init_top_in_region(mspace_state* m, uint8_t* base, uint64_t size);

// The segment that holds address p, or null.
segment* segment_holding(mspace_state* m, const void* p);

// Gets memory from the system for a chunk of size nb that nothing else could
// serve, and returns the chunk in use, or null when the system refuses, the
// footprint limit would be passed or the size wraps. allow_direct false
// keeps even a large chunk inside the segments.
chunk* system_alloc(mspace_state* m, uint64_t nb, bool allow_direct);

// Gives a direct chunk's region back and takes it off the footprint. If the
// system refuses, the region stays in the books.
void release_direct(mspace_state* m, chunk* p);

// The region size of the direct chunk p. prev_foot holds the aligning
// distance (under 16), plus whole alignment units if an aligned allocation
// moved the chunk forward within its region.
inline uint64_t direct_region_size(const chunk* p)
{
    return chunk_size(p) + (p->prev_foot & ~align_mask) + direct_overhead;
}

// Gives back what the top holds beyond pad bytes, in whole granules, and
// empty segments. Returns 1 if anything went back, else 0.
int system_trim(mspace_state* m, uint64_t pad);

// Gives back every segment but the newest whose only chunk is free. Returns
// the bytes given back.
uint64_t release_unused_segments(mspace_state* m);

} // namespace velk::mspace_impl
