// Memory spaces: the parameters, creating and destroying spaces, the
// operations on blocks and the global space. The chunk algorithms are in
// mspace_core, the bins in mspace_bins, the system regions in mspace_system;
// reserved blocks, groups, aligned allocation and statistics have files of
// their own.
//
// Every operation on a block finds the block's space from its footer and
// checks that the space is one (its magic) before taking its lock, so that
// any thread may release or resize any block. No operation ever holds two
// locks: a resize that moves drops the lock between its steps.
#include "comm/alloc/mspace.h"

#include "comm/alloc/mspace_bins.h"
#include "comm/alloc/mspace_core.h"
#include "comm/alloc/mspace_handle.h"
#include "comm/alloc/mspace_lock.h"
#include "comm/alloc/mspace_reserved.h"
#include "comm/alloc/mspace_system.h"
#include "comm/os/module.h"
#include "comm/os/vmem.h"

#include <atomic>
#include <cstring>
#include <new>

namespace velk::mspace_impl {

parameters params{};
// 16-aligned like the state of every space with offset 0, so that the owner
// check (state and chunks share their residue) holds for it too.
alignas(alignment) mspace_state global_state{};

} // namespace velk::mspace_impl

namespace velk {

using namespace mspace_impl;

namespace {

// -- Defaults -----------------------------------------------------------------------

constexpr uint64_t default_direct_threshold = 256 * 1024;    // chunks of 256 KiB and more go direct
constexpr uint64_t default_trim_threshold = 2 * 1024 * 1024; // a top beyond 2 MiB is trimmed
// A space's own overhead: the state chunk and top_foot without the offset,
// 960 + 48 + 32.
constexpr uint64_t space_overhead = state_chunk + segment_chunk + min_chunk;

uint32_t parameters_lock = 0;

bool parameters_ready()
{
    return std::atomic_ref<uint64_t>(params.magic).load(std::memory_order_acquire) != 0;
}

// -- Spaces -------------------------------------------------------------------------

// Lays a space out from the start of [base, base + size): padding for the
// offset, the state in an in-use chunk, then the top.
mspace_state* init_space(uint8_t* base, uint64_t size, bool locked, uint64_t offset,
                         uint32_t segment_flags)
{
    chunk* sc = aligned_chunk(base, offset);
    auto* m = new (chunk_memory(sc)) mspace_state{};
    sc->head = state_chunk | inuse_bits;
    m->least_address = base;
    m->first_segment = segment{base, size, nullptr, segment_flags};
    m->footprint = m->peak_footprint = size;
    m->release_checks = release_check_rate;
    m->flags = (params.default_flags | space_noncontiguous) & ~space_locked;
    if (locked)
        m->flags |= space_locked;
    m->align_offset = offset;
    init_bins(m);
    chunk* top = chunk_at(sc, state_chunk);
    top->prev_foot = 0; // the state chunk has no footer: releasing the handle traps
    init_top(m, top, (address(base) + size - address(top) - top_foot(m)) & ~align_mask);
    set_magic(m, mspace_magic);
    return m;
}


} // namespace

// -- Parameters ---------------------------------------------------------------------

void mspace_init_parameters()
{
    if (parameters_ready())
        return;
    spin_acquire(parameters_lock);
    if (params.magic == 0) {
        uint64_t page = os::vmem_page_size();
        uint64_t granularity = os::vmem_granularity();
        if (!is_power_of_two(page) || !is_power_of_two(granularity))
            corruption_trap();
        params.page_size = page;
        params.granularity = granularity;
        params.direct_threshold = default_direct_threshold;
        params.trim_threshold = default_trim_threshold;
        params.default_flags = default_space_flags;
        // Atomic: other threads read the word's lock bit without the lock.
        std::atomic_ref<uint32_t>(global_state.flags).store(default_space_flags, std::memory_order_relaxed);
        std::atomic_ref<uint64_t>(params.magic).store(mspace_magic, std::memory_order_release);
    }
    spin_release(parameters_lock);
}

int mspace_set_parameter(int code, int value)
{
    mspace_init_parameters();
    uint64_t v = value == -1 ? ~uint64_t(0) : static_cast<uint64_t>(value);
    switch (code) {
    case mspace_param_trim_threshold:
        params.trim_threshold = v;
        return 1;
    case mspace_param_granularity:
        if (v < params.page_size || !is_power_of_two(v))
            return 0;
        params.granularity = v;
        return 1;
    case mspace_param_direct_threshold:
        params.direct_threshold = v;
        return 1;
    default:
        return 0;
    }
}

// -- Creation -------------------------------------------------------------------------

mspace mspace_create(uint64_t capacity, bool locked, uint64_t align_offset)
{
    mspace_init_parameters();
    uint64_t offset = align_offset & align_mask;
    uint64_t overhead = space_overhead + offset;
    if (capacity >= uint64_t(0) - overhead - params.page_size)
        return nullptr;
    uint64_t size = capacity == 0 ? params.granularity : granularity_align(capacity + overhead);
    if (size < capacity) // rounding wrapped
        return nullptr;
    auto* base = static_cast<uint8_t*>(os::vmem_reserve_commit(size));
    if (!base)
        return nullptr;
    return init_space(base, size, locked, offset, segment_owned);
}

mspace mspace_create_at(void* base, uint64_t capacity, bool locked, uint64_t align_offset)
{
    mspace_init_parameters();
    uint64_t offset = align_offset & align_mask;
    uint64_t overhead = space_overhead + offset;
    if (capacity <= overhead || capacity >= uint64_t(0) - overhead - params.page_size)
        return nullptr;
    // A base off the offset's residue costs up to 15 bytes more.
    if (align_distance(address(base), offset) + overhead > capacity)
        return nullptr;
    return init_space(static_cast<uint8_t*>(base), capacity, locked, offset, segment_extern);
}

namespace {

// Gives back the regions that m took from the system; the bytes given back.
uint64_t release_regions(mspace_state* m)
{
    uint64_t freed = 0;
    for (segment* s = &m->first_segment; s;) {
        // The record may lie in the region about to go: read it first.
        uint8_t* base = s->base;
        uint64_t size = s->size;
        uint32_t flags = s->flags;
        s = s->next;
        if (base && (flags & segment_owned) && !(flags & segment_extern) && os::vmem_release(base, size))
            freed += size;
    }
    return freed;
}

// Whether any block of the global space is still in use: a chunk in one of
// its regions, or a direct block, whose footer names the space too.
bool global_holds_blocks()
{
    const mspace_state* m = &global_state;
    if (global_statistics().direct_bytes != 0)
        return true;
    for (const segment* s = &m->first_segment; s && s->base; s = s->next) {
        uintptr_t end = address(s->base) + s->size;
        for (const chunk* q = aligned_chunk(s->base, m->align_offset);
             address(q) < end && q != m->top_chunk && q->head != fencepost_head; q = next_chunk(q))
            if (is_inuse(q))
                return true;
    }
    return false;
}

// A module loaded again gets a new global space each time, and the old one's
// regions would stay mapped, with their state gone with the module. The
// module's first static is its last to go: after every other exit function
// has released what it held, this one gives the regions back, unless a block
// in them lives on (a process-wide singleton that the module made outlives
// it). A main program keeps its space to the end, when the system takes it.
struct global_space_end
{
    ~global_space_end()
    {
        if (os::module_handle_of(&global_state) == os::main_program_handle() || global_holds_blocks())
            return;
        release_regions(&global_state);
        // A late allocation starts a new region instead of reusing a freed one.
        uint32_t flags = global_state.flags;
        global_state = mspace_state{};
        global_state.flags = flags;
    }
};

[[gnu::init_priority(101)]] global_space_end the_global_space_end;

} // namespace

uint64_t mspace_destroy(mspace msp)
{
    mspace_state* m = state_of(msp);
    if (is_global(m))
        return 0;
    set_magic(m, 0); // a state in caller memory outlives this: make it no space
    return release_regions(m);
}

// -- Blocks -------------------------------------------------------------------------------

void* mspace_alloc_zeroed(mspace msp, uint64_t count, uint64_t size)
{
    uint64_t bytes = 0;
    if (count != 0) {
        bytes = count * size;
        // Only products of factors over 16 bits can overflow.
        if (((count | size) & ~uint64_t(0xFFFF)) && bytes / count != size)
            bytes = ~uint64_t(0);
    }
    void* p = mspace_alloc(msp, bytes);
    bool direct = p && (load_head(memory_chunk(p)) & flag_bits) == 0;
    if (p && !direct) // a direct chunk is a fresh region, zero already
        std::memset(p, 0, bytes);
    return p;
}


void* mspace_resize(mspace msp, void* p, uint64_t bytes)
{
    if (!p)
        return mspace_alloc(msp, bytes);
    if (bytes >= max_request)
        return nullptr;
    chunk* c = memory_chunk(p);
    uint64_t head = load_head(c);
    if (head & reserved_bit)
        return resize_reserved(c, bytes);
    mspace_state* m = owner_of(c, head);
    uint64_t old_usable;
    {
        space_guard guard(m);
        if (resize_locked(m, c, request_size(bytes)))
            return p;
        old_usable = chunk_size(c) - chunk_overhead;
    }
    void* q = mspace_alloc(m, bytes);
    if (!q)
        return nullptr;
    std::memcpy(q, p, old_usable < bytes ? old_usable : bytes);
    space_guard guard(m);
    release_locked(m, c);
    return q;
}

void* mspace_resize_in_place(void* p, uint64_t bytes)
{
    if (!p || bytes >= max_request)
        return nullptr;
    chunk* c = memory_chunk(p);
    uint64_t head = load_head(c);
    if (head & reserved_bit)
        return resize_reserved(c, bytes);
    mspace_state* m = owner_of(c, head);
    space_guard guard(m);
    return resize_locked(m, c, request_size(bytes)) ? p : nullptr;
}

uint64_t mspace_usable_size(const void* p)
{
    if (!p)
        return 0;
    const chunk* c = memory_chunk(p);
    uint64_t head = load_head(c);
    if (head & reserved_bit)
        return reserved_usable(c);
    bool in_use = (head & inuse_bits) != pinuse_bit;
    return in_use ? (head & ~flag_bits) - chunk_overhead : 0;
}

mspace mspace_owner(const void* p)
{
    if (!p)
        return nullptr;
    const chunk* c = memory_chunk(p);
    uint64_t head = load_head(c);
    return (head & reserved_bit) ? nullptr : owner_of(c, head);
}

// -- The global space ------------------------------------------------------------------------

mspace global_mspace()
{
    return &global_state;
}

uint64_t global_usable_size(const void* p)
{
    return mspace_usable_size(p);
}

void* global_alloc_zeroed(uint64_t count, uint64_t size)
{
    return mspace_alloc_zeroed(&global_state, count, size);
}

void* global_resize(void* p, uint64_t bytes)
{
    return mspace_resize(&global_state, p, bytes);
}

void* global_resize_in_place(void* p, uint64_t bytes)
{
    return mspace_resize_in_place(p, bytes);
}

} // namespace velk
