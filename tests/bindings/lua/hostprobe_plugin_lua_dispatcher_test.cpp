// The Lua dispatcher of xt::hostprobe_plugin in a real LuaJIT state, with
// the real plug-in module: the object table, the methods, their failures,
// object log and query_interface, the script-side and wrapper creators.
#include "bindings/lua/dispatcher_census.h"
#include "bindings/lua/hostprobe_plugin_lua_dispatcher.h"
#include "bindings/lua/lua_ext.h"
#include "tests/bindings/lua/lua_test_host.h"

#include <gtest/gtest.h>

#include <string>

using velk::iref;
using velk::testing::lua_environment;
using velk::testing::lua_result;

namespace {

class LuaDispatcher : public velk::testing::LuaTest
{
protected:
    LuaDispatcher()
    {
        context = new_context("o", &probe);
        // An object table whose "__cthis" userdata holds null.
        context->push();
        lua_createtable(L, 0, 2);
        *static_cast<void**>(lua_newuserdata(L, sizeof(void*))) = nullptr;
        lua_setfield(L, -2, "__cthis");
        lua_pushnumber(L, xt::hostprobe_plugin::hash);
        lua_setfield(L, -2, "__class_hash");
        lua_setfield(L, -2, "null_object");
        lua_settop(L, -2);
    }

    lua_result run(const std::string& code, const std::string& name = "test.lua")
    {
        return LuaTest::run(context, code, name);
    }

    iref<xt::hostprobe_plugin> probe;
    iref<velk::lua::lua_context> context;
};

// What a successful call gave, or the error text prefixed "error: ".
std::string said(const lua_result& r) { return r.ok ? r.text : "error: " + r.text; }

} // namespace

// -- The object table -------------------------------------------------------------

TEST_F(LuaDispatcher, ObjectTableIsItsOwnMetatable)
{
    EXPECT_EQ(said(run("return getmetatable(o) == o")), "true");
}

TEST_F(LuaDispatcher, ObjectTableHoldsTheInterfaceHashAsANumber)
{
    EXPECT_EQ(said(run("return rawget(o, '__class_hash')")), "3445205045");
}

TEST_F(LuaDispatcher, ObjectTableHoldsItsDispatcherInAPointerSizedUserdata)
{
    context->push();
    lua_getfield(L, -1, "o");
    lua_getfield(L, -1, velk::lua::names::cthis);
    ASSERT_TRUE(lua_isuserdata(L, -1));
    EXPECT_EQ(lua_objlen(L, -1), sizeof(void*));
    EXPECT_EQ(*static_cast<velk::stubsmith_interface**>(lua_touserdata(L, -1)), probe.get());
    lua_settop(L, 0);
}

TEST_F(LuaDispatcher, ObjectTablesIndexIsTheClassTableOfItsContext)
{
    EXPECT_EQ(said(run("return rawget(o, '__index') == xt_hostprobe_plugin")), "true");
}

TEST_F(LuaDispatcher, ClassTableHoldsLogQueryInterfaceAndTheThreeMethods)
{
    EXPECT_EQ(said(run("local n = 0; for k, v in pairs(xt_hostprobe_plugin) do n = n + 1 end;"
                       "local c = xt_hostprobe_plugin;"
                       "return n .. type(c.log) .. type(c.query_interface) .. type(c.getMAC) .."
                       "type(c.mersenne_twister) .. type(c.testfunction)")),
              "5functionfunctionfunctionfunctionfunction");
}

TEST_F(LuaDispatcher, DispatcherReportsTheLuaBackend)
{
    EXPECT_EQ(probe->backend(), velk::backend_lua);
    EXPECT_EQ(probe->real_interface(), probe.get());
}

// -- Methods ----------------------------------------------------------------------

TEST_F(LuaDispatcher, TestfunctionDoublesItsArgument)
{
    EXPECT_EQ(said(run("return o:testfunction(21)")), "42");
}

TEST_F(LuaDispatcher, TestfunctionWrapsIn32Bits)
{
    EXPECT_EQ(said(run("return o:testfunction(0x40000000)")), "-2147483648");
    EXPECT_EQ(said(run("return o:testfunction(-1)")), "-2");
}

TEST_F(LuaDispatcher, MersenneTwisterResultIsPushedAsSigned32Bits)
{
    // 3499211612, the generator's first output for 5489, as a signed word.
    EXPECT_EQ(said(run("return o:mersenne_twister(5489)")), "-795755684");
    EXPECT_EQ(said(run("return o:mersenne_twister(5489) % 2^32")), "3499211612");
}

TEST_F(LuaDispatcher, MersenneTwisterTakesASeedAbove2ToThe31)
{
    // The seed goes to 32 bits signed and back to the same unsigned word.
    EXPECT_EQ(said(run("return o:mersenne_twister(4294967295) % 2^32")),
              std::to_string(probe->mersenne_twister(4294967295u)));
}

TEST_F(LuaDispatcher, GetMacGivesTheNativeTextAsALuaString)
{
    velk::charstr native = probe->getMAC();
    lua_result r = run("return o:getMAC()");
    ASSERT_TRUE(r.ok) << r.text;
    EXPECT_EQ(r.text, std::string(native.ptr() ? native.ptr() : "", native.lens()));
    EXPECT_EQ(said(run("return type(o:getMAC())")), "string");
}

TEST_F(LuaDispatcher, MethodArgumentThatIsNoNumberIsTakenAs0)
{
    EXPECT_EQ(said(run("return o:testfunction('abc')")), "0");
    EXPECT_EQ(said(run("return o:testfunction({})")), "0");
    EXPECT_EQ(said(run("return o:testfunction(nil)")), "0");
}

TEST_F(LuaDispatcher, MethodLeavesNothingOnTheStackButItsResult)
{
    EXPECT_EQ(said(run("return select('#', o:testfunction(1))")), "1");
}

// -- Method failures --------------------------------------------------------------

TEST_F(LuaDispatcher, MethodCalledWithADotFailsWithTheWrongCount)
{
    EXPECT_EQ(said(run("local r = o.testfunction(21)")),
              "error: test.lua(1): Wrong number of arguments in hostprobe_plugin.testfunction");
    EXPECT_EQ(said(run("local r = o.getMAC()")), "error: test.lua(1): Wrong number of arguments in hostprobe_plugin.getMAC");
    EXPECT_EQ(said(run("local r = o.mersenne_twister(1)")),
              "error: test.lua(1): Wrong number of arguments in hostprobe_plugin.mersenne_twister");
}

TEST_F(LuaDispatcher, MethodCalledWithADotAndAFittingCountIsNoValidCaller)
{
    EXPECT_EQ(said(run("local r = o.testfunction(5, 6)")),
              "error: test.lua(1): Caller is not valid object in hostprobe_plugin.testfunction");
}

TEST_F(LuaDispatcher, MethodWithTooManyArgumentsFailsWithTheWrongCount)
{
    EXPECT_EQ(said(run("local r = o:testfunction(1, 2)")),
              "error: test.lua(1): Wrong number of arguments in hostprobe_plugin.testfunction");
}

TEST_F(LuaDispatcher, MethodOnATableWithoutCthisIsNoValidCaller)
{
    EXPECT_EQ(said(run("local r = o.getMAC({})")), "error: test.lua(1): Caller is not valid object in hostprobe_plugin.getMAC");
}

TEST_F(LuaDispatcher, MethodOnAnObjectTableHoldingNullFailsWithTheNullText)
{
    EXPECT_EQ(said(run("local r = o.testfunction(null_object, 1)")),
              "error: test.lua(1): Null interface object in hostprobe_plugin.testfunction");
    EXPECT_EQ(said(run("local r = o.mersenne_twister(null_object, 1)")),
              "error: test.lua(1): Null interface object in hostprobe_plugin.mersenne_twister");
    EXPECT_EQ(said(run("local r = o.getMAC(null_object)")),
              "error: test.lua(1): Null interface object in hostprobe_plugin.getMAC");
}

TEST_F(LuaDispatcher, MethodOnAnotherInterfacesObjectIsNoValidCaller)
{
    EXPECT_EQ(said(run("local r = o.testfunction(host, 1)")),
              "error: test.lua(1): Caller is not valid object in hostprobe_plugin.testfunction");
}

TEST_F(LuaDispatcher, FailedMethodsErrorStartsWithTheCallingScriptsFileAndLine)
{
    EXPECT_EQ(said(run("local a = 1\n\nlocal b = o.testfunction()\nreturn b", "probe.lua")),
              "error: probe.lua(3): Wrong number of arguments in hostprobe_plugin.testfunction");
}

TEST_F(LuaDispatcher, FailedMethodInAFunctionNamesTheFunctionsLine)
{
    EXPECT_EQ(said(run("local function f()\n  local r = o.testfunction()\nend\nf()", "@probe.lua")),
              "error: probe.lua(2): Wrong number of arguments in hostprobe_plugin.testfunction");
}

// -- No native exception crosses a Lua frame ------------------------------------------

TEST_F(LuaDispatcher, FailingMethodInsidePcallGivesFalseAndTheText)
{
    EXPECT_EQ(said(run("local ok, e = pcall(o.testfunction)\nreturn tostring(ok) .. ' ' .. e")),
              "false Unknown file(unknow line): Wrong number of arguments in hostprobe_plugin.testfunction");
    EXPECT_EQ(said(run("local ok, e = pcall(function() local r = o.testfunction() end)\nreturn e")),
              "test.lua(1): Wrong number of arguments in hostprobe_plugin.testfunction");
}

TEST_F(LuaDispatcher, FailingMethodInsideACoroutineEndsTheCoroutineWithTheText)
{
    EXPECT_EQ(said(run("local co = coroutine.create(function() coroutine.yield(1)\n local r = o.getMAC() end)\n"
                       "coroutine.resume(co)\n"
                       "local ok, e = coroutine.resume(co)\n"
                       "return tostring(ok) .. ' ' .. e .. ' ' .. coroutine.status(co)")),
              "false test.lua(2): Wrong number of arguments in hostprobe_plugin.getMAC dead");
}

TEST_F(LuaDispatcher, MethodCalledInsideACoroutineWorks)
{
    EXPECT_EQ(said(run("local co = coroutine.wrap(function() return o:testfunction(8) end)\nreturn co()")), "16");
}

TEST_F(LuaDispatcher, FailingMethodAtTheTopOfAScriptFailsTheProtectedCallAndTheStateLives)
{
    EXPECT_EQ(said(run("o.testfunction()")),
              "error: test.lua(1): Wrong number of arguments in hostprobe_plugin.testfunction");
    EXPECT_EQ(said(run("return o:testfunction(2)")), "4");
}

// -- Object log ----------------------------------------------------------------------

TEST_F(LuaDispatcher, ObjectLogLogsAtTheLevelOfTheTextsWord)
{
    ASSERT_TRUE(run("o:log('warning:   disk almost full')").ok);
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].type, 2);
    EXPECT_EQ(log[0].text, "disk almost full");
}

TEST_F(LuaDispatcher, ObjectLogSourceIsTheInterfaceNameWithItsFixedHash)
{
    ASSERT_TRUE(run("o:log('hello')").ok);
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].source, "xt::hostprobe_plugin");
    EXPECT_EQ(log[0].source_hash, 0x74BDD968u);
}

TEST_F(LuaDispatcher, ObjectLogWithoutAWordIsLevel4AndNamesTheObject)
{
    ASSERT_TRUE(run("o:log('hello')").ok);
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].type, 4);
    EXPECT_EQ(log[0].text, "hello");
    EXPECT_EQ(log[0].context, static_cast<const void*>(static_cast<velk::stubsmith_interface*>(probe.get())));
}

TEST_F(LuaDispatcher, ObjectLogReadsEachWordOfTheLogger)
{
    ASSERT_TRUE(run("o:log('ERROR: a'); o:log('msg: b'); o:log('dbg: c'); o:log('perf: d')").ok);
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 4u);
    EXPECT_EQ(log[0].type, 1);
    EXPECT_EQ(log[1].type, 3);
    EXPECT_EQ(log[2].type, 5);
    EXPECT_EQ(log[3].type, 6);
}

TEST_F(LuaDispatcher, ObjectLogWithoutArgumentsDoesNothing)
{
    EXPECT_EQ(said(run("return select('#', o.log())")), "0");
    EXPECT_TRUE(lua_environment::log().empty());
}

TEST_F(LuaDispatcher, ObjectLogCalledWithADotLogsWithoutAnObject)
{
    ASSERT_TRUE(run("o.log('info: plain')").ok);
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].text, "plain");
    EXPECT_EQ(log[0].context, nullptr);
}

// The last argument goes to the bottom, and the message is read from the
// top: with two texts that is the first one, and the object lies between.
TEST_F(LuaDispatcher, ObjectLogWithTwoTextsLogsTheFirstWithoutTheObject)
{
    ASSERT_TRUE(run("o:log('first', 'second')").ok);
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].text, "first");
    EXPECT_EQ(log[0].context, nullptr);
}

TEST_F(LuaDispatcher, ObjectLogOnAnObjectTableHoldingNullFails)
{
    EXPECT_EQ(said(run("o.log(null_object, 'x')")), "error: test.lua(1): Null interface object in log");
}

// -- Object query ------------------------------------------------------------------------

TEST_F(LuaDispatcher, ObjectQueryMakesAnObjectInTheCallersContext)
{
    EXPECT_EQ(said(run("local p = o:query_interface('xt::lua::hostprobe_plugin.create', host)\n"
                       "return p:testfunction(4) .. ' ' .. tostring(rawget(p, '__index') == rawget(o, '__index'))")),
              "8 true");
}

TEST_F(LuaDispatcher, ObjectQueryWithFewerThanTwoArgumentsFails)
{
    EXPECT_EQ(said(run("o:query_interface()")),
              "error: test.lua(1): Interface creator name or caller object is missing.");
}

TEST_F(LuaDispatcher, ObjectQueryOnACallerThatIsNoObjectReturnsNoValue)
{
    EXPECT_EQ(said(run("return select('#', o.query_interface('xt::lua::hostprobe_plugin.create', 'x'))")), "0");
    EXPECT_EQ(said(run("return select('#', o.query_interface({}, 'x'))")), "0");
}

TEST_F(LuaDispatcher, ObjectQueryOnAnObjectTableHoldingNullFails)
{
    EXPECT_EQ(said(run("o.query_interface(null_object, 'x')")),
              "error: test.lua(1): Null interface object in query_interface");
}

TEST_F(LuaDispatcher, ObjectQueryWithANameThatIsNoStringFails)
{
    EXPECT_EQ(said(run("o:query_interface({}, host)")), "error: test.lua(1): Interface creator name missing.");
}

TEST_F(LuaDispatcher, ObjectQueryWithAnUnknownNameFails)
{
    EXPECT_EQ(said(run("o:query_interface('no::such.create', host)")),
              "error: test.lua(1): interface creator no::such.create not found");
}

TEST_F(LuaDispatcher, ObjectQueryWhoseCreatorGetsNoHostArgumentFailsWithTheCreatorsCount)
{
    EXPECT_EQ(said(run("o:query_interface('xt::lua::hostprobe_plugin.create')")),
              "error: test.lua(1): Wrong number of arguments in hostprobe_plugin.create");
}

// -- Script-side create --------------------------------------------------------------------

TEST_F(LuaDispatcher, ScriptSideCreateThroughTheContextGivesAWorkingObject)
{
    EXPECT_EQ(said(run("local p = query_interface('xt::lua::hostprobe_plugin.create', host)\n"
                       "return p:testfunction(3)")),
              "6");
}

TEST_F(LuaDispatcher, ScriptSideCreateLivesInTheCallingFunctionsEnvironment)
{
    EXPECT_EQ(said(run("local p = query_interface('xt::lua::hostprobe_plugin.create', host)\n"
                       "return rawget(p, '__index') == xt_hostprobe_plugin")),
              "true");
}

TEST_F(LuaDispatcher, ScriptSideCreateWithAValueThatIsNoHostObjectGivesNil)
{
    EXPECT_EQ(said(run("return query_interface('xt::lua::hostprobe_plugin.create', {})")), "nil");
    EXPECT_EQ(said(run("return query_interface('xt::lua::hostprobe_plugin.create', o)")), "nil");
}

TEST_F(LuaDispatcher, ScriptSideCreateWithAnotherCountFails)
{
    EXPECT_EQ(said(run("query_interface('xt::lua::hostprobe_plugin.create', host, 1)")),
              "error: test.lua(1): Wrong number of arguments in hostprobe_plugin.create");
}

TEST_F(LuaDispatcher, ScriptSideCreateMakesAWeakObjectThatHoldsOneReference)
{
    int64_t live = live_dispatchers();
    ASSERT_TRUE(run("kept = query_interface('xt::lua::hostprobe_plugin.create', host)").ok);
    EXPECT_EQ(live_dispatchers(), live + 1);
    context->push();
    lua_getfield(L, -1, "kept");
    lua_getfield(L, -1, velk::lua::names::cthis);
    auto* d = *static_cast<velk::stubsmith_interface**>(lua_touserdata(L, -1));
    lua_settop(L, 0);
    EXPECT_EQ(d->refcount(), 1u);
    collect_garbage();
    EXPECT_EQ(live_dispatchers(), live + 1); // the context still holds the table
}

// -- Wrapper creator -------------------------------------------------------------------------

TEST_F(LuaDispatcher, WrappingAnObjectThatHoldsItsTableGivesBackTheSameHandle)
{
    auto wrap = reinterpret_cast<xt::lua::wrapper_lua_fn>(velk::testing::creator("xt::hostprobe_plugin@wrapper.lua"));
    ASSERT_NE(wrap, nullptr);
    auto* d = static_cast<xt::lua::hostprobe_plugin_lua_dispatcher*>(probe.get());
    iref<velk::lua::registry_handle> out;
    wrap(out, probe.get(), d->context);
    EXPECT_EQ(out.get(), d->object.get());
}

TEST_F(LuaDispatcher, WrappingANullInterfaceGivesNull)
{
    auto wrap = reinterpret_cast<xt::lua::wrapper_lua_fn>(velk::testing::creator("xt::hostprobe_plugin@wrapper.lua"));
    iref<velk::lua::registry_handle> ctx(context.get());
    iref<velk::lua::registry_handle> out(new velk::lua::registry_handle(L));
    wrap(out, nullptr, ctx);
    EXPECT_FALSE(out);
}

TEST_F(LuaDispatcher, WrappingANativeInterfaceGivesATableWhoseCallsReachIt)
{
    auto native = reinterpret_cast<xt::native_creator_fn>(velk::testing::creator(xt::hostprobe_plugin::native_creator_key));
    iref<xt::hostprobe_plugin> plain;
    native(plain, nullptr, host_object);
    ASSERT_TRUE(plain);
    auto wrap = reinterpret_cast<xt::lua::wrapper_lua_fn>(velk::testing::creator("xt::hostprobe_plugin@wrapper.lua"));
    iref<velk::lua::registry_handle> out;
    wrap(out, plain.get(), iref<velk::lua::registry_handle>(context.get()));
    ASSERT_TRUE(out);
    context->push();
    out->push();
    lua_setfield(L, -2, "w");
    lua_settop(L, 0);
    EXPECT_EQ(said(run("return w:testfunction(50) .. ' ' .. tostring(rawget(w, '__index') == xt_hostprobe_plugin)")),
              "100 true");
}

TEST_F(LuaDispatcher, WrapperOfANativeInterfaceAnswersWithItAsItsRealInterface)
{
    auto native = reinterpret_cast<xt::native_creator_fn>(velk::testing::creator(xt::hostprobe_plugin::native_creator_key));
    iref<xt::hostprobe_plugin> plain;
    native(plain, nullptr, host_object);
    auto wrap = reinterpret_cast<xt::lua::wrapper_lua_fn>(velk::testing::creator("xt::hostprobe_plugin@wrapper.lua"));
    iref<velk::lua::registry_handle> out;
    wrap(out, plain.get(), iref<velk::lua::registry_handle>(context.get()));
    out->push();
    lua_getfield(L, -1, velk::lua::names::cthis);
    auto* d = *static_cast<velk::stubsmith_interface**>(lua_touserdata(L, -1));
    lua_settop(L, 0);
    EXPECT_EQ(d->backend(), velk::backend_lua);
    EXPECT_EQ(d->real_interface(), plain.get());
}

TEST_F(LuaDispatcher, PluginFindsTheLuaWrapperCreatorThroughItsBackend)
{
    EXPECT_EQ(probe->wrapper_creator(velk::backend_lua), velk::testing::creator("xt::hostprobe_plugin@wrapper.lua"));
}

// -- Class registration -------------------------------------------------------------------------

TEST_F(LuaDispatcher, ClassRegistrationLeavesTheContextTableOnTop)
{
    auto reg = reinterpret_cast<xt::lua::register_class_fn>(
        velk::testing::creator("lua::register_class.xt_hostprobe_plugin"));
    ASSERT_NE(reg, nullptr);
    lua_newtable(L);
    EXPECT_EQ(reg(L), 0);
    ASSERT_EQ(lua_gettop(L), 1);
    lua_getfield(L, 1, "xt_hostprobe_plugin");
    EXPECT_TRUE(lua_istable(L, -1));
    lua_settop(L, 0);
}

TEST_F(LuaDispatcher, FailingMethodInATailCallHasNoCallingLineToName)
{
    // A tail call leaves no frame of the caller: Lua keeps none to point at.
    EXPECT_EQ(said(run("return o.testfunction()")),
              "error: Unknown file(unknow line): Wrong number of arguments in hostprobe_plugin.testfunction");
}
