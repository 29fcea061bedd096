// script_runner: V8 for one script, the script's place, and the run.
#include "host/script_runner.h"

#include "bindings/js/dispatcher_census.h"
#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "comm/dir.h"
#include "comm/exception.h"
#include "host/host_interface.h"
#include "interface/registrar.h"

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

// path made absolute against the current directory, and compacted.
bool absolute_path(const velk::token& path, velk::charstr& out)
{
    if (velk::path_algebra::is_absolute_path(path)) {
        out = path;
    } else {
        out = velk::directory::get_cwd();
        if (out.is_empty() || !velk::path_algebra::append_path(out, path, false))
            return false;
    }
    return velk::path_algebra::compact_path(out, '/');
}

void print_error(const char* text)
{
    fputs(text, stderr);
    fputc('\n', stderr);
}

} // namespace

bool place_script(const run_request& r, script_place& out, velk::charstr& error)
{
    if (!absolute_path(velk::token(r.file), out.path)) {
        error << "cannot make a full path of '" << r.file << "'";
        return false;
    }
    if (r.root) {
        if (!absolute_path(velk::token(r.root), out.root)) {
            error << "cannot make a full path of the root '" << r.root << "'";
            return false;
        }
        if (!velk::path_algebra::is_separator(out.root.ptr()[out.root.lens() - 1]))
            out.root << '/';
    } else {
        velk::token dir = out.path;
        out.root = dir.cut_back_at_group(velk::path_algebra::separators,
                                         velk::cut_separator_to_returned | velk::cut_empty_if_none);
    }
    velk::token below = out.path;
    out.url.reset();
    if (velk::path_algebra::is_subpath(out.root, below))
        out.url << "file:///" << below;
    else
        out.url = out.path; // outside the root: its includes resolve to nothing
    return true;
}

int run_script(const run_request& r, const script_place& place)
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
        velk::iref<velk::stubsmith_interface> host_object(new host_interface);
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
