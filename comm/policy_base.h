// policy_base_: the counted base of every object that crosses a module or a
// script boundary.
//
// The object carries its own 32-bit atomic reference count, 0 when new. The
// last release calls release_hook, whose default deletes the object. Counted
// objects are single objects of the global memory (global_alloc); a class that
// must come from elsewhere replaces operator new and delete.
#pragma once

#include "comm/alloc/commalloc.h"

#include <atomic>
#include <cstdint>
#include <new>

namespace velk {

// Sequentially consistent: native threads may hold interface objects.
class atomic_counter
{
public:
    uint32_t increment() { return ++_count; }
    // The value before the decrement.
    uint32_t decrement() { return _count--; }
    // Adds one unless the count is 0: a counter that reached 0 stays there.
    bool increment_if_not_zero()
    {
        uint32_t c = _count.load();
        while (c != 0) {
            if (_count.compare_exchange_weak(c, c + 1))
                return true;
        }
        return false;
    }
    uint32_t value() const { return _count.load(); }

private:
    std::atomic<uint32_t> _count{0};
};

template <class Counter>
class policy_base_
{
public:
    policy_base_() = default;
    // A copy is a new object: it starts with no references.
    policy_base_(const policy_base_&) {}
    policy_base_& operator=(const policy_base_&) { return *this; }

    // What the last release does; the default ends and frees the object.
    virtual void release_hook() { delete this; }
    virtual ~policy_base_() = default;

    void add_refcount() { _counter.increment(); }
    // A reference taken from a holder that may be dying: false, and nothing
    // changed, once the count has reached 0 (see ref::lock).
    bool add_refcount_if_alive() { return _counter.increment_if_not_zero(); }

    // Drops one reference; the one that drops the last calls release_hook.
    void release_refcount()
    {
        if (_counter.decrement() == 1)
            release_hook();
    }

    uint32_t refcount() const { return _counter.value(); }

    static void* operator new(size_t size)
    {
        void* p = global_alloc(size);
        if (!p)
            throw std::bad_alloc();
        return p;
    }
    static void operator delete(void* p) { global_release(p); }

private:
    Counter _counter;
};

using counted_base = policy_base_<atomic_counter>;

} // namespace velk
