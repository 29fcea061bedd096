// regex: the edge cases one fact per test, failures with their words, the
// sub-match slots, one program on several threads, and long inputs that
// would make a backtracking matcher give up. The table of constructs is in
// regex_table_test.cpp.
#include "comm/regex/regex.h"

#include "comm/exception.h"
#include "comm/regex/regex_program.h"
#include "comm/regex/regex_scratch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using velk::regex;
using velk::token;

namespace {

token tok(std::string_view s) { return token(s.data(), s.size()); }

// Offset of t in text, or -1 for a null token.
long offset(const token& t, std::string_view text) { return t.ptr() ? t.ptr() - text.data() : -1; }

std::string compile_error(std::string_view pattern)
{
    regex re;
    try {
        re.compile(tok(pattern));
    } catch (const velk::exception& e) {
        return e.what();
    }
    return "compiled";
}

// Every instruction reachable from first, through next and left.
std::vector<const velk::regex_inst*> reachable(const velk::regex_program& prog)
{
    std::vector<const velk::regex_inst*> seen;
    std::vector<const velk::regex_inst*> todo{prog.first};
    while (!todo.empty()) {
        const velk::regex_inst* in = todo.back();
        todo.pop_back();
        if (!in || std::find(seen.begin(), seen.end(), in) != seen.end())
            continue;
        seen.push_back(in);
        todo.push_back(in->next);
        if (in->type == velk::op_or)
            todo.push_back(in->left);
    }
    return seen;
}

} // namespace

// -- The empty pattern and the empty regex -----------------------------------------

TEST(Regex, EmptyPatternCompilesToEndAlone)
{
    regex re;
    re.compile("");
    ASSERT_EQ(re.program()->insts.size(), 1u);
    EXPECT_EQ(re.program()->first->type, velk::op_end);
}

TEST(Regex, EmptyPatternMatchesEmptyTokenAtStart)
{
    regex re;
    re.compile("");
    std::string_view text = "abc";
    token t = re.find(tok(text));
    EXPECT_EQ(t.ptr(), text.data());
    EXPECT_TRUE(t.is_empty());
}

TEST(Regex, MatchWithoutProgramGivesEmptyToken)
{
    regex re;
    std::string_view text = "abc";
    token t = re.match(tok(text));
    EXPECT_EQ(t.ptr(), text.data());
    EXPECT_TRUE(t.is_empty());
}

TEST(Regex, FindAndLeadingWithoutProgramGiveEmptyTokenAtStart)
{
    regex re;
    std::string_view text = "abc";
    EXPECT_EQ(re.find(tok(text)).ptr(), text.data());
    EXPECT_TRUE(re.find(tok(text)).is_empty());
    EXPECT_EQ(re.leading(tok(text)).ptr(), text.data());
    EXPECT_TRUE(re.leading(tok(text)).is_empty());
}

TEST(Regex, NoMatchGivesNullToken)
{
    regex re;
    re.compile("x");
    EXPECT_TRUE(re.find("abc").is_null());
}

// -- Failures with their words -------------------------------------------------------

TEST(Regex, StarWithoutOperandFails) { EXPECT_EQ(compile_error("*"), "missing operand for *"); }
TEST(Regex, PlusWithoutOperandFails) { EXPECT_EQ(compile_error("+"), "missing operand for +"); }
TEST(Regex, QuestWithoutOperandFails) { EXPECT_EQ(compile_error("?"), "missing operand for ?"); }
TEST(Regex, RepetitionBeforeOperandFails) { EXPECT_EQ(compile_error("+a"), "missing operand for +"); }
TEST(Regex, GroupAfterOperandWithEmptyBranchFails) { EXPECT_EQ(compile_error("a(b|)"), "missing operand for "); }
TEST(Regex, EmptyGroupFails) { EXPECT_EQ(compile_error("()"), "missing operand for ("); }
TEST(Regex, DoubleBarFails) { EXPECT_EQ(compile_error("a||b"), "missing operand for |"); }
TEST(Regex, BarAtEndFails) { EXPECT_EQ(compile_error("a|"), "missing operand for |"); }
TEST(Regex, BarAtStartFails) { EXPECT_EQ(compile_error("|a"), "missing operand for |"); }
TEST(Regex, BarAtGroupStartFails) { EXPECT_EQ(compile_error("(|a)"), "missing operand for |"); }
TEST(Regex, LoneOpenParenIsUnmatched) { EXPECT_EQ(compile_error("("), "unmatched left paren"); }
TEST(Regex, OpenGroupAtEndIsUnmatched) { EXPECT_EQ(compile_error("(a"), "unmatched left paren"); }
TEST(Regex, NestedOpenGroupIsUnmatched) { EXPECT_EQ(compile_error("((a)"), "unmatched left paren"); }

// A pattern that ends inside a group names the open group before any operand
// it lacks. Evaluating first would make even a lone "(" a "missing operand
// for (", which must be "unmatched left paren"; one rule gives all of them
// the same answer.
TEST(Regex, StarRightAfterAnOpenGroupAtTheEndIsTheUnmatchedParenSinceTheGroupIsCheckedFirst)
{
    EXPECT_EQ(compile_error("(*"), "unmatched left paren");
}
TEST(Regex, TwoOpenGroupsAtTheEndAreTheUnmatchedParenSinceTheGroupIsCheckedFirst)
{
    EXPECT_EQ(compile_error("(("), "unmatched left paren");
}
TEST(Regex, AlternativeLeftOpenInAGroupIsTheUnmatchedParenSinceTheGroupIsCheckedFirst)
{
    EXPECT_EQ(compile_error("(a|"), "unmatched left paren");
}
TEST(Regex, LoneCloseParenIsUnmatched) { EXPECT_EQ(compile_error(")"), "unmatched right paren"); }
TEST(Regex, ExtraCloseParenIsUnmatched) { EXPECT_EQ(compile_error("(a))"), "unmatched right paren"); }
TEST(Regex, CloseParenAfterOperandIsUnmatched) { EXPECT_EQ(compile_error("a)"), "unmatched right paren"); }
TEST(Regex, OpenBracketAloneIsMalformed) { EXPECT_EQ(compile_error("["), "malformed '[]'"); }
TEST(Regex, UnclosedClassIsMalformed) { EXPECT_EQ(compile_error("[a"), "malformed '[]'"); }
TEST(Regex, RangeWithoutLowerBoundIsMalformed) { EXPECT_EQ(compile_error("[-a]"), "malformed '[]'"); }
TEST(Regex, RangeWithoutUpperBoundIsMalformed) { EXPECT_EQ(compile_error("[a-]"), "malformed '[]'"); }
TEST(Regex, RangeCutOffByEndIsMalformed) { EXPECT_EQ(compile_error("[a-"), "malformed '[]'"); }
TEST(Regex, RangeUpToZeroIsMalformed) { EXPECT_EQ(compile_error(std::string_view("[a-\0]", 5)), "malformed '[]'"); }
TEST(Regex, QuotedEndInClassIsMalformed) { EXPECT_EQ(compile_error("[\\"), "malformed '[]'"); }
TEST(Regex, NegatedClassCutOffIsMalformed) { EXPECT_EQ(compile_error("[^"), "malformed '[]'"); }

TEST(Regex, FailedCompileLeavesRegexAsItWas)
{
    regex re;
    re.compile("abc");
    const velk::regex_program* before = re.program();
    EXPECT_THROW(re.compile("(abc"), velk::exception);
    EXPECT_EQ(re.program(), before);
    EXPECT_EQ(re.match("abc").lens(), 3u);
}

TEST(Regex, FailedCompileLeavesNothingForNextCompile)
{
    // The compiler's stacks belong to the thread; a failure must not leave an
    // operand that the next compile takes for its start.
    regex bad;
    EXPECT_THROW(bad.compile("a)"), velk::exception);
    regex re;
    re.compile("b");
    EXPECT_EQ(re.match("b").lens(), 1u);
    EXPECT_TRUE(re.match("a").is_null());
}

TEST(Regex, BadPatternsFailWithAnExceptionNeverACrash)
{
    const char* bad[] = {"*",   "+a",  "?",   "(",     ")",     "((",   "))",     "(*)",  "a|*", "[",
                         "[]]]", "[a-", "[^", "a(b|)", "x**(", "|||", "(a|b))", "[z-", "\\(", "[\\]"};
    for (const char* p : bad) {
        regex re;
        try {
            re.compile(p);
        } catch (const velk::exception& e) {
            EXPECT_STRNE(e.what(), "") << p;
        }
    }
    // Two compile: "[]]]" (an empty class and two brackets) and "\\(" (a
    // quoted paren).
    int failures = 0;
    for (const char* p : bad)
        failures += compile_error(p) != "compiled";
    EXPECT_EQ(failures, 18);
}

// -- Reading the pattern ---------------------------------------------------------------

TEST(Regex, QuotedParenMatchesAParenthesis)
{
    regex re;
    re.compile("\\(");
    std::string_view text = "a(b";
    EXPECT_EQ(offset(re.find(tok(text)), text), 1);
}

TEST(Regex, BackslashNIsTheLetterN)
{
    regex re;
    re.compile("\\n");
    EXPECT_EQ(re.match("n").lens(), 1u);
    EXPECT_TRUE(re.find("\n").is_null());
}

TEST(Regex, ZeroInPatternEndsIt)
{
    regex re;
    re.compile(tok(std::string_view("ab\0cd", 5)));
    EXPECT_EQ(re.match("ab").lens(), 2u);
}

TEST(Regex, BackslashAtEndIsIgnored)
{
    regex re;
    re.compile("a\\");
    EXPECT_EQ(re.match("a").lens(), 1u);
}

TEST(Regex, JoinPointsAreUnreachableAfterCompile)
{
    regex re;
    re.compile("(a|b)?c|d?");
    for (const velk::regex_inst* in : reachable(*re.program()))
        EXPECT_NE(in->type, velk::op_nop);
}

TEST(Regex, ConstructorTakesDotAllBeforeIgnoreCase)
{
    regex dot_all(".", false, true, false);
    std::string_view zero("\0", 1);
    EXPECT_EQ(dot_all.match(tok(zero)).lens(), 1u);
    EXPECT_TRUE(dot_all.match("A").lens() == 1u);
    regex icase("a", false, false, true);
    EXPECT_EQ(icase.match("A").lens(), 1u);
    EXPECT_TRUE(icase.match(tok(zero)).is_null());
}

TEST(Regex, CompileReplacesTheProgram)
{
    regex re;
    re.compile("a");
    re.compile("b");
    EXPECT_TRUE(re.match("a").is_null());
    EXPECT_EQ(re.match("b").lens(), 1u);
}

TEST(Regex, MovedRegexKeepsTheProgram)
{
    regex a;
    a.compile("x+");
    regex b(std::move(a));
    EXPECT_FALSE(a.is_compiled());
    EXPECT_EQ(b.match("xxx").lens(), 3u);
}

// -- Matching ----------------------------------------------------------------------------

TEST(Regex, LongestAlternativeWinsNotFirst)
{
    regex re;
    re.compile("a|ab");
    EXPECT_EQ(re.find("ab").lens(), 2u);
}

TEST(Regex, DotMatchesNewlineByDefault)
{
    regex re;
    re.compile(".");
    EXPECT_EQ(re.match("\n").lens(), 1u);
}

TEST(Regex, NegatedClassNeverMatchesNewline)
{
    regex re;
    re.compile("[^a]");
    EXPECT_TRUE(re.find("\n").is_null());
}

TEST(Regex, DefaultDotRefusesZeroCharacter)
{
    regex re;
    re.compile("a.c");
    EXPECT_TRUE(re.find(tok(std::string_view("a\0c", 3))).is_null());
}

TEST(Regex, FullMatchStoppedEarlyGivesEmptyTokenThere)
{
    regex re;
    re.compile("a*");
    std::string_view text = "aab";
    token t = re.match(tok(text));
    EXPECT_EQ(offset(t, text), 2);
    EXPECT_TRUE(t.is_empty());
}

TEST(Regex, FullMatchOfWholeInputGivesItAll)
{
    regex re;
    re.compile("a*");
    std::string_view text = "aa";
    token t = re.match(tok(text));
    EXPECT_EQ(offset(t, text), 0);
    EXPECT_EQ(t.lens(), 2u);
}

TEST(Regex, FullMatchKeepsShorterMatchWhenAThreadLivedToTheEnd)
{
    // match looks only at where the scan stopped: ".*" kept a thread alive up
    // to the end, so the match of everything but the "x" stands.
    regex re;
    re.compile(".*@creator\\.js");
    std::string_view text = "xt::a.create@creator.jsx";
    token t = re.match(tok(text));
    EXPECT_EQ(offset(t, text), 0);
    EXPECT_EQ(t.lens(), text.size() - 1);
}

TEST(Regex, IgnoreCaseMatchesEitherCaseOfCharacters)
{
    regex re;
    re.compile("AbC", false, true);
    EXPECT_EQ(re.match("abc").lens(), 3u);
    EXPECT_EQ(re.match("ABC").lens(), 3u);
}

TEST(Regex, IgnoreCaseRangeMatchesUpperCase)
{
    regex re;
    re.compile("[a-c]", false, true);
    EXPECT_EQ(re.match("B").lens(), 1u);
}

TEST(Regex, IgnoreCaseSingleClassCharactersDoNotFold)
{
    regex re;
    re.compile("[abc]", false, true);
    EXPECT_TRUE(re.match("B").is_null());
}

TEST(Regex, IgnoreCaseOneLetterRangeFolds)
{
    regex re;
    re.compile("[a-a]", false, true);
    EXPECT_EQ(re.match("A").lens(), 1u);
}

TEST(Regex, LineStartHintJumpsBehindTheNextNewline)
{
    std::string_view text = "x\na";
    regex re;
    re.compile("^a");
    EXPECT_EQ(offset(re.find(tok(text)), text), 2);
}

TEST(Regex, LineStartHintLooksPastANewlineJustPassed)
{
    // Once no thread is alive, the hint scans for the next newline from where
    // the scan stands; a line that starts right there is passed over.
    regex re;
    re.compile("^a");
    EXPECT_TRUE(re.find("\na").is_null());
}

TEST(Regex, MeetingThreadsKeepTheLaterStart)
{
    // Two alternatives on one instruction are one thread, and the later
    // arrival's start wins: the start thread of a later round comes last.
    regex re;
    re.compile("(ab)?c");
    std::string_view text = "abc";
    token t = re.find(tok(text));
    EXPECT_EQ(offset(t, text), 2);
    EXPECT_EQ(t.lens(), 1u);
}

TEST(Regex, LoopAtPatternStartKeepsItsStart)
{
    // A start thread on an instruction that already has a thread does not
    // displace it.
    regex re;
    re.compile("a*b");
    std::string_view text = "aab";
    token t = re.find(tok(text));
    EXPECT_EQ(offset(t, text), 0);
    EXPECT_EQ(t.lens(), 3u);
}

// -- A character cut off by the end of the input --------------------------------------

TEST(Regex, CutOffCharacterEndsFullMatchThere)
{
    regex re;
    re.compile("a.*");
    std::string_view text = "a\xC3";
    token t = re.match(tok(text));
    EXPECT_EQ(offset(t, text), 1);
    EXPECT_TRUE(t.is_empty());
}

TEST(Regex, CutOffCharacterEndsLeadingMatch)
{
    regex re;
    re.compile("a[^x]*");
    std::string_view text = "ab\xE2\x82";
    token t = re.leading(tok(text));
    EXPECT_EQ(offset(t, text), 0);
    EXPECT_EQ(t.lens(), 2u);
}

TEST(Regex, CutOffCharacterEndsFindWithoutMatch)
{
    // No start hint here, so every round adds a start thread; the round on
    // the cut-off character is the last one, as it cannot advance.
    regex re;
    re.compile("[x]");
    EXPECT_TRUE(re.find("ab\xF0\x9F").is_null());
}

TEST(Regex, CutOffCharacterEndsFindOfRepetition)
{
    regex re;
    re.compile("b[^a]*c");
    EXPECT_TRUE(re.find("ab\xF0\x9F\x98").is_null());
}

TEST(Regex, MatchBeforeCutOffCharacterIsFound)
{
    regex re;
    re.compile("[ab]+");
    std::string_view text = "xab\xC3";
    token t = re.find(tok(text));
    EXPECT_EQ(offset(t, text), 1);
    EXPECT_EQ(t.lens(), 2u);
}

TEST(Regex, StrayByteIsOneCharacter)
{
    regex re;
    re.compile("a.b");
    EXPECT_EQ(re.match("a\x80" "b").lens(), 3u);
}

// -- Sub-matches --------------------------------------------------------------------------

TEST(Regex, SlotZeroHasNullBeginAndTrueEnd)
{
    regex re;
    re.compile("b+");
    std::string_view text = "abbc";
    token subs[1];
    token t = re.find(tok(text), subs, 1);
    EXPECT_EQ(offset(t, text), 1);
    EXPECT_TRUE(subs[0].ptr() == nullptr);
    EXPECT_EQ(subs[0].ptre(), text.data() + 3);
}

TEST(Regex, GroupsFillSlotsInOrderOfTheirParen)
{
    regex re;
    re.compile("(a)((b)c)");
    std::string_view text = "xabc";
    token subs[4];
    re.find(tok(text), subs, 4);
    EXPECT_EQ(offset(subs[1], text), 1);
    EXPECT_EQ(subs[1].lens(), 1u);
    EXPECT_EQ(offset(subs[2], text), 2);
    EXPECT_EQ(subs[2].lens(), 2u);
    EXPECT_EQ(offset(subs[3], text), 2);
    EXPECT_EQ(subs[3].lens(), 1u);
}

TEST(Regex, GroupOfUntakenAlternativeStaysNull)
{
    regex re;
    re.compile("(a)|(b)");
    std::string_view text = "b";
    token subs[3];
    re.match(tok(text), subs, 3);
    EXPECT_TRUE(subs[1].is_null());
    EXPECT_EQ(offset(subs[2], text), 0);
    EXPECT_EQ(subs[2].lens(), 1u);
}

TEST(Regex, SlotsBeyondTheGroupsStayNull)
{
    regex re;
    re.compile("(a)");
    token subs[4] = {token("x"), token("x"), token("x"), token("x")};
    re.match("a", subs, 4);
    EXPECT_TRUE(subs[2].is_null());
    EXPECT_TRUE(subs[3].is_null());
}

TEST(Regex, FewerSlotsThanGroupsFillOnlyThose)
{
    regex re;
    re.compile("(a)(b)");
    std::string_view text = "ab";
    token subs[2];
    EXPECT_EQ(re.match(tok(text), subs, 2).lens(), 2u);
    EXPECT_EQ(offset(subs[1], text), 0);
}

TEST(Regex, RepeatedGroupHoldsItsLastRound)
{
    regex re;
    re.compile("(a|b)*c");
    std::string_view text = "abbac";
    token subs[2];
    re.match(tok(text), subs, 2);
    EXPECT_EQ(offset(subs[1], text), 3);
    EXPECT_EQ(subs[1].lens(), 1u);
}

TEST(Regex, SlotsAreClearedWhenNothingMatches)
{
    regex re;
    re.compile("(a)");
    token subs[2] = {token("x"), token("x")};
    EXPECT_TRUE(re.find("bbb", subs, 2).is_null());
    EXPECT_TRUE(subs[0].is_null());
    EXPECT_TRUE(subs[1].is_null());
}

// -- Long inputs: no backtracking ---------------------------------------------------------

TEST(Regex, NestedStarOverLongInputWithoutMatchEnds)
{
    regex re;
    re.compile("(a*)*b");
    std::string text(100000, 'a');
    EXPECT_TRUE(re.find(tok(text)).is_null());
}

TEST(Regex, NestedPlusOverLongInputMatchesWhole)
{
    regex re;
    re.compile("(a+a+)+");
    std::string text(100000, 'a');
    EXPECT_EQ(re.match(tok(text)).lens(), 100000u);
}

TEST(Regex, LongAlternationOfGroupsOverLongInputEnds)
{
    regex re;
    re.compile("(a|aa|aaa)*x");
    std::string text(50000, 'a');
    EXPECT_TRUE(re.match(tok(text)).is_null());
}

// -- The memo of anchored runs -----------------------------------------------------------

// match and leading without slots go through the per-thread memo of states;
// with a slot they go through the rounds. Both must give the same, for every
// pattern of up to three pieces over every text of a and b up to six long.
TEST(Regex, AnchoredRunsAgreeWithAndWithoutSlots)
{
    const char* pieces[] = {"a", "b", ".", "[ab]", "[^a]", "(a|b)", "(ab)", "a*", "b+", "(a|ab)?", "x", "(b*a)*"};
    std::vector<std::string> texts{""};
    for (size_t from = 0; texts.back().size() < 6; ) {
        size_t to = texts.size();
        for (size_t i = from; i < to; ++i) {
            texts.push_back(texts[i] + "a");
            texts.push_back(texts[i] + "b");
        }
        from = to;
    }
    int runs = 0;
    int differ = 0;
    for (const char* p1 : pieces)
        for (const char* p2 : pieces)
            for (const char* p3 : pieces) {
                regex re;
                re.compile(token((std::string(p1) + p2 + p3).c_str()));
                for (const std::string& text : texts) {
                    token in = tok(text);
                    token subs[1];
                    token a = re.match(in);
                    token b = re.match(in, subs, 1);
                    token c = re.leading(in);
                    token d = re.leading(in, subs, 1);
                    differ += a.ptr() != b.ptr() || a.ptre() != b.ptre();
                    differ += c.ptr() != d.ptr() || c.ptre() != d.ptre();
                    runs += 2;
                }
            }
    EXPECT_EQ(differ, 0);
    EXPECT_EQ(runs, 12 * 12 * 12 * 127 * 2);
}

TEST(Regex, MemoSurvivesSwitchingPrograms)
{
    regex a;
    a.compile("x[0-9]+");
    regex b;
    b.compile("[a-z]+");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(a.match("x42").lens(), 3u);
        EXPECT_TRUE(b.match("x42").is_empty());
        EXPECT_EQ(b.match("abc").lens(), 3u);
    }
}

TEST(Regex, ProgramNeedingManyStatesStillMatches)
{
    // (a|b)*a(a|b)^11: the memo would need thousands of states; past its
    // limit the rounds take over with the same result.
    regex re;
    re.compile("(a|b)*a(a|b)(a|b)(a|b)(a|b)(a|b)(a|b)(a|b)(a|b)(a|b)(a|b)(a|b)");
    std::mt19937 random(7);
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += random() & 1 ? 'a' : 'b';
    text += "abbbbbbbbbbb";
    token subs[1];
    token memo = re.match(tok(text));
    EXPECT_TRUE(velk::regex_scratch_of_thread().dfa.given_up);
    token rounds = re.match(tok(text), subs, 1);
    EXPECT_EQ(memo.lens(), text.size());
    EXPECT_EQ(rounds.lens(), text.size());
}

// -- One program, several threads -------------------------------------------------------

TEST(Regex, OneProgramRunsOnSeveralThreadsAtOnce)
{
    regex re;
    re.compile("xt::[a-z_]+[0-9]*(@wrapper|\\.create@[0-9]+)");
    std::vector<std::string> keys;
    std::vector<bool> expected;
    for (int i = 0; i < 200; ++i) {
        switch (i % 3) {
        case 0: keys.push_back("xt::iface" + std::to_string(i) + "@wrapper"); expected.push_back(true); break;
        case 1: keys.push_back("xt::iface" + std::to_string(i) + ".create@" + std::to_string(i * 7)); expected.push_back(true); break;
        default: keys.push_back("xt::js::iface" + std::to_string(i) + ".create"); expected.push_back(false); break;
        }
    }
    std::atomic<int> wrong{0};
    std::atomic<int> done{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round)
                for (size_t i = 0; i < keys.size(); ++i) {
                    token whole = re.match(tok(keys[i]));
                    bool hit = !whole.is_empty() && whole.lens() == keys[i].size();
                    if (hit != expected[i])
                        ++wrong;
                    ++done;
                }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(done.load(), 4 * 50 * 200);
}

TEST(Regex, RecompileKeepsTheReplacedProgramBehindTheNewOne)
{
    regex re;
    re.compile("a+");
    const velk::regex_program* first = re.program();
    re.compile("b+");
    EXPECT_EQ(re.program()->superseded, first);
}

TEST(Regex, ReplacedProgramStaysWholeForRunsBegunOnIt)
{
    regex re;
    re.compile("a");
    const velk::regex_program* first = re.program();
    re.compile("b");
    // What a run that started on the first program goes on reading.
    ASSERT_EQ(first->first->type, velk::op_char);
    EXPECT_EQ(first->first->rune, static_cast<uint32_t>('a'));
}

TEST(Regex, RunAfterRecompileUsesTheNewProgram)
{
    regex re;
    re.compile("a+");
    re.compile("b+");
    std::string_view text = "xaby";
    EXPECT_EQ(offset(re.find(tok(text)), text), 2);
}

TEST(Regex, RunsDuringRecompilesEachSeeOneWholeProgram)
{
    // "a+" finds the "a" at 1, "b+" the "b" at 2; anything else would be a
    // run that saw part of one program and part of another.
    std::string_view text = "xaby";
    regex re;
    re.compile("a+");
    std::atomic<bool> compiling{true};
    std::atomic<int> wrong{0};
    std::atomic<int> runs{0};
    std::vector<std::thread> runners;
    for (int t = 0; t < 2; ++t)
        runners.emplace_back([&] {
            do {
                token found = re.find(tok(text));
                long at = offset(found, text);
                if (found.lens() != 1 || (at != 1 && at != 2))
                    ++wrong;
                ++runs;
            } while (compiling.load());
        });
    for (int round = 0; round < 2000; ++round)
        re.compile(round % 2 ? "a+" : "b+");
    compiling = false;
    for (std::thread& t : runners)
        t.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GT(runs.load(), 0);
}

TEST(Regex, ThreadsCompileAndMatchTheirOwnPatternsAtOnce)
{
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            std::string letter(1, static_cast<char>('a' + t));
            for (int round = 0; round < 300; ++round) {
                regex re;
                re.compile(token(("(" + letter + ")+x|y").c_str()));
                std::string text = letter + letter + "x";
                token subs[2];
                if (re.match(tok(text), subs, 2).lens() != 3 || subs[1].lens() != 1)
                    ++wrong;
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(wrong.load(), 0);
}
