// metastream engine: the run, markers and names on writing, results to the
// streaming function, the position text, allocation across runs, and the
// failures of a format reported with their position.
#include "comm/exception.h"
#include "comm/metastream/metastream.h"
#include "tests/comm/metastream/failing_format.h"
#include "tests/comm/metastream/recording_format.h"
#include "tests/comm/metastream/test_types.h"
#include "tests/comm/metastream/text_format.h"
#include "tests/support/array_requests.h"

#include <gtest/gtest.h>

#include <string>

using namespace velk;
using namespace velk::testing;

namespace {

// What data_read gave the streaming function for member a.
opcd last_optional_result;

struct probe
{
    int32_t a = 0;
    int32_t b = 0;
};

void stream_meta(metastream& m, probe* p)
{
    if (!m.struct_begin("probe", p))
        return;
    if (m.reading)
        last_optional_result = m.data_read(&p->a, bstype::kind_of<int32_t>());
    else
        m.member("a", p, &probe::a, metastream::member_optional);
    m.member("b", p, &probe::b);
    m.struct_end();
}

std::string read_failure(point& p, const std::string& text)
{
    text_format f;
    f.set_input(text);
    metastream m;
    m.fmt_read = &f;
    try {
        m.read_run(p);
    } catch (const velk::exception& e) {
        return e.what();
    }
    return {};
}

// Reads text through f into v and gives the failure text.
template <class T>
std::string read_failure_through(failing_format& f, T& v, const std::string& text)
{
    f.set_input(text);
    metastream m;
    m.fmt_read = &f;
    f.meta = &m;
    try {
        m.read_run(v);
    } catch (const velk::exception& e) {
        return e.what();
    }
    return "no failure";
}

// Writes v through f and gives the failure text. f serves the read side
// too, so that a position asked of the read side would show in the text.
template <class T>
std::string write_failure_through(failing_format& f, const T& v)
{
    metastream m;
    m.fmt_write = &f;
    m.fmt_read = &f;
    f.meta = &m;
    try {
        m.write_run(v);
    } catch (const velk::exception& e) {
        return e.what();
    }
    return "no failure";
}

shape one_vertex_shape()
{
    return make_shape("a", {1, 2}, {{3, 4}}, {5}, 0, 0, 1, false);
}

} // namespace

// -- Writing --------------------------------------------------------------------------

TEST(Metastream, ACharstrOnARunWithoutCacheMakesThreeFormatCalls)
{
    recording_format f;
    metastream m;
    m.fmt_write = &f;
    m.write_run(charstr("abc"));
    EXPECT_EQ(f.ops(), "write write_array_content write");
}

TEST(Metastream, ACharstrGoesOutAsBeginMarkerContentAndEndMarker)
{
    recording_format f;
    metastream m;
    m.fmt_write = &f;
    m.write_run(charstr("abc"));
    // 0x50001: char; begin with an 8-byte count, content with separators, end.
    EXPECT_EQ(f.ops(true), "write:10050008 write_array_content:4050001 write:20050000");
}

TEST(Metastream, ARootStructureSendsItsMarkersWithTheRootFlag)
{
    recording_format f;
    metastream m;
    m.fmt_write = &f;
    m.write_run(point{1, 2});
    ASSERT_GE(f.calls.size(), 2u);
    EXPECT_EQ(f.calls.front().kind, 0x400B0000u);
    EXPECT_EQ(f.calls.back().kind, 0x400C0000u);
}

TEST(Metastream, ANestedStructureSendsItsMarkersWithoutTheRootFlag)
{
    recording_format f;
    metastream m;
    m.fmt_write = &f;
    shape s;
    m.write_run(s);
    std::string ops = f.ops(true);
    // origin: key, open, x key, x (0x10004: int32), y key, y, close.
    EXPECT_NE(ops.find("write_key:0 write:B0000 write_key:0 write:10004 write_key:0 write:10004 write:C0000"),
              std::string::npos)
        << ops;
}

TEST(Metastream, AnObsoleteMemberIsNotWritten)
{
    text_format f;
    metastream m;
    m.fmt_write = &f;
    settings s;
    s.legacy = 7;
    m.write_run(s);
    EXPECT_EQ(f.output(), "{level=0,comment=\"\",anchor={x=0,y=0},retries=0,mode=\"\",ports=[0:]}");
}

// -- Reading: results and failures ---------------------------------------------------

TEST(Metastream, AMissingOptionalMemberReturnsNmoreToTheStreamingFunction)
{
    text_format f;
    f.set_input("{b=4}");
    metastream m;
    m.fmt_read = &f;
    probe p;
    p.a = 9;
    last_optional_result = {};
    m.read_run(p);
    EXPECT_TRUE(last_optional_result == ers::no_more);
    EXPECT_EQ(p.a, 9);
}

TEST(Metastream, TheRunGoesOnAfterAMissingOptionalMember)
{
    text_format f;
    f.set_input("{b=4}");
    metastream m;
    m.fmt_read = &f;
    probe p;
    m.read_run(p);
    EXPECT_EQ(p.b, 4);
}

TEST(Metastream, ReadingWithAllMembersMissingNamesTheFirst)
{
    point p;
    EXPECT_EQ(read_failure(p, "{}"), ":point - variable 'x' not found and no default value provided at offset 1");
}

TEST(Metastream, AMissingOpeningTokenIsReportedWithALineFeedAtItsEnd)
{
    point p;
    EXPECT_EQ(read_failure(p, "x=1"), " - error reading struct opening token\n at offset 0");
}

TEST(Metastream, TrailingInputInAStructureIsReportedAsAMissingClosingToken)
{
    point p;
    EXPECT_EQ(read_failure(p, "{x=1,y=2,z=3}"), " - error reading struct closing token at offset 8");
}

TEST(Metastream, AFixedArrayGivenTooManyElementsIsRefused)
{
    shape s;
    text_format f;
    f.set_input("{name=\"a\",origin={x=1,y=2},vertices=[],weights=[],corners=[1,2,3,4,5],scale=1,closed=false}");
    metastream m;
    m.fmt_read = &f;
    f.meta = &m;
    try {
        m.read_run(s);
        FAIL() << "no failure";
    } catch (const velk::exception& e) {
        EXPECT_STREQ(e.what(), ":shape - array of 4 elements given 5 at offset 69");
    }
}

// -- Position text --------------------------------------------------------------------

TEST(Metastream, AnEmptyErrGetsNoLeadingLineFeed)
{
    metastream m;
    m.dump_stack(0, nullptr);
    m.err << "x";
    EXPECT_EQ(std::string(m.err.c_str()), "x");
}

TEST(Metastream, ANonEmptyErrGetsALineFeedBeforeThePosition)
{
    metastream m;
    m.err << "warning";
    m.dump_stack(0, &m.root);
    EXPECT_EQ(std::string(m.err.c_str()), "warning\n");
}

TEST(Metastream, ThePositionShowsNamesArraySizesAndTypeNames)
{
    text_format f;
    metastream m;
    m.fmt_write = &f;
    shape s;
    m.write_run(s); // defines shape: root is a shape
    m.err.reset();
    m.dump_stack(0, &m.root.desc->children[2]);
    m.dump_stack(0, &m.root.desc->children[4]);
    EXPECT_EQ(std::string(m.err.c_str()), std::string(".vertices[]:") + typeid(dynarray<point>).name() +
                                              "\n.corners[4]:" + typeid(int16_t[4]).name());
}

// -- Allocation ---------------------------------------------------------------------------

TEST(Metastream, ASecondWriteAndReadOfATypeAllocateNothing)
{
    text_format f;
    metastream m;
    m.fmt_read = &f;
    m.fmt_write = &f;
    f.meta = &m;
    shape s;
    s.name = "name";
    *s.vertices.push() = {1, 2};
    *s.weights.push() = 3;
    shape back;
    m.write_run(s);
    f.set_input(f.output());
    m.read_run(back);
    ASSERT_TRUE(back == s);

    array_requests requests;
    m.write_run(s);
    m.read_run(back);
    EXPECT_TRUE(requests.asks().empty()) << requests.asks().size() << " requests";
    EXPECT_TRUE(back == s);
}

TEST(Metastream, AReadThroughTheCacheAllocatesOnFirstUseOnly)
{
    text_format f;
    metastream m;
    m.fmt_read = &f;
    f.meta = &m;
    point p;
    f.set_input("{y=2,x=1}");
    m.read_run(p);
    array_requests requests;
    m.read_run(p);
    EXPECT_TRUE(requests.asks().empty());
    EXPECT_TRUE(p == (point{1, 2}));
}

// -- Failures of the format, one row each ---------------------------------------------

TEST(MetastreamFailure, AFailedSeparatorBetweenPlainValuesIsReportedWithTheReadPosition)
{
    failing_format f;
    f.fail = failing_format::op::read_separator;
    f.code = ers::io_error_data_left;
    f.set_input("1;2");
    metastream m; // not described: plain values with separators
    m.fmt_read = &f;
    int32_t first = 0;
    int32_t second = 0;
    ASSERT_FALSE(m.data_read(&first, bstype::kind_of<int32_t>()));
    try {
        m.data_read(&second, bstype::kind_of<int32_t>());
        FAIL() << "no failure";
    } catch (const velk::exception& e) {
        EXPECT_STREQ(e.what(), " - error reading separator: io error during processing : data left in input buffer at offset 1");
    }
}

TEST(MetastreamFailure, AFailedArraySeparatorReadIsReportedWithTheReadPosition)
{
    failing_format f;
    f.fail = failing_format::op::read_array_separator;
    f.code = ers::io_error_data_left;
    shape s;
    EXPECT_EQ(read_failure_through(f, s, "{name=\"a\",origin={x=1,y=2},vertices=[{x=3,y=4}]}"),
              ":shape - error reading array separator: io error during processing : data left in input buffer at offset 37");
}

TEST(MetastreamFailure, AFailedArraySeparatorWriteIsReportedWithoutAPositionOfTheFormat)
{
    failing_format f;
    f.fail = failing_format::op::write_array_separator;
    f.code = ers::io_error_write_failed;
    EXPECT_EQ(write_failure_through(f, one_vertex_shape()),
              ":shape - error writing array separator: io error during processing : write operation failed");
}

TEST(MetastreamFailure, AFailedValueWriteNamesTheVariableWithTheReadPosition)
{
    failing_format f;
    f.fail = failing_format::op::write_value;
    f.code = ers::io_error_write_failed;
    EXPECT_EQ(write_failure_through(f, point{1, 2}),
              ":point - error writing variable 'x', error: io error during processing : write operation failed at offset 0");
}

TEST(MetastreamFailure, AFailedOpeningTokenWriteIsReportedWithoutAPositionOfTheFormat)
{
    failing_format f;
    f.fail = failing_format::op::write_struct_open;
    f.code = ers::io_error_write_failed;
    f.skip = 1; // the root's goes out: origin's fails
    EXPECT_EQ(write_failure_through(f, one_vertex_shape()), ":shape - error writing struct opening token\n");
}

TEST(MetastreamFailure, AFailedClosingTokenWriteIsReportedWithoutAPositionOfTheFormat)
{
    failing_format f;
    f.fail = failing_format::op::write_struct_close;
    f.code = ers::io_error_write_failed;
    // The first closing token is origin's.
    EXPECT_EQ(write_failure_through(f, one_vertex_shape()), ":shape - error writing struct closing token");
}

TEST(MetastreamFailure, AFailedKeyReadNamesTheVariableSoughtWithTheOuterLevelAndTheReadPosition)
{
    failing_format f;
    f.fail = failing_format::op::read_key;
    f.code = ers::io_error_data_left;
    f.skip = 2; // name and origin are found: origin's x fails
    shape s;
    EXPECT_EQ(read_failure_through(f, s, "{name=\"a\",origin={x=1,y=2},vertices=[]}"),
              ":shape - error while seeking for variable 'x': io error during processing : data left in input buffer at offset 18");
}

TEST(MetastreamFailure, AFailedKeyWriteNamesTheVariableWithTheOuterLevelAndNoPositionOfTheFormat)
{
    failing_format f;
    f.fail = failing_format::op::write_key;
    f.code = ers::io_error_write_failed;
    f.skip = 2; // name and origin go out: origin's x fails
    EXPECT_EQ(write_failure_through(f, one_vertex_shape()),
              ":shape - error while writing the variable name 'x': io error during processing : write operation failed");
}
