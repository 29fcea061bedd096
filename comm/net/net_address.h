// net_address: an IPv4 endpoint in the exact layout of the system's socket
// address, set from texts such as "user@host:port/path", printed, and
// resolved; and the start and end of the network layer with the lookups of
// this machine.
//
// Invariant: 16 bytes, family 2 at offset 0, the port at 2 and the address at
// 4 in network order, eight zero bytes behind; so a net_address is passed to
// socket calls as it stands. Only IPv4 exists here.
//
//   net_address a("http://me@example:81/x", 80, false);   // host "example", port 81
//   if (a.is_any()) ...                                  // the name did not resolve
//   charstr s; a.to_text(s, true);                        // "93.184.216.34:81"
//
// A failed resolution is no error: it leaves the address 0, "any", for the
// caller to test. Nothing here throws, apart from std::bad_alloc for texts,
// and nothing logs. Lookups may block for as long as the resolver takes.
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

// Starts the network layer: 0, or -1 when it could not start. Each success
// registers one end of the layer with the exit handling of the runtime.
int net_startup();

class net_address
{
public:
    static constexpr uint16_t family_inet = 2;
    static constexpr uint32_t loopback = 0x7F000001; // 127.0.0.1, host order
    static constexpr uint32_t broadcast = 0xFFFFFFFF;

    // Family 2, any address, port 0.
    net_address() = default;
    // As set.
    net_address(const token& name, uint16_t port, bool port_override) { set(name, port, port_override); }

    // Sets the record from name, of the forms "host", "host:port",
    // "user@host:port/path" and "scheme://user@host:port/path"; the scheme,
    // user and path are dropped. An empty name is any, "<broadcast>" the
    // broadcast address, "localhost" 127.0.0.1 without a lookup; other hosts
    // go to the resolver unless dotted, and one that doesn't resolve leaves
    // the address any. A port in the name replaces port unless port is not 0
    // and port_override is set; it is cut to 16 bits, so "-1" is 65535.
    void set(const token& name, uint16_t port, bool port_override);

    // Clears the record and stores the address and port, both in host order.
    void set_numeric(uint32_t addr, uint16_t port);

    bool is_local() const { return addr() == loopback; }
    bool is_any() const { return _addr == 0; }
    void set_any() { _addr = 0; }
    bool is_broadcast() const { return _addr == broadcast; }

    uint16_t family() const { return _family; }
    // The address and the port in host order.
    uint32_t addr() const;
    uint16_t port() const;
    void set_port(uint16_t port);

    // Replaces out with the dotted address, and ":port" when with_port; returns out.
    charstr& to_text(charstr& out, bool with_port) const;

    // Replaces out with the address's name: "localhost" for 127.0.0.1 without
    // a lookup, else the resolver's name, else the dotted address; ":port"
    // follows when with_port. Returns out.
    charstr& to_host_name(charstr& out, bool with_port) const;

    // The address of this machine's name, port 0; any when it doesn't resolve.
    void local_address();
    // local_address with the last address byte 255.
    void local_broadcast();

    // The dotted text of this machine's first address, "127.0.0.1" when there
    // is none. The text belongs to the calling thread and is valid until its
    // next such call.
    static const char* local_ip_text();

    // This machine's name, at most 64 characters; empty when it can't be had.
    static charstr local_host_name();

    // Byte for byte.
    bool operator==(const net_address& other) const;

    // The record itself, for the socket calls.
    const void* data() const { return this; }
    void* data() { return this; }

private:
    friend struct net_address_layout;

    uint16_t _family = family_inet;
    uint16_t _port = 0; // network order
    uint32_t _addr = 0; // network order
    uint8_t _zero[8] = {};
};

} // namespace velk
