// js_limits: the clock that terminates the script, the heap's last room,
// and the out-of-memory handler.
#include "host/js_limits.h"

#include <chrono>

namespace host {

namespace {

constexpr size_t mb = size_t(1) << 20;

// The room given to the heap each time it reaches its limit: the
// terminated script unwinds and the message is made in it. V8 calls back
// again if the script allocates on before the termination lands, and gets
// the same room again.
constexpr size_t unwind_room = 16 * mb;

// How long a terminated script may take to unwind before the process is
// ended from outside: a script in a long native call notices the
// termination only when the call returns.
constexpr auto grace = std::chrono::seconds(2);

// The limit the out-of-memory handler names: what the user gave, or the
// isolate's own. A process runs one isolate, and the handler has no data.
std::atomic<uint32_t> named_limit_mb{0};

// V8 calls this for an allocation it can't make at all, and aborts if it
// returns.
[[noreturn]] void on_fatal_out_of_memory(const char*, bool)
{
    end_process(report_out_of_memory(named_limit_mb.load()));
}

uint32_t isolate_limit_mb(v8::Isolate* isolate)
{
    v8::HeapStatistics stats;
    isolate->GetHeapStatistics(&stats);
    return static_cast<uint32_t>(stats.heap_size_limit() / mb);
}

} // namespace

void js_limits::constrain(v8::Isolate::CreateParams& params, const run_limits& limits)
{
    if (limits.heap_mb)
        params.constraints.ConfigureDefaultsFromHeapSize(0, size_t(limits.heap_mb) * mb);
}

js_limits::js_limits(v8::Isolate* isolate, const run_limits& limits) : _isolate(isolate), _limits(limits)
{
    named_limit_mb = limits.heap_mb ? limits.heap_mb : isolate_limit_mb(isolate);
    isolate->SetOOMErrorHandler(&on_fatal_out_of_memory);
    isolate->AddNearHeapLimitCallback(&near_heap_limit, this);
    if (!limits.seconds)
        return;
    _clock.start(std::chrono::seconds(limits.seconds), grace, [this] { stop(reason::time); },
                 [limits] { end_process(report_timeout(limits)); });
}

js_limits::~js_limits()
{
    finish();
    _isolate->RemoveNearHeapLimitCallback(&near_heap_limit, 0); // 0: the raised limit stays
}

void js_limits::finish()
{
    _clock.cancel();
    _isolate->CancelTerminateExecution();
}

int js_limits::report() const
{
    return hit() == reason::time ? report_timeout(_limits) : report_out_of_memory(named_limit_mb.load());
}

void js_limits::stop(reason why)
{
    reason none = reason::none;
    _hit.compare_exchange_strong(none, why);
    _isolate->TerminateExecution(); // thread-safe: the clock calls it from its own thread
}

size_t js_limits::near_heap_limit(void* data, size_t current_limit, size_t)
{
    static_cast<js_limits*>(data)->stop(reason::heap);
    return current_limit + unwind_room;
}

} // namespace host
