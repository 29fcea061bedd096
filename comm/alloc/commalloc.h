// The allocation front end: array blocks with their count word, and single
// objects.
//
// Array blocks (comm_array_allocator) carry their element count in a 64-bit
// word in front of the first element; callers hold the address of element 0
// (the array pointer), which is 16-byte aligned. The capacity is never stored:
// it follows from the allocator's usable size. Single objects come from
// global_alloc. The two kinds are never mixed at a call site. Every failed
// allocation is std::bad_alloc, except a reserved block that cannot grow.
#pragma once

#include "comm/alloc/mspace.h"

#include <cstddef>
#include <cstdint>

namespace velk {

// A block of at least size bytes, or null when memory is exhausted. Callers
// check the result and throw std::bad_alloc themselves, so that every site
// behaves as a throwing allocation.
void* global_alloc(size_t size);

// Gives back a block of global_alloc; null is allowed and does nothing.
void global_release(void* p);

// Makes sure the array space exists. Long-lived containers call it in their
// constructors, so that the space is made before them and outlives them.
// Registers it with this module's own manager.
void comm_array_mspace_ensure();

// Makes sure the array space exists, registering it process-wide, found by
// name, under the place file and line, when the module's cached pointer is
// still null; otherwise does nothing, so that whichever site comes first
// decides. A process-wide space may be another module's; it lives until the
// process ends and no module destroys it. Throws std::bad_alloc when a new
// space can't be made; the cached pointer then stays null.
void comm_array_mspace_ensure_shared(const char* file, int32_t line);

// The module's array space, made on first use; for its statistics.
mspace comm_array_space();

// What comm_array_allocator served; see set_observer.
enum class array_request : uint8_t { alloc, realloc, resize_in_place, free };

// Sees every served request: the kind, the resulting array pointer (the block
// about to go for free, null for a refused resize in place), the count asked
// for and the element size (0 for free). The count word already holds count.
using array_request_observer = void (*)(array_request kind, void* p, uint64_t count,
                                        uint64_t elem_size);

class comm_array_allocator
{
public:
    // A block of count elements of elem_size bytes, count stored in its
    // header. Never null: throws std::bad_alloc. No overflow check.
    static void* alloc(uint64_t count, uint64_t elem_size, mspace space = nullptr);

    // Resizes p (null: as alloc). A block stays in the space that owns it;
    // space is used only for a null p. Stores count on every path. Throws
    // std::bad_alloc when a block can't move (p stays valid); returns null
    // only for a reserved block that can't grow in place.
    static void* realloc(void* p, uint64_t count, uint64_t elem_size, mspace space = nullptr);

    // Resizes p without moving it: true with count stored, false with p and
    // its count unchanged when the block can't be resized where it lies. The
    // contents are kept on success. p must not be null; never throws.
    static bool resize_in_place(void* p, uint64_t count, uint64_t elem_size);

    // Releases a block from any space and any thread; p must not be null.
    static void free(void* p);

    // Usable bytes behind the array pointer, or 0 for null.
    static uint64_t size(const void* p)
    {
        return p ? mspace_usable_size_in_use(static_cast<const char*>(p) - 8) - 8 : 0;
    }

    // The count word, or 0 for null.
    static uint64_t count(const void* p) { return p ? static_cast<const uint64_t*>(p)[-1] : 0; }
    static void set_count(void* p, uint64_t n) { static_cast<uint64_t*>(p)[-1] = n; }

    // The typed forms: count in elements of T.
    template <class T>
    static T* alloc(uint64_t count, mspace space = nullptr)
    {
        return static_cast<T*>(alloc(count, sizeof(T), space));
    }
    template <class T>
    static T* realloc(T* p, uint64_t count, mspace space = nullptr)
    {
        return static_cast<T*>(realloc(static_cast<void*>(p), count, sizeof(T), space));
    }
    template <class T>
    static bool resize_in_place(T* p, uint64_t count)
    {
        return resize_in_place(static_cast<void*>(p), count, sizeof(T));
    }
    // How many elements of T fit in the block.
    template <class T>
    static uint64_t capacity(const T* p)
    {
        return size(p) / sizeof(T);
    }

    // Installs the observer of every request, for tests and allocation
    // tracking; null removes it. Install it while no other thread allocates.
    static void set_observer(array_request_observer fn);
};

} // namespace velk
