// Test helper: the JavaScript host of the binding's tests.
#include "tests/bindings/js/js_test_host.h"

#include "bindings/js/dispatcher_census.h"
#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "bindings/js/script_context.h"
#include "interface/registrar.h"

#include <libplatform/libplatform.h>

#include <memory>

namespace velk::testing {

namespace {

struct environment_state
{
    std::unique_ptr<v8::Platform> platform;
    v8::ArrayBuffer::Allocator* allocator = nullptr;
    v8::Isolate* isolate = nullptr;
    binding_test_host host; // the registry, root folder and plug-in
    std::vector<std::string> refused;
    bool page_enabled = true;
    int page_calls = 0;
};

environment_state& state()
{
    static environment_state s;
    return s;
}

bool judge_path(const token& relative)
{
    std::string r(relative.ptr() ? relative.ptr() : "", relative.lens());
    for (const std::string& refused : state().refused)
        if (r == refused)
            return false;
    return true;
}

// The host's page creator: a plain context with a mark, when enabled.
void page_context(v8::Local<v8::Context>& out, const velk::js::script_source&, stubsmith_interface*)
{
    ++state().page_calls;
    if (!state().page_enabled)
        return;
    v8::Isolate* isolate = v8::Isolate::GetCurrent();
    v8::Local<v8::Context> c = v8::Context::New(isolate);
    v8::Context::Scope in(c);
    c->Global()->Set(c, v8::String::NewFromUtf8Literal(isolate, "pageMark"), v8::Integer::New(isolate, 7)).Check();
    out = c;
}

} // namespace

// -- The environment ------------------------------------------------------------

void js_environment::SetUp()
{
    environment_state& s = state();
    v8::V8::SetFlagsFromString("--expose-gc");
    s.platform = v8::platform::NewDefaultPlatform();
    v8::V8::InitializePlatform(s.platform.get());
    v8::V8::Initialize();
    v8::Isolate::CreateParams params;
    s.allocator = v8::ArrayBuffer::Allocator::NewDefaultAllocator();
    params.array_buffer_allocator = s.allocator;
    s.isolate = v8::Isolate::New(params);

    s.host.set_up_registry("js", &judge_path);
    velk::register_creator(velk::js::page_context_key, reinterpret_cast<creator_fn>(&page_context));
    s.host.load_plugin();
}

void js_environment::TearDown()
{
    environment_state& s = state();
    // The isolate goes first: its template and objects point into the
    // plug-in's code.
    if (s.isolate) {
        {
            v8::Isolate::Scope in(s.isolate);
            s.isolate->LowMemoryNotification();
        }
        s.isolate->Dispose();
    }
    s.host.tear_down();
    velk::register_creator(velk::js::page_context_key, nullptr);
    v8::V8::Dispose();
    v8::V8::DisposePlatform();
    delete s.allocator;
}

v8::Isolate* js_environment::isolate() { return state().isolate; }
const std::string& js_environment::root() { return state().host.root(); }
std::vector<logged_line>& js_environment::log() { return binding_test_host::log(); }
std::vector<std::string>& js_environment::refused_paths() { return state().refused; }
bool& js_environment::page_context_enabled() { return state().page_enabled; }
int& js_environment::page_context_calls() { return state().page_calls; }

// The environment of every program that links this helper.
const auto* const environment = ::testing::AddGlobalTestEnvironment(new js_environment);

// -- Files ----------------------------------------------------------------------

std::string write_root_file(const std::string& relative, const std::string& content)
{
    std::string path = js_environment::root() + relative;
    write_file(path, content);
    return path;
}

velk::creator_fn creator(const char* key) { return velk::get_creator(key); }

// -- The fixture ----------------------------------------------------------------

JsTest::JsTest()
    : isolate(js_environment::isolate()), isolate_scope(isolate), handles(isolate),
      host_object(new xt::testing::host_interface_stub)
{
    js_environment::log().clear();
    js_environment::refused_paths().clear();
    js_environment::page_context_enabled() = true;
    js_environment::page_context_calls() = 0;
}

JsTest::~JsTest() { objects.clear(); }

std::string JsTest::create_with(const velk::js::script_source& script, iref<xt::hostprobe_plugin>& out,
                                const char* bindname, v8::Local<v8::Context>* context)
{
    auto c = reinterpret_cast<xt::js::creator_js_fn>(creator("xt::hostprobe_plugin.create@creator.js"));
    if (!c)
        return "no creator";
    try {
        c(out, script, host_object, token(bindname), context);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

v8::Local<v8::Context> JsTest::new_context(const char* bindname, iref<xt::hostprobe_plugin>* out)
{
    velk::js::script_source none; // a null text: no script runs
    v8::Local<v8::Context> context;
    iref<xt::hostprobe_plugin> made;
    std::string failure = create_with(none, made, bindname, &context);
    EXPECT_EQ(failure, "");
    EXPECT_TRUE(made);
    if (out)
        *out = made;
    else
        objects.push_back(made);
    return context;
}

script_result JsTest::run(v8::Local<v8::Context> context, const std::string& code, const std::string& url)
{
    script_result r;
    v8::Context::Scope in(context);
    v8::TryCatch caught(isolate);
    v8::ScriptOrigin origin(isolate, v8::String::NewFromUtf8(isolate, url.c_str()).ToLocalChecked());
    v8::Local<v8::Script> script;
    v8::Local<v8::Value> value;
    v8::Local<v8::String> source = v8::String::NewFromUtf8(isolate, code.c_str(), v8::NewStringType::kNormal,
                                                           static_cast<int>(code.size()))
                                       .ToLocalChecked();
    if (v8::Script::Compile(context, source, &origin).ToLocal(&script) && script->Run(context).ToLocal(&value)) {
        r.value = value;
        r.text = *v8::String::Utf8Value(isolate, value);
        r.type = *v8::String::Utf8Value(isolate, value->TypeOf(isolate));
        return r;
    }
    r.threw = true;
    v8::String::Utf8Value text(isolate, caught.Exception());
    r.text = *text ? *text : "";
    return r;
}

void JsTest::add_host_object(v8::Local<v8::Context> context)
{
    v8::Context::Scope in(context);
    v8::Local<v8::ObjectTemplate> t = v8::ObjectTemplate::New(isolate);
    t->SetInternalFieldCount(2);
    v8::Local<v8::Object> obj = t->NewInstance(context).ToLocalChecked();
    obj->SetInternalField(0, v8::External::New(isolate, host_object.get()));
    obj->SetInternalField(
        1, v8::External::New(isolate, reinterpret_cast<void*>(uintptr_t(xt::hostprobe_plugin::host_interface_hash))));
    context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "host"), obj).Check();
}

void JsTest::collect_garbage()
{
    // A forced collection does the weak callbacks' second pass at once.
    isolate->LowMemoryNotification();
    while (v8::platform::PumpMessageLoop(state().platform.get(), isolate)) {
    }
}

int64_t JsTest::live_dispatchers() const { return velk::js::census().live; }

} // namespace velk::testing
