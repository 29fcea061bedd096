#include "comm/token.h"

#include "comm/commassert.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using velk::substring;
using velk::token;
using velk::tokenhash;
using velk::testing::log_capture;

namespace {

std::string str(const token& t) { return std::string(t.begin(), t.end()); }

// Literal checks that fail report through the assertion handler; these tests
// keep going instead of trapping.
class TokenLiteral : public ::testing::Test
{
protected:
    void SetUp() override { velk::assert_set_break(0); }
    void TearDown() override { velk::assert_set_break(1); }
    log_capture log;
};

} // namespace

TEST_F(TokenLiteral, EmptyLiteralIsEmptyWithoutAssertion)
{
    token t("");
    EXPECT_TRUE(t.is_empty());
    EXPECT_FALSE(t.is_null());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(TokenLiteral, BufferWithTrailingZerosAssertsOnceAndIsRepaired)
{
    char buf[8] = "abc";
    token t(buf);
    EXPECT_EQ(t.lens(), 3u);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find("Assertion failed in token(2721), function velk::token::fix_literal_length:\n\"0\""),
              std::string::npos)
        << log.lines()[0];
}

TEST_F(TokenLiteral, BufferWithoutZeroAssertsAndKeepsAllButLastByte)
{
    char buf[8];
    memset(buf, 'x', sizeof buf);
    token t(buf);
    EXPECT_EQ(t.lens(), 7u);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(TokenLiteral, WellFormedLiteralIsNotReported)
{
    token t("abc");
    EXPECT_EQ(t.lens(), 3u);
    EXPECT_TRUE(log.lines().empty());
}

TEST(TokenDeath, BadLiteralTrapsWithBreakSet)
{
    EXPECT_DEATH(
        {
            char buf[4] = "a";
            token t(buf);
            (void)t;
        },
        "");
}

TEST(Token, DefaultIsNull)
{
    token t;
    EXPECT_TRUE(t.is_null());
    EXPECT_TRUE(t.is_empty());
    EXPECT_EQ(t.first_char(), 0);
}

TEST(Token, NullPointerGivesDefault)
{
    const char* p = nullptr;
    EXPECT_TRUE(token(p).is_null());
}

TEST(Token, ZeroTerminatedPointerIsScanned)
{
    const char* p = "hello";
    EXPECT_EQ(token(p).lens(), 5u);
}

TEST(Token, EqualityComparesBytesNotPointers)
{
    const char a[] = "xy", b[] = "xy";
    EXPECT_TRUE(token(a) == token(b));
    EXPECT_FALSE(token("xy") == token("xz"));
    EXPECT_FALSE(token("xy") == token("xyz"));
}

TEST(Token, EmptyTokensAreEqualWhereverTheyPoint)
{
    const char* text = "abc";
    EXPECT_TRUE(token(text, text) == token(text + 2, text + 2));
    EXPECT_TRUE(token() == token(""));
}

TEST(Token, FirstCharOfEmptyIsZero)
{
    const char* text = "abc";
    EXPECT_EQ(token(text, text).first_char(), 0);
    EXPECT_EQ(token(text).first_char(), 'a');
}

TEST(Token, EndsWithIcaseComparesTheEndWithoutCase)
{
    EXPECT_TRUE(token("script.JS").ends_with_icase(".js"));
    EXPECT_FALSE(token("js").ends_with_icase("a.js"));
    EXPECT_TRUE(token("abc").ends_with_icase(""));
}

TEST(Token, ConsumePrefixIcaseMovesOnMatchOnly)
{
    token t("File:///x");
    EXPECT_TRUE(t.consume_prefix_icase("file://"));
    EXPECT_EQ(str(t), "/x");
    EXPECT_FALSE(t.consume_prefix_icase("/y"));
    EXPECT_EQ(str(t), "/x");
}

TEST(Token, ConsumeLongerPrefixFails)
{
    token t("ab");
    EXPECT_FALSE(t.consume_prefix_icase("abc"));
    EXPECT_EQ(str(t), "ab");
}

TEST(Token, ConsumeEmptyPrefixSucceedsWithoutMoving)
{
    token t("ab");
    EXPECT_TRUE(t.consume_prefix_icase(""));
    EXPECT_EQ(str(t), "ab");
}

TEST(Token, TouintReadsDigitsUpToRadix)
{
    EXPECT_EQ(token("3445205045").touint(), 3445205045ull);
    EXPECT_EQ(token("12ab").touint(), 12u);
    EXPECT_EQ(token("ff").touint(16), 255u);
    EXPECT_EQ(token("x1").touint(), 0u);
    EXPECT_EQ(token("").touint(), 0u);
}

// -- Cuts ------------------------------------------------------------------

TEST(TokenCut, GroupWithFlags17ReturnsFileName)
{
    token t("a/b/c");
    EXPECT_EQ(str(t.cut_back_at_group("\\/", 17)), "c");
    EXPECT_EQ(str(t), "a/b");
}

TEST(TokenCut, NotFoundWithFlags17ReturnsAllAndEmptiesAtStart)
{
    const char* text = "abc";
    token t(text);
    EXPECT_EQ(str(t.cut_back_at_group("\\/", 17)), "abc");
    EXPECT_TRUE(t.is_empty());
    EXPECT_EQ(t.ptr(), text);
}

TEST(TokenCut, NotFoundWithFlags9ReturnsEmptyAndKeepsAll)
{
    token t("abc");
    token r = t.cut_back_at_group("\\/", 9);
    EXPECT_TRUE(r.is_empty());
    EXPECT_EQ(str(t), "abc");
}

TEST(TokenCut, NotFoundWithFlags8PlacesEmptyPartBySide)
{
    const char* text = "abc";
    token left(text);
    EXPECT_EQ(left.cut_back_at('/', 8).ptr(), text);
    token right(text);
    EXPECT_EQ(right.cut_back_at('/', 8 | 16).ptr(), text + 3);
}

TEST(TokenCut, NotFoundWithoutFlag8EmptiesRemainderAtEnd)
{
    const char* text = "abc";
    token t(text);
    EXPECT_EQ(str(t.cut_back_at('/', 0)), "abc");
    EXPECT_EQ(t.ptr(), text + 3);
}

TEST(TokenCut, GroupRunDroppedWithFlags1)
{
    token t("a//b");
    EXPECT_EQ(str(t.cut_back_at_group("\\/", 1)), "a");
    EXPECT_EQ(str(t), "b");
}

TEST(TokenCut, GroupWithFlags0TakesLastCharacterOnly)
{
    token t("a//b");
    EXPECT_EQ(str(t.cut_back_at_group("\\/", 0)), "a/");
    EXPECT_EQ(str(t), "/b");
}

TEST(TokenCut, GroupWithFlags4KeepsSeparatorWithReturned)
{
    token t("a//b");
    EXPECT_EQ(str(t.cut_back_at_group("\\/", 4)), "a//");
    EXPECT_EQ(str(t), "b");
}

TEST(TokenCut, GroupWithFlags2MergesRunIntoRemainder)
{
    token t("a//b");
    EXPECT_EQ(str(t.cut_back_at_group("\\/", 2)), "a");
    EXPECT_EQ(str(t), "//b");
}

TEST(TokenCut, AllSeparatorsWithFlags1LeaveTwoEmptySides)
{
    token t("///");
    token r = t.cut_back_at_group("\\/", 1);
    EXPECT_TRUE(r.is_empty());
    EXPECT_TRUE(t.is_empty());
}

TEST(TokenCut, OneCharacterGroupNeverMergesRuns)
{
    token t("a//b");
    EXPECT_EQ(str(t.cut_back_at_group("/", 2)), "a/");
    EXPECT_EQ(str(t), "/b");
}

TEST(TokenCut, EmptyGroupFindsNothing)
{
    token t("a/b");
    EXPECT_EQ(str(t.cut_back_at_group(token(""), 9)), "");
    EXPECT_EQ(str(t), "a/b");
}

TEST(TokenCut, AtCharacterWithFlags17GivesTypeName)
{
    token t("xt::hostprobe_plugin");
    EXPECT_EQ(str(t.cut_back_at(':', 17)), "hostprobe_plugin");
    EXPECT_EQ(str(t), "xt:");
}

TEST(TokenCut, AtCharacterWithFlags12KeepsSeparatorWithDirectory)
{
    token t("dir/file");
    EXPECT_EQ(str(t.cut_back_at('/', 12)), "dir/");
    EXPECT_EQ(str(t), "file");
}

TEST(TokenCut, AtCharacterWithFlags16KeepsSeparatorWithRemainder)
{
    token t("dir/file");
    EXPECT_EQ(str(t.cut_back_at('/', 16)), "file");
    EXPECT_EQ(str(t), "dir/");
}

TEST(TokenCut, SubstringMatchesDoNotOverlap)
{
    token t("aaa");
    EXPECT_EQ(str(t.cut_back_at_substring("aa", false, 1)), "");
    EXPECT_EQ(str(t), "a");
}

TEST(TokenCut, SubstringTakesLastMatch)
{
    token t("a::b::c");
    EXPECT_EQ(str(t.cut_back_at_substring("::", false, 17)), "c");
    EXPECT_EQ(str(t), "a::b");
}

TEST(TokenCut, SubstringIcaseFindsEitherCase)
{
    token t("oneSEPtwo");
    EXPECT_EQ(str(t.cut_back_at_substring("sep", true, 17)), "two");
    EXPECT_EQ(str(t), "one");
}

TEST(TokenCut, SubstringNotFoundFollowsFlags)
{
    token t("abc");
    EXPECT_EQ(str(t.cut_back_at_substring("::", false, 9)), "");
    EXPECT_EQ(str(t), "abc");
}

// -- Hash ------------------------------------------------------------------

TEST(TokenHash, HashGivesTheFnv1aValuesOfKnownTexts)
{
    EXPECT_EQ(token("metastream").hash(), 0xC2A7D608u);
    EXPECT_EQ(token("").hash(), 0x811C9DC5u);
}

TEST(TokenHash, LiteralHashIsComputedAtCompileTime)
{
    constexpr tokenhash h("metastream");
    static_assert(h.hash() == 0xC2A7D608u);
    EXPECT_EQ(tokenhash().hash(), 0x811C9DC5u);
}

TEST(TokenHash, HighBytesAreSignExtended)
{
    const char text[] = "\x80";
    // FNV-1a of a sign-extended 0x80: the upper 24 bits are flipped too.
    uint32_t expected = (0x811C9DC5u ^ 0xFFFFFF80u) * 0x01000193u;
    EXPECT_EQ(token(text).hash(), expected);
}

TEST(TokenHash, RunTimeAgreesWithCompileTime)
{
    constexpr tokenhash h("xt::hostprobe_plugin");
    std::string copy = "xt::hostprobe_plugin";
    EXPECT_EQ(token(copy.data(), copy.size()).hash(), h.hash());
}

// -- substring -------------------------------------------------------------

TEST(Substring, SchemeSeparatorIsFoundAtItsOffset)
{
    EXPECT_EQ(token("ab://c").find(substring::scheme_separator()), 2u);
}

TEST(Substring, SchemeSeparatorMissingGivesLength)
{
    EXPECT_EQ(token("ab:/c/").find(substring::scheme_separator()), 6u);
}

TEST(Substring, StartOffsetAtEndGivesLength)
{
    EXPECT_EQ(token("ab://c").find(substring::scheme_separator(), 6), 6u);
    EXPECT_EQ(token("ab://c").find(substring::scheme_separator(), 60), 6u);
}

TEST(Substring, OneCharacterPatternIsFoundFromTheStartOffset)
{
    substring s("c", 1, false);
    EXPECT_EQ(token("abcabc").find(s, 3), 5u);
    EXPECT_EQ(token("ab").find(s), 2u);
}

TEST(Substring, OneCharacterIcasePatternFindsItsCharacter)
{
    substring s("C", 1, true);
    EXPECT_EQ(token("abCd").find(s), 2u);
}

TEST(Substring, IcaseMatchesFoldedText)
{
    substring s("needle", 6, true);
    EXPECT_EQ(token("haystack with NEEDLE in it").find(s), 14u);
}

TEST(Substring, RepreparingReplacesThePattern)
{
    substring s("abc", 3, false);
    s.set("xyz", 3, false);
    EXPECT_EQ(token("abcxyz").find(s), 3u);
}

TEST(Substring, MatchesStdSearchOnManyTexts)
{
    const std::string text = "the quick brown fox jumps over the lazy dog; the dog sleeps";
    for (const char* pat : {"the", "dog", "o", "fox j", "sleeps", "cat", "g; t", "zz"}) {
        substring s(pat, strlen(pat), false);
        for (uint32_t off = 0; off <= text.size(); off += 7) {
            size_t want = text.find(pat, off);
            if (want == std::string::npos)
                want = text.size();
            EXPECT_EQ(token(text.data(), text.size()).find(s, off), want) << pat << " @" << off;
        }
    }
}
