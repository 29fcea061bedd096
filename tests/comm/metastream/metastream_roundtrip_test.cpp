// metastream through a text format: each test type written and read back,
// and generated nested values compared one by one.
#include "comm/metastream/metastream.h"
#include "tests/comm/metastream/test_types.h"
#include "tests/comm/metastream/text_format.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using namespace velk;
using namespace velk::testing;

namespace {

template <class T>
T read_text(const std::string& text)
{
    text_format f;
    f.set_input(text);
    metastream m;
    m.fmt_read = &f;
    f.meta = &m;
    T v;
    m.read_run(v);
    return v;
}

// The name has quotes, for the writer to escape.
shape sample_shape()
{
    return make_shape("box \"one\"", {-3, 9}, {{1, 2}, {3, 4}}, {10, -20, 30}, 1, -4, 1.25, true);
}

} // namespace

TEST(MetastreamRoundtrip, ACharstrIsWrittenAsAQuotedString)
{
    EXPECT_EQ(write_text(charstr("hello")), "\"hello\"");
}

TEST(MetastreamRoundtrip, ACharstrComesBackWhole)
{
    EXPECT_TRUE(read_text<charstr>("\"a\\\"b\"") == "a\"b");
}

// Found by metastream_fuzz: the text format dropped a zero byte on writing.
TEST(MetastreamRoundtrip, ACharstrWithAZeroByteComesBackWhole)
{
    charstr s(token("a\0b", 3));
    charstr back = read_text<charstr>(write_text(s));
    EXPECT_EQ(std::string(back.ptr(), back.lens()), std::string("a\0b", 3));
}

TEST(MetastreamRoundtrip, AStructureIsWrittenInMemberOrderWithKeys)
{
    EXPECT_EQ(write_text(point{1, -2}), "{x=1,y=-2}");
}

TEST(MetastreamRoundtrip, AShapeIsWrittenWithNestedMembersAndArrays)
{
    EXPECT_EQ(write_text(sample_shape()),
              "{name=\"box \\\"one\\\"\",origin={x=-3,y=9},vertices=[2:{x=1,y=2},{x=3,y=4}],"
              "weights=[3:10,-20,30],corners=[4:1,0,0,-4],scale=1.25,closed=true}");
}

TEST(MetastreamRoundtrip, AShapeReadBackEqualsTheOneWritten)
{
    shape s = sample_shape();
    shape back = read_text<shape>(write_text(s));
    EXPECT_TRUE(back == s);
}

TEST(MetastreamRoundtrip, SettingsWrittenLeaveOutTheObsoleteMember)
{
    settings s;
    s.level = 2;
    s.legacy = 99;
    std::string text = write_text(s);
    EXPECT_EQ(text.find("legacy"), std::string::npos) << text;
    EXPECT_NE(text.find("level=2"), std::string::npos) << text;
}

TEST(MetastreamRoundtrip, SettingsReadBackEqualTheOnesWrittenMemberByMember)
{
    settings s;
    s.level = 5;
    s.comment = "c";
    s.anchor = {3, 4};
    s.retries = 9;
    s.mode = "slow";
    *s.ports.push() = 1;
    settings back = read_text<settings>(write_text(s));
    EXPECT_EQ(back.level, 5);
    EXPECT_TRUE(back.comment == "c");
    EXPECT_EQ(back.legacy, 0);
    EXPECT_TRUE(back.anchor == (point{3, 4}));
    EXPECT_EQ(back.retries, 9);
    EXPECT_TRUE(back.mode == "slow");
    ASSERT_EQ(back.ports.size(), 1u);
    EXPECT_EQ(back.ports[0], 1);
}

TEST(MetastreamRoundtrip, AFramedShapeReadBackEqualsTheOneWritten)
{
    framed f;
    f.title = "t";
    f.body = sample_shape();
    framed back = read_text<framed>(write_text(f));
    EXPECT_TRUE(back.title == "t");
    EXPECT_TRUE(back.body == f.body);
}

namespace {

// Generated values: a forest of random branches and leaves, fixed seed.
struct generator
{
    std::mt19937 rng{20240601};
    uint64_t values = 0;

    uint32_t below(uint32_t n) { return rng() % n; }
    charstr text()
    {
        charstr s;
        uint32_t n = below(12);
        for (uint32_t i = 0; i < n; ++i)
            s.append(char(32 + below(95)));
        ++values;
        return s;
    }
    leaf make_leaf()
    {
        leaf l;
        l.id = int64_t(uint64_t(rng()) << 32 | rng());
        l.tag = text();
        uint32_t n = below(5);
        for (uint32_t i = 0; i < n; ++i)
            *l.small.add(1) = uint16_t(rng());
        l.weight = float(int32_t(rng())) / 1024.0f;
        for (uint8_t& f : l.flags)
            f = uint8_t(rng());
        values += 3 + n + 3;
        return l;
    }
    branch make_branch()
    {
        branch b;
        b.name = text();
        b.at = {int32_t(rng()), int32_t(rng())};
        uint32_t n = below(6);
        for (uint32_t i = 0; i < n; ++i)
            *b.leaves.push() = make_leaf();
        values += 2;
        return b;
    }
    forest make_forest()
    {
        forest f;
        f.seed = int32_t(rng());
        uint32_t n = below(8);
        for (uint32_t i = 0; i < n; ++i)
            *f.branches.push() = make_branch();
        ++values;
        return f;
    }
};

// Writes generated forests through f and reads each back, until g has made
// at least 10,000 values; every forest read must equal the one written.
void round_trip_forests(generator& g, text_format& f)
{
    metastream m;
    m.fmt_read = &f;
    m.fmt_write = &f;
    f.meta = &m;
    int forests = 0;
    while (g.values < 10000) {
        forest v = g.make_forest();
        m.write_run(v);
        std::string text = f.output();
        f.set_input(text);
        forest back;
        m.read_run(back);
        ASSERT_TRUE(back == v) << "forest " << forests << ": " << text;
        ++forests;
    }
    EXPECT_GE(g.values, 10000u);
}

} // namespace

TEST(MetastreamRoundtrip, GeneratedForestsOfTenThousandValuesComeBackEqual)
{
    generator g;
    text_format f;
    round_trip_forests(g, f);
}

TEST(MetastreamRoundtrip, GeneratedForestsReadBackWithMembersOutOfOrderAtEveryDepthComeBackEqual)
{
    generator g;
    std::mt19937 order{977};
    text_format f;
    f.shuffle = &order;
    round_trip_forests(g, f);
    // The forest, its branches, and their points and leaves: each depth had
    // structures whose members came out of order.
    ASSERT_EQ(f.reordered.size(), 3u);
    EXPECT_GT(f.reordered[0], 0u);
    EXPECT_GT(f.reordered[1], 0u);
    EXPECT_GT(f.reordered[2], 0u);
}
