// embed: the smallest host of the plug-in, and the file to copy to start one.
//
// It owns the process's interface registry (the SDK's static libraries carry
// it; CMakeLists.txt exports it), loads the plug-in module, makes the
// plug-in's interface from native code and calls a method, then hands the
// same object to a JavaScript line and to a Lua line, and prints the three
// results:
//
//   native: mersenne_twister(5489) = 3499211612
//   js: probe.testfunction(21) = 42
//   lua: probe:testfunction(50) = 100
#include "bindings/js/hostprobe_plugin_js_dispatcher.h"
#include "bindings/lua/hostprobe_plugin_lua_dispatcher.h"
#include "bindings/lua/lua_context.h"
#include "bindings/lua/lua_state.h"
#include "comm/dynamic_library.h"
#include "interface/registrar.h"
#include "plugin/host_interface.h"

#include <libplatform/libplatform.h>
#include <v8.h>

#include <cstdio>
#include <memory>

namespace {

// Finds a creator by its key, as the plug-in registered it at load, and
// gives it the type that the key promises. Null when no module has the key.
template <class Fn>
Fn find_creator(const velk::token& key)
{
    return reinterpret_cast<Fn>(velk::get_creator(key));
}

// JavaScript: one isolate and context; the object becomes the global
// "probe" through the plug-in's wrapper, and one line runs against it.
void run_js_line(xt::hostprobe_plugin* probe)
{
    std::unique_ptr<v8::Platform> platform = v8::platform::NewDefaultPlatform();
    v8::V8::InitializePlatform(platform.get());
    v8::V8::Initialize();
    std::unique_ptr<v8::ArrayBuffer::Allocator> allocator(v8::ArrayBuffer::Allocator::NewDefaultAllocator());
    v8::Isolate::CreateParams params;
    params.array_buffer_allocator = allocator.get();
    v8::Isolate* isolate = v8::Isolate::New(params);
    {
        v8::Isolate::Scope in_isolate(isolate);
        v8::HandleScope handles(isolate);
        v8::Local<v8::Context> context = v8::Context::New(isolate);
        v8::Context::Scope in_context(context);

        auto wrap = find_creator<xt::js::wrapper_js_fn>(xt::js::hostprobe_plugin_js_dispatcher::wrapper_js_key);
        v8::Local<v8::Value> object;
        wrap(object, probe, context);
        context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "probe"), object).Check();

        const char* line = "probe.testfunction(21)";
        v8::Local<v8::String> source = v8::String::NewFromUtf8(isolate, line).ToLocalChecked();
        v8::Local<v8::Value> result = v8::Script::Compile(context, source).ToLocalChecked()->Run(context).ToLocalChecked();
        v8::String::Utf8Value text(isolate, result);
        printf("js: %s = %s\n", line, *text);
    }
    isolate->Dispose(); // the script's objects let go of probe here
    v8::V8::Dispose();
    v8::V8::DisposePlatform();
}

// Lua: a state set up by the binding and a script context; the object
// becomes the global "probe" through the plug-in's wrapper.
void run_lua_line(xt::hostprobe_plugin* probe)
{
    lua_State* L = velk::lua::new_state();
    {
        velk::iref<velk::lua::registry_handle> context(new velk::lua::lua_context(L));
        auto wrap = find_creator<xt::lua::wrapper_lua_fn>(xt::lua::hostprobe_plugin_lua_dispatcher::wrapper_lua_key);
        velk::iref<velk::lua::registry_handle> object;
        wrap(object, probe, context);
        object->push();
        lua_setglobal(L, "probe");

        const char* line = "probe:testfunction(50)";
        if (luaL_dostring(L, (std::string("return ") + line).c_str()) == 0)
            printf("lua: %s = %s\n", line, lua_tostring(L, -1));
        else
            printf("lua: %s failed: %s\n", line, lua_tostring(L, -1));
    }
    lua_close(L); // the object table lets go of probe here
}

} // namespace

int main(int argc, char** argv)
{
    // Loading the module runs its static registration: its keys enter the
    // registry of this program, which the module finds by iglo_registrar.
    velk::dynamic_library plugin;
    const char* path = argc > 1 ? argv[1] : HOSTPROBE_PLUGIN;
    if (!plugin.open(path)) {
        fprintf(stderr, "embed: cannot load %s: %s\n", path, velk::dynamic_library::last_failure().c_str());
        return 1;
    }
    {
        // The plug-in's object for a host object of ours, from its native creator.
        auto create = find_creator<xt::native_creator_fn>(xt::hostprobe_plugin::native_creator_key);
        velk::iref<xt::hostprobe_plugin> probe;
        create(probe, nullptr, velk::iref<velk::stubsmith_interface>(new xt::host_interface));
        printf("native: mersenne_twister(5489) = %u\n", probe->mersenne_twister(5489u));

        run_js_line(probe.get());
        run_lua_line(probe.get());
    } // every object of the module is gone before the module goes
    return 0;
}
