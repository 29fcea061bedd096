// Lifetime of Lua dispatchers under the collector: weak object tables give
// their reference back when collected, strong ones are cut loose when their
// dispatcher ends first. The count of live dispatchers is the process-wide
// census.
#include "bindings/lua/dispatcher_census.h"
#include "bindings/lua/hostprobe_plugin_lua_dispatcher.h"
#include "tests/bindings/lua/lua_test_host.h"

#include <gtest/gtest.h>

using velk::iref;
using velk::testing::lua_result;

namespace {

class LuaLifetime : public velk::testing::LuaTest
{
protected:
    LuaLifetime() { context = new_context("o"); }

    lua_result run(const std::string& code) { return LuaTest::run(context, code); }

    iref<velk::lua::lua_context> context;
};

} // namespace

TEST_F(LuaLifetime, HundredThousandDroppedScriptObjectsAreAllGivenBack)
{
    int64_t live = live_dispatchers();
    uint64_t made = velk::lua::census().made;
    ASSERT_TRUE(run("for i = 1, 100000 do query_interface('xt::lua::hostprobe_plugin.create', host) end").ok);
    EXPECT_EQ(velk::lua::census().made - made, 100000u);
    ASSERT_TRUE(run("collectgarbage('collect'); collectgarbage('collect')").ok);
    EXPECT_EQ(live_dispatchers(), live);
}

TEST_F(LuaLifetime, HundredThousandDroppedWrapperObjectsAreAllGivenBack)
{
    auto native = reinterpret_cast<xt::native_creator_fn>(velk::testing::creator(xt::hostprobe_plugin::native_creator_key));
    auto wrap = reinterpret_cast<xt::lua::wrapper_lua_fn>(velk::testing::creator("xt::hostprobe_plugin@wrapper.lua"));
    iref<xt::hostprobe_plugin> plain;
    native(plain, nullptr, host_object);
    int64_t live = live_dispatchers();
    for (int i = 0; i < 100000; ++i) {
        iref<velk::lua::registry_handle> out;
        wrap(out, plain.get(), iref<velk::lua::registry_handle>(context.get()));
    }
    ASSERT_TRUE(run("collectgarbage('collect'); collectgarbage('collect')").ok);
    EXPECT_EQ(live_dispatchers(), live);
    EXPECT_EQ(plain->refcount(), 1u); // the wrappers' references to it are gone
}

TEST_F(LuaLifetime, DroppedScriptObjectsGiveBackTheHostsObject)
{
    uint32_t before = host_object->refcount();
    ASSERT_TRUE(run("kept = query_interface('xt::lua::hostprobe_plugin.create', host)\n"
                    "for i = 1, 1000 do query_interface('xt::lua::hostprobe_plugin.create', host) end").ok);
    EXPECT_GT(host_object->refcount(), before); // the kept one holds it
    ASSERT_TRUE(run("kept = nil").ok);
    collect_garbage();
    EXPECT_EQ(host_object->refcount(), before);
}

TEST_F(LuaLifetime, ObjectKeptByTheScriptKeepsItsDispatcher)
{
    int64_t live = live_dispatchers();
    ASSERT_TRUE(run("kept = query_interface('xt::lua::hostprobe_plugin.create', host)").ok);
    collect_garbage();
    EXPECT_EQ(live_dispatchers(), live + 1);
    EXPECT_EQ(run("return kept:testfunction(7)").text, "14");
}

TEST_F(LuaLifetime, ObjectDroppedLaterIsGivenBackThen)
{
    int64_t live = live_dispatchers();
    ASSERT_TRUE(run("kept = query_interface('xt::lua::hostprobe_plugin.create', host)").ok);
    collect_garbage();
    ASSERT_TRUE(run("kept = nil").ok);
    collect_garbage();
    EXPECT_EQ(live_dispatchers(), live);
}

TEST_F(LuaLifetime, NativeReferenceOutlivesTheCollectedObjectTable)
{
    auto wrap = reinterpret_cast<xt::lua::wrapper_lua_fn>(velk::testing::creator("xt::hostprobe_plugin@wrapper.lua"));
    auto native = reinterpret_cast<xt::native_creator_fn>(velk::testing::creator(xt::hostprobe_plugin::native_creator_key));
    iref<xt::hostprobe_plugin> plain;
    native(plain, nullptr, host_object);
    iref<velk::lua::registry_handle> out;
    wrap(out, plain.get(), iref<velk::lua::registry_handle>(context.get()));
    out->push();
    lua_getfield(L, -1, "__cthis");
    iref<velk::stubsmith_interface> held(*static_cast<velk::stubsmith_interface**>(lua_touserdata(L, -1)));
    lua_settop(L, 0);
    collect_garbage();
    // The table is gone: the weak handle pushes nil, the dispatcher lives on.
    out->push();
    EXPECT_TRUE(lua_isnil(L, -1));
    lua_settop(L, 0);
    EXPECT_EQ(held->refcount(), 1u);
    EXPECT_EQ(held->real_interface(), plain.get());
}

TEST_F(LuaLifetime, StronglyHeldObjectSurvivesCollections)
{
    collect_garbage();
    EXPECT_EQ(run("return o:testfunction(2)").text, "4");
}

TEST_F(LuaLifetime, StrongObjectTableWhoseDispatcherIsGoneFailsWithTheNullText)
{
    iref<xt::hostprobe_plugin> probe;
    iref<velk::lua::lua_context> c = new_context("p", &probe);
    ASSERT_TRUE(run("kept = nil").ok);
    ASSERT_EQ(LuaTest::run(c, "kept = p; return p:testfunction(1)").text, "2");
    int64_t live = live_dispatchers();
    probe.release(); // the only native reference: the dispatcher ends
    EXPECT_EQ(live_dispatchers(), live - 1);
    lua_result r = LuaTest::run(c, "local r = kept:testfunction(1)");
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.text, "test.lua(1): Null interface object in hostprobe_plugin.testfunction");
    r = LuaTest::run(c, "local r = kept:getMAC()");
    EXPECT_EQ(r.text, "test.lua(1): Null interface object in hostprobe_plugin.getMAC");
}

TEST_F(LuaLifetime, ClosingTheStateGivesBackTheObjectsItStillHeld)
{
    int64_t live = live_dispatchers();
    ASSERT_TRUE(run("kept = query_interface('xt::lua::hostprobe_plugin.create', host)").ok);
    EXPECT_EQ(live_dispatchers(), live + 1);
    objects.clear();
    contexts.clear();
    context.release();
    lua_close(L);
    L = velk::lua::new_state(); // the fixture closes this one
    EXPECT_EQ(live_dispatchers(), live - 1); // the kept one and the context's own
}
