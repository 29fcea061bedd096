// The lookup against two services of the test's own on 127.0.0.1; nothing
// here reaches beyond the machine.
#include "plugin/public_location.h"

#include "tests/support/loopback_http_server.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <string>
#include <type_traits>

using velk::testing::loopback_http_server;
using velk::testing::refusing_port;
using xt::location_services;
using xt::public_location;

namespace {

constexpr char address_reply[] = "203.0.113.7"; // a documentation address (TEST-NET-3)
constexpr char good_location[] =
    R"({"status":"success","country":"Examplestan","regionName":"North Reach",)"
    R"("lat":48.5,"lon":-123.25,"query":"203.0.113.7"})";

std::string str(const velk::charstr& s)
{
    return std::string(s.c_str(), s.lens());
}

location_services services(const std::string& address_url, const std::string& location_url)
{
    location_services s;
    s.address_url = velk::token(address_url.c_str());
    s.location_url = velk::token(location_url.c_str());
    return s;
}

// Both services up, answering address_body and location_body.
struct two_services
{
    loopback_http_server address;
    loopback_http_server location;

    two_services(std::string address_body, std::string location_body)
        : address(std::move(address_body)), location(std::move(location_body))
    {
    }
    location_services urls() const { return services(address.url("/raw"), location.url("/json/")); }
    public_location lookup() const { return xt::lookup_public_location(urls()); }
};

// What jsoncpp's default reader says of text, asked apart from the lookup.
std::string json_errors_of(const std::string& text)
{
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    reader->parse(text.data(), text.data() + text.size(), &root, &errors);
    return errors;
}

void expect_failure_values(const public_location& loc)
{
    EXPECT_EQ(str(loc.ip), "undfined");
    EXPECT_EQ(str(loc.country), "undfined");
    EXPECT_EQ(str(loc.region), "undfined");
    EXPECT_EQ(loc.latitude, 0.0f);
    EXPECT_EQ(loc.longitude, 0.0f);
}

} // namespace

// -- fetch_url ---------------------------------------------------------------

TEST(FetchUrl, AppendsTheBodyToTheReply)
{
    loopback_http_server server("body text");
    velk::charstr reply = "kept ";
    xt::fetch_url(velk::token(server.url("/any").c_str()), reply);
    EXPECT_EQ(str(reply), "kept body text");
}

TEST(FetchUrl, SendsOneGetOfThePath)
{
    loopback_http_server server("x");
    velk::charstr reply;
    xt::fetch_url(velk::token(server.url("/raw").c_str()), reply);
    ASSERT_EQ(server.request_lines().size(), 1u);
    EXPECT_EQ(server.request_lines()[0], "GET /raw HTTP/1.1");
}

TEST(FetchUrl, NothingListeningLeavesTheReplyAsItWas)
{
    refusing_port closed;
    velk::charstr reply = "before";
    xt::fetch_url(velk::token(closed.url("/raw").c_str()), reply);
    EXPECT_EQ(str(reply), "before");
}

// -- The second URL ----------------------------------------------------------

TEST(LocationQueryUrl, AppendsTheAddressToThePrefix)
{
    velk::charstr url;
    xt::location_query_url(services("", "http://geo.test/json/"), "203.0.113.7", url);
    EXPECT_EQ(str(url), "http://geo.test/json/203.0.113.7");
}

TEST(LocationQueryUrl, KeepsATrailingLineFeed)
{
    velk::charstr url;
    xt::location_query_url(services("", "http://geo.test/json/"), "203.0.113.7\n", url);
    EXPECT_EQ(str(url), "http://geo.test/json/203.0.113.7\n");
}

// -- A good reply --------------------------------------------------------------

TEST(PublicLocation, GoodReplyFillsTheRecord)
{
    two_services s(address_reply, good_location);
    public_location loc = s.lookup();
    EXPECT_EQ(str(loc.status), "IPidentified");
    EXPECT_EQ(str(loc.ip), "203.0.113.7");
    EXPECT_EQ(str(loc.country), "Examplestan");
    EXPECT_EQ(str(loc.region), "North Reach");
    EXPECT_EQ(loc.latitude, 48.5f);
    EXPECT_EQ(loc.longitude, -123.25f);
}

TEST(PublicLocation, GoodReplyMessageQuotesBothUrls)
{
    two_services s(address_reply, good_location);
    public_location loc = s.lookup();
    EXPECT_EQ(str(loc.message), "IPaddress and geolocation found by " + s.address.url("/raw") + " and " +
                                    s.location.url("/json/"));
}

TEST(PublicLocation, AsksTheAddressServiceAtItsUrl)
{
    two_services s(address_reply, good_location);
    s.lookup();
    ASSERT_EQ(s.address.request_lines().size(), 1u);
    EXPECT_EQ(s.address.request_lines()[0], "GET /raw HTTP/1.1");
}

TEST(PublicLocation, AsksTheLocationServiceAboutTheAddress)
{
    two_services s(address_reply, good_location);
    s.lookup();
    ASSERT_EQ(s.location.request_lines().size(), 1u);
    EXPECT_EQ(s.location.request_lines()[0], "GET /json/203.0.113.7 HTTP/1.1");
}

TEST(PublicLocation, CoordinatesAreNarrowedTo32BitFloats)
{
    static_assert(std::is_same_v<decltype(public_location::latitude), float>);
    static_assert(std::is_same_v<decltype(public_location::longitude), float>);
    // 0.1 and 0.2 have no exact binary form: the float is not the double.
    two_services s(address_reply, R"({"country":"C","regionName":"R","lat":0.1,"lon":0.2})");
    public_location loc = s.lookup();
    EXPECT_EQ(loc.latitude, static_cast<float>(0.1));
    EXPECT_EQ(loc.longitude, static_cast<float>(0.2));
    EXPECT_NE(static_cast<double>(loc.latitude), 0.1);
}

TEST(PublicLocation, EmptyCountryStaysEmpty)
{
    two_services s(address_reply, R"({"country":"","regionName":"R","lat":1,"lon":2})");
    EXPECT_EQ(str(s.lookup().country), "");
}

// -- Missing keys ----------------------------------------------------------------

TEST(PublicLocation, MissingCountryGivesTheDefaultText)
{
    two_services s(address_reply, R"({"regionName":"R","lat":1,"lon":2})");
    EXPECT_EQ(str(s.lookup().country), "A Default Value if not exists");
}

TEST(PublicLocation, MissingRegionNameGivesTheDefaultText)
{
    two_services s(address_reply, R"({"country":"C","lat":1,"lon":2})");
    EXPECT_EQ(str(s.lookup().region), "A Default Value if not exists");
}

TEST(PublicLocation, MissingLatitudeThrowsJsonCppsException)
{
    two_services s(address_reply, R"({"country":"C","regionName":"R","lon":2})");
    EXPECT_THROW(s.lookup(), Json::LogicError);
}

TEST(PublicLocation, MissingLongitudeThrowsJsonCppsException)
{
    two_services s(address_reply, R"({"country":"C","regionName":"R","lat":1})");
    EXPECT_THROW(s.lookup(), Json::LogicError);
}

// -- Failures ------------------------------------------------------------------

TEST(PublicLocation, ReplyThatIsNotJsonGivesTheFailureRecord)
{
    two_services s(address_reply, "<html>busy</html>");
    public_location loc = s.lookup();
    EXPECT_EQ(str(loc.status), json_errors_of("<html>busy</html>"));
    EXPECT_NE(str(loc.status), "");
    expect_failure_values(loc);
}

TEST(PublicLocation, FailureMessageNamesTheLocationServiceAndEndsInABlank)
{
    two_services s(address_reply, "<html>busy</html>");
    EXPECT_EQ(str(s.lookup().message), "geolocation of IP could not be parsed by " + s.location.url("/json/") + " ");
}

TEST(PublicLocation, AddressServiceDownGivesSuccessWithEmptyIp)
{
    refusing_port address;
    loopback_http_server location(good_location);
    public_location loc = xt::lookup_public_location(services(address.url("/raw"), location.url("/json/")));
    EXPECT_EQ(str(loc.status), "IPidentified");
    EXPECT_EQ(str(loc.ip), "");
    EXPECT_EQ(str(loc.country), "Examplestan");
}

TEST(PublicLocation, AddressServiceDownAsksTheLocationServiceAboutTheCaller)
{
    refusing_port address;
    loopback_http_server location(good_location);
    xt::lookup_public_location(services(address.url("/raw"), location.url("/json/")));
    ASSERT_EQ(location.request_lines().size(), 1u);
    EXPECT_EQ(location.request_lines()[0], "GET /json/ HTTP/1.1");
}

TEST(PublicLocation, NothingListeningGivesTheFailureRecord)
{
    refusing_port address, location;
    public_location loc = xt::lookup_public_location(services(address.url("/raw"), location.url("/json/")));
    EXPECT_EQ(str(loc.status), json_errors_of(""));
    EXPECT_EQ(str(loc.message), "geolocation of IP could not be parsed by " + location.url("/json/") + " ");
    expect_failure_values(loc);
}

// -- A trailing line feed in the address ---------------------------------------
// The address goes into the second URL untrimmed. libcurl refuses a URL with
// a control character before sending anything, so the location service is
// never asked and the lookup ends in the failure record; trimmed, the same
// reply would have succeeded (GoodReplyFillsTheRecord).

TEST(PublicLocation, TrailingLineFeedKeepsTheLocationServiceFromBeingAsked)
{
    two_services s("203.0.113.7\n", good_location);
    s.lookup();
    EXPECT_TRUE(s.location.request_lines().empty());
}

TEST(PublicLocation, TrailingLineFeedGivesTheFailureRecord)
{
    two_services s("203.0.113.7\n", good_location);
    public_location loc = s.lookup();
    EXPECT_EQ(str(loc.status), json_errors_of(""));
    expect_failure_values(loc);
}
