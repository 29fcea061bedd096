// Test-only introspection of the memory spaces: a full consistency check of
// one space and the few readings of its inside that tests need. Production
// code calls none of this.
//
// The check walks every segment chunk by chunk and every bin link by link
// under the space's lock, and reports the first broken invariant in words.
#pragma once

#include "comm/alloc/mspace.h"

#include <cstdint>
#include <string>

namespace velk {

struct mspace_check_result
{
    std::string problem;        // empty when the space is consistent
    uint64_t segments = 0;      // segments in the list
    uint64_t segment_bytes = 0; // their sizes added up
    uint64_t binned_chunks = 0; // free chunks in bins (not top, not remainder)
    uint32_t small_map = 0;
    uint32_t tree_map = 0;
    uint64_t top_size = 0;
    uint64_t remainder_size = 0;

    bool ok() const { return problem.empty(); }
};

// Checks the space's chunks, footers, bins, top, designated remainder and
// segment list. What it can't see are direct blocks: footprint should equal
// segment_bytes plus the region sizes of the live direct blocks.
mspace_check_result mspace_check(mspace msp);

// The region bytes of a direct block; 0 for null and for every other block.
uint64_t mspace_direct_region_size(const void* p);

// The chunk size behind a live block.
uint64_t mspace_chunk_size(const void* p);

// Bytes of storage a space's state takes.
uint64_t mspace_state_bytes();

// Makes storage (16-aligned, mspace_state_bytes() long, outliving the space)
// a space exactly like the global space before its first allocation:
// offset 0, locked, no region. mspace_destroy gives its regions back.
mspace mspace_init_regionless(void* storage);

} // namespace velk
