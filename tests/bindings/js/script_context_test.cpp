// The running of scripts and the paths by the stack, called from native
// code in a real isolate: the modes of load_script, rebase_path without a
// script on the stack, and the page test.
#include "bindings/js/script_context.h"
#include "comm/exception.h"
#include "tests/bindings/js/js_test_host.h"

#include <gtest/gtest.h>

#include <string>

using velk::testing::JsTest;

namespace {

class ScriptContext : public JsTest
{
protected:
    void SetUp() override { context = v8::Context::New(isolate); }
    v8::Local<v8::Context> context;
};

} // namespace

TEST_F(ScriptContext, LoadScriptRunsInTheCurrentContext)
{
    v8::Context::Scope in(context);
    velk::js::load_script("var ran = 1;", "file:///x.js", velk::js::load_throw_native);
    EXPECT_EQ(run(context, "ran").text, "1");
}

TEST_F(ScriptContext, LoadScriptGivesTheCompiledScript)
{
    v8::Context::Scope in(context);
    EXPECT_FALSE(velk::js::load_script("1", "file:///x.js", velk::js::load_throw_native).IsEmpty());
}

TEST_F(ScriptContext, LoadScriptThrowsNativelyWithNameAndLine)
{
    v8::Context::Scope in(context);
    std::string what;
    try {
        velk::js::load_script("\n\nx;", "file:///a.js", velk::js::load_throw_native);
    } catch (const velk::exception& e) {
        what = e.what();
    }
    EXPECT_EQ(what, "file:///a.js(3): ReferenceError: x is not defined (load_script)");
}

TEST_F(ScriptContext, LoadScriptRethrowsToTheScriptInModeOne)
{
    v8::Context::Scope in(context);
    v8::TryCatch caught(isolate);
    v8::Local<v8::Script> s = velk::js::load_script("throw 7;", "file:///a.js", velk::js::load_rethrow);
    EXPECT_TRUE(s.IsEmpty());
    ASSERT_TRUE(caught.HasCaught());
    EXPECT_EQ(caught.Exception()->Int32Value(context).FromMaybe(0), 7);
}

TEST_F(ScriptContext, RebasePathWithoutAScriptOnTheStackHasNoFrame)
{
    v8::Context::Scope in(context);
    velk::charstr out;
    velk::token relative;
    EXPECT_EQ(velk::js::rebase_path("a.js", 0, out, relative), velk::js::rebase_no_frame);
}

TEST(PageTest, HttpAddressIsAPage) { EXPECT_TRUE(velk::js::test_page("http://a/b").page); }
TEST(PageTest, HttpsAddressIsAPage) { EXPECT_TRUE(velk::js::test_page("https://a").page); }
TEST(PageTest, HtmlNameIsAPage) { EXPECT_TRUE(velk::js::test_page("a.html").page); }
TEST(PageTest, ShortHttpIsNoPage) { EXPECT_FALSE(velk::js::test_page("http:/").page); }
TEST(PageTest, SchemeInUpperCaseIsNoPage) { EXPECT_FALSE(velk::js::test_page("HTTP://a").page); }

TEST(PageTest, ScriptAddressIsAPageAndScript)
{
    velk::js::page_test t = velk::js::test_page("http://a/b.js");
    EXPECT_TRUE(t.page);
    EXPECT_TRUE(t.is_js);
}

TEST(PageTest, OnlyThePartBeforeTheQueryCounts)
{
    velk::js::page_test t = velk::js::test_page("http://a/b.js?x=1.html");
    EXPECT_TRUE(t.is_js);
    velk::js::page_test u = velk::js::test_page("b.js?x=1.html");
    EXPECT_FALSE(u.page);
}

TEST(PageTest, NameTooShortForEveryTestIsNeitherPageNorScript)
{
    velk::js::page_test t = velk::js::test_page("x");
    EXPECT_FALSE(t.page);
    EXPECT_FALSE(t.is_js);
}
