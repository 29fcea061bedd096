// js_limits on a real isolate, without the plug-in: the clock terminates an
// endless script, the heap's callback terminates a growing one, and after
// finish() the isolate runs the next script, even when the clock fired
// after the last one had ended.
#include "host/js_limits.h"

#include <libplatform/libplatform.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

using host::js_limits;

namespace {

// V8 once for the whole program: it can't start twice in a process.
class v8_environment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        _platform = v8::platform::NewDefaultPlatform();
        v8::V8::InitializePlatform(_platform.get());
        v8::V8::Initialize();
    }
    void TearDown() override
    {
        v8::V8::Dispose();
        v8::V8::DisposePlatform();
    }

private:
    std::unique_ptr<v8::Platform> _platform;
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new v8_environment);

// One isolate per test, made with the heap limit of the test's limits.
class JsLimits : public ::testing::Test
{
protected:
    void make(const host::run_limits& given)
    {
        allocator.reset(v8::ArrayBuffer::Allocator::NewDefaultAllocator());
        v8::Isolate::CreateParams params;
        params.array_buffer_allocator = allocator.get();
        js_limits::constrain(params, given);
        isolate = v8::Isolate::New(params);
        isolate->Enter();
        limits = std::make_unique<js_limits>(isolate, given);
    }
    void TearDown() override
    {
        limits.reset();
        if (isolate) {
            isolate->Exit();
            isolate->Dispose();
        }
    }

    // Runs code in a new context; its result as text, or "(none)" when it
    // threw or was terminated.
    std::string run(const char* code)
    {
        v8::HandleScope handles(isolate);
        v8::Local<v8::Context> context = v8::Context::New(isolate);
        v8::Context::Scope in_context(context);
        v8::TryCatch caught(isolate);
        v8::Local<v8::Script> script;
        v8::Local<v8::Value> result;
        v8::Local<v8::String> source = v8::String::NewFromUtf8(isolate, code).ToLocalChecked();
        if (!v8::Script::Compile(context, source).ToLocal(&script) || !script->Run(context).ToLocal(&result))
            return "(none)";
        return *v8::String::Utf8Value(isolate, result);
    }

    std::unique_ptr<v8::ArrayBuffer::Allocator> allocator;
    v8::Isolate* isolate = nullptr;
    std::unique_ptr<js_limits> limits;
};

const char* growing = "var a = []; while (true) a.push(new Array(1000).fill(1.5));";

} // namespace

TEST_F(JsLimits, WithoutLimitsNothingIsHit)
{
    make({});
    EXPECT_EQ(run("6 * 7"), "42");
    limits->finish();
    EXPECT_EQ(limits->hit(), js_limits::reason::none);
}

TEST_F(JsLimits, ClockTerminatesAnEndlessLoop)
{
    make({1, 0});
    EXPECT_EQ(run("while (true) {}"), "(none)");
    limits->finish();
    EXPECT_EQ(limits->hit(), js_limits::reason::time);
}

TEST_F(JsLimits, NextScriptRunsAfterATermination)
{
    make({1, 0});
    ASSERT_EQ(run("while (true) {}"), "(none)");
    limits->finish();
    EXPECT_EQ(run("6 * 7"), "42");
}

TEST_F(JsLimits, LateTerminationDoesNotReachTheNextScript)
{
    // The script has ended when the clock fires: its termination waits for
    // whatever runs next, unless finish() clears it.
    make({1, 0});
    ASSERT_EQ(run("1"), "1");
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    limits->finish();
    EXPECT_EQ(run("6 * 7"), "42");
}

TEST_F(JsLimits, HeapLimitTerminatesAGrowingScript)
{
    make({0, 16});
    EXPECT_EQ(run(growing), "(none)");
    limits->finish();
    EXPECT_EQ(limits->hit(), js_limits::reason::heap);
}

TEST_F(JsLimits, NextScriptRunsAfterTheHeapLimit)
{
    make({0, 16});
    ASSERT_EQ(run(growing), "(none)");
    limits->finish();
    EXPECT_EQ(run("[1, 2, 3].length"), "3");
}
