// hostprobe-locate run as a user runs it, pointed by its environment at
// services of the test's own on 127.0.0.1.
#include "tests/support/child_process.h"
#include "tests/support/loopback_http_server.h"
#include "tests/support/process_env.h"

#include <gtest/gtest.h>

#include <string>

using velk::testing::loopback_http_server;
using velk::testing::refusing_port;

namespace {

constexpr char good_location[] =
    R"({"status":"success","country":"Examplestan","regionName":"North Reach","lat":48.5,"lon":-123.25})";

struct run_result
{
    int status = -1;
    std::string output;
};

// Runs the tool with the two URLs in its environment and the given
// argument, if any; collects its standard output and exit status.
run_result run_locate(const std::string& address_url, const std::string& location_url, const std::string& arg = "")
{
    velk::testing::set_env("HOSTPROBE_ADDRESS_URL", address_url.c_str());
    velk::testing::set_env("HOSTPROBE_LOCATION_URL", location_url.c_str());
    std::vector<std::string> argv{LOCATE_TOOL};
    if (!arg.empty())
        argv.push_back(arg);
    velk::testing::child_result child = velk::testing::run_child(argv);
    velk::testing::unset_env("HOSTPROBE_ADDRESS_URL");
    velk::testing::unset_env("HOSTPROBE_LOCATION_URL");
    return run_result{child.exit_status, child.out};
}

} // namespace

TEST(Locate, PrintsTheSevenFieldsOfTheRecord)
{
    loopback_http_server address("203.0.113.7"), location(good_location);
    run_result r = run_locate(address.url("/raw"), location.url("/json/"));
    EXPECT_EQ(r.output, "status: IPidentified\n"
                        "message: IPaddress and geolocation found by " + address.url("/raw") + " and " +
                            location.url("/json/") + "\n"
                        "ip: 203.0.113.7\n"
                        "country: Examplestan\n"
                        "region: North Reach\n"
                        "latitude: 48.5\n"
                        "longitude: -123.25\n");
}

TEST(Locate, ExitsWithZeroWhenTheAddressIsIdentified)
{
    loopback_http_server address("203.0.113.7"), location(good_location);
    EXPECT_EQ(run_locate(address.url("/raw"), location.url("/json/")).status, 0);
}

TEST(Locate, AsksTheServicesOfItsEnvironment)
{
    loopback_http_server address("203.0.113.7"), location(good_location);
    run_locate(address.url("/raw"), location.url("/json/"));
    ASSERT_EQ(location.request_lines().size(), 1u);
    EXPECT_EQ(location.request_lines()[0], "GET /json/203.0.113.7 HTTP/1.1");
}

TEST(Locate, FailureRecordExitsWithOne)
{
    refusing_port address, location;
    run_result r = run_locate(address.url("/raw"), location.url("/json/"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.output.find("\nip: undfined\n"), std::string::npos) << r.output;
}

TEST(Locate, HelpExitsWithZero)
{
    refusing_port nowhere;
    run_result r = run_locate(nowhere.url("/"), nowhere.url("/"), "--help");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.output.find("HOSTPROBE_ADDRESS_URL"), std::string::npos);
}

TEST(Locate, UnknownArgumentExitsWithTwo)
{
    refusing_port nowhere;
    EXPECT_EQ(run_locate(nowhere.url("/"), nowhere.url("/"), "--bogus").status, 2);
}
