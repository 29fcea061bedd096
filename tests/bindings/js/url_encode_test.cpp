// The escaping of paths for file URLs.
#include "bindings/js/url_encode.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string encoded(const velk::token& text)
{
    velk::charstr out;
    velk::js::url_encode(text, out);
    return std::string(out.c_str());
}

} // namespace

TEST(UrlEncode, BlankBecomesPercentTwenty) { EXPECT_EQ(encoded(" "), "%20"); }

TEST(UrlEncode, SlashStays) { EXPECT_EQ(encoded("/"), "/"); }

TEST(UrlEncode, LettersDigitsAndMarksStay)
{
    EXPECT_EQ(encoded("azAZ09-_.~!*'()"), "azAZ09-_.~!*'()");
}

TEST(UrlEncode, ReservedCharactersStay) { EXPECT_EQ(encoded(";,/?:@&=+$"), ";,/?:@&=+$"); }

TEST(UrlEncode, OtherBytesUseLowerCaseHex)
{
    EXPECT_EQ(encoded("a b%c\\d\"e#"), "a%20b%25c%5cd%22e%23");
}

TEST(UrlEncode, ZeroByteIsEscaped) { EXPECT_EQ(encoded(velk::token("a\0b", 3)), "a%00b"); }

TEST(UrlEncode, HighBytesAreEscapedOneByOne) { EXPECT_EQ(encoded("\xc3\xa9"), "%c3%a9"); }

TEST(UrlEncode, AppendsBehindWhatIsThere)
{
    velk::charstr out = "file:///";
    velk::js::url_encode("my dir/a.js", out);
    EXPECT_EQ(std::string(out.c_str()), "file:///my%20dir/a.js");
}

TEST(UrlEncode, CharacterClassTellsKeptSlashAndEscapedCharacters)
{
    EXPECT_EQ(velk::js::url_char_class('a'), 1);
    EXPECT_EQ(velk::js::url_char_class('~'), 1);
    EXPECT_EQ(velk::js::url_char_class('/'), 2);
    EXPECT_EQ(velk::js::url_char_class(' '), 0);
    EXPECT_EQ(velk::js::url_char_class(0xFF), 0);
}
