// The JavaScript dispatcher of xt::hostprobe_plugin in a real isolate, with
// the real plug-in module loaded: its methods and their conversions, the
// failures scripts see, its object template, and its three creators.
#include "bindings/js/hostprobe_plugin_js_dispatcher.h"
#include "bindings/js/interface_object.h"
#include "bindings/js/raw_field.h"
#include "comm/exception.h"
#include "interface/registrar.h"
#include "tests/bindings/js/js_test_host.h"

#include <gtest/gtest.h>

#include <string>

using velk::testing::JsTest;
using velk::testing::script_result;
using xt::hostprobe_plugin;

namespace {

class JsDispatcher : public JsTest
{
protected:
    void SetUp() override { context = new_context("o", &plugin); }

    script_result run(const std::string& code) { return JsTest::run(context, code); }

    // The object's script side, as native code reaches it.
    v8::Local<v8::Object> script_object()
    {
        return static_cast<xt::js::hostprobe_plugin_js_dispatcher*>(plugin.get())->object.Get(isolate);
    }

    v8::Local<v8::Context> context;
    velk::iref<hostprobe_plugin> plugin;
};

// -- A native interface of the same kind, made by the test ------------------------
//
// Its method table records each call and can throw a velk::exception, so
// that what scripts see of native failures shows through the wrapper.

struct recorded
{
    static inline int calls = 0;
    static inline int32_t last_x = -1;
    static inline bool fail = false;
};

velk::charstr recording_getmac(velk::counted_base*)
{
    ++recorded::calls;
    if (recorded::fail)
        throw velk::exception("adapter list unreadable");
    return velk::charstr("00:11");
}

uint32_t recording_mersenne(velk::counted_base*, uint32_t seed)
{
    ++recorded::calls;
    return seed;
}

int32_t recording_testfunction(velk::counted_base*, int32_t x)
{
    ++recorded::calls;
    recorded::last_x = x;
    if (recorded::fail)
        throw velk::exception(velk::token("built text ")) << x;
    return x + 1;
}

velk::method_fn recording_table[] = {
    reinterpret_cast<velk::method_fn>(&recording_getmac),
    reinterpret_cast<velk::method_fn>(&recording_mersenne),
    reinterpret_cast<velk::method_fn>(&recording_testfunction),
};

class recording_plugin : public hostprobe_plugin
{
public:
    recording_plugin()
    {
        _method_table = recording_table;
        _host = new xt::testing::host_interface_stub;
        recorded::calls = 0;
        recorded::last_x = -1;
        recorded::fail = false;
    }
};

v8::Local<v8::Value> wrap(velk::stubsmith_interface* ifc, v8::Local<v8::Context> context)
{
    auto c = reinterpret_cast<xt::js::wrapper_js_fn>(velk::testing::creator("xt::hostprobe_plugin@wrapper.js"));
    v8::Local<v8::Value> out;
    if (c)
        c(out, ifc, context);
    return out;
}

} // namespace

// -- Methods ----------------------------------------------------------------------

TEST_F(JsDispatcher, TestfunctionDoubles)
{
    EXPECT_EQ(run("o.testfunction(21)").text, "42");
}

TEST_F(JsDispatcher, TestfunctionWrapsIn32Bits)
{
    EXPECT_EQ(run("o.testfunction(0x40000000)").text, "-2147483648");
}

TEST_F(JsDispatcher, TestfunctionConvertsTextByTheScriptsOwnRules)
{
    EXPECT_EQ(run("o.testfunction('21')").text, "42");
}

TEST_F(JsDispatcher, MersenneTwisterAboveTheSignedRangeReachesScriptsNegative)
{
    // 3499211612 as a signed 32-bit value.
    EXPECT_EQ(run("o.mersenne_twister(5489)").text, "-795755684");
}

TEST_F(JsDispatcher, MersenneTwisterOfSeedZeroReachesScriptsAsASigned32BitNumber)
{
    // 2357136044 as a signed 32-bit value.
    EXPECT_EQ(run("o.mersenne_twister(0)").text, "-1937831252");
}

TEST_F(JsDispatcher, GetMacGivesTheNativeText)
{
    velk::charstr expected = plugin->getMAC();
    script_result r = run("o.getMAC()");
    EXPECT_EQ(r.type, "string");
    EXPECT_EQ(r.text, std::string(expected.c_str()));
}

// -- Wrong calls --------------------------------------------------------------------

TEST_F(JsDispatcher, GetMacWithAnArgumentThrowsSyntaxError)
{
    script_result r = run("o.getMAC(1)");
    EXPECT_TRUE(r.threw);
    EXPECT_EQ(r.text, "SyntaxError: Wrong number of arguments in hostprobe_plugin.getMAC");
}

TEST_F(JsDispatcher, TestfunctionWithoutArgumentThrowsSyntaxError)
{
    EXPECT_EQ(run("o.testfunction()").text, "SyntaxError: Wrong number of arguments in hostprobe_plugin.testfunction");
}

TEST_F(JsDispatcher, MersenneTwisterWithTwoArgumentsThrowsSyntaxError)
{
    EXPECT_EQ(run("o.mersenne_twister(1, 2)").text,
              "SyntaxError: Wrong number of arguments in hostprobe_plugin.mersenne_twister");
}

TEST_F(JsDispatcher, MethodOnAPlainObjectGivesUndefined)
{
    script_result r = run("o.mersenne_twister.call({}, 1)");
    EXPECT_FALSE(r.threw) << r.text;
    EXPECT_EQ(r.type, "undefined");
}

TEST_F(JsDispatcher, MethodOnAnotherInterfacesObjectGivesUndefined)
{
    // The host's object has two fields too, but another hash in field 1.
    add_host_object(context);
    script_result r = run("o.testfunction.call(host, 1)");
    EXPECT_FALSE(r.threw) << r.text;
    EXPECT_EQ(r.type, "undefined");
}

namespace {

// An object of another template, with field0 in field 0 and the hash in
// field 1, named x in the script.
void add_object_of_fields(v8::Isolate* isolate, v8::Local<v8::Context> context, int fields,
                          v8::Local<v8::Value> field0)
{
    v8::Context::Scope in(context);
    v8::Local<v8::ObjectTemplate> t = v8::ObjectTemplate::New(isolate);
    t->SetInternalFieldCount(fields);
    t->Set(isolate, "p", v8::Integer::New(isolate, 1));
    v8::Local<v8::Object> x = t->NewInstance(context).ToLocalChecked();
    x->SetInternalField(0, field0);
    x->SetInternalField(1, v8::External::New(isolate, reinterpret_cast<void*>(uintptr_t(hostprobe_plugin::hash))));
    context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "x"), x).Check();
}

} // namespace

TEST_F(JsDispatcher, MethodOnAnyObjectOfTwoFieldsHoldingTheDispatcherCallsIt)
{
    velk::stubsmith_interface* d = plugin.get();
    add_object_of_fields(isolate, context, 2, v8::External::New(isolate, d));
    EXPECT_EQ(run("o.testfunction.call(x, 21)").text, "42");
}

TEST_F(JsDispatcher, MethodOnAnObjectOfThreeFieldsGivesUndefined)
{
    velk::stubsmith_interface* d = plugin.get();
    add_object_of_fields(isolate, context, 3, v8::External::New(isolate, d));
    script_result r = run("o.testfunction.call(x, 21)");
    EXPECT_FALSE(r.threw) << r.text;
    EXPECT_EQ(r.type, "undefined");
}

TEST_F(JsDispatcher, MethodOnAnObjectOfTwoFieldsWithoutAnExternalGivesUndefined)
{
    v8::Context::Scope in(context);
    add_object_of_fields(isolate, context, 2, v8::Object::New(isolate));
    script_result r = run("o.testfunction.call(x, 21)");
    EXPECT_FALSE(r.threw) << r.text;
    EXPECT_EQ(r.type, "undefined");
}

TEST_F(JsDispatcher, RawFieldReadAgreesWithTheApi)
{
    // The methods read field 0 straight from V8's heap where this build
    // allows it; the read must give what the API gives, and be on here.
    EXPECT_EQ(velk::js::raw_interface_field_checked(isolate, context), VELK_JS_RAW_FIELDS == 1);
    v8::Context::Scope in(context);
    void* p = nullptr;
    EXPECT_EQ(velk::js::raw_interface_field(script_object(), p), VELK_JS_RAW_FIELDS == 1);
    if (VELK_JS_RAW_FIELDS) {
        EXPECT_EQ(p, static_cast<velk::stubsmith_interface*>(plugin.get()));
    }
}

TEST_F(JsDispatcher, MethodWithANullInterfaceThrowsReferenceError)
{
    v8::Context::Scope in(context);
    v8::Local<v8::Object> o = script_object();
    o->SetInternalField(0, v8::External::New(isolate, nullptr));
    EXPECT_EQ(run("o.getMAC()").text, "ReferenceError: Null interface object in hostprobe_plugin.getMAC");
    // Bound again, so that the dispatcher's end finds its own object.
    o->SetInternalField(0, v8::External::New(isolate, static_cast<velk::stubsmith_interface*>(plugin.get())));
}

TEST_F(JsDispatcher, NewOnAMethodIsRefused)
{
    EXPECT_TRUE(run("new o.testfunction(1)").threw);
}

// -- Native failures ------------------------------------------------------------------

TEST_F(JsDispatcher, NativeExceptionArrivesAsTypeErrorWithItsText)
{
    velk::iref<velk::stubsmith_interface> native(new recording_plugin);
    {
        v8::Context::Scope in(context);
        context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "w"), wrap(native.get(), context)).Check();
    }
    recorded::fail = true;
    EXPECT_EQ(run("w.getMAC()").text, "TypeError: adapter list unreadable");
}

TEST_F(JsDispatcher, NativeExceptionWithBuiltTextArrivesWithIt)
{
    velk::iref<velk::stubsmith_interface> native(new recording_plugin);
    {
        v8::Context::Scope in(context);
        context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "w"), wrap(native.get(), context)).Check();
    }
    recorded::fail = true;
    EXPECT_EQ(run("w.testfunction(5)").text, "TypeError: built text 5");
}

TEST_F(JsDispatcher, ArgumentThatCantBeConvertedLeavesItsExceptionAndStillCalls)
{
    velk::iref<velk::stubsmith_interface> native(new recording_plugin);
    {
        v8::Context::Scope in(context);
        context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "w"), wrap(native.get(), context)).Check();
    }
    script_result r = run("w.testfunction(Symbol('s'))");
    EXPECT_TRUE(r.threw);
    EXPECT_NE(r.text.find("TypeError"), std::string::npos) << r.text;
    EXPECT_EQ(recorded::calls, 1);
}

TEST_F(JsDispatcher, WrapperCallsGoToTheWrappedInterface)
{
    velk::iref<velk::stubsmith_interface> native(new recording_plugin);
    {
        v8::Context::Scope in(context);
        context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "w"), wrap(native.get(), context)).Check();
    }
    EXPECT_EQ(run("w.testfunction(41)").text, "42");
    EXPECT_EQ(recorded::last_x, 41);
}

// -- Calls from optimised code ------------------------------------------------------------
//
// Hot loops get optimised, and their calls take other roads to the
// callbacks: a script must see the same there, failures caught included.

// Calls enough for V8 to optimise the loop that makes them.
constexpr const char* hot = "100000";

TEST_F(JsDispatcher, HotLoopGivesTheCallbacksResults)
{
    EXPECT_EQ(run(std::string("function f(n) { var bad = 0; for (var i = 0; i < n; ++i)"
                              " if (o.testfunction(i) !== i * 2) ++bad; return bad; } f(") +
                  hot + ")")
                  .text,
              "0");
    // Each of these calls seeds a generator: fewer make the loop hot.
    EXPECT_EQ(run("function m(n) { var bad = 0; for (var i = 0; i < n; ++i)"
                  " if (o.mersenne_twister(5489) !== -795755684) ++bad; return bad; } m(30000)")
                  .text,
              "0");
}

TEST_F(JsDispatcher, HotLoopConvertsNumbersAsTheScriptsToInt32)
{
    EXPECT_EQ(run(std::string("function f(x) { return o.testfunction(x); }"
                              "for (var i = 0; i < ") +
                  hot + "; ++i) f(i);"
                        "[f(1.5), f(-0), f(2 ** 32 + 5), f(NaN), f(-1.9), f(0x40000000), f('21'), f(true)].join()")
                  .text,
              "2,0,10,0,-2,-2147483648,42,2");
}

TEST_F(JsDispatcher, HotLoopWithAForeignOrNullReceiverAsTheCallback)
{
    add_host_object(context);
    EXPECT_EQ(run(std::string("function g(r) { return o.testfunction.call(r, 3); }"
                              "for (var i = 0; i < ") +
                  hot + "; ++i) g(o);"
                        "[g(o), typeof g({}), typeof g(host)].join()")
                  .text,
              "6,undefined,undefined");
    v8::Context::Scope in(context);
    v8::Local<v8::Object> o = script_object();
    o->SetInternalField(0, v8::External::New(isolate, nullptr));
    EXPECT_EQ(run("g(o)").text, "ReferenceError: Null interface object in hostprobe_plugin.testfunction");
    o->SetInternalField(0, v8::External::New(isolate, static_cast<velk::stubsmith_interface*>(plugin.get())));
    EXPECT_EQ(run("g(o)").text, "6");
}

TEST_F(JsDispatcher, HotLoopWithAWrongCountThrowsSyntaxError)
{
    EXPECT_EQ(run(std::string("function h(n) { var s = 0; for (var i = 0; i < n; ++i) s += o.testfunction(i);"
                              " if (n < 10) o.testfunction(); return s; }"
                              "for (var i = 0; i < 30; ++i) h(") +
                  hot + " / 10); h(1)")
                  .text,
              "SyntaxError: Wrong number of arguments in hostprobe_plugin.testfunction");
}

TEST_F(JsDispatcher, HotLoopNativeFailureThrowsTypeErrorAndCallsOnce)
{
    velk::iref<velk::stubsmith_interface> native(new recording_plugin);
    {
        v8::Context::Scope in(context);
        context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "w"), wrap(native.get(), context)).Check();
    }
    EXPECT_EQ(run(std::string("function k(n) { var errors = 0, text = '';"
                              " for (var i = 0; i < n; ++i) { try { w.testfunction(i); } catch (e) { ++errors;"
                              " text = String(e); } } return errors + ' ' + text; }"
                              "k(") +
                  hot + ")")
                  .text,
              "0 ");
    // Failing from the start, so that the loop is optimised with its catch.
    recorded::calls = 0;
    recorded::fail = true;
    EXPECT_EQ(run(std::string("k(") + hot + ")").text, std::string(hot) + " TypeError: built text 99999");
    EXPECT_EQ(recorded::calls, 100000);
    recorded::calls = 0;
    EXPECT_EQ(run("k(1000)").text, "1000 TypeError: built text 999");
    EXPECT_EQ(recorded::calls, 1000);
    recorded::fail = false;
    EXPECT_EQ(run("w.testfunction(7)").text, "8");
}

// -- The object -----------------------------------------------------------------------

TEST_F(JsDispatcher, ObjectPrintsAsTheInterface)
{
    EXPECT_NE(run("String(o)").text.find("xt::hostprobe_plugin"), std::string::npos);
}

TEST_F(JsDispatcher, ObjectListsItsFunctionsInOrder)
{
    EXPECT_EQ(run("Object.keys(o).join(',')").text,
              "getMAC,mersenne_twister,testfunction,$log,$query_interface,$rebind_events,$ctx");
}

TEST_F(JsDispatcher, ObjectHasTwoInternalFieldsWithTheHash)
{
    v8::Context::Scope in(context);
    v8::Local<v8::Object> o = run("o").value.As<v8::Object>();
    velk::stubsmith_interface* ifc = nullptr;
    uint32_t hash = 0;
    ASSERT_TRUE(velk::js::read_interface_fields(o, ifc, hash));
    EXPECT_EQ(hash, 0xCD59A835u);
    EXPECT_EQ(ifc, static_cast<velk::stubsmith_interface*>(plugin.get()));
}

TEST_F(JsDispatcher, DispatcherSaysItIsOfTheJavaScriptBackend)
{
    EXPECT_EQ(plugin->backend(), velk::backend_js);
}

TEST_F(JsDispatcher, DispatcherWithoutRealIsItsOwnRealInterface)
{
    EXPECT_EQ(plugin->real_interface(), plugin.get());
}

TEST_F(JsDispatcher, SetCaptureWithoutRealAnswersWithTheInterfacesOwnSlot)
{
    int sink = 0;
    EXPECT_FALSE(plugin->set_capture(&sink, 1));
}

TEST_F(JsDispatcher, RebindEventsGivesUndefined)
{
    EXPECT_EQ(run("o.$rebind_events()").type, "undefined");
}

TEST_F(JsDispatcher, CtxGivesTheGlobalBehindTheContextsGlobalProxy)
{
    // The global proxy's prototype is the context's global object itself:
    // it holds the context's globals.
    EXPECT_EQ(run("var c = o.$ctx(); c !== globalThis && c.o === o && c.Object === Object").text, "true");
}

TEST_F(JsDispatcher, CtxOnAPlainObjectGivesUndefined)
{
    EXPECT_EQ(run("o.$ctx.call({})").type, "undefined");
}

TEST_F(JsDispatcher, MethodCalledFromAnotherContextRunsInTheObjectsContext)
{
    v8::Local<v8::Context> other = new_context("p");
    v8::Local<v8::Value> o;
    {
        v8::Context::Scope in(context);
        o = run("o").value;
    }
    {
        v8::Context::Scope in(other);
        other->Global()->Set(other, v8::String::NewFromUtf8Literal(isolate, "foreign"), o).Check();
    }
    EXPECT_EQ(JsTest::run(other, "foreign.testfunction(4)").text, "8");
    EXPECT_EQ(JsTest::run(other, "foreign.$ctx().o === foreign && foreign.$ctx().p === undefined").text, "true");
}

// -- The wrapper creator ------------------------------------------------------------------

TEST_F(JsDispatcher, WrapperOfAScriptDispatcherGivesItsOwnObject)
{
    v8::Context::Scope in(context);
    v8::Local<v8::Value> first = wrap(plugin.get(), context);
    v8::Local<v8::Value> second = wrap(plugin.get(), context);
    ASSERT_FALSE(first.IsEmpty());
    EXPECT_TRUE(first->StrictEquals(second));
    EXPECT_TRUE(first->StrictEquals(run("o").value));
}

TEST_F(JsDispatcher, WrapperOfTheSameNativeInterfaceTwiceGivesTwoObjects)
{
    velk::iref<velk::stubsmith_interface> native(new recording_plugin);
    v8::Context::Scope in(context);
    v8::Local<v8::Value> first = wrap(native.get(), context);
    v8::Local<v8::Value> second = wrap(native.get(), context);
    EXPECT_FALSE(first->StrictEquals(second));
}

TEST_F(JsDispatcher, WrapperOfNullGivesNull)
{
    v8::Context::Scope in(context);
    v8::Local<v8::Value> v = wrap(nullptr, context);
    ASSERT_FALSE(v.IsEmpty());
    EXPECT_TRUE(v->IsNull());
}

TEST_F(JsDispatcher, WrapperHoldsTheWrappedInterface)
{
    auto* native = new recording_plugin;
    velk::iref<velk::stubsmith_interface> held(native);
    {
        v8::Context::Scope in(context);
        wrap(native, context);
    }
    EXPECT_EQ(native->refcount(), 2u);
}

TEST_F(JsDispatcher, WrappersRealInterfaceIsTheWrappedOne)
{
    velk::iref<velk::stubsmith_interface> native(new recording_plugin);
    v8::Context::Scope in(context);
    v8::Local<v8::Object> w = wrap(native.get(), context).As<v8::Object>();
    velk::stubsmith_interface* ifc = nullptr;
    uint32_t hash = 0;
    ASSERT_TRUE(velk::js::read_interface_fields(w, ifc, hash));
    EXPECT_EQ(ifc->real_interface(), native.get());
    EXPECT_EQ(ifc->backend(), velk::backend_js);
}

TEST_F(JsDispatcher, WrapperCreatorIsFoundThroughTheInterfacesOwnSlot)
{
    EXPECT_EQ(plugin->wrapper_creator(velk::backend_js), velk::testing::creator("xt::hostprobe_plugin@wrapper.js"));
}

// -- The maker ----------------------------------------------------------------------------

TEST_F(JsDispatcher, MakerBindsANativeObjectWithAStrongObject)
{
    auto c = reinterpret_cast<xt::js::maker_js_fn>(velk::testing::creator("xt::hostprobe_plugin@maker.js"));
    ASSERT_NE(c, nullptr);
    velk::iref<hostprobe_plugin> made;
    c(made, plugin->host(), context);
    ASSERT_TRUE(made);
    auto* d = static_cast<xt::js::hostprobe_plugin_js_dispatcher*>(made.get());
    EXPECT_FALSE(d->object.IsEmpty());
    EXPECT_FALSE(d->object.IsWeak());
    EXPECT_EQ(made->testfunction(-1), -2);
    EXPECT_EQ(made->refcount(), 1u);
}

TEST_F(JsDispatcher, MakerOutsideAnIsolateGivesNull)
{
    auto c = reinterpret_cast<xt::js::maker_js_fn>(velk::testing::creator("xt::hostprobe_plugin@maker.js"));
    ASSERT_NE(c, nullptr);
    velk::iref<hostprobe_plugin> made;
    isolate->Exit();
    c(made, plugin->host(), v8::Local<v8::Context>());
    isolate->Enter();
    EXPECT_FALSE(made);
}

TEST_F(JsDispatcher, MakerOfNullGivesNull)
{
    auto c = reinterpret_cast<xt::js::maker_js_fn>(velk::testing::creator("xt::hostprobe_plugin@maker.js"));
    ASSERT_NE(c, nullptr);
    velk::iref<hostprobe_plugin> made(plugin.get());
    c(made, nullptr, context);
    EXPECT_FALSE(made);
}

// -- The script-side creator ----------------------------------------------------------------

TEST_F(JsDispatcher, ScriptSideCreatorMakesAWorkingObject)
{
    add_host_object(context);
    EXPECT_EQ(run("$query_interface('xt::js::hostprobe_plugin.create', host).testfunction(5)").text, "10");
}

TEST_F(JsDispatcher, ScriptSideCreatorWithoutTheHostObjectThrowsTheCountError)
{
    script_result r = run("$query_interface('xt::js::hostprobe_plugin.create')");
    EXPECT_TRUE(r.threw);
    EXPECT_EQ(r.text, "Error: Wrong number of arguments in create");
}

TEST_F(JsDispatcher, ScriptSideCreatorWithAnotherInterfacesObjectGivesNull)
{
    // o is an interface object too, but not the host's.
    script_result r = run("$query_interface('xt::js::hostprobe_plugin.create', o)");
    EXPECT_FALSE(r.threw) << r.text;
    EXPECT_EQ(r.text, "null");
}

TEST_F(JsDispatcher, ScriptSideCreatorWithAPlainObjectGivesNull)
{
    EXPECT_EQ(run("$query_interface('xt::js::hostprobe_plugin.create', {})").text, "null");
}

TEST_F(JsDispatcher, ScriptSideCreatorReachedAsAMethodOfAnObject)
{
    add_host_object(context);
    EXPECT_EQ(run("o.$query_interface('xt::js::hostprobe_plugin.create', host).mersenne_twister(5489)").text,
              "-795755684");
}

TEST_F(JsDispatcher, ScriptSideObjectsBindTheHostsObject)
{
    add_host_object(context);
    uint32_t before = host_object->refcount();
    run("keep = $query_interface('xt::js::hostprobe_plugin.create', host)");
    EXPECT_EQ(host_object->refcount(), before + 1);
}

TEST_F(JsDispatcher, ScriptSideObjectsAreNotTheSameObject)
{
    add_host_object(context);
    EXPECT_EQ(run("var c = 'xt::js::hostprobe_plugin.create';"
                  "$query_interface(c, host) === $query_interface(c, host)")
                  .text,
              "false");
}

// -- Registration ----------------------------------------------------------------------------

TEST_F(JsDispatcher, PluginEntersItsJavaScriptKeys)
{
    for (const char* key : {"xt::hostprobe_plugin.create@creator.js", "xt::js::hostprobe_plugin.create",
                            "xt::hostprobe_plugin@wrapper.js", "xt::hostprobe_plugin@maker.js"})
        EXPECT_NE(velk::testing::creator(key), nullptr) << key;
}

TEST_F(JsDispatcher, ScriptCreatorIsFoundAsTheInterfacesScriptCreator)
{
    velk::dynarray<velk::creator_match> found;
    velk::find_script_creators("xt::hostprobe_plugin.create", "js", found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].creator, velk::testing::creator("xt::js::hostprobe_plugin.create"));
}
