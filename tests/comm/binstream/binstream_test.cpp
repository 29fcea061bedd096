// binstream's own defaults, seen through a small stream that records what
// reaches its slots: the value and key operations, the array protocol with
// its markers and separators, the Retry loops, the block copies and the slots
// that answer !Impl or throw. Also the type word and the containers.
#include "comm/binstream/binstream.h"
#include "comm/binstream/binstreambuf.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using velk::binstream;
using velk::binstream_container_base;
using velk::binstreambuf;
using velk::charstr;
using velk::opcd;
using velk::substring;
using velk::token;
using velk::zstring;
namespace ers = velk::ers;
namespace bstype = velk::bstype;
using kind = bstype::kind;

namespace {

// A memory stream that notes the kind of every write and read, and can be
// told to deliver reads in small pieces with Retry, or to end early.
class recording_stream : public binstream
{
public:
    uint32_t binstream_attributes(bool in0out1) const override { return 7; }

    opcd write(const void* p, kind t) override
    {
        writes.push_back(t.word());
        return binstream::write(p, t);
    }
    opcd read(void* p, kind t) override
    {
        reads.push_back(t.word());
        return binstream::read(p, t);
    }

    opcd write_raw(const void* p, uint64_t& len) override
    {
        ++write_calls;
        uint64_t n = len < write_room ? len : write_room;
        data.append(static_cast<const char*>(p), n);
        write_room -= n;
        len -= n;
        return write_result;
    }

    opcd read_raw(void* p, uint64_t& len) override
    {
        ++read_calls;
        uint64_t have = data.size() - rpos;
        uint64_t n = len < have ? len : have;
        if (piece && n > piece)
            n = piece;
        std::memcpy(p, data.data() + rpos, n);
        rpos += n;
        len -= n;
        if (len == 0)
            return {};
        return n < have ? ers::retry : ers::no_more;
    }

    opcd peek_read(uint32_t) override { return {}; }
    opcd peek_write(uint32_t) override { return {}; }
    opcd read_until(const substring&, binstream*, uint64_t) override { return ers::unavailable; }
    bool is_open() const override { return true; }
    void flush() override {}
    void acknowledge(bool) override {}
    opcd reset_read() override
    {
        order += 'r';
        rpos = 0;
        return {};
    }
    opcd reset_write() override
    {
        order += 'w';
        data.clear();
        return write_reset_result;
    }

    std::string data;
    uint64_t rpos = 0;
    uint64_t piece = 0; // deliver at most this many bytes per read_raw (0: all)
    uint64_t write_room = UINT64_MAX;
    opcd write_result;
    opcd write_reset_result;
    std::vector<uint32_t> writes, reads;
    int write_calls = 0, read_calls = 0;
    std::string order;
};

// A container that hands out its elements one at a time only.
template <class T>
class one_by_one : public velk::binstream_container<T, uint32_t>
{
public:
    one_by_one(std::vector<T>& v, bool know_count)
        : velk::binstream_container<T, uint32_t>(bstype::kind_of<T>()), v(v), know(know_count)
    {}
    const void* extract(uint64_t n) override { return pos + n <= v.size() ? &v[(pos += n) - n] : nullptr; }
    void* insert(uint64_t n) override
    {
        v.resize(v.size() + n);
        return &v[v.size() - n];
    }
    bool is_continuous() const override { return false; }
    uint64_t count() const override { return know ? v.size() : binstream_container_base::unknown_count; }

    std::vector<T>& v;
    bool know;
    size_t pos = 0;
};

// A compound element: streamed by the container's functions, not by the stream.
struct point
{
    int32_t x, y;
};

opcd write_point(void* m, void* element, binstream_container_base*)
{
    auto* s = static_cast<binstream*>(m);
    auto* pt = static_cast<point*>(element);
    s->write(&pt->x, bstype::kind_of<int32_t>());
    return s->write(&pt->y, bstype::kind_of<int32_t>());
}

opcd read_point(void* m, void* element, binstream_container_base*)
{
    auto* s = static_cast<binstream*>(m);
    auto* pt = static_cast<point*>(element);
    s->read(&pt->x, bstype::kind_of<int32_t>());
    return s->read(&pt->y, bstype::kind_of<int32_t>());
}

class point_container : public velk::binstream_container<point, uint32_t>
{
public:
    explicit point_container(std::vector<point>& v)
        : velk::binstream_container<point, uint32_t>(kind(kind::compound_word), read_point, write_point), v(v)
    {}
    const void* extract(uint64_t n) override { return pos + n <= v.size() ? &v[(pos += n) - n] : nullptr; }
    void* insert(uint64_t n) override
    {
        v.resize(v.size() + n);
        return &v[v.size() - n];
    }
    bool is_continuous() const override { return true; }
    uint64_t count() const override { return v.size(); }

    std::vector<point>& v;
    size_t pos = 0;
};

} // namespace

// -- The type word ----------------------------------------------------------------------

TEST(Bstype, KindPacksSizeTypeAndFlags)
{
    kind t(kind::type_uint, 4, kind::flag_element);
    EXPECT_EQ(t.word(), 0x01020004u);
    EXPECT_EQ(t.size(), 4u);
    EXPECT_EQ(t.type(), kind::type_uint);
    EXPECT_EQ(t.flags(), kind::flag_element);
}

TEST(Bstype, EachPrimitiveTypeHasItsKindWord)
{
    EXPECT_EQ(bstype::kind_of<int8_t>().word(), 0x10001u);
    EXPECT_EQ(bstype::kind_of<uint16_t>().word(), 0x20002u);
    EXPECT_EQ(bstype::kind_of<int64_t>().word(), 0x10008u);
    EXPECT_EQ(bstype::kind_of<float>().word(), 0x30004u);
    EXPECT_EQ(bstype::kind_of<double>().word(), 0x30008u);
    EXPECT_EQ(bstype::kind_of<bool>().word(), 0x40001u);
    EXPECT_EQ(bstype::kind_of<char>().word(), 0x50001u);
    EXPECT_EQ(bstype::kind_of<opcd>().word(), 0x60008u);
    EXPECT_EQ(bstype::kind_of<bstype::key>().word(), 0xA0001u);
}

TEST(Bstype, TheFixedWordsStandAsGiven)
{
    EXPECT_EQ(kind(kind::separator_word).type(), kind::type_separator);
    EXPECT_EQ(kind(kind::separator_word).size(), 0u);
    EXPECT_EQ(kind(kind::compound_word).type(), kind::type_compound);
    EXPECT_FALSE(kind(kind::compound_word).is_primitive());
    EXPECT_TRUE(kind(kind::key_char_word).is_primitive());
}

TEST(Bstype, SettersChangeOneFieldOnly)
{
    kind t(0x50001);
    t.set_size(4);
    t.set_flags(kind::flag_array_begin);
    EXPECT_EQ(t.word(), 0x10050004u);
    t.add_flags(kind::flag_separators);
    EXPECT_EQ(t.word(), 0x14050004u);
    t.set_type(kind::type_int);
    EXPECT_EQ(t.word(), 0x14010004u);
}

// -- Containers ------------------------------------------------------------------------

TEST(BinstreamContainerFixedArray, ExtractAdvancesAndCountShrinks)
{
    char text[] = "abcdef";
    velk::binstream_container_fixed_array<char> c(text, 6);
    EXPECT_EQ(c.count(), 6u);
    EXPECT_EQ(c.extract(2), text);
    EXPECT_EQ(c.count(), 4u);
    EXPECT_EQ(c.insert(1), text + 2);
    EXPECT_TRUE(c.is_continuous());
}

TEST(BinstreamContainerFixedArray, AskingForMoreThanRemainsThrowsNmore)
{
    char text[] = "abc";
    velk::binstream_container_fixed_array<char> c(text, 3);
    c.extract(2);
    try {
        c.extract(2);
        FAIL() << "no throw";
    } catch (opcd e) {
        EXPECT_EQ(e, ers::no_more);
    }
    EXPECT_EQ(c.count(), 1u);
    EXPECT_THROW(c.insert(5), opcd);
}

TEST(DynarrayBinstreamContainer, InsertAppendsAndExtractWalks)
{
    velk::dynarray<bstype::key> keys;
    velk::dynarray_binstream_container<bstype::key> c(keys);
    EXPECT_EQ(c.type.word(), 0xA0001u);
    auto* p = static_cast<bstype::key*>(c.insert(3));
    ASSERT_NE(p, nullptr);
    p[0].c = 'x', p[1].c = 'y', p[2].c = 'z';
    EXPECT_EQ(c.count(), 3u);
    EXPECT_EQ(static_cast<const bstype::key*>(c.extract(2))->c, 'x');
    EXPECT_EQ(static_cast<const bstype::key*>(c.extract(1))->c, 'z');
}

TEST(DynarrayBinstreamContainer, ExtractPastTheEndGivesNull)
{
    velk::dynarray<char> a;
    *a.add(1) = 'q';
    velk::dynarray_binstream_container<char> c(a);
    EXPECT_NE(c.extract(1), nullptr);
    EXPECT_EQ(c.extract(1), nullptr);
}

// -- Values ------------------------------------------------------------------------------

TEST(Binstream, WriteHandsSizeBytesToWriteRaw)
{
    recording_stream s;
    uint32_t v = 0x64636261;
    EXPECT_EQ(s.write(&v, bstype::kind_of<uint32_t>()), opcd());
    EXPECT_EQ(s.data, "abcd");
}

TEST(Binstream, WriteOfSizeZeroCallsNothing)
{
    recording_stream s;
    EXPECT_EQ(s.write(nullptr, kind(kind::separator_word)), opcd());
    EXPECT_EQ(s.write_calls, 0);
}

TEST(Binstream, ReadOfSizeZeroSucceedsAndCallsNothing)
{
    recording_stream s;
    s.data = "abcd";
    uint32_t v = 9;
    EXPECT_EQ(s.read(&v, kind(kind::separator_word)), opcd());
    EXPECT_EQ(v, 9u);
    EXPECT_EQ(s.read_calls, 0);
}

TEST(Binstream, ReadCallsAgainWhileTheStreamAnswersRetry)
{
    recording_stream s;
    s.data = "12345678";
    s.piece = 3;
    uint64_t v = 0;
    EXPECT_EQ(s.read(&v, bstype::kind_of<uint64_t>()), opcd());
    EXPECT_EQ(std::memcmp(&v, "12345678", 8), 0);
    EXPECT_EQ(s.read_calls, 3);
}

TEST(Binstream, ReadReturnsTheFirstResultThatIsNotRetry)
{
    recording_stream s;
    s.data = "123";
    s.piece = 2;
    uint64_t v = 0;
    EXPECT_EQ(s.read(&v, bstype::kind_of<uint64_t>()), ers::no_more);
    EXPECT_EQ(s.read_calls, 2);
}

// -- Keys --------------------------------------------------------------------------------

TEST(Binstream, WriteKeyOfAMemberWritesASeparatorFirst)
{
    recording_stream s;
    EXPECT_EQ(s.write_key("ab", 1), opcd());
    ASSERT_EQ(s.writes.size(), 3u);
    EXPECT_EQ(s.writes[0], 0xD0000u);
    EXPECT_EQ(s.writes[1], 0x100A0004u); // the array begin marker of key characters
    EXPECT_EQ(s.writes[2], 0x200A0000u); // its end marker
    EXPECT_EQ(s.data, std::string("\2\0\0\0ab", 6));
}

TEST(Binstream, WriteKeyOfTheFirstMemberHasNoSeparator)
{
    recording_stream s;
    EXPECT_EQ(s.write_key("ab", 0), opcd());
    EXPECT_EQ(s.writes.front(), 0x100A0004u);
}

TEST(Binstream, ReadKeyReturnsAFailedSeparatorRead)
{
    charstr k;
    // The separator has size 0 and can't fail here: a stream whose read
    // fails on it shows the result is passed on.
    struct failing : recording_stream
    {
        opcd read(void* p, kind t) override { return t.word() == 0xD0000 ? ers::rejected : recording_stream::read(p, t); }
    } f;
    EXPECT_EQ(f.read_key(k, 1, ""), ers::rejected);
}

// -- Arrays ------------------------------------------------------------------------------

TEST(Binstream, WriteArrayMarksBeginAndEndAroundOneBlock)
{
    recording_stream s;
    uint16_t a[] = {1, 2, 3};
    velk::binstream_container_fixed_array<uint16_t> c(a, 3);
    EXPECT_EQ(s.write_array(c, nullptr), opcd());
    ASSERT_EQ(s.writes.size(), 2u);
    EXPECT_EQ(s.writes[0], 0x10020004u);
    EXPECT_EQ(s.writes[1], 0x20020000u);
    EXPECT_EQ(s.write_calls, 2); // the count and one block
}

TEST(Binstream, TheBlockPathDoesNotLoopOnAShortWrite)
{
    recording_stream s;
    s.write_room = 4 + 3;
    uint16_t a[] = {1, 2, 3};
    velk::binstream_container_fixed_array<uint16_t> c(a, 3);
    EXPECT_EQ(s.write_array(c, nullptr), opcd());
    EXPECT_EQ(s.write_calls, 2);
    EXPECT_EQ(s.data.size(), 7u);
}

TEST(Binstream, ElementsOneByOneCarryTheElementFlags)
{
    recording_stream s;
    std::vector<uint8_t> v = {5, 6, 7};
    one_by_one<uint8_t> c(v, true);
    EXPECT_EQ(s.write_array(c, nullptr), opcd());
    ASSERT_EQ(s.writes.size(), 5u);
    EXPECT_EQ(s.writes[1], 0x01020001u); // the first element: flag 0x01 alone
    EXPECT_EQ(s.writes[2], 0x03020001u);
    EXPECT_EQ(s.writes[3], 0x03020001u);
    EXPECT_EQ(s.data, std::string("\3\0\0\0\5\6\7", 7));
}

TEST(Binstream, AnArrayOfUnknownLengthWritesAllOnesAndSeparators)
{
    recording_stream s;
    std::vector<uint8_t> v = {5, 6};
    one_by_one<uint8_t> c(v, false);
    EXPECT_EQ(s.write_array(c, nullptr), opcd());
    EXPECT_TRUE(c.type.has_flags(kind::flag_separators));
    EXPECT_EQ(s.data, std::string("\xff\xff\xff\xff\0\5\0\6\1", 9));
}

TEST(Binstream, AnArrayReadWithACountOfAllOnesRunsUntilASeparatorEndsIt)
{
    recording_stream s;
    s.data = std::string("\xff\xff\xff\xff\0\5\0\6\0\7\1", 11);
    std::vector<uint8_t> v;
    one_by_one<uint8_t> c(v, false);
    EXPECT_EQ(s.read_array(c, nullptr), opcd());
    EXPECT_EQ(v, (std::vector<uint8_t>{5, 6, 7}));
    EXPECT_TRUE(c.type.has_flags(kind::flag_separators));
    EXPECT_EQ(s.rpos, s.data.size());
}

TEST(Binstream, AnArrayOfUnknownLengthEndsAlsoAtTheEndOfData)
{
    recording_stream s;
    s.data = std::string("\xff\xff\xff\xff\0\5\0\6", 8);
    std::vector<uint8_t> v;
    one_by_one<uint8_t> c(v, false);
    EXPECT_EQ(s.read_array(c, nullptr), opcd());
    EXPECT_EQ(v, (std::vector<uint8_t>{5, 6}));
}

TEST(Binstream, AnArrayOfUnknownLengthRoundTripsThroughABuffer)
{
    binstreambuf b;
    std::vector<uint32_t> v = {10, 20, 30, 40};
    one_by_one<uint32_t> out(v, false);
    ASSERT_EQ(b.write_array(out, nullptr), opcd());
    std::vector<uint32_t> back;
    one_by_one<uint32_t> in(back, true);
    ASSERT_EQ(b.read_array(in, nullptr), opcd());
    EXPECT_EQ(back, v);
    EXPECT_EQ(b.peek_read(0), ers::no_more);
}

TEST(Binstream, AFailedElementReadIsReturned)
{
    recording_stream s;
    s.data = std::string("\3\0\0\0\5", 5);
    std::vector<uint8_t> v;
    one_by_one<uint8_t> c(v, true);
    EXPECT_EQ(s.read_array(c, nullptr), ers::no_more);
}

TEST(Binstream, CompoundElementsGoThroughTheContainerFunctions)
{
    binstreambuf b;
    std::vector<point> pts = {{1, 2}, {3, 4}};
    point_container out(pts);
    ASSERT_EQ(b.write_array(out, &b), opcd());
    EXPECT_EQ(b.get_write_pos(), 4u + 16u);
    std::vector<point> back;
    point_container in(back);
    ASSERT_EQ(b.read_array(in, &b), opcd());
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back[1].x, 3);
    EXPECT_EQ(back[1].y, 4);
}

TEST(Binstream, CompoundElementsWithoutFunctionsAreNotImplemented)
{
    binstreambuf b;
    std::vector<point> pts = {{1, 2}};
    point_container out(pts);
    out.stream_out = nullptr;
    EXPECT_EQ(b.write_array(out, &b), ers::not_implemented);
}

TEST(Binstream, ArraySeparatorIsOneByte)
{
    recording_stream s;
    EXPECT_EQ(s.write_array_separator(kind(0x01020001), 1), opcd());
    EXPECT_EQ(s.data, "\1");
}

TEST(Binstream, ReadArraySeparatorZeroIsSuccessOtherBytesNmore)
{
    recording_stream s;
    s.data = std::string("\0\x02", 2);
    EXPECT_EQ(s.read_array_separator(kind(0)), opcd());
    EXPECT_EQ(s.read_array_separator(kind(0)), ers::no_more);
}

TEST(Binstream, ReadArraySeparatorPassesAReadFailureOn)
{
    struct failing : recording_stream
    {
        opcd read_raw(void*, uint64_t&) override { return ers::io_error; }
    } s;
    EXPECT_EQ(s.read_array_separator(kind(0)), ers::io_error);
}

// -- Block copies of the base ------------------------------------------------------------

TEST(Binstream, TransferCopiesInBlocksUntilTheEndOfTheSource)
{
    recording_stream src, dst;
    src.data = std::string(100000, 'z');
    uint64_t written = 0;
    EXPECT_EQ(dst.transfer_from(src, binstream::unknown_size, &written, 1000), opcd());
    EXPECT_EQ(written, 100000u);
    EXPECT_EQ(dst.data, src.data);
    EXPECT_EQ(dst.write_calls, 100);
}

TEST(Binstream, TransferBlocksAreAtMost32768Bytes)
{
    recording_stream src, dst;
    src.data = std::string(65536, 'z');
    EXPECT_EQ(src.transfer_to(dst, binstream::unknown_size, nullptr, 1 << 20), opcd());
    EXPECT_EQ(dst.write_calls, 2);
}

TEST(Binstream, TransferFollowsRetryOfTheSource)
{
    recording_stream src, dst;
    src.data = "0123456789";
    src.piece = 4;
    uint64_t written = 0;
    EXPECT_EQ(src.transfer_to(dst, 10, &written, 100), opcd());
    EXPECT_EQ(dst.data, "0123456789");
    EXPECT_EQ(written, 10u);
}

TEST(Binstream, TransferStopsAtDatasize)
{
    recording_stream src, dst;
    src.data = "0123456789";
    EXPECT_EQ(dst.transfer_from(src, 4, nullptr, 3), opcd());
    EXPECT_EQ(dst.data, "0123");
}

TEST(Binstream, TransferIntoAFullDestinationStopsWithWriteFailed)
{
    recording_stream src, dst;
    src.data = "0123456789";
    dst.write_room = 6;
    uint64_t written = 0;
    opcd e = src.transfer_to(dst, binstream::unknown_size, &written, 4);
    EXPECT_EQ(e, ers::io_error);
    EXPECT_STREQ(e.info(), "write operation failed");
    EXPECT_EQ(written, 6u);
}

TEST(Binstream, TransferPassesAWriteFailureOn)
{
    recording_stream src, dst;
    src.data = "0123";
    dst.write_result = ers::rejected;
    EXPECT_EQ(src.transfer_to(dst, binstream::unknown_size, nullptr, 4), ers::rejected);
}

TEST(Binstream, TransferWithBlockSizeZeroIsInvalid)
{
    recording_stream src, dst;
    src.data = "0123";
    EXPECT_EQ(src.transfer_to(dst, 4, nullptr, 0), ers::invalid_params);
}

// -- The slots the base answers --------------------------------------------------------

TEST(Binstream, SlotsWithoutAMeaningHereAreNotImplemented)
{
    recording_stream s, t;
    EXPECT_EQ(s.open(zstring("x"), "r"), ers::not_implemented);
    EXPECT_EQ(s.close(), ers::not_implemented);
    EXPECT_EQ(s.bind(t, 0), ers::not_implemented);
    EXPECT_EQ(s.reserved_a(), ers::not_implemented);
    EXPECT_EQ(s.seek(1, 0), ers::not_implemented);
}

TEST(Binstream, ReservedSlotsThrowNotImplemented)
{
    recording_stream s;
    EXPECT_THROW(s.reserved_b(1), opcd);
    EXPECT_THROW(s.reserved_c(), opcd);
    EXPECT_THROW(s.reserved_d(1), opcd);
    try {
        s.reserved_e();
        FAIL() << "no throw";
    } catch (opcd e) {
        EXPECT_EQ(e, ers::not_implemented);
    }
}

TEST(Binstream, PositionsAreUnknownAndCannotBeSet)
{
    recording_stream s;
    EXPECT_EQ(s.get_read_pos(), UINT64_MAX);
    EXPECT_EQ(s.get_write_pos(), UINT64_MAX);
    EXPECT_FALSE(s.set_read_pos(0));
    EXPECT_FALSE(s.set_write_pos(0));
}

TEST(Binstream, ResetAllResetsWritingThenReading)
{
    recording_stream s;
    EXPECT_EQ(s.reset_all(), opcd());
    EXPECT_EQ(s.order, "wr");
}

TEST(Binstream, ResetAllReturnsAFailureOfResetWrite)
{
    recording_stream s;
    s.write_reset_result = ers::busy;
    EXPECT_EQ(s.reset_all(), ers::busy);
    EXPECT_EQ(s.order, "wr");
}
