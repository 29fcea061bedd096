// Reserved blocks: a region reserved at full size with only its first page
// committed, that grows in place up to the reservation and never moves. No
// space accounts for it and no lock guards it. Private to comm/alloc; the
// public calls are mspace_reserve_block and mspace_reserved_capacity.
//
// Layout: the chunk lies at the region's start, aligned to its space's
// offset. prev_foot holds the aligning distance plus the reservation (whole
// granules, so the low bits give the one and the rest the other); the head
// has the reserved bit and counts the bytes committed from the start of the
// region, so that the usable size never reaches beyond committed memory.
#pragma once

#include "comm/alloc/mspace_chunk.h"

#include <cstdint>

namespace velk::mspace_impl {

// What the chunk may grow to: the reservation less distance and header.
uint64_t reserved_capacity(const chunk* c);

// What is usable now: the committed bytes less distance and header.
uint64_t reserved_usable(const chunk* c);

// Grows the chunk to hold bytes by committing more of its region. It never
// shrinks; beyond its capacity, or if the system refuses, it stays as it was
// and the result is null.
void* resize_reserved(chunk* c, uint64_t bytes);

// Gives the whole region back.
void release_reserved(chunk* c);

} // namespace velk::mspace_impl
