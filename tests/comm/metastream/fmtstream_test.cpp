// fmtstream: binding sides, flushing the buffer and resetting the write side.
#include "comm/binstream/binstreambuf.h"
#include "comm/metastream/fmtstream.h"

#include <gtest/gtest.h>

using namespace velk;

namespace {

// A byte stream that counts the calls a format hands on to it.
class counting_stream : public binstreambuf
{
public:
    int flushes = 0;
    int raw_writes = 0;
    void flush() override { ++flushes; }
    opcd write_raw(const void* p, uint64_t& len) override
    {
        ++raw_writes;
        return binstreambuf::write_raw(p, len);
    }
};

class bare_format : public fmtstream
{
public:
    token fmtstream_name() override { return "bare"; }
    void acknowledge(bool) override {}
    void reserved_f() override {}
};

} // namespace

TEST(Fmtstream, BindWithIo0SetsBothSides)
{
    bare_format f;
    counting_stream s;
    f.bind(s, 0);
    EXPECT_EQ(f.bound_read, &s);
    EXPECT_EQ(f.bound_write, &s);
}

TEST(Fmtstream, BindWithIo1SetsOnlyTheWriteSide)
{
    bare_format f;
    counting_stream s;
    f.bind(s, 1);
    EXPECT_EQ(f.bound_read, nullptr);
    EXPECT_EQ(f.bound_write, &s);
}

TEST(Fmtstream, BindWithIoMinus1SetsOnlyTheReadSide)
{
    bare_format f;
    counting_stream s;
    f.bind(s, -1);
    EXPECT_EQ(f.bound_read, &s);
    EXPECT_EQ(f.bound_write, nullptr);
}

TEST(Fmtstream, RebindingTheWriteSideKeepsTheReadSide)
{
    bare_format f;
    counting_stream first;
    counting_stream second;
    f.bind(first, 0);
    f.bind(second, 1);
    EXPECT_EQ(f.bound_write, &second);
    EXPECT_EQ(f.bound_read, &first);
}

TEST(Fmtstream, RebindingTheReadSideKeepsTheWriteSide)
{
    bare_format f;
    counting_stream first;
    counting_stream second;
    f.bind(first, 0);
    f.bind(second, -1);
    EXPECT_EQ(f.bound_read, &second);
    EXPECT_EQ(f.bound_write, &first);
}

TEST(Fmtstream, FlushWithAnEmptyBufferFlushesTheBoundStreamWithoutWriting)
{
    bare_format f;
    counting_stream s;
    f.bind(s, 1);
    f.flush();
    EXPECT_EQ(s.flushes, 1);
    EXPECT_EQ(s.raw_writes, 0);
}

TEST(Fmtstream, FlushHandsTheBufferedTextOnInOneWrite)
{
    bare_format f;
    counting_stream s;
    f.bind(s, 1);
    f.buffer << "abc";
    f.flush();
    EXPECT_EQ(s.raw_writes, 1);
    EXPECT_EQ(s.buffer().size(), 3u);
    EXPECT_TRUE(f.buffer.is_empty());
}

TEST(Fmtstream, ResetWriteEmptiesTheBufferAlsoWhenUnbound)
{
    bare_format f;
    f.buffer << "left";
    f.reset_write();
    EXPECT_TRUE(f.buffer.is_empty());
}

TEST(Fmtstream, AttributesAre2OnBothSides)
{
    bare_format f;
    EXPECT_EQ(f.binstream_attributes(false), 2u);
    EXPECT_EQ(f.binstream_attributes(true), 2u);
}
