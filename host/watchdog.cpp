// watchdog: the timed waits of the clock's thread, and its cancellation.
#include "host/watchdog.h"

namespace host {

void watchdog::start(duration limit, duration grace, std::function<void()> expire, std::function<void()> overrun)
{
    _expire = std::move(expire);
    _overrun = std::move(overrun);
    auto deadline = std::chrono::steady_clock::now() + limit;
    _thread = std::thread([this, deadline, grace] { watch(deadline, grace); });
}

bool watchdog::cancel()
{
    {
        std::lock_guard<std::mutex> hold(_lock);
        _cancelled = true;
    }
    _wake.notify_all();
    if (_thread.joinable())
        _thread.join();
    return _expired;
}

bool watchdog::wait_until(std::chrono::steady_clock::time_point deadline)
{
    std::unique_lock<std::mutex> hold(_lock);
    // The predicate also covers a wake-up that comes before the deadline.
    return !_wake.wait_until(hold, deadline, [this] { return _cancelled; });
}

// expire runs outside the lock, so that cancel() is never held up by it
// beyond the join; a cancel that comes while it runs waits in the join.
void watchdog::watch(std::chrono::steady_clock::time_point deadline, duration grace)
{
    if (!wait_until(deadline))
        return;
    _expired = true; // read by cancel() after the join only
    if (_expire)
        _expire();
    if (wait_until(deadline + grace) && _overrun)
        _overrun();
}

} // namespace host
