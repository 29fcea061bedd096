// The allocation front end: single objects on the global memory space, array
// blocks on the module's array space with their count word in front.
//
// An array block is a chunk of the array space: the chunk header, the count
// word, then the elements. The space is created with alignment offset 8, so
// chunk memory lies at 8 modulo 16 and the elements, one word further on, at
// 0 modulo 16.
#include "comm/alloc/commalloc.h"

#include "comm/alloc/mspace.h"
#include "comm/singleton.h"

#include <atomic>
#include <new>

namespace velk {

namespace {

// The place that the array space gives its singleton manager, with the line
// of the call.
constexpr const char* commalloc_place = "comm/alloc/commalloc";

constexpr uint64_t count_word = 8;
// Puts the count word on a chunk boundary + 8, its elements at 0 modulo 16.
constexpr uint64_t array_align_offset = 8;

// The singleton that owns the module's array space.
struct comm_array_mspace
{
    mspace space;
};

// Read and stored plainly: the first use is during the module's static
// initialisation, before a second thread exists. Racing threads would each
// make a space; every block knows its owner, so that costs a space only.
comm_array_mspace* array_space_holder = nullptr;

void* create_array_space()
{
    // Capacity 0 is one granule; locked, since containers of all threads share it.
    auto* holder = new comm_array_mspace;
    holder->space = mspace_create(0, true, array_align_offset);
    if (!holder->space) {
        delete holder;
        throw std::bad_alloc();
    }
    return holder;
}

void destroy_array_space(void* p)
{
    auto* holder = static_cast<comm_array_mspace*>(p);
    if (holder == array_space_holder)
        array_space_holder = nullptr;
    mspace_destroy(holder->space);
    delete holder;
}

void init_array_space(void*) { mspace_init_parameters(); }

// Removes the space at the module's exit, in the reverse order of enrolment:
// the objects that called comm_array_mspace_ensure first end before it.
struct array_space_exit
{
    ~array_space_exit()
    {
        if (array_space_holder)
            remove_singleton(array_space_holder);
    }
};

mspace array_space()
{
    if (!array_space_holder) {
        array_space_holder = static_cast<comm_array_mspace*>(register_singleton(
            &create_array_space, &destroy_array_space, &init_array_space,
            singleton_type_name<comm_array_mspace>(), commalloc_place, __LINE__, true));
        // Enrolled only for a local space: remove_singleton would ignore a
        // process-wide one anyway, which no module destroys.
        static array_space_exit at_exit;
    }
    return array_space_holder->space;
}

// Relaxed: the observer is installed before the allocations it watches.
std::atomic<array_request_observer> observer{nullptr};

inline void notify(array_request kind, void* p, uint64_t count, uint64_t elem_size)
{
    if (array_request_observer fn = observer.load(std::memory_order_relaxed))
        fn(kind, p, count, elem_size);
}

inline void* block_of(const void* p) { return static_cast<char*>(const_cast<void*>(p)) - count_word; }

inline void* array_of(void* block, uint64_t count)
{
    void* p = static_cast<char*>(block) + count_word;
    comm_array_allocator::set_count(p, count);
    return p;
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

void comm_array_mspace_ensure() { array_space(); }

void comm_array_mspace_ensure_shared(const char* file, int32_t line)
{
    if (array_space_holder)
        return;
    array_space_holder = static_cast<comm_array_mspace*>(register_singleton(
        &create_array_space, &destroy_array_space, &init_array_space,
        singleton_type_name<comm_array_mspace>(), file, line, false));
}

mspace comm_array_space() { return array_space(); }

void comm_array_allocator::set_observer(array_request_observer fn)
{
    observer.store(fn, std::memory_order_relaxed);
}

void* comm_array_allocator::alloc(uint64_t count, uint64_t elem_size, mspace space)
{
    void* block = mspace_alloc(space ? space : array_space(), count * elem_size + count_word);
    if (!block)
        throw std::bad_alloc();
    void* p = array_of(block, count);
    notify(array_request::alloc, p, count, elem_size);
    return p;
}

// In this order: a null p allocates (in space); a reserved block grows only
// where it lies and answers null when it can't; any other block is resized
// in the space that owns it, whatever space says.
void* comm_array_allocator::realloc(void* p, uint64_t count, uint64_t elem_size, mspace space)
{
    if (!p)
        return alloc(count, elem_size, space);
    void* block = block_of(p);
    uint64_t bytes = count * elem_size + count_word;
    if (mspace_reserved_capacity(block)) {
        block = mspace_resize_in_place(block, bytes);
        if (!block) {
            notify(array_request::realloc, nullptr, count, elem_size);
            return nullptr;
        }
    } else {
        mspace owner = mspace_owner(block);
        block = mspace_resize(owner ? owner : array_space(), block, bytes);
        if (!block)
            throw std::bad_alloc();
    }
    p = array_of(block, count);
    notify(array_request::realloc, p, count, elem_size);
    return p;
}

bool comm_array_allocator::resize_in_place(void* p, uint64_t count, uint64_t elem_size)
{
    bool done = mspace_resize_in_place(block_of(p), count * elem_size + count_word) != nullptr;
    if (done)
        set_count(p, count);
    notify(array_request::resize_in_place, done ? p : nullptr, count, elem_size);
    return done;
}

void comm_array_allocator::free(void* p)
{
    notify(array_request::free, p, count(p), 0);
    mspace_release(block_of(p));
}

} // namespace velk
