// Memory spaces under a long random mix of allocations, resizes and
// releases over several spaces. Every block carries its own byte pattern,
// checked before the block is resized or released; every space is checked
// for consistency, and its footprint against its segments and direct
// blocks, at intervals.
//
// Repeatable: MSPACE_TORTURE_SEED picks the seed and MSPACE_TORTURE_OPS the
// number of operations (default 1,000,000). A failure names seed and step.
#include "comm/alloc/mspace.h"

#include "comm/alloc/mspace_check.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using velk::mspace;

constexpr uint64_t kib = 1024;
constexpr uint64_t mib = 1024 * kib;
constexpr uint64_t default_ops = 1'000'000;
constexpr uint64_t default_seed = 0x5eed;
constexpr uint64_t check_interval = 25'000;
// The live set stays under these, so that the run fits any test machine.
constexpr size_t max_live_blocks = 30'000;
constexpr uint64_t max_live_bytes = 192 * mib;
// The space with a footprint limit, and that limit.
constexpr uint32_t limited_space = 3;
constexpr uint64_t footprint_limit = 64 * mib;
constexpr uint64_t granule = 64 * kib;

uint64_t env_or(const char* name, uint64_t fallback)
{
    const char* v = std::getenv(name);
    return v && *v ? std::strtoull(v, nullptr, 0) : fallback;
}

struct live_block
{
    unsigned char* p;
    uint64_t size;
    uint32_t space;
    uint32_t id;
};

unsigned char pattern_of(uint32_t id)
{
    return static_cast<unsigned char>(id * 131 + 7);
}

// The pattern of block id: its id in the first four bytes, then one byte value.
unsigned char expected_byte(uint32_t id, uint64_t i)
{
    return i < 4 ? static_cast<unsigned char>(id >> (8 * i)) : pattern_of(id);
}

void fill(unsigned char* p, uint64_t from, uint64_t to, uint32_t id)
{
    for (uint64_t i = from; i < to && i < 4; ++i)
        p[i] = expected_byte(id, i);
    if (to > 4 && to > from)
        std::memset(p + (from > 4 ? from : 4), pattern_of(id), to - (from > 4 ? from : 4));
}

// A run of each byte value, so that blocks are compared with memcmp.
constexpr uint64_t run_length = 4096;
const unsigned char* run_of(unsigned char v)
{
    static std::vector<unsigned char> runs = [] {
        std::vector<unsigned char> r(256 * run_length);
        for (int b = 0; b < 256; ++b)
            std::memset(&r[b * run_length], b, run_length);
        return r;
    }();
    return &runs[v * run_length];
}

// The first byte in [0, upto) that breaks the pattern, or upto.
uint64_t first_bad_byte(const unsigned char* p, uint64_t upto, uint32_t id)
{
    for (uint64_t i = 0; i < upto && i < 4; ++i)
        if (p[i] != expected_byte(id, i))
            return i;
    unsigned char v = pattern_of(id);
    const unsigned char* run = run_of(v);
    for (uint64_t i = 4; i < upto; i += run_length) {
        uint64_t n = upto - i < run_length ? upto - i : run_length;
        if (std::memcmp(p + i, run, n) == 0)
            continue;
        for (uint64_t k = i;; ++k)
            if (p[k] != v)
                return k;
    }
    return upto;
}

class torture
{
public:
    torture(uint64_t seed) : _seed(seed), _rng(seed) { make_spaces(); }
    ~torture() { destroy_spaces(); }

    // Runs ops random operations; false after the first failure (reported).
    bool run(uint64_t ops);

private:
    void make_spaces();
    void destroy_spaces();
    uint64_t pick_size();
    uint64_t pick_resize(uint64_t old_size);
    bool step();
    bool do_alloc(bool zeroed);
    bool do_release(size_t index);
    bool do_resize(size_t index, bool in_place);
    bool accept_failure(uint32_t space, uint64_t size);
    bool verify(const live_block& b, uint64_t upto, const char* when);
    bool check_spaces();
    bool release_all();
    bool fail(const std::string& what);

    uint64_t _seed;
    std::mt19937_64 _rng;
    uint64_t _op = 0;
    uint32_t _next_id = 1;
    uint64_t _live_bytes = 0;
    std::vector<live_block> _live;
    std::vector<mspace> _spaces;
    std::vector<unsigned char> _caller_memory;
    alignas(16) unsigned char _regionless_storage[1024];
};

void torture::make_spaces()
{
    _spaces.push_back(velk::mspace_create(0, true, 0));
    _spaces.push_back(velk::mspace_create(0, false, 8));
    velk::mspace_track_large_blocks(_spaces.back(), true); // large chunks stay in its segments
    _caller_memory.resize(mib);
    _spaces.push_back(velk::mspace_create_at(_caller_memory.data(), _caller_memory.size(), true, 0));
    _spaces.push_back(velk::mspace_init_regionless(_regionless_storage));
    velk::mspace_set_footprint_limit(_spaces[limited_space], footprint_limit);
}

void torture::destroy_spaces()
{
    for (mspace s : _spaces)
        if (s)
            velk::mspace_destroy(s);
}

// Mostly small, some medium, a few around the direct threshold and very few
// of several MiB.
uint64_t torture::pick_size()
{
    uint64_t r = _rng() % 10'000;
    if (r < 7'000)
        return 1 + _rng() % 256;
    if (r < 9'000)
        return 257 + _rng() % (4 * kib - 256);
    if (r < 9'800)
        return 4 * kib + _rng() % (60 * kib);
    if (r < 9'995)
        return 64 * kib + _rng() % (300 * kib);
    return 364 * kib + _rng() % (4 * mib);
}

uint64_t torture::pick_resize(uint64_t old_size)
{
    switch (_rng() % 4) {
    case 0: return pick_size();
    case 1: return old_size / 2 + 1;
    case 2: return old_size + 1 + _rng() % 64;
    default: return old_size * 2 + _rng() % 100;
    }
}

bool torture::fail(const std::string& what)
{
    ADD_FAILURE() << what << " (seed " << _seed << ", operation " << _op << ")";
    return false;
}

// Only the space with a footprint limit may refuse, and only near the limit.
bool torture::accept_failure(uint32_t space, uint64_t size)
{
    if (space == limited_space &&
        velk::mspace_footprint(_spaces[space]) + size + 2 * granule > footprint_limit)
        return true;
    std::ostringstream s;
    s << "space " << space << " refused " << size << " bytes";
    return fail(s.str());
}

bool torture::verify(const live_block& b, uint64_t upto, const char* when)
{
    uint64_t bad = first_bad_byte(b.p, upto, b.id);
    if (bad == upto)
        return true;
    std::ostringstream s;
    s << "block " << b.id << " of " << b.size << " bytes in space " << b.space << " damaged at byte "
      << bad << " " << when;
    return fail(s.str());
}

bool torture::do_alloc(bool zeroed)
{
    uint32_t space = static_cast<uint32_t>(_rng() % _spaces.size());
    uint64_t size = pick_size();
    void* p;
    if (zeroed) {
        uint64_t count = 1 + _rng() % 8;
        size = (size + count - 1) / count * count;
        p = velk::mspace_alloc_zeroed(_spaces[space], count, size / count);
    } else
        p = velk::mspace_alloc(_spaces[space], size);
    if (!p)
        return accept_failure(space, size);
    live_block b{static_cast<unsigned char*>(p), size, space, _next_id++};
    if (velk::mspace_usable_size(p) < size)
        return fail("usable size below the request");
    if (zeroed)
        for (uint64_t i = 0; i < size; ++i)
            if (b.p[i] != 0)
                return fail("zeroed block is not zero");
    fill(b.p, 0, size, b.id);
    _live.push_back(b);
    _live_bytes += size;
    return true;
}

bool torture::do_release(size_t index)
{
    live_block b = _live[index];
    if (!verify(b, b.size, "before release"))
        return false;
    if (velk::mspace_owner(b.p) != _spaces[b.space])
        return fail("block names the wrong owner");
    velk::mspace_release(b.p);
    _live[index] = _live.back();
    _live.pop_back();
    _live_bytes -= b.size;
    return true;
}

bool torture::do_resize(size_t index, bool in_place)
{
    live_block& b = _live[index];
    if (!verify(b, b.size, "before resize"))
        return false;
    uint64_t size = pick_resize(b.size);
    void* q = in_place ? velk::mspace_resize_in_place(b.p, size)
                       : velk::mspace_resize(_spaces[b.space], b.p, size);
    if (!q) {
        if (!in_place && !accept_failure(b.space, size))
            return false;
        return verify(b, b.size, "after a refused resize");
    }
    if (in_place && q != b.p)
        return fail("resize in place moved the block");
    if (velk::mspace_usable_size(q) < size)
        return fail("usable size below the resized request");
    uint64_t kept = size < b.size ? size : b.size;
    _live_bytes += size - b.size;
    b.p = static_cast<unsigned char*>(q);
    if (!verify(b, kept, "after resize"))
        return false;
    fill(b.p, kept, size, b.id);
    b.size = size;
    return true;
}

bool torture::step()
{
    uint64_t r = _rng() % 100;
    bool full = _live.size() >= max_live_blocks || _live_bytes >= max_live_bytes;
    if (_live.empty() || (r < 45 && !full))
        return do_alloc(false);
    if (r >= 98 && !full)
        return do_alloc(true);
    size_t index = static_cast<size_t>(_rng() % _live.size());
    if (r < 80 || full)
        return do_release(index);
    return do_resize(index, r >= 95);
}

// Consistency of each space, and its footprint against its segments plus the
// regions of its live direct blocks.
bool torture::check_spaces()
{
    std::vector<uint64_t> direct(_spaces.size(), 0);
    for (const live_block& b : _live)
        direct[b.space] += velk::mspace_direct_region_size(b.p);
    for (size_t i = 0; i < _spaces.size(); ++i) {
        velk::mspace_check_result r = velk::mspace_check(_spaces[i]);
        if (!r.ok())
            return fail("space " + std::to_string(i) + ": " + r.problem);
        if (velk::mspace_footprint(_spaces[i]) != r.segment_bytes + direct[i])
            return fail("space " + std::to_string(i) + ": footprint is not what its regions add up to");
    }
    return true;
}

bool torture::release_all()
{
    while (!_live.empty())
        if (!do_release(_live.size() - 1))
            return false;
    return check_spaces();
}

bool torture::run(uint64_t ops)
{
    for (_op = 0; _op < ops; ++_op) {
        if (!step())
            return false;
        if (_op % check_interval == 0 && !check_spaces())
            return false;
    }
    return release_all();
}

} // namespace

TEST(MspaceTorture, RandomOperationsKeepEveryBlockAndEverySpaceIntact)
{
    uint64_t seed = env_or("MSPACE_TORTURE_SEED", default_seed);
    uint64_t ops = env_or("MSPACE_TORTURE_OPS", default_ops);
    // Printed first: a corruption trap ends the process without a word.
    std::printf("mspace torture: seed %llu, %llu operations\n", static_cast<unsigned long long>(seed),
                static_cast<unsigned long long>(ops));
    std::fflush(stdout);
    torture t(seed);
    EXPECT_TRUE(t.run(ops)) << "seed " << seed;
}
