#include "plugin/adapter_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using xt::adapter_address;

namespace {

std::string text_of(const std::vector<adapter_address>& adapters)
{
    velk::charstr t = xt::adapter_text(adapters);
    return std::string(t.c_str(), t.lens());
}

// n copies of one adapter.
std::vector<adapter_address> repeated(const adapter_address& a, size_t n)
{
    return std::vector<adapter_address>(n, a);
}

// Test listers: what the platform's lister would have written.
bool list_two_adapters(velk::dynarray<adapter_address>& out)
{
    *out.push() = {{0x01, 0x02, 0x03, 0x04, 0x05, 0x06}};
    *out.push() = {{0xFF, 0x00, 0x00, 0x00, 0x00, 0x01}};
    return true;
}

bool list_fails_after_writing(velk::dynarray<adapter_address>& out)
{
    *out.push() = {{0x01, 0x02, 0x03, 0x04, 0x05, 0x06}};
    return false;
}

} // namespace

TEST(AdapterText, TwoAdaptersGiveTheirByteSums)
{
    // Sums 0x100, 2, 3, 4, 5, 7.
    EXPECT_EQ(text_of({{{0x01, 0x02, 0x03, 0x04, 0x05, 0x06}}, {{0xFF, 0x00, 0x00, 0x00, 0x00, 0x01}}}),
              "10023457");
}

TEST(AdapterText, LoopbackOnlyWithZeroAddressGivesSixZeros)
{
    EXPECT_EQ(text_of({adapter_address{}}), "000000");
}

TEST(AdapterText, EachPartIsAsWideAsItsValue)
{
    EXPECT_EQ(text_of({{{0x00, 0x1A, 0x2B, 0x03, 0x4D, 0x5E}}}), "01a2b34d5e");
}

TEST(AdapterText, SumsAboveFfTakeThreeDigits)
{
    // Two all-ones addresses: every sum is 0x1FE.
    EXPECT_EQ(text_of(repeated({{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}}, 2)), "1fe1fe1fe1fe1fe1fe");
}

TEST(AdapterText, SumsAboveFffTakeFourDigits)
{
    // 17 times 0xFF is 0x10EF; the zero byte stays one digit.
    EXPECT_EQ(text_of(repeated({{0xFF, 0x00, 0xFF, 0x00, 0xFF, 0x00}}, 17)), "10ef010ef010ef0");
}

TEST(AdapterText, BytesSixAndSevenPlayNoPart)
{
    EXPECT_EQ(text_of({{{1, 2, 3, 4, 5, 6, 0xAA, 0xBB}}}), text_of({{{1, 2, 3, 4, 5, 6, 0, 0}}}));
}

TEST(AdapterText, OrderOfAdaptersHasNoEffect)
{
    std::vector<adapter_address> adapters = {
        {{0x02, 0xFC, 0x00, 0x00, 0x00, 0x01}},
        {{0x0A, 0x72, 0x9F, 0x71, 0xBB, 0x93}},
        {{0xEE, 0x76, 0x66, 0x65, 0x9B, 0x1C}},
        {{0x00, 0x00, 0x00, 0x00, 0x00, 0x00}},
    };
    const std::string first = text_of(adapters);
    auto by_bytes = [](const adapter_address& a, const adapter_address& b) {
        return std::lexicographical_compare(a.bytes, a.bytes + 8, b.bytes, b.bytes + 8);
    };
    std::sort(adapters.begin(), adapters.end(), by_bytes);
    do {
        EXPECT_EQ(text_of(adapters), first);
    } while (std::next_permutation(adapters.begin(), adapters.end(), by_bytes));
}

TEST(AdapterText, NoAdapterGivesEmptyText)
{
    EXPECT_EQ(text_of({}), "");
}

TEST(QueryAdapterText, UsesTheListedAdapters)
{
    velk::charstr t = xt::query_adapter_text(&list_two_adapters);
    EXPECT_EQ(std::string(t.c_str()), "10023457");
}

TEST(QueryAdapterText, FailingListGivesEmptyText)
{
    // Whatever the failed list wrote counts for nothing.
    EXPECT_TRUE(xt::query_adapter_text(&list_fails_after_writing).is_empty());
}
