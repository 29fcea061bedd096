// watchdog: a clock on a thread of its own for a run with a time limit.
//
// When the time is up it calls expire, and if the run has still not ended
// a grace period later, overrun. The run cancels it when it ends; after
// cancel() returns neither function is running or will run, so whatever
// expire does to the run (ending a script) can't reach anything after it.
//
//   watchdog dog;
//   dog.start(std::chrono::seconds(1), std::chrono::seconds(2), stop_script, end_process);
//   run_script();
//   bool timed_out = dog.cancel();
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace host {

class watchdog
{
public:
    using duration = std::chrono::steady_clock::duration;

    watchdog() = default; // not started: never fires
    ~watchdog() { cancel(); }
    watchdog(const watchdog&) = delete;
    watchdog& operator=(const watchdog&) = delete;

    // Starts the clock on the monotonic clock: expire runs on the
    // watchdog's thread limit from now, overrun grace after that, unless
    // cancel() comes first. Either may be empty. Once per object. Throws
    // std::system_error when no thread can be started (nothing started).
    void start(duration limit, duration grace, std::function<void()> expire, std::function<void()> overrun);

    // Stops the clock and joins the thread. True when expire was called.
    // Does nothing more on a later call, or on a watchdog never started.
    bool cancel();

private:
    // The thread: waits for each deadline in turn, or for cancel().
    void watch(std::chrono::steady_clock::time_point deadline, duration grace);
    // Waits until deadline or cancel(); true when the deadline came first.
    bool wait_until(std::chrono::steady_clock::time_point deadline);

    std::mutex _lock;
    std::condition_variable _wake;
    bool _cancelled = false;
    bool _expired = false;
    std::function<void()> _expire;
    std::function<void()> _overrun;
    std::thread _thread;
};

} // namespace host
