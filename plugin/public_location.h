// The public address and location lookup: a native service of the plug-in
// that no script reaches.
//
// Two outside services are asked in turn: an address echo gives the
// machine's public address as plain text, and a geolocation service, asked
// about that text, gives a JSON object. The result is a plain record; a
// reply that isn't JSON gives the failure record, whose status is the JSON
// reader's error text.
//
//   public_location here = lookup_public_location();
//   if (here.status == "IPidentified") show(here.country, here.latitude);
//
// Each request blocks without a time limit, and libcurl's global state is
// set up and torn down around it: the lookup must not run while another
// part of the process uses libcurl on another thread.
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"

namespace xt {

struct public_location
{
    velk::charstr status;    // "IPidentified", or the JSON reader's error text
    velk::charstr message;   // for a person: which services were asked
    velk::charstr ip;        // as the address service wrote it; "undfined" on failure
    velk::charstr country;   // "undfined" on failure
    velk::charstr region;    // "undfined" on failure
    float latitude = 0;      // 0 on failure
    float longitude = 0;     // 0 on failure
};

// The two endpoints. The location URL is a prefix: the address is appended
// to it as it stands.
struct location_services
{
    // A public-address echo over HTTPS, answering in plain text.
    velk::charstr address_url = "https://myexternalip.com/raw";
    // Geolocation by address over plain HTTP, answering with a JSON object.
    velk::charstr location_url = "http://ip-api.com/json/";
};

// One GET of url; the body is appended to reply as it arrives. Nothing is
// reported: on any failure reply holds what had arrived by then. No time
// limit, no redirects followed, no certificate settings. The easy handle of
// a successful request is deliberately not cleaned up (it leaks, with any
// connection it keeps); that of a failed one is. Throws std::bad_alloc
// when reply cannot grow, after the request has ended.
void fetch_url(const velk::token& url, velk::charstr& reply);

// The second URL: the location prefix followed by the address, unchanged:
// no trimming, no escaping. An empty address asks about the caller itself.
void location_query_url(const location_services& services, const velk::token& address, velk::charstr& url);

// Asks both services and fills the record. Failures of either request or of
// the JSON parse give the failure record (see public_location); an address
// request that fails alone gives success with an empty ip. A JSON object
// without "lat" or "lon" throws jsoncpp's Json::LogicError, which reaches
// the caller. Throws std::bad_alloc.
public_location lookup_public_location(const location_services& services);

// The same with the default services.
public_location lookup_public_location();

} // namespace xt
