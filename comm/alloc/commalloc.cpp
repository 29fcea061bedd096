// The allocation front end. Single objects come from the global memory
// space; array blocks still sit on the runtime's allocator until they move
// to the array space behind these same functions.
#include "comm/alloc/commalloc.h"

#include "comm/alloc/mspace.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace velk {

namespace {
// The count word sits 8 bytes in front of the array pointer; allocating
// 16-aligned blocks with the word at offset 8 keeps elements 16-aligned.
constexpr uint64_t header = 16;

// Relaxed: the observer is installed before the allocations it watches.
std::atomic<array_request_observer> observer{nullptr};

inline void notify(array_request kind, void* p, uint64_t count, uint64_t elem_size)
{
    if (array_request_observer fn = observer.load(std::memory_order_relaxed))
        fn(kind, p, count, elem_size);
}
} // namespace

void* global_alloc(size_t size)
{
    return mspace_alloc(global_mspace(), size);
}

void global_release(void* p)
{
    mspace_release(p);
}

// The runtime's allocator needs no set-up; the array space will be made here.
void comm_array_mspace_ensure() {}

void comm_array_allocator::set_observer(array_request_observer fn)
{
    observer.store(fn, std::memory_order_relaxed);
}

void* comm_array_allocator::alloc(uint64_t count, uint64_t elem_size, mspace)
{
    void* block = ::malloc(count * elem_size + header);
    if (!block)
        throw std::bad_alloc();
    void* p = static_cast<char*>(block) + header;
    set_count(p, count);
    notify(array_request::alloc, p, count, elem_size);
    return p;
}

void* comm_array_allocator::realloc(void* p, uint64_t count, uint64_t elem_size, mspace space)
{
    if (!p)
        return alloc(count, elem_size, space);
    void* block = ::realloc(static_cast<char*>(p) - header, count * elem_size + header);
    if (!block)
        throw std::bad_alloc();
    p = static_cast<char*>(block) + header;
    set_count(p, count);
    notify(array_request::realloc, p, count, elem_size);
    return p;
}

// The runtime's allocator can't be asked to grow a block without moving it,
// so only what the chunk already holds is granted.
bool comm_array_allocator::resize_in_place(void* p, uint64_t count, uint64_t elem_size)
{
    bool fits = count * elem_size <= size(p);
    if (fits)
        set_count(p, count);
    notify(array_request::resize_in_place, fits ? p : nullptr, count, elem_size);
    return fits;
}

void comm_array_allocator::free(void* p)
{
    notify(array_request::free, p, count(p), 0);
    ::free(static_cast<char*>(p) - header);
}

uint64_t comm_array_allocator::size(const void* p)
{
    if (!p)
        return 0;
    return malloc_usable_size(const_cast<char*>(static_cast<const char*>(p)) - header) - header;
}

} // namespace velk
