// Groups of blocks: several chunks with adjacent addresses cut from one
// aggregate allocation, and the release of a table of blocks of one space
// that merges entries which adjoin.
#include "comm/alloc/mspace.h"

#include "comm/alloc/mspace_core.h"
#include "comm/alloc/mspace_handle.h"
#include "comm/alloc/mspace_lock.h"
#include "comm/alloc/mspace_system.h"

#include <cstring>

namespace velk {

using namespace mspace_impl;

namespace {

// Sum of the chunk sizes of a group (and of its table), or max_request when
// it would not fit a request.
uint64_t group_bytes(uint64_t count, const uint64_t* sizes, uint32_t options, uint64_t table_size)
{
    uint64_t total = table_size;
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t s = sizes[(options & mspace_group_equal_sizes) ? 0 : i];
        if (s >= max_request)
            return max_request;
        uint64_t add = request_size(s);
        if (total + add < total || total + add >= max_request)
            return max_request;
        total += add;
    }
    return total;
}

// Cuts the aggregate chunk p into the group's chunks (and the table chunk,
// when table_size is not 0) and fills the table.
void** cut_group(mspace_state* m, chunk* p, uint64_t count, const uint64_t* sizes, uint32_t options,
                 void** table, uint64_t table_size)
{
    uint64_t remaining = chunk_size(p);
    if (options & mspace_group_clear)
        std::memset(chunk_memory(p), 0, remaining - chunk_overhead - table_size);
    if (!table) {
        uint64_t contents = remaining - table_size;
        chunk* tc = chunk_at(p, contents);
        table = static_cast<void**>(chunk_memory(tc));
        set_size_and_pinuse_of_inuse_chunk(m, tc, table_size);
        remaining = contents;
    }
    for (uint64_t i = 0;; ++i) {
        table[i] = chunk_memory(p);
        if (i == count - 1) {
            set_size_and_pinuse_of_inuse_chunk(m, p, remaining);
            return table;
        }
        uint64_t size = request_size(sizes[(options & mspace_group_equal_sizes) ? 0 : i]);
        remaining -= size;
        set_size_and_pinuse_of_inuse_chunk(m, p, size);
        p = chunk_at(p, size);
    }
}

// Releases the in-use chunk p of a group release; merges it with the next
// table entry when that is the adjoining chunk of the same space.
void release_group_entry(mspace_state* m, chunk* p, void** next_entry)
{
    if (!ok_address(m, p) || !is_inuse(p))
        corruption_trap();
    uint64_t psize = chunk_size(p);
    chunk* next = chunk_at(p, psize);
    if (next_entry && *next_entry == chunk_memory(next) && !is_direct(p) &&
        chunk_at(next, chunk_size(next))->prev_foot == footer_of(m)) {
        set_inuse(m, p, psize + chunk_size(next));
        *next_entry = chunk_memory(p);
        return;
    }
    dispose_chunk(m, p, psize);
}

} // namespace

void** mspace_alloc_group(mspace msp, uint64_t count, const uint64_t* sizes, uint32_t options,
                          void** table)
{
    mspace_state* m = state_for_alloc(msp);
    if (count == 0)
        return table ? table : static_cast<void**>(mspace_alloc(m, 0));
    uint64_t table_size = 0;
    if (!table) {
        if (count >= max_request / word)
            return nullptr;
        table_size = request_size(count * word);
    }
    uint64_t total = group_bytes(count, sizes, options, table_size);
    if (total >= max_request)
        return nullptr;
    space_guard guard(m);
    // One chunk inside the segments, so that the group can be cut from it.
    void* mem = alloc_locked(m, total - chunk_overhead, false);
    if (!mem)
        return nullptr;
    return cut_group(m, memory_chunk(mem), count, sizes, options, table, table_size);
}

uint64_t mspace_release_group(mspace msp, void** table, uint64_t count)
{
    mspace_state* m = state_of(msp);
    uint64_t skipped = 0;
    space_guard guard(m);
    for (uint64_t i = 0; i < count; ++i) {
        if (!table[i])
            continue;
        chunk* p = memory_chunk(table[i]);
        if (is_reserved(p) || chunk_at(p, chunk_size(p))->prev_foot != footer_of(m)) {
            ++skipped;
            continue;
        }
        table[i] = nullptr;
        release_group_entry(m, p, i + 1 < count ? &table[i + 1] : nullptr);
    }
    if (m->top_size > m->trim_check)
        system_trim(m, 0);
    return skipped;
}

void** global_alloc_group(uint64_t count, const uint64_t* sizes, uint32_t options, void** table)
{
    return mspace_alloc_group(&global_state, count, sizes, options, table);
}

} // namespace velk
