// filestream and bifstream on files in a temporary directory: modes, the two
// positions on one handle, short reads and writes, and typed values and
// arrays written and read back. Files are made and checked with the standard
// library.
#include "comm/binstream/bifstream.h"
#include "comm/binstream/filestream.h"

#include "tests/support/file_size_limit.h"
#include "tests/support/temp_dir.h"

#include <sys/stat.h>

#if defined(_WIN32)
#include <io.h>
#else
#include <fcntl.h>
#endif

#include <gtest/gtest.h>

#include <cfloat>
#include <cstring>
#include <string>

using velk::bifstream;
using velk::binstream;
using velk::charstr;
using velk::filestream;
using velk::opcd;
using velk::token;
using velk::zstring;
namespace ers = velk::ers;
namespace bstype = velk::bstype;

namespace {

// Opens path with mode on f.
opcd open(filestream& f, const std::string& path, const char* mode)
{
    return f.open(zstring(path.c_str()), token(mode));
}

opcd write_text(binstream& s, const std::string& text)
{
    uint64_t len = text.size();
    opcd e = s.write_raw(text.data(), len);
    EXPECT_EQ(len, 0u) << "short write of \"" << text << "\"";
    return e;
}

std::string read_text(binstream& s, uint64_t n, opcd* result = nullptr)
{
    std::string out(n, '\0');
    uint64_t len = n;
    opcd e = s.read_raw(out.data(), len);
    if (result)
        *result = e;
    out.resize(n - len);
    return out;
}

// Whether fd is an open handle of the runtime.
bool fd_is_open(int fd)
{
#if defined(_WIN32)
    return _get_osfhandle(fd) != -1;
#else
    return fcntl(fd, F_GETFD) != -1;
#endif
}

// A filestream whose handle a test can see.
class probe_filestream : public filestream
{
public:
    int32_t fd() const { return handle; }
};

class FilestreamFile : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(dir.ok()); }
    temp_dir dir{"filestream"};
    std::string path = dir / "data.bin";
};

} // namespace

// -- Construction and opening ------------------------------------------------------

TEST(Filestream, ConstructedStreamIsClosedAtPositionZero)
{
    filestream f;
    EXPECT_FALSE(f.is_open());
    EXPECT_EQ(f.get_read_pos(), 0u);
    EXPECT_EQ(f.get_write_pos(), 0u);
}

TEST(Filestream, AttributesAreZeroOnBothSides)
{
    filestream f;
    EXPECT_EQ(f.binstream_attributes(false), 0u);
    EXPECT_EQ(f.binstream_attributes(true), 0u);
}

TEST(Bifstream, AttributesAreTheSideFlipped)
{
    bifstream f;
    EXPECT_EQ(f.binstream_attributes(false), 1u);
    EXPECT_EQ(f.binstream_attributes(true), 0u);
}

TEST_F(FilestreamFile, OpenOfAMissingFileForReadingGivesIoerrAndStaysClosed)
{
    filestream f;
    EXPECT_EQ(open(f, dir / "missing", "r"), ers::io_error);
    EXPECT_FALSE(f.is_open());
}

TEST_F(FilestreamFile, OpenOfADirectoryGivesIoerr)
{
    filestream f;
    EXPECT_EQ(open(f, dir.path().string(), "r"), ers::io_error);
    EXPECT_FALSE(f.is_open());
}

TEST_F(FilestreamFile, OpenWithoutCDoesNotCreate)
{
    filestream f;
    EXPECT_EQ(open(f, path, "w"), ers::io_error);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FilestreamFile, ModeWctCreatesAMissingFile)
{
    filestream f;
    ASSERT_EQ(open(f, path, "wct"), opcd());
    EXPECT_TRUE(f.is_open());
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(FilestreamFile, ModeWctTruncatesAnExistingFile)
{
    write_file(path, "old content");
    filestream f;
    ASSERT_EQ(open(f, path, "wct"), opcd());
    ASSERT_EQ(write_text(f, "new"), opcd());
    f.close();
    EXPECT_EQ(read_file(path), "new");
}

TEST_F(FilestreamFile, ModeDashTruncatesLikeT)
{
    write_file(path, "old content");
    filestream f;
    ASSERT_EQ(open(f, path, "w-"), opcd());
    f.close();
    EXPECT_EQ(read_file(path), "");
}

TEST_F(FilestreamFile, ModeEFailsWhenTheFileExists)
{
    write_file(path, "keep");
    filestream f;
    EXPECT_EQ(open(f, path, "wce"), ers::io_error);
    EXPECT_FALSE(f.is_open());
    EXPECT_EQ(read_file(path), "keep");
}

TEST_F(FilestreamFile, ModeEWithCCreatesANewFile)
{
    filestream f;
    EXPECT_EQ(open(f, path, "wce"), opcd());
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(FilestreamFile, ModePlusAppendsAtTheEnd)
{
    write_file(path, "abc");
    filestream f;
    ASSERT_EQ(open(f, path, "w+"), opcd());
    ASSERT_EQ(write_text(f, "de"), opcd());
    f.close();
    EXPECT_EQ(read_file(path), "abcde");
}

TEST_F(FilestreamFile, ModeAAppendsLikePlus)
{
    write_file(path, "abc");
    filestream f;
    ASSERT_EQ(open(f, path, "wa"), opcd());
    ASSERT_EQ(write_text(f, "x"), opcd());
    f.close();
    EXPECT_EQ(read_file(path), "abcx");
}

TEST_F(FilestreamFile, ModeRAloneCannotWrite)
{
    write_file(path, "abc");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    uint64_t len = 1;
    EXPECT_EQ(f.write_raw("z", len), ers::io_error);
    EXPECT_EQ(len, 1u);
    EXPECT_EQ(read_text(f, 3), "abc");
}

TEST_F(FilestreamFile, ModeWAloneCannotRead)
{
    write_file(path, "abc");
    filestream f;
    ASSERT_EQ(open(f, path, "w"), opcd());
    opcd e;
    EXPECT_EQ(read_text(f, 3, &e), "");
    EXPECT_EQ(e, ers::io_error);
}

TEST_F(FilestreamFile, ModeWrGivesReadWriteAccess)
{
    write_file(path, "abc");
    filestream f;
    ASSERT_EQ(open(f, path, "wr"), opcd());
    EXPECT_EQ(read_text(f, 3), "abc");
    EXPECT_EQ(write_text(f, "XY"), opcd());
    f.close();
    EXPECT_EQ(read_file(path), "XYc");
}

TEST_F(FilestreamFile, ModeWithoutROrWGivesReadWriteAccess)
{
    write_file(path, "abc");
    filestream f;
    ASSERT_EQ(open(f, path, "Sl"), opcd());
    EXPECT_EQ(read_text(f, 3), "abc");
    EXPECT_EQ(write_text(f, "Q"), opcd());
    f.close();
    EXPECT_EQ(read_file(path), "Qbc");
}

TEST_F(FilestreamFile, UnknownModeLettersAreSkipped)
{
    write_file(path, "abc");
    filestream f;
    ASSERT_EQ(open(f, path, "rxyzR"), opcd());
    EXPECT_EQ(read_text(f, 3), "abc");
}

TEST_F(FilestreamFile, ReadOnlyCreationMakesAFileWithoutWritePermission)
{
    filestream f;
    ASSERT_EQ(open(f, path, "rc"), opcd());
    struct stat st;
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0222, 0u);
    EXPECT_NE(st.st_mode & 0400, 0u);
}

TEST_F(FilestreamFile, BackslashesInTheNameAreSeparators)
{
    std::filesystem::create_directory(dir / "sub");
    write_file(dir / "sub/x.txt", "back");
    std::string name = dir.path().string() + "\\sub\\x.txt";
    filestream f;
    ASSERT_EQ(open(f, name, "r"), opcd());
    EXPECT_EQ(read_text(f, 4), "back");
}

TEST_F(FilestreamFile, OpenClosesTheFileOpenBefore)
{
    write_file(path, "first");
    write_file(dir / "second", "second");
    probe_filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    int32_t old = f.fd();
    ASSERT_EQ(open(f, dir / "second", "r"), opcd());
    if (f.fd() != old) {
        EXPECT_FALSE(fd_is_open(old));
    }
    EXPECT_EQ(read_text(f, 6), "second");
}

TEST_F(FilestreamFile, FailedOpenClosesTheFileOpenBefore)
{
    write_file(path, "first");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    EXPECT_EQ(open(f, dir / "missing", "r"), ers::io_error);
    EXPECT_FALSE(f.is_open());
}

// -- Closing ---------------------------------------------------------------------

TEST_F(FilestreamFile, CloseZeroesThePositionsAndSucceeds)
{
    filestream f;
    ASSERT_EQ(open(f, path, "wrc"), opcd());
    write_text(f, "abcdef");
    read_text(f, 2);
    EXPECT_EQ(f.close(), opcd());
    EXPECT_FALSE(f.is_open());
    EXPECT_EQ(f.get_read_pos(), 0u);
    EXPECT_EQ(f.get_write_pos(), 0u);
}

TEST(Filestream, CloseOfAClosedStreamSucceeds)
{
    filestream f;
    EXPECT_EQ(f.close(), opcd());
    EXPECT_EQ(f.close(true), opcd());
}

TEST_F(FilestreamFile, DestructorClosesTheHandle)
{
    int32_t fd;
    {
        probe_filestream f;
        ASSERT_EQ(open(f, path, "wc"), opcd());
        fd = f.fd();
        ASSERT_TRUE(fd_is_open(fd));
    }
    EXPECT_FALSE(fd_is_open(fd));
}

TEST(Filestream, RawOperationsOnAClosedStreamGiveIoerr)
{
    filestream f;
    char buf[4];
    uint64_t len = 4;
    EXPECT_EQ(f.read_raw(buf, len), ers::io_error);
    EXPECT_EQ(len, 4u);
    EXPECT_EQ(f.write_raw(buf, len), ers::io_error);
    EXPECT_EQ(len, 4u);
}

// -- Two positions on one handle ----------------------------------------------------

TEST_F(FilestreamFile, ReadsAndWritesInterleaveEachAtItsOwnPosition)
{
    filestream f;
    ASSERT_EQ(open(f, path, "rwct"), opcd());
    ASSERT_EQ(write_text(f, "abcdef"), opcd());
    EXPECT_EQ(read_text(f, 3), "abc");
    ASSERT_EQ(write_text(f, "gh"), opcd());
    EXPECT_EQ(read_text(f, 3), "def");
    EXPECT_EQ(f.get_read_pos(), 6u);
    EXPECT_EQ(f.get_write_pos(), 8u);
    f.close();
    EXPECT_EQ(read_file(path), "abcdefgh");
}

TEST_F(FilestreamFile, WritePositionFollowsWrittenBytes)
{
    filestream f;
    ASSERT_EQ(open(f, path, "wc"), opcd());
    write_text(f, "12345");
    EXPECT_EQ(f.get_write_pos(), 5u);
    EXPECT_EQ(f.get_read_pos(), 0u);
}

TEST_F(FilestreamFile, SetReadPosMovesReadingAndLeavesWriting)
{
    filestream f;
    ASSERT_EQ(open(f, path, "rwc"), opcd());
    write_text(f, "0123456789");
    ASSERT_TRUE(f.set_read_pos(7));
    EXPECT_EQ(read_text(f, 3), "789");
    EXPECT_EQ(f.get_write_pos(), 10u);
}

TEST_F(FilestreamFile, SetWritePosOverwritesAtThePosition)
{
    filestream f;
    ASSERT_EQ(open(f, path, "rwc"), opcd());
    write_text(f, "0123456789");
    ASSERT_TRUE(f.set_write_pos(2));
    write_text(f, "ab");
    f.close();
    EXPECT_EQ(read_file(path), "01ab456789");
}

TEST(Filestream, SetPositionsOnAClosedStreamFail)
{
    filestream f;
    EXPECT_FALSE(f.set_read_pos(1));
    EXPECT_FALSE(f.set_write_pos(1));
}

TEST_F(FilestreamFile, ResetReadRewindsReading)
{
    write_file(path, "abcdef");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    read_text(f, 4);
    EXPECT_EQ(f.reset_read(), opcd());
    EXPECT_EQ(read_text(f, 2), "ab");
}

TEST_F(FilestreamFile, ResetWriteRewindsWriting)
{
    filestream f;
    ASSERT_EQ(open(f, path, "wc"), opcd());
    write_text(f, "abcdef");
    EXPECT_EQ(f.reset_write(), opcd());
    write_text(f, "XY");
    f.close();
    EXPECT_EQ(read_file(path), "XYcdef");
}

TEST_F(FilestreamFile, ResetAllRewindsBothSides)
{
    filestream f;
    ASSERT_EQ(open(f, path, "rwc"), opcd());
    write_text(f, "abcdef");
    read_text(f, 3);
    EXPECT_EQ(f.reset_all(), opcd());
    EXPECT_EQ(f.get_read_pos(), 0u);
    EXPECT_EQ(f.get_write_pos(), 0u);
}

// -- Seek ------------------------------------------------------------------------

TEST_F(FilestreamFile, SeekOfTheReadSideMovesTheHandle)
{
    write_file(path, "0123456789");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    EXPECT_EQ(f.seek(1, 4), opcd());
    EXPECT_EQ(read_text(f, 2), "45");
}

TEST_F(FilestreamFile, RelativeSeekCountsFromTheSidePosition)
{
    write_file(path, "0123456789");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    read_text(f, 3);
    EXPECT_EQ(f.seek(1 | 4, 2), opcd());
    EXPECT_EQ(read_text(f, 1), "5");
}

TEST_F(FilestreamFile, SeekOfTheOtherSideSetsOnlyItsField)
{
    write_file(path, "0123456789");
    filestream f;
    ASSERT_EQ(open(f, path, "rw"), opcd());
    EXPECT_EQ(f.seek(0, 6), opcd()); // the handle serves reading
    EXPECT_EQ(f.get_write_pos(), 6u);
    EXPECT_EQ(read_text(f, 2), "01");
    write_text(f, "ab");
    f.close();
    EXPECT_EQ(read_file(path), "012345ab89");
}

TEST_F(FilestreamFile, SeekBeforeTheStartFailsAndKeepsThePosition)
{
    write_file(path, "0123456789");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    read_text(f, 3);
    EXPECT_EQ(f.seek(1 | 4, -5), ers::failed);
    EXPECT_EQ(f.get_read_pos(), 3u);
    EXPECT_EQ(read_text(f, 1), "3");
}

TEST(Filestream, SeekOfTheHandleSideOnAClosedStreamFails)
{
    filestream f;
    EXPECT_EQ(f.seek(1, 4), ers::failed);
}

// -- Peeking and the slots a file lacks ------------------------------------------------

TEST_F(FilestreamFile, PeekReadWithATimeoutIsInvalid)
{
    write_file(path, "a");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    EXPECT_EQ(f.peek_read(10), ers::invalid_params);
}

TEST_F(FilestreamFile, PeekReadSucceedsWhileDataRemains)
{
    write_file(path, "ab");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    EXPECT_EQ(f.peek_read(0), opcd());
    read_text(f, 2);
    EXPECT_EQ(f.peek_read(0), ers::no_more);
}

// Setting a position updates that side's field: peek_read counts from the
// field, and get_read_pos and get_write_pos report it, so a field left as it
// was would tell of a place the handle has left.
TEST_F(FilestreamFile, SetReadPosUpdatesTheFieldSincePeekReadCountsFromIt)
{
    write_file(path, "abc");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    ASSERT_TRUE(f.set_read_pos(3));
    EXPECT_EQ(f.peek_read(0), ers::no_more);
}

TEST_F(FilestreamFile, SetReadPosUpdatesTheFieldSinceGetReadPosReportsIt)
{
    write_file(path, "0123456789");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    ASSERT_TRUE(f.set_read_pos(6));
    EXPECT_EQ(f.get_read_pos(), 6u);
    EXPECT_EQ(read_text(f, 2), "67");
    EXPECT_EQ(f.get_read_pos(), 8u);
}

TEST_F(FilestreamFile, SetWritePosUpdatesTheFieldSinceGetWritePosReportsIt)
{
    filestream f;
    ASSERT_EQ(open(f, path, "rwc"), opcd());
    write_text(f, "0123456789");
    ASSERT_TRUE(f.set_write_pos(4));
    EXPECT_EQ(f.get_write_pos(), 4u);
    write_text(f, "ab");
    EXPECT_EQ(f.get_write_pos(), 6u);
}

TEST(Filestream, PeekReadOfAClosedStreamSaysNoMore)
{
    filestream f;
    EXPECT_EQ(f.peek_read(0), ers::no_more);
}

TEST(Filestream, PeekWriteSucceeds)
{
    filestream f;
    EXPECT_EQ(f.peek_write(0), opcd());
}

TEST(Filestream, ReadUntilIsUnavailable)
{
    filestream f;
    velk::substring pattern("x", 1, false);
    EXPECT_EQ(f.read_until(pattern, nullptr, 100), ers::unavailable);
}

TEST(Filestream, BindIsNotImplemented)
{
    filestream f, g;
    EXPECT_EQ(f.bind(g, 0), ers::not_implemented);
}

// -- Short reads and writes ---------------------------------------------------------

TEST_F(FilestreamFile, ShortReadGivesNmoreWithDetailAndTheUnreadRemainder)
{
    write_file(path, "abc");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    char buf[10] = {};
    uint64_t len = 10;
    opcd e = f.read_raw(buf, len);
    EXPECT_EQ(e, ers::no_more);
    EXPECT_STREQ(e.info(), "required more data than available");
    EXPECT_EQ(len, 7u);
    EXPECT_EQ(std::string(buf, 3), "abc");
}

TEST_F(FilestreamFile, TypedReadPastTheEndOfAShortFileGivesNmore)
{
    write_file(path, "xyz");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    uint64_t v = 0;
    opcd e = f.read(&v, bstype::kind_of<uint64_t>());
    EXPECT_EQ(e, ers::no_more);
    EXPECT_STREQ(e.info(), "required more data than available");
}

TEST_F(FilestreamFile, ReadAtTheEndGivesNmoreAndNothing)
{
    write_file(path, "");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    char c;
    uint64_t len = 1;
    EXPECT_EQ(f.read_raw(&c, len), ers::no_more);
    EXPECT_EQ(len, 1u);
}

TEST_F(FilestreamFile, ZeroLengthReadSucceeds)
{
    write_file(path, "");
    filestream f;
    ASSERT_EQ(open(f, path, "r"), opcd());
    uint64_t len = 0;
    EXPECT_EQ(f.read_raw(nullptr, len), opcd());
}


TEST_F(FilestreamFile, ShortWriteReturnsSuccessWithTheRestInLen)
{
    SKIP_WITHOUT_FILE_SIZE_LIMIT();
    filestream f;
    ASSERT_EQ(open(f, path, "wct"), opcd());
    std::string data(300, 'q');
    uint64_t len = data.size();
    opcd e;
    {
        file_size_limit limit(100);
        ASSERT_TRUE(limit.ok());
        e = f.write_raw(data.data(), len);
    }
    EXPECT_EQ(e, opcd());
    EXPECT_EQ(len, 200u);
    EXPECT_EQ(f.get_write_pos(), 100u);
}

TEST_F(FilestreamFile, WriteOnAFullLimitGivesIoerr)
{
    SKIP_WITHOUT_FILE_SIZE_LIMIT();
    filestream f;
    ASSERT_EQ(open(f, path, "wct"), opcd());
    write_text(f, std::string(100, 'q'));
    uint64_t len = 10;
    opcd e;
    {
        file_size_limit limit(100);
        ASSERT_TRUE(limit.ok());
        e = f.write_raw("0123456789", len);
    }
    EXPECT_EQ(e, ers::io_error);
    EXPECT_EQ(len, 10u);
}

// -- Values and arrays written and read back -------------------------------------------

namespace {

template <class T>
void round_trip(filestream& f, T value)
{
    bstype::kind t = bstype::kind_of<T>();
    ASSERT_EQ(f.write(&value, t), opcd());
    T back{};
    ASSERT_EQ(f.read(&back, t), opcd());
    EXPECT_EQ(std::memcmp(&back, &value, sizeof(T)), 0) << "kind " << std::hex << t.word();
}

} // namespace

TEST_F(FilestreamFile, EveryPrimitiveTypeReadsBackAsWritten)
{
    filestream f;
    ASSERT_EQ(open(f, path, "rwct"), opcd());
    round_trip<int8_t>(f, -100);
    round_trip<uint8_t>(f, 200);
    round_trip<int16_t>(f, -30000);
    round_trip<uint16_t>(f, 60000);
    round_trip<int32_t>(f, INT32_MIN);
    round_trip<uint32_t>(f, 0xDEADBEEF);
    round_trip<int64_t>(f, INT64_MIN + 5);
    round_trip<uint64_t>(f, 0xFEDCBA9876543210ull);
    round_trip<float>(f, FLT_MIN);
    round_trip<double>(f, -DBL_MAX);
    round_trip<bool>(f, true);
    round_trip<char>(f, 'z');
    round_trip<bstype::key>(f, bstype::key{'k'});
    round_trip<opcd>(f, ers::io_error);
    EXPECT_EQ(f.get_write_pos(), 1 + 1 + 2 + 2 + 4 + 4 + 8 + 8 + 4 + 8 + 1 + 1 + 1 + 8u);
}

TEST_F(FilestreamFile, ArraysOfEveryWidthReadBackAsWritten)
{
    filestream f;
    ASSERT_EQ(open(f, path, "rwct"), opcd());
    int16_t a16[] = {1, -2, 3};
    uint32_t a32[] = {7, 8, 9, 10};
    double a64[] = {0.5, -1.25};
    velk::binstream_container_fixed_array<int16_t> c16(a16, 3);
    velk::binstream_container_fixed_array<uint32_t> c32(a32, 4);
    velk::binstream_container_fixed_array<double> c64(a64, 2);
    ASSERT_EQ(f.write_array(c16, nullptr), opcd());
    ASSERT_EQ(f.write_array(c32, nullptr), opcd());
    ASSERT_EQ(f.write_array(c64, nullptr), opcd());

    velk::dynarray<int16_t> b16;
    velk::dynarray<uint32_t> b32;
    velk::dynarray<double> b64;
    velk::dynarray_binstream_container<int16_t> d16(b16);
    velk::dynarray_binstream_container<uint32_t> d32(b32);
    velk::dynarray_binstream_container<double> d64(b64);
    ASSERT_EQ(f.read_array(d16, nullptr), opcd());
    ASSERT_EQ(f.read_array(d32, nullptr), opcd());
    ASSERT_EQ(f.read_array(d64, nullptr), opcd());
    ASSERT_EQ(b16.size(), 3u);
    ASSERT_EQ(b32.size(), 4u);
    ASSERT_EQ(b64.size(), 2u);
    EXPECT_EQ(std::memcmp(b16.ptr(), a16, sizeof a16), 0);
    EXPECT_EQ(std::memcmp(b32.ptr(), a32, sizeof a32), 0);
    EXPECT_EQ(std::memcmp(b64.ptr(), a64, sizeof a64), 0);
}

TEST_F(FilestreamFile, KeysReadBackAsWritten)
{
    filestream f;
    ASSERT_EQ(open(f, path, "rwct"), opcd());
    ASSERT_EQ(f.write_key("first", 0), opcd());
    ASSERT_EQ(f.write_key("second", 1), opcd());
    charstr k;
    ASSERT_EQ(f.read_key(k, 0, ""), opcd());
    EXPECT_TRUE(k == "first");
    ASSERT_EQ(f.read_key(k, 1, ""), opcd());
    EXPECT_TRUE(k == "second");
}

TEST_F(FilestreamFile, AFileWrittenByOneStreamIsReadWholeByABifstream)
{
    std::string data;
    for (int i = 0; i < 100000; ++i)
        data += char('a' + i % 26);
    {
        filestream w;
        ASSERT_EQ(open(w, path, "wct"), opcd());
        ASSERT_EQ(write_text(w, data), opcd());
    }
    bifstream r;
    ASSERT_EQ(r.open(zstring(path.c_str()), "r"), opcd());
    EXPECT_EQ(read_text(r, data.size()), data);
    EXPECT_EQ(r.peek_read(0), ers::no_more);
}
