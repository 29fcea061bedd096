// The spin lock of a memory space and of the parameters: one 32-bit word,
// 0 free and 1 held.
//
// Taking it is an atomic exchange of 1; a taker that finds it held reads the
// word until it sees 0 and tries again, giving up its time slice every 64th
// round. Releasing is an atomic exchange of 0. The lock is not recursive and
// has no owner: nothing may call back into the allocator while holding it.
#pragma once

#include "comm/alloc/mspace_chunk.h"
#include "comm/os/vmem.h"

#include <atomic>
#include <cstdint>

namespace velk::mspace_impl {

// Rounds of spinning between two yields: a power of two, tested as a mask.
inline constexpr uint32_t spins_per_yield = 64;

inline bool spin_try_acquire(uint32_t& word)
{
    return std::atomic_ref<uint32_t>(word).exchange(1, std::memory_order_acquire) == 0;
}

inline void spin_acquire_contended(uint32_t& word)
{
    std::atomic_ref<uint32_t> lock(word);
    for (uint32_t spins = 1;; ++spins) {
        if (lock.load(std::memory_order_relaxed) == 0 && spin_try_acquire(word))
            return;
        if ((spins & (spins_per_yield - 1)) == 0)
            os::vmem_yield();
    }
}

inline void spin_acquire(uint32_t& word)
{
    if (!spin_try_acquire(word)) [[unlikely]]
        spin_acquire_contended(word);
}

inline void spin_release(uint32_t& word)
{
    std::atomic_ref<uint32_t>(word).exchange(0, std::memory_order_release);
}

// Holds the lock of a space for a scope, if the space uses its lock.
class space_guard
{
public:
    explicit space_guard(mspace_state* m)
        : _m(m),
          _locked((std::atomic_ref<uint32_t>(m->flags).load(std::memory_order_relaxed) & space_locked) != 0)
    {
        if (_locked)
            spin_acquire(_m->lock);
    }
    ~space_guard()
    {
        if (_locked)
            spin_release(_m->lock);
    }
    space_guard(const space_guard&) = delete;
    space_guard& operator=(const space_guard&) = delete;

private:
    mspace_state* _m;
    bool _locked;
};

} // namespace velk::mspace_impl
