// binstreambuf: appends and reads, the rules at the end of its data, block
// copies to and from other streams, the search, and typed values and arrays
// written and read back.
#include "comm/binstream/binstreambuf.h"
#include "comm/binstream/filestream.h"

#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstring>
#include <string>

using velk::binstream;
using velk::binstreambuf;
using velk::charstr;
using velk::filestream;
using velk::opcd;
using velk::substring;
using velk::token;
using velk::zstring;
namespace ers = velk::ers;
namespace bstype = velk::bstype;

namespace {

binstreambuf& put(binstreambuf& b, const std::string& text)
{
    uint64_t len = text.size();
    EXPECT_EQ(b.write_raw(text.data(), len), opcd());
    EXPECT_EQ(len, 0u);
    return b;
}

std::string contents(const binstreambuf& b)
{
    return std::string(reinterpret_cast<const char*>(b.buffer().ptr()), b.buffer().size());
}

std::string take(binstreambuf& b, uint64_t n, opcd* result = nullptr)
{
    std::string out(n, '\0');
    uint64_t len = n;
    opcd e = b.read_raw(out.data(), len);
    if (result)
        *result = e;
    out.resize(n - len);
    return out;
}

} // namespace

// -- Appending and reading -------------------------------------------------------------

TEST(binstreambuf, constructed_buffer_is_empty_and_open)
{
    binstreambuf b;
    EXPECT_TRUE(b.is_open());
    EXPECT_EQ(b.get_write_pos(), 0u);
    EXPECT_EQ(b.get_read_pos(), 0u);
    EXPECT_EQ(b.peek_read(0), ers::no_more);
}

TEST(binstreambuf, attributes_are_48)
{
    binstreambuf b;
    EXPECT_EQ(b.binstream_attributes(false), 48u);
    EXPECT_EQ(b.binstream_attributes(true), 48u);
}

TEST(binstreambuf, write_raw_appends_and_zeroes_len)
{
    binstreambuf b;
    put(b, "abc");
    put(b, "de");
    EXPECT_EQ(contents(b), "abcde");
    EXPECT_EQ(b.get_write_pos(), 5u);
}

TEST(binstreambuf, read_raw_takes_from_the_read_position)
{
    binstreambuf b;
    put(b, "abcdef");
    EXPECT_EQ(take(b, 2), "ab");
    EXPECT_EQ(take(b, 3), "cde");
    EXPECT_EQ(b.get_read_pos(), 5u);
}

TEST(binstreambuf, read_of_exactly_the_rest_succeeds_and_keeps_the_data)
{
    binstreambuf b;
    put(b, "abc");
    opcd e;
    EXPECT_EQ(take(b, 3, &e), "abc");
    EXPECT_EQ(e, opcd());
    EXPECT_EQ(contents(b), "abc");
}

TEST(binstreambuf, read_past_end_gives_nmore_empties_the_buffer_and_delivers_the_rest)
{
    binstreambuf b;
    put(b, "abcd");
    take(b, 1);
    char out[10] = {};
    uint64_t len = 10;
    EXPECT_EQ(b.read_raw(out, len), ers::no_more);
    EXPECT_EQ(std::string(out, 3), "bcd");
    EXPECT_EQ(len, 7u);
    EXPECT_EQ(b.get_write_pos(), 0u);
    EXPECT_EQ(b.get_read_pos(), 0u);
}

TEST(binstreambuf, read_of_a_size_zero_kind_succeeds_and_touches_nothing)
{
    binstreambuf b;
    put(b, "abcd");
    uint32_t v = 0x55555555;
    EXPECT_EQ(b.read(&v, bstype::kind(bstype::kind::separator_word)), opcd());
    EXPECT_EQ(v, 0x55555555u);
    EXPECT_EQ(b.get_read_pos(), 0u);
    EXPECT_EQ(b.get_write_pos(), 4u);
}

TEST(binstreambuf, write_of_a_size_zero_kind_writes_nothing)
{
    binstreambuf b;
    EXPECT_EQ(b.write(nullptr, bstype::kind(bstype::kind::separator_word)), opcd());
    EXPECT_EQ(b.get_write_pos(), 0u);
}

TEST(binstreambuf, peek_read_with_a_timeout_is_invalid)
{
    binstreambuf b;
    put(b, "a");
    EXPECT_EQ(b.peek_read(1), ers::invalid_params);
}

TEST(binstreambuf, peek_read_succeeds_while_unread_bytes_remain)
{
    binstreambuf b;
    put(b, "ab");
    EXPECT_EQ(b.peek_read(0), opcd());
    take(b, 2);
    EXPECT_EQ(b.peek_read(0), ers::no_more);
}

TEST(binstreambuf, peek_write_succeeds)
{
    binstreambuf b;
    EXPECT_EQ(b.peek_write(0), opcd());
}

TEST(binstreambuf, open_close_and_bind_are_not_implemented)
{
    binstreambuf b, c;
    EXPECT_EQ(b.open(zstring("x"), "r"), ers::not_implemented);
    EXPECT_EQ(b.close(), ers::not_implemented);
    EXPECT_EQ(b.bind(c, 0), ers::not_implemented);
    EXPECT_EQ(b.seek(1, 0), ers::not_implemented);
}

// -- Positions ---------------------------------------------------------------------

TEST(binstreambuf, reset_read_rewinds_reading)
{
    binstreambuf b;
    put(b, "abc");
    take(b, 2);
    EXPECT_EQ(b.reset_read(), opcd());
    EXPECT_EQ(take(b, 3), "abc");
}

TEST(binstreambuf, reset_write_empties_the_buffer)
{
    binstreambuf b;
    put(b, "abc");
    take(b, 1);
    EXPECT_EQ(b.reset_write(), opcd());
    EXPECT_EQ(b.get_write_pos(), 0u);
    EXPECT_EQ(b.get_read_pos(), 0u);
}

TEST(binstreambuf, reset_all_empties_the_buffer)
{
    binstreambuf b;
    put(b, "abc");
    take(b, 1);
    EXPECT_EQ(b.reset_all(), opcd());
    EXPECT_EQ(b.get_write_pos(), 0u);
    EXPECT_EQ(b.get_read_pos(), 0u);
}

TEST(binstreambuf, set_read_pos_within_the_count_is_taken)
{
    binstreambuf b;
    put(b, "abcdef");
    EXPECT_TRUE(b.set_read_pos(4));
    EXPECT_EQ(take(b, 2), "ef");
}

TEST(binstreambuf, set_read_pos_beyond_the_count_stops_at_the_count)
{
    binstreambuf b;
    put(b, "abc");
    EXPECT_FALSE(b.set_read_pos(10));
    EXPECT_EQ(b.get_read_pos(), 3u);
}

TEST(binstreambuf, set_write_pos_cuts_the_data)
{
    binstreambuf b;
    put(b, "abcdef");
    EXPECT_TRUE(b.set_write_pos(2));
    EXPECT_EQ(contents(b), "ab");
}

TEST(binstreambuf, set_write_pos_beyond_the_count_grows_with_zeros)
{
    binstreambuf b;
    put(b, "ab");
    EXPECT_TRUE(b.set_write_pos(4));
    EXPECT_EQ(contents(b), std::string("ab\0\0", 4));
}

TEST(binstreambuf, read_after_the_data_was_cut_below_the_read_position_gives_nmore)
{
    binstreambuf b;
    put(b, "abcdef");
    take(b, 4);
    b.set_write_pos(2);
    opcd e;
    EXPECT_EQ(take(b, 1, &e), "");
    EXPECT_EQ(e, ers::no_more);
}

// -- acknowledge ---------------------------------------------------------------------

TEST(binstreambuf, acknowledge_with_nothing_unread_returns)
{
    binstreambuf b;
    put(b, "ab");
    take(b, 2);
    EXPECT_NO_THROW(b.acknowledge(false));
}

TEST(binstreambuf, acknowledge_with_unread_data_throws_the_ioerr_record)
{
    binstreambuf b;
    put(b, "abc");
    take(b, 1);
    try {
        b.acknowledge(false);
        FAIL() << "acknowledge did not throw";
    } catch (opcd e) {
        EXPECT_EQ(e, ers::io_error);
        EXPECT_STREQ(e.info(), "data left in input buffer");
    }
    EXPECT_EQ(b.get_read_pos(), 1u);
}

TEST(binstreambuf, acknowledge_with_eat_throws_and_rewinds_the_read_position)
{
    binstreambuf b;
    put(b, "abc");
    take(b, 1);
    EXPECT_THROW(b.acknowledge(true), opcd);
    EXPECT_EQ(b.get_read_pos(), 0u);
}

// -- read_until ----------------------------------------------------------------------

TEST(binstreambuf, read_until_consumes_up_to_the_match_and_leaves_it)
{
    binstreambuf b, out;
    put(b, "key=value");
    substring eq("=", 1, false);
    EXPECT_EQ(b.read_until(eq, &out, 0), opcd());
    EXPECT_EQ(contents(out), "key");
    EXPECT_EQ(take(b, 6), "=value");
}

TEST(binstreambuf, read_until_without_out_only_advances)
{
    binstreambuf b;
    put(b, "abc--def");
    substring dash("--", 2, false);
    EXPECT_EQ(b.read_until(dash, nullptr, 0), opcd());
    EXPECT_EQ(b.get_read_pos(), 3u);
}

TEST(binstreambuf, read_until_with_no_match_consumes_the_rest_and_gives_not_found)
{
    binstreambuf b, out;
    put(b, "xxabcdef");
    take(b, 2);
    substring z("z", 1, false);
    EXPECT_EQ(b.read_until(z, &out, 0), ers::not_found);
    EXPECT_EQ(contents(out), "abcdef");
    EXPECT_EQ(b.peek_read(0), ers::no_more);
}

TEST(binstreambuf, read_until_on_an_empty_buffer_gives_not_found)
{
    binstreambuf b;
    substring z("z", 1, false);
    EXPECT_EQ(b.read_until(z, nullptr, 0), ers::not_found);
    EXPECT_EQ(b.get_read_pos(), 0u);
}

// -- Block copies ----------------------------------------------------------------------

TEST(binstreambuf, transfer_to_moves_the_unread_bytes)
{
    binstreambuf b, dst;
    put(b, "0123456789");
    take(b, 2);
    uint64_t written = 0;
    EXPECT_EQ(b.transfer_to(dst, binstream::unknown_size, &written, 3), opcd());
    EXPECT_EQ(written, 8u);
    EXPECT_EQ(contents(dst), "23456789");
}

TEST(binstreambuf, transfer_to_takes_datasize_as_an_offset_into_the_buffer)
{
    binstreambuf b, dst;
    put(b, "0123456789");
    take(b, 2);
    uint64_t written = 0;
    EXPECT_EQ(b.transfer_to(dst, 5, &written, 100), opcd());
    EXPECT_EQ(contents(dst), "234");
    EXPECT_EQ(written, 3u);
}

TEST(binstreambuf, transfer_to_with_a_datasize_below_rpos_moves_nothing)
{
    binstreambuf b, dst;
    put(b, "0123456789");
    take(b, 6);
    uint64_t written = 99;
    EXPECT_EQ(b.transfer_to(dst, 4, &written, 100), opcd());
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(dst.get_write_pos(), 0u);
    EXPECT_EQ(b.get_read_pos(), 6u);
}

TEST(binstreambuf, transfer_with_block_size_zero_is_invalid)
{
    binstreambuf b, c;
    put(b, "abc");
    EXPECT_EQ(b.transfer_to(c, 3, nullptr, 0), ers::invalid_params);
    EXPECT_EQ(c.transfer_from(b, 3, nullptr, 0), ers::invalid_params);
}

TEST(binstreambuf, transfer_from_reads_a_whole_stream_until_its_end)
{
    binstreambuf src, b;
    std::string data(10000, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = char(i * 7);
    put(src, data);
    put(b, "head:");
    uint64_t written = 0;
    EXPECT_EQ(b.transfer_from(src, binstream::unknown_size, &written, 4096), opcd());
    EXPECT_EQ(written, data.size());
    EXPECT_EQ(contents(b), "head:" + data);
}

TEST(binstreambuf, transfer_from_stops_at_datasize)
{
    binstreambuf src, b;
    put(src, "0123456789");
    uint64_t written = 0;
    EXPECT_EQ(b.transfer_from(src, 4, &written, 3), opcd());
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(contents(b), "0123");
    EXPECT_EQ(take(src, 6), "456789");
}

TEST(binstreambuf, transfer_from_a_file_reads_it_whole)
{
    temp_dir dir("binstreambuf");
    ASSERT_TRUE(dir.ok());
    std::string data(70000, 'x');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = char('a' + i % 23);
    write_file(dir / "script.js", data);
    filestream f;
    ASSERT_EQ(f.open(zstring((dir / "script.js").c_str()), "r"), opcd());
    binstreambuf b;
    uint64_t written = 0;
    EXPECT_EQ(b.transfer_from(f, binstream::unknown_size, &written, 4096), opcd());
    EXPECT_EQ(written, data.size());
    EXPECT_EQ(contents(b), data);
}

TEST(binstreambuf, transfer_to_a_file_writes_it_whole)
{
    temp_dir dir("binstreambuf");
    ASSERT_TRUE(dir.ok());
    binstreambuf b;
    std::string data(50000, 'y');
    put(b, data);
    {
        filestream f;
        ASSERT_EQ(f.open(zstring((dir / "out").c_str()), "wct"), opcd());
        EXPECT_EQ(b.transfer_to(f, binstream::unknown_size, nullptr, 8192), opcd());
    }
    EXPECT_EQ(read_file(dir / "out"), data);
}

// -- Values and arrays written and read back -----------------------------------------

namespace {

template <class T>
void round_trip(binstreambuf& b, T value)
{
    bstype::kind t = bstype::kind_of<T>();
    ASSERT_EQ(b.write(&value, t), opcd());
    T back{};
    ASSERT_EQ(b.read(&back, t), opcd());
    EXPECT_EQ(std::memcmp(&back, &value, sizeof(T)), 0) << "kind " << std::hex << t.word();
}

} // namespace

TEST(binstreambuf, every_primitive_type_reads_back_as_written)
{
    binstreambuf b;
    round_trip<int8_t>(b, INT8_MIN);
    round_trip<uint8_t>(b, UINT8_MAX);
    round_trip<int16_t>(b, INT16_MIN);
    round_trip<uint16_t>(b, UINT16_MAX);
    round_trip<int32_t>(b, -123456789);
    round_trip<uint32_t>(b, UINT32_MAX);
    round_trip<int64_t>(b, INT64_MAX);
    round_trip<uint64_t>(b, 1ull << 63);
    round_trip<float>(b, -FLT_MAX);
    round_trip<double>(b, DBL_MIN);
    round_trip<bool>(b, true);
    round_trip<char>(b, '\x7f');
    round_trip<bstype::key>(b, bstype::key{'K'});
    round_trip<opcd>(b, ers::no_more);
    EXPECT_EQ(b.get_write_pos(), 1 + 1 + 2 + 2 + 4 + 4 + 8 + 8 + 4 + 8 + 1 + 1 + 1 + 8u);
}

TEST(binstreambuf, typed_values_are_their_bytes_in_memory_order)
{
    binstreambuf b;
    uint32_t v = 0x04030201;
    ASSERT_EQ(b.write(&v, bstype::kind_of<uint32_t>()), opcd());
    uint32_t raw;
    std::memcpy(&raw, b.buffer().ptr(), 4);
    EXPECT_EQ(raw, v);
}

TEST(binstreambuf, an_array_is_a_count_then_one_block)
{
    binstreambuf b;
    uint16_t a[] = {0x1111, 0x2222, 0x3333};
    velk::binstream_container_fixed_array<uint16_t> c(a, 3);
    ASSERT_EQ(b.write_array(c, nullptr), opcd());
    ASSERT_EQ(b.get_write_pos(), 4u + 6u);
    uint32_t n;
    std::memcpy(&n, b.buffer().ptr(), 4);
    EXPECT_EQ(n, 3u);
    EXPECT_EQ(std::memcmp(b.buffer().ptr() + 4, a, 6), 0);
}

TEST(binstreambuf, arrays_of_every_primitive_read_back_as_written)
{
    binstreambuf b;
    int8_t a8[] = {-1, 2, -3};
    uint16_t a16[] = {1, 65535};
    float af[] = {1.5f, -2.5f, 3.25f};
    uint64_t a64[] = {1, 2, 3, UINT64_MAX};
    velk::binstream_container_fixed_array<int8_t> c8(a8, 3);
    velk::binstream_container_fixed_array<uint16_t> c16(a16, 2);
    velk::binstream_container_fixed_array<float> cf(af, 3);
    velk::binstream_container_fixed_array<uint64_t> c64(a64, 4);
    ASSERT_EQ(b.write_array(c8, nullptr), opcd());
    ASSERT_EQ(b.write_array(c16, nullptr), opcd());
    ASSERT_EQ(b.write_array(cf, nullptr), opcd());
    ASSERT_EQ(b.write_array(c64, nullptr), opcd());

    velk::dynarray<int8_t> r8;
    velk::dynarray<uint16_t> r16;
    velk::dynarray<float> rf;
    velk::dynarray<uint64_t> r64;
    velk::dynarray_binstream_container<int8_t> d8(r8);
    velk::dynarray_binstream_container<uint16_t> d16(r16);
    velk::dynarray_binstream_container<float> df(rf);
    velk::dynarray_binstream_container<uint64_t> d64(r64);
    ASSERT_EQ(b.read_array(d8, nullptr), opcd());
    ASSERT_EQ(b.read_array(d16, nullptr), opcd());
    ASSERT_EQ(b.read_array(df, nullptr), opcd());
    ASSERT_EQ(b.read_array(d64, nullptr), opcd());
    ASSERT_EQ(r8.size(), 3u);
    ASSERT_EQ(r16.size(), 2u);
    ASSERT_EQ(rf.size(), 3u);
    ASSERT_EQ(r64.size(), 4u);
    EXPECT_EQ(std::memcmp(r8.ptr(), a8, sizeof a8), 0);
    EXPECT_EQ(std::memcmp(r16.ptr(), a16, sizeof a16), 0);
    EXPECT_EQ(std::memcmp(rf.ptr(), af, sizeof af), 0);
    EXPECT_EQ(std::memcmp(r64.ptr(), a64, sizeof a64), 0);
}

TEST(binstreambuf, an_empty_array_reads_back_empty)
{
    binstreambuf b;
    velk::binstream_container_fixed_array<uint32_t> c(nullptr, 0);
    ASSERT_EQ(b.write_array(c, nullptr), opcd());
    velk::dynarray<uint32_t> r;
    velk::dynarray_binstream_container<uint32_t> d(r);
    EXPECT_EQ(b.read_array(d, nullptr), opcd());
    EXPECT_EQ(r.size(), 0u);
    EXPECT_EQ(b.peek_read(0), ers::no_more);
}

TEST(binstreambuf, an_array_cut_short_gives_nmore)
{
    binstreambuf b;
    uint32_t a[] = {1, 2, 3};
    velk::binstream_container_fixed_array<uint32_t> c(a, 3);
    ASSERT_EQ(b.write_array(c, nullptr), opcd());
    b.set_write_pos(4 + 5);
    velk::dynarray<uint32_t> r;
    velk::dynarray_binstream_container<uint32_t> d(r);
    EXPECT_EQ(b.read_array(d, nullptr), ers::no_more);
}

TEST(binstreambuf, keys_read_back_as_written_and_terminated)
{
    binstreambuf b;
    ASSERT_EQ(b.write_key("alpha", 0), opcd());
    ASSERT_EQ(b.write_key("beta", 2), opcd());
    charstr k;
    ASSERT_EQ(b.read_key(k, 0, ""), opcd());
    EXPECT_TRUE(k == "alpha");
    EXPECT_EQ(k.c_str()[5], '\0');
    ASSERT_EQ(b.read_key(k, 2, "beta"), opcd());
    EXPECT_TRUE(k == "beta");
    EXPECT_EQ(k.lens(), 4u);
}

TEST(binstreambuf, an_empty_key_reads_back_empty)
{
    binstreambuf b;
    ASSERT_EQ(b.write_key("", 0), opcd());
    charstr k("old", -1);
    ASSERT_EQ(b.read_key(k, 0, ""), opcd());
    EXPECT_TRUE(k.is_empty());
}

TEST(binstreambuf, read_key_from_an_empty_buffer_gives_nmore)
{
    binstreambuf b;
    charstr k;
    EXPECT_EQ(b.read_key(k, 0, ""), ers::no_more);
}
