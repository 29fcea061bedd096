// Memory of a space from and back to the system.
//
// New regions are asked for in whole granules. A region that adjoins the
// segment of the top from above extends it; one that adjoins any owned
// segment from below becomes that segment's new start; any other becomes a
// segment of its own and the newest, with the old top closed off by a
// segment record and fenceposts. Requests of direct_threshold and more get a
// region of their own (a direct chunk), so that large buffers go back to the
// system the moment they are released.
#include "comm/alloc/mspace_system.h"

#include "comm/alloc/mspace_bins.h"
#include "comm/os/vmem.h"

namespace velk::mspace_impl {

namespace {

// Room a new region needs beyond the chunk: top_foot and one alignment unit.
uint64_t region_padding(const mspace_state* m)
{
    return top_foot(m) + alignment;
}

// False if growing the footprint by size bytes wraps or passes the limit.
bool within_footprint_limit(const mspace_state* m, uint64_t size)
{
    if (m->footprint_limit == 0)
        return true;
    uint64_t grown = m->footprint + size;
    return grown > m->footprint && grown <= m->footprint_limit;
}

void count_new_region(mspace_state* m, uint8_t* base, uint64_t size)
{
    if (!m->least_address || base < m->least_address)
        m->least_address = base;
    m->footprint += size;
    if (m->footprint > m->peak_footprint)
        m->peak_footprint = m->footprint;
}

bool segment_holds(const segment* s, const void* p)
{
    return address(p) >= address(s->base) && address(p) < address(s->base) + s->size;
}

bool is_owned(const segment* s)
{
    return (s->flags & segment_owned) && !(s->flags & segment_extern);
}

// True if a segment record of the list lies inside s (the state's own
// first_segment included): such a segment can't lose its tail.
bool has_segment_link(mspace_state* m, const segment* s)
{
    for (const segment* sp = &m->first_segment; sp; sp = sp->next)
        if (segment_holds(s, sp))
            return true;
    return false;
}

chunk* direct_alloc(mspace_state* m, uint64_t nb)
{
    uint64_t size = granularity_align(nb + direct_padding);
    if (size <= nb || !within_footprint_limit(m, size))
        return nullptr;
    auto* base = static_cast<uint8_t*>(os::vmem_reserve_commit(size));
    if (!base)
        return nullptr;
    uint64_t distance = align_distance(address(base), m->align_offset);
    chunk* p = chunk_at(base, distance);
    uint64_t psize = size - direct_overhead;
    p->prev_foot = distance;
    p->head = psize;
    mark_inuse_foot(m, p, psize);
    chunk_at(p, psize)->head = fencepost_head;
    chunk_at(p, psize + word)->head = 0;
    count_new_region(m, base, size);
    return p;
}

// The first region of a space that has none: it becomes the newest segment
// and, from its aligned start, the top.
void init_first_region(mspace_state* m, uint8_t* base, uint64_t size)
{
    m->first_segment.base = base;
    m->first_segment.size = size;
    m->first_segment.flags = segment_owned;
    m->first_segment.next = nullptr;
    m->release_checks = release_check_rate;
    init_bins(m);
    init_top_in_region(m, base, size);
    set_magic(m, mspace_magic); // last: the space is ready
}

// The new region [base, base + size) ends where segment s begins: s now
// starts at base. The chunk is carved from the new region's front and the
// rest joins what was s's first chunk.
chunk* prepend_alloc(mspace_state* m, uint8_t* base, uint8_t* old_base, uint64_t nb)
{
    chunk* p = aligned_chunk(base, m->align_offset);
    chunk* old_first = aligned_chunk(old_base, m->align_offset);
    chunk* q = chunk_at(p, nb);
    uint64_t qsize = address(old_first) - address(p) - nb;
    set_size_and_pinuse_of_inuse_chunk(m, p, nb);
    if (old_first == m->top_chunk) {
        m->top_size += qsize;
        m->top_chunk = q;
        q->head = m->top_size | pinuse_bit;
    } else if (old_first == m->remainder_chunk && m->remainder_size != 0) {
        m->remainder_size += qsize;
        m->remainder_chunk = q;
        set_size_and_pinuse_of_free_chunk(q, m->remainder_size);
    } else {
        if (!is_inuse(old_first)) {
            uint64_t nsize = chunk_size(old_first);
            unlink_chunk(m, old_first, nsize);
            old_first = chunk_at(old_first, nsize);
            qsize += nsize;
        }
        set_free_with_pinuse(q, qsize, old_first);
        insert_chunk(m, q, qsize);
    }
    return p;
}

// Makes the new region the newest segment and the top. The old top's
// segment gets a record (a copy of first_segment) in an in-use chunk 95
// bytes before its end, aligned, or at the old top itself when that spot
// lies within its first minimum chunk; the words behind the record up to
// the segment's end become fenceposts, and what the old top kept below the
// record goes to a bin.
void add_segment(mspace_state* m, uint8_t* base, uint64_t size)
{
    chunk* old_top = m->top_chunk;
    segment* old_seg = segment_holding(m, old_top);
    uintptr_t old_end = address(old_seg->base) + old_seg->size;
    // The record chunk, a minimum chunk of fenceposts behind it and an
    // alignment unit of slack: 48 + 32 + 15.
    uintptr_t raw = old_end - (segment_chunk + min_chunk + align_mask);
    uintptr_t spot = raw + align_distance(raw, m->align_offset);
    chunk* record = address(old_top) + min_chunk > spot ? old_top : reinterpret_cast<chunk*>(spot);
    auto* stored = static_cast<segment*>(chunk_memory(record));

    init_top_in_region(m, base, size);
    set_size_and_pinuse_of_inuse_chunk(m, record, segment_chunk);
    *stored = m->first_segment;
    m->first_segment.base = base;
    m->first_segment.size = size;
    m->first_segment.flags = segment_owned;
    m->first_segment.next = stored;

    for (chunk* p = chunk_at(record, segment_chunk);; p = chunk_at(p, word)) {
        p->head = fencepost_head;
        if (address(p) + 2 * word + word > old_end) // the next head would pass the end
            break;
    }
    if (record != old_top) {
        uint64_t rest = address(record) - address(old_top);
        set_free_with_pinuse(old_top, rest, record);
        insert_chunk(m, old_top, rest);
    }
}

// The first owned segment that ends exactly at base and holds the top.
segment* segment_ending_at_top(mspace_state* m, uint8_t* base)
{
    for (segment* s = &m->first_segment; s; s = s->next)
        if (address(s->base) + s->size == address(base))
            return is_owned(s) && segment_holds(s, m->top_chunk) ? s : nullptr;
    return nullptr;
}

// The first owned segment that begins exactly at end.
segment* segment_starting_at(mspace_state* m, uintptr_t end)
{
    for (segment* s = &m->first_segment; s; s = s->next)
        if (address(s->base) == end)
            return is_owned(s) ? s : nullptr;
    return nullptr;
}

// Takes a segment's only (free) chunk out of circulation before its region
// goes back; when the system refuses, the caller files it in its tree bin
// again.
void withdraw_chunk(mspace_state* m, chunk* p)
{
    if (p == m->remainder_chunk && m->remainder_size != 0) {
        m->remainder_chunk = nullptr;
        m->remainder_size = 0;
    } else
        unlink_large(m, p);
}

} // namespace

// -- Top and segments ---------------------------------------------------------------

void init_top(mspace_state* m, chunk* c, uint64_t size)
{
    m->top_chunk = c;
    m->top_size = size;
    c->head = size | pinuse_bit;
    chunk_at(c, size)->head = top_foot(m);
    m->trim_check = params.trim_threshold;
}

void init_top_in_region(mspace_state* m, uint8_t* base, uint64_t size)
{
    chunk* top = aligned_chunk(base, m->align_offset);
    uint64_t room = address(base) + size - address(top) - top_foot(m);
    init_top(m, top, room & ~align_mask);
}

segment* segment_holding(mspace_state* m, const void* p)
{
    for (segment* s = &m->first_segment; s; s = s->next)
        if (segment_holds(s, p))
            return s;
    return nullptr;
}

// -- Obtaining memory ---------------------------------------------------------------

// 1. Large request, direct chunks allowed and a top already there: a direct
//    chunk. (So the first allocation of an empty space never goes direct.)
// 2. Otherwise a region of nb plus padding, in whole granules, within the
//    footprint limit; reserved and committed in one call.
// 3. No top yet: the region is the first. Otherwise it extends the top's
//    segment, starts an owned segment it adjoins from below (the chunk comes
//    from there at once), or becomes a new segment and the top.
// 4. Cut the chunk from the top if the top is now larger than nb.
chunk* system_alloc(mspace_state* m, uint64_t nb, bool allow_direct)
{
    if (allow_direct && (m->flags & space_direct) && nb >= params.direct_threshold &&
        m->top_size != 0) {
        if (chunk* p = direct_alloc(m, nb))
            return p;
    }
    uint64_t size = granularity_align(nb + region_padding(m));
    if (size <= nb || !within_footprint_limit(m, size))
        return nullptr;
    auto* base = static_cast<uint8_t*>(os::vmem_reserve_commit(size));
    if (!base)
        return nullptr;
    count_new_region(m, base, size);

    if (!m->top_chunk)
        init_first_region(m, base, size);
    else if (segment* s = segment_ending_at_top(m, base)) {
        s->size += size;
        init_top(m, m->top_chunk, m->top_size + size);
    } else if (segment* s = segment_starting_at(m, address(base) + size)) {
        uint8_t* old_base = s->base;
        s->base = base;
        s->size += size;
        return prepend_alloc(m, base, old_base, nb);
    } else
        add_segment(m, base, size);

    if (nb < m->top_size)
        return cut_from_top(m, nb);
    return nullptr;
}

// -- Giving memory back -------------------------------------------------------------

void release_direct(mspace_state* m, chunk* p)
{
    uint64_t size = direct_region_size(p);
    if (os::vmem_release(chunk_before(p, p->prev_foot), size))
        m->footprint -= size;
}

// 1. A pad that no request could reach, or no top: nothing to do.
// 2. If the top exceeds pad plus top_foot by more than a granule: release
//    that excess in whole granules from the end of the top's segment, if it
//    is an owned segment, large enough and holding no segment record.
// 3. Release empty segments.
// 4. If nothing went back although the top is over the trim check, stop
//    releases from trying again.
int system_trim(mspace_state* m, uint64_t pad)
{
    if (pad >= max_request || !m->top_chunk)
        return 0;
    uint64_t released = 0;
    pad += top_foot(m);
    if (m->top_size > pad) {
        uint64_t unit = params.granularity;
        uint64_t extra = ((m->top_size - pad + (unit - 1)) / unit - 1) * unit;
        segment* s = segment_holding(m, m->top_chunk);
        if (extra != 0 && s && is_owned(s) && s->size >= extra && !has_segment_link(m, s) &&
            os::vmem_release(s->base + (s->size - extra), extra)) {
            released = extra;
            s->size -= extra;
            m->footprint -= extra;
            init_top(m, m->top_chunk, m->top_size - extra);
        }
    }
    released += release_unused_segments(m);
    if (released == 0 && m->top_size > m->trim_check)
        m->trim_check = ~uint64_t(0);
    return released != 0 ? 1 : 0;
}

// Walks the list from the record behind first_segment (the newest segment
// is never given back). An owned segment whose first chunk is free and
// reaches to within top_foot of its end holds nothing: its region goes back
// and its record leaves the list. The next scan comes after as many large
// releases as there are segments, or release_check_rate if that is more.
uint64_t release_unused_segments(mspace_state* m)
{
    uint64_t released = 0;
    uint64_t visited = 0;
    segment* pred = &m->first_segment;
    for (segment* s = pred->next; s; s = pred->next) {
        uint8_t* base = s->base;
        uint64_t size = s->size;
        ++visited;
        chunk* p = aligned_chunk(base, m->align_offset);
        uint64_t psize = chunk_size(p);
        bool empty = is_owned(s) && !is_inuse(p) &&
                     address(p) + psize >= address(base) + size - top_foot(m);
        if (!empty) {
            pred = s;
            continue;
        }
        withdraw_chunk(m, p);
        segment* next = s->next;
        if (os::vmem_release(base, size)) {
            released += size;
            m->footprint -= size;
            pred->next = next;
        } else {
            insert_large(m, p, psize);
            pred = s;
        }
    }
    m->release_checks = visited > release_check_rate ? visited : release_check_rate;
    return released;
}

} // namespace velk::mspace_impl
