// Virtual memory on Windows: VirtualAlloc to reserve and commit, VirtualFree
// to give back, VirtualQuery to find the allocations a range is made of.
#include "comm/os/vmem.h"

#include <windows.h>

namespace velk::os {

namespace {

// The allocation that holds addr: its base and its end over all its regions,
// whatever their state. False for free address space.
bool allocation_of(char* addr, char*& base, char*& end)
{
    MEMORY_BASIC_INFORMATION info;
    if (VirtualQuery(addr, &info, sizeof info) == 0 || info.State == MEM_FREE)
        return false;
    base = static_cast<char*>(info.AllocationBase);
    end = base;
    while (VirtualQuery(end, &info, sizeof info) != 0 && info.State != MEM_FREE && info.AllocationBase == base)
        end = static_cast<char*>(info.BaseAddress) + info.RegionSize;
    return true;
}

// Whether [from, to) holds no committed page.
bool uncommitted(char* from, char* to)
{
    MEMORY_BASIC_INFORMATION info;
    for (char* at = from; at < to; at = static_cast<char*>(info.BaseAddress) + info.RegionSize)
        if (VirtualQuery(at, &info, sizeof info) == 0 || info.State == MEM_COMMIT)
            return false;
    return true;
}

} // namespace

void* vmem_reserve(uint64_t size) { return VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS); }

bool vmem_commit(void* p, uint64_t size) { return VirtualAlloc(p, size, MEM_COMMIT, PAGE_READWRITE) != nullptr; }

void* vmem_reserve_commit(uint64_t size)
{
    return VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

// The system releases only whole allocations, from their base; a piece of
// one is decommitted instead, which gives its memory back and keeps its
// addresses until the allocation's head goes. The head's release takes the
// allocation whole once nothing behind it is committed any more. Every
// piece must lie in allocated memory, checked before anything changes.
bool vmem_release(void* base, uint64_t size)
{
    char* const first = static_cast<char*>(base);
    char* const last = first + size;
    char *ab, *ae;
    for (char* at = first; at < last; at = ae)
        if (!allocation_of(at, ab, ae))
            return false;
    for (char* at = first; at < last;) {
        allocation_of(at, ab, ae);
        char* piece_end = ae < last ? ae : last;
        bool whole = at == ab && uncommitted(piece_end, ae);
        if (whole ? !VirtualFree(ab, 0, MEM_RELEASE) : !VirtualFree(at, piece_end - at, MEM_DECOMMIT))
            return false;
        at = piece_end;
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
