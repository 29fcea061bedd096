// Virtual memory on POSIX: mmap without access and without swap reservation
// for a reserve, mprotect for a commit, munmap for a release.
#include "comm/os/vmem.h"

#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>

#include <mutex>
#endif

namespace velk::os {

namespace {

#if defined(__SANITIZE_ADDRESS__)
// The leak checker scans only the runtime's heap, stacks and statics. Objects
// referenced only from blocks of the memory spaces would look leaked, so the
// regions are its roots while they are mapped (it skips unreadable pages).
// A release may cut a piece off a region: the rest is registered anew. The
// table is static, not on the heap: it must not look leaked itself once a
// module that holds it is unloaded.
struct leak_roots
{
    struct region
    {
        uintptr_t start, end; // end 0: a free entry
    };
    static constexpr size_t capacity = 1u << 14; // far above the regions a test keeps

    std::mutex mutex;
    region regions[capacity];

    void add(void* p, uint64_t size)
    {
        std::lock_guard<std::mutex> hold(mutex);
        keep(reinterpret_cast<uintptr_t>(p), reinterpret_cast<uintptr_t>(p) + size);
    }

    void cut(void* p, uint64_t size)
    {
        std::lock_guard<std::mutex> hold(mutex);
        uintptr_t first = reinterpret_cast<uintptr_t>(p), last = first + size;
        for (region& r : regions) {
            if (r.end && r.start <= first && first < r.end) {
                region was = r;
                r.end = 0;
                __lsan_unregister_root_region(reinterpret_cast<void*>(was.start), was.end - was.start);
                keep(was.start, first);
                keep(last, was.end);
                return;
            }
        }
    }

    void keep(uintptr_t start, uintptr_t end)
    {
        if (start >= end)
            return;
        for (region& r : regions) {
            if (!r.end) {
                r = {start, end};
                __lsan_register_root_region(reinterpret_cast<void*>(start), end - start);
                return;
            }
        }
    }
};

leak_roots& roots()
{
    static leak_roots table;
    return table;
}

void* as_root(void* p, uint64_t size)
{
    if (p)
        roots().add(p, size);
    return p;
}

void drop_root(void* p, uint64_t size) { roots().cut(p, size); }
#else
inline void* as_root(void* p, uint64_t) { return p; }
inline void drop_root(void*, uint64_t) {}
#endif

// The other platform hands out regions in units of 64 KiB; the region sizes
// of the memory spaces are measured in that unit everywhere.
constexpr uint64_t granularity = 64 * 1024;

void* map(uint64_t size, int protection, int extra_flags)
{
    void* p = mmap(nullptr, size, protection, MAP_PRIVATE | MAP_ANONYMOUS | extra_flags, -1, 0);
    return p == MAP_FAILED ? nullptr : p;
}
} // namespace

void* vmem_reserve(uint64_t size)
{
    return as_root(map(size, PROT_NONE, MAP_NORESERVE), size);
}

bool vmem_commit(void* p, uint64_t size)
{
    // mprotect wants a page-aligned start; round the range out to pages.
    uintptr_t page = vmem_page_size();
    uintptr_t first = reinterpret_cast<uintptr_t>(p) & ~(page - 1);
    uintptr_t end = reinterpret_cast<uintptr_t>(p) + size;
    return mprotect(reinterpret_cast<void*>(first), end - first, PROT_READ | PROT_WRITE) == 0;
}

void* vmem_reserve_commit(uint64_t size)
{
    return as_root(map(size, PROT_READ | PROT_WRITE, 0), size);
}

bool vmem_release(void* base, uint64_t size)
{
    if (munmap(base, size) != 0)
        return false;
    drop_root(base, size);
    return true;
}

uint64_t vmem_page_size()
{
    return static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

uint64_t vmem_granularity()
{
    return granularity;
}

void vmem_yield()
{
    sched_yield();
}

} // namespace velk::os
