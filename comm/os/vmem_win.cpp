// Virtual memory on Windows: VirtualAlloc to reserve and commit, VirtualFree
// to give back, VirtualQuery to find the allocations a range is made of.
#include "comm/os/vmem.h"

#include <windows.h>

namespace velk::os {

namespace {

// The system releases only whole allocations, from their base. A range that
// covers a run of whole allocations is released one by one; anything else
// (a piece of one) is refused before anything changes, which the memory
// spaces take as "keep it".
bool whole_allocations(char* base, uint64_t size)
{
    while (size) {
        MEMORY_BASIC_INFORMATION info;
        if (VirtualQuery(base, &info, sizeof info) == 0 || info.AllocationBase != base ||
            info.State == MEM_FREE)
            return false;
        // The allocation's extent: its regions of any state up to the next base.
        uint64_t extent = 0;
        char* at = base;
        while (VirtualQuery(at, &info, sizeof info) != 0 && info.AllocationBase == base) {
            extent += info.RegionSize;
            at += info.RegionSize;
        }
        if (extent > size)
            return false;
        base += extent;
        size -= extent;
    }
    return true;
}

} // namespace

void* vmem_reserve(uint64_t size) { return VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS); }

bool vmem_commit(void* p, uint64_t size) { return VirtualAlloc(p, size, MEM_COMMIT, PAGE_READWRITE) != nullptr; }

void* vmem_reserve_commit(uint64_t size)
{
    return VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

bool vmem_release(void* base, uint64_t size)
{
    auto* at = static_cast<char*>(base);
    if (!whole_allocations(at, size))
        return false;
    while (size) {
        MEMORY_BASIC_INFORMATION info;
        uint64_t extent = 0;
        for (char* p = at; VirtualQuery(p, &info, sizeof info) != 0 && info.AllocationBase == at; p += info.RegionSize)
            extent += info.RegionSize;
        if (!VirtualFree(at, 0, MEM_RELEASE))
            return false;
        at += extent;
        size -= extent;
    }
    return true;
}

uint64_t vmem_page_size()
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
}

uint64_t vmem_granularity()
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwAllocationGranularity;
}

void vmem_yield() { SleepEx(0, FALSE); }

} // namespace velk::os
