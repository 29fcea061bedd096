#include "comm/charstr.h"

#include "tests/support/array_requests.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

using velk::array_request;
using velk::charstr;
using velk::comm_array_allocator;
using velk::token;
using velk::testing::array_requests;

namespace {

std::string str(const charstr& s) { return std::string(s.c_str(), s.lens()); }

// The count word of the buffer, terminator included; 0 for null.
uint64_t count_of(const charstr& s) { return comm_array_allocator::count(s.ptr()); }
uint64_t capacity_of(const charstr& s) { return comm_array_allocator::size(s.ptr()); }

// Appends 'x' until the count reaches the capacity: the next growth is due.
void fill_to_capacity(charstr& s)
{
    while (count_of(s) < capacity_of(s))
        s << 'x';
}

// The count asked for by the one request recorded, or 0 if not exactly one.
uint64_t only_ask(const array_requests& r)
{
    std::vector<array_requests::request> asks = r.asks();
    EXPECT_EQ(asks.size(), 1u);
    return asks.size() == 1 ? asks[0].count : 0;
}

charstr reset_string()
{
    charstr s("abc");
    s.reset();
    return s;
}

} // namespace

// -- Edge cases -------------------------------------------------------------------

TEST(Charstr, DefaultHasZeroLength)
{
    charstr s;
    EXPECT_EQ(s.lens(), 0u);
}

TEST(Charstr, DefaultHasNullBuffer)
{
    charstr s;
    EXPECT_EQ(s.ptr(), nullptr);
}

TEST(Charstr, DefaultCStrIsAValidEmptyText)
{
    charstr s;
    ASSERT_NE(s.c_str(), nullptr);
    EXPECT_STREQ(s.c_str(), "");
}

TEST(CharstrReset, KeepsTheBuffer)
{
    charstr s("hello");
    const char* buffer = s.ptr();
    s.reset();
    EXPECT_EQ(s.ptr(), buffer);
}

TEST(CharstrReset, SetsTheCountToZero)
{
    charstr s("hello");
    s.reset();
    EXPECT_EQ(count_of(s), 0u);
}

TEST(CharstrReset, CStrIsTheStaticEmptyText)
{
    charstr s("hello");
    s.reset();
    EXPECT_NE(s.c_str(), s.ptr());
    EXPECT_EQ(s.c_str(), charstr().c_str());
}

TEST(CharstrReset, ZeroesTheFirstBufferByte)
{
    charstr s("hello");
    s.reset();
    EXPECT_EQ(s.ptr()[0], 0);
}

TEST(CharstrAppendChar, ToResetStringUsesTheOldBuffer)
{
    charstr s = reset_string();
    const char* buffer = s.ptr();
    array_requests requests;
    s << 'a';
    EXPECT_TRUE(requests.list().empty());
    EXPECT_EQ(s.ptr(), buffer);
    EXPECT_EQ(str(s), "a");
}

TEST(CharstrAppendChar, ToResetStringMakesCountTwo)
{
    charstr s = reset_string();
    s << 'a';
    EXPECT_EQ(count_of(s), 2u);
}

TEST(CharstrAppendChar, ZeroDoesNothing)
{
    charstr s("ab");
    const char* buffer = s.ptr();
    s << '\0';
    EXPECT_EQ(count_of(s), 3u);
    EXPECT_EQ(s.ptr(), buffer);
    EXPECT_EQ(str(s), "ab");
}

TEST(CharstrAppendToken, EmptyTokenToNullLeavesNull)
{
    charstr s;
    array_requests requests;
    s << token();
    s << token("");
    EXPECT_EQ(s.ptr(), nullptr);
    EXPECT_TRUE(requests.list().empty());
}

TEST(CharstrCountOne, AppendOverwritesTheLoneTerminator)
{
    charstr s("x");
    s.resize(0);
    ASSERT_EQ(count_of(s), 1u);
    s << "ab";
    EXPECT_EQ(count_of(s), 3u);
    EXPECT_EQ(str(s), "ab");
}

TEST(CharstrCountOne, AssignedToAnotherStringResetsIt)
{
    charstr one("x");
    one.resize(0);
    ASSERT_EQ(count_of(one), 1u);
    charstr target("text");
    const char* buffer = target.ptr();
    target = one;
    EXPECT_EQ(count_of(target), 0u);
    EXPECT_EQ(target.ptr(), buffer);
}

TEST(CharstrResize, AtTheLengthChangesNoLength)
{
    charstr s("abc");
    s.resize(3);
    EXPECT_EQ(str(s), "abc");
}

TEST(CharstrResize, AboveTheLengthChangesNoLength)
{
    charstr s("abc");
    s.resize(10);
    EXPECT_EQ(s.lens(), 3u);
    EXPECT_EQ(count_of(s), 4u);
}

TEST(CharstrResize, MinusOneRemovesTheLastCharacter)
{
    charstr s("abc");
    s.resize(-1);
    EXPECT_EQ(str(s), "ab");
    EXPECT_EQ(s.ptr()[2], 0);
}

TEST(CharstrResize, MinusTheLengthEmpties)
{
    charstr s("abc");
    s.resize(-3);
    EXPECT_EQ(s.lens(), 0u);
    EXPECT_EQ(count_of(s), 0u);
}

TEST(CharstrResize, BelowMinusTheLengthEmpties)
{
    charstr s("abc");
    s.resize(-100);
    EXPECT_EQ(s.lens(), 0u);
}

TEST(CharstrResize, MostNegativeValueEmpties)
{
    charstr s("abc");
    s.resize(std::numeric_limits<int32_t>::min());
    EXPECT_EQ(s.lens(), 0u);
}

TEST(CharstrInsert, AtMinusOneGoesBeforeTheLastCharacter)
{
    charstr s("abc");
    EXPECT_TRUE(s.insert(-1, "X"));
    EXPECT_EQ(str(s), "abXc");
}

TEST(CharstrInsert, AtTheLengthAppends)
{
    charstr s("abc");
    EXPECT_TRUE(s.insert(3, "X"));
    EXPECT_EQ(str(s), "abcX");
}

TEST(CharstrInsert, BeyondTheLengthGivesFalse)
{
    charstr s("abc");
    EXPECT_FALSE(s.insert(4, "X"));
    EXPECT_EQ(str(s), "abc");
}

// -- Growth rules ---------------------------------------------------------------------

TEST(CharstrGrowth, AppendToAFullStringRequestsHalfAgain)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    uint64_t c = count_of(s);
    array_requests requests;
    s << "y";
    EXPECT_EQ(only_ask(requests), c + c / 2);
    EXPECT_EQ(requests.asks()[0].kind, array_request::realloc);
}

TEST(CharstrGrowth, LongAppendToAFullStringRequestsTheNewCount)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    uint64_t c = count_of(s);
    std::string piece(c, 'p');
    array_requests requests;
    s << token(piece.data(), piece.size());
    EXPECT_EQ(only_ask(requests), c + c);
}

TEST(CharstrGrowth, AppendKeepsTheText)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    std::string before = str(s);
    s << "yz";
    EXPECT_EQ(str(s), before + "yz");
}

TEST(CharstrGrowth, AppendWithinCapacityMakesNoRequest)
{
    charstr s("abcdefghij");
    s.resize(2);
    array_requests requests;
    s << "cdefgh";
    EXPECT_TRUE(requests.list().empty());
}

TEST(CharstrGrowth, AppendCharToNullRequestsTwo)
{
    charstr s;
    array_requests requests;
    s << 'a';
    EXPECT_EQ(only_ask(requests), 2u);
}

TEST(CharstrGrowth, AppendCharToAFullStringRequestsHalfAgain)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    uint64_t c = count_of(s);
    array_requests requests;
    s << 'y';
    EXPECT_EQ(only_ask(requests), c + c / 2);
}

TEST(CharstrGrowth, AssignmentAboveCapacityRequestsTwiceTheCount)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    uint64_t c = count_of(s);
    std::string text(c, 't'); // count c + 1: above the capacity, below 2c
    array_requests requests;
    s = token(text.data(), text.size());
    ASSERT_FALSE(requests.asks().empty());
    EXPECT_EQ(requests.asks().back().count, 2 * c);
    EXPECT_EQ(str(s), text);
}

TEST(CharstrGrowth, AssignmentFarAboveCapacityRequestsTheNewCount)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    uint64_t c = count_of(s);
    std::string text(3 * c, 't');
    array_requests requests;
    s = token(text.data(), text.size());
    ASSERT_FALSE(requests.asks().empty());
    EXPECT_EQ(requests.asks().back().count, 3 * c + 1);
}

TEST(CharstrGrowth, AssignmentThatGrowsNeverReallocates)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    std::string text(count_of(s), 't');
    array_requests requests;
    s = token(text.data(), text.size());
    for (const array_requests::request& r : requests.list())
        EXPECT_NE(r.kind, array_request::realloc);
}

TEST(CharstrGrowth, AssignmentWithinTheCountMakesNoRequest)
{
    charstr s("hello world");
    const char* buffer = s.ptr();
    array_requests requests;
    s = "hi";
    EXPECT_TRUE(requests.list().empty());
    EXPECT_EQ(s.ptr(), buffer);
    EXPECT_EQ(count_of(s), 3u);
}

TEST(CharstrGrowth, AssignmentWithinCapacityMakesNoRequest)
{
    charstr s("abcdefgh");
    s = "ab";
    array_requests requests;
    s = "abcdefgh";
    EXPECT_TRUE(requests.list().empty());
    EXPECT_EQ(str(s), "abcdefgh");
}

TEST(CharstrGrowth, LiteralConstructionRequestsLengthAndTerminator)
{
    array_requests requests;
    charstr s("abc");
    EXPECT_EQ(only_ask(requests), 4u);
}

TEST(CharstrGrowth, InsertIntoAFullStringRequestsTwiceTheCount)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    uint64_t c = count_of(s);
    array_requests requests;
    s.insert(0, "z");
    EXPECT_EQ(only_ask(requests), 2 * c);
    EXPECT_EQ(requests.asks()[0].kind, array_request::realloc);
}

TEST(CharstrGrowth, LongInsertIntoAFullStringRequestsTheNewCount)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    uint64_t c = count_of(s);
    std::string piece(2 * c, 'p');
    array_requests requests;
    s.insert(1, token(piece.data(), piece.size()));
    EXPECT_EQ(only_ask(requests), 3 * c);
}

TEST(CharstrGrowth, CopyRequestsExactlyTheSourceCount)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    array_requests requests;
    charstr copy(s);
    EXPECT_EQ(only_ask(requests), count_of(s));
}

// -- Construction and the token ----------------------------------------------------------

TEST(CharstrConstruct, EmptyLiteralAllocatesNothing)
{
    array_requests requests;
    charstr s("");
    EXPECT_EQ(s.ptr(), nullptr);
    EXPECT_TRUE(requests.list().empty());
}

TEST(CharstrConstruct, NegativeLengthScansForTheZero)
{
    const char* text = "scanned";
    charstr s(text, -1);
    EXPECT_EQ(str(s), "scanned");
}

TEST(CharstrConstruct, NullTextWithNegativeLengthStaysNull)
{
    charstr s(nullptr, -1);
    EXPECT_EQ(s.ptr(), nullptr);
}

TEST(CharstrConstruct, ZeroLengthStaysNull)
{
    charstr s("abc", 0);
    EXPECT_EQ(s.ptr(), nullptr);
}

TEST(CharstrConstruct, GivenLengthTakesOnlyThat)
{
    charstr s("abcdef", 2);
    EXPECT_EQ(str(s), "ab");
    EXPECT_EQ(count_of(s), 3u);
}

TEST(CharstrConstruct, FromTokenCopiesTheText)
{
    std::string text = "from token";
    charstr s(token(text.data(), text.size()));
    text[0] = 'X';
    EXPECT_EQ(str(s), "from token");
}

TEST(CharstrConstruct, FromEmptyTokenStaysNull)
{
    charstr s{token("")};
    EXPECT_EQ(s.ptr(), nullptr);
}

TEST(CharstrToken, FirstIsTheBuffer)
{
    charstr s("abc");
    token t = s;
    EXPECT_EQ(t.ptr(), s.ptr());
}

TEST(CharstrToken, EndExcludesTheTerminator)
{
    charstr s("abc");
    token t = s;
    EXPECT_EQ(t.ptre(), s.ptr() + 3);
    EXPECT_EQ(t.lens(), 3u);
}

TEST(CharstrToken, OfNullStringIsNull)
{
    charstr s;
    token t = s;
    EXPECT_TRUE(t.is_null());
    EXPECT_TRUE(t.is_empty());
}

TEST(CharstrToken, OfResetStringIsEmptyAtTheBuffer)
{
    charstr s = reset_string();
    token t = s;
    EXPECT_EQ(t.ptr(), s.ptr());
    EXPECT_TRUE(t.is_empty());
}

// -- Appends --------------------------------------------------------------------------

TEST(CharstrAppend, PiecesChain)
{
    charstr s;
    s << "key" << '=' << token("value") << charstr("!");
    EXPECT_EQ(str(s), "key=value!");
}

TEST(CharstrAppend, TerminatorFollowsTheText)
{
    charstr s("abc");
    s << "de";
    EXPECT_EQ(s.ptr()[5], 0);
    EXPECT_EQ(count_of(s), 6u);
}

TEST(CharstrAppend, ZeroTerminatedPointerIsScanned)
{
    std::string text = "tail";
    charstr s("head-");
    s << text.c_str();
    EXPECT_EQ(str(s), "head-tail");
}

TEST(CharstrAppend, NullPointerIsIgnored)
{
    charstr s("a");
    const char* none = nullptr;
    s << none;
    EXPECT_EQ(str(s), "a");
}

TEST(CharstrAppend, ItselfDoublesTheText)
{
    charstr s("abc");
    fill_to_capacity(s);
    std::string before = str(s);
    s << s;
    EXPECT_EQ(str(s), before + before);
}

TEST(CharstrAppend, EmptyCharstrDoesNothing)
{
    charstr s("a");
    charstr empty;
    s << empty;
    EXPECT_EQ(count_of(s), 2u);
}

TEST(CharstrAppend, BufferGivesTheOldTerminatorsPlace)
{
    charstr s("abc");
    char* p = s.append_buffer(2);
    EXPECT_EQ(p, s.ptr() + 3);
    EXPECT_EQ(p[2], 0);
}

TEST(CharstrAppend, ManySingleCharsReadBack)
{
    charstr s;
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        char c = static_cast<char>('a' + i % 26);
        s << c;
        expected += c;
    }
    EXPECT_EQ(str(s), expected);
}

// -- Numbers ----------------------------------------------------------------------------

TEST(CharstrNumber, ZeroIsOneDigit)
{
    charstr s;
    s << 0;
    EXPECT_EQ(str(s), "0");
}

TEST(CharstrNumber, NegativeInt32HasASign)
{
    charstr s;
    s << int32_t(-1234);
    EXPECT_EQ(str(s), "-1234");
}

TEST(CharstrNumber, MostNegativeInt64ComesOutInFull)
{
    charstr s;
    s << std::numeric_limits<int64_t>::min();
    EXPECT_EQ(str(s), "-9223372036854775808");
}

TEST(CharstrNumber, LargestUint64ComesOutInFull)
{
    charstr s;
    s << std::numeric_limits<uint64_t>::max();
    EXPECT_EQ(str(s), "18446744073709551615");
}

TEST(CharstrNumber, Uint16IsDecimal)
{
    charstr s;
    s << uint16_t(65535);
    EXPECT_EQ(str(s), "65535");
}

TEST(CharstrNumber, Uint32IsDecimal)
{
    charstr s("n=");
    s << 4000000000u;
    EXPECT_EQ(str(s), "n=4000000000");
}

TEST(CharstrFloat, PositiveDecimalsDropTrailingZeros)
{
    charstr s;
    s.append_float(1.5, 2);
    EXPECT_EQ(str(s), "1.5");
}

TEST(CharstrFloat, NegativeDecimalsAreExact)
{
    charstr s;
    s.append_float(1.5, -2);
    EXPECT_EQ(str(s), "1.50");
}

TEST(CharstrFloat, WholeValueKeepsOneDecimal)
{
    charstr s;
    s.append_float(2.0, 3);
    EXPECT_EQ(str(s), "2.0");
}

TEST(CharstrFloat, NegativeValueHasASign)
{
    charstr s("v=");
    s.append_float(-0.25, 2);
    EXPECT_EQ(str(s), "v=-0.25");
}

TEST(CharstrFloat, RoundsToTheDecimalsAsked)
{
    charstr s;
    s.append_float(2.675, -1);
    EXPECT_EQ(str(s), "2.7");
}

TEST(CharstrFloat, HugeValueStaysWithinTheWidth)
{
    charstr s("[");
    s.append_float(1e300, 2, 8);
    EXPECT_LE(s.lens(), 1u + 8u);
    EXPECT_GT(s.lens(), 1u);
    EXPECT_EQ(s.ptr()[s.lens()], 0);
}

TEST(CharstrFloat, HugeValueTakesAnExponentForm)
{
    charstr s;
    s.append_float(1e300, 2, 8);
    EXPECT_NE(std::string(s.c_str()).find('e'), std::string::npos) << s.c_str();
}

TEST(CharstrFloat, NoRoomAtAllGivesQuestionMarks)
{
    charstr s;
    s.append_float(1e300, 2, 3);
    EXPECT_EQ(str(s), "???");
}

TEST(CharstrFloat, DefaultWidthIsDecimalsPlusFour)
{
    charstr s;
    s.append_float(123456.0, -2); // "123456.00" needs 9 > 6: fewer decimals
    EXPECT_EQ(str(s), "123456");
}

TEST(CharstrFloat, StreamedDoubleUsesTenDecimals)
{
    charstr s;
    s << 0.125;
    EXPECT_EQ(str(s), "0.125");
}

TEST(CharstrFloat, CutBackKeepsTheTextBefore)
{
    charstr s("t=");
    s.append_float(1.5, 6, 20);
    EXPECT_EQ(str(s), "t=1.5");
    EXPECT_EQ(count_of(s), 6u);
}

TEST(CharstrFloat, GivenWidthBoundsTheText)
{
    charstr s;
    s.append_float(3.14159265358979, -10, 6);
    EXPECT_EQ(str(s), "3.1416");
}

TEST(CharstrFloat, StreamedFloatUsesSixDecimals)
{
    charstr s;
    s << 0.1f;
    EXPECT_EQ(str(s), "0.1");
}

TEST(CharstrNumber, EveryIntegerTypeIsDecimal)
{
    charstr s;
    s << static_cast<signed char>(-5) << ' ' << static_cast<unsigned char>(200) << ' ' << short(-300) << ' '
      << static_cast<unsigned short>(60000) << ' ' << -123456789012LL << ' ' << 123456789012ULL;
    EXPECT_EQ(str(s), "-5 200 -300 60000 -123456789012 123456789012");
}

TEST(CharstrNumber, AppendNumGivesWhereTheDigitsEnd)
{
    charstr s("x=");
    EXPECT_EQ(s.append_num(16, 255, 0, 4, velk::align_left), 4u);
    EXPECT_EQ(str(s), "x=ff  ");
}

TEST(CharstrNumber, ThousandsChain)
{
    charstr s;
    s.append_num_thousands(-1234567, ',') << " bytes";
    EXPECT_EQ(str(s), "-1,234,567 bytes");
}

TEST(CharstrNumber, MetricChains)
{
    charstr s("[");
    s.append_num_metric(1234567, 14, 1, ' ') << ']';
    EXPECT_EQ(str(s), "[        1.23 M]");
}

TEST(CharstrNumber, FillAppendsCopies)
{
    charstr s;
    s.append_fill(3, '=') << '>';
    EXPECT_EQ(str(s), "===>");
}

TEST(CharstrNumber, NumberGrowsTheStringOnce)
{
    charstr s("abcdefghij");
    fill_to_capacity(s);
    array_requests requests;
    s << std::numeric_limits<int64_t>::min();
    EXPECT_EQ(requests.asks().size(), 1u);
}

// -- Error codes ------------------------------------------------------------------

TEST(CharstrOpcd, SuccessPrintsOK)
{
    charstr s;
    s << velk::opcd();
    EXPECT_EQ(str(s), "OK");
}

TEST(CharstrOpcd, PlainValuePrintsItsTextAlone)
{
    charstr s;
    s << velk::ers::timeout;
    EXPECT_EQ(str(s), "timeout");
}

TEST(CharstrOpcd, DetailedValuePrintsTextColonAndDetail)
{
    charstr s("e: ");
    s << velk::ers::syntax_expected_string;
    EXPECT_EQ(str(s), "e: syntax error, format invalid : expected string");
}

TEST(CharstrOpcd, UnknownCodePrintsUnknownError)
{
    velk::opcd e;
    e.set_code(65);
    charstr s;
    s << e << '!';
    EXPECT_EQ(str(s), "unknown error!");
}

// -- Editing ------------------------------------------------------------------------------

TEST(CharstrInsert, InTheMiddleMovesTheTail)
{
    charstr s("ad");
    s.insert(1, "bc");
    EXPECT_EQ(str(s), "abcd");
    EXPECT_EQ(count_of(s), 5u);
}

TEST(CharstrInsert, FarNegativePositionGivesFalse)
{
    charstr s("abc");
    EXPECT_FALSE(s.insert(-4, "X"));
}

TEST(CharstrInsert, EmptyTokenChangesNothing)
{
    charstr s("abc");
    EXPECT_TRUE(s.insert(1, token()));
    EXPECT_EQ(count_of(s), 4u);
}

TEST(CharstrDel, RemovesFromThePosition)
{
    charstr s("abcdef");
    EXPECT_TRUE(s.del(1, 2));
    EXPECT_EQ(str(s), "adef");
    EXPECT_EQ(count_of(s), 5u);
}

TEST(CharstrDel, NegativePositionCountsFromTheEnd)
{
    charstr s("abcdef");
    s.del(-2, 2);
    EXPECT_EQ(str(s), "abcd");
}

TEST(CharstrDel, RunningPastTheEndDoesNothing)
{
    charstr s("abcdef");
    EXPECT_FALSE(s.del(4, 3));
    EXPECT_EQ(str(s), "abcdef");
}

TEST(CharstrDel, KeepsTheTerminator)
{
    charstr s("abcdef");
    s.del(3, 3);
    EXPECT_EQ(s.ptr()[3], 0);
}

TEST(CharstrResize, CutsALongerText)
{
    charstr s("abcdef");
    s.resize(2);
    EXPECT_EQ(str(s), "ab");
    EXPECT_EQ(count_of(s), 3u);
}

TEST(CharstrResize, ZeroLeavesTheTerminatorAlone)
{
    charstr s("abc");
    s.resize(0);
    EXPECT_EQ(count_of(s), 1u);
    EXPECT_EQ(s.ptr()[0], 0);
}

TEST(CharstrExternalFill, ResizeToTheReportedLength)
{
    charstr s;
    char* p = s.alloc_buf(16);
    memcpy(p, "written", 7);
    s.resize(7);
    EXPECT_EQ(str(s), "written");
}

TEST(CharstrExternalFill, BufferIsTerminatedAtItsEnd)
{
    charstr s;
    char* p = s.alloc_buf(16);
    EXPECT_EQ(p[16], 0);
    EXPECT_EQ(s.lens(), 16u);
}

TEST(CharstrExternalFill, ResizeAtTheLengthRewritesTheTerminator)
{
    charstr s;
    char* p = s.alloc_buf(4);
    memcpy(p, "fullX", 5); // a routine that wrote over the terminator
    s.resize(4);
    EXPECT_EQ(p[4], 0);
    EXPECT_EQ(str(s), "full");
}

TEST(CharstrExternalFill, CorrectLengthFindsTheFirstZero)
{
    charstr s;
    char* p = s.alloc_buf(16);
    memcpy(p, "os\0junk", 7);
    s.correct_length();
    EXPECT_EQ(str(s), "os");
}

TEST(CharstrExternalFill, FullBufferKeepsItsLength)
{
    charstr s;
    char* p = s.alloc_buf(4);
    memcpy(p, "full", 4);
    s.correct_length();
    EXPECT_EQ(str(s), "full");
}

// -- Comparison, copy and move ----------------------------------------------------------------

TEST(CharstrCompare, EqualTextsAreEqual)
{
    EXPECT_TRUE(charstr("abc") == token("abc"));
    EXPECT_TRUE(charstr("abc") == charstr("abc"));
    EXPECT_TRUE(charstr("abc") == "abc");
}

TEST(CharstrCompare, TokenOnTheLeftCompares)
{
    charstr s("abc");
    EXPECT_TRUE(token("abc") == s);
    EXPECT_FALSE(token("abd") == s);
}

TEST(CharstrCompare, DifferentLengthsDiffer)
{
    EXPECT_FALSE(charstr("abc") == token("ab"));
}

TEST(CharstrCompare, SameLengthDifferentBytesDiffer)
{
    EXPECT_TRUE(charstr("abc") != token("abd"));
}

TEST(CharstrCopy, HasItsOwnBuffer)
{
    charstr s("abc");
    charstr copy(s);
    EXPECT_NE(copy.ptr(), s.ptr());
    EXPECT_EQ(str(copy), "abc");
}

TEST(CharstrCopy, AssignmentCopiesTheText)
{
    charstr s("source"), target("t");
    target = s;
    EXPECT_EQ(str(target), "source");
    EXPECT_NE(target.ptr(), s.ptr());
}

TEST(CharstrCopy, SelfAssignmentKeepsTheText)
{
    charstr s("self");
    charstr& alias = s;
    s = alias;
    EXPECT_EQ(str(s), "self");
}

TEST(CharstrMove, TakesTheBufferAndLeavesNull)
{
    charstr s("moved");
    const char* buffer = s.ptr();
    charstr target(std::move(s));
    EXPECT_EQ(target.ptr(), buffer);
    EXPECT_EQ(s.ptr(), nullptr);
}

TEST(CharstrMove, AssignmentReleasesTheOldBuffer)
{
    charstr s("moved"), target("old");
    array_requests requests;
    target = std::move(s);
    ASSERT_EQ(requests.list().size(), 1u);
    EXPECT_EQ(requests.list()[0].kind, array_request::free);
    EXPECT_EQ(str(target), "moved");
}

TEST(Charstr, IsOnePointerWide)
{
    EXPECT_EQ(sizeof(charstr), sizeof(void*));
}

TEST(Charstr, StringsInADynarrayGrowWithoutLeaks)
{
    velk::dynarray<charstr> names;
    for (int i = 0; i < 100; ++i)
        *names.push() << "name" << i;
    EXPECT_EQ(str(names[99]), "name99");
}

// -- The three empty forms through every operation --------------------------------------------

namespace {

enum class empty_form { null, count0, count1 };

class CharstrEmpty : public ::testing::TestWithParam<empty_form>
{
protected:
    void SetUp() override
    {
        if (GetParam() == empty_form::count0)
            s = reset_string();
        if (GetParam() == empty_form::count1) {
            s = "abc";
            s.resize(0);
        }
        buffer = s.ptr();
        count = count_of(s);
    }

    // Whether the string is still in the form it started in.
    bool unchanged() const { return s.ptr() == buffer && count_of(s) == count; }

    charstr s;
    const char* buffer = nullptr;
    uint64_t count = 0;
};

} // namespace

TEST_P(CharstrEmpty, HasTheExpectedForm)
{
    EXPECT_EQ(buffer == nullptr, GetParam() == empty_form::null);
    EXPECT_EQ(count, GetParam() == empty_form::count1 ? 1u : 0u);
}

TEST_P(CharstrEmpty, LengthIsZero) { EXPECT_EQ(s.lens(), 0u); }

TEST_P(CharstrEmpty, IsEmpty) { EXPECT_TRUE(s.is_empty()); }

TEST_P(CharstrEmpty, CStrIsEmptyText)
{
    ASSERT_NE(s.c_str(), nullptr);
    EXPECT_STREQ(s.c_str(), "");
}

TEST_P(CharstrEmpty, TokenIsEmpty)
{
    token t = s;
    EXPECT_TRUE(t.is_empty());
    EXPECT_EQ(t.ptr(), buffer);
}

TEST_P(CharstrEmpty, EqualsTheEmptyToken)
{
    EXPECT_TRUE(s == token());
    EXPECT_TRUE(s == token(""));
    EXPECT_TRUE(s == "");
}

TEST_P(CharstrEmpty, EqualsANullString) { EXPECT_TRUE(s == charstr()); }

TEST_P(CharstrEmpty, DiffersFromText) { EXPECT_FALSE(s == "a"); }

TEST_P(CharstrEmpty, AppendTokenGivesTheText)
{
    s << token("tok");
    EXPECT_EQ(str(s), "tok");
    EXPECT_EQ(count_of(s), 4u);
}

TEST_P(CharstrEmpty, AppendEmptyTokenKeepsTheForm)
{
    s << token("");
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, AppendCharGivesCountTwo)
{
    s << 'c';
    EXPECT_EQ(str(s), "c");
    EXPECT_EQ(count_of(s), 2u);
}

TEST_P(CharstrEmpty, AppendZeroCharKeepsTheForm)
{
    s << '\0';
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, AppendLiteralGivesTheText)
{
    s << "lit";
    EXPECT_EQ(str(s), "lit");
}

TEST_P(CharstrEmpty, AppendNullPointerKeepsTheForm)
{
    const char* none = nullptr;
    s << none;
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, AppendCharstrGivesTheText)
{
    s << charstr("cs");
    EXPECT_EQ(str(s), "cs");
}

TEST_P(CharstrEmpty, AppendEmptyCharstrKeepsTheForm)
{
    s << charstr();
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, AppendTerminatorOnlyCharstrKeepsTheForm)
{
    charstr one("x");
    one.resize(0);
    s << one;
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, AppendItselfKeepsTheForm)
{
    s << s;
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, AppendIntegerGivesDigits)
{
    s << -42;
    EXPECT_EQ(str(s), "-42");
}

TEST_P(CharstrEmpty, AppendFloatGivesText)
{
    s.append_float(0.5, 1);
    EXPECT_EQ(str(s), "0.5");
}

TEST_P(CharstrEmpty, AppendBufferGivesTheStart)
{
    char* p = s.append_buffer(3);
    memcpy(p, "buf", 3);
    EXPECT_EQ(p, s.ptr());
    EXPECT_EQ(str(s), "buf");
}

TEST_P(CharstrEmpty, AssignTextGivesTheText)
{
    s = "assigned";
    EXPECT_EQ(str(s), "assigned");
}

TEST_P(CharstrEmpty, AssignEmptyTextKeepsItEmpty)
{
    s = token("");
    EXPECT_EQ(s.lens(), 0u);
    EXPECT_EQ(s.ptr(), buffer);
}

TEST_P(CharstrEmpty, AssignedToAStringResetsIt)
{
    charstr target("text");
    const char* target_buffer = target.ptr();
    target = s;
    EXPECT_EQ(count_of(target), 0u);
    EXPECT_EQ(target.ptr(), target_buffer);
}

TEST_P(CharstrEmpty, CopyIsEmpty)
{
    charstr copy(s);
    EXPECT_EQ(copy.lens(), 0u);
    EXPECT_STREQ(copy.c_str(), "");
}

TEST_P(CharstrEmpty, CopyIsNullUnlessTheCountIsOne)
{
    charstr copy(s);
    EXPECT_EQ(copy.ptr() == nullptr, count == 0);
}

TEST_P(CharstrEmpty, ResetLeavesCountZero)
{
    s.reset();
    EXPECT_EQ(count_of(s), 0u);
    EXPECT_EQ(s.ptr(), buffer);
}

TEST_P(CharstrEmpty, InsertAtZeroGivesTheText)
{
    EXPECT_TRUE(s.insert(0, "ins"));
    EXPECT_EQ(str(s), "ins");
    EXPECT_EQ(count_of(s), 4u);
}

TEST_P(CharstrEmpty, InsertAtOneGivesFalse)
{
    EXPECT_FALSE(s.insert(1, "x"));
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, InsertAtMinusOneGivesFalse)
{
    EXPECT_FALSE(s.insert(-1, "x"));
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, DelDoesNothing)
{
    EXPECT_FALSE(s.del(0, 1));
    EXPECT_FALSE(s.del(-1, 1));
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, ResizeOfZeroKeepsTheForm)
{
    s.resize(0);
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, ResizeUpKeepsTheLength)
{
    s.resize(5);
    EXPECT_EQ(s.lens(), 0u);
}

TEST_P(CharstrEmpty, ResizeNegativeLeavesCountZero)
{
    s.resize(-1);
    EXPECT_EQ(count_of(s), 0u);
    EXPECT_EQ(s.ptr(), buffer);
}

TEST_P(CharstrEmpty, AllocBufGivesTerminatedRoom)
{
    char* p = s.alloc_buf(4);
    EXPECT_EQ(p[4], 0);
    EXPECT_EQ(s.lens(), 4u);
}

TEST_P(CharstrEmpty, CorrectLengthKeepsTheForm)
{
    s.correct_length();
    EXPECT_TRUE(unchanged());
}

TEST_P(CharstrEmpty, MoveLeavesTheSourceNull)
{
    charstr target(std::move(s));
    EXPECT_EQ(target.ptr(), buffer);
    EXPECT_EQ(s.ptr(), nullptr);
}

TEST_P(CharstrEmpty, SwapExchangesBuffers)
{
    charstr other("o");
    const char* other_buffer = other.ptr();
    s.swap(other);
    EXPECT_EQ(s.ptr(), other_buffer);
    EXPECT_EQ(other.ptr(), buffer);
}

INSTANTIATE_TEST_SUITE_P(Forms, CharstrEmpty,
                         ::testing::Values(empty_form::null, empty_form::count0, empty_form::count1),
                         [](const ::testing::TestParamInfo<empty_form>& info) {
                             switch (info.param) {
                             case empty_form::null: return "null";
                             case empty_form::count0: return "count0";
                             default: return "count1";
                             }
                         });
