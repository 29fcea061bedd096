// Single-object memory, backed by the runtime's allocator for now.
#include "comm/alloc/commalloc.h"

#include <cstdlib>

namespace velk {

void* global_alloc(size_t size)
{
    return ::malloc(size ? size : 1);
}

void global_release(void* p)
{
    ::free(p);
}

} // namespace velk
