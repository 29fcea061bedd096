// Test helper: a host for the Lua binding, as a real host is.
//
// The program exports its registry and singleton manager; the environment
// fixes the registry's root at a folder of this process's own, installs a
// hook that captures log lines, and loads the real plug-in module
// (HOSTPROBE_PLUGIN, a path from the build). Every test gets a fresh LuaJIT
// state, set up by velk::lua::new_state, and makes its contexts and objects
// through the plug-in's own creators from the registry.
#pragma once

#include "tests/support/lua_bytecode.h"

#include "bindings/lua/lua_context.h"
#include "bindings/lua/registry_handle.h"
#include "bindings/lua/script_source.h"
#include "comm/iref.h"
#include "plugin/hostprobe_plugin.h"
#include "tests/support/binding_test_host.h"
#include "tests/support/host_interface_stub.h"

#include <gtest/gtest.h>
#include <lua.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace velk::testing {

// The process's root folder, log and plug-in.
class lua_environment : public ::testing::Environment
{
public:
    void SetUp() override;
    void TearDown() override;

    // The registry's root, with its trailing "/".
    static const std::string& root();
    // Lines logged since the last clear.
    static std::vector<logged_line>& log();
};

// What a chunk gave: its first result as text ("nil", "true", a number or
// a string; the type name for anything else), or the error it raised.
struct lua_result
{
    bool ok = false;
    std::string text;
};

// Writes a file below the root (creating its folders); gives its full path.
std::string write_root_file(const std::string& relative, const std::string& content);

// The plug-in's creators, from the registry.
creator_fn creator(const token& key);

class LuaTest : public ::testing::Test
{
protected:
    LuaTest();
    // Releases the objects and contexts, then closes the state.
    ~LuaTest() override;

    // Calls the plug-in's context creator; gives the exception's text, or
    // "" when it didn't throw.
    std::string create_with(const velk::lua::script_source& source, iref<xt::hostprobe_plugin>& out,
                            const char* bindname = "o", iref<velk::lua::lua_context>* context = nullptr);

    // A fresh context with an interface object bound as bindname and the
    // host's object table as `host`, made without a script. The dispatcher
    // goes to out when given, else to this test.
    iref<velk::lua::lua_context> new_context(const char* bindname = "o", iref<xt::hostprobe_plugin>* out = nullptr);

    // Runs code as the chunk name in context (the globals when null), in a
    // protected call.
    lua_result run(velk::lua::lua_context* context, const std::string& code, const std::string& name = "test.lua");
    lua_result run(const iref<velk::lua::lua_context>& context, const std::string& code,
                   const std::string& name = "test.lua")
    {
        return run(context.get(), code, name);
    }

    // Pushes the host's object table: "__cthis" holding host_object (no
    // reference counted) and "__class_hash" of host_interface.
    void push_host_object();

    // Full collections until the collector gives nothing more back.
    void collect_garbage();

    int64_t live_dispatchers() const;

    lua_State* L = nullptr;
    iref<velk::stubsmith_interface> host_object;
    // Dispatchers and contexts the tests made; released before the state.
    std::vector<iref<xt::hostprobe_plugin>> objects;
    std::vector<iref<velk::lua::lua_context>> contexts;
};

} // namespace velk::testing
