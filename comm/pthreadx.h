// Locks and waiting: comm_mutex (recursive, with a spin count), its scope
// guard, a semaphore, an auto-reset event and sleep.
//
// Thin wrappers chosen for the smallest cost when uncontended. None of them
// reports failures: a semaphore or event that could not be created leaves an
// invalid handle, and waits on it report "not taken".
#pragma once

#include "comm/os/critical_section.h"

#include <cstdint>

namespace velk {

// Sleeps ms milliseconds; a negative value returns at once, 0 yields the time slice.
void sleep(int32_t ms);

// The steps of a timed lock: a try, then for a limit above 1 ms one sleep of
// ms - 1 (or, above 20 ms, two halves with a try between), and a last try.
// It never polls more often and may wake a little before the limit.
template <class TryLock, class Sleep>
bool timed_lock_steps(uint32_t ms, TryLock try_lock, Sleep sleep_ms)
{
    if (try_lock())
        return true;
    if (ms > 1) {
        uint32_t w = ms - 1;
        if (static_cast<int32_t>(ms) < 1 || ms > 20) {
            w >>= 1;
            sleep_ms(static_cast<int32_t>(w));
            if (try_lock())
                return true;
        }
        sleep_ms(static_cast<int32_t>(w));
    }
    return try_lock();
}

class comm_mutex
{
public:
    struct no_init_t {};
    static constexpr no_init_t no_init{};

    // The two further arguments are given as 0 by every caller and read by nothing.
    explicit comm_mutex(uint32_t spin_count = 0, int = 0, int = 0) { init(spin_count); }
    // For a member mutex that is never locked: leaves the lock uninitialised.
    explicit comm_mutex(no_init_t) {}
    ~comm_mutex()
    {
        if (_initialised)
            os::cs_delete(_section);
    }

    comm_mutex(const comm_mutex&) = delete;
    comm_mutex& operator=(const comm_mutex&) = delete;

    void init(uint32_t spin_count)
    {
        _object_id = 0;
        os::cs_init(_section, spin_count);
        _initialised = 1;
    }

    void lock() { os::cs_enter(_section); }
    void unlock() { os::cs_leave(_section); }
    bool try_lock() { return os::cs_try_enter(_section); }
    bool timed_lock(uint32_t ms)
    {
        return timed_lock_steps(ms, [this] { return try_lock(); }, [](int32_t w) { sleep(w); });
    }

    bool is_initialised() const { return _initialised != 0; }

private:
    os::critical_section _section;
    uint32_t _initialised = 0;
    uint32_t _object_id = 0;
};

// Locks in the constructor, unlocks in the destructor unless the pointer is null.
class comm_mutex_guard
{
public:
    explicit comm_mutex_guard(comm_mutex& m) : _m(&m) { _m->lock(); }
    explicit comm_mutex_guard(comm_mutex* m) : _m(m) { if (_m) _m->lock(); }
    ~comm_mutex_guard() { if (_m) _m->unlock(); }
    comm_mutex_guard(const comm_mutex_guard&) = delete;
    comm_mutex_guard& operator=(const comm_mutex_guard&) = delete;

private:
    comm_mutex* _m;
};

// A counting semaphore with initial and maximum count n.
class comm_semaphore
{
public:
    comm_semaphore() = default;
    explicit comm_semaphore(uint32_t n) { init(n); }
    ~comm_semaphore();
    comm_semaphore(const comm_semaphore&) = delete;
    comm_semaphore& operator=(const comm_semaphore&) = delete;

    // Creates it when not yet created and gives true; otherwise false.
    bool init(uint32_t n);
    bool is_valid() const;

    bool lock();                  // waits without limit
    bool try_lock();              // does not wait
    bool timed_lock(uint32_t ms); // waits up to ms on the monotonic clock
    // Gives one count back; false when already at the maximum or invalid.
    bool unlock();

private:
    uintptr_t _handle = ~uintptr_t(0);
};

// An auto-reset event: a wait that succeeds resets it.
class comm_event
{
public:
    comm_event() = default;
    explicit comm_event(bool create) { if (create) init(); }
    ~comm_event();
    comm_event(const comm_event&) = delete;
    comm_event& operator=(const comm_event&) = delete;

    bool init();
    bool is_valid() const;

    bool wait();
    bool try_wait();
    bool timed_wait(uint32_t ms);
    // Wakes one waiter, or the next one to wait.
    bool signal();

private:
    uintptr_t _handle = ~uintptr_t(0);
};

} // namespace velk
