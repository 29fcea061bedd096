// Script objects and their dispatchers under the garbage collector, with
// the real plug-in module: every dispatcher that a dropped object held is
// given back, and an object that outlives its dispatcher answers undefined.
// The count of live dispatchers is the process-wide census.
#include "bindings/js/dispatcher_census.h"
#include "bindings/js/hostprobe_plugin_js_dispatcher.h"
#include "tests/bindings/js/js_test_host.h"

#include <gtest/gtest.h>

#include <string>

using velk::testing::JsTest;
using velk::testing::script_result;
using xt::hostprobe_plugin;

namespace {

class DispatcherLifetime : public JsTest
{
protected:
    void SetUp() override
    {
        context = new_context();
        add_host_object(context);
        run("var create = 'xt::js::hostprobe_plugin.create';");
        collect_garbage();
        baseline = live_dispatchers();
    }

    script_result run(const std::string& code) { return JsTest::run(context, code); }

    v8::Local<v8::Context> context;
    int64_t baseline = 0;
};

} // namespace

TEST_F(DispatcherLifetime, HundredThousandDroppedObjectsAreAllGivenBack)
{
    uint64_t made_before = velk::js::census().made;
    script_result r = run("var sum = 0;"
                          "for (var i = 0; i < 100000; ++i)"
                          "  sum += $query_interface(create, host).testfunction(1);"
                          "sum");
    ASSERT_EQ(r.text, "200000");
    EXPECT_EQ(velk::js::census().made - made_before, 100000u);
    collect_garbage();
    EXPECT_EQ(live_dispatchers(), baseline);
}

TEST_F(DispatcherLifetime, ScriptsOwnCollectionGivesThemBackToo)
{
    // The last statement's value would be kept by the test's handle scope.
    run("for (var i = 0; i < 1000; ++i) $query_interface(create, host); 0");
    run("gc(); gc();");
    EXPECT_EQ(live_dispatchers(), baseline);
}

TEST_F(DispatcherLifetime, DroppedObjectsGiveBackTheHostsObject)
{
    uint32_t before = host_object->refcount();
    // The last statement's value would be kept by the test's handle scope.
    run("for (var i = 0; i < 1000; ++i) $query_interface(create, host); 0");
    collect_garbage();
    EXPECT_EQ(host_object->refcount(), before);
}

TEST_F(DispatcherLifetime, ObjectKeptByTheScriptKeepsItsDispatcher)
{
    run("var kept = $query_interface(create, host);");
    collect_garbage();
    EXPECT_EQ(live_dispatchers(), baseline + 1);
    EXPECT_EQ(run("kept.testfunction(2)").text, "4");
}

TEST_F(DispatcherLifetime, ObjectDroppedLaterIsGivenBackThen)
{
    run("var kept = $query_interface(create, host);");
    collect_garbage();
    run("kept = null;");
    collect_garbage();
    EXPECT_EQ(live_dispatchers(), baseline);
}

TEST_F(DispatcherLifetime, ObjectHoldsOneReferenceToItsDispatcher)
{
    v8::Context::Scope in(context);
    v8::Local<v8::Object> o = run("$query_interface(create, host)").value.As<v8::Object>();
    velk::stubsmith_interface* ifc = nullptr;
    uint32_t hash = 0;
    ASSERT_TRUE(velk::js::read_interface_fields(o, ifc, hash));
    EXPECT_EQ(ifc->refcount(), 1u);
    auto* d = static_cast<xt::js::hostprobe_plugin_js_dispatcher*>(static_cast<hostprobe_plugin*>(ifc));
    EXPECT_TRUE(d->object.IsWeak());
}

TEST_F(DispatcherLifetime, NativeReferenceOutlivesTheCollectedObject)
{
    velk::iref<velk::stubsmith_interface> held;
    {
        v8::Context::Scope in(context);
        v8::HandleScope scope(isolate);
        v8::Local<v8::Object> o = run("$query_interface(create, host)").value.As<v8::Object>();
        velk::stubsmith_interface* ifc = nullptr;
        uint32_t hash = 0;
        ASSERT_TRUE(velk::js::read_interface_fields(o, ifc, hash));
        held = ifc;
    }
    collect_garbage();
    ASSERT_EQ(live_dispatchers(), baseline + 1);
    EXPECT_EQ(static_cast<hostprobe_plugin*>(held.get())->testfunction(21), 42);
    held.release();
    EXPECT_EQ(live_dispatchers(), baseline);
}

TEST_F(DispatcherLifetime, StronglyHeldDispatcherKeepsItsObjectThroughCollections)
{
    velk::iref<hostprobe_plugin> strong;
    v8::Local<v8::Context> other = new_context("p", &strong);
    JsTest::run(other, "p = null;");
    collect_garbage();
    auto* d = static_cast<xt::js::hostprobe_plugin_js_dispatcher*>(strong.get());
    ASSERT_FALSE(d->object.IsEmpty());
    v8::Context::Scope in(other);
    other->Global()->Set(other, v8::String::NewFromUtf8Literal(isolate, "again"), d->object.Get(isolate)).Check();
    EXPECT_EQ(JsTest::run(other, "again.testfunction(3)").text, "6");
}

TEST_F(DispatcherLifetime, ObjectOutlivingItsStronglyHeldDispatcherAnswersUndefined)
{
    velk::iref<hostprobe_plugin> strong;
    v8::Local<v8::Context> other = new_context("p", &strong);
    int64_t with_it = live_dispatchers();
    strong.release(); // the last native reference
    EXPECT_EQ(live_dispatchers(), with_it - 1);
    for (const char* call : {"p.getMAC()", "p.mersenne_twister(1)", "p.testfunction(1)", "p.$ctx()"}) {
        script_result r = JsTest::run(other, call);
        EXPECT_FALSE(r.threw) << call << ": " << r.text;
        EXPECT_EQ(r.type, "undefined") << call;
    }
}

TEST_F(DispatcherLifetime, ObjectOutlivingItsDispatcherStillCountsItsArguments)
{
    velk::iref<hostprobe_plugin> strong;
    v8::Local<v8::Context> other = new_context("p", &strong);
    strong.release();
    EXPECT_EQ(JsTest::run(other, "p.getMAC(1)").text, "SyntaxError: Wrong number of arguments in hostprobe_plugin.getMAC");
}

TEST_F(DispatcherLifetime, ObjectOutlivingItsDispatcherIsNoHostObjectAnyMore)
{
    velk::iref<hostprobe_plugin> strong;
    v8::Local<v8::Context> other = new_context("p", &strong);
    strong.release();
    JsTest::run(other, "var create = 'xt::js::hostprobe_plugin.create';");
    EXPECT_EQ(JsTest::run(other, "$query_interface(create, p)").text, "null");
}

TEST_F(DispatcherLifetime, ObjectOutlivingItsDispatcherStillPrintsAsTheInterface)
{
    velk::iref<hostprobe_plugin> strong;
    v8::Local<v8::Context> other = new_context("p", &strong);
    strong.release();
    EXPECT_NE(JsTest::run(other, "String(p)").text.find("xt::hostprobe_plugin"), std::string::npos);
}

TEST_F(DispatcherLifetime, WrapperObjectCollectedGivesBackTheWrappedInterface)
{
    velk::iref<hostprobe_plugin> native;
    auto make = reinterpret_cast<xt::native_creator_fn>(velk::testing::creator("xt::hostprobe_plugin.create@3445205045"));
    ASSERT_NE(make, nullptr);
    make(native, nullptr, host_object);
    ASSERT_TRUE(native);
    uint32_t before = native->refcount();
    auto c = reinterpret_cast<xt::js::wrapper_js_fn>(velk::testing::creator("xt::hostprobe_plugin@wrapper.js"));
    ASSERT_NE(c, nullptr);
    {
        v8::HandleScope scope(isolate);
        v8::Local<v8::Value> out;
        c(out, native.get(), context);
        ASSERT_FALSE(out.IsEmpty());
        EXPECT_EQ(native->refcount(), before + 1);
    }
    collect_garbage();
    EXPECT_EQ(native->refcount(), before);
    EXPECT_EQ(live_dispatchers(), baseline);
}
