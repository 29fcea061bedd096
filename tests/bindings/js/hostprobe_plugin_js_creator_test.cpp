// The context creator "xt::hostprobe_plugin.create@creator.js" of the real
// plug-in module: which context a script gets, how its text is built and
// run, what a page does, and the words of every failure.
#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "bindings/js/hostprobe_plugin_js_dispatcher.h"
#include "interface/registrar.h"
#include "tests/bindings/js/js_test_host.h"

#include <gtest/gtest.h>

#include <string>

using velk::js::script_source;
using velk::testing::js_environment;
using velk::testing::JsTest;
using velk::testing::write_root_file;
using xt::hostprobe_plugin;

namespace {

class JsCreator : public JsTest
{
protected:
    // Runs a script given as text; gives the failure's words or "".
    std::string create_from_text(const char* text, const char* prefix = "", const char* bindname = "o")
    {
        script_source s;
        s.text = velk::token(text);
        s.prefix = velk::token(prefix);
        s.url = "file:///text.js";
        return create_with(s, made, bindname, &context);
    }

    // Runs a script given as a path; gives the failure's words or "".
    std::string create_from_path(const std::string& path, const char* url = "")
    {
        path_text = path;
        script_source s;
        s.text = velk::token(path_text.c_str());
        s.is_path = true;
        s.url = velk::token(url);
        return create_with(s, made, "o", &context);
    }

    std::string global_text(const char* code) { return run(context, code).text; }

    std::string path_text;
    v8::Local<v8::Context> context;
    velk::iref<hostprobe_plugin> made;
};

} // namespace

// -- Text and prefix -----------------------------------------------------------------

TEST_F(JsCreator, ScriptRunsWithTheObjectBoundUnderItsName)
{
    ASSERT_EQ(create_from_text("var seen = o.testfunction(21);"), "");
    EXPECT_EQ(global_text("seen"), "42");
}

TEST_F(JsCreator, CreatorGivesTheInterfaceObject)
{
    ASSERT_EQ(create_from_text(""), "");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->testfunction(4), 8);
    EXPECT_EQ(made->backend(), velk::backend_js);
}

TEST_F(JsCreator, EmptyScriptRunsAsAnEmptyScript)
{
    EXPECT_EQ(create_from_text(""), "");
    EXPECT_TRUE(made);
}

TEST_F(JsCreator, PrefixGoesBeforeTheText)
{
    // "var a=1;a" runs; "a" alone would not.
    EXPECT_EQ(create_from_text("a", "var a=1;"), "");
    EXPECT_EQ(global_text("a"), "1");
}

TEST_F(JsCreator, TextWithoutThePrefixFails)
{
    EXPECT_EQ(create_from_text("a"), "file:///text.js(1): ReferenceError: a is not defined (load_script)");
}

TEST_F(JsCreator, EmptyBindNameMakesTheObjectWithoutPublishingIt)
{
    ASSERT_EQ(create_from_text("var kind = typeof o;", "", ""), "");
    EXPECT_TRUE(made);
    EXPECT_EQ(global_text("kind"), "undefined");
}

TEST_F(JsCreator, NoScriptBindsTheObjectAndRunsNothing)
{
    script_source s; // null text
    ASSERT_EQ(create_with(s, made, "o", &context), "");
    EXPECT_EQ(global_text("o.testfunction(3)"), "6");
}

TEST_F(JsCreator, NewContextHasTheScriptGlobalsInOrder)
{
    ASSERT_EQ(create_from_text(""), "");
    EXPECT_EQ(global_text("Object.keys(globalThis).filter(k => k[0] == '$').join(',')"),
              "$include,$query_interface,$log");
}

TEST_F(JsCreator, ObjectIsHeldStronglyByItsDispatcher)
{
    ASSERT_EQ(create_from_text(""), "");
    auto* d = static_cast<xt::js::hostprobe_plugin_js_dispatcher*>(made.get());
    EXPECT_FALSE(d->object.IsEmpty());
    EXPECT_FALSE(d->object.IsWeak());
    EXPECT_EQ(made->refcount(), 1u);
}

TEST_F(JsCreator, GivenContextIsUsedAndGetsNoGlobals)
{
    v8::Local<v8::Context> own = v8::Context::New(isolate);
    script_source s;
    s.text = "var seen = typeof $include + ',' + o.testfunction(1);";
    s.context = own;
    v8::Local<v8::Context> given;
    ASSERT_EQ(create_with(s, made, "o", &given), "");
    EXPECT_TRUE(given == own);
    EXPECT_EQ(run(own, "seen").text, "undefined,2");
}

TEST_F(JsCreator, OutContextIsTheScriptsContext)
{
    ASSERT_EQ(create_from_text("var mark = 5;"), "");
    EXPECT_EQ(global_text("mark"), "5");
}

// -- Paths ------------------------------------------------------------------------------

TEST_F(JsCreator, ScriptFromAPathRuns)
{
    std::string path = write_root_file("creator/run.js", "var fromFile = o.testfunction(10);");
    ASSERT_EQ(create_from_path(path), "");
    EXPECT_EQ(global_text("fromFile"), "20");
}

TEST_F(JsCreator, ScriptFromAPathGetsThePrefixFirst)
{
    std::string path = write_root_file("creator/prefixed.js", "var b = a + 1;");
    path_text = path;
    script_source s;
    s.text = velk::token(path_text.c_str());
    s.is_path = true;
    s.prefix = "var a = 41;";
    ASSERT_EQ(create_with(s, made, "o", &context), "");
    EXPECT_EQ(global_text("b"), "42");
}

TEST_F(JsCreator, ScriptFromAPathIsNamedByItsPathWithoutUrl)
{
    std::string path = write_root_file("creator/fails.js", "\nmissing();");
    EXPECT_EQ(create_from_path(path), path + "(2): ReferenceError: missing is not defined (load_script)");
}

TEST_F(JsCreator, ScriptFromAPathIsNamedByItsUrl)
{
    std::string path = write_root_file("creator/fails.js", "\n\nmissing();");
    EXPECT_EQ(create_from_path(path, "file:///a.js"),
              "file:///a.js(3): ReferenceError: missing is not defined (load_script)");
}

TEST_F(JsCreator, MissingScriptFileFailsWithNotFound)
{
    std::string path = js_environment::root() + "creator/absent.js";
    EXPECT_EQ(create_from_path(path), path + " not found");
    EXPECT_FALSE(made);
}

TEST_F(JsCreator, DirectoryAsScriptFileFailsWithNotFound)
{
    write_root_file("creator/dir/x.js", "");
    std::string path = js_environment::root() + "creator/dir";
    EXPECT_EQ(create_from_path(path), path + " not found");
}

TEST_F(JsCreator, BigScriptIsReadWhole)
{
    // Several blocks of 4096 bytes, and a statement at the very end.
    std::string text(3 * 4096 + 17, ' ');
    text += "var last = 'end';";
    std::string path = write_root_file("creator/big.js", text);
    ASSERT_EQ(create_from_path(path), "");
    EXPECT_EQ(global_text("last"), "end");
}

// -- Pages ------------------------------------------------------------------------------

TEST_F(JsCreator, HttpAddressOfAScriptIsOpenedAsAFile)
{
    EXPECT_EQ(create_from_path("http://a/b.js"), "http://a/b.js not found");
    EXPECT_EQ(js_environment::page_context_calls(), 0);
}

TEST_F(JsCreator, QueryAfterTheScriptsNameDoesNotMakeItAPage)
{
    EXPECT_EQ(create_from_path("http://a/b.js?x=1.html"), "http://a/b.js?x=1.html not found");
    EXPECT_EQ(js_environment::page_context_calls(), 0);
}

TEST_F(JsCreator, HtmlNameIsAPageWhoseHostMakesTheContext)
{
    EXPECT_EQ(create_from_path("a.html?x"), "");
    EXPECT_EQ(js_environment::page_context_calls(), 1);
    EXPECT_EQ(global_text("pageMark"), "7");
}

TEST_F(JsCreator, PageGetsTheObjectAndRunsNothing)
{
    ASSERT_EQ(create_from_path("https://example.invalid/index"), "");
    EXPECT_EQ(global_text("o.testfunction(2)"), "4");
    EXPECT_EQ(global_text("typeof $include"), "undefined");
}

TEST_F(JsCreator, UpperCaseHtmlIsNoPage)
{
    EXPECT_EQ(create_from_path("a.HTML"), "a.HTML not found");
    EXPECT_EQ(js_environment::page_context_calls(), 0);
}

TEST_F(JsCreator, NameTooShortForEveryTestIsAFile)
{
    EXPECT_EQ(create_from_path("x"), "x not found");
    EXPECT_EQ(js_environment::page_context_calls(), 0);
}

TEST_F(JsCreator, PageRefusedByTheHostFails)
{
    js_environment::page_context_enabled() = false;
    EXPECT_EQ(create_from_path("a.html"), "unable to create context");
    EXPECT_FALSE(made);
}

TEST_F(JsCreator, PageWithoutTheHostsCreatorFails)
{
    velk::creator_fn page = velk::get_creator("~html@system_context_getter2");
    velk::register_creator("~html@system_context_getter2", nullptr);
    std::string failure = create_from_path("a.html");
    velk::register_creator("~html@system_context_getter2", page);
    EXPECT_EQ(failure, "unable to acquire the system context creator interface");
}

// -- Failures of the script ----------------------------------------------------------------

TEST_F(JsCreator, ThrowingScriptFailsWithNameLineAndText)
{
    EXPECT_EQ(create_from_text("\n\nthrow new Error('stop');"), "file:///text.js(3): Error: stop (load_script)");
}

TEST_F(JsCreator, ThrownValueThatIsNoErrorIsShownAsText)
{
    EXPECT_EQ(create_from_text("throw 42;"), "file:///text.js(1): 42 (load_script)");
}

TEST_F(JsCreator, SyntaxErrorFailsWithItsLine)
{
    EXPECT_EQ(create_from_text("var ok = 1;\nvar = ;"), "file:///text.js(2): SyntaxError: Unexpected token '=' (load_script)");
}

TEST_F(JsCreator, FailedScriptLeavesNoObject)
{
    int64_t before = live_dispatchers();
    create_from_text("throw 1;");
    EXPECT_FALSE(made);
    EXPECT_EQ(live_dispatchers(), before);
}

TEST_F(JsCreator, ObjectThatOutlivesAFailedScriptAnswersUndefined)
{
    ASSERT_NE(create_from_text("var kept = o; throw 1;"), "");
    EXPECT_EQ(global_text("typeof kept.testfunction(1)"), "undefined");
}

TEST_F(JsCreator, CreatorOutsideAnIsolateFails)
{
    isolate->Exit();
    std::string failure = create_from_text("var x = 1;");
    isolate->Enter();
    EXPECT_EQ(failure, "no V8 isolate is entered");
    EXPECT_FALSE(made);
}

TEST_F(JsCreator, CreatorWithoutAHostObjectFails)
{
    host_object.release();
    EXPECT_EQ(create_from_text("var x = 1;"), "failed to create interface object");
}

TEST_F(JsCreator, CreatorWithoutAHostObjectLeavesNoDispatcher)
{
    host_object.release();
    int64_t before = live_dispatchers();
    create_from_text("");
    EXPECT_EQ(live_dispatchers(), before);
}
