// Platform seam of the adapter query: the machine's network adapters as a
// list of link-layer address fields.
//
// One entry per interface, in the order the system lists them; none is
// skipped (loopback, tunnels and interfaces that are down count too). Each
// entry is the 8-byte address field: the address bytes first, zeros behind a
// shorter address and in the whole field of an interface without one.
#pragma once

#include "comm/dynarray.h"

#include <cstdint>

namespace xt {

// The address field of one adapter. Bytes 0 to 5 are what the adapter text
// is made of; 6 and 7 are copied along but play no part.
struct adapter_address
{
    uint8_t bytes[8];
};

namespace os {

// Fills out, which must be empty, with every interface's address field in
// system order. False when the system gives no list; out is then empty.
// Throws std::bad_alloc when out cannot grow, with out left empty.
bool list_adapter_addresses(velk::dynarray<adapter_address>& out);

} // namespace os
} // namespace xt
