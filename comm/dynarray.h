// dynarray: the growable array of the library, one pointer wide.
//
// The object is a single pointer to element 0, or null. The element count is
// the 64-bit word the allocator keeps in front of element 0 (the public count
// is its low COUNT bits); the capacity is stored nowhere but asked of the
// allocator, its usable size over sizeof(T), so a chunk's slack is capacity
// for free. An empty array costs one null word, moving one is moving a
// pointer. Nothing gives memory back but discard (and the destructor).
//
//   dynarray<uint32_t> ids;
//   *ids.push() = 7;             // the slot is value-initialised first
//   uint32_t* run = ids.add(3);  // three uninitialised elements
//
// Unlike std::vector: appends grow by half the count, alloc grows by doubling
// and drops the contents, and growth moves elements by a byte copy when T is
// relocatable. Any growth may move the block: pointers to elements are then
// invalid.
#pragma once

#include "comm/alloc/commalloc.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace velk {

// T may be moved by copying its bytes and forgetting the source. True for
// trivially copyable types; owning handles one pointer wide (dynarray,
// charstr) say so too. Other types move element by element on growth.
template <class T>
struct relocatable : std::is_trivially_copyable<T> {};

template <class T>
inline constexpr bool relocatable_v = relocatable<T>::value;

// A is a static allocator policy with comm_array_allocator's interface:
// typed alloc, realloc and resize_in_place, and free, size, count, set_count.
template <class T, class COUNT = uint32_t, class A = comm_array_allocator>
class dynarray
{
    static_assert(alignof(T) <= 16, "array blocks align elements to 16 bytes");

public:
    using value_type = T;
    using count_type = COUNT;

    dynarray() { comm_array_mspace_ensure(); }
    ~dynarray() { discard(); }

    // A block of exactly other's count, elements copied one by one; a null or
    // empty source leaves this null. Throws std::bad_alloc or what T's copy
    // throws, with nothing allocated then.
    dynarray(const dynarray& other);
    dynarray(dynarray&& other) noexcept : dynarray() { std::swap(_ptr, other._ptr); }

    // Strong guarantee: on failure this array is unchanged.
    dynarray& operator=(const dynarray& other);
    // Takes other's block; this array's own block is discarded first.
    dynarray& operator=(dynarray&& other) noexcept;

    // -- Access: no range tests ----------------------------------------------

    T* ptr() { return _ptr; }
    const T* ptr() const { return _ptr; }
    T* begin() { return _ptr; }
    T* end() { return _ptr ? _ptr + size() : nullptr; }
    const T* begin() const { return _ptr; }
    const T* end() const { return _ptr ? _ptr + size() : nullptr; }

    T& operator[](size_t i) { return _ptr[i]; }
    const T& operator[](size_t i) const { return _ptr[i]; }
    // The last element; the array must not be empty.
    T& last() { return _ptr[size() - 1]; }
    const T& last() const { return _ptr[size() - 1]; }

    COUNT size() const { return static_cast<COUNT>(A::count(_ptr)); }
    bool is_empty() const { return A::count(_ptr) == 0; }
    // Elements the block holds, a call into the allocator; 0 for null.
    uint64_t capacity() const { return A::size(_ptr) / sizeof(T); }

    // -- Growth and shrinking --------------------------------------------------

    // Extends by n uninitialised elements, keeping the contents, and gives the
    // first new one (n of 0: the end, null for a null array). The caller
    // constructs them. A full block is reallocated to the larger of the new
    // count and 1.5 times the old. Throws std::bad_alloc, the array unchanged.
    // Null when a reserved block refused to grow: the array is then null.
    T* add(COUNT n);

    // add without growth: null, the array unchanged, when the block is null
    // or too small. Never calls out of line; the caller grows on null.
    T* add_within(COUNT n)
    {
        T* p = _ptr;
        if (!p)
            return nullptr;
        uint64_t c = A::count(p);
        uint64_t want = c + n;
        if (want * sizeof(T) > A::size(p))
            return nullptr;
        A::set_count(p, want);
        return p + c;
    }

    // add of 1, the slot value-initialised (T()). Gives the slot, or null as add.
    T* push();
    // add of 1, the slot made from v; v may be an element of this array.
    T* push(const T& v);
    T* push(T&& v);

    // Moves the last element into out, destroys its slot and lowers the count.
    // False, with out untouched, on an empty array.
    bool pop(T& out);

    // Makes the count exactly n, contents not kept, for T that needs no
    // destruction. Within the count or the capacity only the count changes;
    // else the larger of n and twice the count is requested, first in place,
    // else the old block is freed and a new one taken. Throws std::bad_alloc;
    // the old block, if freed, is gone and the array null.
    T* alloc(COUNT n);

    // n below the count: the count falls, the block and the elements above it
    // stay (not destroyed: the caller destroys them first if they need it).
    // Above: grows as add, with new elements uninitialised. Gives the base.
    T* resize(COUNT n);

    // Opens n uninitialised elements at pos (beyond the count: at the end),
    // moving the tail up, and gives the first. A full block is reallocated to
    // the larger of the new count and twice the old, contents kept. Throws
    // std::bad_alloc, the array unchanged.
    T* insert_gap(COUNT pos, COUNT n);

    // Destroys n elements from pos (limited to the count) and closes the gap.
    void del(COUNT pos, COUNT n = 1);

    // Destroys the elements; count to 0, block kept.
    void reset();

    // Destroys the elements from index 0 up, frees the block, becomes null.
    void discard();

    void swap(dynarray& other) noexcept { std::swap(_ptr, other._ptr); }

private:
    static constexpr uint64_t larger(uint64_t a, uint64_t b) { return a > b ? a : b; }

    bool fits(uint64_t count) const { return count * sizeof(T) <= A::size(_ptr); }
    void destroy(uint64_t from, uint64_t to);
    // Reallocates to request elements keeping the contents; may leave null
    // (a reserved block that can't grow).
    void grow(uint64_t request);
    void move_to_new_block(uint64_t request);
    template <class... Args>
    T* construct_last(T* slot, Args&&... args);
    bool aliases(const T& v) const;

    T* _ptr = nullptr;
};

template <class T, class COUNT, class A>
struct relocatable<dynarray<T, COUNT, A>> : std::true_type {};

// -- Copy and move ---------------------------------------------------------------

template <class T, class COUNT, class A>
dynarray<T, COUNT, A>::dynarray(const dynarray& other) : dynarray()
{
    uint64_t n = A::count(other._ptr);
    if (n == 0)
        return;
    T* p = A::template alloc<T>(n);
    try {
        std::uninitialized_copy_n(other._ptr, n, p);
    } catch (...) {
        A::free(p);
        throw;
    }
    _ptr = p;
}

template <class T, class COUNT, class A>
dynarray<T, COUNT, A>& dynarray<T, COUNT, A>::operator=(const dynarray& other)
{
    if (this != &other) {
        dynarray copy(other);
        swap(copy);
    }
    return *this;
}

template <class T, class COUNT, class A>
dynarray<T, COUNT, A>& dynarray<T, COUNT, A>::operator=(dynarray&& other) noexcept
{
    if (this != &other) {
        discard();
        std::swap(_ptr, other._ptr);
    }
    return *this;
}

// -- Growth ------------------------------------------------------------------------

template <class T, class COUNT, class A>
T* dynarray<T, COUNT, A>::add(COUNT n)
{
    uint64_t c = A::count(_ptr);
    if (n == 0)
        return _ptr ? _ptr + c : nullptr;
    uint64_t want = c + n;
    if (!fits(want)) {
        grow(larger(want, c + c / 2));
        if (!_ptr)
            return nullptr;
    }
    A::set_count(_ptr, want);
    return _ptr + c;
}

template <class T, class COUNT, class A>
T* dynarray<T, COUNT, A>::push()
{
    T* slot = add(1);
    return slot ? construct_last(slot) : nullptr;
}

template <class T, class COUNT, class A>
T* dynarray<T, COUNT, A>::push(const T& v)
{
    if (aliases(v)) {
        T copy(v);
        return push(std::move(copy));
    }
    T* slot = add(1);
    return slot ? construct_last(slot, v) : nullptr;
}

template <class T, class COUNT, class A>
T* dynarray<T, COUNT, A>::push(T&& v)
{
    if (aliases(v)) {
        T moved(std::move(v));
        return push(std::move(moved));
    }
    T* slot = add(1);
    return slot ? construct_last(slot, std::move(v)) : nullptr;
}

template <class T, class COUNT, class A>
bool dynarray<T, COUNT, A>::pop(T& out)
{
    uint64_t c = A::count(_ptr);
    if (c == 0)
        return false;
    out = std::move(_ptr[c - 1]);
    std::destroy_at(_ptr + c - 1);
    A::set_count(_ptr, c - 1);
    return true;
}

template <class T, class COUNT, class A>
T* dynarray<T, COUNT, A>::alloc(COUNT n)
{
    // The old elements are dropped without their destructors.
    static_assert(std::is_trivially_destructible_v<T>, "alloc is for elements that need no destruction");
    uint64_t c = A::count(_ptr);
    // The count first: it is one load, the capacity a call.
    if (n <= c || fits(n)) {
        if (_ptr)
            A::set_count(_ptr, n);
        return _ptr;
    }
    uint64_t request = larger(n, 2 * c);
    if (!_ptr || !A::template resize_in_place<T>(_ptr, request)) {
        if (_ptr) {
            A::free(_ptr);
            _ptr = nullptr; // not left dangling if the next allocation throws
        }
        _ptr = A::template alloc<T>(request);
    }
    A::set_count(_ptr, n);
    return _ptr;
}

template <class T, class COUNT, class A>
T* dynarray<T, COUNT, A>::resize(COUNT n)
{
    uint64_t c = A::count(_ptr);
    if (n == c)
        return _ptr;
    if (n > c && !fits(n)) {
        grow(larger(n, c + c / 2));
        if (!_ptr)
            return nullptr;
    }
    A::set_count(_ptr, n);
    return _ptr;
}

template <class T, class COUNT, class A>
T* dynarray<T, COUNT, A>::insert_gap(COUNT pos, COUNT n)
{
    static_assert(relocatable_v<T>, "insert_gap moves the tail by a byte copy");
    uint64_t c = A::count(_ptr);
    uint64_t at = pos < c ? pos : c;
    if (n == 0)
        return _ptr ? _ptr + at : nullptr;
    uint64_t want = c + n;
    if (!fits(want)) {
        grow(larger(want, 2 * c));
        if (!_ptr)
            return nullptr;
    }
    memmove(static_cast<void*>(_ptr + at + n), static_cast<const void*>(_ptr + at), (c - at) * sizeof(T));
    A::set_count(_ptr, want);
    return _ptr + at;
}

template <class T, class COUNT, class A>
void dynarray<T, COUNT, A>::del(COUNT pos, COUNT n)
{
    uint64_t c = A::count(_ptr);
    if (pos >= c || n == 0)
        return;
    uint64_t k = n < c - pos ? n : c - pos;
    if constexpr (relocatable_v<T>) {
        destroy(pos, pos + k);
        memmove(static_cast<void*>(_ptr + pos), static_cast<const void*>(_ptr + pos + k),
                (c - pos - k) * sizeof(T));
    } else {
        std::move(_ptr + pos + k, _ptr + c, _ptr + pos);
        destroy(c - k, c);
    }
    A::set_count(_ptr, c - k);
}

template <class T, class COUNT, class A>
void dynarray<T, COUNT, A>::reset()
{
    if (!_ptr)
        return;
    destroy(0, A::count(_ptr));
    A::set_count(_ptr, 0);
}

template <class T, class COUNT, class A>
void dynarray<T, COUNT, A>::discard()
{
    if (!_ptr)
        return;
    destroy(0, A::count(_ptr));
    A::free(_ptr);
    _ptr = nullptr;
}

// -- Internals -----------------------------------------------------------------------

template <class T, class COUNT, class A>
void dynarray<T, COUNT, A>::destroy(uint64_t from, uint64_t to)
{
    if constexpr (!std::is_trivially_destructible_v<T>) {
        for (uint64_t i = from; i < to; ++i)
            std::destroy_at(_ptr + i);
    }
}

// Out of line of the append path: growth is the rare branch.
template <class T, class COUNT, class A>
__attribute__((noinline)) void dynarray<T, COUNT, A>::grow(uint64_t request)
{
    if constexpr (relocatable_v<T>)
        _ptr = A::template realloc<T>(_ptr, request);
    else
        move_to_new_block(request);
}

// For T that can't be moved by its bytes: a new block, the elements moved
// (copied if their move may throw, so a failure leaves the old block whole),
// the old ones destroyed.
template <class T, class COUNT, class A>
void dynarray<T, COUNT, A>::move_to_new_block(uint64_t request)
{
    uint64_t c = A::count(_ptr);
    T* fresh = A::template alloc<T>(request);
    try {
        if constexpr (std::is_nothrow_move_constructible_v<T> || !std::is_copy_constructible_v<T>)
            std::uninitialized_move_n(_ptr, c, fresh);
        else
            std::uninitialized_copy_n(_ptr, c, fresh);
    } catch (...) {
        A::free(fresh);
        throw;
    }
    if (_ptr) {
        destroy(0, c);
        A::free(_ptr);
    }
    _ptr = fresh;
}

// A constructor that throws takes the slot back.
template <class T, class COUNT, class A>
template <class... Args>
T* dynarray<T, COUNT, A>::construct_last(T* slot, Args&&... args)
{
    if constexpr (std::is_nothrow_constructible_v<T, Args&&...>) {
        return ::new (static_cast<void*>(slot)) T(std::forward<Args>(args)...);
    } else {
        try {
            return ::new (static_cast<void*>(slot)) T(std::forward<Args>(args)...);
        } catch (...) {
            A::set_count(_ptr, A::count(_ptr) - 1);
            throw;
        }
    }
}

// Whether v lies in this array's elements, which growth may move.
template <class T, class COUNT, class A>
bool dynarray<T, COUNT, A>::aliases(const T& v) const
{
    auto at = reinterpret_cast<uintptr_t>(std::addressof(v));
    auto first = reinterpret_cast<uintptr_t>(_ptr);
    return _ptr && at >= first && at < first + A::count(_ptr) * sizeof(T);
}

} // namespace velk
