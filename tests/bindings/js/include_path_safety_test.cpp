// $include never reads a file outside the registry's root: a table of
// hostile paths, each tried from a script at the root and from one below
// it, against a file that lies just outside the root and would announce
// itself if it ever ran.
#include "tests/bindings/js/js_test_host.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

using velk::testing::js_environment;
using velk::testing::JsTest;
using velk::testing::script_result;

namespace {

// The file outside the root: in the root's parent folder, under a name of
// this process's own.
std::string leak_name() { return "js_leak_" + std::to_string(getpid()) + ".js"; }

std::string root_parent()
{
    std::string root = js_environment::root();
    return std::filesystem::path(root.substr(0, root.size() - 1)).parent_path().string() + "/";
}

struct hostile
{
    const char* label;
    std::string path;
};

std::vector<hostile> hostile_paths()
{
    const std::string leak = leak_name();
    const std::string outside = root_parent() + leak;
    std::string long_climb;
    for (int i = 0; i < 2000; ++i)
        long_climb += "a/";
    for (int i = 0; i < 2001; ++i)
        long_climb += "../";
    long_climb += leak;
    return {
        {"parent", ".."},
        {"parent file", "../" + leak},
        {"down and up twice", "a/../../" + leak},
        {"dot then parent", "./../" + leak},
        {"dots around", "sub/./../../" + leak},
        {"backslash parent", "..\\" + leak},
        {"backslash down and up", "a\\..\\..\\" + leak},
        {"mixed separators", "a/..\\../" + leak},
        {"root then parent", "/../" + leak},
        {"backslash root then parent", "\\..\\" + leak},
        {"file url then parent", "file:///../" + leak},
        {"file url twice up", "file:///../../" + leak},
        {"absolute path", outside},
        {"absolute path, doubled separator", "/" + outside},
        {"drive path", "C:\\" + leak},
        {"unc path", "\\\\server\\share\\" + leak},
        {"encoded dots", "%2e%2e/" + leak},
        {"encoded separator", "..%2f" + leak},
        {"encoded dots and separator", "%2e%2e%2f" + leak},
        {"three dots", ".../" + leak},
        {"dots glued to a name", "..x/../" + leak},
        {"home", "~/" + leak},
        {"empty", ""},
        {"blanks", "   "},
        {"zero byte", std::string("x.js\0/../../", 12) + leak},
        {"very long name", std::string(100000, 'a')},
        {"very long climb", long_climb},
    };
}

class IncludePathSafety : public JsTest
{
protected:
    void SetUp() override
    {
        context = new_context();
        velk::testing::write_file(root_parent() + leak_name(), "$result = 'LEAKED'; leaked = true;");
        velk::testing::write_root_file("sub/inner.js", "$result = 'inside';");
    }
    void TearDown() override { std::filesystem::remove(root_parent() + leak_name()); }

    // Tries path from the script "file:///" + script; fails the test if the
    // file outside ran, or if an open was tried outside the root.
    void expect_contained(const hostile& h, const std::string& script)
    {
        v8::Context::Scope in(context);
        v8::Local<v8::String> path =
            v8::String::NewFromUtf8(isolate, h.path.data(), v8::NewStringType::kNormal, int(h.path.size()))
                .ToLocalChecked();
        context->Global()->Set(context, v8::String::NewFromUtf8Literal(isolate, "hostilePath"), path).Check();
        script_result r = run(context, "$include(hostilePath)", "file:///" + script);
        EXPECT_EQ(run(context, "typeof leaked").text, "undefined") << h.label << " from " << script;
        EXPECT_NE(r.text, "LEAKED") << h.label << " from " << script;
        EXPECT_TRUE(r.threw) << h.label << " from " << script << ": " << r.text;
        const std::string invalid = "Error: invalid path ";
        const std::string opening = "Error: error opening file " + js_environment::root();
        bool refused = r.text.compare(0, invalid.size(), invalid) == 0;
        bool opened_inside = r.text.compare(0, opening.size(), opening) == 0;
        EXPECT_TRUE(refused || opened_inside) << h.label << " from " << script << ": " << r.text.substr(0, 200);
    }

    v8::Local<v8::Context> context;
};

} // namespace

TEST_F(IncludePathSafety, HostilePathsFromAScriptAtTheRootStayInside)
{
    for (const hostile& h : hostile_paths())
        expect_contained(h, "main.js");
}

TEST_F(IncludePathSafety, HostilePathsFromAScriptBelowTheRootStayInside)
{
    for (const hostile& h : hostile_paths())
        expect_contained(h, "sub/main.js");
}

TEST_F(IncludePathSafety, ScriptNamedAboveTheRootIncludesNothing)
{
    hostile h{"plain name from above", leak_name()};
    expect_contained(h, "../main.js");
}

TEST_F(IncludePathSafety, ScriptWithAnAbsoluteNameOutsideTheRootIncludesNothing)
{
    // The script's directory is the root's parent, where the file lies.
    hostile h{"plain name from an absolute script", leak_name()};
    v8::Context::Scope in(context);
    context->Global()
        ->Set(context, v8::String::NewFromUtf8Literal(isolate, "hostilePath"),
              v8::String::NewFromUtf8(isolate, h.path.c_str()).ToLocalChecked())
        .Check();
    script_result r = run(context, "$include(hostilePath)", root_parent() + "main.js");
    EXPECT_TRUE(r.threw);
    EXPECT_EQ(r.text, "Error: invalid path " + h.path);
    EXPECT_EQ(run(context, "typeof leaked").text, "undefined");
}

TEST_F(IncludePathSafety, SourceUrlCommentDoesNotMoveTheScript)
{
    // A script may rename itself for its stack traces; includes still
    // resolve below the root.
    script_result r = run(context, "eval('//# sourceURL=file:///../x.js\\n$include(\"../" + leak_name() + "\")')",
                          "file:///main.js");
    EXPECT_TRUE(r.threw);
    EXPECT_EQ(run(context, "typeof leaked").text, "undefined");
}

TEST_F(IncludePathSafety, FileInsideStillIncludes)
{
    // The same table's harmless neighbour: the fence lets the root's own files through.
    EXPECT_EQ(run(context, "$include('sub/inner.js')", "file:///main.js").text, "inside");
    EXPECT_EQ(run(context, "$include('../sub/inner.js')", "file:///sub/main.js").text, "inside");
}

TEST_F(IncludePathSafety, LinkBelowTheRootLeadingOutIsRefused)
{
    std::string link = js_environment::root() + "sub/out_" + std::to_string(getpid()) + ".js";
    std::filesystem::remove(link);
    std::filesystem::create_symlink(root_parent() + leak_name(), link);
    std::string name = "sub/" + std::filesystem::path(link).filename().string();
    script_result r = run(context, "$include('" + name + "')", "file:///main.js");
    std::filesystem::remove(link);
    EXPECT_TRUE(r.threw);
    EXPECT_EQ(r.text, "Error: invalid path " + name);
    EXPECT_EQ(run(context, "typeof leaked").text, "undefined");
}

TEST_F(IncludePathSafety, LinkBelowTheRootLeadingInsideStillIncludes)
{
    std::string link = js_environment::root() + "in_" + std::to_string(getpid()) + ".js";
    std::filesystem::remove(link);
    std::filesystem::create_symlink(js_environment::root() + "sub/inner.js", link);
    script_result r =
        run(context, "$include('" + std::filesystem::path(link).filename().string() + "')", "file:///main.js");
    std::filesystem::remove(link);
    EXPECT_EQ(r.text, "inside");
}
