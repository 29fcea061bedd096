// The reference host run as a user runs it, in a child process: it loads the
// plug-in from next to itself (or from --plugin), creates the interface
// through the registry and calls its methods. HOSTPROBE and HOSTPROBE_PLUGIN
// are paths from the build.
#include "plugin/adapter_text.h"
#include "plugin/hostprobe_plugin.h"
#include "plugin/hostprobe_plugin_methods.h"
#include "plugin/os/adapters.h"
#include "tests/support/child_process.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <set>
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

std::set<std::string> lines_of(const std::string& text)
{
    std::set<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.insert(line);
    return lines;
}

// The names of the interface's methods, from the method list.
std::vector<std::string> method_names()
{
    return {
#define METHOD_NAME(name, index, signature) #name,
        XT_HOSTPROBE_PLUGIN_METHODS(METHOD_NAME)
#undef METHOD_NAME
    };
}

// A call of each method of the list with arguments of its signature: "1"
// for each number.
struct listed_call
{
    std::string name;
    std::vector<std::string> args;
};

std::vector<listed_call> listed_calls()
{
    return {
#define METHOD_CALL(name, index, signature) \
    {#name, std::vector<std::string>(xt::method_signature<signature>::arity, "1")},
        XT_HOSTPROBE_PLUGIN_METHODS(METHOD_CALL)
#undef METHOD_CALL
    };
}

// A command that must fail: non-zero status, a message, nothing on standard output.
void expect_refused(const std::vector<std::string>& args, const std::string& words)
{
    child_result r = hostprobe(args);
    EXPECT_NE(r.exit_status, 0);
    EXPECT_EQ(r.signal, 0) << "ended by a signal";
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_NE(r.err.find(words), std::string::npos) << r.err;
}

} // namespace

// -- call ---------------------------------------------------------------------------

TEST(HostCall, MersenneTwisterOfThePublishedSeedPrintsThePublishedFirstOutput)
{
    child_result r = hostprobe({"call", "mersenne_twister", "5489"});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "3499211612\n");
}

TEST(HostCall, MersenneTwisterPrintsUnsigned)
{
    // 2357136044 is above the signed range: a signed print would be negative.
    EXPECT_EQ(hostprobe({"call", "mersenne_twister", "0"}).out, "2357136044\n");
}

TEST(HostCall, TestfunctionPrintsTheDoubleOfANegativeNumber)
{
    child_result r = hostprobe({"call", "testfunction", "-1"});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "-2\n");
}

TEST(HostCall, TestfunctionWraps)
{
    EXPECT_EQ(hostprobe({"call", "testfunction", "1073741824"}).out, "-2147483648\n");
}

TEST(HostCall, GetMacPrintsWhatTheLibraryComputesHere)
{
    velk::charstr expected = xt::query_adapter_text(&xt::os::list_adapter_addresses);
    child_result r = hostprobe({"call", "getMAC"});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, std::string(expected.c_str()) + "\n");
}

TEST(HostCall, WorksWithThePluginOption)
{
    EXPECT_EQ(hostprobe({"--plugin", HOSTPROBE_PLUGIN, "call", "testfunction", "21"}).out, "42\n");
}

TEST(HostCall, UnknownMethodIsRefused)
{
    expect_refused({"call", "getmac"}, "unknown method 'getmac'");
}

TEST(HostCall, EveryMethodOfTheListIsCalled)
{
    for (const listed_call& c : listed_calls()) {
        std::vector<std::string> args{"call", c.name};
        args.insert(args.end(), c.args.begin(), c.args.end());
        child_result r = hostprobe(args);
        EXPECT_EQ(r.exit_status, 0) << c.name << ": " << r.err;
        EXPECT_EQ(r.err, "") << c.name;
        EXPECT_TRUE(!r.out.empty() && r.out.back() == '\n') << c.name << " printed no line";
    }
}

TEST(HostCall, UnknownMethodNamesEveryMethodOfTheList)
{
    child_result r = hostprobe({"call", "getmac"});
    for (const std::string& name : method_names())
        EXPECT_NE(r.err.find(name), std::string::npos) << name << " missing in: " << r.err;
}

TEST(HostCall, MissingMethodIsRefused)
{
    expect_refused({"call"}, "needs a METHOD");
}

TEST(HostCall, MissingArgumentIsRefused)
{
    expect_refused({"call", "mersenne_twister"}, "needs a number");
}

TEST(HostCall, ArgumentThatIsNoNumberIsRefused)
{
    expect_refused({"call", "testfunction", "two"}, "'two' is not a number");
}

TEST(HostCall, UnsignedArgumentOutOfRangeIsRefused)
{
    expect_refused({"call", "mersenne_twister", "4294967296"}, "out of range");
}

TEST(HostCall, SignedArgumentOutOfRangeIsRefused)
{
    expect_refused({"call", "testfunction", "-2147483649"}, "out of range");
}

TEST(HostCall, NegativeSeedIsRefused)
{
    expect_refused({"call", "mersenne_twister", "-1"}, "negative");
}

TEST(HostCall, ExtraArgumentIsRefused)
{
    expect_refused({"call", "testfunction", "1", "2"}, "takes one number");
}

TEST(HostCall, ArgumentOfGetMacIsRefused)
{
    expect_refused({"call", "getMAC", "1"}, "takes no argument");
}

TEST(HostCall, MissingPluginIsRefused)
{
    expect_refused({"--plugin", "/nonexistent/hostprobe_plugin.so", "call", "getMAC"},
                   "cannot load the plug-in '/nonexistent/hostprobe_plugin.so'");
}

TEST(HostCall, MissingPluginIsRefusedWithTheLoadersReason)
{
#if defined(_WIN32)
    // The system's words differ between Windows and Wine: some must follow.
    const std::string line = "cannot load the plug-in '/nonexistent/hostprobe_plugin.so': ";
    expect_refused({"--plugin", "/nonexistent/hostprobe_plugin.so", "call", "getMAC"}, line);
    child_result r = hostprobe({"--plugin", "/nonexistent/hostprobe_plugin.so", "call", "getMAC"});
    size_t at = r.err.find(line);
    ASSERT_NE(at, std::string::npos) << r.err;
    EXPECT_NE(r.err.find_first_not_of("\r\n", at + line.size()), std::string::npos) << r.err;
#else
    expect_refused({"--plugin", "/nonexistent/hostprobe_plugin.so", "call", "getMAC"},
                   "cannot load the plug-in '/nonexistent/hostprobe_plugin.so': /nonexistent/hostprobe_plugin.so: "
                   "cannot open shared object file: No such file or directory");
#endif
}

// -- keys ------------------------------------------------------------------------------

namespace {
// The keys of one group of the plug-in; a build without V8 enters no
// JavaScript keys.
std::set<std::string> keys(std::initializer_list<const char*> native, std::initializer_list<const char*> js,
                           std::initializer_list<const char*> lua)
{
    std::set<std::string> all(native.begin(), native.end());
    if (HOSTPROBE_WITH_JS)
        all.insert(js.begin(), js.end());
    all.insert(lua.begin(), lua.end());
    return all;
}
} // namespace

TEST(HostKeys, ListsThePluginsKeys)
{
    child_result r = hostprobe({"keys", "xt::hostprobe_plugin"});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(lines_of(r.out), keys({"xt::hostprobe_plugin@wrapper", "xt::hostprobe_plugin.create@3445205045"},
                                    {"xt::hostprobe_plugin.create@creator.js", "xt::hostprobe_plugin@wrapper.js",
                                     "xt::hostprobe_plugin@maker.js"},
                                    {"xt::hostprobe_plugin.create@creator.lua", "xt::hostprobe_plugin@wrapper.lua"}));
}

TEST(HostKeys, MethodNarrowsTheList)
{
    EXPECT_EQ(lines_of(hostprobe({"keys", "xt::hostprobe_plugin.create"}).out),
              keys({"xt::hostprobe_plugin.create@3445205045"}, {"xt::hostprobe_plugin.create@creator.js"},
                   {"xt::hostprobe_plugin.create@creator.lua"}));
}

TEST(HostKeys, EmptyScriptListsTheKeysWithoutAScriptPart)
{
    // Without a namespace, the script-side creators in xt::js and xt::lua count too.
    EXPECT_EQ(lines_of(hostprobe({"keys", "hostprobe_plugin", ""}).out),
              keys({"xt::hostprobe_plugin@wrapper", "xt::hostprobe_plugin.create@3445205045"},
                   {"xt::js::hostprobe_plugin.create"}, {"xt::lua::hostprobe_plugin.create"}));
}

TEST(HostKeys, LuaListsItsLanguagesKeys)
{
    EXPECT_EQ(lines_of(hostprobe({"keys", "xt::hostprobe_plugin", "lua"}).out),
              (std::set<std::string>{"xt::hostprobe_plugin.create@creator.lua", "xt::hostprobe_plugin@wrapper.lua"}));
}

TEST(HostKeys, ScriptListsItsLanguagesKeys)
{
    EXPECT_EQ(lines_of(hostprobe({"keys", "xt::hostprobe_plugin", "js"}).out),
              keys({}, {"xt::hostprobe_plugin.create@creator.js", "xt::hostprobe_plugin@wrapper.js",
                        "xt::hostprobe_plugin@maker.js"}, {}));
}

TEST(HostKeys, ScriptWithoutKeysListsNothing)
{
    child_result r = hostprobe({"keys", "xt::hostprobe_plugin", "tcl"});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "");
}

TEST(HostKeys, MissingNameIsRefused)
{
    expect_refused({"keys"}, "keys takes a NAME");
}

TEST(HostKeys, PatternListsTheKeysItMatchesWhole)
{
    child_result r = hostprobe({"keys", "--pattern", "xt::hostprobe_plugin\\.create@[0-9]+"});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "xt::hostprobe_plugin.create@3445205045\n");
}

TEST(HostKeys, PatternLeavesOutKeysWithAScriptPart)
{
    // "xt::hostprobe_plugin@wrapper.js" and its kin have the script part "js".
    child_result r = hostprobe({"keys", "--pattern", "xt::hostprobe_plugin@wrapper.*"});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "xt::hostprobe_plugin@wrapper\n");
}

TEST(HostKeys, PatternThatMatchesNoKeyListsNothing)
{
    child_result r = hostprobe({"keys", "--pattern", "no::such@key"});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    EXPECT_EQ(r.out, "");
}

TEST(HostKeys, BadPatternIsRefusedWithItsReason)
{
    child_result r = hostprobe({"keys", "--pattern", "xt::(hostprobe"});
    EXPECT_EQ(r.exit_status, 2);
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_NE(r.err.find("bad pattern 'xt::(hostprobe': unmatched left paren"), std::string::npos) << r.err;
}

TEST(HostKeys, PatternOptionWithoutPatternIsRefused)
{
    child_result r = hostprobe({"keys", "--pattern"});
    EXPECT_EQ(r.exit_status, 2);
    EXPECT_NE(r.err.find("keys --pattern takes one REGEX"), std::string::npos) << r.err;
}

// -- The rest of the command line ----------------------------------------------------------------

TEST(HostCommands, VersionIsTheDefault)
{
    child_result r = hostprobe({});
    EXPECT_EQ(r.exit_status, 0) << r.err;
    // A build without V8 names LuaJIT alone.
    EXPECT_EQ(r.out.rfind(HOSTPROBE_WITH_JS ? "V8 " : "LuaJIT ", 0), 0u) << r.out;
}

TEST(HostCommands, HelpListsEveryCommand)
{
    std::string out = hostprobe({"--help"}).out;
    for (const char* command : {"version", "keys NAME", "keys --pattern REGEX", "call METHOD", "--plugin PATH"})
        EXPECT_NE(out.find(command), std::string::npos) << command;
}

TEST(HostCommands, HelpListsEveryMethodOfTheList)
{
    std::string out = hostprobe({"--help"}).out;
    for (const std::string& name : method_names())
        EXPECT_NE(out.find(" " + name), std::string::npos) << name;
}

TEST(HostCommands, HelpTellsTheArgumentsOfTheMethods)
{
    std::string out = hostprobe({"--help"}).out;
    EXPECT_NE(out.find("mersenne_twister N (unsigned 32-bit)"), std::string::npos) << out;
    EXPECT_NE(out.find("testfunction N (signed 32-bit)"), std::string::npos) << out;
}

TEST(HostCommands, HelpNamesBothScriptLanguagesOfRun)
{
    std::string out = hostprobe({"--help"}).out;
    EXPECT_NE(out.find("JavaScript (.js) or Lua (.lua)"), std::string::npos) << out;
}

TEST(HostCommands, HelpTellsTheLimitsOfRun)
{
    std::string out = hostprobe({"--help"}).out;
    EXPECT_NE(out.find("[--timeout SECONDS] [--max-heap MB]"), std::string::npos) << out;
    EXPECT_NE(out.find("--timeout ends the script after SECONDS with exit status 3"), std::string::npos) << out;
    EXPECT_NE(out.find("--max-heap ends a script whose heap grows beyond MB megabytes"), std::string::npos) << out;
}

TEST(HostCommands, UnknownCommandIsRefused)
{
    expect_refused({"probe"}, "unknown command 'probe'");
}
