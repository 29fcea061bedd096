// Test-only introspection of the memory spaces: the consistency check.
//
// The walk of the segments finds every free chunk; the walk of the bins must
// find the same ones, each once, in the right bin, with links that agree in
// both directions. Allocation here (the sets, the text) goes to the runtime's
// heap, never to a memory space, so it is safe under the space's lock.
#include "comm/alloc/mspace_check.h"

#include "comm/alloc/mspace_bins.h"
#include "comm/alloc/mspace_chunk.h"
#include "comm/alloc/mspace_lock.h"
#include "comm/alloc/mspace_system.h"

#include <new>
#include <sstream>
#include <unordered_set>

namespace velk {

using namespace mspace_impl;

namespace {

// No walk of a sane space is this long; a longer one is a cycle.
constexpr uint64_t walk_limit = uint64_t(1) << 32;

class checker
{
public:
    explicit checker(mspace_state* m) : _m(m) {}

    void run(mspace_check_result& r);

private:
    bool fail(const std::string& what, const void* where = nullptr)
    {
        if (_problem.empty()) {
            std::ostringstream s;
            s << what;
            if (where)
                s << " at " << where;
            _problem = s.str();
        }
        return false;
    }

    bool check_segments(mspace_check_result& r);
    bool walk_segment(const segment* s);
    bool check_chunk(const chunk* q, uintptr_t end, const chunk* prev);
    bool check_top();
    bool check_remainder();
    bool check_small_bins();
    bool check_tree_bins();
    bool check_tree_node(const chunk* t, uint32_t i, uint64_t path, uint32_t depth);
    bool check_ring(const chunk* t, uint32_t i);
    bool claim_binned(const chunk* c);

    mspace_state* _m;
    std::string _problem;
    std::unordered_set<const chunk*> _free_in_segments;
    std::unordered_set<const chunk*> _binned;
    bool _top_seen = false;
};

void checker::run(mspace_check_result& r)
{
    r.small_map = _m->small_map;
    r.tree_map = _m->tree_map;
    r.top_size = _m->top_size;
    r.remainder_size = _m->remainder_size;
    if (!has_magic(_m) && !(is_global(_m) && !_m->top_chunk))
        fail("bad magic");
    else if (_m->top_chunk) {
        check_segments(r) && check_top() && check_remainder() && check_small_bins() &&
            check_tree_bins();
        uint64_t expected = _free_in_segments.size() - (_m->remainder_size ? 1 : 0);
        if (_problem.empty() && _binned.size() != expected)
            fail("free chunks in segments and in bins differ in number");
        r.binned_chunks = _binned.size();
    }
    if (_problem.empty() && _m->peak_footprint < _m->footprint)
        fail("peak footprint below footprint");
    if (_problem.empty() && _m->footprint < r.segment_bytes)
        fail("footprint below the segments' sizes");
    r.problem = _problem;
}

// -- Segments and their chunks -----------------------------------------------------

bool checker::check_segments(mspace_check_result& r)
{
    for (const segment* s = &_m->first_segment; s; s = s->next) {
        if (++r.segments > walk_limit)
            return fail("segment list does not end");
        r.segment_bytes += s->size;
        if (s->base < _m->least_address)
            return fail("segment below least_address", s->base);
        if (!walk_segment(s))
            return false;
    }
    if (!_top_seen)
        return fail("top not reached by any segment walk", _m->top_chunk);
    return true;
}

bool checker::walk_segment(const segment* s)
{
    uintptr_t end = address(s->base) + s->size;
    const chunk* prev = nullptr;
    for (const chunk* q = aligned_chunk(s->base, _m->align_offset);; q = next_chunk(q)) {
        if (address(q) >= end)
            return fail("chunk walk ran past the segment end", q);
        if (q == _m->top_chunk) {
            _top_seen = true;
            return true;
        }
        if (q->head == fencepost_head)
            return true;
        if (!check_chunk(q, end, prev))
            return false;
        prev = q;
    }
}

bool checker::check_chunk(const chunk* q, uintptr_t end, const chunk* prev)
{
    uint64_t size = chunk_size(q);
    if (size < min_chunk || (size & align_mask))
        return fail("chunk size is not a chunk size", q);
    if ((address(q) & align_mask) != _m->align_offset)
        return fail("chunk off the space's alignment offset", q);
    if (address(q) + size + word + word > end)
        return fail("chunk reaches past its segment", q);
    if (is_direct(q) || is_reserved(q))
        return fail("direct or reserved chunk inside a segment", q);
    const chunk* next = next_chunk(q);
    if (!pinuse(q) && (!prev || prev_chunk(q) != prev || is_inuse(prev)))
        return fail("previous-free bit without a free predecessor", q);
    if (pinuse(q) && prev && !is_inuse(prev))
        return fail("previous-in-use bit behind a free chunk", q);
    if (is_inuse(q)) {
        if (!pinuse(next))
            return fail("in-use chunk whose successor thinks it free", q);
        bool is_state = chunk_memory(q) == static_cast<void*>(_m);
        if (!is_state && next->prev_foot != footer_of(_m))
            return fail("in-use chunk with a wrong footer", q);
        return true;
    }
    if (next->prev_foot != size)
        return fail("free chunk whose size is not repeated behind it", q);
    if (!cinuse(next) || pinuse(next))
        return fail("free chunk not followed by an in-use chunk that knows it", q);
    if (!ok_address(_m, q))
        return fail("free chunk under least_address", q);
    _free_in_segments.insert(q);
    return true;
}

bool checker::check_top()
{
    const chunk* t = _m->top_chunk;
    if (_m->top_size & align_mask)
        return fail("top size not a multiple of 16", t);
    if (t->head != (_m->top_size | pinuse_bit))
        return fail("top head does not match top_size", t);
    if (chunk_at(t, _m->top_size)->head != top_foot(_m))
        return fail("word behind the top is not top_foot", t);
    const segment* s = segment_holding(_m, t);
    if (!s || address(t) + _m->top_size + top_foot(_m) > address(s->base) + s->size)
        return fail("top and its foot do not fit their segment", t);
    return true;
}

bool checker::check_remainder()
{
    const chunk* r = _m->remainder_chunk;
    if (_m->remainder_size == 0)
        return r == nullptr || fail("cleared remainder still points somewhere", r);
    if (chunk_size(r) != _m->remainder_size || is_inuse(r))
        return fail("remainder is not a free chunk of remainder_size", r);
    if (!_free_in_segments.count(r))
        return fail("remainder not found in any segment", r);
    return true;
}

// -- Bins -----------------------------------------------------------------------------

bool checker::claim_binned(const chunk* c)
{
    if (!_free_in_segments.count(c))
        return fail("binned chunk not free in any segment", c);
    if (c == _m->remainder_chunk && _m->remainder_size)
        return fail("remainder also in a bin", c);
    if (!_binned.insert(c).second)
        return fail("chunk in bins twice", c);
    return true;
}

bool checker::check_small_bins()
{
    for (uint32_t i = 0; i < small_bin_count; ++i) {
        if (!(_m->small_map & bin_bit(i)))
            continue;
        chunk* bin = small_bin(_m, i);
        if (bin->fd == bin)
            return fail("small bin marked but empty");
        uint64_t n = 0;
        for (const chunk* c = bin->fd; c != bin; c = c->fd) {
            if (++n > walk_limit)
                return fail("small bin list does not end");
            if (!ok_address(_m, c) || c->fd->bk != c)
                return fail("broken small bin link", c);
            if (chunk_size(c) != small_index_size(i))
                return fail("chunk in the wrong small bin", c);
            if (!claim_binned(c))
                return false;
        }
    }
    return true;
}

bool checker::check_tree_bins()
{
    for (uint32_t i = 0; i < tree_bin_count; ++i) {
        const chunk* root = _m->tree_bins[i];
        bool marked = (_m->tree_map & bin_bit(i)) != 0;
        if (marked != (root != nullptr))
            return fail("tree map bit disagrees with its bin");
        if (!root)
            continue;
        if (root->parent != reinterpret_cast<const chunk*>(&_m->tree_bins[i]))
            return fail("tree root whose parent is not its bin", root);
        if (!check_tree_node(root, i, 0, 0))
            return false;
    }
    return true;
}

// path holds the sides taken so far at the top of the word; every size below
// must agree with it in the trie's key bits.
bool checker::check_tree_node(const chunk* t, uint32_t i, uint64_t path, uint32_t depth)
{
    uint64_t size = chunk_size(t);
    uint64_t key = size << tree_leftshift(i);
    if (t->index != i || tree_index(size) != i)
        return fail("tree chunk in the wrong bin", t);
    if (depth >= 64)
        return fail("tree deeper than the key", t);
    if (depth > 0 && ((key ^ path) >> (64 - depth)) != 0)
        return fail("tree chunk off its trie path", t);
    if (!check_ring(t, i))
        return false;
    for (uint64_t side = 0; side < 2; ++side) {
        const chunk* c = t->child[side];
        if (!c)
            continue;
        if (c->parent != t)
            return fail("tree child whose parent is not its node", c);
        uint64_t child_path = path | (side << (63 - depth));
        if (!check_tree_node(c, i, child_path, depth + 1))
            return false;
    }
    return true;
}

bool checker::check_ring(const chunk* t, uint32_t i)
{
    const chunk* c = t;
    uint64_t n = 0;
    do {
        if (++n > walk_limit)
            return fail("tree ring does not end", t);
        if (!ok_address(_m, c) || c->fd->bk != c || c->bk->fd != c)
            return fail("broken tree ring link", c);
        if (chunk_size(c) != chunk_size(t))
            return fail("tree ring with sizes that differ", c);
        if (c != t && (c->parent != nullptr || c->index != i))
            return fail("tree ring member that looks like a node", c);
        if (!claim_binned(c))
            return false;
        c = c->fd;
    } while (c != t);
    return true;
}

} // namespace

mspace_check_result mspace_check(mspace msp)
{
    auto* m = static_cast<mspace_state*>(msp);
    mspace_check_result r;
    space_guard guard(m);
    checker(m).run(r);
    return r;
}

uint64_t mspace_direct_region_size(const void* p)
{
    if (!p)
        return 0;
    const chunk* c = memory_chunk(p);
    return is_direct(c) ? direct_region_size(c) : 0;
}

uint64_t mspace_chunk_size(const void* p)
{
    return chunk_size(memory_chunk(p));
}

uint64_t mspace_state_bytes()
{
    return sizeof(mspace_state);
}

mspace mspace_init_regionless(void* storage)
{
    mspace_init_parameters();
    auto* m = new (storage) mspace_state{};
    m->flags = default_space_flags;
    set_magic(m, mspace_magic);
    return m;
}

} // namespace velk
