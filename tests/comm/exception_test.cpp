#include "comm/exception.h"

#include "comm/opcd.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

TEST(Exception, DefaultTextIsUnknownException)
{
    EXPECT_STREQ(velk::exception().what(), "Unknown Exception");
}

TEST(Exception, AppendingToDefaultDropsTheDefaultText)
{
    velk::exception e;
    e << "disk full";
    EXPECT_STREQ(e.what(), "disk full");
}

TEST(Exception, StaticTextAloneIsReturnedTwice)
{
    velk::exception e("no file");
    EXPECT_STREQ(e.what(), "no file");
    EXPECT_STREQ(e.what(), "no file");
}

TEST(Exception, ChainOnStaticTextHasOneColon)
{
    velk::exception e("cannot open");
    e << "a" << "b";
    EXPECT_STREQ(e.what(), "cannot open: ab");
}

TEST(Exception, TokenTextIsCopied)
{
    std::string text = "copied";
    velk::exception e(velk::token(text.data(), text.size()));
    text = "changed";
    EXPECT_STREQ(e.what(), "copied");
}

TEST(Exception, CopySurvivesThrow)
{
    try {
        throw velk::exception("static") << "tail";
    } catch (const velk::exception& e) {
        EXPECT_STREQ(e.what(), "static: tail");
    }
}

TEST(Exception, CatchableAsStdException)
{
    try {
        throw velk::exception("x");
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "x");
    }
}

// -- Texts built by the exception ------------------------------------------------

TEST(Exception, CodeWithDetailReadsTextColonDetail)
{
    velk::opcd code = velk::ers::io_error_write_failed;
    std::string expected = std::string(code.text()) + " : write operation failed";
    EXPECT_EQ(velk::exception(code).what(), expected);
}

TEST(Exception, CodeWithoutDetailReadsItsText)
{
    velk::opcd code = velk::ers::not_found;
    EXPECT_STREQ(velk::exception(code).what(), code.text());
}

TEST(Exception, AppendToCodeFollowsTheTextDirectly)
{
    velk::opcd code = velk::ers::not_found;
    velk::exception e(code);
    e << "!";
    EXPECT_EQ(std::string(e.what()), std::string(code.text()) + "!");
}

TEST(Exception, NullStaticTextGivesEmptyText)
{
    EXPECT_STREQ(velk::exception(static_cast<const char*>(nullptr)).what(), "");
}

TEST(Exception, EmptyTokenGivesEmptyText)
{
    EXPECT_STREQ(velk::exception(velk::token("", size_t(0))).what(), "");
}

TEST(Exception, CopyOfStaticTextReadsTheStaticText)
{
    static const char text[] = "static";
    velk::exception e(static_cast<const char*>(text));
    velk::exception copy(e);
    EXPECT_STREQ(copy.what(), "static");
}

TEST(Exception, CharIsAppended)
{
    velk::exception e("code");
    e << 'x';
    EXPECT_STREQ(e.what(), "code: x");
}

TEST(Exception, SignedIntegerIsAppendedInDecimal)
{
    velk::exception e("line");
    e << -42;
    EXPECT_STREQ(e.what(), "line: -42");
}

TEST(Exception, UnsignedIntegerIsAppendedInDecimal)
{
    velk::exception e;
    e << uint64_t(18446744073709551615u);
    EXPECT_STREQ(e.what(), "18446744073709551615");
}

TEST(Exception, LiteralLengthComesFromTheLiteral)
{
    velk::exception e;
    e << "a literal";
    EXPECT_EQ(std::string(e.what()).size(), 9u);
}

TEST(Exception, CopyHasItsOwnBuiltText)
{
    velk::exception e("first");
    e << "a";
    velk::exception copy(e);
    e << "b";
    EXPECT_STREQ(copy.what(), "first: a");
    EXPECT_STREQ(e.what(), "first: ab");
}

TEST(Exception, AppendAfterWhatOnStaticTextStillHasOneColon)
{
    velk::exception e("static");
    e.what();
    e << "tail";
    EXPECT_STREQ(e.what(), "static: tail");
}
