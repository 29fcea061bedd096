// The allocation front end. For now both kinds sit on the runtime's
// allocator; the memory spaces take over behind these same functions.
#include "comm/alloc/commalloc.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace velk {

namespace {
// The count word sits 8 bytes in front of the array pointer; allocating
// 16-aligned blocks with the word at offset 8 keeps elements 16-aligned.
constexpr uint64_t header = 16;
} // namespace

void* global_alloc(size_t size)
{
    return ::malloc(size ? size : 1);
}

void global_release(void* p)
{
    ::free(p);
}

void* comm_array_allocator::alloc(uint64_t count, uint64_t elem_size, mspace)
{
    void* block = ::malloc(count * elem_size + header);
    if (!block)
        throw std::bad_alloc();
    void* p = static_cast<char*>(block) + header;
    set_count(p, count);
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
    return p;
}

void comm_array_allocator::free(void* p)
{
    ::free(static_cast<char*>(p) - header);
}

uint64_t comm_array_allocator::size(const void* p)
{
    if (!p)
        return 0;
    return malloc_usable_size(const_cast<char*>(static_cast<const char*>(p)) - header) - header;
}

} // namespace velk
