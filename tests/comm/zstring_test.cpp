#include "comm/zstring.h"

#include "comm/charstr.h"
#include "comm/singleton.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

using velk::charstr;
using velk::token;
using velk::zstring;

// -- Borrowing -------------------------------------------------------------------

TEST(Zstring, DefaultIsEmptyAndNeverNull)
{
    zstring z;
    ASSERT_NE(z.c_str(), nullptr);
    EXPECT_STREQ(z.c_str(), "");
    EXPECT_EQ(z.lens(), 0u);
}

TEST(Zstring, ZeroTerminatedTextIsBorrowedNotCopied)
{
    const char* text = "borrowed";
    zstring z(text);
    EXPECT_EQ(z.c_str(), text);
    EXPECT_FALSE(z.owns_string());
}

TEST(Zstring, NullTextBorrowsTheEmptyText)
{
    zstring z(static_cast<const char*>(nullptr));
    ASSERT_NE(z.c_str(), nullptr);
    EXPECT_EQ(z.lens(), 0u);
}

TEST(Zstring, LengthOfBorrowedTextIsFoundByScan)
{
    zstring z("twelve chars");
    EXPECT_EQ(z.lens(), 12u);
    EXPECT_TRUE(z.get_token() == token("twelve chars"));
}

TEST(Zstring, ReadingTouchesNoPool)
{
    zstring z("read only");
    z.lens();
    z.c_str();
    z.get_token();
    EXPECT_EQ(z.get_pool(), nullptr);
}

// -- Copying constructors -------------------------------------------------------------

TEST(Zstring, TokenTextIsCopiedAtOnce)
{
    std::string text = "from a token";
    zstring z(token(text.data(), text.size()));
    text = "overwritten!";
    EXPECT_TRUE(z.owns_string());
    EXPECT_STREQ(z.c_str(), "from a token");
}

// A token has no terminator of its own: only its characters are copied,
// not the rest of the text it was cut from.
TEST(Zstring, TokenCutFromInsideATextCopiesOnlyItsCharacters)
{
    const char* text = "abcdef";
    zstring z(token(text + 1, 3));
    EXPECT_STREQ(z.c_str(), "bcd");
}

TEST(Zstring, EmptyTokenGivesEmptyText)
{
    zstring z(token("x", size_t(0)));
    EXPECT_EQ(z.lens(), 0u);
    EXPECT_STREQ(z.c_str(), "");
}

TEST(Zstring, CharstrTextIsCopied)
{
    charstr s("source", -1);
    zstring z(s);
    s = "changed";
    EXPECT_STREQ(z.c_str(), "source");
}

TEST(Zstring, CopyBorrowsTheOthersPooledText)
{
    zstring a("pooled");
    a.get_str();
    zstring b(a);
    EXPECT_EQ(b.c_str(), a.c_str());
    EXPECT_FALSE(b.owns_string());
}

TEST(Zstring, CopyBorrowsTheOthersBorrowedText)
{
    const char* text = "shared";
    zstring a(text);
    zstring b(a);
    EXPECT_EQ(b.c_str(), text);
}

// -- get_str ---------------------------------------------------------------------

TEST(Zstring, GetStrCopiesTheBorrowedText)
{
    const char* text = "copied";
    zstring z(text);
    charstr& s = z.get_str();
    EXPECT_TRUE(s == token("copied"));
    EXPECT_NE(z.c_str(), text);
}

TEST(Zstring, GetStrGivesTheSameStringTwice)
{
    zstring z("once");
    charstr* first = &z.get_str();
    EXPECT_EQ(&z.get_str(), first);
}

TEST(Zstring, GetStrTakesFromTheThreadsDefaultPool)
{
    zstring z("x");
    z.get_str();
    EXPECT_EQ(z.get_pool(), zstring::thread_pool());
}

TEST(Zstring, GetStrPrefersTheArgumentsPool)
{
    zstring::zpool mine, given;
    zstring z(&mine);
    z.get_str(&given);
    EXPECT_EQ(z.get_pool(), &given);
}

TEST(Zstring, GetStrUsesTheObjectsPoolWithoutArgument)
{
    zstring::zpool mine;
    zstring z(&mine);
    z.get_str();
    EXPECT_EQ(z.get_pool(), &mine);
}

// -- free_string and reuse ---------------------------------------------------------------

TEST(Zstring, FreedStringGoesBackToItsPool)
{
    zstring::zpool p;
    {
        zstring z(&p);
        z << "text";
    }
    EXPECT_FALSE(p.is_empty());
}

TEST(Zstring, NextZstringReusesTheFreedString)
{
    zstring::zpool p;
    charstr* used;
    {
        zstring a(&p);
        used = &a.get_str();
    }
    zstring b(&p);
    EXPECT_EQ(&b.get_str(), used);
}

TEST(Zstring, ReusedStringStartsEmpty)
{
    zstring::zpool p;
    {
        zstring a(&p);
        a << "old text";
    }
    zstring b(&p);
    b << "new";
    EXPECT_STREQ(b.c_str(), "new");
}

TEST(Zstring, LongTextWithSmallMaxSizeIsFreedAndThePoolStaysEmpty)
{
    zstring::zpool p;
    p.max_size = 16; // below the capacity of the text below
    {
        zstring z(&p);
        z << "a text much longer than sixteen characters";
    }
    EXPECT_TRUE(p.is_empty());
}

TEST(Zstring, ShortTextWithSmallMaxSizeIsKept)
{
    zstring::zpool p;
    p.max_size = 1024; // far above what a short text needs
    {
        zstring z(&p);
        z << "short";
    }
    EXPECT_FALSE(p.is_empty());
}

TEST(Zstring, FreeStringLeavesItEmpty)
{
    zstring z("text");
    z.get_str();
    z.free_string();
    EXPECT_FALSE(z.owns_string());
    EXPECT_EQ(z.lens(), 0u);
}

// -- Appends ---------------------------------------------------------------------

TEST(Zstring, AppendCopiesTheBorrowedTextFirst)
{
    const char* text = "ab";
    zstring z(text);
    z << "cd";
    EXPECT_STREQ(z.c_str(), "abcd");
    EXPECT_STREQ(text, "ab");
}

TEST(Zstring, AppendToEmptyCopies)
{
    const char* text = "first";
    zstring z;
    z << text;
    EXPECT_TRUE(z.owns_string());
    EXPECT_NE(z.c_str(), text);
}

TEST(Zstring, AppendsTokenCharstrAndZstring)
{
    zstring other("z");
    zstring z;
    z << token("t") << charstr("c", -1) << other;
    EXPECT_STREQ(z.c_str(), "tcz");
}

TEST(Zstring, AppendOfItselfDoublesTheText)
{
    zstring z("ab");
    z << z;
    EXPECT_STREQ(z.c_str(), "abab");
}

// -- The pools ---------------------------------------------------------------------

TEST(ZstringPools, NewZpoolKeepsEveryString)
{
    zstring::zpool p;
    EXPECT_EQ(p.max_size, UINT64_MAX);
}

TEST(ZstringPools, ThreadPoolIsTheSameOnOneThread)
{
    EXPECT_EQ(zstring::thread_pool(), zstring::thread_pool());
}

TEST(ZstringPools, ThreadPoolKeepsEveryString)
{
    EXPECT_EQ(zstring::thread_pool()->max_size, UINT64_MAX);
}

TEST(ZstringPools, EachThreadHasItsOwnPool)
{
    zstring::zpool* mine = zstring::thread_pool();
    zstring::zpool* other = nullptr;
    std::thread([&] { other = zstring::thread_pool(); }).join();
    ASSERT_NE(other, nullptr);
    EXPECT_NE(other, mine);
}

// The pool of a thread that ended stays: a string made there may come back later.
TEST(ZstringPools, StringReturnsToThePoolOfAnEndedThread)
{
    zstring* z = nullptr;
    std::thread([&] {
        z = new zstring("made elsewhere");
        z->get_str();
    }).join();
    zstring::zpool* pool = z->get_pool();
    delete z;
    EXPECT_FALSE(pool->is_empty());
}

TEST(ZstringPools, ProcessPoolIsOneInstance)
{
    EXPECT_EQ(zstring::process_pool(), zstring::process_pool());
}

TEST(ZstringPools, ProcessPoolIsRegisteredUnderTheTypeNameOfZpool)
{
    zstring::zpool* p = zstring::process_pool();
    EXPECT_EQ(velk::register_singleton_of<zstring::zpool>(false), p);
}
