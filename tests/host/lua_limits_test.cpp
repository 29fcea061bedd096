// lua_limits in a real LuaJIT state, without the plug-in: the heap limit by
// the allocator and by the count hook, the time limit and its catch, and the
// JIT compiler kept off only while a hook is needed.
#include "host/lua_limits.h"

#include <gtest/gtest.h>

#include <string>

using host::lua_limits;

namespace {

// A state of limits that closes with the test, after finish().
class LuaLimits : public ::testing::Test
{
protected:
    void make(const host::run_limits& given, lua_limits::heap_check how = lua_limits::heap_check::allocator)
    {
        limits = std::make_unique<lua_limits>(given, how);
        L = limits->new_state();
        ASSERT_NE(L, nullptr);
    }
    void TearDown() override
    {
        if (L) {
            limits->finish(L);
            lua_close(L);
        }
    }

    // Runs code; its error's text, or "" when it ran.
    std::string run(const char* code)
    {
        if (luaL_loadstring(L, code) == 0 && lua_pcall(L, 0, 0, 0) == 0)
            return "";
        std::string error = lua_isstring(L, -1) ? lua_tostring(L, -1) : "(no text)";
        lua_settop(L, 0);
        return error;
    }

    bool jit_is_on()
    {
        run("jit_state = jit.status()");
        lua_getglobal(L, "jit_state");
        bool on = lua_toboolean(L, -1) != 0;
        lua_settop(L, 0);
        return on;
    }

    std::unique_ptr<lua_limits> limits;
    lua_State* L = nullptr;
};

const char* allocation_loop = "local t = {} while true do t[#t + 1] = { 1, 2, 3 } end";
const char* endless_loop = "while true do end";

} // namespace

TEST_F(LuaLimits, WithoutLimitsNothingIsHitAndTheJitStaysOn)
{
    make({});
    EXPECT_EQ(run("local s = 0 for i = 1, 100000 do s = s + i end"), "");
    EXPECT_EQ(limits->hit(), lua_limits::reason::none);
    EXPECT_TRUE(jit_is_on());
}

TEST_F(LuaLimits, AllocatorRefusesTheBlockBeyondTheLimit)
{
    make({0, 8});
    EXPECT_EQ(run(allocation_loop), "not enough memory");
    EXPECT_EQ(limits->hit(), lua_limits::reason::heap);
}

TEST_F(LuaLimits, AllocatorLimitLeavesTheJitOn)
{
    make({0, 8});
    EXPECT_TRUE(jit_is_on());
}

TEST_F(LuaLimits, HeapFreedAgainIsUsableAgain)
{
    make({0, 8});
    ASSERT_EQ(run(allocation_loop), "not enough memory");
    lua_gc(L, LUA_GCCOLLECT, 0);
    EXPECT_EQ(run("local t = {} for i = 1, 1000 do t[i] = { i } end"), "");
}

TEST_F(LuaLimits, CountHookKeepsTheHeapLimitWithoutAnAllocator)
{
    make({0, 8}, lua_limits::heap_check::count_hook);
    EXPECT_EQ(run(allocation_loop), "not enough memory");
    EXPECT_EQ(limits->hit(), lua_limits::reason::heap);
    EXPECT_FALSE(jit_is_on());
}

TEST_F(LuaLimits, CountHookCountsOnlyLiveMemory)
{
    // A megabyte of garbage, made eight hundred times over.
    make({0, 8}, lua_limits::heap_check::count_hook);
    EXPECT_EQ(run("for i = 1, 800 do local t = {} for j = 1, 16384 do t[j] = j end end"), "");
    EXPECT_EQ(limits->hit(), lua_limits::reason::none);
}

TEST_F(LuaLimits, TimeLimitStopsATightLoop)
{
    make({1, 0});
    EXPECT_FALSE(jit_is_on());
    EXPECT_EQ(run(endless_loop), "script timed out");
    EXPECT_EQ(limits->hit(), lua_limits::reason::time);
}

TEST_F(LuaLimits, CaughtTimeoutComesBackAtOnce)
{
    make({1, 0});
    EXPECT_EQ(run("while true do pcall(function() while true do end end) end"), "script timed out");
    EXPECT_EQ(limits->hit(), lua_limits::reason::time);
}

TEST_F(LuaLimits, JitOnIsRefusedUnderATimeLimit)
{
    make({1, 0});
    EXPECT_NE(run("jit.on()").find("the JIT compiler stays off"), std::string::npos);
    EXPECT_FALSE(jit_is_on());
}

TEST_F(LuaLimits, FinishLetsTheStateRunOnUnlimited)
{
    make({1, 8});
    ASSERT_EQ(run(allocation_loop), "not enough memory");
    limits->finish(L);
    EXPECT_EQ(run("local t = {} for i = 1, 400000 do t[i] = { i } end"), "");
}
