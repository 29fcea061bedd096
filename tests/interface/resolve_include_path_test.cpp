// Include paths of scripts, resolved below the registry's root: where a
// path is taken from, what the caller and the host get, and a table of
// hostile paths that try to leave the root, all refused.
#include "interface/interface_register.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

using velk::charstr;
using velk::interface_register_impl;
using velk::token;

namespace {

// An absolute root of the system: where "/" is the separator a leading "/"
// is one, on Windows a drive is. The current paths outside it are so too.
#if defined(_WIN32)
#define DRIVE "C:"
#else
#define DRIVE ""
#endif
#define ROOT DRIVE "/srv/root"

std::string str(const token& t) { return std::string(t.ptr() ? t.ptr() : "", t.lens()); }

std::string last_checked;
int checks = 0;

bool accept_all(const token& relative)
{
    last_checked = str(relative);
    ++checks;
    return true;
}

bool refuse_all(const token& relative)
{
    last_checked = str(relative);
    ++checks;
    return false;
}

class ResolveIncludePath : public ::testing::Test
{
protected:
    void SetUp() override
    {
        r.setup(ROOT, nullptr, nullptr, nullptr);
        checks = 0;
        last_checked.clear();
    }

    // The resolved path, or "refused". relative, when given, points into
    // a result that is gone: only whether it was asked for counts.
    std::string resolve(const token& current, const token& include, token* relative = nullptr)
    {
        charstr out;
        return r.resolve_include_path(current, include, out, relative) ? str(out) : "refused";
    }

    interface_register_impl r;
};

} // namespace

// -- Where the path is taken from ----------------------------------------------------------

TEST_F(ResolveIncludePath, IncludeStartingWithSlashIgnoresTheCurrentPath)
{
    EXPECT_EQ(resolve("lib/", "/a.js"), ROOT "/a.js");
}

TEST_F(ResolveIncludePath, IncludeStartingWithBackslashIsTakenFromTheRoot)
{
    EXPECT_EQ(resolve("lib/", "\\a.js"), ROOT "/a.js");
}

TEST_F(ResolveIncludePath, RelativeIncludeIsTakenFromTheCurrentDirectory)
{
    EXPECT_EQ(resolve("lib/", "b.js"), ROOT "/lib/b.js");
}

TEST_F(ResolveIncludePath, CurrentPathLosesItsFileScheme)
{
    EXPECT_EQ(resolve("file:///lib/", "b.js"), ROOT "/lib/b.js");
}

TEST_F(ResolveIncludePath, FileSchemeIsDroppedWhateverItsCase)
{
    EXPECT_EQ(resolve("FILE:///lib/", "b.js"), ROOT "/lib/b.js");
}

TEST_F(ResolveIncludePath, AbsoluteCurrentPathIsTakenAsItStands)
{
    EXPECT_EQ(resolve(ROOT "/lib/", "b.js"), ROOT "/lib/b.js");
}

TEST_F(ResolveIncludePath, ClimbThatStaysBelowTheRootIsAllowed)
{
    EXPECT_EQ(resolve("lib/sub/", "../b.js"), ROOT "/lib/b.js");
}

TEST_F(ResolveIncludePath, ResultIsCompacted)
{
    EXPECT_EQ(resolve("lib//./", "a/./b//c\\d.js"), ROOT "/lib/a/b/c/d.js");
}

TEST_F(ResolveIncludePath, RelativePartIsWhatFollowsTheRoot)
{
    charstr out;
    token relative;
    ASSERT_TRUE(r.resolve_include_path("lib/", "b.js", out, &relative));
    EXPECT_EQ(str(relative), "lib/b.js");
}

TEST_F(ResolveIncludePath, RelativePartPointsIntoTheResult)
{
    charstr out;
    token relative;
    ASSERT_TRUE(r.resolve_include_path("lib/", "b.js", out, &relative));
    EXPECT_EQ(relative.ptre(), out.ptre());
}

TEST_F(ResolveIncludePath, EmptyRootHoldsPathsThatDoNotClimb)
{
    interface_register_impl bare;
    charstr out;
    ASSERT_TRUE(bare.resolve_include_path("lib/", "b.js", out, nullptr));
    EXPECT_EQ(str(out), "lib/b.js");
}

TEST_F(ResolveIncludePath, EmptyRootRefusesAClimbAboveTheStart)
{
    interface_register_impl bare;
    charstr out;
    EXPECT_FALSE(bare.resolve_include_path("lib/", "../../b.js", out, nullptr));
}

// -- The host's check ------------------------------------------------------------------------

TEST_F(ResolveIncludePath, HostChecksAPathTakenFromTheRoot)
{
    r.setup("", nullptr, &refuse_all, nullptr);
    EXPECT_EQ(resolve("lib/", "/a.js"), "refused");
}

TEST_F(ResolveIncludePath, HostIsAskedAboutThePartBehindTheRoot)
{
    r.setup("", nullptr, &accept_all, nullptr);
    resolve("lib/", "/x/a.js");
    EXPECT_EQ(last_checked, "x/a.js");
}

TEST_F(ResolveIncludePath, HostIsNotAskedAboutARelativeInclude)
{
    r.setup("", nullptr, &refuse_all, nullptr);
    EXPECT_EQ(resolve("lib/", "b.js"), ROOT "/lib/b.js");
    EXPECT_EQ(checks, 0);
}

TEST_F(ResolveIncludePath, HostIsNotAskedAboutARelativeIncludeWithItsRelativePart)
{
    r.setup("", nullptr, &refuse_all, nullptr);
    token relative;
    EXPECT_NE(resolve("lib/", "b.js", &relative), "refused");
    EXPECT_EQ(checks, 0);
}

TEST_F(ResolveIncludePath, WithoutHostCheckARootPathIsAccepted)
{
    EXPECT_EQ(resolve("lib/", "/a.js"), ROOT "/a.js");
}

// -- Paths that try to leave the root ---------------------------------------------------------

namespace {

struct hostile_path
{
    std::string current;
    std::string include;
};

// Failures name the paths, with a zero byte shown as "\0".
void PrintTo(const hostile_path& p, std::ostream* os)
{
    auto shown = [](const std::string& s) {
        std::string t;
        for (char c : s)
            t += c ? std::string(1, c) : std::string("\\0");
        return t;
    };
    *os << "current \"" << shown(p.current) << "\", include \"" << shown(p.include) << "\"";
}

std::string with_zero(const char* a, const char* b) { return std::string(a) + '\0' + b; }

std::string climbs(int n, const char* sep)
{
    std::string s;
    for (int i = 0; i < n; ++i)
        s += std::string("..") + sep;
    return s + "etc/passwd";
}

const hostile_path hostile_paths[] = {
    // Climbs in the include path, relative to the current directory.
    {"lib/", "../../etc/passwd"},
    {"lib/", "../../../etc/passwd"},
    {"lib/", "../.."},
    {"lib/", "../../"},
    {"", ".."},
    {"", "../"},
    {"", "../x.js"},
    {"lib/", "a/../../../etc/passwd"},
    {"lib/", "a/../../.."},
    {"lib/", "./../../x.js"},
    {"lib/", "lib/../../../x.js"},
    {"lib/", "x/y/../../../../../../../../etc/shadow"},
    {"lib/", climbs(50, "/")},
    // The same with backslashes and mixed separators.
    {"lib/", "..\\..\\etc\\passwd"},
    {"lib/", "..\\../etc/passwd"},
    {"lib/", "../..\\etc"},
    {"lib/", "..//..//etc"},
    {"lib/", "..\\/..\\/etc"},
    {"lib/", "a\\..\\..\\..\\etc"},
    {"lib/", climbs(20, "\\")},
    // Climbs from the root.
    {"lib/", "/../etc/passwd"},
    {"lib/", "/../../etc/passwd"},
    {"lib/", "/.."},
    {"lib/", "/../"},
    {"lib/", "\\..\\..\\etc\\passwd"},
    {"lib/", "/a/../../x.js"},
    {"lib/", "\\a\\..\\..\\x.js"},
    {"lib/", "/../root2/a.js"},
    {"lib/", "/../rootx/a.js"},
    // Climbs in the current path, with or without its file scheme.
    {"../", "x.js"},
    {"../../", "x.js"},
    {"file:///../", "x.js"},
    {"file:///../../", "etc/passwd"},
    {"FILE:///..\\..\\", "x.js"},
    {"file:///lib/../../", "x.js"},
    {"\\..\\", "x.js"},
    // Current paths outside the root.
    {DRIVE "/etc/", "passwd"},
    {DRIVE "/srv/", "x.js"},
    {DRIVE "/srv/rootx/", "a.js"},
    {ROOT "/../", "x.js"},
    {ROOT "/lib/", "../../x.js"},
    // Other roots: drives, and a drive-relative path.
    {"lib/", "C:\\Windows\\system.ini"},
    {"lib/", "c:/x.js"},
    {"lib/", "C:..\\x.js"},
    {"C:/", "x.js"},
    // A zero byte would end the file name early at the host.
    {"lib/", with_zero("a.js", "/../../../etc/passwd")},
    {with_zero("lib/", "../../"), "x.js"},
};

class HostileIncludePath : public ::testing::TestWithParam<hostile_path>
{
};

} // namespace

TEST_P(HostileIncludePath, IsRefused)
{
    interface_register_impl r;
    r.setup(ROOT, nullptr, &accept_all, nullptr);
    const hostile_path& p = GetParam();
    charstr out;
    token relative;
    token current(p.current.data(), p.current.size());
    token include(p.include.data(), p.include.size());
    EXPECT_FALSE(r.resolve_include_path(current, include, out, nullptr)) << str(out);
    EXPECT_FALSE(r.resolve_include_path(current, include, out, &relative)) << str(out);
}

INSTANTIATE_TEST_SUITE_P(LeavingTheRoot, HostileIncludePath, ::testing::ValuesIn(hostile_paths));
