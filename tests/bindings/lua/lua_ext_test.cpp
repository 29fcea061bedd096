// The functions the binding adds to the Lua API, and its fixed names.
#include "bindings/lua/lua_errors.h"
#include "bindings/lua/lua_ext.h"
#include "bindings/lua/lua_state.h"
#include "tests/bindings/lua/lua_test_host.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class LuaExt : public ::testing::Test
{
protected:
    ~LuaExt() override { lua_close(L); }

    std::string top_string()
    {
        size_t n = 0;
        const char* s = lua_tolstring(L, -1, &n);
        return s ? std::string(s, n) : "(none)";
    }

    lua_State* L = velk::lua::new_state();
};

// A native function that reports luaL_where_ext(L, 1) as "file|line" or "nil".
int where_of_caller(lua_State* L)
{
    luaL_where_ext(L, 1);
    if (lua_isnil(L, -1))
        return 1;
    lua_pushliteral(L, "|");
    lua_insert(L, -2);
    lua_concat(L, 3);
    return 1;
}

int located(lua_State* L)
{
    lua_pushliteral(L, "broken");
    return velk::lua::lua_add_location(L);
}

} // namespace

TEST(LuaNames, FixedNamesAreTheBindingTexts)
{
    using namespace velk::lua::names;
    EXPECT_TRUE(cthis == velk::token("__cthis"));
    EXPECT_TRUE(class_hash == velk::token("__class_hash"));
    EXPECT_TRUE(ctx_inf == velk::token("__ctx_inf"));
    EXPECT_TRUE(velk::lua::names::index == velk::token("__index"));
    EXPECT_TRUE(query_interface == velk::token("query_interface"));
    EXPECT_EQ(cthis.lens(), 7u);
}

TEST_F(LuaExt, PushtokenPushesTheBytesIncludingZeros)
{
    const char text[] = {'a', 0, 'b'};
    lua_pushtoken(L, velk::token(text, 3));
    EXPECT_EQ(top_string(), std::string(text, 3));
}

TEST_F(LuaExt, PushtokenOfANullTokenPushesAnEmptyString)
{
    lua_pushtoken(L, velk::token());
    EXPECT_TRUE(lua_isstring(L, -1));
    EXPECT_EQ(top_string(), "");
}

TEST_F(LuaExt, ToltokenViewsAStringAndGivesItsLength)
{
    lua_pushliteral(L, "hello");
    size_t n = 0;
    velk::token t = lua_toltoken(L, -1, &n);
    EXPECT_EQ(n, 5u);
    EXPECT_TRUE(t == velk::token("hello"));
}

TEST_F(LuaExt, ToltokenConvertsANumberAsTolstringDoes)
{
    lua_pushinteger(L, 42);
    EXPECT_TRUE(lua_toltoken(L, -1) == velk::token("42"));
}

TEST_F(LuaExt, ToltokenOfATableIsNullWithLength0)
{
    lua_newtable(L);
    size_t n = 99;
    EXPECT_TRUE(lua_toltoken(L, -1, &n).is_null());
    EXPECT_EQ(n, 0u);
}

TEST_F(LuaExt, TokenGetfieldAndSetfieldUseTheWholeTokenAsKey)
{
    lua_newtable(L);
    lua_pushinteger(L, 5);
    const char key[] = "abcdef";
    lua_setfield(L, -2, velk::token(key, 3)); // "abc"
    lua_getfield(L, -1, "abc");
    EXPECT_EQ(lua_tointeger(L, -1), 5);
    lua_pop(L, 1);
    lua_getfield(L, -1, velk::token("abc"));
    EXPECT_EQ(lua_tointeger(L, -1), 5);
}

TEST_F(LuaExt, TokenGetfieldRunsTheIndexMetamethod)
{
    ASSERT_EQ(luaL_dostring(L, "return setmetatable({}, {__index = function(t, k) return k .. '!' end})"), 0);
    lua_getfield(L, -1, velk::lua::names::cthis);
    EXPECT_EQ(top_string(), "__cthis!");
}

TEST_F(LuaExt, HasfieldTellsAPresentKeyAndLeavesTheStack)
{
    ASSERT_EQ(luaL_dostring(L, "return {__cthis = 1}"), 0);
    int top = lua_gettop(L);
    EXPECT_TRUE(lua_hasfield(L, -1, velk::lua::names::cthis));
    EXPECT_FALSE(lua_hasfield(L, -1, velk::lua::names::class_hash));
    EXPECT_EQ(lua_gettop(L), top);
}

TEST_F(LuaExt, HasfieldOfAValueThatIsNoTableIsFalse)
{
    lua_pushliteral(L, "text");
    EXPECT_FALSE(lua_hasfield(L, -1, velk::lua::names::cthis));
    EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(LuaExt, LoadbufferNamesTheChunkByTheToken)
{
    const char name[] = "probe.luaXXXX";
    ASSERT_EQ(luaL_loadbuffer(L, "error('x')", 10, velk::token(name, 9)), 0);
    ASSERT_NE(lua_pcall(L, 0, 0, 0), 0);
    EXPECT_EQ(top_string(), "[string \"probe.lua\"]:1: x");
}

TEST_F(LuaExt, LoadbufferTakesAChunkNameLongerThanItsStackBuffer)
{
    std::string name = "@" + std::string(400, 'n');
    EXPECT_EQ(luaL_loadbuffer(L, "return 1", 8, velk::token(name.data(), name.size())), 0);
}

TEST_F(LuaExt, LoadbufferReportsASyntaxError)
{
    EXPECT_EQ(luaL_loadbuffer(L, "return +", 8, velk::token("bad.lua")), LUA_ERRSYNTAX);
}

TEST_F(LuaExt, LoadtextRefusesBytecodeWithItsOwnWords)
{
    std::string code = velk::testing::lua_bytecode("return 1");
    ASSERT_FALSE(code.empty());
    EXPECT_EQ(luaL_loadtext(L, code.data(), code.size(), velk::token("@dump.lua")), LUA_ERRSYNTAX);
    EXPECT_EQ(top_string(), "dump.lua: precompiled bytecode is refused: a script must be Lua source text");
}

TEST_F(LuaExt, LoadtextLeavesOnlyTheMessageOnARefusal)
{
    std::string code = velk::testing::lua_bytecode("return 1");
    int top = lua_gettop(L);
    luaL_loadtext(L, code.data(), code.size(), velk::token("@dump.lua"));
    EXPECT_EQ(lua_gettop(L), top + 1);
}

TEST_F(LuaExt, LoadtextNamesAStringChunkAsLuaDoes)
{
    std::string code = velk::testing::lua_bytecode("return 1");
    ASSERT_NE(luaL_loadtext(L, code.data(), code.size(), velk::token("dump")), 0);
    EXPECT_EQ(top_string(), "[string \"dump\"]: precompiled bytecode is refused: a script must be Lua source text");
}

TEST_F(LuaExt, LoadtextTakesSourceText)
{
    ASSERT_EQ(luaL_loadtext(L, "return 7", 8, velk::token("@seven.lua")), 0);
    ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0);
    EXPECT_EQ(top_string(), "7");
}

TEST_F(LuaExt, LoadtextReportsASyntaxErrorInLuasWords)
{
    EXPECT_EQ(luaL_loadtext(L, "return +", 8, velk::token("@bad.lua")), LUA_ERRSYNTAX);
    EXPECT_EQ(top_string().rfind("bad.lua:1:", 0), 0u) << top_string();
}

TEST_F(LuaExt, WhereExtGivesTheChunkAndLineOfTheCallingFunction)
{
    lua_register(L, "where", &where_of_caller);
    const char code[] = "\n\nreturn (where())";
    ASSERT_EQ(luaL_loadbuffer(L, code, sizeof code - 1, velk::token("@probe.lua")), 0);
    ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0);
    EXPECT_EQ(top_string(), "probe.lua|3");
}

TEST_F(LuaExt, WhereExtWithoutAFunctionAtTheLevelPushesNilAlone)
{
    int top = lua_gettop(L);
    luaL_where_ext(L, 1);
    EXPECT_EQ(lua_gettop(L), top + 1);
    EXPECT_TRUE(lua_isnil(L, -1));
}

TEST_F(LuaExt, AddLocationPutsFileAndLineBeforeTheMessage)
{
    lua_register(L, "located", &located);
    const char code[] = "\nreturn (located())";
    ASSERT_EQ(luaL_loadbuffer(L, code, sizeof code - 1, velk::token("@probe.lua")), 0);
    ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0);
    EXPECT_EQ(top_string(), "probe.lua(2): broken");
}

TEST_F(LuaExt, AddLocationWithoutALuaFunctionAtLevel1SaysUnknown)
{
    lua_pushliteral(L, "broken");
    EXPECT_EQ(velk::lua::lua_add_location(L), 1);
    EXPECT_EQ(top_string(), "Unknown file(unknow line): broken");
    EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(LuaExt, ThrowErrorRaisesTheMessageWithItsSourceAndPopsIt)
{
    lua_pushliteral(L, "bad thing");
    try {
        velk::lua::lua_throw_error(L, "load");
        FAIL() << "no exception";
    } catch (const velk::exception& e) {
        EXPECT_STREQ(e.what(), "bad thing (load)");
    }
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaExt, ThrowErrorWithAnEmptySourceGivesTheMessageAlone)
{
    lua_pushliteral(L, "bad thing");
    try {
        velk::lua::lua_throw_error(L, velk::token());
        FAIL() << "no exception";
    } catch (const velk::exception& e) {
        EXPECT_STREQ(e.what(), "bad thing");
    }
}
