// Test helper: a name service that answers from tables of its own, so that
// tests of names never reach a network, and records what it was asked.
// fake_names puts it in place for one scope and restores the one before.
#pragma once

#include "comm/os/net.h"

#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velk::testing {

struct fake_name_tables
{
    std::string host = "probe-host";         // this machine's name; empty: no name
    std::map<std::string, uint32_t> address; // name -> address, network order
    std::map<uint32_t, std::string> name;    // address, network order -> name
    // The names asked of address_of, a null name as nullopt.
    std::vector<std::optional<std::string>> asked;
    int name_of_calls = 0;
};

inline fake_name_tables& fake_tables()
{
    static fake_name_tables t;
    return t;
}

// The fake's answers follow the contracts of os::name_service.
inline bool fake_host_name(char* buf, uint32_t size)
{
    const std::string& h = fake_tables().host;
    if (h.empty() || h.size() + 1 > size)
        return false;
    memcpy(buf, h.c_str(), h.size() + 1);
    return true;
}

inline bool fake_address_of(const char* name, uint32_t& addr_net)
{
    fake_name_tables& t = fake_tables();
    t.asked.push_back(name ? std::optional<std::string>(name) : std::nullopt);
    auto it = t.address.find(name ? name : t.host);
    if (it == t.address.end())
        return false;
    addr_net = it->second;
    return true;
}

inline bool fake_name_of(uint32_t addr_net, charstr& out)
{
    fake_name_tables& t = fake_tables();
    ++t.name_of_calls;
    auto it = t.name.find(addr_net);
    if (it == t.name.end())
        return false;
    out = token(it->second.data(), it->second.size());
    return true;
}

// An address in network order from its four bytes.
inline uint32_t net_order(uint8_t a, uint8_t b, uint8_t c, uint8_t d)
{
    uint8_t bytes[4] = {a, b, c, d};
    uint32_t v;
    memcpy(&v, bytes, 4);
    return v;
}

// Puts the fake in place, with fresh tables, for the life of the object.
class fake_names
{
public:
    fake_names()
    {
        fake_tables() = fake_name_tables();
        _old = os::set_name_service(&service);
    }
    ~fake_names() { os::set_name_service(_old); }
    fake_names(const fake_names&) = delete;
    fake_names& operator=(const fake_names&) = delete;

    fake_name_tables& tables() { return fake_tables(); }

private:
    static constexpr os::name_service service{fake_host_name, fake_address_of, fake_name_of};
    const os::name_service* _old;
};

} // namespace velk::testing
