// Reserved blocks: reserving, growing, measuring and releasing them. They
// take no lock: a reserved block belongs to its holder alone.
#include "comm/alloc/mspace_reserved.h"

#include "comm/alloc/mspace.h"
#include "comm/alloc/mspace_handle.h"
#include "comm/os/vmem.h"

namespace velk::mspace_impl {

namespace {

uint64_t reserved_distance(const chunk* c)
{
    return c->prev_foot & (params.granularity - 1);
}

uint64_t reserved_region_size(const chunk* c)
{
    return c->prev_foot - reserved_distance(c);
}

} // namespace

uint64_t reserved_capacity(const chunk* c)
{
    return reserved_region_size(c) - reserved_distance(c) - chunk_overhead;
}

uint64_t reserved_usable(const chunk* c)
{
    return chunk_size(c) - reserved_distance(c) - chunk_overhead;
}

void* resize_reserved(chunk* c, uint64_t bytes)
{
    if (bytes <= reserved_usable(c))
        return chunk_memory(c);
    if (bytes > reserved_capacity(c))
        return nullptr;
    uint64_t distance = reserved_distance(c);
    uint64_t page = params.page_size;
    uint64_t wanted = (distance + request_size(bytes) + chunk_overhead + page - 1) & ~(page - 1);
    uint64_t extent = wanted < reserved_region_size(c) ? wanted : reserved_region_size(c);
    if (!os::vmem_commit(chunk_before(c, distance), extent))
        return nullptr;
    c->head = extent | (c->head & flag_bits);
    return chunk_memory(c);
}

void release_reserved(chunk* c)
{
    os::vmem_release(chunk_before(c, reserved_distance(c)), reserved_region_size(c));
}

} // namespace velk::mspace_impl

namespace velk {

using namespace mspace_impl;

void* mspace_reserve_block(mspace msp, uint64_t bytes)
{
    mspace_state* m = state_for_alloc(msp);
    // Room for the header and the largest aligning distance: 16 + 15.
    uint64_t wanted = bytes + chunk_overhead + align_mask;
    if (wanted < bytes)
        return nullptr;
    uint64_t size = granularity_align(wanted);
    if (size < wanted)
        return nullptr;
    void* base;
    if (params.page_size < size) {
        base = os::vmem_reserve(size);
        if (base && !os::vmem_commit(base, params.page_size)) {
            os::vmem_release(base, size);
            return nullptr;
        }
    } else
        base = os::vmem_reserve_commit(size);
    if (!base)
        return nullptr;
    uint64_t distance = align_distance(address(base), m->align_offset);
    chunk* c = chunk_at(base, distance);
    c->prev_foot = distance + size;
    c->head = params.page_size | reserved_bit;
    return chunk_memory(c);
}

uint64_t mspace_reserved_capacity(const void* p)
{
    if (!p)
        return 0;
    const chunk* c = memory_chunk(p);
    return (load_head(c) & reserved_bit) ? reserved_capacity(c) : 0;
}

} // namespace velk
