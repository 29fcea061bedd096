// net_address: parsing of endpoint texts, the record's layout, printing,
// resolution and the lookups of this machine. Names go to a fake name
// service (fake_name_service.h) unless a test says that it asks the system,
// and then only for "localhost" and numeric forms, which need no network.
#include "comm/net/net_address.h"

#include "comm/os/net.h"
#include "tests/comm/net/fake_name_service.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <netdb.h>

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
class net_address_names : public ::testing::Test
{
protected:
    net_address_names()
    {
        names.tables().address["example"] = net_order(93, 184, 216, 34);
        names.tables().address["probe-host"] = net_order(10, 1, 2, 3);
    }

    fake_names names;
};

} // namespace

// -- The record ---------------------------------------------------------------

TEST(net_address, is_sixteen_bytes)
{
    EXPECT_EQ(sizeof(net_address), 16u);
}

TEST(net_address, new_one_has_family_two_and_all_else_zero)
{
    net_address a;
    const uint8_t expected[16] = {2, 0};
    EXPECT_EQ(memcmp(a.data(), expected, 16), 0);
}

TEST(net_address, set_numeric_stores_port_and_address_in_network_order)
{
    net_address a;
    a.set_numeric(0x0A000102, 0x1234);
    const uint8_t expected[16] = {2, 0, 0x12, 0x34, 10, 0, 1, 2};
    EXPECT_EQ(memcmp(a.data(), expected, 16), 0);
}

TEST(net_address, set_numeric_clears_what_was_there)
{
    net_address a;
    a.set_numeric(0x01020304, 5);
    a.set_numeric(0, 0);
    EXPECT_EQ(a, net_address());
}

TEST(net_address, port_reads_and_writes_in_host_order)
{
    net_address a;
    a.set_port(8080);
    EXPECT_EQ(a.port(), 8080);
    EXPECT_EQ(bytes(a)[2], 0x1F);
    EXPECT_EQ(bytes(a)[3], 0x90);
}

TEST(net_address, addr_reads_in_host_order)
{
    net_address a;
    a.set_numeric(0xC0A80001, 0);
    EXPECT_EQ(a.addr(), 0xC0A80001u);
}

TEST(net_address, is_local_only_for_127_0_0_1)
{
    net_address a;
    a.set_numeric(0x7F000001, 0);
    EXPECT_TRUE(a.is_local());
    a.set_numeric(0x7F000002, 0);
    EXPECT_FALSE(a.is_local());
}

TEST(net_address, set_any_makes_the_address_zero_and_keeps_the_port)
{
    net_address a;
    a.set_numeric(0x01020304, 7);
    a.set_any();
    EXPECT_TRUE(a.is_any());
    EXPECT_EQ(a.port(), 7);
}

TEST(net_address, is_broadcast_for_all_ones)
{
    net_address a;
    a.set_numeric(0xFFFFFFFF, 0);
    EXPECT_TRUE(a.is_broadcast());
    a.set_numeric(0xFFFFFFFE, 0);
    EXPECT_FALSE(a.is_broadcast());
}

// -- Printing -------------------------------------------------------------------

TEST(net_address, to_text_with_port_gives_dotted_address_and_port)
{
    net_address a;
    a.set_numeric(0x01020304, 5);
    EXPECT_EQ(text_of(a), "1.2.3.4:5");
}

TEST(net_address, to_text_without_port_gives_dotted_address)
{
    net_address a;
    a.set_numeric(0xFFFFFFFF, 65535);
    EXPECT_EQ(text_of(a, false), "255.255.255.255");
}

TEST(net_address, to_text_replaces_the_output)
{
    net_address a;
    charstr s = "something longer than an address";
    a.to_text(s, false);
    EXPECT_EQ(str(s), "0.0.0.0");
}

TEST(net_address, to_text_returns_its_output)
{
    net_address a;
    charstr s;
    EXPECT_EQ(&a.to_text(s, true), &s);
}

// -- Setting from a name ----------------------------------------------------------

TEST_F(net_address_names, empty_name_gives_any_with_the_port)
{
    net_address a("", 80, false);
    EXPECT_TRUE(a.is_any());
    EXPECT_EQ(a.port(), 80);
    EXPECT_EQ(a.family(), 2);
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(net_address_names, null_name_gives_any)
{
    net_address a(token(static_cast<const char*>(nullptr)), 80, false);
    EXPECT_TRUE(a.is_any());
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(net_address_names, name_beginning_with_a_zero_byte_gives_any)
{
    const char text[] = {'\0', '1', '0', '.', '0', '.', '0', '.', '1'};
    net_address a(token(text, sizeof text), 80, false);
    EXPECT_TRUE(a.is_any());
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(net_address_names, broadcast_name_gives_broadcast_address)
{
    net_address a("<broadcast>", 80, false);
    EXPECT_EQ(text_of(a), "255.255.255.255:80");
}

TEST_F(net_address_names, broadcast_name_with_more_text_goes_to_the_resolver)
{
    net_address a("<broadcast>x", 80, false);
    EXPECT_TRUE(a.is_any());
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "<broadcast>x");
}

TEST_F(net_address_names, port_in_name_replaces_given_port_without_override)
{
    net_address a("10.0.0.1:99", 80, false);
    EXPECT_EQ(a.port(), 99);
}

TEST_F(net_address_names, given_port_stands_with_override)
{
    net_address a("10.0.0.1:99", 80, true);
    EXPECT_EQ(a.port(), 80);
}

TEST_F(net_address_names, port_in_name_replaces_zero_even_with_override)
{
    net_address a("10.0.0.1:99", 0, true);
    EXPECT_EQ(a.port(), 99);
}

TEST_F(net_address_names, colon_without_digits_gives_port_zero)
{
    net_address a("10.0.0.1:", 80, false);
    EXPECT_EQ(a.port(), 0);
    EXPECT_EQ(text_of(a, false), "10.0.0.1");
}

TEST_F(net_address_names, minus_one_port_wraps_to_65535)
{
    names.tables().address["host"] = net_order(10, 9, 8, 7);
    net_address a("host:-1", 0, false);
    EXPECT_EQ(a.port(), 65535);
    EXPECT_EQ(text_of(a, false), "10.9.8.7");
}

TEST_F(net_address_names, plus_sign_before_port_is_taken)
{
    net_address a("10.0.0.1:+81", 0, false);
    EXPECT_EQ(a.port(), 81);
}

TEST_F(net_address_names, port_digits_end_at_the_first_other_character)
{
    net_address a("10.0.0.1:81abc", 0, false);
    EXPECT_EQ(a.port(), 81);
}

TEST_F(net_address_names, port_beyond_16_bits_is_cut)
{
    net_address a("10.0.0.1:65537", 0, false);
    EXPECT_EQ(a.port(), 1);
}

TEST_F(net_address_names, very_long_port_is_cut_without_fault)
{
    // 10^30 modulo 2^16 is 0: 10^30 = 2^30 * 5^30.
    net_address a("10.0.0.1:1000000000000000000000000000000", 0, false);
    EXPECT_EQ(a.port(), 0);
}

TEST_F(net_address_names, no_colon_keeps_the_given_port)
{
    net_address a("10.0.0.1", 80, false);
    EXPECT_EQ(text_of(a), "10.0.0.1:80");
}

TEST_F(net_address_names, scheme_user_and_path_are_dropped)
{
    net_address a("http://me@example:81/x", 80, false);
    EXPECT_EQ(text_of(a), "93.184.216.34:81");
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "example");
}

TEST_F(net_address_names, path_ends_the_host_before_a_later_colon)
{
    net_address a("10.0.0.1/x:99", 80, false);
    EXPECT_EQ(text_of(a), "10.0.0.1:80");
}

TEST_F(net_address_names, at_sign_in_the_path_is_not_a_user)
{
    net_address a("10.0.0.1/me@x", 80, false);
    EXPECT_EQ(text_of(a), "10.0.0.1:80");
}

TEST_F(net_address_names, host_starts_behind_the_first_at_sign)
{
    net_address a("a@b@example", 80, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "b@example");
}

TEST_F(net_address_names, dotted_host_needs_no_lookup)
{
    net_address a("192.168.7.9", 0, false);
    EXPECT_EQ(text_of(a, false), "192.168.7.9");
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(net_address_names, short_dotted_forms_are_addresses)
{
    net_address a("10.1", 0, false);
    EXPECT_EQ(text_of(a, false), "10.0.0.1");
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(net_address_names, localhost_equals_127_0_0_1)
{
    EXPECT_EQ(net_address("localhost", 80, false), net_address("127.0.0.1", 80, false));
    EXPECT_TRUE(net_address("localhost", 80, false).is_local());
}

TEST_F(net_address_names, localhost_needs_no_lookup)
{
    net_address a("localhost:8080", 0, false);
    EXPECT_EQ(text_of(a), "127.0.0.1:8080");
    EXPECT_TRUE(names.tables().asked.empty());
}

TEST_F(net_address_names, uppercase_localhost_goes_to_the_resolver)
{
    net_address a("LOCALHOST", 80, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "LOCALHOST");
}

TEST_F(net_address_names, name_found_by_the_resolver_gives_its_address)
{
    net_address a("example", 80, false);
    EXPECT_EQ(text_of(a), "93.184.216.34:80");
}

TEST_F(net_address_names, unresolvable_host_gives_any)
{
    net_address a("no-such-host", 80, false);
    EXPECT_TRUE(a.is_any());
    EXPECT_EQ(a.port(), 80);
}

TEST_F(net_address_names, empty_host_before_a_port_asks_for_this_machine)
{
    net_address a(":8080", 0, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_FALSE(names.tables().asked[0].has_value());
    EXPECT_EQ(text_of(a), "10.1.2.3:8080");
}

TEST_F(net_address_names, lone_at_sign_asks_for_this_machine)
{
    net_address a("@", 0, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_FALSE(names.tables().asked[0].has_value());
    EXPECT_EQ(text_of(a, false), "10.1.2.3");
}

TEST_F(net_address_names, all_ones_text_goes_to_the_resolver)
{
    // The dotted parser answers all ones for this text and for no address alike.
    net_address a("255.255.255.255", 0, false);
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "255.255.255.255");
}

TEST_F(net_address_names, set_clears_an_earlier_address)
{
    net_address a("10.0.0.1:99", 0, false);
    a.set("", 0, false);
    EXPECT_EQ(a, net_address());
}

// -- Printing names -------------------------------------------------------------------

TEST_F(net_address_names, host_name_of_127_0_0_1_is_localhost_without_lookup)
{
    net_address a("127.0.0.1", 80, false);
    EXPECT_EQ(host_name_of(a, true), "localhost:80");
    EXPECT_EQ(names.tables().name_of_calls, 0);
}

TEST_F(net_address_names, host_name_is_the_resolver_name)
{
    names.tables().name[net_order(10, 4, 4, 4)] = "printer.example";
    net_address a("10.4.4.4", 9, false);
    EXPECT_EQ(host_name_of(a, true), "printer.example:9");
}

TEST_F(net_address_names, host_name_without_a_name_is_the_dotted_address)
{
    net_address a("10.4.4.5", 9, false);
    EXPECT_EQ(host_name_of(a, false), "10.4.4.5");
    EXPECT_EQ(names.tables().name_of_calls, 1);
}

// -- This machine -----------------------------------------------------------------------

TEST_F(net_address_names, local_address_is_the_address_of_the_machine_name)
{
    net_address a;
    a.set_numeric(0x01020304, 99);
    a.local_address();
    EXPECT_EQ(text_of(a), "10.1.2.3:0");
    ASSERT_EQ(names.tables().asked.size(), 1u);
    EXPECT_EQ(names.tables().asked[0], "probe-host");
}

TEST_F(net_address_names, local_address_without_an_answer_is_any)
{
    names.tables().address.clear();
    net_address a;
    a.local_address();
    EXPECT_TRUE(a.is_any());
}

TEST_F(net_address_names, local_broadcast_ends_in_255)
{
    net_address a;
    a.local_broadcast();
    EXPECT_EQ(text_of(a), "10.1.2.255:0");
}

TEST_F(net_address_names, local_ip_text_is_the_first_address)
{
    EXPECT_STREQ(net_address::local_ip_text(), "10.1.2.3");
}

TEST_F(net_address_names, local_ip_text_without_an_answer_is_loopback)
{
    names.tables().address.clear();
    EXPECT_STREQ(net_address::local_ip_text(), "127.0.0.1");
}

TEST_F(net_address_names, local_host_name_is_the_machine_name)
{
    EXPECT_EQ(str(net_address::local_host_name()), "probe-host");
}

TEST_F(net_address_names, local_host_name_that_does_not_fit_64_bytes_is_empty)
{
    names.tables().host = std::string(64, 'h');
    EXPECT_TRUE(net_address::local_host_name().is_empty());
    names.tables().host = std::string(63, 'h');
    EXPECT_EQ(net_address::local_host_name().lens(), 63u);
}

// -- The system's resolver, with names that need no network ---------------------------------

TEST(net_address_system, uppercase_localhost_resolves_to_loopback)
{
    // The name goes to the system's resolver, which knows it from its hosts
    // file; a bare system may have none.
    addrinfo hints{};
    hints.ai_family = AF_INET;
    addrinfo* found = nullptr;
    if (getaddrinfo("LOCALHOST", nullptr, &hints, &found) != 0)
        GTEST_SKIP() << "this system's resolver does not know LOCALHOST (no /etc/hosts?)";
    freeaddrinfo(found);
    net_address a("LOCALHOST", 80, false);
    EXPECT_EQ(text_of(a), "127.0.0.1:80");
}

TEST(net_address_system, all_ones_text_resolves_to_broadcast)
{
    net_address a("255.255.255.255", 1, false);
    EXPECT_TRUE(a.is_broadcast());
}

TEST(net_address_system, unresolvable_host_gives_any)
{
    // A label longer than 63 characters can't be put into a query, so the
    // resolver refuses it without asking any server.
    std::string name = std::string(70, 'x') + ".invalid";
    net_address a(token(name.data(), name.size()), 80, false);
    EXPECT_TRUE(a.is_any());
}

TEST(net_address_system, local_host_name_is_the_system_host_name)
{
    char expected[256] = {};
    ASSERT_EQ(gethostname(expected, sizeof expected - 1), 0);
    std::string name = expected;
    // 64 bytes hold 63 characters and the terminator.
    EXPECT_EQ(str(net_address::local_host_name()), name.size() <= 63 ? name : std::string());
}

// -- The layer ------------------------------------------------------------------------------

TEST(net_startup, succeeds_and_counts_a_user)
{
    uint32_t before = velk::os::net_start_count();
    EXPECT_EQ(velk::net_startup(), 0);
    EXPECT_EQ(velk::os::net_start_count(), before + 1);
}
