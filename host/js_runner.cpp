// js_runner: V8 for one script, and the run.
#include "host/js_runner.h"

#include "bindings/js/dispatcher_census.h"
#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "comm/exception.h"
#include "host/js_limits.h"
#include "host/js_rejections.h"
#include "interface/registrar.h"
#include "plugin/host_interface.h"

#include <libplatform/libplatform.h>
#include <v8.h>

#include <cstdio>
#include <memory>

namespace host {

namespace {

// V8 for the length of one run: the platform, the engine and one isolate,
// its heap within the run's limit. V8 starts once per process, so a
// process runs one script.
class v8_session
{
public:
    explicit v8_session(const run_limits& limits) : _platform(v8::platform::NewDefaultPlatform())
    {
        v8::V8::InitializePlatform(_platform.get());
        v8::V8::Initialize();
        _allocator.reset(v8::ArrayBuffer::Allocator::NewDefaultAllocator());
        v8::Isolate::CreateParams params;
        params.array_buffer_allocator = _allocator.get();
        js_limits::constrain(params, limits);
        _isolate = v8::Isolate::New(params);
    }
    ~v8_session()
    {
        _isolate->Dispose();
        v8::V8::Dispose();
        v8::V8::DisposePlatform();
    }
    v8_session(const v8_session&) = delete;
    v8_session& operator=(const v8_session&) = delete;

    v8::Isolate* isolate() const { return _isolate; }

    // Runs the tasks V8 has posted, such as the second pass of weak callbacks.
    void run_pending_tasks()
    {
        while (v8::platform::PumpMessageLoop(_platform.get(), _isolate)) {
        }
    }

private:
    std::unique_ptr<v8::Platform> _platform;
    std::unique_ptr<v8::ArrayBuffer::Allocator> _allocator;
    v8::Isolate* _isolate;
};

// How the script's part of a run ended: the creator's error, if any, and
// the lines of the rejections it left unhandled.
struct script_outcome
{
    bool failed = false;
    velk::charstr error;
    velk::charstr rejections;
};

// Runs the script through the creator, then its microtasks, and takes the
// texts of its unhandled rejections, all within the run's limits. A limit
// that ends it leaves the rest undone.
void run_within_limits(xt::js::creator_js_fn create, const run_request& r, const script_place& place,
                       velk::iref<xt::hostprobe_plugin>& probe, js_limits& limits, script_outcome& out)
{
    v8::Isolate* isolate = v8::Isolate::GetCurrent();
    js_rejections rejections(isolate);
    velk::iref<velk::stubsmith_interface> host_object(new xt::host_interface);
    velk::js::script_source script;
    script.text = place.path;
    script.is_path = true;
    script.url = place.url;
    try {
        create(probe, script, host_object, velk::token(r.bind), nullptr);
    } catch (const velk::exception& e) {
        out.failed = true;
        out.error << e.what() << '\n';
    }
    if (limits.hit() == js_limits::reason::none)
        isolate->PerformMicrotaskCheckpoint(); // the promise jobs the script left
    if (limits.hit() == js_limits::reason::none)
        rejections.describe(place.url, out.rejections);
    limits.finish();
}

// The exit status of a run, its words on standard error: a limit's
// message alone, or the script's error and its unhandled rejections.
int report(const js_limits& limits, const script_outcome& outcome)
{
    if (limits.hit() != js_limits::reason::none)
        return limits.report();
    // c_str: never null, even when empty, as fwrite wants.
    fwrite(outcome.error.c_str(), 1, outcome.error.lens(), stderr);
    fwrite(outcome.rejections.c_str(), 1, outcome.rejections.lens(), stderr);
    return outcome.failed || !outcome.rejections.is_empty() ? 1 : 0;
}

} // namespace

int run_js_script(const run_request& r, const script_place& place)
{
    auto create = find_script_creator<xt::js::creator_js_fn>(xt::js::creator_js_key);
    if (!create)
        return 1;
    v8_session v8(r.limits);
    int status = 0;
    {
        v8::Isolate::Scope in_isolate(v8.isolate());
        v8::HandleScope handles(v8.isolate());
        velk::iref<xt::hostprobe_plugin> probe;
        js_limits limits(v8.isolate(), r.limits);
        script_outcome outcome;
        run_within_limits(create, r, place, probe, limits, outcome);
        status = report(limits, outcome);
        probe.release();
        v8.run_pending_tasks();
        // Objects the script made and dropped hold dispatchers of the
        // plug-in: a full collection gives them back while its code is
        // loaded. Nothing to give back, no collection.
        if (velk::js::census().live > 0) {
            v8.isolate()->LowMemoryNotification();
            v8.run_pending_tasks();
        }
    }
    return status;
}

} // namespace host
