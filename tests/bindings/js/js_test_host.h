// Test helper: a host for the JavaScript binding, as a real host is.
//
// The program exports its registry and singleton manager; the environment
// starts V8 once for the process (with the collector exposed to scripts as
// gc()), makes one isolate, fixes the registry's root at a folder of this
// process's own, installs hooks that capture log lines and judge paths,
// and loads the real plug-in module (HOSTPROBE_PLUGIN, a path from the
// build). Every test gets fresh contexts from the plug-in's own creators.
#pragma once

#include "bindings/js/script_source.h"
#include "comm/iref.h"
#include "plugin/hostprobe_plugin.h"
#include "tests/support/binding_test_host.h"
#include "tests/support/host_interface_stub.h"

#include <gtest/gtest.h>
#include <v8.h>

#include <cstdint>
#include <string>
#include <vector>

namespace velk::testing {

// The process's V8, isolate, root folder and plug-in.
class js_environment : public ::testing::Environment
{
public:
    void SetUp() override;
    void TearDown() override;

    static v8::Isolate* isolate();
    // The registry's root, with its trailing "/".
    static const std::string& root();
    // Lines logged since the last clear.
    static std::vector<logged_line>& log();
    // Paths (relative to the root) that the host's check refuses.
    static std::vector<std::string>& refused_paths();
    // What the host's page-context creator does: make a context, or not.
    static bool& page_context_enabled();
    // How often the page-context creator was called.
    static int& page_context_calls();
};

// What a piece of script gave: its value as text, or the text of what it
// threw ("TypeError: ...").
struct script_result
{
    bool threw = false;
    std::string text;      // String(value), or the exception as text
    std::string type;      // typeof value
    v8::Local<v8::Value> value;
};

// Writes a file below the root (creating its folders); gives its full path.
std::string write_root_file(const std::string& relative, const std::string& content);

// A test with the isolate entered and a handle scope open.
class JsTest : public ::testing::Test
{
protected:
    JsTest();
    ~JsTest() override;

    // A new context with the script globals and an interface object bound
    // under bindname, made by the plug-in's context creator without a
    // script; the dispatcher goes to out when given, else to this test.
    v8::Local<v8::Context> new_context(const char* bindname = "o",
                                       iref<xt::hostprobe_plugin>* out = nullptr);

    // Runs code in context under the name url; catches what it throws.
    script_result run(v8::Local<v8::Context> context, const std::string& code,
                      const std::string& url = "file:///test.js");

    // A host object (two internal fields: a host_interface_stub and its
    // hash), published in context as `host`.
    void add_host_object(v8::Local<v8::Context> context);

    // Calls the context creator with script; gives the exception's text, or
    // "" when it didn't throw.
    std::string create_with(const velk::js::script_source& script, iref<xt::hostprobe_plugin>& out,
                            const char* bindname = "o", v8::Local<v8::Context>* context = nullptr);

    // Full collections until nothing more is given back, with the second
    // pass of weak callbacks done.
    void collect_garbage();

    int64_t live_dispatchers() const;

    v8::Isolate* isolate;
    v8::Isolate::Scope isolate_scope;
    v8::HandleScope handles;
    iref<velk::stubsmith_interface> host_object;
    // Dispatchers the contexts were made with; released before the scopes close.
    std::vector<iref<xt::hostprobe_plugin>> objects;
};

// The plug-in's creators, from the registry.
velk::creator_fn creator(const char* key);

} // namespace velk::testing
