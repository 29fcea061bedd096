// Memory spaces shared by threads: several threads allocate, resize and
// release on one locked space at once, and hand blocks to each other so that
// a block is often released by a thread other than the one that made it.
//
// MSPACE_THREAD_OPS sets the operations per thread (default 150,000).
#include "comm/alloc/mspace.h"

#include "comm/alloc/commalloc.h"
#include "comm/alloc/mspace_check.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace {

using velk::mspace;

constexpr int thread_count = 4;
constexpr int default_ops_per_thread = 150'000;

int ops_per_thread()
{
    const char* v = getenv("MSPACE_THREAD_OPS");
    int n = v ? atoi(v) : 0;
    return n > 0 ? n : default_ops_per_thread;
}

struct block
{
    unsigned char* p;
    uint64_t size;
    unsigned char pattern;
};

bool intact(const block& b)
{
    for (uint64_t i = 0; i < b.size; ++i)
        if (b.p[i] != b.pattern)
            return false;
    return true;
}

// Blocks handed from one thread to another.
class exchange
{
public:
    void put(const block& b)
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _blocks.push_back(b);
    }
    bool take(block& b)
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (_blocks.empty())
            return false;
        b = _blocks.back();
        _blocks.pop_back();
        return true;
    }

private:
    std::mutex _mutex;
    std::vector<block> _blocks;
};

// The work of one thread over an allocate and a release function, so that
// the same mix runs on a created space and on the global space.
template <class Alloc, class Resize, class Release>
void work(int seed, exchange& shared, std::atomic<int>& damaged, Alloc alloc, Resize resize,
          Release release)
{
    std::mt19937 rng(seed);
    std::vector<block> mine;
    auto drop = [&](const block& b) {
        if (!intact(b))
            ++damaged;
        release(b.p);
    };
    const int ops = ops_per_thread();
    for (int op = 0; op < ops; ++op) {
        int r = static_cast<int>(rng() % 100);
        if (mine.empty() || r < 45) {
            uint64_t size = rng() % 100 == 0 ? 300'000 : 1 + rng() % 2048;
            auto* p = static_cast<unsigned char*>(alloc(size));
            if (!p) {
                ++damaged;
                continue;
            }
            block b{p, size, static_cast<unsigned char>(rng())};
            std::memset(p, b.pattern, size);
            mine.push_back(b);
            continue;
        }
        size_t i = rng() % mine.size();
        block b = mine[i];
        if (r < 75) {
            mine[i] = mine.back();
            mine.pop_back();
            drop(b);
        } else if (r < 85) {
            if (!intact(b))
                ++damaged;
            uint64_t size = 1 + rng() % 4096;
            auto* q = static_cast<unsigned char*>(resize(b.p, size));
            if (!q) {
                ++damaged;
                continue;
            }
            std::memset(q, b.pattern, size);
            mine[i] = block{q, size, b.pattern};
        } else if (r < 93) {
            mine[i] = mine.back();
            mine.pop_back();
            shared.put(b);
        } else if (block other; shared.take(other))
            drop(other);
    }
    for (const block& b : mine)
        drop(b);
}

} // namespace

TEST(MspaceThreads, SeveralThreadsShareOneLockedSpace)
{
    mspace s = velk::mspace_create(0, true, 0);
    exchange shared;
    std::atomic<int> damaged{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t)
        threads.emplace_back([&, t] {
            work(
                t + 1, shared, damaged, [s](uint64_t n) { return velk::mspace_alloc(s, n); },
                [s](void* p, uint64_t n) { return velk::mspace_resize(s, p, n); },
                [](void* p) { velk::mspace_release(p); });
        });
    for (std::thread& t : threads)
        t.join();
    for (block b; shared.take(b);)
        velk::mspace_release(b.p);

    EXPECT_EQ(damaged.load(), 0);
    velk::mspace_check_result r = velk::mspace_check(s);
    EXPECT_TRUE(r.ok()) << r.problem;
    EXPECT_EQ(velk::mspace_footprint(s), r.segment_bytes); // no direct block left behind
    velk::mspace_destroy(s);
}

TEST(MspaceThreads, SeveralThreadsShareTheGlobalSpace)
{
    exchange shared;
    std::atomic<int> damaged{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t)
        threads.emplace_back([&, t] {
            work(
                100 + t, shared, damaged, [](uint64_t n) { return velk::global_alloc(n); },
                [](void* p, uint64_t n) { return velk::global_resize(p, n); },
                [](void* p) { velk::global_release(p); });
        });
    for (std::thread& t : threads)
        t.join();
    for (block b; shared.take(b);)
        velk::global_release(b.p);

    EXPECT_EQ(damaged.load(), 0);
    velk::mspace_check_result r = velk::mspace_check(velk::global_mspace());
    EXPECT_TRUE(r.ok()) << r.problem;
}
