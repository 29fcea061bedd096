// The reference host's command line and its strict number readers.
#include "host/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using host::command_line;

namespace {

struct argv_of
{
    explicit argv_of(std::vector<std::string> a) : args(std::move(a))
    {
        for (std::string& s : args)
            ptrs.push_back(s.data());
    }
    int argc() { return int(ptrs.size()); }
    char** argv() { return ptrs.data(); }

    std::vector<std::string> args;
    std::vector<char*> ptrs;
};

bool parse(argv_of& a, command_line& cl, std::string& error)
{
    velk::charstr e;
    bool ok = host::parse_command_line(a.argc(), a.argv(), cl, e);
    error = e.c_str();
    return ok;
}

bool reads_uint32(const char* text, uint32_t expected)
{
    uint32_t v = 0;
    velk::charstr error;
    return host::parse_uint32(text, v, error) && v == expected;
}

bool reads_int32(const char* text, int32_t expected)
{
    int32_t v = 0;
    velk::charstr error;
    return host::parse_int32(text, v, error) && v == expected;
}

bool refuses_uint32(const char* text)
{
    uint32_t v = 0;
    velk::charstr error;
    return !host::parse_uint32(text, v, error) && !error.is_empty();
}

bool refuses_int32(const char* text)
{
    int32_t v = 0;
    velk::charstr error;
    return !host::parse_int32(text, v, error) && !error.is_empty();
}

} // namespace

TEST(CommandLine, NoCommandIsVersion)
{
    argv_of a({"hostprobe"});
    command_line cl;
    std::string error;
    ASSERT_TRUE(parse(a, cl, error));
    EXPECT_STREQ(cl.command, "version");
}

TEST(CommandLine, ArgumentsFollowTheCommand)
{
    argv_of a({"hostprobe", "call", "testfunction", "-1"});
    command_line cl;
    std::string error;
    ASSERT_TRUE(parse(a, cl, error));
    EXPECT_STREQ(cl.command, "call");
    ASSERT_EQ(cl.arg_count, 2);
    EXPECT_STREQ(cl.args[1], "-1");
}

TEST(CommandLine, PluginOptionComesBeforeTheCommand)
{
    argv_of a({"hostprobe", "--plugin", "/x/p.so", "keys", "n"});
    command_line cl;
    std::string error;
    ASSERT_TRUE(parse(a, cl, error));
    EXPECT_STREQ(cl.plugin_path, "/x/p.so");
    EXPECT_STREQ(cl.command, "keys");
}

TEST(CommandLine, PluginOptionWithoutPathIsRefused)
{
    argv_of a({"hostprobe", "--plugin"});
    command_line cl;
    std::string error;
    EXPECT_FALSE(parse(a, cl, error));
    EXPECT_NE(error.find("--plugin"), std::string::npos);
}

TEST(CommandLine, UnknownOptionIsRefused)
{
    argv_of a({"hostprobe", "--verbose", "version"});
    command_line cl;
    std::string error;
    EXPECT_FALSE(parse(a, cl, error));
}

TEST(CommandLine, ShortHelpIsTheHelpCommand)
{
    argv_of a({"hostprobe", "-h"});
    command_line cl;
    std::string error;
    ASSERT_TRUE(parse(a, cl, error));
    EXPECT_STREQ(cl.command, "--help");
}

TEST(NumberArgument, UnsignedTakesItsWholeRange)
{
    EXPECT_TRUE(reads_uint32("0", 0));
    EXPECT_TRUE(reads_uint32("4294967295", 4294967295u));
}

TEST(NumberArgument, UnsignedRefusesOneAboveTheRange)
{
    EXPECT_TRUE(refuses_uint32("4294967296"));
}

TEST(NumberArgument, UnsignedRefusesANegativeNumber)
{
    EXPECT_TRUE(refuses_uint32("-1"));
}

TEST(NumberArgument, SignedTakesItsWholeRange)
{
    EXPECT_TRUE(reads_int32("-2147483648", INT32_MIN));
    EXPECT_TRUE(reads_int32("2147483647", INT32_MAX));
}

TEST(NumberArgument, SignedRefusesOneBeyondEitherEnd)
{
    EXPECT_TRUE(refuses_int32("2147483648"));
    EXPECT_TRUE(refuses_int32("-2147483649"));
}

TEST(NumberArgument, HugeNumberIsRefusedWithoutWrapping)
{
    // 2^64 + 5 would read as 5 in wrapping arithmetic.
    EXPECT_TRUE(refuses_uint32("18446744073709551621"));
}

TEST(NumberArgument, NonDigitsAreRefused)
{
    for (const char* text : {"", "-", "12x", " 5", "5 ", "0x10", "+5", "1e3", "--1"})
        EXPECT_TRUE(refuses_int32(text)) << '"' << text << '"';
}
