// The Lua context creator and the context table's functions, in a real
// LuaJIT state with the real plug-in module.
#include "bindings/lua/hostprobe_plugin_lua_creator.h"
#include "bindings/lua/lua_ext.h"
#include "tests/bindings/lua/lua_test_host.h"

#include <gtest/gtest.h>

#include <string>

using velk::iref;
using velk::lua::lua_context;
using velk::lua::script_source;
using velk::testing::lua_environment;
using velk::testing::lua_result;
using velk::testing::write_root_file;

namespace {

class LuaCreator : public velk::testing::LuaTest
{
protected:
    // Runs a script given as text in a new context; gives the failure.
    std::string create_text(const char* text, const char* name, const char* prefix = "")
    {
        script_source s;
        s.text = velk::token(text);
        s.url = velk::token(name);
        s.prefix = velk::token(prefix);
        iref<xt::hostprobe_plugin> out;
        std::string failure = create_with(s, out, "o", &made_context);
        objects.push_back(out);
        return failure;
    }

    // Runs a script file in a new context (or in given); gives the failure.
    std::string create_file(const std::string& path, iref<lua_context> given = nullptr)
    {
        script_source s;
        s.text = velk::token(path.c_str());
        s.is_path = true;
        s.context = given;
        iref<xt::hostprobe_plugin> out;
        std::string failure = create_with(s, out, "o", &made_context);
        objects.push_back(out);
        return failure;
    }

    iref<lua_context> made_context;
};

// FNV-1a over bytes taken as signed, written out here as the log source's
// hash must come out.
uint32_t signed_fnv(const std::string& s)
{
    uint32_t h = 0x811C9DC5u;
    for (char c : s) {
        h ^= static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
        h *= 0x01000193u;
    }
    return h;
}

} // namespace

// -- The context table -------------------------------------------------------------------

TEST_F(LuaCreator, NewContextFallsThroughToTheGlobals)
{
    iref<lua_context> c = new_context();
    EXPECT_EQ(run(c, "return type(string.format)").text, "function");
    EXPECT_EQ(run(c, "return rawget(getfenv(1), '__index') == _G and rawget(getfenv(1), 'string') == nil").text,
              "true");
}

TEST_F(LuaCreator, ContextTableIsItsOwnMetatableWithTheThreeFunctions)
{
    iref<lua_context> c = new_context();
    EXPECT_EQ(run(c, "local e = getfenv(1)\n"
                     "return tostring(getmetatable(e) == e) .. type(e.implements) .. type(e.log) .. type(e.query_interface)")
                  .text,
              "truefunctionfunctionfunction");
}

TEST_F(LuaCreator, ContextFunctionsHaveTheContextAsTheirEnvironment)
{
    iref<lua_context> c = new_context();
    c->push();
    for (const char* name : {"implements", "log", "query_interface"}) {
        lua_getfield(L, 1, name);
        lua_getfenv(L, -1);
        EXPECT_TRUE(lua_rawequal(L, -1, 1)) << name;
        lua_settop(L, 1);
    }
    lua_settop(L, 0);
}

TEST_F(LuaCreator, GlobalsTheScriptSetsStayInItsContext)
{
    iref<lua_context> c = new_context();
    ASSERT_TRUE(run(c, "mine = 5").ok);
    EXPECT_EQ(run(nullptr, "return mine").text, "nil");
    EXPECT_EQ(run(c, "return mine").text, "5");
}

// -- The creator ----------------------------------------------------------------------------

TEST_F(LuaCreator, CreatorBindsTheObjectUnderItsName)
{
    EXPECT_EQ(create_text("x = 1", "bind.lua"), "");
    EXPECT_EQ(run(made_context, "return o:testfunction(10)").text, "20");
}

TEST_F(LuaCreator, CreatorWithAnEmptyBindnameSetsNoName)
{
    script_source none;
    iref<xt::hostprobe_plugin> out;
    iref<lua_context> c;
    ASSERT_EQ(create_with(none, out, "", &c), "");
    objects.push_back(out);
    EXPECT_TRUE(out);
    EXPECT_EQ(run(c, "local n = 0; for k in pairs(getfenv(1)) do n = n + 1 end; return n").text,
              "5"); // __index, implements, log, query_interface, the class table
}

TEST_F(LuaCreator, CreatorRunsTheScriptInTheContext)
{
    EXPECT_EQ(create_text("answer = 6 * 7", "run.lua"), "");
    EXPECT_EQ(run(made_context, "return answer").text, "42");
    EXPECT_EQ(run(nullptr, "return answer").text, "nil");
}

TEST_F(LuaCreator, CreatorLeavesTheStackAsItWas)
{
    lua_pushinteger(L, 1);
    EXPECT_EQ(create_text("x = 1", "a.lua"), "");
    EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(LuaCreator, CreatorWithoutAHostObjectFailsToCreate)
{
    host_object.release();
    script_source none;
    iref<xt::hostprobe_plugin> out;
    EXPECT_EQ(create_with(none, out), "failed to create interface object");
    EXPECT_FALSE(out);
}

TEST_F(LuaCreator, SyntaxErrorRaisesLuasMessageWithNoAddedSource)
{
    // What Lua itself says of the chunk.
    ASSERT_NE(luaL_loadbuffer(L, "return +", 8, "bad.lua"), 0);
    std::string lua_says = lua_tostring(L, -1);
    lua_settop(L, 0);
    EXPECT_EQ(create_text("return +", "bad.lua"), lua_says);
    EXPECT_EQ(lua_says.rfind("[string \"bad.lua\"]:1:", 0), 0u);
}

TEST_F(LuaCreator, FailingScriptRaisesLuasMessageAndTheStackLosesIt)
{
    lua_pushinteger(L, 1);
    EXPECT_EQ(create_text("error('boom')", "run.lua"), "[string \"run.lua\"]:1: boom");
    EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(LuaCreator, FailingMethodAtTheTopOfAScriptReachesTheHostAsAnException)
{
    EXPECT_EQ(create_text("local p = query_interface('xt::lua::hostprobe_plugin.create', {})\n"
                          "query_interface()",
                          "@top.lua"),
              "top.lua(2): Invalid params!");
}

TEST_F(LuaCreator, FailedLoadGivesNoObjectAndKeepsWhatTheChunkDefined)
{
    script_source s;
    s.text = "before = 1\nerror('stop')\nafter = 1";
    s.url = "partial.lua";
    iref<xt::hostprobe_plugin> out;
    iref<lua_context> c;
    EXPECT_EQ(create_with(s, out, "o", &c), "[string \"partial.lua\"]:2: stop");
    EXPECT_FALSE(out);
    ASSERT_TRUE(c);
    contexts.push_back(c);
    EXPECT_EQ(run(c, "return tostring(before) .. tostring(after)").text, "1nil");
}

TEST_F(LuaCreator, PrefixAndTextRunAsOneChunkCountingLinesFromThePrefix)
{
    EXPECT_EQ(create_text("error('late')", "pre.lua", "local a = 1\nlocal b = 2\n"),
              "[string \"pre.lua\"]:3: late");
}

TEST_F(LuaCreator, PrefixDefinesWhatTheScriptUses)
{
    EXPECT_EQ(create_text("result = base + 1", "pre.lua", "base = 41\n"), "");
    EXPECT_EQ(run(made_context, "return result").text, "42");
}

TEST_F(LuaCreator, ScriptFileRunsAndNamesTheChunkAfterItsPath)
{
    std::string path = write_root_file("scripts/good.lua", "value = 3\nerror('at two')\n");
    // LuaJIT shows a chunk name of up to 48 characters (LUA_IDSIZE - 12)
    // whole, a longer one cut to 45 and "..." (Windows' temporary folder
    // makes long paths).
    std::string shown = path.size() <= 48 ? path : path.substr(0, 45) + "...";
    EXPECT_EQ(create_file(path), "[string \"" + shown + "\"]:2: at two");
}

TEST_F(LuaCreator, ScriptFileWithoutAFinalNewlineIsReadWhole)
{
    std::string path = write_root_file("scripts/nonl.lua", "value = 12345");
    EXPECT_EQ(create_file(path), "");
    EXPECT_EQ(run(made_context, "return value").text, "12345");
}

TEST_F(LuaCreator, EmptyScriptFileLoadsAsAnEmptyChunk)
{
    std::string path = write_root_file("scripts/empty.lua", "");
    EXPECT_EQ(create_file(path), "");
    EXPECT_EQ(run(made_context, "return o:testfunction(1)").text, "2");
}

TEST_F(LuaCreator, ScriptFileLongerThanOneBlockIsReadWhole)
{
    std::string body;
    for (int i = 0; i < 2000; ++i)
        body += "n = (n or 0) + 1\n";
    std::string path = write_root_file("scripts/long.lua", body);
    EXPECT_EQ(create_file(path), "");
    EXPECT_EQ(run(made_context, "return n").text, "2000");
}

TEST_F(LuaCreator, BytecodeScriptFileIsRefusedAndNotRun)
{
    std::string path = write_root_file("scripts/dump.lua", velk::testing::lua_bytecode("ran = true"));
    EXPECT_EQ(create_file(path),
              "[string \"" + path + "\"]: precompiled bytecode is refused: a script must be Lua source text");
    EXPECT_EQ(run(made_context, "return ran").text, "nil");
}

TEST_F(LuaCreator, MissingScriptFileFailsWithItsPath)
{
    std::string path = velk::testing::lua_environment::root() + "scripts/none.lua";
    EXPECT_EQ(create_file(path), path + " not found");
}

TEST_F(LuaCreator, ScriptFileGivesTheContextItsFileName)
{
    std::string path = write_root_file("scripts/deep/named.lua", "");
    ASSERT_EQ(create_file(path), "");
    EXPECT_EQ(run(made_context, "return __ctx_inf").text, "named.lua");
}

TEST_F(LuaCreator, GivenContextIsUsedAndReturned)
{
    iref<lua_context> given(new lua_context(L));
    contexts.push_back(given);
    script_source s;
    s.text = "shared = 1";
    s.context = given;
    iref<xt::hostprobe_plugin> out;
    iref<lua_context> used;
    ASSERT_EQ(create_with(s, out, "o", &used), "");
    objects.push_back(out);
    EXPECT_EQ(used.get(), given.get());
    EXPECT_EQ(run(given, "return shared").text, "1");
}

TEST_F(LuaCreator, GivenContextKeepsItsLogSource)
{
    std::string first = write_root_file("scripts/first.lua", "");
    ASSERT_EQ(create_file(first), "");
    iref<lua_context> c = made_context;
    std::string second = write_root_file("scripts/second.lua", "log('from the second')");
    ASSERT_EQ(create_file(second, c), "");
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].source, "first.lua");
}

TEST_F(LuaCreator, GivenContextWithoutAFileLogsAsUnknownScript)
{
    iref<lua_context> given(new lua_context(L));
    contexts.push_back(given);
    std::string path = write_root_file("scripts/third.lua", "log('hello')");
    ASSERT_EQ(create_file(path, given), "");
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].source, "Unknown script");
}

TEST_F(LuaCreator, ContextWithoutATableCantLoadAScript)
{
    iref<lua_context> given(new lua_context(L));
    given->reset();
    script_source s;
    s.text = "x = 1";
    s.context = given;
    iref<xt::hostprobe_plugin> out;
    EXPECT_EQ(create_with(s, out, "o"), "Can't load script without context!");
    EXPECT_FALSE(out);
}

// -- log ----------------------------------------------------------------------------------------

TEST_F(LuaCreator, ContextLogTakesItsLevelFromTheText)
{
    std::string path = write_root_file("scripts/logger.lua", "log('warn: careful')");
    ASSERT_EQ(create_file(path), "");
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].source, "logger.lua");
    EXPECT_NE(log[0].text.find("careful"), std::string::npos);
}

TEST_F(LuaCreator, ContextLogHashesANonAsciiSourceOverSignedBytes)
{
    std::string name = "\xC3\xA9t\xC3\xA9.lua";
    std::string path = write_root_file("scripts/" + name, "log('x')");
    ASSERT_EQ(create_file(path), "");
    auto& log = lua_environment::log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].source, name);
    EXPECT_EQ(log[0].source_hash, signed_fnv(name));
}

TEST_F(LuaCreator, ContextLogWithoutArgumentsDoesNothing)
{
    iref<lua_context> c = new_context();
    EXPECT_TRUE(run(c, "log()").ok);
    EXPECT_TRUE(lua_environment::log().empty());
}

// -- implements ------------------------------------------------------------------------------

TEST_F(LuaCreator, ImplementsMakesTheClassTableInTheContext)
{
    iref<lua_context> given(new lua_context(L));
    contexts.push_back(given);
    EXPECT_EQ(run(given, "implements('xt_hostprobe_plugin')\nreturn type(xt_hostprobe_plugin.testfunction)").text,
              "function");
}

TEST_F(LuaCreator, ImplementsOfAnUnknownClassFails)
{
    iref<lua_context> c = new_context();
    lua_result r = run(c, "implements('nope')");
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.text, "test.lua(1): nope class registring funcion not found!");
}

// -- query_interface -------------------------------------------------------------------------

TEST_F(LuaCreator, QueryInterfaceWithoutArgumentsFails)
{
    iref<lua_context> c = new_context();
    EXPECT_EQ(run(c, "query_interface()").text, "test.lua(1): Invalid params!");
}

TEST_F(LuaCreator, QueryInterfaceWithANameThatIsNoStringFails)
{
    iref<lua_context> c = new_context();
    EXPECT_EQ(run(c, "query_interface({}, host)").text, "test.lua(1): Interface creator name missing.");
}

TEST_F(LuaCreator, QueryInterfaceWithAnUnknownNameFails)
{
    iref<lua_context> c = new_context();
    EXPECT_EQ(run(c, "query_interface('no::such.create', host)").text,
              "test.lua(1): interface creator no::such.create not found");
}

TEST_F(LuaCreator, QueryInterfaceFailureInsidePcallIsCaughtByTheScript)
{
    iref<lua_context> c = new_context();
    EXPECT_EQ(run(c, "local ok, e = pcall(function() local r = query_interface() end)\nreturn tostring(ok) .. ': ' .. e").text,
              "false: test.lua(1): Invalid params!");
}
