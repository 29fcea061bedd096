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

TEST(fmtstream, bind_with_io_0_sets_both_sides)
{
    bare_format f;
    counting_stream s;
    f.bind(s, 0);
    EXPECT_EQ(f.bound_read, &s);
    EXPECT_EQ(f.bound_write, &s);
}

TEST(fmtstream, bind_with_io_1_sets_only_the_write_side)
{
    bare_format f;
    counting_stream s;
    f.bind(s, 1);
    EXPECT_EQ(f.bound_read, nullptr);
    EXPECT_EQ(f.bound_write, &s);
}

TEST(fmtstream, bind_with_io_minus_1_sets_only_the_read_side)
{
    bare_format f;
    counting_stream s;
    f.bind(s, -1);
    EXPECT_EQ(f.bound_read, &s);
    EXPECT_EQ(f.bound_write, nullptr);
}

TEST(fmtstream, rebinding_the_write_side_keeps_the_read_side)
{
    bare_format f;
    counting_stream first;
    counting_stream second;
    f.bind(first, 0);
    f.bind(second, 1);
    EXPECT_EQ(f.bound_write, &second);
    EXPECT_EQ(f.bound_read, &first);
}

TEST(fmtstream, rebinding_the_read_side_keeps_the_write_side)
{
    bare_format f;
    counting_stream first;
    counting_stream second;
    f.bind(first, 0);
    f.bind(second, -1);
    EXPECT_EQ(f.bound_read, &second);
    EXPECT_EQ(f.bound_write, &first);
}

TEST(fmtstream, flush_with_an_empty_buffer_flushes_the_bound_stream_without_writing)
{
    bare_format f;
    counting_stream s;
    f.bind(s, 1);
    f.flush();
    EXPECT_EQ(s.flushes, 1);
    EXPECT_EQ(s.raw_writes, 0);
}

TEST(fmtstream, flush_hands_the_buffered_text_on_in_one_write)
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

TEST(fmtstream, reset_write_empties_the_buffer_also_when_unbound)
{
    bare_format f;
    f.buffer << "left";
    f.reset_write();
    EXPECT_TRUE(f.buffer.is_empty());
}

TEST(fmtstream, attributes_are_2_on_both_sides)
{
    bare_format f;
    EXPECT_EQ(f.binstream_attributes(false), 2u);
    EXPECT_EQ(f.binstream_attributes(true), 2u);
}
