// Windows side of the waiting primitives: the system's semaphores and
// auto-reset events, waited on with WaitForSingleObject. A handle of all
// ones means "not created"; a creation that failed leaves a null handle.
#include "comm/pthreadx.h"

#include <windows.h>

namespace velk {

namespace {

constexpr uintptr_t invalid_handle = ~uintptr_t(0);

HANDLE native(uintptr_t h) { return h == invalid_handle ? nullptr : reinterpret_cast<HANDLE>(h); }

bool wait_for(uintptr_t h, DWORD ms)
{
    HANDLE n = native(h);
    return n && WaitForSingleObject(n, ms) == WAIT_OBJECT_0;
}

void close(uintptr_t h)
{
    if (HANDLE n = native(h))
        CloseHandle(n);
}

} // namespace

void sleep(int32_t ms)
{
    if (ms < 0)
        return;
    Sleep(static_cast<DWORD>(ms));
}

// -- comm_semaphore -------------------------------------------------------

comm_semaphore::~comm_semaphore() { close(_handle); }

bool comm_semaphore::init(uint32_t n)
{
    if (_handle != invalid_handle)
        return false;
    _handle = reinterpret_cast<uintptr_t>(CreateSemaphoreA(nullptr, LONG(n), LONG(n), nullptr));
    return true;
}

bool comm_semaphore::is_valid() const { return native(_handle) != nullptr; }

bool comm_semaphore::lock() { return wait_for(_handle, INFINITE); }

bool comm_semaphore::try_lock() { return wait_for(_handle, 0); }

// INFINITE is all ones: a limit that large waits one millisecond less.
bool comm_semaphore::timed_lock(uint32_t ms) { return wait_for(_handle, ms == INFINITE ? ms - 1 : ms); }

bool comm_semaphore::unlock()
{
    HANDLE n = native(_handle);
    return n && ReleaseSemaphore(n, 1, nullptr);
}

// -- comm_event -----------------------------------------------------------

comm_event::~comm_event() { close(_handle); }

bool comm_event::init()
{
    if (_handle != invalid_handle)
        return false;
    _handle = reinterpret_cast<uintptr_t>(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    return true;
}

bool comm_event::is_valid() const { return native(_handle) != nullptr; }

bool comm_event::wait() { return wait_for(_handle, INFINITE); }

bool comm_event::try_wait() { return wait_for(_handle, 0); }

bool comm_event::timed_wait(uint32_t ms) { return wait_for(_handle, ms == INFINITE ? ms - 1 : ms); }

bool comm_event::signal()
{
    HANDLE n = native(_handle);
    return n && SetEvent(n);
}

} // namespace velk
