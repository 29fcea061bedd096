// net_address: parsing of endpoint texts, the record's layout, printing,
// resolution and the lookups of this machine. Names go to a fake name
// service (fake_name_service.h) unless a test says that it asks the system,
// and then only for "localhost" and numeric forms, which need no network.
#include "comm/net/net_address.h"

#include "comm/os/net.h"
#include "tests/comm/net/fake_name_service.h"
#include "tests/comm/net/system_sockets.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using velk::charstr;
using velk::net_address;
using velk::token;
using velk::testing::fake_names;
using velk::testing::net_order;

namespace {

std::string str(const charstr& s) { return std::string(s.c_str(), s.lens()); }

std::string text_of(const net_address& a, bool with_port = true)
{
    charstr s;
    return str(a.to_text(s, with_port));
}

std::string host_name_of(const net_address& a, bool with_port)
{
    charstr s;
    return str(a.to_host_name(s, with_port));
}

const uint8_t* bytes(const net_address& a) { return static_cast<const uint8_t*>(a.data()); }

// Names in these tests are parsed with the fake in place.
class NetAddressNames : public ::testing::Test
{
protected:
    NetAddressNames()
    {
        names.tables().address["example"] = net_order(93, 184, 216, 34);
        names.tables().address["probe-host"] = net_order(10, 1, 2, 3);
    }

    fake_names names;
};

} // namespace

// -- The record ---------------------------------------------------------------

TEST(NetAddress, IsSixteenBytes)
{
    EXPECT_EQ(sizeof(net_address), 16u);
}

TEST(NetAddress, NewOneHasFamilyTwoAndAllElseZero)
{
    net_address a;
    const uint8_t expected[16] = {2, 0};
    EXPECT_EQ(memcmp(a.data(), expected, 16), 0);
}

TEST(NetAddress, SetNumericStoresPortAndAddressInNetworkOrder)
{
    net_address a;
    a.set_numeric(0x0A000102, 0x1234);
    const uint8_t expected[16] = {2, 0, 0x12, 0x34, 10, 0, 1, 2};
    EXPECT_EQ(memcmp(a.data(), expected, 16), 0);
}

TEST(NetAddress, SetNumericClearsWhatWasThere)
{
    net_address a;
    a.set_numeric(0x01020304, 5);
    a.set_numeric(0, 0);
    EXPECT_EQ(a, net_address());
}

TEST(NetAddress, PortReadsAndWritesInHostOrder)
{
    net_address a;
    a.set_port(8080);
    EXPECT_EQ(a.port(), 8080);
    EXPECT_EQ(bytes(a)[2], 0x1F);
    EXPECT_EQ(bytes(a)[3], 0x90);
}

TEST(NetAddress, AddrReadsInHostOrder)
{
    net_address a;
    a.set_numeric(0xC0A80001, 0);
    EXPECT_EQ(a.addr(), 0xC0A80001u);
}

TEST(NetAddress, IsLocalOnlyForTheLoopbackAddress)
{
    net_address a;
    a.set_numeric(0x7F000001, 0);
    EXPECT_TRUE(a.is_local());
    a.set_numeric(0x7F000002, 0);
    EXPECT_FALSE(a.is_local());
}

TEST(NetAddress, SetAnyMakesTheAddressZeroAndKeepsThePort)
{
    net_address a;
    a.set_numeric(0x01020304, 7);
    a.set_any();
    EXPECT_TRUE(a.is_any());
    EXPECT_EQ(a.port(), 7);
}

TEST(NetAddress, IsBroadcastForAllOnes)
{
    net_address a;
    a.set_numeric(0xFFFFFFFF, 0);
    EXPECT_TRUE(a.is_broadcast());
    a.set_numeric(0xFFFFFFFE, 0);
    EXPECT_FALSE(a.is_broadcast());
}

// -- Printing -------------------------------------------------------------------

TEST(NetAddress, ToTextWithPortGivesDottedAddressAndPort)
{
    net_address a;
    a.set_numeric(0x01020304, 5);
    EXPECT_EQ(text_of(a), "1.2.3.4:5");
}

TEST(NetAddress, ToTextWithoutPortGivesDottedAddress)
{
    net_address a;
    a.set_numeric(0xFFFFFFFF, 65535);
    EXPECT_EQ(text_of(a, false), "255.255.255.255");
}

TEST(NetAddress, ToTextReplacesTheOutput)
{
    net_address a;
    charstr s = "something longer than an address";
    a.to_text(s, false);
    EXPECT_EQ(str(s), "0.0.0.0");
}

TEST(NetAddress, ToTextReturnsItsOutput)
{
    net_address a;
    charstr s;
    EXPECT_EQ(&a.to_text(s, true), &s);
}

// -- Setting from a name ----------------------------------------------------------

TEST_F(NetAddressNames, EmptyNameGivesAnyWithThePort)
{
    net_address a("", 80, false);
    EXPECT_TRUE(a.is_any());
    EXPECT_EQ(a.port(), 80);
    EXPECT_EQ(a.family(), 2);
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(NetAddressNames, NullNameGivesAny)
{
    net_address a(token(static_cast<const char*>(nullptr)), 80, false);
    EXPECT_TRUE(a.is_any());
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(NetAddressNames, NameBeginningWithAZeroByteGivesAny)
{
    const char text[] = {'\0', '1', '0', '.', '0', '.', '0', '.', '1'};
    net_address a(token(text, sizeof text), 80, false);
    EXPECT_TRUE(a.is_any());
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(NetAddressNames, BroadcastNameGivesBroadcastAddress)
{
    net_address a("<broadcast>", 80, false);
    EXPECT_EQ(text_of(a), "255.255.255.255:80");
}

TEST_F(NetAddressNames, BroadcastNameWithMoreTextGoesToTheResolver)
{
    net_address a("<broadcast>x", 80, false);
    EXPECT_TRUE(a.is_any());
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "<broadcast>x");
}

TEST_F(NetAddressNames, PortInNameReplacesGivenPortWithoutOverride)
{
    net_address a("10.0.0.1:99", 80, false);
    EXPECT_EQ(a.port(), 99);
}

TEST_F(NetAddressNames, GivenPortStandsWithOverride)
{
    net_address a("10.0.0.1:99", 80, true);
    EXPECT_EQ(a.port(), 80);
}

TEST_F(NetAddressNames, PortInNameReplacesZeroEvenWithOverride)
{
    net_address a("10.0.0.1:99", 0, true);
    EXPECT_EQ(a.port(), 99);
}

TEST_F(NetAddressNames, ColonWithoutDigitsGivesPortZero)
{
    net_address a("10.0.0.1:", 80, false);
    EXPECT_EQ(a.port(), 0);
    EXPECT_EQ(text_of(a, false), "10.0.0.1");
}

TEST_F(NetAddressNames, MinusOnePortWrapsTo65535)
{
    names.tables().address["host"] = net_order(10, 9, 8, 7);
    net_address a("host:-1", 0, false);
    EXPECT_EQ(a.port(), 65535);
    EXPECT_EQ(text_of(a, false), "10.9.8.7");
}

TEST_F(NetAddressNames, PlusSignBeforePortIsTaken)
{
    net_address a("10.0.0.1:+81", 0, false);
    EXPECT_EQ(a.port(), 81);
}

TEST_F(NetAddressNames, PortDigitsEndAtTheFirstOtherCharacter)
{
    net_address a("10.0.0.1:81abc", 0, false);
    EXPECT_EQ(a.port(), 81);
}

TEST_F(NetAddressNames, PortBeyond16BitsIsCut)
{
    net_address a("10.0.0.1:65537", 0, false);
    EXPECT_EQ(a.port(), 1);
}

TEST_F(NetAddressNames, VeryLongPortIsCutWithoutFault)
{
    // 10^30 modulo 2^16 is 0: 10^30 = 2^30 * 5^30.
    net_address a("10.0.0.1:1000000000000000000000000000000", 0, false);
    EXPECT_EQ(a.port(), 0);
}

TEST_F(NetAddressNames, NoColonKeepsTheGivenPort)
{
    net_address a("10.0.0.1", 80, false);
    EXPECT_EQ(text_of(a), "10.0.0.1:80");
}

TEST_F(NetAddressNames, SchemeUserAndPathAreDropped)
{
    net_address a("http://me@example:81/x", 80, false);
    EXPECT_EQ(text_of(a), "93.184.216.34:81");
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "example");
}

TEST_F(NetAddressNames, PathEndsTheHostBeforeALaterColon)
{
    net_address a("10.0.0.1/x:99", 80, false);
    EXPECT_EQ(text_of(a), "10.0.0.1:80");
}

TEST_F(NetAddressNames, AtSignInThePathIsNotAUser)
{
    net_address a("10.0.0.1/me@x", 80, false);
    EXPECT_EQ(text_of(a), "10.0.0.1:80");
}

TEST_F(NetAddressNames, HostStartsBehindTheFirstAtSign)
{
    net_address a("a@b@example", 80, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "b@example");
}

TEST_F(NetAddressNames, DottedHostNeedsNoLookup)
{
    net_address a("192.168.7.9", 0, false);
    EXPECT_EQ(text_of(a, false), "192.168.7.9");
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(NetAddressNames, ShortDottedFormsAreAddresses)
{
    net_address a("10.1", 0, false);
    EXPECT_EQ(text_of(a, false), "10.0.0.1");
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(NetAddressNames, LocalhostEqualsTheLoopbackAddress)
{
    EXPECT_EQ(net_address("localhost", 80, false), net_address("127.0.0.1", 80, false));
    EXPECT_TRUE(net_address("localhost", 80, false).is_local());
}

TEST_F(NetAddressNames, LocalhostNeedsNoLookup)
{
    net_address a("localhost:8080", 0, false);
    EXPECT_EQ(text_of(a), "127.0.0.1:8080");
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(NetAddressNames, UppercaseLocalhostGoesToTheResolver)
{
    net_address a("LOCALHOST", 80, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "LOCALHOST");
}

TEST_F(NetAddressNames, NameFoundByTheResolverGivesItsAddress)
{
    net_address a("example", 80, false);
    EXPECT_EQ(text_of(a), "93.184.216.34:80");
}

TEST_F(NetAddressNames, UnresolvableHostGivesAny)
{
    net_address a("no-such-host", 80, false);
    EXPECT_TRUE(a.is_any());
    EXPECT_EQ(a.port(), 80);
}

TEST_F(NetAddressNames, EmptyHostBeforeAPortAsksForThisMachine)
{
    net_address a(":8080", 0, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_FALSE(names.tables().asked[0].has_value());
    EXPECT_EQ(text_of(a), "10.1.2.3:8080");
}

TEST_F(NetAddressNames, LoneAtSignAsksForThisMachine)
{
    net_address a("@", 0, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_FALSE(names.tables().asked[0].has_value());
    EXPECT_EQ(text_of(a, false), "10.1.2.3");
}

TEST_F(NetAddressNames, AllOnesTextGoesToTheResolver)
{
    // The dotted parser answers all ones for this text and for no address alike.
    net_address a("255.255.255.255", 0, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "255.255.255.255");
}

TEST_F(NetAddressNames, SetClearsAnEarlierAddress)
{
    net_address a("10.0.0.1:99", 0, false);
    a.set("", 0, false);
    EXPECT_EQ(a, net_address());
}

// -- Printing names -------------------------------------------------------------------

TEST_F(NetAddressNames, HostNameOfTheLoopbackAddressIsLocalhostWithoutLookup)
{
    net_address a("127.0.0.1", 80, false);
    EXPECT_EQ(host_name_of(a, true), "localhost:80");
    EXPECT_EQ(names.tables().name_of_calls, 0);
}

TEST_F(NetAddressNames, HostNameIsTheResolverName)
{
    names.tables().name[net_order(10, 4, 4, 4)] = "printer.example";
    net_address a("10.4.4.4", 9, false);
    EXPECT_EQ(host_name_of(a, true), "printer.example:9");
}

TEST_F(NetAddressNames, HostNameWithoutANameIsTheDottedAddress)
{
    net_address a("10.4.4.5", 9, false);
    EXPECT_EQ(host_name_of(a, false), "10.4.4.5");
    EXPECT_EQ(names.tables().name_of_calls, 1);
}

// -- This machine -----------------------------------------------------------------------

TEST_F(NetAddressNames, LocalAddressIsTheAddressOfTheMachineName)
{
    net_address a;
    a.set_numeric(0x01020304, 99);
    a.local_address();
    EXPECT_EQ(text_of(a), "10.1.2.3:0");
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "probe-host");
}

TEST_F(NetAddressNames, LocalAddressWithoutAnAnswerIsAny)
{
    names.tables().address.clear();
    net_address a;
    a.local_address();
    EXPECT_TRUE(a.is_any());
}

TEST_F(NetAddressNames, LocalBroadcastEndsIn255)
{
    net_address a;
    a.local_broadcast();
    EXPECT_EQ(text_of(a), "10.1.2.255:0");
}

TEST_F(NetAddressNames, LocalIpTextIsTheFirstAddress)
{
    EXPECT_STREQ(net_address::local_ip_text(), "10.1.2.3");
}

TEST_F(NetAddressNames, LocalIpTextWithoutAnAnswerIsLoopback)
{
    names.tables().address.clear();
    EXPECT_STREQ(net_address::local_ip_text(), "127.0.0.1");
}

TEST_F(NetAddressNames, LocalHostNameIsTheMachineName)
{
    EXPECT_EQ(str(net_address::local_host_name()), "probe-host");
}

TEST_F(NetAddressNames, LocalHostNameThatDoesNotFit64BytesIsEmpty)
{
    names.tables().host = std::string(64, 'h');
    EXPECT_TRUE(net_address::local_host_name().is_empty());
    names.tables().host = std::string(63, 'h');
    EXPECT_EQ(net_address::local_host_name().lens(), 63u);
}

// -- The system's resolver, with names that need no network ---------------------------------

TEST(NetAddressSystem, UppercaseLocalhostResolvesToLoopback)
{
    // The name goes to the system's resolver, which knows it from its hosts
    // file; a bare system may have none.
    ASSERT_TRUE(velk::testing::start_system_sockets());
    addrinfo hints{};
    hints.ai_family = AF_INET;
    addrinfo* found = nullptr;
    if (getaddrinfo("LOCALHOST", nullptr, &hints, &found) != 0)
        GTEST_SKIP() << "this system's resolver does not know LOCALHOST (no /etc/hosts?)";
    freeaddrinfo(found);
    net_address a("LOCALHOST", 80, false);
    EXPECT_EQ(text_of(a), "127.0.0.1:80");
}

TEST(NetAddressSystem, AllOnesTextResolvesToBroadcast)
{
    net_address a("255.255.255.255", 1, false);
    EXPECT_TRUE(a.is_broadcast());
}

TEST(NetAddressSystem, UnresolvableHostGivesAny)
{
    // A label longer than 63 characters can't be put into a query, so the
    // resolver refuses it without asking any server.
    std::string name = std::string(70, 'x') + ".invalid";
    net_address a(token(name.data(), name.size()), 80, false);
    EXPECT_TRUE(a.is_any());
}

TEST(NetAddressSystem, LocalHostNameIsTheSystemHostName)
{
    ASSERT_TRUE(velk::testing::start_system_sockets());
    char expected[256] = {};
    ASSERT_EQ(gethostname(expected, sizeof expected - 1), 0);
    std::string name = expected;
    // 64 bytes hold 63 characters and the terminator.
    EXPECT_EQ(str(net_address::local_host_name()), name.size() <= 63 ? name : std::string());
}

// -- The layer ------------------------------------------------------------------------------

TEST(NetStartup, SucceedsAndCountsAUser)
{
    uint32_t before = velk::os::net_start_count();
    EXPECT_EQ(velk::net_startup(), 0);
    EXPECT_EQ(velk::os::net_start_count(), before + 1);
}
