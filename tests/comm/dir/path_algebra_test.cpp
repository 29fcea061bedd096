// Path algebra: the edge cases one fact per test, then a table of cases that
// sweeps both separators, drives, UNC starts, the root "/", climbs above the
// start and empty parts.
#include "comm/dir/path_algebra.h"

#include "tests/support/path_forms.h"

#include <gtest/gtest.h>

#include <string>

using velk::charstr;
using velk::path_algebra;
using velk::token;

// In the table's expected texts, "%" stands for the separator the library
// writes itself ("/", or "\\" on Windows); every other character is what
// the input gave. A leading "/" is a root only where "/" is that separator:
// the cases that rest on it are marked, and skipped elsewhere.

namespace {

using velk::testing::no_slash_root;
using velk::testing::slash_is_root;

// text with each "%" turned into the system's separator.
std::string sys(std::string text)
{
    for (char& c : text)
        if (c == '%')
            c = path_algebra::separator;
    return text;
}

std::string str(const charstr& s) { return std::string(s.c_str(), s.lens()); }
std::string str(const token& t) { return std::string(t.ptr() ? t.ptr() : "", t.lens()); }

struct appended
{
    int result;
    std::string dst;
};

appended append(const char* dst, const char* path, bool check_climb)
{
    charstr d(token{dst});
    int r = path_algebra::append_path(d, token(path), check_climb);
    return {r, str(d)};
}

struct compacted
{
    bool ok;
    std::string path;
};

compacted compact(const char* path, char replacement)
{
    charstr p(token{path});
    bool ok = path_algebra::compact_path(p, replacement);
    return {ok, str(p)};
}

} // namespace

// -- Edge cases -------------------------------------------------------------------

TEST(PathAlgebra, IsAbsolutePathHoldsForADriveAlone)
{
    EXPECT_TRUE(path_algebra::is_absolute_path("C:"));
}

TEST(PathAlgebra, IsAbsolutePathHoldsForAUncStart)
{
    EXPECT_TRUE(path_algebra::is_absolute_path("\\\\a"));
}

TEST(PathAlgebra, IsAbsolutePathFailsForOneLeadingBackslash)
{
    EXPECT_FALSE(path_algebra::is_absolute_path("\\a"));
}

TEST(PathAlgebra, IsAbsolutePathFailsForAPlainName)
{
    EXPECT_FALSE(path_algebra::is_absolute_path("a"));
}

TEST(PathAlgebra, IsAbsolutePathFailsForAnEmptyPath)
{
    EXPECT_FALSE(path_algebra::is_absolute_path(""));
}

TEST(PathAlgebra, IsAbsolutePathTakesALeadingSlashForTheRoot)
{
    if (!slash_is_root)
        GTEST_SKIP() << no_slash_root;
    EXPECT_TRUE(path_algebra::is_absolute_path("/"));
}

TEST(PathAlgebra, IsAbsolutePathFailsForALeadingSlashWhereTheSeparatorIsABackslash)
{
    if (slash_is_root)
        GTEST_SKIP() << "where \"/\" is the separator, a leading \"/\" is the root";
    EXPECT_FALSE(path_algebra::is_absolute_path("/x"));
}

TEST(PathAlgebra, AppendPathClimbFromATrailingSeparatorReplacesTheLastSegment)
{
    appended a = append("a/b/", "../c", false);
    EXPECT_EQ(a.dst, "a/c");
}

TEST(PathAlgebra, AppendPathCountsTheStartOfDstAsTheParent)
{
    appended a = append("a", "../b", false);
    EXPECT_EQ(a.dst, "b");
}

TEST(PathAlgebra, AppendPathTakesANullPathAsAnEmptyOne)
{
    // A null token (no characters at all) is the path of a script without
    // a name; it must act as "", with no copy from its null pointer.
    appended null_path = append("a", nullptr, false);
    appended empty_path = append("a", "", false);
    EXPECT_EQ(null_path.result, empty_path.result);
    EXPECT_EQ(null_path.dst, empty_path.dst);
}

TEST(PathAlgebra, AppendPathFailsToClimbOutOfAnEmptyDst)
{
    appended a = append("", "../b", false);
    EXPECT_EQ(a.result, 0);
}

TEST(PathAlgebra, AppendPathFailsOnDotsGluedToAName)
{
    appended a = append("a/b", "..x", false);
    EXPECT_EQ(a.result, 0);
}

TEST(PathAlgebra, AppendPathLeavesDstUnchangedOnFailure)
{
    appended a = append("a/b", "../../../c", true);
    EXPECT_EQ(a.dst, "a/b");
}

TEST(PathAlgebra, AppendPathWritesTheBackslashThatDstEndsIn)
{
    appended a = append("a\\b\\", "c", false);
    EXPECT_EQ(a.dst, "a\\b\\c");
}

TEST(PathAlgebra, AppendPathWritesTheSlashThatDstEndsIn)
{
    appended a = append("a/b/", "c", false);
    EXPECT_EQ(a.dst, "a/b/c");
}

TEST(PathAlgebra, AppendPathWritesTheDefaultSeparatorBehindABareDst)
{
    appended a = append("a\\b", "c", false);
    EXPECT_EQ(a.dst, std::string("a\\b") + path_algebra::separator + "c");
}

TEST(PathAlgebra, AppendPathCountsAClimbThatEndsThePath)
{
    appended a = append("a/b", "..", true);
    EXPECT_EQ(a.result, 1);
}

TEST(PathAlgebra, AppendPathCountsAClimbInsideThePath)
{
    appended a = append("a", "x/../../y", true);
    EXPECT_EQ(a.result, 1);
}

TEST(PathAlgebra, AppendPathGivesMinusOneForADescentThatNeverClimbs)
{
    appended a = append("a", "x/../y", true);
    EXPECT_EQ(a.result, -1);
}

TEST(PathAlgebra, AppendPathKeepsTheRootSlashThroughAClimb)
{
    appended a = append("/a", "../b", true);
    EXPECT_EQ(a.dst, "/b");
}

TEST(PathAlgebra, AppendPathFailsToClimbAboveTheRootSlash)
{
    appended a = append("/", "../b", true);
    EXPECT_EQ(a.result, 0);
}

TEST(PathAlgebra, AppendPathReplacesDstByAnAbsolutePath)
{
    appended a = append("a/b", "C:\\x", true);
    EXPECT_EQ(a.dst, "C:\\x");
}

TEST(PathAlgebra, AppendPathGivesOneForAnAbsolutePath)
{
    appended a = append("a/b", "C:/x", false);
    EXPECT_EQ(a.result, 1);
}

TEST(PathAlgebra, CompactPathFailsToClimbAboveADriveRoot)
{
    compacted c = compact("C:\\a\\..\\..", 0);
    EXPECT_FALSE(c.ok);
}

TEST(PathAlgebra, CompactPathLeavesThePathUnchangedOnFailure)
{
    compacted c = compact("C:\\a\\.\\..\\..", '/');
    EXPECT_EQ(c.path, "C:\\a\\.\\..\\..");
}

TEST(PathAlgebra, CompactPathRefusesADriveRelativePath)
{
    compacted c = compact("C:a\\b", 0);
    EXPECT_FALSE(c.ok);
}

TEST(PathAlgebra, CompactPathKeepsARelativeClimbAboveTheStart)
{
    compacted c = compact("../a", 0);
    EXPECT_EQ(c.path, "../a");
}

TEST(PathAlgebra, CompactPathRewritesEverySeparatorByTheReplacement)
{
    compacted c = compact("C:\\a\\\\b/c", '/');
    EXPECT_EQ(c.path, "C:/a/b/c");
}

TEST(PathAlgebra, IsSubpathComparesCaseSensitively)
{
    token path = "A/b/c";
    EXPECT_FALSE(path_algebra::is_subpath("a/b", path));
}

TEST(PathAlgebra, IsSubpathLeavesPathAtWhatFollowsTheRoot)
{
    token path = "a/b/c/d";
    ASSERT_TRUE(path_algebra::is_subpath("a/b", path));
    EXPECT_EQ(str(path), "c/d");
}

TEST(PathAlgebra, IsSubpathLeavesPathUnchangedOnFailure)
{
    token path = "a/c";
    ASSERT_FALSE(path_algebra::is_subpath("a/b", path));
    EXPECT_EQ(str(path), "a/c");
}

TEST(PathAlgebra, GetRelativePathIgnoresCase)
{
    charstr out;
    ASSERT_TRUE(path_algebra::get_relative_path("A/B", "a/b/c", out, false));
    EXPECT_EQ(str(out), "c");
}

TEST(PathAlgebra, GetRelativePathFailsWithADriveOnOneSideOnly)
{
    charstr out;
    EXPECT_FALSE(path_algebra::get_relative_path("C:/a", "a", out, false));
}

TEST(PathAlgebra, GetRelativePathFailsWhenTheSourceClimbsAboveItsStart)
{
    charstr out;
    EXPECT_FALSE(path_algebra::get_relative_path("a/../..", "a", out, false));
}

TEST(PathAlgebra, GetRelativePathTakesTheSourceFileNameForNoLevel)
{
    charstr out;
    ASSERT_TRUE(path_algebra::get_relative_path("a/b/f.txt", "a/c/g.txt", out, true));
    EXPECT_EQ(str(out), sys("..%c/g.txt"));
}

// -- The table --------------------------------------------------------------------

namespace {

enum class op {
    absolute,        // is_absolute_path(a): result 1 or 0
    subpath,         // is_subpath(a, b): result 1 or 0, text: the remainder on 1
    append,          // append_path(a, b, false): result, text: dst
    append_checked,  // append_path(a, b, true)
    compact,         // compact_path(a, 0): result 1 or 0, text: the path
    compact_slash,   // compact_path(a, '/')
    compact_back,    // compact_path(a, '\\')
    relative,        // get_relative_path(a, b, out, false): result 1 or 0, text: out on 1
    relative_file,   // get_relative_path(a, b, out, true)
};

struct algebra_case
{
    const char* name;
    op what;
    const char* a;
    const char* b;
    int result;
    const char* text; // null: not compared; "%" is the system's separator
    bool slash_root = false; // rests on a leading "/" being the root
};

const algebra_case algebra_cases[] = {
    {"AbsDrive", op::absolute, "C:", "", 1, nullptr},
    {"AbsDriveRelative", op::absolute, "C:x", "", 1, nullptr},
    {"AbsUnc", op::absolute, "\\\\srv\\share", "", 1, nullptr},
    {"AbsSlashRoot", op::absolute, "/x", "", 1, nullptr, true},
    {"AbsOneBackslash", op::absolute, "\\x", "", 0, nullptr},
    {"AbsDoubleSlashIsTheRoot", op::absolute, "//x", "", 1, nullptr, true},
    {"AbsOneLetter", op::absolute, "a", "", 0, nullptr},
    {"AbsSeparatorBeforeColonIsNoDrive", op::absolute, "\\:x", "", 0, nullptr},

    {"SubBelow", op::subpath, "a/b", "a/b/c", 1, "c"},
    {"SubRunsCutAsOne", op::subpath, "a/b", "a//b/c/d", 1, "c/d"},
    {"SubMixedSeparators", op::subpath, "a\\b", "a/b\\c", 1, "c"},
    {"SubSameButLonger", op::subpath, "a/b", "a/bc", 0, nullptr},
    {"SubShorterPath", op::subpath, "a/b/c", "a/b", 0, nullptr},
    {"SubEmptyRootHoldsAll", op::subpath, "", "x/y", 1, "x/y"},
    {"SubTrailingSeparatorOfRoot", op::subpath, "a/b/", "a/b", 1, ""},
    {"SubSlashRoot", op::subpath, "/", "/x/y", 1, "x/y"},
    {"SubRootedAgainstRelative", op::subpath, "/a", "a/x", 0, nullptr},
    {"SubCaseMatters", op::subpath, "a/B", "a/b/c", 0, nullptr},

    {"AppPlain", op::append, "a/b", "c", -1, "a/b%c"},
    {"AppBackslashTrailing", op::append, "a\\b\\", "c\\d", -1, "a\\b\\c\\d"},
    {"AppClimbTakesFoundSeparator", op::append, "a\\b", "..\\c", -1, "a\\c"},
    {"AppClimbTwice", op::append_checked, "a/b", "../../c", 1, "c"},
    {"AppClimbTooFar", op::append_checked, "a/b", "../../../c", 0, "a/b"},
    {"AppClimbToEmpty", op::append_checked, "a", "..", 1, ""},
    {"AppClimbSkipsOneSeparator", op::append, "a/b", "..//c", -1, "a//c"},
    {"AppInnerDescentNoClimb", op::append_checked, "a", "x/../y", -1, "a%x/../y"},
    {"AppInnerClimb", op::append_checked, "a", "x/../../y", 1, "a%x/../../y"},
    {"AppDotStays", op::append_checked, "a", "./x", -1, "a%./x"},
    {"AppThreeDotsFail", op::append_checked, "a", "...", 0, "a"},
    {"AppDriveReplaces", op::append_checked, "a", "C:/x", 1, "C:/x"},
    {"AppUncReplaces", op::append_checked, "a", "\\\\srv\\share", 1, "\\\\srv\\share"},
    {"AppSlashRootReplaces", op::append, "a", "/x", 1, "/x", true},
    {"AppOneBackslashIsRelative", op::append_checked, "a", "\\x", -1, "a%\\x"},
    {"AppOntoSlashRoot", op::append_checked, "/", "x", -1, "/x"},
    {"AppClimbToSlashRoot", op::append_checked, "/a", "../x", 1, "/x"},
    {"AppClimbAboveSlashRoot", op::append_checked, "/", "../x", 0, "/"},
    {"AppOntoEmpty", op::append, "", "x", -1, "x"},
    {"AppEmptyOntoEmpty", op::append, "", "", -1, ""},
    {"AppEmptyAddsSeparator", op::append, "a", "", -1, "a%"},
    {"AppClimbStopsAtDriveRoot", op::append_checked, "C:\\a", "../..", 0, "C:\\a"},
    {"AppClimbToDriveRoot", op::append_checked, "C:\\a", "../b", 1, "C:\\b"},
    {"AppOntoBareUnc", op::append_checked, "\\\\", "x", -1, "\\\\x"},
    {"AppClimbStopsAtUncStart", op::append_checked, "\\\\srv", "../..", 0, "\\\\srv"},
    {"AppOntoDriveAlone", op::append_checked, "C:", "x", -1, "C:%x"},

    {"CmpRunShrinks", op::compact, "a//b", "", 1, "a/b"},
    {"CmpRunReplaced", op::compact_back, "a//b", "", 1, "a\\b"},
    {"CmpDotGoes", op::compact, "a/./b", "", 1, "a/b"},
    {"CmpDotDotUndoes", op::compact, "a/b/../c", "", 1, "a/c"},
    {"CmpDriveClimbFails", op::compact, "C:/..", "", 0, "C:/.."},
    {"CmpRelativeClimbStays", op::compact, "../a", "", 1, "../a"},
    {"CmpClimbPastStart", op::compact, "a/../../b", "", 1, "../b"},
    {"CmpAllUndone", op::compact, "a/..", "", 1, ""},
    {"CmpLeadingDot", op::compact, "./a", "", 1, "a"},
    {"CmpTrailingDotDot", op::compact, "a/b/..", "", 1, "a"},
    {"CmpTrailingRunKept", op::compact_slash, "a\\\\/b\\", "", 1, "a/b/"},
    {"CmpEmpty", op::compact, "", "", 1, ""},
    {"CmpDriveAlone", op::compact, "C:", "", 1, "C:"},
    {"CmpDriveRelative", op::compact, "C:x", "", 0, "C:x"},
    {"CmpDriveSeparatorReplaced", op::compact_slash, "C:\\a\\.\\b", "", 1, "C:/a/b"},
    {"CmpSlashRootClimbFails", op::compact, "/a/../..", "", 0, "/a/../..", true},
    {"CmpSlashRootKept", op::compact_back, "//a/./b/", "", 1, "/a\\b\\"},
    {"CmpUncUndo", op::compact, "\\\\srv\\share\\..", "", 1, "\\\\srv"},
    {"CmpUncClimbFails", op::compact, "\\\\srv\\..\\..", "", 0, "\\\\srv\\..\\.."},
    {"CmpOneBackslashStays", op::compact_slash, "\\a\\..\\..", "", 1, "\\.."},
    {"CmpSeparatorBeforeColon", op::compact, "\\:x/..", "", 1, "\\"},
    {"CmpSegmentMovedOverItsOldPlace", op::compact, "..//x./../c", "", 1, "../c"},
    {"CmpKeptClimbNotUndone", op::compact, "../../a/..", "", 1, "../.."},

    {"RelSibling", op::relative, "a/b", "a/c", 1, "..%c"},
    {"RelBelow", op::relative, "a/b/", "a/b/c/d", 1, "c/d"},
    {"RelAbove", op::relative, "a/b/c", "a", 1, "..%..%"},
    {"RelSame", op::relative, "a/b", "a/b", 1, ""},
    {"RelIgnoresCase", op::relative, "A/B", "a/b/c", 1, "c"},
    {"RelMixedSeparators", op::relative, "a\\b", "a/c", 1, "..%c"},
    {"RelFileSibling", op::relative_file, "a/f.txt", "a/g.txt", 1, "g.txt"},
    {"RelDriveOneSide", op::relative, "C:/a", "b", 0, nullptr},
    {"RelRootOneSide", op::relative, "/a", "b", 0, nullptr},
    {"RelBothRooted", op::relative, "/a/b", "/c", 1, "..%..%c"},
    {"RelSameDrive", op::relative, "C:/a/b", "c:/a/x", 1, "..%x"},
    {"RelSourceClimbUndoes", op::relative, "a/b/../c", "a/x", 1, "..%x"},
    {"RelSourceClimbReenters", op::relative, "a/..", "a/x", 1, "a/x"},
    {"RelSourceClimbThenDescends", op::relative, "a/../b", "a/x", 1, "..%a/x"},
    {"RelSourceClimbsTooFar", op::relative, "..", "x", 0, nullptr},
    {"RelDotChangesNothing", op::relative, "a/./b", "a/c", 1, "..%c"},
};

// Runs one case; the result, and the text that the case compares.
int run(const algebra_case& c, std::string& text)
{
    switch (c.what) {
    case op::absolute:
        return path_algebra::is_absolute_path(token(c.a)) ? 1 : 0;
    case op::subpath: {
        token path(c.b);
        bool ok = path_algebra::is_subpath(token(c.a), path);
        text = str(path);
        return ok ? 1 : 0;
    }
    case op::append:
    case op::append_checked: {
        appended a = append(c.a, c.b, c.what == op::append_checked);
        text = a.dst;
        return a.result;
    }
    case op::compact:
    case op::compact_slash:
    case op::compact_back: {
        char replacement = c.what == op::compact ? 0 : c.what == op::compact_slash ? '/' : '\\';
        compacted r = compact(c.a, replacement);
        text = r.path;
        return r.ok ? 1 : 0;
    }
    case op::relative:
    case op::relative_file: {
        charstr out;
        bool ok = path_algebra::get_relative_path(token(c.a), token(c.b), out, c.what == op::relative_file);
        text = str(out);
        return ok ? 1 : 0;
    }
    }
    return -2;
}

class PathAlgebraTable : public ::testing::TestWithParam<algebra_case> {};

} // namespace

TEST_P(PathAlgebraTable, GivesTheExpectedResultAndText)
{
    const algebra_case& c = GetParam();
    if (c.slash_root && !slash_is_root)
        GTEST_SKIP() << no_slash_root;
    std::string text;
    int result = run(c, text);
    EXPECT_EQ(result, c.result) << c.a << " | " << c.b;
    if (c.text) {
        EXPECT_EQ(text, sys(c.text)) << c.a << " | " << c.b;
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, PathAlgebraTable, ::testing::ValuesIn(algebra_cases),
                         [](const ::testing::TestParamInfo<algebra_case>& info) { return std::string(info.param.name); });
