#include "comm/txtconv.h"

#include "comm/charstr.h"
#include "comm/commassert.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

using velk::charstr;
using velk::token;
using velk::testing::log_capture;
namespace conv = velk::charstrconv;

namespace {

std::string str(const charstr& s) { return std::string(s.c_str(), s.lens()); }

// The bytes of the string, zero bytes included (c_str would stop at them).
std::string bytes(const charstr& s) { return s.ptr() ? std::string(s.ptr(), s.lens()) : std::string(); }

// A span of width bytes between guard bytes, to prove that a writer stays
// within [start, end) and says where its text ends.
class guarded_span
{
public:
    static constexpr size_t guard = 32;
    static constexpr char guard_byte = '\xA5';

    explicit guarded_span(size_t width) : _width(width), _buf(width + 2 * guard, guard_byte) {}

    char* start() { return _buf.data() + guard; }
    char* end() { return start() + _width; }

    bool guards_intact() const
    {
        for (size_t i = 0; i < guard; ++i)
            if (_buf[i] != guard_byte || _buf[guard + _width + i] != guard_byte)
                return false;
        return true;
    }

    std::string text(const char* text_end) { return std::string(start(), static_cast<size_t>(text_end - start())); }

private:
    size_t _width;
    std::vector<char> _buf;
};

// append_float into a guarded span of width bytes; the text written.
std::string float_text(double v, int32_t nfrac, size_t width)
{
    guarded_span span(width);
    char* e = conv::append_float(span.start(), span.end(), v, nfrac);
    EXPECT_TRUE(span.guards_intact()) << v << " nfrac " << nfrac << " width " << width;
    EXPECT_GE(e, span.start());
    EXPECT_LE(e, span.end());
    return span.text(e);
}

// append_fixed likewise: the whole span, and where the text ends.
std::string fixed_span(double v, int32_t nfrac, size_t width, int32_t align, size_t* text_len = nullptr)
{
    guarded_span span(width);
    char* e = conv::append_fixed(span.start(), span.end(), v, nfrac, align);
    EXPECT_TRUE(span.guards_intact());
    if (text_len)
        *text_len = static_cast<size_t>(e - span.start());
    return std::string(span.start(), width);
}

std::string num(uint32_t radix, uint64_t magnitude, int32_t sign, uint32_t min_size = 0,
                int32_t align = velk::align_right)
{
    charstr s;
    conv::append_num(s, radix, magnitude, sign, min_size, align);
    return bytes(s);
}

std::string thousands(int64_t v, char separator, uint32_t min_size = 0, int32_t align = velk::align_right)
{
    charstr s;
    conv::append_num_thousands(s, v, separator, min_size, align);
    return bytes(s);
}

std::string metric(int64_t v, uint32_t width, int32_t align, char separator)
{
    charstr s;
    conv::append_num_metric(s, v, width, align, separator);
    return bytes(s);
}

template <class T>
std::string dec(T v)
{
    charstr s;
    conv::append_dec(s, v);
    return str(s);
}

class Assertions : public ::testing::Test
{
protected:
    void SetUp() override { velk::assert_set_break(0); }
    void TearDown() override { velk::assert_set_break(1); }
    log_capture log;
};

} // namespace

// -- Edge cases ------------------------------------------------------------

TEST(TxtconvEdge, ZeroAsSignedIntegerGivesZero)
{
    EXPECT_EQ(dec(int32_t(0)), "0");
    EXPECT_EQ(dec(int64_t(0)), "0");
}

TEST(TxtconvEdge, MostNegativeInt64ComesOutInFull)
{
    EXPECT_EQ(dec(std::numeric_limits<int64_t>::min()), "-9223372036854775808");
}

TEST(TxtconvEdge, AppendNumInRadix16GivesLowerCase)
{
    EXPECT_EQ(num(16, 0xBEEFCAFEull, 0), "beefcafe");
}

TEST(TxtconvEdge, HexEncodeGivesUpperCase)
{
    const uint8_t data[] = {0xbe, 0xef};
    char out[8] = {};
    char* p = out;
    conv::hex_encode(data, p, 2, 1);
    EXPECT_EQ(std::string(out, p), "BEEF");
}

TEST(TxtconvEdge, AppendNumNegativeZeroFilledPutsSignBeforeZeros)
{
    EXPECT_EQ(num(10, 42, -1, 5, velk::align_right_zeros), "-0042");
}

TEST(TxtconvEdge, ThousandsSeparatorGoesBetweenGroupsFromTheLowEnd)
{
    EXPECT_EQ(thousands(1234567, ','), "1,234,567");
    EXPECT_EQ(thousands(12345, ','), "12,345");
}

TEST(TxtconvEdge, ThousandsLowerGroupKeepsItsLeadingZeros)
{
    EXPECT_EQ(thousands(1002003, ','), "1,002,003");
    EXPECT_EQ(thousands(5000070, ','), "5,000,070");
}

TEST(TxtconvEdge, FloatOneAndAHalfWithNfrac2WritesOneFractionDigit)
{
    EXPECT_EQ(float_text(1.5, 2, 6), "1.5");
}

TEST(TxtconvEdge, FloatOneAndAHalfWithNfracMinus2WritesTwo)
{
    EXPECT_EQ(float_text(1.5, -2, 6), "1.50");
}

TEST(TxtconvEdge, TooSmallSpanFor1e300GetsExponentFormAndNoOverrun)
{
    // Below 6 bytes even "1.e300" can't stand: the span is "?"s. From 301
    // bytes on, the 301 digits fit.
    for (size_t width = 0; width <= 304; ++width) {
        std::string t = float_text(1e300, 2, width);
        if (width > 300)
            EXPECT_EQ(t.substr(0, 2), "10") << width << ": " << t;
        else if (width >= 6)
            EXPECT_TRUE(t.find("e300") != std::string::npos || t == "!!!") << width << ": " << t;
        else
            EXPECT_EQ(t, std::string(width, '?'));
    }
}

TEST(TxtconvEdge, HexDecodeWithSeparatorReadsPairsAroundIt)
{
    token src = "12:aB:Cd";
    uint8_t out[3] = {};
    EXPECT_EQ(conv::hex_decode(src, out, 3, ':'), 0u);
    EXPECT_EQ(out[0], 0x12);
    EXPECT_EQ(out[1], 0xab);
    EXPECT_EQ(out[2], 0xcd);
    EXPECT_TRUE(src.is_empty());
}

TEST(TxtconvEdge, HexDecodeReportsUnreadBytesWhenTheTextEndsEarly)
{
    token src = "01:02";
    uint8_t out[4] = {};
    EXPECT_EQ(conv::hex_decode(src, out, 4, ':'), 2u);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1], 2);
}

// -- Decimal integers ------------------------------------------------------------------

TEST(TxtconvDec, BothEndsOfInt32ComeOutInFull)
{
    EXPECT_EQ(dec(std::numeric_limits<int32_t>::min()), "-2147483648");
    EXPECT_EQ(dec(std::numeric_limits<int32_t>::max()), "2147483647");
}

TEST(TxtconvDec, LargestUnsignedValuesComeOutInFull)
{
    EXPECT_EQ(dec(uint16_t(65535)), "65535");
    EXPECT_EQ(dec(std::numeric_limits<uint32_t>::max()), "4294967295");
    EXPECT_EQ(dec(std::numeric_limits<uint64_t>::max()), "18446744073709551615");
}

TEST(TxtconvDec, EveryLengthMatchesToChars)
{
    uint64_t v = 1;
    for (int digits = 1; digits <= 20; ++digits, v *= 10) {
        for (uint64_t x : {v - 1, v, v + 1, v * 9 / 2}) {
            char expected[24];
            char* e = std::to_chars(expected, expected + sizeof expected, x).ptr;
            EXPECT_EQ(dec(x), std::string(expected, e));
        }
    }
}

TEST(TxtconvDec, AppendsBehindText)
{
    charstr s("n=");
    conv::append_dec(s, int64_t(-7));
    EXPECT_EQ(str(s), "n=-7");
}

// -- The general form ----------------------------------------------------------------

TEST(TxtconvNum, ZeroMagnitudeIsOneDigit)
{
    EXPECT_EQ(num(16, 0, 0), "0");
    EXPECT_EQ(num(2, 0, 0), "0");
}

TEST(TxtconvNum, PositiveSignWritesPlus)
{
    EXPECT_EQ(num(10, 5, 1), "+5");
}

TEST(TxtconvNum, Radix36UsesLettersToZ)
{
    EXPECT_EQ(num(36, 35, 0), "z");
    EXPECT_EQ(num(36, 36 * 36 - 1, 0), "zz");
}

TEST(TxtconvNum, Radix2OfTheLargestValueHas64Ones)
{
    EXPECT_EQ(num(2, std::numeric_limits<uint64_t>::max(), 0), std::string(64, '1'));
}

TEST(TxtconvNum, RightAlignFillsWithBlanksBeforeTheSign)
{
    EXPECT_EQ(num(10, 42, -1, 6, velk::align_right), "   -42");
}

TEST(TxtconvNum, LeftAlignFillsWithBlanksBehind)
{
    EXPECT_EQ(num(10, 42, 0, 5, velk::align_left), "42   ");
    EXPECT_EQ(num(10, 42, 0, 5, 7), "42   "); // any other value is left too
}

TEST(TxtconvNum, LeftZeroBytesFillsWithZeroBytes)
{
    EXPECT_EQ(num(16, 0xab, 0, 4, velk::align_left_zero_bytes), std::string("ab\0\0", 4));
}

TEST(TxtconvNum, CentreLeadsWithHalfAndTrailsWithTheWholePadding)
{
    // width 3, padding 4: two blanks before, all four behind.
    EXPECT_EQ(num(10, 42, -1, 7, velk::align_center), "  -42    ");
}

TEST(TxtconvNum, CentreWithPaddingOneHasNoLead)
{
    EXPECT_EQ(num(10, 42, 0, 3, velk::align_center), "42 ");
}

TEST(TxtconvNum, MinSizeBelowTheWidthAddsNothing)
{
    EXPECT_EQ(num(10, 12345, -1, 3, velk::align_right_zeros), "-12345");
}

TEST(TxtconvNum, ResultIsWhereTheDigitsEnd)
{
    charstr s("ab");
    EXPECT_EQ(conv::append_num(s, 10, 42, 0, 6, velk::align_left), 4u);
    EXPECT_EQ(conv::append_num(s, 10, 7, 0, 3, velk::align_right), 11u);
}

TEST(TxtconvNum, StringIsTerminatedBehindTheField)
{
    charstr s;
    conv::append_num(s, 10, 9, 0, 4, velk::align_left);
    EXPECT_EQ(s.lens(), 4u);
    EXPECT_EQ(s.ptr()[4], 0);
}

TEST_F(Assertions, AppendNumWithRadixOutsideTwoTo36AssertsAndWritesDecimal)
{
    EXPECT_EQ(num(1, 42, 0), "42");
    EXPECT_EQ(num(37, 42, 0), "42");
    EXPECT_EQ(log.lines().size(), 2u);
}

// -- Integer round trips -----------------------------------------------------------------

TEST(TxtconvRoundTrip, EveryRadixReadsBackByTouint)
{
    std::mt19937_64 rng(1);
    std::vector<uint64_t> values = {0, 1, 2, 35, 36, 255, 256, 65535, 0xFFFFFFFFull, 0x100000000ull,
                                    uint64_t(std::numeric_limits<int64_t>::max()),
                                    std::numeric_limits<uint64_t>::max()};
    for (int i = 0; i < 200; ++i)
        values.push_back(rng() >> (i % 64));
    for (uint32_t radix = 2; radix <= 36; ++radix) {
        std::vector<uint64_t> cases = values;
        cases.push_back(radix - 1);
        cases.push_back(uint64_t(radix) * radix);
        for (uint64_t v : cases) {
            charstr s;
            conv::append_num(s, radix, v, 0);
            EXPECT_EQ(token(s).touint(radix), v) << "radix " << radix << ": " << str(s);
        }
    }
}

TEST(TxtconvRoundTrip, SignedDecimalReadsBackByStrtoll)
{
    std::mt19937_64 rng(2);
    std::vector<int64_t> values = {0, -1, 1, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max(),
                                   std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};
    for (int i = 0; i < 500; ++i)
        values.push_back(static_cast<int64_t>(rng()) >> (i % 64));
    for (int64_t v : values) {
        std::string t = dec(v);
        EXPECT_EQ(strtoll(t.c_str(), nullptr, 10), v) << t;
        if (v >= std::numeric_limits<int32_t>::min() && v <= std::numeric_limits<int32_t>::max())
            EXPECT_EQ(dec(static_cast<int32_t>(v)), t);
    }
}

TEST(TxtconvRoundTrip, ThousandsReadBackWithoutSeparators)
{
    std::mt19937_64 rng(3);
    for (int i = 0; i < 300; ++i) {
        int64_t v = static_cast<int64_t>(rng()) >> (i % 64);
        std::string t = thousands(v, ',');
        std::string digits;
        for (char c : t)
            if (c != ',')
                digits += c;
        EXPECT_EQ(strtoll(digits.c_str(), nullptr, 10), v) << t;
        EXPECT_EQ(thousands(v, 0), digits);
    }
}

// -- Thousands, metric and fill ------------------------------------------------------------

TEST(TxtconvThousands, ZeroIsOneDigit)
{
    EXPECT_EQ(thousands(0, ','), "0");
    EXPECT_EQ(thousands(0, ',', 3, velk::align_right_zeros), "000");
}

TEST(TxtconvThousands, BelowAThousandHasNoSeparator)
{
    EXPECT_EQ(thousands(999, ','), "999");
    EXPECT_EQ(thousands(-999, ','), "-999");
}

TEST(TxtconvThousands, MostNegativeValueComesOutInFull)
{
    EXPECT_EQ(thousands(std::numeric_limits<int64_t>::min(), ','), "-9,223,372,036,854,775,808");
}

TEST(TxtconvThousands, NoSeparatorJoinsTheGroups)
{
    EXPECT_EQ(thousands(1002003, 0), "1002003");
}

TEST(TxtconvThousands, MinSizeIsTheTotalWithTheSeparators)
{
    EXPECT_EQ(thousands(-1234, ',', 8, velk::align_right), "  -1,234");
    EXPECT_EQ(thousands(-1234, ',', 8, velk::align_right_zeros), "-001,234");
    EXPECT_EQ(thousands(1234, ',', 7, velk::align_left), "1,234  ");
}

TEST(TxtconvMetric, ThreeDigitsAlreadyTakeK)
{
    EXPECT_EQ(metric(999, 8, 1, ' '), "   999 k");
}

TEST(TxtconvMetric, MillionsInTheReportsField)
{
    EXPECT_EQ(metric(1234567, 14, 1, ' '), "        1.23 M");
}

TEST(TxtconvMetric, SixDigitsTakeMWithThreeDecimals)
{
    EXPECT_EQ(metric(123456, 14, 1, ' '), "       0.123 M");
}

TEST(TxtconvMetric, FourAndFiveDigitsTakeKWithFewerDecimals)
{
    EXPECT_EQ(metric(1234, 8, 1, ' '), "  1.23 k");
    EXPECT_EQ(metric(12345, 8, 1, ' '), "  12.3 k");
}

TEST(TxtconvMetric, SmallValueHasTheBlankLetter)
{
    EXPECT_EQ(metric(42, 8, 1, ' '), "    42  ");
    EXPECT_EQ(metric(0, 8, 1, ' '), "     0  ");
}

TEST(TxtconvMetric, WidthIsRaisedToSixOrSevenWithASeparator)
{
    EXPECT_EQ(metric(5, 1, 1, ' '), "    5  ");
    EXPECT_EQ(metric(5, 1, 1, 0), "    5 ");
}

TEST(TxtconvMetric, NoSeparatorPutsTheLetterRightBehind)
{
    EXPECT_EQ(metric(2500000, 7, 1, 0), "  2.50M");
}

TEST(TxtconvMetric, NoWidthWritesNoLetterInFiveCharacters)
{
    EXPECT_EQ(metric(1234567, 0, 1, ' '), " 1.23");
    EXPECT_EQ(metric(12, 0, 1, ' '), "12");
}

TEST(TxtconvMetric, LeftAlignWritesNoLetter)
{
    EXPECT_EQ(metric(1234567, 8, velk::align_left, ' '), "1.23    ");
}

TEST(TxtconvMetric, NegativeValueKeepsItsSign)
{
    EXPECT_EQ(metric(-1234567, 14, 1, ' '), "       -1.23 M");
    EXPECT_EQ(metric(-999, 8, 1, ' '), "  -999 k");
}

TEST(TxtconvMetric, AlignThatWritesNothingLeavesNoGarbage)
{
    EXPECT_EQ(metric(1234567, 10, 5, ' '), " M");
}

TEST(TxtconvFill, ZeroAppendsNothing)
{
    charstr s;
    conv::append_fill(s, 0, '-');
    EXPECT_EQ(s.ptr(), nullptr);
}

TEST(TxtconvFill, AppendsNCopies)
{
    charstr s("[");
    conv::append_fill(s, 3, '-');
    EXPECT_EQ(str(s), "[---");
}

// -- The float writer ------------------------------------------------------------------

TEST(TxtconvFloat, PositiveNfracKeepsTheFirstFractionDigit)
{
    EXPECT_EQ(float_text(2.0, 3, 7), "2.0");
}

TEST(TxtconvFloat, ZeroTakesTheDigitSteps)
{
    EXPECT_EQ(float_text(0.0, 2, 6), "0.0");
    EXPECT_EQ(float_text(0.0, -2, 6), "0.00");
    EXPECT_EQ(float_text(0.0, 0, 6), "0");
}

TEST(TxtconvFloat, NegativeValueWritesTheSignFirst)
{
    EXPECT_EQ(float_text(-0.25, 2, 6), "-0.25");
    EXPECT_EQ(float_text(-12.5, -1, 6), "-12.5");
}

TEST(TxtconvFloat, RoundsHalfUpAtTheLastDigit)
{
    EXPECT_EQ(float_text(0.125, -2, 6), "0.13");
    EXPECT_EQ(float_text(2.5, 0, 6), "3");
}

TEST(TxtconvFloat, RoundingCarriesIntoTheIntegerPart)
{
    EXPECT_EQ(float_text(9.96, -1, 5), "10.0");
    EXPECT_EQ(float_text(0.996, -2, 6), "1.00");
}

TEST(TxtconvFloat, BelowOnePositiveNfracCountsSignificantDigits)
{
    EXPECT_EQ(float_text(0.00123456, 3, 10), "0.00123");
}

TEST(TxtconvFloat, BelowOneNegativeNfracCountsDecimals)
{
    EXPECT_EQ(float_text(0.00123456, -3, 10), "0.001");
    EXPECT_EQ(float_text(1e-20, -2, 6), "0.00");
}

TEST(TxtconvFloat, TinyValueTakesTheExponentFormWhenItsZerosDontFit)
{
    EXPECT_EQ(float_text(1.5e-20, 3, 7), "1.5e-20");
    EXPECT_EQ(float_text(4.9406564584124654e-324, 2, 8), "4.9e-324");
}

TEST(TxtconvFloat, IntegerPartFillingTheRoomDropsTheFraction)
{
    EXPECT_EQ(float_text(123456.0, -2, 6), "123456");
    EXPECT_EQ(float_text(123456.4, 2, 6), "123456");
}

TEST(TxtconvFloat, FewerDecimalsWhenTheRoomIsShort)
{
    EXPECT_EQ(float_text(1234.5678, -4, 7), "1234.57");
    EXPECT_EQ(float_text(3.14159265, 6, 4), "3.14");
}

TEST(TxtconvFloat, NoPointWithoutADigitBehindIt)
{
    EXPECT_EQ(float_text(12.5, 2, 3), "13");
}

TEST(TxtconvFloat, IntegerPartWiderThanTheRoomTakesTheExponentForm)
{
    EXPECT_EQ(float_text(123456.0, 2, 5), "1.2e5");
    EXPECT_EQ(float_text(1e22, -2, 8), "1.000e22");
}

TEST(TxtconvFloat, CarryPastTheRoomTakesTheShortExponentForm)
{
    EXPECT_EQ(float_text(999.7, 0, 3), "1e3");
    EXPECT_EQ(float_text(9999.7, 0, 4), "10e3");
}

// Found by number_fuzz: the rounding of the exponent form, added to the
// value itself, carried a value near the largest double to infinity.
TEST(TxtconvFloat, RoundingNearTheLargestDoubleStaysFinite)
{
    EXPECT_EQ(float_text(1.7976922776554302e308, 20, 6), "2.e308");
    EXPECT_EQ(float_text(1.7976922776554302e308, 20, 7), "1.8e308");
}

TEST(TxtconvFloat, NoRoomForAnyFormFillsTheSpanWithQuestionMarks)
{
    EXPECT_EQ(float_text(1e300, 2, 3), "???");
    EXPECT_EQ(float_text(99.5, 0, 2), "??");
    EXPECT_EQ(float_text(-1.5, 2, 1), "?");
}

TEST(TxtconvFloat, InfinityAndNanFillTheSpanWithQuestionMarks)
{
    EXPECT_EQ(float_text(std::numeric_limits<double>::infinity(), 2, 4), "????");
    EXPECT_EQ(float_text(-std::numeric_limits<double>::infinity(), 2, 4), "????");
    EXPECT_EQ(float_text(std::numeric_limits<double>::quiet_NaN(), 2, 4), "????");
}

TEST(TxtconvFloat, EmptySpanWritesNothing)
{
    EXPECT_EQ(float_text(1.5, 2, 0), "");
}

TEST(TxtconvFloat, ValuesAbove2To64KeepTheirLeadingDigits)
{
    std::string t = float_text(1e25, 0, 30);
    EXPECT_EQ(t.size(), 26u);
    EXPECT_EQ(strtod(t.c_str(), nullptr), 1e25);
}

// -- append_fraction ---------------------------------------------------------------------

TEST(TxtconvFraction, PositiveNfracEndsBehindTheLastNonZeroDigit)
{
    char buf[8];
    char* e = conv::append_fraction(buf, buf + 8, 0.5, 3, false);
    EXPECT_EQ(std::string(buf, e), "5");
}

TEST(TxtconvFraction, PositiveNfracKeepsOneDigit)
{
    char buf[8];
    char* e = conv::append_fraction(buf, buf + 8, 0.0, 3, false);
    EXPECT_EQ(std::string(buf, e), "0");
}

TEST(TxtconvFraction, NegativeNfracKeepsEveryDigit)
{
    char buf[8];
    char* e = conv::append_fraction(buf, buf + 8, 0.5, -3, false);
    EXPECT_EQ(std::string(buf, e), "500");
}

TEST(TxtconvFraction, RoundAddsHalfAUnit)
{
    char buf[8];
    char* e = conv::append_fraction(buf, buf + 8, 0.125, -2, true);
    EXPECT_EQ(std::string(buf, e), "13");
}

TEST(TxtconvFraction, DigitsAreLimitedByTheRoom)
{
    guarded_span span(3);
    char* e = conv::append_fraction(span.start(), span.end(), 0.123456, -6, false);
    EXPECT_EQ(span.text(e), "123");
    EXPECT_TRUE(span.guards_intact());
}

TEST(TxtconvFraction, CarryOutOfTheFractionSaturatesAtNine)
{
    char buf[8];
    char* e = conv::append_fraction(buf, buf + 8, 0.996, -2, true);
    EXPECT_EQ(std::string(buf, e), "99");
}

TEST(TxtconvFraction, NoDigitGivesStartOrStartPlusOneForPositiveNfrac)
{
    char buf[4];
    EXPECT_EQ(conv::append_fraction(buf, buf + 4, 0.5, 0, false), buf);
    EXPECT_EQ(conv::append_fraction(buf, buf, 0.5, -2, false), buf);
    EXPECT_EQ(conv::append_fraction(buf, buf, 0.5, 2, false), buf + 1);
}

// -- append_fixed ------------------------------------------------------------------------

TEST(TxtconvFixed, RightFillsWithBlanksAndGivesEnd)
{
    size_t len;
    EXPECT_EQ(fixed_span(3.14159, -2, 8, velk::align_right, &len), "    3.14");
    EXPECT_EQ(len, 8u);
}

TEST(TxtconvFixed, ZeroFillPutsTheSignFirst)
{
    EXPECT_EQ(fixed_span(-1.5, -1, 7, velk::align_right_zeros), "-0001.5");
    EXPECT_EQ(fixed_span(1.5, -1, 6, velk::align_right_zeros), "0001.5");
}

TEST(TxtconvFixed, CentreSplitsTheRoomAndGivesTheTextsEnd)
{
    size_t len;
    EXPECT_EQ(fixed_span(1.5, -1, 8, velk::align_center, &len), "  1.5   ");
    EXPECT_EQ(len, 5u);
}

TEST(TxtconvFixed, LeftFillsBehindWithBlanks)
{
    size_t len;
    EXPECT_EQ(fixed_span(1.5, -1, 6, velk::align_left, &len), "1.5   ");
    EXPECT_EQ(len, 3u);
}

TEST(TxtconvFixed, LeftZeroBytesFillsBehindWithZeros)
{
    EXPECT_EQ(fixed_span(1.5, -1, 6, velk::align_left_zero_bytes), std::string("1.5\0\0\0", 6));
}

TEST(TxtconvFixed, AlignFromThreeToMinusThreeWritesNothing)
{
    for (int32_t align : {3, 100, -3, std::numeric_limits<int32_t>::min()}) {
        guarded_span span(6);
        memset(span.start(), 'x', 6);
        EXPECT_EQ(conv::append_fixed(span.start(), span.end(), 1.5, -1, align), span.start());
        EXPECT_EQ(std::string(span.start(), 6), "xxxxxx");
    }
}

TEST(TxtconvFixed, FullSpanHasNoFill)
{
    EXPECT_EQ(fixed_span(-12.25, -2, 6, velk::align_right_zeros), "-12.25");
}

TEST_F(Assertions, FixedWithEndBeforeStartReportsAndWritesNothing)
{
    char buf[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(conv::append_fixed(buf + 3, buf + 1, 1.5, 2, velk::align_right), buf + 3);
    EXPECT_EQ(std::string(buf, 4), "abcd");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find("txtconv(40), function velk::charstrconv::append_fixed:\n\"end>=buf\""),
              std::string::npos)
        << log.lines()[0];
}

// -- Never past the span ---------------------------------------------------------------------

namespace {

// Values that test every form: zero, tiny and huge, near powers of ten (where
// rounding carries), subnormals, the extremes, and random ones.
std::vector<double> probe_values()
{
    std::vector<double> v = {0.0,     1.0,     0.5,    0.05,    0.95,   0.995,  9.5,    9.95,   99.5,
                             999.95,  1e-5,    1e-20,  1e-300,  1e300,  1e308,  1.5e19, 1.8e19, 1e25,
                             123.456, 0.00123, 2.0 / 3, 1.0 / 7, 4.9406564584124654e-324,
                             std::numeric_limits<double>::max(), std::numeric_limits<double>::min(),
                             std::numeric_limits<double>::denorm_min()};
    std::mt19937_64 rng(4);
    std::uniform_real_distribution<double> mantissa(1.0, 10.0);
    std::uniform_int_distribution<int> exponent(-320, 300);
    for (int i = 0; i < 60; ++i)
        v.push_back(mantissa(rng) * std::pow(10.0, exponent(rng)));
    for (int e = -30; e <= 30; ++e)
        v.push_back(std::pow(10.0, e) * (1 - 1e-16));
    size_t n = v.size();
    for (size_t i = 0; i < n; ++i)
        v.push_back(-v[i]);
    return v;
}

// The characters any text of the float writer is made of.
bool float_chars_only(const std::string& t)
{
    return t.find_first_not_of("0123456789.e-?!") == std::string::npos;
}

} // namespace

TEST(TxtconvSpan, FloatNeverWritesPastTheSpan)
{
    for (double v : probe_values())
        for (int32_t nfrac : {-20, -6, -2, -1, 0, 1, 2, 6, 20})
            for (size_t width = 0; width <= 40; ++width) {
                std::string t = float_text(v, nfrac, width);
                ASSERT_TRUE(float_chars_only(t)) << v << " nfrac " << nfrac << " width " << width << ": " << t;
                if (width && (v > 0 || (v < 0 && width > 1)))
                    ASSERT_FALSE(t.empty()) << v << " nfrac " << nfrac << " width " << width;
            }
}

TEST(TxtconvSpan, FixedNeverWritesPastTheSpanInAnyAlignment)
{
    for (double v : probe_values())
        for (int32_t nfrac : {-6, -1, 0, 2, 6})
            for (int32_t align : {-2, -1, 0, 1, 2})
                for (size_t width = 0; width <= 24; ++width) {
                    size_t len = 0;
                    fixed_span(v, nfrac, width, align, &len);
                    ASSERT_LE(len, width);
                    if (align >= 1)
                        ASSERT_EQ(len, width);
                }
}

TEST(TxtconvSpan, FractionNeverWritesPastTheSpan)
{
    for (double f : {0.0, 0.123456789, 0.5, 0.999999999})
        for (int32_t nfrac : {-20, -3, 0, 3, 20})
            for (size_t width = 1; width <= 12; ++width) {
                guarded_span span(width);
                char* e = conv::append_fraction(span.start(), span.end(), f, nfrac, true);
                ASSERT_TRUE(span.guards_intact());
                ASSERT_LE(e, span.end());
            }
}

TEST(TxtconvSpan, CharstrFloatStaysWithinItsWidth)
{
    for (double v : probe_values())
        for (uint32_t width : {1u, 3u, 6u, 12u, 30u}) {
            charstr s("<");
            s.append_float(v, -3, width);
            ASSERT_LE(s.lens(), 1u + width);
            ASSERT_EQ(s.ptr()[s.lens()], 0);
            ASSERT_EQ(s.ptr()[0], '<');
        }
}

// -- Float round trips ---------------------------------------------------------------------

TEST(TxtconvRoundTrip, FixedDecimalsAgreeWithToCharsToTheLastDigit)
{
    // Rounding by adding half a unit and truncating may differ from correct
    // rounding in the last digit only.
    std::mt19937_64 rng(5);
    std::uniform_real_distribution<double> mantissa(1.0, 10.0);
    for (int i = 0; i < 3000; ++i) {
        double v = mantissa(rng) * std::pow(10.0, i % 22 - 6);
        if (i & 1)
            v = -v;
        int decimals = i % 10;
        std::string ours = float_text(v, -decimals, 48);
        char ref[64];
        char* e = std::to_chars(ref, ref + sizeof ref, v, std::chars_format::fixed, decimals).ptr;
        double unit = std::pow(10.0, -decimals);
        ASSERT_NEAR(strtod(ours.c_str(), nullptr), strtod(std::string(ref, e).c_str(), nullptr),
                    unit * 1.01 + std::fabs(v) * 1e-15)
            << ours << " vs " << std::string(ref, e);
    }
}

TEST(TxtconvRoundTrip, SignificantDigitsReadBackClose)
{
    std::mt19937_64 rng(6);
    std::uniform_real_distribution<double> mantissa(1.0, 10.0);
    for (int i = 0; i < 3000; ++i) {
        double v = mantissa(rng) * std::pow(10.0, -(i % 300) - 1);
        std::string t = float_text(v, 15, 24); // an exponent form for most
        double back = strtod(t.c_str(), nullptr);
        ASSERT_NEAR(back / v, 1.0, 1e-13) << v << " -> " << t;
    }
}

TEST(TxtconvRoundTrip, LargeValuesReadBackClose)
{
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> mantissa(1.0, 10.0);
    for (int i = 0; i < 3000; ++i) {
        double v = mantissa(rng) * std::pow(10.0, 16 + i % 292); // no fraction worth a digit
        std::string plain = float_text(v, 0, 320);
        ASSERT_NEAR(strtod(plain.c_str(), nullptr) / v, 1.0, 1e-15) << plain;
        std::string sci = float_text(v, 0, 22);
        ASSERT_NEAR(strtod(sci.c_str(), nullptr) / v, 1.0, 1e-13) << sci;
    }
}

TEST(TxtconvRoundTrip, IntegersBelow2To53AreExact)
{
    std::mt19937_64 rng(8);
    for (int i = 0; i < 2000; ++i) {
        double v = static_cast<double>(rng() >> (11 + i % 50));
        ASSERT_EQ(strtod(float_text(v, 0, 20).c_str(), nullptr), v);
    }
}

// -- Hexadecimal ---------------------------------------------------------------------------

TEST(TxtconvHex, EncodeWritesEachItemFromItsLastByte)
{
    const uint32_t items[2] = {0x12345678, 0x9ABCDEF0};
    char out[32];
    char* p = out;
    conv::hex_encode(items, p, 2, 4, ' ');
    EXPECT_EQ(std::string(out, p), "12345678 9ABCDEF0");
}

TEST(TxtconvHex, EncodeWithoutSeparatorJoinsTheItems)
{
    const uint16_t items[2] = {0x0102, 0x0a0b};
    char out[16];
    char* p = out;
    conv::hex_encode(items, p, 2, 2, 0);
    EXPECT_EQ(std::string(out, p), "01020A0B");
}

TEST(TxtconvHex, EncodeOfNoItemsWritesNothing)
{
    char out[4];
    char* p = out;
    conv::hex_encode(nullptr, p, 0, 4, ',');
    EXPECT_EQ(p, out);
}

TEST(TxtconvHex, DecodeReadsEitherCaseWithoutSeparator)
{
    token src = "aBcD";
    uint8_t out[2];
    EXPECT_EQ(conv::hex_decode(src, out, 2), 0u);
    EXPECT_EQ(out[0], 0xab);
    EXPECT_EQ(out[1], 0xcd);
}

TEST(TxtconvHex, DecodeStopsAtABadFirstDigit)
{
    token src = "12zz";
    uint8_t out[2] = {0, 0x77};
    EXPECT_EQ(conv::hex_decode(src, out, 2), 1u);
    EXPECT_EQ(src, token("zz"));
    EXPECT_EQ(out[1], 0x77);
}

TEST(TxtconvHex, DecodeStopsAtABadSecondDigitBackAtThePair)
{
    token src = "123z";
    uint8_t out[2] = {0, 0};
    EXPECT_EQ(conv::hex_decode(src, out, 2), 1u);
    EXPECT_EQ(src, token("3z"));
    EXPECT_EQ(out[1], 0x30); // the high half stays stored
}

TEST(TxtconvHex, DecodeOfAnOddDigitAtTheEndKeepsTheHighHalf)
{
    token src = "123";
    uint8_t out[2] = {0, 0};
    EXPECT_EQ(conv::hex_decode(src, out, 2), 1u);
    EXPECT_EQ(src, token("3"));
    EXPECT_EQ(out[1], 0x30);
}

TEST(TxtconvHex, DecodeSkipsOnlyTheGivenSeparator)
{
    token src = "12-34";
    uint8_t out[2];
    EXPECT_EQ(conv::hex_decode(src, out, 2, ':'), 1u);
    EXPECT_EQ(src, token("-34"));
}

TEST(TxtconvHex, EncodeThenDecodeRoundTrips)
{
    uint8_t data[256];
    for (int i = 0; i < 256; ++i)
        data[i] = static_cast<uint8_t>(i);
    char text[3 * 256];
    char* p = text;
    conv::hex_encode(data, p, 256, 1, ':');
    token src(text, p);
    uint8_t back[256];
    EXPECT_EQ(conv::hex_decode(src, back, 256, ':'), 0u);
    EXPECT_EQ(memcmp(data, back, 256), 0);
}

TEST(TxtconvHex, RecordMatchesTheIntelHexExample)
{
    const uint8_t data[16] = {0x21, 0x46, 0x01, 0x36, 0x01, 0x21, 0x47, 0x01,
                              0x36, 0x00, 0x7E, 0xFE, 0x09, 0xD2, 0x19, 0x01};
    char out[64];
    uint32_t n = conv::hex_record(out, 0x0100, 16, data);
    EXPECT_EQ(std::string(out), ":10010000214601360121470136007EFE09D2190140\r\n");
    EXPECT_EQ(n, 45u);
}

TEST(TxtconvHex, RecordOfNoDataHasOnlyTheHeadAndChecksum)
{
    char out[16];
    uint32_t n = conv::hex_record(out, 0xFFFF, 0, nullptr);
    EXPECT_EQ(std::string(out), ":00FFFF0002\r\n");
    EXPECT_EQ(n, 13u);
}
