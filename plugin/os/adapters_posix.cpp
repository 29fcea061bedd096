// Adapter list on Linux: getifaddrs, whose AF_PACKET entries carry the
// link-layer addresses.
//
// getifaddrs gives one entry per interface and address, not per interface:
// each interface comes first with its link entry (ifa_addr null when it has
// no link-layer address), then again for each IPv4 and IPv6 address, the
// IPv4 ones under their label ("eth0:1"). Interfaces are told apart by the
// device name before any ':' (the kernel allows no ':' in device names),
// kept in order of first appearance, which is the system's order.
#include "plugin/os/adapters.h"

#include "comm/token.h"

#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace xt::os {

namespace {

struct ifaddrs_deleter
{
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

// The device name of an entry: its name up to an address label's ':'.
velk::token device_name(const char* name)
{
    const char* colon = strchr(name, ':');
    return colon ? velk::token(name, colon) : velk::token(name);
}

// Index of device in names, or names.size() when it is new.
uint32_t find_device(const velk::dynarray<velk::token>& names, const velk::token& device)
{
    uint32_t i = 0;
    while (i < names.size() && !(names[i] == device))
        ++i;
    return i;
}

// Copies the link-layer address of a link entry; longer addresses are cut to
// the field, shorter ones leave zeros behind them.
void copy_link_address(const ifaddrs& entry, adapter_address& field)
{
    const auto* ll = reinterpret_cast<const sockaddr_ll*>(entry.ifa_addr);
    size_t n = std::min<size_t>(ll->sll_halen, sizeof field.bytes);
    memcpy(field.bytes, ll->sll_addr, n);
}

bool is_link_entry(const ifaddrs& entry)
{
    return entry.ifa_addr && entry.ifa_addr->sa_family == AF_PACKET;
}

// One pass over the list: a new device opens a zeroed field, its link entry
// fills it. Both arrays grow together, so an index names both.
void collect(const ifaddrs* list, velk::dynarray<velk::token>& names, velk::dynarray<adapter_address>& out)
{
    for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_name)
            continue;
        velk::token device = device_name(entry->ifa_name);
        uint32_t i = find_device(names, device);
        if (i == names.size()) {
            names.push(device);
            out.push(); // value-initialised: all zeros until a link entry fills it
        }
        if (is_link_entry(*entry))
            copy_link_address(*entry, out[i]);
    }
}

} // namespace

bool list_adapter_addresses(velk::dynarray<adapter_address>& out)
{
    ifaddrs* raw = nullptr;
    if (getifaddrs(&raw) != 0)
        return false;
    std::unique_ptr<ifaddrs, ifaddrs_deleter> list(raw);
    // The names point into the list, which outlives them.
    velk::dynarray<velk::token> names;
    try {
        collect(list.get(), names, out);
    } catch (...) {
        out.discard(); // keep the contract: nothing half-filled
        throw;
    }
    return true;
}

} // namespace xt::os
