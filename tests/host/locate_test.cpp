// hostprobe-locate run as a user runs it, pointed by its environment at
// services of the test's own on 127.0.0.1.
#include "tests/support/loopback_http_server.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
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
// arguments; collects its standard output and exit status.
run_result run_locate(const std::string& address_url, const std::string& location_url, const std::string& args = "")
{
    std::string command = "HOSTPROBE_ADDRESS_URL='" + address_url + "' HOSTPROBE_LOCATION_URL='" + location_url +
                          "' '" LOCATE_TOOL "' " + args;
    run_result r;
    FILE* out = popen(command.c_str(), "r");
    if (!out)
        return r;
    char buf[512]; // any size works: the loop reads to the end
    while (size_t n = fread(buf, 1, sizeof buf, out))
        r.output.append(buf, n);
    int wait_status = pclose(out);
    r.status = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1;
    return r;
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
