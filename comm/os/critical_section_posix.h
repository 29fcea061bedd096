// The locks, POSIX side: a recursive pthread mutex that is
// tried up to its spin count before the caller blocks on it. Inline, because
// the uncontended lock is on every table operation of the library.
#pragma once

#include <pthread.h>

#include <cstdint>

namespace velk::os {

struct critical_section
{
    pthread_mutex_t mutex;
    uint32_t spin_count;
};

inline void cs_init(critical_section& cs, uint32_t spin_count)
{
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&cs.mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    cs.spin_count = spin_count;
}

inline void cs_delete(critical_section& cs) { pthread_mutex_destroy(&cs.mutex); }

inline bool cs_try_enter(critical_section& cs) { return pthread_mutex_trylock(&cs.mutex) == 0; }

// A free lock goes straight to pthread_mutex_lock, glibc's fast path (its
// trylock costs a third more). A held lock is tried spin_count times first:
// that also takes the recursive path at once when the caller is the owner.
// A lock taken between the look and the call merely blocks without spinning.
inline void cs_enter(critical_section& cs)
{
    if (__atomic_load_n(&cs.mutex.__data.__lock, __ATOMIC_RELAXED) == 0) {
        pthread_mutex_lock(&cs.mutex);
        return;
    }
    for (uint32_t i = 0; i < cs.spin_count; ++i) {
        if (cs_try_enter(cs))
            return;
        __builtin_ia32_pause();
    }
    pthread_mutex_lock(&cs.mutex);
}

inline void cs_leave(critical_section& cs) { pthread_mutex_unlock(&cs.mutex); }

} // namespace velk::os
