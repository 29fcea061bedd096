// The plug-in loaded and unloaded a thousand times in one host, with a
// JavaScript call and a Lua call through it on every cycle: what one cycle
// leaves behind shows in resident memory after many, and its keys must all
// leave the registry at each unload. Every cycle makes its own isolate and
// Lua state and ends them before the unload, since both hold objects whose
// code lives in the plug-in. HOSTPROBE_PLUGIN is a path from the build.
#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "bindings/lua/hostprobe_plugin_lua_creator.h"
#include "bindings/lua/lua_state.h"
#include "comm/regex/regex.h"
#include "interface/registrar.h"
#include "tests/support/binding_test_host.h"
#include "tests/support/host_interface_stub.h"

#include <dlfcn.h>
#include <libplatform/libplatform.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <lua.hpp>
#include <v8.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>

namespace {

constexpr int cycles = 1000;
// Memory is compared from here on: the first cycles fill the allocators'
// pools and the loader's caches, once for the process.
constexpr int settled_cycle = 10;
constexpr long allowed_growth = 2L << 20; // 2 MiB over 990 cycles: 2 KiB a cycle
#ifdef __SANITIZE_ADDRESS__
// AddressSanitizer holds released memory back in its quarantine, so resident
// memory grows with the work done, not with what is left behind.
constexpr bool resident_memory_tells = false;
#else
constexpr bool resident_memory_tells = true;
#endif

long resident_bytes()
{
    long size = 0, resident = 0;
    FILE* f = fopen("/proc/self/statm", "r");
    if (!f)
        return -1;
    if (fscanf(f, "%ld %ld", &size, &resident) != 2)
        resident = -1;
    fclose(f);
    return resident < 0 ? -1 : resident * sysconf(_SC_PAGESIZE);
}

std::string str(const velk::token& t) { return std::string(t.ptr() ? t.ptr() : "", t.lens()); }

// Every key without a script part, and how many entries the table holds in all.
struct key_census
{
    std::set<std::string> plain_keys;
    uint64_t count = 0;
    bool operator==(const key_census&) const = default;
};

key_census take_census()
{
    key_census c;
    velk::regex any(".*", false, true, false);
    velk::dynarray<velk::creator_match> found;
    velk::find_by_pattern(any, found);
    for (const velk::creator_match& m : found)
        c.plain_keys.insert(str(m.key));
    c.count = velk::registrar()->count();
    return c;
}

bool accept_path(const velk::token&) { return true; }

// V8 once for the process, as a host starts it.
class v8_runtime
{
public:
    v8_runtime() : _platform(v8::platform::NewDefaultPlatform())
    {
        v8::V8::InitializePlatform(_platform.get());
        v8::V8::Initialize();
        _allocator.reset(v8::ArrayBuffer::Allocator::NewDefaultAllocator());
    }
    ~v8_runtime()
    {
        v8::V8::Dispose();
        v8::V8::DisposePlatform();
    }

    v8::Isolate* new_isolate()
    {
        v8::Isolate::CreateParams params;
        params.array_buffer_allocator = _allocator.get();
        return v8::Isolate::New(params);
    }
    // A full collection, with the weak callbacks' second pass done, so that
    // the plug-in's dispatchers are given back while its code is there.
    void collect(v8::Isolate* isolate)
    {
        isolate->LowMemoryNotification();
        while (v8::platform::PumpMessageLoop(_platform.get(), isolate)) {
        }
    }

private:
    std::unique_ptr<v8::Platform> _platform;
    std::unique_ptr<v8::ArrayBuffer::Allocator> _allocator;
};

// The result of testfunction(21) in a fresh context of a fresh isolate, as
// text, or the creator's or script's error.
std::string call_from_javascript(v8_runtime& v8rt)
{
    auto create = reinterpret_cast<xt::js::creator_js_fn>(velk::get_creator(xt::js::creator_js_key));
    if (!create)
        return "no JavaScript creator";
    v8::Isolate* isolate = v8rt.new_isolate();
    std::string result;
    {
        v8::Isolate::Scope in_isolate(isolate);
        v8::HandleScope handles(isolate);
        velk::iref<velk::stubsmith_interface> host(new xt::testing::host_interface_stub);
        velk::iref<xt::hostprobe_plugin> object;
        v8::Local<v8::Context> context;
        velk::js::script_source none; // no script: the object is only bound
        try {
            create(object, none, host, "probe", &context);
        } catch (const std::exception& e) {
            result = e.what();
        }
        if (result.empty()) {
            v8::Context::Scope in_context(context);
            v8::TryCatch caught(isolate);
            v8::Local<v8::Script> script;
            v8::Local<v8::Value> value;
            if (v8::Script::Compile(context, v8::String::NewFromUtf8Literal(isolate, "probe.testfunction(21)"))
                    .ToLocal(&script) &&
                script->Run(context).ToLocal(&value))
                result = *v8::String::Utf8Value(isolate, value);
            else
                result = *v8::String::Utf8Value(isolate, caught.Exception());
        }
    }
    v8rt.collect(isolate);
    isolate->Dispose();
    return result;
}

// The result of probe:testfunction(50) in a fresh context of a fresh state.
std::string call_from_lua()
{
    auto create = reinterpret_cast<xt::lua::creator_lua_fn>(velk::get_creator(xt::lua::creator_lua_key));
    if (!create)
        return "no Lua creator";
    lua_State* L = velk::lua::new_state();
    if (!L)
        return "no Lua state";
    std::string result;
    {
        velk::iref<velk::stubsmith_interface> host(new xt::testing::host_interface_stub);
        velk::iref<xt::hostprobe_plugin> object;
        velk::iref<velk::lua::lua_context> context;
        velk::lua::script_source none;
        try {
            create(object, L, none, host, "probe", &context);
        } catch (const std::exception& e) {
            result = e.what();
        }
        if (result.empty()) {
            const char code[] = "return probe:testfunction(50)";
            if (luaL_loadbuffer(L, code, sizeof code - 1, "cycle.lua") == 0) {
                context->push();
                lua_setfenv(L, -2);
                lua_pcall(L, 0, 1, 0);
            }
            size_t n = 0;
            const char* s = lua_tolstring(L, -1, &n);
            result = s ? std::string(s, n) : "not a string or number";
            lua_settop(L, 0);
        }
    }
    lua_close(L); // the state's finalizers give back what it held of the plug-in
    return result;
}

bool is_loaded(const char* path)
{
    void* h = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (h)
        dlclose(h);
    return h != nullptr;
}

} // namespace

TEST(PluginCycles, AThousandLoadsWithScriptCallsLeaveNeitherMemoryNorKeys)
{
    velk::testing::binding_test_host host;
    host.set_up_registry("cycles", &accept_path);
    v8_runtime v8rt;
    const key_census before = take_census();
    ASSERT_EQ(velk::get_creator(xt::js::creator_js_key), nullptr) << "the plug-in isn't loaded yet";

    long settled = 0;
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        void* plugin = dlopen(HOSTPROBE_PLUGIN, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(plugin, nullptr) << dlerror();
        ASSERT_EQ(call_from_javascript(v8rt), "42") << "cycle " << cycle;
        ASSERT_EQ(call_from_lua(), "100") << "cycle " << cycle;
        ASSERT_EQ(dlclose(plugin), 0);
        ASSERT_FALSE(is_loaded(HOSTPROBE_PLUGIN)) << "cycle " << cycle << ": the unload left the module in memory";
        ASSERT_EQ(velk::registrar()->count(), before.count) << "cycle " << cycle << ": keys left after the unload";
        velk::testing::binding_test_host::log().clear(); // the host's own record of lines
        if (cycle == settled_cycle)
            settled = resident_bytes();
    }
    const long last = resident_bytes();

    EXPECT_TRUE(take_census() == before) << "the registry holds other keys than before the first load";
    ASSERT_GT(settled, 0);
    RecordProperty("resident_after_10", std::to_string(settled));
    RecordProperty("resident_after_last", std::to_string(last));
    printf("resident memory: %ld KiB after cycle %d, %ld KiB after cycle %d\n", settled >> 10, settled_cycle,
           last >> 10, cycles);
    if (resident_memory_tells) {
        EXPECT_LE(last - settled, allowed_growth)
            << "resident memory grew by " << ((last - settled) >> 10) << " KiB from cycle " << settled_cycle
            << " to " << cycles;
    }
    host.tear_down();
}
