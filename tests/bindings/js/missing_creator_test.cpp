// The JavaScript creators when the registry has no native creator of the
// interface's version: they log why, and make nothing. A program of its
// own, because the plug-in caches the native creator once it has found it:
// here it never finds it.
#include "bindings/js/hostprobe_plugin_js_dispatcher.h"
#include "interface/registrar.h"
#include "tests/bindings/js/js_test_host.h"

#include <gtest/gtest.h>

#include <string>

using velk::testing::js_environment;
using velk::testing::JsTest;
using xt::hostprobe_plugin;

namespace {

constexpr const char* native_key = "xt::hostprobe_plugin.create@3445205045";
constexpr const char* other_version_key = "xt::hostprobe_plugin.create@12345";

// A stand-in for a creator of another interface version; never called.
void other_version_creator() {}

// A native interface of the same kind that needs no creator, whose wrapper
// lends scripts $query_interface.
class bare_plugin : public hostprobe_plugin
{
public:
    bare_plugin() { _method_table = get_method_table(); }
};

class MissingNativeCreator : public JsTest
{
protected:
    void SetUp() override
    {
        native = velk::get_creator(native_key);
        velk::register_creator(native_key, nullptr);
    }
    void TearDown() override
    {
        velk::register_creator(other_version_key, nullptr);
        velk::register_creator(native_key, native);
    }

    std::string create()
    {
        velk::js::script_source s;
        s.text = "var x = 1;";
        return create_with(s, made);
    }

    std::string first_log_line() const
    {
        return js_environment::log().empty() ? std::string("(none)") : js_environment::log()[0].text;
    }

    velk::creator_fn native = nullptr;
    velk::iref<hostprobe_plugin> made;
};

} // namespace

TEST_F(MissingNativeCreator, ContextCreatorFails)
{
    EXPECT_EQ(create(), "failed to create interface object");
    EXPECT_FALSE(made);
}

TEST_F(MissingNativeCreator, ContextCreatorLogsThatNoCreatorIsThere)
{
    create();
    ASSERT_EQ(js_environment::log().size(), 1u);
    EXPECT_EQ(js_environment::log()[0].type, 2);
    EXPECT_EQ(js_environment::log()[0].source, "create");
    EXPECT_EQ(first_log_line(), "interface creator not found (xt::hostprobe_plugin.create)");
}

TEST_F(MissingNativeCreator, ContextCreatorLogsTheVersionsThatAreThere)
{
    velk::register_creator(other_version_key, reinterpret_cast<velk::creator_fn>(&other_version_creator));
    create();
    EXPECT_EQ(first_log_line(), "interface creator version mismatch (requested "
                                "xt::hostprobe_plugin.create@3445205045, found xt::hostprobe_plugin.create@12345)");
}

TEST_F(MissingNativeCreator, ContextCreatorLeavesNoDispatcher)
{
    int64_t before = live_dispatchers();
    create();
    EXPECT_EQ(live_dispatchers(), before);
}

TEST_F(MissingNativeCreator, ScriptSideCreatorGivesNullAndLogs)
{
    v8::Local<v8::Context> context = v8::Context::New(isolate);
    add_host_object(context);
    velk::iref<velk::stubsmith_interface> native_object(new bare_plugin);
    auto wrap = reinterpret_cast<xt::js::wrapper_js_fn>(velk::testing::creator("xt::hostprobe_plugin@wrapper.js"));
    ASSERT_NE(wrap, nullptr);
    {
        v8::Context::Scope in(context);
        v8::Local<v8::Value> w;
        wrap(w, native_object.get(), context);
        context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "w"), w).Check();
    }
    EXPECT_EQ(run(context, "w.$query_interface('xt::js::hostprobe_plugin.create', host)").text, "null");
    EXPECT_EQ(first_log_line(), "interface creator not found (xt::hostprobe_plugin.create)");
}
