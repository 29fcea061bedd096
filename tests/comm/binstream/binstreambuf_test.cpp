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

TEST(Binstreambuf, ConstructedBufferIsEmptyAndOpen)
{
    binstreambuf b;
    EXPECT_TRUE(b.is_open());
    EXPECT_EQ(b.get_write_pos(), 0u);
    EXPECT_EQ(b.get_read_pos(), 0u);
    EXPECT_EQ(b.peek_read(0), ers::no_more);
}

TEST(Binstreambuf, AttributesAre48)
{
    binstreambuf b;
    EXPECT_EQ(b.binstream_attributes(false), 48u);
    EXPECT_EQ(b.binstream_attributes(true), 48u);
}

TEST(Binstreambuf, WriteRawAppendsAndZeroesLen)
{
    binstreambuf b;
    put(b, "abc");
    put(b, "de");
    EXPECT_EQ(contents(b), "abcde");
    EXPECT_EQ(b.get_write_pos(), 5u);
}

TEST(Binstreambuf, ReadRawTakesFromTheReadPosition)
{
    binstreambuf b;
    put(b, "abcdef");
    EXPECT_EQ(take(b, 2), "ab");
    EXPECT_EQ(take(b, 3), "cde");
    EXPECT_EQ(b.get_read_pos(), 5u);
}

TEST(Binstreambuf, ReadOfExactlyTheRestSucceedsAndKeepsTheData)
{
    binstreambuf b;
    put(b, "abc");
    opcd e;
    EXPECT_EQ(take(b, 3, &e), "abc");
    EXPECT_EQ(e, opcd());
    EXPECT_EQ(contents(b), "abc");
}

TEST(Binstreambuf, ReadPastEndGivesNmoreEmptiesTheBufferAndDeliversTheRest)
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

TEST(Binstreambuf, ReadOfASizeZeroKindSucceedsAndTouchesNothing)
{
    binstreambuf b;
    put(b, "abcd");
    uint32_t v = 0x55555555;
    EXPECT_EQ(b.read(&v, bstype::kind(bstype::kind::separator_word)), opcd());
    EXPECT_EQ(v, 0x55555555u);
    EXPECT_EQ(b.get_read_pos(), 0u);
    EXPECT_EQ(b.get_write_pos(), 4u);
}

TEST(Binstreambuf, WriteOfASizeZeroKindWritesNothing)
{
    binstreambuf b;
    EXPECT_EQ(b.write(nullptr, bstype::kind(bstype::kind::separator_word)), opcd());
    EXPECT_EQ(b.get_write_pos(), 0u);
}

TEST(Binstreambuf, PeekReadWithATimeoutIsInvalid)
{
    binstreambuf b;
    put(b, "a");
    EXPECT_EQ(b.peek_read(1), ers::invalid_params);
}

TEST(Binstreambuf, PeekReadSucceedsWhileUnreadBytesRemain)
{
    binstreambuf b;
    put(b, "ab");
    EXPECT_EQ(b.peek_read(0), opcd());
    take(b, 2);
    EXPECT_EQ(b.peek_read(0), ers::no_more);
}

TEST(Binstreambuf, PeekWriteSucceeds)
{
    binstreambuf b;
    EXPECT_EQ(b.peek_write(0), opcd());
}

TEST(Binstreambuf, OpenCloseAndBindAreNotImplemented)
{
    binstreambuf b, c;
    EXPECT_EQ(b.open(zstring("x"), "r"), ers::not_implemented);
    EXPECT_EQ(b.close(), ers::not_implemented);
    EXPECT_EQ(b.bind(c, 0), ers::not_implemented);
    EXPECT_EQ(b.seek(1, 0), ers::not_implemented);
}

// -- Positions ---------------------------------------------------------------------

TEST(Binstreambuf, ResetReadRewindsReading)
{
    binstreambuf b;
    put(b, "abc");
    take(b, 2);
    EXPECT_EQ(b.reset_read(), opcd());
    EXPECT_EQ(take(b, 3), "abc");
}

TEST(Binstreambuf, ResetWriteEmptiesTheBuffer)
{
    binstreambuf b;
    put(b, "abc");
    take(b, 1);
    EXPECT_EQ(b.reset_write(), opcd());
    EXPECT_EQ(b.get_write_pos(), 0u);
    EXPECT_EQ(b.get_read_pos(), 0u);
}

TEST(Binstreambuf, ResetAllEmptiesTheBuffer)
{
    binstreambuf b;
    put(b, "abc");
    take(b, 1);
    EXPECT_EQ(b.reset_all(), opcd());
    EXPECT_EQ(b.get_write_pos(), 0u);
    EXPECT_EQ(b.get_read_pos(), 0u);
}

TEST(Binstreambuf, SetReadPosWithinTheCountIsTaken)
{
    binstreambuf b;
    put(b, "abcdef");
    EXPECT_TRUE(b.set_read_pos(4));
    EXPECT_EQ(take(b, 2), "ef");
}

TEST(Binstreambuf, SetReadPosBeyondTheCountStopsAtTheCount)
{
    binstreambuf b;
    put(b, "abc");
    EXPECT_FALSE(b.set_read_pos(10));
    EXPECT_EQ(b.get_read_pos(), 3u);
}

TEST(Binstreambuf, SetWritePosCutsTheData)
{
    binstreambuf b;
    put(b, "abcdef");
    EXPECT_TRUE(b.set_write_pos(2));
    EXPECT_EQ(contents(b), "ab");
}

TEST(Binstreambuf, SetWritePosBeyondTheCountGrowsWithZeros)
{
    binstreambuf b;
    put(b, "ab");
    EXPECT_TRUE(b.set_write_pos(4));
    EXPECT_EQ(contents(b), std::string("ab\0\0", 4));
}

TEST(Binstreambuf, ReadAfterTheDataWasCutBelowTheReadPositionGivesNmore)
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

TEST(Binstreambuf, AcknowledgeWithNothingUnreadReturns)
{
    binstreambuf b;
    put(b, "ab");
    take(b, 2);
    EXPECT_NO_THROW(b.acknowledge(false));
}

TEST(Binstreambuf, AcknowledgeWithUnreadDataThrowsTheIoerrRecord)
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

TEST(Binstreambuf, AcknowledgeWithEatThrowsAndRewindsTheReadPosition)
{
    binstreambuf b;
    put(b, "abc");
    take(b, 1);
    EXPECT_THROW(b.acknowledge(true), opcd);
    EXPECT_EQ(b.get_read_pos(), 0u);
}

// -- read_until ----------------------------------------------------------------------

TEST(Binstreambuf, ReadUntilConsumesUpToTheMatchAndLeavesIt)
{
    binstreambuf b, out;
    put(b, "key=value");
    substring eq("=", 1, false);
    EXPECT_EQ(b.read_until(eq, &out, 0), opcd());
    EXPECT_EQ(contents(out), "key");
    EXPECT_EQ(take(b, 6), "=value");
}

TEST(Binstreambuf, ReadUntilWithoutOutOnlyAdvances)
{
    binstreambuf b;
    put(b, "abc--def");
    substring dash("--", 2, false);
    EXPECT_EQ(b.read_until(dash, nullptr, 0), opcd());
    EXPECT_EQ(b.get_read_pos(), 3u);
}

TEST(Binstreambuf, ReadUntilWithNoMatchConsumesTheRestAndGivesNotFound)
{
    binstreambuf b, out;
    put(b, "xxabcdef");
    take(b, 2);
    substring z("z", 1, false);
    EXPECT_EQ(b.read_until(z, &out, 0), ers::not_found);
    EXPECT_EQ(contents(out), "abcdef");
    EXPECT_EQ(b.peek_read(0), ers::no_more);
}

TEST(Binstreambuf, ReadUntilOnAnEmptyBufferGivesNotFound)
{
    binstreambuf b;
    substring z("z", 1, false);
    EXPECT_EQ(b.read_until(z, nullptr, 0), ers::not_found);
    EXPECT_EQ(b.get_read_pos(), 0u);
}

// -- Block copies ----------------------------------------------------------------------

TEST(Binstreambuf, TransferToMovesTheUnreadBytes)
{
    binstreambuf b, dst;
    put(b, "0123456789");
    take(b, 2);
    uint64_t written = 0;
    EXPECT_EQ(b.transfer_to(dst, binstream::unknown_size, &written, 3), opcd());
    EXPECT_EQ(written, 8u);
    EXPECT_EQ(contents(dst), "23456789");
}

TEST(Binstreambuf, TransferToTakesDatasizeAsAnOffsetIntoTheBuffer)
{
    binstreambuf b, dst;
    put(b, "0123456789");
    take(b, 2);
    uint64_t written = 0;
    EXPECT_EQ(b.transfer_to(dst, 5, &written, 100), opcd());
    EXPECT_EQ(contents(dst), "234");
    EXPECT_EQ(written, 3u);
}

TEST(Binstreambuf, TransferToWithADatasizeBelowRposMovesNothing)
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

TEST(Binstreambuf, TransferWithBlockSizeZeroIsInvalid)
{
    binstreambuf b, c;
    put(b, "abc");
    EXPECT_EQ(b.transfer_to(c, 3, nullptr, 0), ers::invalid_params);
    EXPECT_EQ(c.transfer_from(b, 3, nullptr, 0), ers::invalid_params);
}

TEST(Binstreambuf, TransferFromReadsAWholeStreamUntilItsEnd)
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

TEST(Binstreambuf, TransferFromStopsAtDatasize)
{
    binstreambuf src, b;
    put(src, "0123456789");
    uint64_t written = 0;
    EXPECT_EQ(b.transfer_from(src, 4, &written, 3), opcd());
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(contents(b), "0123");
    EXPECT_EQ(take(src, 6), "456789");
}

TEST(Binstreambuf, TransferFromAFileReadsItWhole)
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

TEST(Binstreambuf, TransferToAFileWritesItWhole)
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

TEST(Binstreambuf, EveryPrimitiveTypeReadsBackAsWritten)
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

TEST(Binstreambuf, TypedValuesAreTheirBytesInMemoryOrder)
{
    binstreambuf b;
    uint32_t v = 0x04030201;
    ASSERT_EQ(b.write(&v, bstype::kind_of<uint32_t>()), opcd());
    uint32_t raw;
    std::memcpy(&raw, b.buffer().ptr(), 4);
    EXPECT_EQ(raw, v);
}

TEST(Binstreambuf, AnArrayIsACountThenOneBlock)
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

TEST(Binstreambuf, ArraysOfEveryPrimitiveReadBackAsWritten)
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

TEST(Binstreambuf, AnEmptyArrayReadsBackEmpty)
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

TEST(Binstreambuf, AnArrayCutShortGivesNmore)
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

TEST(Binstreambuf, KeysReadBackAsWrittenAndTerminated)
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

TEST(Binstreambuf, AnEmptyKeyReadsBackEmpty)
{
    binstreambuf b;
    ASSERT_EQ(b.write_key("", 0), opcd());
    charstr k("old", -1);
    ASSERT_EQ(b.read_key(k, 0, ""), opcd());
    EXPECT_TRUE(k.is_empty());
}

TEST(Binstreambuf, ReadKeyFromAnEmptyBufferGivesNmore)
{
    binstreambuf b;
    charstr k;
    EXPECT_EQ(b.read_key(k, 0, ""), ers::no_more);
}
