#include "plugin/os/adapters.h"

#include "tests/plugin/sysfs_adapters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using xt::testing::mac_bytes;

namespace {

std::vector<mac_bytes> listed_adapters()
{
    velk::dynarray<xt::adapter_address> list;
    EXPECT_TRUE(xt::os::list_adapter_addresses(list));
    std::vector<mac_bytes> macs;
    for (const xt::adapter_address& a : list) {
        mac_bytes m;
        std::copy(a.bytes, a.bytes + m.size(), m.begin());
        macs.push_back(m);
    }
    return macs;
}

} // namespace

TEST(AdapterList, HasOneEntryPerInterfaceOfTheSystem)
{
    SKIP_WITHOUT_SYSFS();
    EXPECT_EQ(listed_adapters().size(), xt::testing::sysfs_adapters().size());
}

TEST(AdapterList, HoldsTheLinkLayerAddressOfEveryInterface)
{
    SKIP_WITHOUT_SYSFS();
    std::vector<mac_bytes> listed = listed_adapters(), expected = xt::testing::sysfs_adapters();
    std::sort(listed.begin(), listed.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(listed, expected);
}

TEST(AdapterList, IncludesTheLoopbackWithItsZeroAddress)
{
    std::vector<mac_bytes> listed = listed_adapters();
    EXPECT_NE(std::find(listed.begin(), listed.end(), mac_bytes{}), listed.end());
}
