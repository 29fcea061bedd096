// `hostprobe run` as a user runs it, in a child process: the example script
// prints what the plug-in computes in this process too, and a failing
// script ends the host with its words on standard error. HOSTPROBE and
// EXAMPLES_DIR are paths from the build.
#include "plugin/adapter_text.h"
#include "plugin/mersenne_twister.h"
#include "plugin/os/adapters.h"
#include "tests/child_process.h"

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

    std::string dir;
};

const std::string probe_js = std::string(EXAMPLES_DIR) + "/probe.js";

} // namespace

// -- The example ---------------------------------------------------------------------------

TEST(HostRunExample, ExitsWithoutError)
{
    child_result r = hostprobe({"run", probe_js});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.err, "");
}

TEST(HostRunExample, PrintsTheMacTextOfThisMachine)
{
    velk::charstr mac = xt::query_adapter_text(&xt::os::list_adapter_addresses);
    std::vector<std::string> lines = lines_of(hostprobe({"run", probe_js}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "INFO: [js] getMAC: " + std::string(mac.c_str()));
}

TEST(HostRunExample, PrintsTheGeneratorsOutputForTheSeed)
{
    std::vector<std::string> lines = lines_of(hostprobe({"run", probe_js}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "INFO: [js] mersenne_twister(5489): " + std::to_string(xt::mt19937_first_output(5489)));
}

TEST(HostRunExample, PrintsTheDoubledNumber)
{
    std::vector<std::string> lines = lines_of(hostprobe({"run", probe_js}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2], "INFO: [js] testfunction(21): 42");
}

TEST(HostRunExample, RunsFromItsOwnFolderToo)
{
    // The root follows the script, not the current directory.
    std::string cwd = std::filesystem::current_path();
    std::filesystem::current_path(EXAMPLES_DIR);
    child_result r = hostprobe({"run", "probe.js"});
    std::filesystem::current_path(cwd);
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(lines_of(r.out).size(), 3u);
}

// -- Failures -----------------------------------------------------------------------------------

TEST_F(HostRun, ThrowingScriptExitsWithItsWordsOnStandardError)
{
    std::string path = script("a.js", "var a = 1;\nvar b = 2;\nx;\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, "file:///a.js(3): ReferenceError: x is not defined (load_script)\n");
    EXPECT_EQ(r.out, "");
}

TEST_F(HostRun, SyntaxErrorExitsWithItsLine)
{
    std::string path = script("bad.js", "var ok = 1;\nvar = ;\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_NE(r.err.find("file:///bad.js(2): SyntaxError"), std::string::npos) << r.err;
}

TEST_F(HostRun, LinesBeforeTheErrorAreKept)
{
    std::string path = script("half.js", "$log('before');\nthrow new Error('stop');\n");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.out, "INFO: [js] before\n");
    EXPECT_EQ(r.err, "file:///half.js(2): Error: stop (load_script)\n");
}

TEST_F(HostRun, MissingScriptExitsWithNotFound)
{
    child_result r = hostprobe({"run", dir + "absent.js"});
    EXPECT_EQ(r.exit_status, 1);
    EXPECT_EQ(r.err, dir + "absent.js not found\n");
}

TEST_F(HostRun, IncludeOutsideTheRootIsRefused)
{
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

// -- Options and output --------------------------------------------------------------------------

TEST_F(HostRun, EmptyScriptPrintsNothing)
{
    child_result r = hostprobe({"run", script("empty.js", "")});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
}

TEST_F(HostRun, BindNamesTheObject)
{
    std::string path = script("bind.js", "$log(typeof probe + ' ' + p.testfunction(5));");
    child_result r = hostprobe({"run", "--bind", "p", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "INFO: [js] undefined 10\n");
}

TEST_F(HostRun, RootOptionLetsIncludesReachAboveTheScript)
{
    script("shared.js", "$result = 'shared';");
    std::string path = script("app/main.js", "$log($include('/shared.js'));");
    child_result r = hostprobe({"run", path, "--root", dir});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "INFO: [js] shared\n");
}

TEST_F(HostRun, ScriptIsNamedFromTheRoot)
{
    std::string path = script("app/main.js", "\nthrow 1;");
    child_result r = hostprobe({"run", path, "--root", dir});
    EXPECT_EQ(r.err, "file:///app/main.js(2): 1 (load_script)\n");
}

TEST_F(HostRun, LevelWordsReachTheLine)
{
    std::string path = script("levels.js", "$log('error: broken'); probe.$log('warn: low');");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "ERROR: [js] broken\nWARNING: [xt::hostprobe_plugin] low\n");
}

TEST_F(HostRun, LongLoopOfCallsEndsCleanly)
{
    std::string path = script("many.js", "var s = 0; for (var i = 0; i < 100000; ++i) s += probe.testfunction(1);\n"
                                         "$log('done ' + s);");
    child_result r = hostprobe({"run", path});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.signal, 0);
    EXPECT_EQ(r.out, "INFO: [js] done 200000\n");
}
