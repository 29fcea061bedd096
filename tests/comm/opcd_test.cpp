#include "comm/opcd.h"

#include "comm/token.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using velk::opcd;
namespace ers = velk::ers;

TEST(Opcd, DefaultIsSuccess)
{
    opcd e;
    EXPECT_FALSE(e);
    EXPECT_EQ(e.code(), 0);
    EXPECT_STREQ(e.text(), "OK");
    EXPECT_TRUE(e == opcd(nullptr));
}

TEST(Opcd, SetCode65IsUnknownError)
{
    opcd e;
    e.set_code(65);
    EXPECT_TRUE(e == ers::unknown);
    EXPECT_STREQ(e.text(), "unknown error");
    EXPECT_TRUE(e.mnemonic() == velk::token("?????"));
}

TEST(Opcd, SetCodeZeroIsSuccess)
{
    opcd e = ers::failed;
    e.set_code(0);
    EXPECT_FALSE(e);
}

TEST(Opcd, SetCodeGivesItsRow)
{
    opcd e;
    e.set_code(39);
    EXPECT_TRUE(e == ers::timeout);
    EXPECT_STREQ(e.text(), "timeout");
}

TEST(Opcd, DetailedValueEqualsPlainValue)
{
    EXPECT_TRUE(ers::syntax_expected_string == ers::syntax);
    EXPECT_FALSE(ers::syntax_expected_string == ers::timeout);
    EXPECT_TRUE(ers::syntax_expected_string);
}

TEST(Opcd, DetailedValueCarriesItsDetail)
{
    EXPECT_STREQ(ers::syntax_expected_string.text(), "syntax error, format invalid");
    EXPECT_STREQ(ers::syntax_expected_string.info(), "expected string");
    EXPECT_TRUE(ers::syntax_expected_string.mnemonic() == velk::token("SynEr"));
}

TEST(Opcd, PlainValueHasEmptyDetail)
{
    EXPECT_STREQ(ers::io_error.info(), "");
}

TEST(Opcd, InfoOfNullIsEmptyNeverNull)
{
    const char* info = opcd().info();
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info, "");
}

TEST(Opcd, FindByMnemonicOkIsZero)
{
    EXPECT_EQ(opcd::find_by_mnemonic("OK", 2), 0);
}

TEST(Opcd, FindByMnemonicGivesTheCodeOfAKnownMnemonic)
{
    EXPECT_EQ(opcd::find_by_mnemonic("TimeO", 5), 39);
}

TEST(Opcd, FindByMnemonicUnknownTextIsOne)
{
    EXPECT_EQ(opcd::find_by_mnemonic("Nope!", 5), 1);
}

TEST(Opcd, FindByMnemonicComparesSixthByte)
{
    // Six bytes reach the row's terminating zero: a longer text is no match.
    EXPECT_EQ(opcd::find_by_mnemonic("TimeOx", 6), 1);
    EXPECT_EQ(opcd::find_by_mnemonic("TimeOx", 5), 39);
}

TEST(Opcd, GroupMatchTellsWhetherARowBelongsToAGroup)
{
    EXPECT_TRUE(opcd::group_matches(22, 21));
    EXPECT_TRUE(opcd::group_matches(23, 21));
    EXPECT_TRUE(opcd::group_matches(42, 2));
    EXPECT_TRUE(opcd::group_matches(60, 2));
    EXPECT_FALSE(opcd::group_matches(61, 2));
    EXPECT_TRUE(opcd::group_matches(61, -42));
    EXPECT_FALSE(opcd::group_matches(65, 0));
}

TEST(Opcd, EveryRowKnowsItsCodeAndMnemonic)
{
    for (uint32_t c = 1; c < opcd::row_count; ++c) {
        opcd e;
        e.set_code(c);
        EXPECT_EQ(e.code(), c);
        std::string m(e.mnemonic().ptr(), 5);
        EXPECT_EQ(opcd::find_by_mnemonic(m.c_str(), 5), c) << m;
        EXPECT_GT(strlen(e.text()), 0u);
    }
}

TEST(Opcd, RowsOneAndSixtyShareText)
{
    EXPECT_STREQ(ers::unknown.text(), ers::fe_unknown.text());
    EXPECT_STREQ(ers::assertion.text(), "assertion failed");
}

TEST(Opcd, RowRecordTakesEightBytes)
{
    EXPECT_EQ(sizeof(velk::opcd_rows[0]), 8u);
    EXPECT_EQ(sizeof(opcd), sizeof(void*));
}

TEST(Opcd, ThrownAndCaughtByValue)
{
    try {
        throw ers::no_more_required_data;
    } catch (opcd e) {
        EXPECT_TRUE(e == ers::no_more);
        EXPECT_STREQ(e.info(), "required more data than available");
    }
}
