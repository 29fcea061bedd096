// The chunk algorithms of one memory space: allocation, release with
// merging, and resizing in place. Every function here runs with the space's
// lock held and never takes a lock itself.
//
// After each call the invariants of mspace_chunk.h hold again: the released
// or split-off memory is merged with its free neighbours and lies in exactly
// one place (a bin, the designated remainder or the top).
#pragma once

#include "comm/alloc/mspace_chunk.h"

#include <cstdint>

namespace velk::mspace_impl {

// A chunk for a request of bytes, in use, or null when the system refuses
// (or bytes is max_request or more). Returns the user pointer. allow_direct
// false keeps even a large chunk inside the segments.
void* alloc_locked(mspace_state* m, uint64_t bytes, bool allow_direct = true);

// Releases the in-use chunk p of m: a direct chunk goes back to the system,
// any other merges with free neighbours and goes to a bin, the designated
// remainder or the top; a large top is trimmed. Traps if p is under
// least_address, free already, or not followed by a chunk that knows it is
// in use.
void release_locked(mspace_state* m, chunk* p);

// Like release_locked for a chunk of psize bytes marked in use by the
// caller, without trimming and without counting towards the scan for empty
// segments: used for the parts that splitting leaves over.
void dispose_chunk(mspace_state* m, chunk* p, uint64_t psize);

// Resizes the in-use chunk p to chunk size nb without moving it: p, or null
// if it can't stay (then nothing changed). Traps on the same misuse as
// release_locked.
chunk* resize_locked(mspace_state* m, chunk* p, uint64_t nb);

} // namespace velk::mspace_impl
