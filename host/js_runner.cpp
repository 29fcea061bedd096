// js_runner: V8 for one script, or kept for many, and the run.
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
    v8::Platform* platform() const { return _platform.get(); }

private:
    std::unique_ptr<v8::Platform> _platform;
    std::unique_ptr<v8::ArrayBuffer::Allocator> _allocator;
    v8::Isolate* _isolate;
};

// Runs the tasks V8 has posted, such as the second pass of weak callbacks.
void pump_tasks(v8::Platform* platform, v8::Isolate* isolate)
{
    while (v8::platform::PumpMessageLoop(platform, isolate)) {
    }
}

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

// The run on an isolate that is made and current: the script within the
// request's limits, then what it left behind given back.
int run_on(v8::Isolate* isolate, v8::Platform* platform, xt::js::creator_js_fn create, const run_request& r,
           const script_place& place)
{
    v8::HandleScope handles(isolate);
    velk::iref<xt::hostprobe_plugin> probe;
    js_limits limits(isolate, r.limits);
    script_outcome outcome;
    run_within_limits(create, r, place, probe, limits, outcome);
    int status = report(limits, outcome);
    probe.release();
    pump_tasks(platform, isolate);
    // Objects the script made and dropped hold dispatchers of the
    // plug-in: a full collection gives them back while its code is
    // loaded. Nothing to give back, no collection.
    if (velk::js::census().live > 0) {
        isolate->LowMemoryNotification();
        pump_tasks(platform, isolate);
    }
    return status;
}

} // namespace

int run_js_script(const run_request& r, const script_place& place)
{
    auto create = find_script_creator<xt::js::creator_js_fn>(xt::js::creator_js_key);
    if (!create)
        return 1;
    v8_session v8(r.limits);
    v8::Isolate::Scope in_isolate(v8.isolate());
    return run_on(v8.isolate(), v8.platform(), create, r, place);
}

// -- js_engine --------------------------------------------------------------------

namespace {

// The platform of a process whose V8 stays up: started on first use and
// never destroyed, not even at exit, since an isolate that a static object
// holds may be disposed after any other static is gone, and V8 can't start
// again in the same process anyway.
v8::Platform* lasting_platform()
{
    static v8::Platform* platform = [] {
        v8::Platform* p = v8::platform::NewDefaultPlatform().release();
        v8::V8::InitializePlatform(p);
        v8::V8::Initialize();
        return p;
    }();
    return platform;
}

} // namespace

struct js_engine::isolate_state
{
    v8::Platform* platform;
    std::unique_ptr<v8::ArrayBuffer::Allocator> allocator;
    v8::Isolate* isolate;
};

js_engine::js_engine(const run_limits& limits) : _state(new isolate_state)
{
    _state->platform = lasting_platform();
    _state->allocator.reset(v8::ArrayBuffer::Allocator::NewDefaultAllocator());
    v8::Isolate::CreateParams params;
    params.array_buffer_allocator = _state->allocator.get();
    js_limits::constrain(params, limits);
    _state->isolate = v8::Isolate::New(params);
}

js_engine::~js_engine()
{
    _state->isolate->Dispose();
}

int js_engine::run(const run_request& r, const script_place& place)
{
    auto create = find_script_creator<xt::js::creator_js_fn>(xt::js::creator_js_key);
    if (!create)
        return 1;
    v8::Isolate::Scope in_isolate(_state->isolate);
    return run_on(_state->isolate, _state->platform, create, r, place);
}

} // namespace host
