// metastream reading members that come out of order, are missing, have
// defaults, are optional or are given twice: the cache path, driven by a
// text format that hands on members in the order its input lists them.
#include "comm/exception.h"
#include "comm/metastream/metastream.h"
#include "tests/comm/metastream/test_types.h"
#include "tests/comm/metastream/text_format.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <string>

using namespace velk;
using namespace velk::testing;

namespace {

// Reads text into v and gives the failure text, empty on success.
template <class T>
std::string read_into(T& v, const std::string& text, metastream* keep = nullptr)
{
    text_format f;
    f.set_input(text);
    metastream local;
    metastream& m = keep ? *keep : local;
    m.fmt_read = &f;
    f.meta = &m;
    try {
        m.read_run(v);
    } catch (const velk::exception& e) {
        m.fmt_read = nullptr;
        return e.what();
    }
    m.fmt_read = nullptr;
    return {};
}

shape expected_shape() { return make_shape("box", {-3, 9}, {{1, 2}, {3, 4}}, {10, -20, 30}, 1, -4, 1.25, true); }

struct only_x
{
    int32_t x = 0;
};

void stream_meta(metastream& m, only_x* p)
{
    if (!m.struct_begin("only_x", p))
        return;
    m.member("x", p, &only_x::x);
    m.struct_end();
}

// Reads its array's count and end marker by hand and skips the elements:
// a streaming function that stops before the cached array's end.
struct head_only
{
    int32_t tail = 0;
    dynarray<int32_t> list;
};

void stream_list_head(metastream& m, dynarray<int32_t>* list)
{
    if (!m.reading) {
        stream_meta(m, list);
        return;
    }
    m.write_var_name(true);
    uint64_t count = 0;
    m.data_read(&count, bstype::kind(bstype::kind::type_int, 8, bstype::kind::flag_array_begin));
    uint64_t none_read = 0;
    m.data_read(&none_read, bstype::kind(bstype::kind::type_int, 0, bstype::kind::flag_array_end));
}

void stream_meta(metastream& m, head_only* p)
{
    if (!m.struct_begin("head_only", p))
        return;
    m.member("tail", p, &head_only::tail);
    if (m.reading || m.writing)
        stream_list_head(m, &p->list);
    else
        m.member("list", p, &head_only::list);
    m.struct_end();
}

} // namespace

// -- Out of order ------------------------------------------------------------------

TEST(MetastreamCache, MembersOutOfOrderAtTheRootAreRead)
{
    point p;
    EXPECT_EQ(read_into(p, "{y=2,x=1}"), "");
    EXPECT_EQ(p.x, 1);
    EXPECT_EQ(p.y, 2);
}

TEST(MetastreamCache, MembersOutOfOrderAtEveryDepthAreRead)
{
    shape s;
    EXPECT_EQ(read_into(s, "{closed=true,scale=1.25,corners=[4:1,0,0,-4],weights=[3:10,-20,30],"
                           "vertices=[2:{y=2,x=1},{y=4,x=3}],origin={y=9,x=-3},name=\"box\"}"),
              "");
    EXPECT_TRUE(s == expected_shape());
}

TEST(MetastreamCache, CachedArraysWithoutAKnownSizeAreRead)
{
    shape s;
    EXPECT_EQ(read_into(s, "{closed=true,scale=1.25,corners=[1,0,0,-4],weights=[10,-20,30],"
                           "vertices=[{x=1,y=2},{y=4,x=3}],origin={x=-3,y=9},name=\"box\"}"),
              "");
    EXPECT_TRUE(s == expected_shape());
}

TEST(MetastreamCache, ANestedStructureOutOfOrderInsideACachedOneIsRead)
{
    branch b;
    EXPECT_EQ(read_into(b, "{leaves=[1:{flags=[3:1,2,3],weight=0.5,small=[2,3],tag=\"t\",id=-7}],"
                           "at={y=5,x=6},name=\"n\"}"),
              "");
    EXPECT_TRUE(b.name == "n");
    EXPECT_TRUE(b.at == (point{6, 5}));
    ASSERT_EQ(b.leaves.size(), 1u);
    EXPECT_EQ(b.leaves[0].id, -7);
    EXPECT_TRUE(b.leaves[0].tag == "t");
    ASSERT_EQ(b.leaves[0].small.size(), 2u);
    EXPECT_EQ(b.leaves[0].small[1], 3);
    EXPECT_EQ(b.leaves[0].weight, 0.5f);
    EXPECT_EQ(b.leaves[0].flags[2], 3);
}

TEST(MetastreamCache, ACacheUsedByOneRunIsEmptyForTheNext)
{
    metastream m;
    point p;
    EXPECT_EQ(read_into(p, "{y=2,x=1}", &m), "");
    point q;
    EXPECT_EQ(read_into(q, "{x=3,y=4}", &m), "");
    EXPECT_TRUE(q == (point{3, 4}));
    EXPECT_TRUE(m.cache.is_empty());
}

// -- Missing members -----------------------------------------------------------------

TEST(MetastreamCache, AMissingMemberWithoutDefaultNamesItWithThePosition)
{
    point p;
    EXPECT_EQ(read_into(p, "{x=1}"),
              ":point - variable 'y' not found and no default value provided at offset 4");
}

TEST(MetastreamCache, AMemberMissingAfterACachedOneIsReportedTheSame)
{
    point p;
    EXPECT_EQ(read_into(p, "{y=1}"),
              ":point - variable 'x' not found and no default value provided at offset 4");
}

TEST(MetastreamCache, MissingMembersWithDefaultsTakeTheirDefaults)
{
    settings s;
    EXPECT_EQ(read_into(s, "{level=1}"), "");
    EXPECT_TRUE(s.anchor == (point{7, 8}));
    EXPECT_EQ(s.retries, 3);
    EXPECT_TRUE(s.mode == "fast");
    ASSERT_EQ(s.ports.size(), 2u);
    EXPECT_EQ(s.ports[0], 80);
    EXPECT_EQ(s.ports[1], 443);
}

TEST(MetastreamCache, DefaultsFillTheGapsBetweenMembersGivenOutOfOrder)
{
    settings s;
    EXPECT_EQ(read_into(s, "{mode=\"m\",anchor={y=1,x=2}}"), "");
    EXPECT_TRUE(s.anchor == (point{2, 1}));
    EXPECT_EQ(s.retries, 3);
    EXPECT_TRUE(s.mode == "m");
    EXPECT_EQ(s.ports.size(), 2u);
}

TEST(MetastreamCache, AMissingNestedStructureTakesItsDefaultWhole)
{
    framed f;
    EXPECT_EQ(read_into(f, "{title=\"t\"}"), "");
    EXPECT_TRUE(f.body.name == "triangle");
    EXPECT_TRUE(f.body.origin == (point{1, 1}));
    ASSERT_EQ(f.body.vertices.size(), 3u);
    EXPECT_TRUE(f.body.vertices[2] == (point{0, 3}));
    ASSERT_EQ(f.body.weights.size(), 1u);
    EXPECT_EQ(f.body.corners[0], 3);
    EXPECT_EQ(f.body.scale, 0.5);
    EXPECT_TRUE(f.body.closed);
}

TEST(MetastreamCache, MissingOptionalMembersKeepTheirValues)
{
    settings s;
    s.level = 42;
    s.comment = "kept";
    EXPECT_EQ(read_into(s, "{retries=1}"), "");
    EXPECT_EQ(s.level, 42);
    EXPECT_TRUE(s.comment == "kept");
    EXPECT_EQ(s.retries, 1);
}

TEST(MetastreamCache, AnOptionalMemberAfterTheWantedOneIsReadFromTheCache)
{
    settings s;
    EXPECT_EQ(read_into(s, "{comment=\"c\",level=3}"), "");
    EXPECT_EQ(s.level, 3);
    EXPECT_TRUE(s.comment == "c");
}

// -- Bad input -----------------------------------------------------------------------

TEST(MetastreamCache, AMemberGivenTwiceIsRefused)
{
    point p;
    EXPECT_EQ(read_into(p, "{y=1,y=2,x=3}"), ":point - data for member: y specified more than once at offset 7");
}

TEST(MetastreamCache, AMemberGivenTwiceSetsTheRedundantMemberCode)
{
    metastream m;
    point p;
    read_into(p, "{y=1,y=2,x=3}", &m);
    EXPECT_TRUE(m.err_code == ers::mismatched_redundant_member);
    EXPECT_STREQ(m.err_code.info(), "redundant member data");
}

TEST(MetastreamCache, AnUnknownMemberIsRefused)
{
    only_x v;
    EXPECT_EQ(read_into(v, "{y=1,x=2}"), ":only_x - member variable: y not defined at offset 3");
}

TEST(MetastreamCache, AnUnknownMemberSetsTheNoSuchMemberCode)
{
    metastream m;
    only_x v;
    read_into(v, "{y=1,x=2}", &m);
    EXPECT_TRUE(m.err_code == ers::not_found_member_variable);
    EXPECT_STREQ(m.err_code.info(), "no such member variable");
}

TEST(MetastreamCache, AnUnknownMemberInANestedStructureShowsTheRootOnly)
{
    shape s;
    EXPECT_EQ(read_into(s, "{name=\"a\",origin={z=1}}"), ":shape - member variable: z not defined at offset 20");
}

TEST(MetastreamCache, AWrongValueInANestedMemberShowsTheWholePath)
{
    shape s;
    EXPECT_EQ(read_into(s, "{name=\"a\",origin={x=q}}"),
              ":shape.origin:point - error reading variable 'x', error: syntax error, format invalid : expected number at offset 20");
}

TEST(MetastreamCache, ACachedArrayEndedEarlyReportsTheElementsLeft)
{
    head_only h;
    EXPECT_EQ(read_into(h, "{list=[2:5,6],tail=1}"),
              ":head_only - error reading variable 'list', error: mismatched (format of something) : elements left in cached array at offset 20");
}

TEST(MetastreamCache, AnObsoleteMemberPresentOnInputIsReadAndWarnedAbout)
{
    log_capture logs;
    settings s;
    metastream m;
    EXPECT_EQ(read_into(s, "{legacy=5}", &m), "");
    EXPECT_EQ(s.legacy, 5);
    EXPECT_EQ(std::string(m.err.c_str()), "warning: obsolete variable 'legacy'");
    ASSERT_FALSE(logs.lines().empty());
    EXPECT_EQ(logs.lines().back(), "warning: obsolete variable 'legacy'");
    EXPECT_EQ(logs.full_lines().back().source, "metastream");
}

TEST(MetastreamCache, AnObsoleteMemberAbsentFromInputGivesNoWarning)
{
    log_capture logs;
    settings s;
    metastream m;
    EXPECT_EQ(read_into(s, "{}", &m), "");
    EXPECT_TRUE(m.err.is_empty());
    EXPECT_TRUE(logs.lines().empty());
}
