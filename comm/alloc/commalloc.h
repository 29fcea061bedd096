// Single-object memory of the library: global_alloc and global_release.
//
// Every counted object and every small private block of the library comes from
// here. The block source is the one seam the memory spaces will take over;
// until then it is the runtime's allocator.
#pragma once

#include <cstddef>

namespace velk {

// A block of at least size bytes, or null when memory is exhausted. Callers
// check the result and throw std::bad_alloc themselves, so that every site
// behaves as a throwing allocation. Never mix with the array allocator.
void* global_alloc(size_t size);

// Gives back a block of global_alloc; null is allowed and does nothing.
void global_release(void* p);

} // namespace velk
