#include "comm/utf.h"

#include "comm/charstr.h"
#include "comm/token.h"

#include <gtest/gtest.h>

#include <string>

using velk::charstr;
using velk::token;

namespace {

std::u16string to_utf16(const std::string& s)
{
    uint32_t n = static_cast<uint32_t>(s.size());
    std::u16string out(velk::transcode_utf8_to_utf16(s.data(), n, nullptr, 0), u'\0');
    uint32_t written = velk::transcode_utf8_to_utf16(s.data(), n, out.data(), static_cast<uint32_t>(out.size()));
    EXPECT_EQ(written, out.size());
    return out;
}

std::string to_utf8(const std::u16string& s)
{
    uint32_t n = static_cast<uint32_t>(s.size());
    std::string out(velk::transcode_utf16_to_utf8(s.data(), n, nullptr, 0), '\0');
    uint32_t written = velk::transcode_utf16_to_utf8(s.data(), n, out.data(), static_cast<uint32_t>(out.size()));
    EXPECT_EQ(written, out.size());
    return out;
}

// The Part's reader into a buffer of n units; the units up to the zero.
std::u16string historic(const std::string& s, uint32_t n = 64, uint32_t* result = nullptr)
{
    std::u16string buf(n + 1, u'#');
    uint32_t r = velk::utf8_to_utf16(token(s.data(), s.size()), buf.data(), n);
    if (result)
        *result = r;
    EXPECT_EQ(buf[n], u'#'); // nothing past the n units
    return buf.substr(0, buf.find(u'\0'));
}

std::string str(const charstr& s) { return std::string(s.c_str(), s.lens()); }

// One character of every length: 1, 2, 3 bytes and 4 (a surrogate pair).
const std::string mixed_utf8 = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
const std::u16string mixed_utf16 = u"a\u00E9\u20AC\U0001F600";

} // namespace

// -- Edge case -----------------------------------------------------------------

TEST(Utf8ToUtf16Edge, LoneByte0x80WritesFFFF)
{
    uint32_t r;
    EXPECT_EQ(historic("\x80", 8, &r), u"\xFFFF");
    EXPECT_EQ(r, 1u);
}

// -- The lenient reader -----------------------------------------------------------------------

TEST(Utf8ToUtf16, AsciiIsItself)
{
    EXPECT_EQ(historic("abc"), u"abc");
}

TEST(Utf8ToUtf16, TwoAndThreeByteSequencesGiveTheirValue)
{
    EXPECT_EQ(historic("\xC3\xA9\xE2\x82\xAC"), u"\u00E9\u20AC");
}

TEST(Utf8ToUtf16, FourByteSequenceKeepsTheLow16Bits)
{
    EXPECT_EQ(historic("\xF0\x9F\x98\x80"), u"\xF600"); // U+1F600: no surrogate pair
}

TEST(Utf8ToUtf16, FollowingBytesAreNotChecked)
{
    // C3 41: (0xC3 << 6) + 0x41 - 0x3080 = 0x81.
    EXPECT_EQ(historic("\xC3\x41"), u"\x81");
}

TEST(Utf8ToUtf16, BytesFEAndFFAreOneFFFFEach)
{
    EXPECT_EQ(historic("\xFE\xFF"), u"\xFFFF\xFFFF");
}

TEST(Utf8ToUtf16, SequenceCutOffByTheEndGivesZero)
{
    uint32_t r;
    EXPECT_EQ(historic("ab\xE2\x82", 8, &r), u"");
    EXPECT_EQ(r, 0u);
}

TEST(Utf8ToUtf16, WritesAtMostNMinusOneUnitsAndAZero)
{
    uint32_t r;
    EXPECT_EQ(historic("abcdef", 4, &r), u"abc");
    EXPECT_EQ(r, 3u);
}

TEST(Utf8ToUtf16, SizeOneWritesOnlyTheZero)
{
    uint32_t r;
    EXPECT_EQ(historic("abc", 1, &r), u"");
    EXPECT_EQ(r, 0u);
}

TEST(Utf8ToUtf16, SizeZeroWritesNothing)
{
    char16_t unit = u'#';
    EXPECT_EQ(velk::utf8_to_utf16(token("abc"), &unit, 0), 0u);
    EXPECT_EQ(unit, u'#');
}

TEST(Utf8ToUtf16, ZeroByteEndsTheText)
{
    uint32_t r;
    EXPECT_EQ(historic(std::string("ab\0cd", 5), 8, &r), u"ab");
    EXPECT_EQ(r, 2u);
}

TEST(Utf8ToUtf16, SixByteSequenceIsTakenWhole)
{
    // FC 80 80 80 80 81: the value 1 with five following bytes.
    EXPECT_EQ(historic("\xFC\x80\x80\x80\x80\x81z"), u"\u0001z");
}

// -- Strict transcoding: round trips ---------------------------------------------------------------

TEST(UtfRoundTrip, MixedLengthsComeBack)
{
    EXPECT_EQ(to_utf16(mixed_utf8), mixed_utf16);
    EXPECT_EQ(to_utf8(mixed_utf16), mixed_utf8);
}

TEST(UtfRoundTrip, SupplementaryCharacterIsASurrogatePair)
{
    std::u16string w = to_utf16("\xF0\x9F\x98\x80");
    ASSERT_EQ(w.size(), 2u);
    EXPECT_EQ(w[0], 0xD83D);
    EXPECT_EQ(w[1], 0xDE00);
}

TEST(UtfRoundTrip, LastCodePointIsAPairOfDBFFAndDFFF)
{
    EXPECT_EQ(to_utf16("\xF4\x8F\xBF\xBF"), u"\U0010FFFF");
    EXPECT_EQ(to_utf8(u"\U0010FFFF"), "\xF4\x8F\xBF\xBF");
}

TEST(UtfRoundTrip, EveryScalarValueComesBack)
{
    std::u16string all;
    for (char32_t c = 1; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF)
            continue;
        if (c < 0x10000) {
            all += static_cast<char16_t>(c);
        } else {
            all += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            all += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        }
    }
    std::string utf8 = to_utf8(all);
    EXPECT_EQ(utf8.size(), 0x7Fu + 2 * 0x780u + 3 * (0x10000u - 0x800u - 0x800u) + 4 * 0x100000u);
    EXPECT_EQ(to_utf16(utf8), all);
}

TEST(UtfRoundTrip, ZeroByteIsACharacter)
{
    std::string s("a\0b", 3);
    EXPECT_EQ(to_utf16(s), std::u16string(u"a\0b", 3));
}

// -- Strict transcoding: ill-formed input -------------------------------------------------------

TEST(UtfInvalid, StrayContinuationByteIsOneReplacement)
{
    EXPECT_EQ(to_utf16("a\x80z"), u"a\uFFFDz");
}

TEST(UtfInvalid, TruncatedSequenceAtTheEndIsOneReplacement)
{
    EXPECT_EQ(to_utf16("a\xE2\x82"), u"a\uFFFD");
    EXPECT_EQ(to_utf16("\xF0\x9F\x98"), u"\uFFFD");
}

TEST(UtfInvalid, TruncatedSequenceBeforeAStartByteKeepsTheStart)
{
    EXPECT_EQ(to_utf16("\xE2\x82" "a"), u"\uFFFDa");
    EXPECT_EQ(to_utf16("\xC3\xC3\xA9"), u"\uFFFD\u00E9");
}

TEST(UtfInvalid, OverlongFormIsOneReplacementPerByte)
{
    EXPECT_EQ(to_utf16("\xC0\x80"), u"\uFFFD\uFFFD");
    EXPECT_EQ(to_utf16("\xE0\x80\xAF"), u"\uFFFD\uFFFD\uFFFD");
}

TEST(UtfInvalid, EncodedSurrogateIsRefused)
{
    EXPECT_EQ(to_utf16("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(to_utf16("\xED\x9F\xBF"), u"\uD7FF"); // the last value before them
}

TEST(UtfInvalid, ValueAbove10FFFFIsRefused)
{
    EXPECT_EQ(to_utf16("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(to_utf16("\xF5\x80"), u"\uFFFD\uFFFD");
}

TEST(UtfInvalid, BytesFEAndFFAreReplaced)
{
    EXPECT_EQ(to_utf16("\xFE\xFF"), u"\uFFFD\uFFFD");
}

TEST(UtfInvalid, LoneHighSurrogateIsOneReplacement)
{
    EXPECT_EQ(to_utf8(std::u16string(u"a") + char16_t(0xD83D) + u"z"), "a\xEF\xBF\xBDz");
    EXPECT_EQ(to_utf8(std::u16string(1, char16_t(0xD83D))), "\xEF\xBF\xBD");
}

TEST(UtfInvalid, LoneLowSurrogateIsOneReplacement)
{
    EXPECT_EQ(to_utf8(std::u16string(1, char16_t(0xDE00)) + u"z"), "\xEF\xBF\xBDz");
}

TEST(UtfInvalid, ReversedPairIsTwoReplacements)
{
    std::u16string reversed = {char16_t(0xDE00), char16_t(0xD83D)};
    EXPECT_EQ(to_utf8(reversed), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(UtfInvalid, ReplacementsRoundTripAsText)
{
    std::u16string w = to_utf16("x\xFFy");
    EXPECT_EQ(to_utf8(w), "x\xEF\xBF\xBDy");
}

// -- Strict transcoding: destination size ----------------------------------------------------------

TEST(UtfLimit, CharacterThatDoesNotFitWholeIsLeftOut)
{
    char16_t out[2] = {u'#', u'#'};
    EXPECT_EQ(velk::transcode_utf8_to_utf16("a\xF0\x9F\x98\x80", 5, out, 2), 1u);
    EXPECT_EQ(out[1], u'#');
    char bytes[3] = {'#', '#', '#'};
    EXPECT_EQ(velk::transcode_utf16_to_utf8(u"a\u20AC", 2, bytes, 3), 1u);
    EXPECT_EQ(bytes[1], '#');
}

TEST(UtfLimit, NullDestinationCountsTheWholeText)
{
    EXPECT_EQ(velk::transcode_utf8_to_utf16(mixed_utf8.data(), 10, nullptr, 0), 5u);
    EXPECT_EQ(velk::transcode_utf16_to_utf8(mixed_utf16.data(), 5, nullptr, 0), 10u);
}

// -- The code-page conversions ----------------------------------------------------------------------

TEST(MultibyteToWide, AppendsTheConvertedText)
{
    std::u16string w = u">";
    EXPECT_TRUE(velk::multibyte_to_wide(token(mixed_utf8.data(), mixed_utf8.size()), velk::code_page_utf8, w));
    EXPECT_EQ(w, u">" + mixed_utf16);
}

TEST(MultibyteToWide, SystemCodePageIsUtf8)
{
#if defined(_WIN32)
    GTEST_SKIP() << "the system code page is the ANSI one on Windows (1252 under Wine), not UTF-8";
#endif
    std::u16string w;
    EXPECT_TRUE(velk::multibyte_to_wide(token("caf\xC3\xA9"), velk::code_page_acp, w));
    EXPECT_EQ(w, u"caf\u00E9");
}

TEST(MultibyteToWide, EmptyTextGivesFalseAndAppendsNothing)
{
    std::u16string w = u"x";
    EXPECT_FALSE(velk::multibyte_to_wide(token(""), velk::code_page_utf8, w));
    EXPECT_EQ(w, u"x");
}

TEST(MultibyteToWide, UnknownCodePageGivesFalseAndAppendsNothing)
{
    std::u16string w = u"x";
#if defined(_WIN32)
    constexpr uint32_t unknown = 4711; // Windows has 1252, but no code page of this number
#else
    constexpr uint32_t unknown = 1252; // the Latin code page exists only on Windows
#endif
    EXPECT_FALSE(velk::multibyte_to_wide(token("abc"), unknown, w));
    EXPECT_EQ(w, u"x");
}

TEST(MultibyteToWide, InvalidInputBecomesReplacements)
{
    std::u16string w;
    EXPECT_TRUE(velk::multibyte_to_wide(token("a\xC0z"), velk::code_page_utf8, w));
    EXPECT_EQ(w, u"a\uFFFDz");
}

TEST(WideToCharstr, AppendsInUtf8)
{
#if defined(_WIN32)
    GTEST_SKIP() << "the system code page is the ANSI one on Windows (1252 under Wine), not UTF-8";
#endif
    charstr s("<");
    EXPECT_EQ(velk::wide_to_charstr(s, mixed_utf16.data(), static_cast<int32_t>(mixed_utf16.size())), 10);
    EXPECT_EQ(str(s), "<" + mixed_utf8);
}

TEST(WideToCharstr, MinusOneReadsUpToTheZero)
{
    charstr s;
    EXPECT_EQ(velk::wide_to_charstr(s, u"abc\0def", -1), 3);
    EXPECT_EQ(str(s), "abc");
}

TEST(WideToCharstr, LengthLimitsTheUnits)
{
    charstr s;
    EXPECT_EQ(velk::wide_to_charstr(s, u"abcdef", 2), 2);
    EXPECT_EQ(str(s), "ab");
}

TEST(WideToCharstr, EmptyOrNullAppendsNothing)
{
    charstr s;
    EXPECT_EQ(velk::wide_to_charstr(s, u"", -1), 0);
    EXPECT_EQ(velk::wide_to_charstr(s, nullptr, 5), 0);
    EXPECT_EQ(s.ptr(), nullptr);
}

TEST(WideToCharstr, LoneSurrogateBecomesAReplacement)
{
#if defined(_WIN32)
    GTEST_SKIP() << "the system code page is the ANSI one on Windows (1252 under Wine), not UTF-8";
#endif
    charstr s;
    const char16_t lone[] = {u'a', char16_t(0xDC00), 0};
    EXPECT_EQ(velk::wide_to_charstr(s, lone, -1), 4);
    EXPECT_EQ(str(s), "a\xEF\xBF\xBD");
}

TEST(CodePageRoundTrip, WideToCharstrThenMultibyteToWideGivesTheTextBack)
{
#if defined(_WIN32)
    GTEST_SKIP() << "the system code page is the ANSI one on Windows (1252 under Wine), not UTF-8";
#endif
    charstr s;
    velk::wide_to_charstr(s, mixed_utf16.data(), static_cast<int32_t>(mixed_utf16.size()));
    std::u16string back;
    EXPECT_TRUE(velk::multibyte_to_wide(token(s), velk::code_page_acp, back));
    EXPECT_EQ(back, mixed_utf16);
}
