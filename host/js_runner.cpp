// js_runner: V8 for one script, and the run.
#include "host/js_runner.h"

#include "bindings/js/dispatcher_census.h"
#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "comm/exception.h"
#include "interface/registrar.h"
#include "plugin/host_interface.h"

#include <libplatform/libplatform.h>
#include <v8.h>

#include <cstdio>
#include <memory>

namespace host {

namespace {

// V8 for the length of one run: the platform, the engine and one isolate.
// V8 starts once per process, so a process runs one script.
class v8_session
{
public:
    v8_session() : _platform(v8::platform::NewDefaultPlatform())
    {
        v8::V8::InitializePlatform(_platform.get());
        v8::V8::Initialize();
        _allocator.reset(v8::ArrayBuffer::Allocator::NewDefaultAllocator());
        v8::Isolate::CreateParams params;
        params.array_buffer_allocator = _allocator.get();
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

void print_error(const char* text)
{
    fputs(text, stderr);
    fputc('\n', stderr);
}

} // namespace

int run_js_script(const run_request& r, const script_place& place)
{
    auto create = reinterpret_cast<xt::js::creator_js_fn>(velk::get_creator(xt::js::creator_js_key));
    if (!create) {
        fprintf(stderr, "hostprobe: the plug-in registered no creator under %.*s\n",
                int(xt::js::creator_js_key.lens()), xt::js::creator_js_key.ptr());
        return 1;
    }
    v8_session v8;
    int status = 0;
    {
        v8::Isolate::Scope in_isolate(v8.isolate());
        v8::HandleScope handles(v8.isolate());
        velk::iref<velk::stubsmith_interface> host_object(new xt::host_interface);
        velk::iref<xt::hostprobe_plugin> probe;
        velk::js::script_source script;
        script.text = place.path;
        script.is_path = true;
        script.url = place.url;
        try {
            create(probe, script, host_object, velk::token(r.bind), nullptr);
        } catch (const velk::exception& e) {
            print_error(e.what());
            status = 1;
        }
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
