// js_limits: the time and heap limits of one JavaScript run on one isolate.
//
// Time: a watchdog calls TerminateExecution when the time is up. finish()
// cancels and joins it, then clears a termination that came after the
// script had ended, so that nothing run on the isolate afterwards is hit.
//
// Heap: the isolate is made with its heap limited (constrain). Near the
// limit V8 calls back; the callback gives the heap a little room to unwind
// in and terminates the script, so that V8 does not abort. A single
// allocation bigger than all the room there is can't be saved that way:
// V8's out-of-memory handler then ends the process with the same message.
//
//   v8::Isolate::CreateParams params;
//   js_limits::constrain(params, r.limits);
//   ... isolate made, entered ...
//   js_limits limits(isolate, r.limits);
//   run the script and its microtasks
//   limits.finish();
//   if (limits.hit() != js_limits::reason::none) return limits.report();
#pragma once

#include "host/run_limits.h"
#include "host/watchdog.h"

#include <v8.h>

#include <atomic>
#include <cstddef>

namespace host {

class js_limits
{
public:
    enum class reason { none, time, heap };

    // Limits the heap of the isolate to be made with params, when limits
    // give a heap size; leaves V8's defaults otherwise.
    static void constrain(v8::Isolate::CreateParams& params, const run_limits& limits);

    // Watches isolate, which must be current and outlive this object:
    // installs the near-heap-limit callback and the out-of-memory handler,
    // and starts the clock when limits give a time. Throws
    // std::system_error when the clock's thread can't be started.
    js_limits(v8::Isolate* isolate, const run_limits& limits);
    ~js_limits();
    js_limits(const js_limits&) = delete;
    js_limits& operator=(const js_limits&) = delete;

    // Stops the clock. After it, no termination is pending on the isolate
    // and none can come. Call after the script and its microtasks.
    void finish();

    // The limit that ended the script, the first one when both came.
    reason hit() const { return _hit.load(); }

    // Prints the message of hit() (not none); gives the exit status.
    int report() const;

private:
    static size_t near_heap_limit(void* data, size_t current_limit, size_t initial_limit);
    void stop(reason why);

    v8::Isolate* _isolate;
    run_limits _limits;
    std::atomic<reason> _hit{reason::none};
    watchdog _clock;
};

} // namespace host
