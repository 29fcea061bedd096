// Virtual memory on POSIX: mmap without access and without swap reservation
// for a reserve, mprotect for a commit, munmap for a release.
#include "comm/os/vmem.h"

#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

namespace velk::os {

namespace {
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
    return map(size, PROT_NONE, MAP_NORESERVE);
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
    return map(size, PROT_READ | PROT_WRITE, 0);
}

bool vmem_release(void* base, uint64_t size)
{
    return munmap(base, size) == 0;
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
