// A script's call through the plug-in's JavaScript dispatcher against the
// same call to a minimal FunctionTemplate callback, in one isolate and one
// run. The program is a host: it exports its registry, loads the real
// plug-in (HOSTPROBE_PLUGIN, from the build) and makes the interface object
// with the plug-in's context creator.
//
// Each benchmark runs one script loop of N calls per iteration, N from
// --calls=N (default 100000, one short pass; the figure of record is
// --calls=10000000). The ratio benchmark times both loops in each
// iteration, in the thread's CPU time, and reports dispatcher/raw as
// `ratio`; the goal is 1.3 or less.
// mersenne_twister and getMAC do real work per call, so their loops run
// N/100 and N/1000 calls.
#include "bench/script_loop_bench.h"
#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "interface/registrar.h"
#include "plugin/host_interface.h"
#include "plugin/hostprobe_plugin.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <libplatform/libplatform.h>
#include <v8.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

// The raw baseline: doubles its argument, nothing else.
void raw_double(const v8::FunctionCallbackInfo<v8::Value>& info)
{
    info.GetReturnValue().Set(info[0]->Int32Value(info.GetIsolate()->GetCurrentContext()).FromMaybe(0) * 2);
}

// The loops, one function each, so that V8 optimises each on its own.
constexpr const char* loops = R"(
function loop_raw(n) { var s = 0; for (var i = 0; i < n; ++i) s += raw(i); return s; }
function loop_testfunction(n) { var s = 0; for (var i = 0; i < n; ++i) s += o.testfunction(i); return s; }
function loop_mersenne_twister(n) { var s = 0; for (var i = 0; i < n; ++i) s += o.mersenne_twister(i); return s; }
function loop_getMAC(n) { var s = 0; for (var i = 0; i < n; ++i) s += o.getMAC().length; return s; }
)";

class js_bench_host
{
public:
    js_bench_host()
    {
        platform = v8::platform::NewDefaultPlatform();
        v8::V8::InitializePlatform(platform.get());
        v8::V8::Initialize();
        allocator.reset(v8::ArrayBuffer::Allocator::NewDefaultAllocator());
        v8::Isolate::CreateParams params;
        params.array_buffer_allocator = allocator.get();
        isolate = v8::Isolate::New(params);
        plugin = dlopen(HOSTPROBE_PLUGIN, RTLD_NOW | RTLD_LOCAL);
        if (!plugin) {
            fprintf(stderr, "cannot load the plug-in: %s\n", dlerror());
            std::exit(1);
        }
        v8::Isolate::Scope in_isolate(isolate);
        v8::HandleScope handles(isolate);
        make_context();
    }

    ~js_bench_host()
    {
        {
            v8::Isolate::Scope in_isolate(isolate);
            v8::HandleScope handles(isolate);
            probe.release();
            context.Reset();
            isolate->LowMemoryNotification();
        }
        isolate->Dispose();
        dlclose(plugin);
        v8::V8::Dispose();
        v8::V8::DisposePlatform();
    }

    // Calls the loop function name with n in the context; gives its result.
    double call(const char* name, int64_t n)
    {
        v8::HandleScope handles(isolate);
        v8::Local<v8::Context> c = context.Get(isolate);
        v8::Context::Scope in(c);
        v8::Local<v8::Value> fn =
            c->Global()->Get(c, v8::String::NewFromUtf8(isolate, name).ToLocalChecked()).ToLocalChecked();
        v8::Local<v8::Value> arg = v8::Number::New(isolate, double(n));
        v8::Local<v8::Value> result;
        if (!fn.As<v8::Function>()->Call(c, c->Global(), 1, &arg).ToLocal(&result)) {
            fprintf(stderr, "%s failed\n", name);
            std::exit(1);
        }
        return result->NumberValue(c).FromMaybe(0);
    }

    v8::Isolate* isolate = nullptr;

private:
    void make_context()
    {
        auto create = reinterpret_cast<xt::js::creator_js_fn>(velk::get_creator(xt::js::creator_js_key));
        if (!create) {
            fprintf(stderr, "the plug-in has no context creator\n");
            std::exit(1);
        }
        velk::js::script_source script;
        script.text = velk::token(loops);
        script.url = "file:///bench.js";
        v8::Local<v8::Context> c;
        create(probe, script, velk::iref<velk::stubsmith_interface>(new xt::host_interface), "o", &c);
        v8::Context::Scope in(c);
        c->Global()
            ->Set(c, v8::String::NewFromUtf8Literal(isolate, "raw"),
                  v8::FunctionTemplate::New(isolate, &raw_double)->GetFunction(c).ToLocalChecked())
            .Check();
        context.Reset(isolate, c);
    }

    std::unique_ptr<v8::Platform> platform;
    std::unique_ptr<v8::ArrayBuffer::Allocator> allocator;
    void* plugin = nullptr;
    velk::iref<xt::hostprobe_plugin> probe;
    v8::Global<v8::Context> context;
};

js_bench_host* host = nullptr;

// One benchmark of a loop, in the host's isolate.
void run_loop(benchmark::State& state, const char* loop, int64_t n)
{
    v8::Isolate::Scope in_isolate(host->isolate);
    bench::run_loop(state, *host, loop, n);
}

void BM_raw_callback(benchmark::State& state) { run_loop(state, "loop_raw", state.range(0)); }
void BM_dispatcher_testfunction(benchmark::State& state) { run_loop(state, "loop_testfunction", state.range(0)); }

void BM_dispatcher_mersenne_twister(benchmark::State& state)
{
    run_loop(state, "loop_mersenne_twister", bench::calls_of_heavy_loop(state, 100));
}

void BM_dispatcher_getMAC(benchmark::State& state)
{
    run_loop(state, "loop_getMAC", bench::calls_of_heavy_loop(state, 1000));
}

// The dispatcher's time against the raw callback's.
void BM_dispatcher_vs_raw(benchmark::State& state)
{
    v8::Isolate::Scope in_isolate(host->isolate);
    bench::compare_loops(state, *host, "loop_raw", "loop_testfunction", state.range(0));
}

} // namespace

int main(int argc, char** argv)
{
    return bench::loop_bench_main(argc, argv, host,
                                  {
                                      {"BM_raw_callback", &BM_raw_callback},
                                      {"BM_dispatcher_testfunction", &BM_dispatcher_testfunction},
                                      {"BM_dispatcher_vs_raw", &BM_dispatcher_vs_raw},
                                      {"BM_dispatcher_mersenne_twister", &BM_dispatcher_mersenne_twister},
                                      {"BM_dispatcher_getMAC", &BM_dispatcher_getMAC},
                                  });
}
