// Platform seam of the memory spaces: virtual memory regions, the page size,
// the allocation granularity and the yield of a spinning thread.
//
// A region is reserved (address space only), committed (readable and
// writable) or both at once, and is given back whole or in part by address
// and size: the caller keeps the sizes, since there is nothing to query.
// Every region starts on a page boundary. No call here reports anything but
// its own result, and none of them allocates.
#pragma once

#include <cstdint>

namespace velk::os {

// Reserves size bytes of address space that can't be touched until
// committed. Null when the system refuses.
void* vmem_reserve(uint64_t size);

// Makes [p, p + size) of a reserved region readable and writable, rounded out
// to whole pages. False when the system refuses; nothing changes then.
bool vmem_commit(void* p, uint64_t size);

// Reserves and commits size bytes in one step, zero-filled. Null when the
// system refuses.
void* vmem_reserve_commit(uint64_t size);

// Gives [base, base + size) back to the system; base and size are whole
// pages. False when the system refuses; the memory then stays as it was.
bool vmem_release(void* base, uint64_t size);

// The size of a page, a power of two.
uint64_t vmem_page_size();

// The unit of every region size, a power of two of at least one page.
uint64_t vmem_granularity();

// Gives up the rest of the calling thread's time slice.
void vmem_yield();

} // namespace velk::os
