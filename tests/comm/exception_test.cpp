#include "comm/exception.h"

#include <gtest/gtest.h>

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
