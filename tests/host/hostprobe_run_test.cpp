// `hostprobe run` as a user runs it, in a child process, for JavaScript and
// Lua: the example scripts print what the plug-in computes in this process
// too, and a failing script ends the host with its words on standard error.
// HOSTPROBE and EXAMPLES_DIR are paths from the build.
#include "plugin/adapter_text.h"
#include "plugin/mersenne_twister.h"
#include "plugin/os/adapters.h"
#include "tests/support/child_process.h"
#include "tests/support/lua_bytecode.h"

#include <lua.hpp>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using velk::testing::child_result;

namespace {

child_result hostprobe(std::vector<std::string> args)
{
    args.insert(args.begin(), HOSTPROBE);
    return velk::testing::run_child(args);
}

std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// A folder of this process's own for the scripts of one test.
class HostRun : public ::testing::Test
{
protected:
    void SetUp() override
    {
        dir = std::string(::testing::TempDir()) + "hostprobe_run_" + std::to_string(getpid()) + "_" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name() + "/";
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    std::string script(const std::string& relative, const std::string& text)
    {
        std::string path = dir + relative;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << text;
        return path;
    }

    // Runs the host from dir, so that a script named by its bare name is
    // named so in Lua's messages ("a.lua:2: ...").
    child_result hostprobe_in_dir(const std::vector<std::string>& args)
    {
        std::filesystem::path cwd = std::filesystem::current_path();
        std::filesystem::current_path(dir);
        child_result r = hostprobe(args);
        std::filesystem::current_path(cwd);
        return r;
    }

    std::string dir;
};

// A build without V8 answers every JavaScript script with one line; the
// cases that run one hold only where there is V8.
#define SKIP_WITHOUT_JS()                                                                  \
    if (!HOSTPROBE_WITH_JS)                                                               \
    GTEST_SKIP() << "V8 has no Windows build: this hostprobe runs Lua scripts only"

// The examples' folder as the system names it: on Windows the build's
// path, which starts with "/", takes the current drive.
const std::string examples_dir = std::filesystem::absolute(EXAMPLES_DIR).string();
const std::string probe_js = examples_dir + "/probe.js";
const std::string probe_lua = examples_dir + "/probe.lua";

// path as the host writes it in its messages: made whole with "/" only.
std::string as_host_writes(const std::string& path) { return std::filesystem::path(path).generic_string(); }

} // namespace

// -- The example ---------------------------------------------------------------------------

TEST(HostRunExample, ExitsWithoutError)
{
    SKIP_WITHOUT_JS();
    child_result r = hostprobe({"run", probe_js});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.err, "");
}

TEST(HostRunExample, PrintsTheMacTextOfThisMachine)
{
    SKIP_WITHOUT_JS();
    velk::charstr mac = xt::query_adapter_text(&xt::os::list_adapter_addresses);
    std::vector<std::string> lines = lines_of(hostprobe({"run", probe_js}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "INFO: [js] getMAC: " + std::string(mac.c_str()));
}

TEST(HostRunExample, PrintsTheGeneratorsOutputForTheSeed)
{
    SKIP_WITHOUT_JS();
    std::vector<std::string> lines = lines_of(hostprobe({"run", probe_js}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "INFO: [js] mersenne_twister(5489): " + std::to_string(xt::mt19937_first_output(5489)));
}

TEST(HostRunExample, PrintsTheDoubledNumber)
{
    SKIP_WITHOUT_JS();
    std::vector<std::string> lines = lines_of(hostprobe({"run", probe_js}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2], "INFO: [js] testfunction(21): 42");
}

TEST(HostRunExample, RunsFromItsOwnFolderToo)
{
    SKIP_WITHOUT_JS();
    // The root follows the script, not the current directory.
    std::string cwd = std::filesystem::current_path().string();
    std::filesystem::current_path(examples_dir);
    child_result r = hostprobe({"run", "probe.js"});
    std::filesystem::current_path(cwd);
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(lines_of(r.out).size(), 3u);
}

// -- Failures -----------------------------------------------------------------------------------

TEST_F(HostRun, ThrowingScriptExitsWithItsWordsOnStandardError)
{
    SKIP_WITHOUT_JS();
    std::string path = script("a.js", "var a = 1;\nvar b = 2;\nx;\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "file:///a.js(3): ReferenceError: x is not defined (load_script)\n");
    EXPECT_EQ(r.out, "");
}

TEST_F(HostRun, SyntaxErrorExitsWithItsLine)
{
    SKIP_WITHOUT_JS();
    std::string path = script("bad.js", "var ok = 1;\nvar = ;\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_NE(r.err.find("file:///bad.js(2): SyntaxError"), std::string::npos) << r.err;
}

TEST_F(HostRun, LinesBeforeTheErrorAreKept)
{
    SKIP_WITHOUT_JS();
    std::string path = script("half.js", "$log('before');\nthrow new Error('stop');\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.out, "INFO: [js] before\n");
    EXPECT_EQ(r.err, "file:///half.js(2): Error: stop (load_script)\n");
}

TEST_F(HostRun, MissingScriptExitsWithNotFound)
{
    SKIP_WITHOUT_JS();
    child_result r = hostprobe({"run", dir + "absent.js"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, as_host_writes(dir) + "absent.js not found\n");
}

TEST_F(HostRun, IncludeOutsideTheRootIsRefused)
{
    SKIP_WITHOUT_JS();
    script("outside.js", "$result = 1;");
    std::string path = script("inner/main.js", "$include('../outside.js');");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_NE(r.err.find("invalid path ../outside.js"), std::string::npos) << r.err;
}

TEST(HostRunUsage, RunWithoutAFileIsAUsageError)
{
    child_result r = hostprobe({"run"});
    EXPECT_EQ(r.exit_status, 2);
    EXPECT_NE(r.err.find("run needs a script FILE"), std::string::npos) << r.err;
}

TEST(HostRunUsage, UnknownOptionIsAUsageError)
{
    child_result r = hostprobe({"run", "x.js", "--fast"});
    EXPECT_EQ(r.exit_status, 2);
    EXPECT_NE(r.err.find("unknown option '--fast'"), std::string::npos) << r.err;
}

TEST(HostRunUsage, BindWithoutANameIsAUsageError)
{
    EXPECT_EQ(hostprobe({"run", "x.js", "--bind"}).exit_status, 2);
}

TEST(HostRunUsage, TwoFilesAreAUsageError)
{
    EXPECT_EQ(hostprobe({"run", "x.js", "y.js"}).exit_status, 2);
}

TEST(HostRunUsage, TimeoutWithoutSecondsIsAUsageError)
{
    child_result r = hostprobe({"run", "x.js", "--timeout"});
    EXPECT_EQ(r.exit_status, 2);
    EXPECT_NE(r.err.find("run: --timeout needs a value"), std::string::npos) << r.err;
}

TEST(HostRunUsage, TimeoutOfZeroIsAUsageError)
{
    child_result r = hostprobe({"run", "x.js", "--timeout", "0"});
    EXPECT_EQ(r.exit_status, 2);
    EXPECT_NE(r.err.find("run: --timeout takes a whole number from 1 to 4294967295, not '0'"), std::string::npos)
        << r.err;
}

TEST(HostRunUsage, MaxHeapThatIsNoNumberIsAUsageError)
{
    child_result r = hostprobe({"run", "x.lua", "--max-heap", "64MB"});
    EXPECT_EQ(r.exit_status, 2);
    EXPECT_NE(r.err.find("run: --max-heap takes a whole number from 1 to 4294967295, not '64MB'"), std::string::npos)
        << r.err;
}

TEST(HostRunUsage, MaxHeapBeyond32BitsIsAUsageError)
{
    EXPECT_EQ(hostprobe({"run", "x.js", "--max-heap", "4294967296"}).exit_status, 2);
}

// -- Options and output --------------------------------------------------------------------------

TEST_F(HostRun, EmptyScriptPrintsNothing)
{
    SKIP_WITHOUT_JS();
    child_result r = hostprobe({"run", script("empty.js", "")});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
}

TEST_F(HostRun, BindNamesTheObject)
{
    SKIP_WITHOUT_JS();
    std::string path = script("bind.js", "$log(typeof probe + ' ' + p.testfunction(5));");
    child_result r = hostprobe({"run", "--bind", "p", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "INFO: [js] undefined 10\n");
}

TEST_F(HostRun, RootOptionLetsIncludesReachAboveTheScript)
{
    SKIP_WITHOUT_JS();
    script("shared.js", "$result = 'shared';");
    std::string path = script("app/main.js", "$log($include('/shared.js'));");
    child_result r = hostprobe({"run", path, "--root", dir});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "INFO: [js] shared\n");
}

TEST_F(HostRun, ScriptIsNamedFromTheRoot)
{
    SKIP_WITHOUT_JS();
    std::string path = script("app/main.js", "\nthrow 1;");
    child_result r = hostprobe({"run", path, "--root", dir});
    EXPECT_EQ(r.err, "file:///app/main.js(2): 1 (load_script)\n");
}

TEST_F(HostRun, LevelWordsReachTheLine)
{
    SKIP_WITHOUT_JS();
    std::string path = script("levels.js", "$log('error: broken'); probe.$log('warn: low');");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "ERROR: [js] broken\nWARNING: [xt::hostprobe_plugin] low\n");
}

TEST_F(HostRun, LongLoopOfCallsEndsCleanly)
{
    SKIP_WITHOUT_JS();
    std::string path = script("many.js", "var s = 0; for (var i = 0; i < 100000; ++i) s += probe.testfunction(1);\n"
                                         "$log('done ' + s);");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.signal, 0);
    EXPECT_EQ(r.out, "INFO: [js] done 200000\n");
}

// -- Limits ---------------------------------------------------------------------------------------

TEST_F(HostRun, TimeoutSaysOnlyThatOnStandardError)
{
    SKIP_WITHOUT_JS();
    std::string path = script("loop.js", "$log('started');\nwhile (true) {}\n");
    child_result r = hostprobe({"run", path, "--timeout", "1"});
    EXPECT_EQ(r.exit_status, 3);
    EXPECT_EQ(r.err, "script timed out after 1 s\n");
    EXPECT_EQ(r.out, "INFO: [js] started\n");
}

TEST_F(HostRun, LuaTimeoutSaysOnlyThatOnStandardError)
{
    std::string path = script("loop.lua", "log('started')\nwhile true do end\n");
    child_result r = hostprobe({"run", path, "--timeout", "1"});
    EXPECT_EQ(r.exit_status, 3);
    EXPECT_EQ(r.err, "script timed out after 1 s\n");
    EXPECT_EQ(r.out, "[loop.lua] started\n");
}

TEST_F(HostRun, HeapLimitSaysOnlyThatOnStandardError)
{
    SKIP_WITHOUT_JS();
    std::string path = script("grow.js", "var a = [];\nwhile (true) a.push({ n: a.length });\n");
    child_result r = hostprobe({"run", "--max-heap", "32", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.signal, 0);
    EXPECT_EQ(r.err, "script ran out of memory (limit 32 MB)\n");
}

TEST_F(HostRun, LuaHeapLimitSaysOnlyThatOnStandardError)
{
    std::string path = script("grow.lua", "local t = {}\nwhile true do t[#t + 1] = { n = #t } end\n");
    child_result r = hostprobe({"run", "--max-heap", "32", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "script ran out of memory (limit 32 MB)\n");
}

TEST_F(HostRun, LuaMemoryErrorCaughtByTheScriptIsNoFailure)
{
    std::string path = script("caught.lua", "local ok = pcall(function() local s = string.rep('x', 2^26) end)\n"
                                            "log('caught: ' .. tostring(not ok))\n");
    child_result r = hostprobe({"run", "--max-heap", "32", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "[caught.lua] caught: true\n");
}

TEST_F(HostRun, ScriptWithinItsLimitsRunsAsWithout)
{
    SKIP_WITHOUT_JS();
    std::string path = script("ok.js", "$log(probe.testfunction(21));\n");
    child_result r = hostprobe({"run", path, "--timeout", "60", "--max-heap", "256"});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "INFO: [js] 42\n");
}

TEST_F(HostRun, RejectionsAfterTheScriptsErrorAreToldToo)
{
    SKIP_WITHOUT_JS();
    std::string path = script("both.js", "Promise.reject('first');\nthrow new Error('then');\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "file:///both.js(2): Error: then (load_script)\n"
                     "file:///both.js: unhandled promise rejection: first\n");
}

TEST_F(HostRun, ManyRejectionsAreToldAsACount)
{
    SKIP_WITHOUT_JS();
    std::string path = script("many.js", "for (var i = 0; i < 25; ++i) Promise.reject(i);\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(lines_of(r.err).size(), 11u) << r.err;
    EXPECT_NE(r.err.find("file:///many.js: 15 more unhandled promise rejections\n"), std::string::npos) << r.err;
}

TEST_F(HostRun, RejectionWhoseTextThrowsIsStillTold)
{
    SKIP_WITHOUT_JS();
    std::string path = script("odd.js", "Promise.reject({ toString: function () { throw 1; } });\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "file:///odd.js: unhandled promise rejection: a value that can't be shown as text\n");
}

// -- Lua: the example ------------------------------------------------------------------------------

TEST(HostRunLuaExample, ExitsWithoutError)
{
    child_result r = hostprobe({"run", probe_lua});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.err, "");
}

TEST(HostRunLuaExample, PrintsTheMacTextOfThisMachine)
{
    velk::charstr mac = xt::query_adapter_text(&xt::os::list_adapter_addresses);
    std::vector<std::string> lines = lines_of(hostprobe({"run", probe_lua}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "[probe.lua] getMAC: " + std::string(mac.c_str()));
}

TEST(HostRunLuaExample, PrintsTheGeneratorsOutputForTheSeed)
{
    std::vector<std::string> lines = lines_of(hostprobe({"run", probe_lua}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "[probe.lua] mersenne_twister(5489): " + std::to_string(xt::mt19937_first_output(5489)));
}

TEST(HostRunLuaExample, PrintsTheDoubledNumber)
{
    std::vector<std::string> lines = lines_of(hostprobe({"run", probe_lua}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2], "[probe.lua] testfunction(21): 42");
}

// -- Lua: scripts -------------------------------------------------------------------------------------

TEST_F(HostRun, LuaScriptLogsItsLinesOnStandardOutput)
{
    child_result r = hostprobe({"run", script("ok.lua", "log('twice ' .. probe:testfunction(21))\n")});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "[ok.lua] twice 42\n");
    EXPECT_EQ(r.err, "");
}

TEST_F(HostRun, LuaSyntaxErrorExitsWithLuasMessageFileAndLine)
{
    script("bad.lua", "local a = 1\nlocal = 2\n");
    child_result r = hostprobe_in_dir({"run", "bad.lua"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "bad.lua:2: '<name>' expected near '='\n");
    EXPECT_EQ(r.out, "");
}

TEST_F(HostRun, LuaBytecodeFileIsRefusedAsAScriptError)
{
    std::string code = velk::testing::lua_bytecode("log('ran')");
    ASSERT_FALSE(code.empty());
    script("dump.lua", code);
    child_result r = hostprobe_in_dir({"run", "dump.lua"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "dump.lua: precompiled bytecode is refused: a script must be Lua source text\n");
    EXPECT_EQ(r.out, "");
}

TEST_F(HostRun, LuaRunTimeErrorExitsWithFileAndLine)
{
    script("rt.lua", "local a = 1\nnope()\n");
    child_result r = hostprobe_in_dir({"run", "rt.lua"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "rt.lua:2: attempt to call global 'nope' (a nil value)\n");
}

TEST_F(HostRun, LuaMethodFailureExitsWithTheCallersFileAndLine)
{
    // A native failure reaches the script as a Lua error located at the call.
    script("arity.lua", "\n\nprobe:testfunction()\n");
    child_result r = hostprobe_in_dir({"run", "arity.lua"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.signal, 0);
    EXPECT_EQ(r.err, "arity.lua(3): Wrong number of arguments in hostprobe_plugin.testfunction\n");
}

TEST_F(HostRun, LuaMethodFailureCaughtByPcallLetsTheScriptGoOn)
{
    script("caught.lua", "local ok, e = pcall(function() local r = probe.testfunction() end)\n"
                         "log('caught: ' .. e)\n"
                         "log('after: ' .. probe:testfunction(4))\n");
    child_result r = hostprobe_in_dir({"run", "caught.lua"});
    EXPECT_EQ(r.exit_status, 0);
    EXPECT_EQ(r.signal, 0);
    EXPECT_NE(r.out.find("caught: caught.lua(1): Wrong number of arguments in hostprobe_plugin.testfunction"),
              std::string::npos) << r.out;
    EXPECT_NE(r.out.find("after: 8"), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "");
}

TEST_F(HostRun, LuaMethodFailureInACoroutineEndsOnlyTheCoroutine)
{
    script("co.lua", "local co = coroutine.create(function() local r = probe.testfunction(1, 2, 3) end)\n"
                     "local ok, e = coroutine.resume(co)\n"
                     "log('resumed: ' .. tostring(ok) .. ' ' .. e)\n");
    child_result r = hostprobe_in_dir({"run", "co.lua"});
    EXPECT_EQ(r.exit_status, 0);
    EXPECT_EQ(r.signal, 0);
    EXPECT_NE(r.out.find("resumed: false co.lua(1): Wrong number of arguments in hostprobe_plugin.testfunction"),
              std::string::npos) << r.out;
}

TEST_F(HostRun, LuaErrorPathIsTheOneTheUserGave)
{
    std::string path = script("sub/deep.lua", "error('stop')\n");
    child_result r = hostprobe_in_dir({"run", "sub/deep.lua"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "sub/deep.lua:1: stop\n");
}

TEST_F(HostRun, LuaErrorWithoutTextNamesTheFile)
{
    script("table.lua", "error({})\n");
    child_result r = hostprobe_in_dir({"run", "table.lua"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "table.lua: the script raised an error that is no text\n");
}

TEST_F(HostRun, LuaLinesBeforeTheErrorAreKept)
{
    script("half.lua", "log('before')\nerror('stop')\n");
    child_result r = hostprobe_in_dir({"run", "half.lua"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.out, "[half.lua] before\n");
    EXPECT_EQ(r.err, "half.lua:2: stop\n");
}

TEST_F(HostRun, MissingLuaScriptExitsWithNotFound)
{
    child_result r = hostprobe({"run", dir + "absent.lua"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, as_host_writes(dir) + "absent.lua not found\n");
    EXPECT_EQ(r.out, "");
}

TEST_F(HostRun, EmptyLuaScriptPrintsNothing)
{
    child_result r = hostprobe({"run", script("empty.lua", "")});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
}

TEST_F(HostRun, LuaBindNamesTheObject)
{
    std::string path = script("bind.lua", "log(tostring(probe) .. ' ' .. p:testfunction(5))");
    child_result r = hostprobe({"run", "--bind", "p", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "[bind.lua] nil 10\n");
}

TEST_F(HostRun, LuaLogLineKeepsItsLevelWord)
{
    // Lua's log takes the level from the text when the line is delivered,
    // and leaves the text, level word and all, as it was.
    child_result r = hostprobe({"run", script("levels.lua", "log('error: broken')")});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "[levels.lua] error: broken\n");
}

TEST_F(HostRun, LuaLongLoopOfCallsEndsCleanly)
{
    std::string path = script("many.lua", "local s = 0\nfor i = 1, 100000 do s = s + probe:testfunction(1) end\n"
                                          "log('done ' .. s)");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.signal, 0);
    EXPECT_EQ(r.out, "[many.lua] done 200000\n");
}

TEST_F(HostRun, LuaObjectKeptInAGlobalEndsBeforeTheUnload)
{
    // The script's own reference outlives the run: the state closes, and
    // the dispatcher with it, before the plug-in's code goes.
    std::string path = script("kept.lua", "kept = probe\nsaved = { probe, probe }\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.signal, 0);
    EXPECT_EQ(r.err, "");
}

// -- The language by extension ------------------------------------------------------------------------

TEST_F(HostRun, OtherExtensionIsAUsageError)
{
    child_result r = hostprobe({"run", script("probe.py", "print(1)\n")});
    EXPECT_EQ(r.exit_status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("is neither JavaScript nor Lua: the file's name must end in .js or .lua"), std::string::npos)
        << r.err;
}

TEST_F(HostRun, NameWithoutExtensionIsAUsageError)
{
    EXPECT_EQ(hostprobe({"run", script("probe", "log('x')\n")}).exit_status, 2);
}

TEST_F(HostRun, ExtensionIsReadFromTheNameNotTheFolder)
{
    // "lib.lua/" is a folder; the file's own name has no extension.
    EXPECT_EQ(hostprobe({"run", script("lib.lua/probe", "log('x')\n")}).exit_status, 2);
}

TEST_F(HostRun, ExtensionIsCheckedBeforeTheFileIsLookedFor)
{
    child_result r = hostprobe({"run", dir + "absent.txt"});
    EXPECT_EQ(r.exit_status, 2);
    EXPECT_EQ(r.err.find("not found"), std::string::npos) << r.err;
}

TEST_F(HostRun, UpperCaseExtensionIsAUsageError)
{
    EXPECT_EQ(hostprobe({"run", script("PROBE.LUA", "log('x')\n")}).exit_status, 2);
}
