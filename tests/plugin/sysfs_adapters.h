// Test helper: the machine's adapters as sysfs tells them, read apart from
// the code under test: /sys/class/net/NAME/address, the first six bytes of
// the text "aa:bb:...", zeros for an empty address.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace xt::testing {

using mac_bytes = std::array<uint8_t, 6>;

inline mac_bytes parse_sysfs_address(const std::string& text)
{
    mac_bytes mac{};
    size_t k = 0;
    // Two digits and a ':' per byte.
    for (size_t pos = 0; k < mac.size() && pos + 2 <= text.size(); pos += 3, ++k)
        mac[k] = static_cast<uint8_t>(std::stoul(text.substr(pos, 2), nullptr, 16));
    return mac;
}

// Whether this system shows its adapters in sysfs: a chroot without /sys
// mounted does not, and a comparison with sysfs has nothing to compare.
inline bool sysfs_shows_adapters() { return std::filesystem::is_directory("/sys/class/net"); }

#define SKIP_WITHOUT_SYSFS()                                                                                        \
    if (!xt::testing::sysfs_shows_adapters())                                                                       \
    GTEST_SKIP() << "/sys/class/net is not there (is /sys mounted?)"

// One entry per interface directory, in no particular order. Files beside
// them (such as bonding_masters) are not interfaces.
inline std::vector<mac_bytes> sysfs_adapters()
{
    std::vector<mac_bytes> macs;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/net")) {
        if (!entry.is_directory())
            continue;
        std::ifstream in(entry.path() / "address");
        std::string text;
        std::getline(in, text);
        macs.push_back(parse_sysfs_address(text));
    }
    return macs;
}

// The adapter text computed in the plainest way: six sums, "%x" each.
inline std::string sysfs_adapter_text(const std::vector<mac_bytes>& macs)
{
    if (macs.empty())
        return "";
    unsigned sums[6] = {};
    for (const mac_bytes& m : macs)
        for (size_t k = 0; k < 6; ++k)
            sums[k] += m[k];
    std::string text;
    for (unsigned s : sums) {
        char part[16]; // a 32-bit value is at most 8 hexadecimal digits
        snprintf(part, sizeof part, "%x", s);
        text += part;
    }
    return text;
}

} // namespace xt::testing
