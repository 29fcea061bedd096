// From a handle or a block to the state of its space, with the checks that
// make misuse trap: a handle that is not a space, a footer that names none.
// Private to comm/alloc.
//
// Invariant relied on: a space's state lies at the same residue modulo 16 as
// its chunks, and carries mspace_magic for as long as the space lives.
#pragma once

#include "comm/alloc/mspace.h"
#include "comm/alloc/mspace_chunk.h"

#include <cstdint>

namespace velk::mspace_impl {

// The state behind a handle; traps unless it is a space. The global space
// counts as one before its first region.
inline mspace_state* state_of(mspace msp)
{
    auto* m = static_cast<mspace_state*>(msp);
    if (!m || (!has_magic(m) && !is_global(m)))
        corruption_trap();
    return m;
}

// state_of for an allocation: the global space gets its parameters first.
inline mspace_state* state_for_alloc(mspace msp)
{
    auto* m = static_cast<mspace_state*>(msp);
    if (!m || !has_magic(m)) [[unlikely]] {
        if (!is_global(m))
            corruption_trap();
        mspace_init_parameters();
    }
    return m;
}

// The space named by the footer of the in-use chunk c, whose head the
// caller read. A space's state lies at the same residue modulo 16 as its
// chunks; a footer that leads anywhere else, or to a record without the
// magic, is no footer of this allocator.
inline mspace_state* owner_of(const chunk* c, uint64_t head)
{
    uintptr_t owner = chunk_at(c, head & ~flag_bits)->prev_foot ^ mspace_magic;
    if (owner == 0 || ((owner ^ address(c)) & align_mask) != 0)
        corruption_trap();
    auto* m = reinterpret_cast<mspace_state*>(owner);
    if (!has_magic(m))
        corruption_trap();
    return m;
}

} // namespace velk::mspace_impl
