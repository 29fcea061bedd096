// POSIX side of the waiting primitives: sem_t for the semaphore, a mutex with
// a condition variable for the auto-reset event, both waiting on the
// monotonic clock. A handle of all ones means "not created".
#include "comm/pthreadx.h"

#include <sched.h>
#include <semaphore.h>

#include <cerrno>
#include <ctime>
#include <new>

namespace velk {

namespace {

constexpr uintptr_t invalid_handle = ~uintptr_t(0);

timespec deadline_after(uint32_t ms)
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    ts.tv_sec += ms / 1000;
    ts.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    if (ts.tv_nsec >= 1000000000L) {
        ts.tv_sec += 1;
        ts.tv_nsec -= 1000000000L;
    }
    return ts;
}

struct semaphore_state
{
    sem_t sem;
    uint32_t max;
};

struct event_state
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond;
    bool signalled = false;

    event_state()
    {
        pthread_condattr_t attr;
        pthread_condattr_init(&attr);
        pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
        pthread_cond_init(&cond, &attr);
        pthread_condattr_destroy(&attr);
    }
    ~event_state()
    {
        pthread_cond_destroy(&cond);
        pthread_mutex_destroy(&mutex);
    }
};

semaphore_state* as_semaphore(uintptr_t h)
{
    return h == invalid_handle ? nullptr : reinterpret_cast<semaphore_state*>(h);
}

event_state* as_event(uintptr_t h)
{
    return h == invalid_handle ? nullptr : reinterpret_cast<event_state*>(h);
}

// Waits for the event; a null deadline waits without limit, ms 0 not at all.
bool event_wait(event_state* e, const timespec* deadline, bool poll)
{
    if (!e)
        return false;
    pthread_mutex_lock(&e->mutex);
    int rc = 0;
    while (!e->signalled && !poll && rc != ETIMEDOUT)
        rc = deadline ? pthread_cond_timedwait(&e->cond, &e->mutex, deadline)
                      : pthread_cond_wait(&e->cond, &e->mutex);
    bool taken = e->signalled;
    e->signalled = false;
    pthread_mutex_unlock(&e->mutex);
    return taken;
}

} // namespace

void sleep(int32_t ms)
{
    if (ms < 0)
        return;
    if (ms == 0) {
        sched_yield();
        return;
    }
    timespec ts{ms / 1000, static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) == -1 && errno == EINTR) {
    }
}

// -- comm_semaphore -------------------------------------------------------

comm_semaphore::~comm_semaphore()
{
    if (semaphore_state* s = as_semaphore(_handle)) {
        sem_destroy(&s->sem);
        delete s;
    }
}

bool comm_semaphore::init(uint32_t n)
{
    if (_handle != invalid_handle)
        return false;
    auto* s = new (std::nothrow) semaphore_state;
    if (s && sem_init(&s->sem, 0, n) != 0) {
        delete s;
        s = nullptr;
    }
    if (s)
        s->max = n;
    // A failed creation leaves a null handle, which waits report as not taken.
    _handle = reinterpret_cast<uintptr_t>(s);
    return true;
}

bool comm_semaphore::is_valid() const { return as_semaphore(_handle) != nullptr; }

bool comm_semaphore::lock()
{
    semaphore_state* s = as_semaphore(_handle);
    if (!s)
        return false;
    while (sem_wait(&s->sem) == -1) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

bool comm_semaphore::try_lock()
{
    semaphore_state* s = as_semaphore(_handle);
    return s && sem_trywait(&s->sem) == 0;
}

bool comm_semaphore::timed_lock(uint32_t ms)
{
    semaphore_state* s = as_semaphore(_handle);
    if (!s)
        return false;
    timespec deadline = deadline_after(ms);
    while (sem_clockwait(&s->sem, CLOCK_MONOTONIC, &deadline) == -1) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

bool comm_semaphore::unlock()
{
    semaphore_state* s = as_semaphore(_handle);
    int value = 0;
    if (!s || sem_getvalue(&s->sem, &value) != 0 || static_cast<uint32_t>(value) >= s->max)
        return false;
    return sem_post(&s->sem) == 0;
}

// -- comm_event -----------------------------------------------------------

comm_event::~comm_event() { delete as_event(_handle); }

bool comm_event::init()
{
    if (_handle != invalid_handle)
        return false;
    _handle = reinterpret_cast<uintptr_t>(new (std::nothrow) event_state);
    return true;
}

bool comm_event::is_valid() const { return as_event(_handle) != nullptr; }

bool comm_event::wait() { return event_wait(as_event(_handle), nullptr, false); }

bool comm_event::try_wait() { return event_wait(as_event(_handle), nullptr, true); }

bool comm_event::timed_wait(uint32_t ms)
{
    timespec deadline = deadline_after(ms);
    return event_wait(as_event(_handle), &deadline, false);
}

bool comm_event::signal()
{
    event_state* e = as_event(_handle);
    if (!e)
        return false;
    pthread_mutex_lock(&e->mutex);
    e->signalled = true;
    pthread_cond_signal(&e->cond);
    pthread_mutex_unlock(&e->mutex);
    return true;
}

} // namespace velk
