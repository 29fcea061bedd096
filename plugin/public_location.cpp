#include "plugin/public_location.h"

#include <curl/curl.h>
#include <json/json.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string>

namespace xt {

namespace {

// Passed to reads of keys that may be missing. A missing text key yields it
// as the field's value; a missing number key makes the float conversion of
// this text throw.
constexpr char missing_value[] = "A Default Value if not exists";

// Spelled this way on purpose: it is the text readers of the record expect.
constexpr char undefined_text[] = "undfined";

// -- Requests ----------------------------------------------------------------

// Where the write callback puts the body. An allocation failure can't
// unwind through libcurl's C frames, so it is kept here and rethrown after
// the request.
struct reply_sink
{
    velk::charstr* reply;
    std::exception_ptr failure;
};

// The longest text a charstr holds: 32-bit count including the terminator.
constexpr uint64_t max_text = UINT32_MAX - 1;

// Appends size * count bytes and takes them all; a failed append ends the
// transfer by taking none.
size_t append_body(char* data, size_t size, size_t count, void* userdata)
{
    auto* sink = static_cast<reply_sink*>(userdata);
    size_t n = size * count;
    try {
        if (n > max_text - sink->reply->lens())
            throw std::bad_alloc();
        sink->reply->append(velk::token(data, n));
    } catch (...) {
        sink->failure = std::current_exception();
        return 0;
    }
    return n;
}

// A successful request returns without curl_easy_cleanup: the handle, and
// any connection it keeps open, stays allocated. Left so on purpose; the
// sanitized builds suppress exactly this leak (see curl_handle_leak.cpp).
void perform(CURL* handle, const velk::charstr& url, reply_sink& sink)
{
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &append_body);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &sink);
    if (curl_easy_perform(handle) != CURLE_OK)
        curl_easy_cleanup(handle);
}

// -- The record --------------------------------------------------------------

void set_text(velk::charstr& field, const std::string& text)
{
    field.set(text.data(), static_cast<uint32_t>(text.size()));
}

void fill_failure(public_location& loc, const std::string& errors, const location_services& services)
{
    set_text(loc.status, errors);
    loc.message = "geolocation of IP could not be parsed by ";
    loc.message << services.location_url << ' ';
    loc.ip = undefined_text;
    loc.country = undefined_text;
    loc.region = undefined_text;
    loc.latitude = 0;
    loc.longitude = 0;
}

// Reads the four keys; "lat" or "lon" missing throws Json::LogicError.
void fill_success(public_location& loc, const Json::Value& root, const velk::charstr& address,
                  const location_services& services)
{
    loc.status = "IPidentified";
    loc.message = "IPaddress and geolocation found by ";
    loc.message << services.address_url << " and " << services.location_url;
    set_text(loc.country, root.get("country", missing_value).asString());
    set_text(loc.region, root.get("regionName", missing_value).asString());
    loc.latitude = root.get("lat", missing_value).asFloat();
    loc.longitude = root.get("lon", missing_value).asFloat();
    loc.ip = address;
}

// Parses with a reader from a default builder; false with errors on failure.
bool parse_json(const velk::charstr& text, Json::Value& root, std::string& errors)
{
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    return reader->parse(text.c_str(), text.c_str() + text.lens(), &root, &errors);
}

} // namespace

void fetch_url(const velk::token& url, velk::charstr& reply)
{
    // libcurl wants a zero-terminated URL.
    velk::charstr url_text(url);
    reply_sink sink{&reply, nullptr};
    curl_global_init(CURL_GLOBAL_ALL); // 3: SSL and, on Windows, Winsock
    if (CURL* handle = curl_easy_init())
        perform(handle, url_text, sink);
    curl_global_cleanup();
    if (sink.failure)
        std::rethrow_exception(sink.failure);
}

void location_query_url(const location_services& services, const velk::token& address, velk::charstr& url)
{
    url = services.location_url;
    url << address;
}

public_location lookup_public_location(const location_services& services)
{
    velk::charstr address, query, answer;
    fetch_url(services.address_url, address);
    location_query_url(services, address, query);
    fetch_url(query, answer);

    Json::Value root;
    std::string errors;
    bool parsed = parse_json(answer, root, errors);
    public_location loc;
    fill_failure(loc, errors, services);
    if (parsed)
        fill_success(loc, root, address, services);
    return loc;
}

public_location lookup_public_location()
{
    return lookup_public_location(location_services{});
}

} // namespace xt
