// The script globals of the plug-in's contexts, in a real isolate with the
// real plug-in module: $include and its $result protocol, $query_interface
// and $log, with the words of each failure.
#include "tests/bindings/js/js_test_host.h"

#include <gtest/gtest.h>

#include <string>

using velk::testing::js_environment;
using velk::testing::JsTest;
using velk::testing::script_result;
using velk::testing::write_root_file;

namespace {

class JsGlobals : public JsTest
{
protected:
    void SetUp() override { context = new_context(); }

    // Runs code as the script "file:///" + name, a file below the root.
    script_result run_as(const std::string& code, const std::string& name = "main.js")
    {
        return run(context, code, "file:///" + name);
    }

    v8::Local<v8::Context> context;
};

} // namespace

// -- $include ------------------------------------------------------------------------

TEST_F(JsGlobals, IncludeGivesWhatTheFileLeftInResult)
{
    write_root_file("inc/value.js", "$result = 6 * 7;");
    EXPECT_EQ(run_as("$include('inc/value.js')").text, "42");
}

TEST_F(JsGlobals, IncludeDropsTheValueOfTheLastExpression)
{
    write_root_file("inc/expression.js", "6 * 7;");
    EXPECT_EQ(run_as("$include('inc/expression.js')").type, "undefined");
}

TEST_F(JsGlobals, IncludeLeavesResultUndefined)
{
    write_root_file("inc/value.js", "$result = 1;");
    EXPECT_EQ(run_as("$include('inc/value.js'); typeof $result").text, "undefined");
}

TEST_F(JsGlobals, IncludedFileSharesTheGlobals)
{
    write_root_file("inc/reads.js", "$result = shared + 1;");
    EXPECT_EQ(run_as("var shared = 9; $include('inc/reads.js')").text, "10");
}

TEST_F(JsGlobals, IncludeIsRelativeToTheCallingScript)
{
    write_root_file("sub/dir/near.js", "$result = 'near';");
    EXPECT_EQ(run_as("$include('near.js')", "sub/dir/main.js").text, "near");
}

TEST_F(JsGlobals, NestedIncludeIsRelativeToTheIncludedFile)
{
    write_root_file("nest/outer.js", "$result = 'outer+' + $include('inner/inner.js');");
    write_root_file("nest/inner/inner.js", "$result = 'inner';");
    EXPECT_EQ(run_as("$include('nest/outer.js')").text, "outer+inner");
}

TEST_F(JsGlobals, IncludeDropsTrailingBlanksAndLineEnds)
{
    write_root_file("a.js", "$result = 'a';");
    EXPECT_EQ(run_as("$include('a.js  \\n')").text, "a");
}

TEST_F(JsGlobals, IncludeOfAFileUrlStartsAtTheRoot)
{
    write_root_file("b.js", "$result = 'root b';");
    write_root_file("deep/down/b.js", "$result = 'deep b';");
    EXPECT_EQ(run_as("$include('file:///b.js')", "deep/down/main.js").text, "root b");
}

TEST_F(JsGlobals, IncludeWithALeadingSeparatorStartsAtTheRoot)
{
    write_root_file("b.js", "$result = 'root b';");
    write_root_file("deep/b.js", "$result = 'deep b';");
    EXPECT_EQ(run_as("$include('/b.js')", "deep/main.js").text, "root b");
}

TEST_F(JsGlobals, IncludeAcceptsASecondArgument)
{
    write_root_file("inc/value.js", "$result = 3;");
    EXPECT_EQ(run_as("$include('inc/value.js', 1)").text, "3");
}

TEST_F(JsGlobals, IncludedFileIsNamedFromTheRootInItsErrors)
{
    write_root_file("inc/throws.js", "\nthrow new Error('inner');");
    EXPECT_EQ(run_as("try { $include('inc/throws.js'); } catch (e) { e.stack.split('\\n')[1].trim() }").text,
              "at file:///inc/throws.js:2:7");
}

TEST_F(JsGlobals, ErrorInAnIncludedFileIsRethrownAsItIs)
{
    write_root_file("inc/throws.js", "throw new RangeError('inner');");
    script_result r = run_as("$include('inc/throws.js')");
    EXPECT_TRUE(r.threw);
    EXPECT_EQ(r.text, "RangeError: inner");
}

TEST_F(JsGlobals, SyntaxErrorInAnIncludedFileIsRethrown)
{
    write_root_file("inc/bad.js", "var = ;");
    script_result r = run_as("$include('inc/bad.js')");
    EXPECT_TRUE(r.threw);
    EXPECT_NE(r.text.find("SyntaxError"), std::string::npos) << r.text;
}

TEST_F(JsGlobals, IncludeOfAMissingFileThrowsWithTheFullPath)
{
    script_result r = run_as("$include('inc/absent.js')");
    EXPECT_TRUE(r.threw);
    EXPECT_EQ(r.text, "Error: error opening file " + js_environment::root() + "inc/absent.js");
}

TEST_F(JsGlobals, IncludeOfAPathOutOfTheRootThrowsInvalidPath)
{
    script_result r = run_as("$include('../outside.js')");
    EXPECT_TRUE(r.threw);
    EXPECT_EQ(r.text, "Error: invalid path ../outside.js");
}

TEST_F(JsGlobals, IncludeOfAPathTheHostRefusesThrowsInvalidPath)
{
    write_root_file("inc/refused.js", "$result = 'read';");
    js_environment::refused_paths().push_back("inc/refused.js");
    EXPECT_EQ(run_as("$include('/inc/refused.js')").text, "Error: invalid path /inc/refused.js");
}

TEST_F(JsGlobals, IncludeWithoutArgumentsGivesUndefinedBelowTheRoot)
{
    EXPECT_EQ(run_as("$include()", "sub/main.js").type, "undefined");
}

TEST_F(JsGlobals, IncludeWithoutArgumentsOutsideTheRootGivesAFileUrl)
{
    // The calling script's own name lies above the root: nothing resolves.
    EXPECT_EQ(run_as("$include()", "../elsewhere/main.js").text, "file:///");
}

TEST_F(JsGlobals, IncludeFromCodeWithoutAScriptNameResolvesFromTheRoot)
{
    write_root_file("top.js", "$result = 'top';");
    EXPECT_EQ(run(context, "$include('top.js')", "").text, "top");
}

// -- $query_interface -----------------------------------------------------------------

TEST_F(JsGlobals, QueryInterfaceWithoutArgumentsThrows)
{
    script_result r = run_as("$query_interface()");
    EXPECT_TRUE(r.threw);
    EXPECT_EQ(r.text, "Error: Interface creator name missing");
}

TEST_F(JsGlobals, QueryInterfaceOfAnUnknownKeyThrows)
{
    EXPECT_EQ(run_as("$query_interface('xt::js::nothing.create', 1)").text,
              "Error: interface creator xt::js::nothing.create not found");
}

// -- $log -----------------------------------------------------------------------------------

TEST_F(JsGlobals, LogWithAnErrorWordIsAnErrorWithoutTheWord)
{
    run_as("$log('ERROR:  x')");
    ASSERT_EQ(js_environment::log().size(), 1u);
    EXPECT_EQ(js_environment::log()[0].type, 1);
    EXPECT_EQ(js_environment::log()[0].text, "x");
}

TEST_F(JsGlobals, LogWithoutAWordIsInformation)
{
    run_as("$log('x')");
    ASSERT_EQ(js_environment::log().size(), 1u);
    EXPECT_EQ(js_environment::log()[0].type, 4);
    EXPECT_EQ(js_environment::log()[0].text, "x");
}

TEST_F(JsGlobals, LogOfAnEmptyTextIsInformationWithoutText)
{
    run_as("$log('')");
    ASSERT_EQ(js_environment::log().size(), 1u);
    EXPECT_EQ(js_environment::log()[0].type, 4);
    EXPECT_EQ(js_environment::log()[0].text, "");
}

TEST_F(JsGlobals, LogWithoutArgumentsLogsNothing)
{
    EXPECT_EQ(run_as("$log()").type, "undefined");
    EXPECT_TRUE(js_environment::log().empty());
}

TEST_F(JsGlobals, GlobalLogComesFromJs)
{
    run_as("$log('warn: low')");
    ASSERT_EQ(js_environment::log().size(), 1u);
    EXPECT_EQ(js_environment::log()[0].source, "js");
    EXPECT_EQ(js_environment::log()[0].type, 2);
    EXPECT_EQ(js_environment::log()[0].context, nullptr);
}

TEST_F(JsGlobals, LogOfAnObjectComesFromItsInterface)
{
    run_as("o.$log('msg: hello')");
    ASSERT_EQ(js_environment::log().size(), 1u);
    EXPECT_EQ(js_environment::log()[0].source, "xt::hostprobe_plugin");
    EXPECT_EQ(js_environment::log()[0].type, 3);
    EXPECT_EQ(js_environment::log()[0].text, "hello");
    EXPECT_EQ(js_environment::log()[0].context, static_cast<const void*>(objects.back().get()));
}

TEST_F(JsGlobals, LogOfANumberLogsItsText)
{
    run_as("$log(42)");
    ASSERT_EQ(js_environment::log().size(), 1u);
    EXPECT_EQ(js_environment::log()[0].text, "42");
}

TEST_F(JsGlobals, LogGivesUndefined)
{
    EXPECT_EQ(run_as("$log('x')").type, "undefined");
}
