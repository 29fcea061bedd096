// Hostile scripts through `hostprobe run`, in a child process, for both
// languages: each row is a script that recurses without end, makes a huge
// string, is no script at all, calls the plug-in wrongly, churns objects,
// runs past its time or its heap, or leaves a promise rejected. Each ends
// the host with the row's status and words, never with a signal, and leaves
// no file behind. HOSTPROBE is the path of the host from the build.
#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <random>
#include <string>
#include <vector>

using velk::testing::child_result;

namespace {

struct hostile_case
{
    const char* name;
    const char* file; // the script's file name: its extension picks the language
    std::string text;
    std::vector<std::string> options; // run's options after the file
    int status;
    const char* err; // a part of standard error; null: standard error stays empty
    const char* out; // a part of standard output
    // Ended from outside, by the host's watchdog a grace period after the
    // deadline, not by the engine: a finalizer that no hook reaches.
    bool last_resort = false;
};

// A failing row names itself, not its bytes.
void PrintTo(const hostile_case& c, std::ostream* os)
{
    *os << c.name;
}

// A script that its engine stops ends before the watchdog's last resort
// would end it: one second of time limit and two of grace.
constexpr auto engine_stops_within = std::chrono::milliseconds(2500);

// Bytes that are no script in either language. The first one is no
// bytecode mark, so that Lua reads them as text.
std::string garbage()
{
    std::mt19937 bytes(20240601); // any fixed seed: the same bytes each run
    std::string text = "\xff\xfe";
    for (int i = 0; i < 4096; ++i)
        text += static_cast<char>(bytes() & 0xff);
    return text;
}

// Every method with a wrong count, a wrong type, a wrong `this` and as a
// constructor, each caught; then one wrong call that nobody catches.
const char* wrong_calls_js = R"(
var calls = [
  function () { return probe.testfunction(); },
  function () { return probe.testfunction(1, 2); },
  function () { return probe.testfunction('x'); },
  function () { return probe.testfunction({}); },
  function () { return probe.testfunction(null); },
  function () { return probe.testfunction(Symbol('s')); },
  function () { return probe.testfunction(2 ** 40); },
  function () { return probe.mersenne_twister(); },
  function () { return probe.mersenne_twister([], []); },
  function () { return probe.mersenne_twister(-1); },
  function () { return probe.mersenne_twister(NaN); },
  function () { return probe.getMAC(1); },
  function () { return probe.getMAC.call({}); },
  function () { return probe.testfunction.call(undefined, 1); },
  function () { return probe.testfunction.call(42, 1); },
  function () { return new probe.testfunction(1); },
  function () { return probe.$log(); },
  function () { return probe.$log({ toString: function () { throw new Error('inner'); } }); },
];
var tried = 0;
for (var i = 0; i < calls.length; ++i) {
  try { calls[i](); } catch (e) {}
  ++tried;
}
$log('tried ' + tried);
probe.testfunction();
)";

const char* wrong_calls_lua = R"(
local calls = {
  function() return probe:testfunction() end,
  function() return probe:testfunction(1, 2) end,
  function() return probe:testfunction('x') end,
  function() return probe:testfunction({}) end,
  function() return probe:testfunction(nil) end,
  function() return probe:testfunction(2^40) end,
  function() return probe.testfunction(1) end,
  function() return probe.testfunction({}, 1) end,
  function() return probe.testfunction(coroutine.create(print), 1) end,
  function() return probe:mersenne_twister() end,
  function() return probe:mersenne_twister(function() end) end,
  function() return probe:mersenne_twister(-1) end,
  function() return probe:getMAC(1) end,
  function() return probe.getMAC() end,
  function() return probe.getMAC('x') end,
  function() return probe:nosuch() end,
}
local tried = 0
for _, f in ipairs(calls) do
  pcall(f)
  tried = tried + 1
end
log('tried ' .. tried)
probe:testfunction()
)";

// Objects made and dropped in a loop: a dispatcher per $query_interface
// (which the plug-in can't bind to a script's object, so it goes at once)
// and a holder of the interface object.
const char* churn_js = R"(
var create = 'xt::js::hostprobe_plugin.create';
var made = 0;
for (var i = 0; i < 20000; ++i) {
  var dropped = $query_interface(create, probe);
  var holder = { object: probe, payload: new Array(64).fill(i) };
  if (holder.object.testfunction(1) === 2) ++made;
}
$log('churned ' + made);
)";

const char* churn_lua = R"(
local create = 'xt::lua::hostprobe_plugin.create'
local made = 0
for i = 1, 20000 do
  local dropped = query_interface(create, probe)
  local holder = { object = probe, payload = { i, i, i } }
  if holder.object:testfunction(1) == 2 then made = made + 1 end
  if i % 1000 == 0 then collectgarbage() end
end
log('churned ' .. made)
)";

const std::vector<std::string> one_second = {"--timeout", "1"};
const std::vector<std::string> heap_64 = {"--max-heap", "64"};

const char* timed_out = "script timed out after 1 s\n";
const char* heap_out = "script ran out of memory (limit 64 MB)\n";

const std::vector<hostile_case>& hostile_cases()
{
    static const std::vector<hostile_case> cases = {
        // -- Bad input --
        {"DeepRecursionJs", "deep.js", "function f() { f(); }\nf();\n", {}, 1,
         "RangeError: Maximum call stack size exceeded", ""},
        {"DeepRecursionLua", "deep.lua", "local function f() return 1 + f() end\nf()\n", {}, 1,
         "deep.lua:1: stack overflow", ""},
        {"HugeStringJs", "huge.js", "var s = 'x'.repeat(2 ** 29);\n", {}, 1, "RangeError: Invalid string length", ""},
        {"HugeStringLua", "huge.lua", "local s = string.rep('x', 2 ^ 28)\n", heap_64, 1, heap_out, ""},
        {"GarbageJs", "garbage.js", garbage(), {}, 1, "file:///garbage.js(1): SyntaxError", ""},
        {"GarbageLua", "garbage.lua", garbage(), {}, 1, "garbage.lua:1:", ""},
        {"GarbageBytecodeLua", "bytecode.lua", "\x1bLJ" + garbage(), {}, 1,
         "bytecode.lua: precompiled bytecode is refused: a script must be Lua source text\n", ""},
        {"WrongCallsJs", "wrong.js", wrong_calls_js, {}, 1,
         "Wrong number of arguments in hostprobe_plugin.testfunction", "INFO: [js] tried 18\n"},
        {"WrongCallsLua", "wrong.lua", wrong_calls_lua, {}, 1,
         "Wrong number of arguments in hostprobe_plugin.testfunction", "[wrong.lua] tried 16\n"},
        {"ChurnJs", "churn.js", churn_js, {}, 0, nullptr, "INFO: [js] churned 20000\n"},
        {"ChurnLua", "churn.lua", churn_lua, {}, 0, nullptr, "[churn.lua] churned 20000\n"},
        // -- Time --
        {"EndlessLoopJs", "loop.js", "while (true) {}\n", one_second, 3, timed_out, ""},
        {"EndlessLoopLua", "loop.lua", "while true do end\n", one_second, 3, timed_out, ""},
        {"CaughtTerminationJs", "catch.js", "while (true) { try { while (true) {} } catch (e) {} }\n", one_second, 3,
         timed_out, ""},
        {"CaughtTimeoutLua", "catch.lua", "while true do pcall(function() while true do end end) end\n", one_second,
         3, timed_out, ""},
        {"EndlessMicrotasksJs", "jobs.js", "function f() { Promise.resolve().then(f); }\nf();\n", one_second, 3,
         timed_out, ""},
        {"EndlessCallsLua", "calls.lua", "while true do probe:testfunction(1) end\n", one_second, 3, timed_out, ""},
        // No hook runs in a finalizer: the watchdog ends the process.
        {"EndlessFinalizerLua", "final.lua",
         "getmetatable(newproxy(true)).__gc = function() while true do end end\ncollectgarbage()\n", one_second, 3,
         timed_out, "", true},
        {"JitOnUnderALimitLua", "jit.lua", "jit.on()\nwhile true do end\n", one_second, 1,
         "the JIT compiler stays off", ""},
        {"QuickScriptWithinItsTimeJs", "quick.js", "$log(probe.testfunction(2));\n", one_second, 0, nullptr,
         "INFO: [js] 4\n"},
        // -- Heap --
        {"AllocationLoopJs", "grow.js", "var a = [];\nwhile (true) a.push(new Array(1000).fill(1.5));\n", heap_64, 1,
         heap_out, ""},
        {"AllocationLoopLua", "grow.lua", "local t = {}\nwhile true do t[#t + 1] = { 1, 2, 3 } end\n", heap_64, 1,
         heap_out, ""},
        // -- Promises --
        {"RejectedPromiseJs", "reject.js", "Promise.reject(new Error('boom'));\n", {}, 1,
         "file:///reject.js: unhandled promise rejection: Error: boom\n", ""},
        {"RejectingAsyncFunctionJs", "async.js", "async function f() { throw new TypeError('inside'); }\nf();\n", {},
         1, "unhandled promise rejection: TypeError: inside\n", ""},
        {"RejectionHandledLaterJs", "later.js",
         "var p = Promise.reject(1);\nPromise.resolve().then(function () { p.catch(function () {}); });\n", {}, 0,
         nullptr, ""},
    };
    return cases;
}

// The rows this build can run: without V8 (the Windows build) the Lua ones.
std::vector<hostile_case> rows_of_this_build()
{
    std::vector<hostile_case> rows;
    for (const hostile_case& c : hostile_cases())
        if (HOSTPROBE_WITH_JS || !std::string(c.file).ends_with(".js"))
            rows.push_back(c);
    return rows;
}

class HostileScript : public ::testing::TestWithParam<hostile_case>
{
protected:
    static child_result run(const std::string& path, const std::vector<std::string>& options)
    {
        std::vector<std::string> argv = {HOSTPROBE, "run", path};
        argv.insert(argv.end(), options.begin(), options.end());
        return velk::testing::run_child(argv);
    }

    static size_t entries_in(const std::filesystem::path& dir)
    {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir), {}));
    }
};

} // namespace

TEST_P(HostileScript, EndsWithItsStatusAndWords)
{
    const hostile_case& c = GetParam();
    std::filesystem::path place;
    {
        temp_dir dir("hostile");
        ASSERT_TRUE(dir.ok());
        place = dir.path();
        write_file(dir / c.file, c.text);
        auto start = std::chrono::steady_clock::now();
        child_result r = run(dir / c.file, c.options);
        if (!c.last_resort) {
            EXPECT_LT(std::chrono::steady_clock::now() - start, engine_stops_within);
        }
        EXPECT_EQ(r.signal, 0) << r.err;
        EXPECT_EQ(r.exit_status, c.status) << r.err;
        if (c.err) {
            EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
        } else {
            EXPECT_EQ(r.err, "");
        }
        EXPECT_NE(r.out.find(c.out), std::string::npos) << r.out;
        EXPECT_EQ(entries_in(place), 1u) << "the host left a file beside the script";
    }
    EXPECT_FALSE(std::filesystem::exists(place));
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileScript, ::testing::ValuesIn(rows_of_this_build()),
                         [](const ::testing::TestParamInfo<hostile_case>& info) {
                             return std::string(info.param.name);
                         });
