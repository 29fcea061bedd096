// Allocation tracking: the counters per type, their listing, the report
// "memory.log", and the report a thread leaves when memory runs out.
#include "comm/alloc/memtrack.h"

#include "comm/alloc/mspace.h"
#include "comm/thread.h"
#include "tests/support/log_capture.h"
#include "tests/support/process_env.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

// At global scope, so that the report shows the bare names.
struct alpha {};
struct beta {};
struct gamma_type {};
template <int N>
struct many {};

namespace {

const char* const heading = "======== bytes | #alloc |  type ======";

std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

int count_of(const std::string& text, const std::string& part)
{
    int n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

// The report of r, written to a fresh file and read back.
std::string report_of(velk::memtrack_registrar& r, bool diff)
{
    temp_dir dir("memtrack");
    std::string path = dir / "report.log";
    r.dump(path.c_str(), diff);
    return read_file(path);
}

std::string clean(const char* name)
{
    velk::charstr out;
    velk::memtrack_clean_type_name(out, velk::token(name));
    return std::string(out.c_str());
}

} // namespace

// -- The report --------------------------------------------------------------------------

TEST(MemtrackReport, EmptyTableGivesHeadingsZeroTotalsAndStatistics)
{
    velk::memtrack_registrar r;
    std::vector<std::string> l = lines_of(report_of(r, false));
    ASSERT_EQ(l.size(), 10u);
    EXPECT_EQ(l[0], heading);
    EXPECT_EQ(l[1], heading);
    EXPECT_EQ(l[2], "           0  B       0\t (total)");
    EXPECT_EQ(l[3], "");
    EXPECT_EQ(l[4].rfind("non-mmapped space allocated from system: ", 0), 0u);
    EXPECT_EQ(l[5].rfind("number of free chunks:                   ", 0), 0u);
    EXPECT_EQ(l[6].rfind("maximum total allocated space:           ", 0), 0u);
    EXPECT_EQ(l[7].rfind("total allocated space:                   ", 0), 0u);
    EXPECT_EQ(l[8].rfind("total free space:                        ", 0), 0u);
    EXPECT_EQ(l[9].rfind("releasable (via malloc_trim) space:      ", 0), 0u);
}

TEST(MemtrackReport, StatisticsValuesAreMetricOfWidthEight)
{
    velk::memtrack_registrar r;
    std::vector<std::string> l = lines_of(report_of(r, false));
    ASSERT_EQ(l.size(), 10u);
    const size_t label = std::string("non-mmapped space allocated from system: ").size();
    for (int i : {4, 6, 7, 8, 9}) {
        EXPECT_EQ(l[i].size(), label + 9) << l[i]; // 8 wide, then "B"
        EXPECT_EQ(l[i].back(), 'B') << l[i];
    }
    EXPECT_EQ(l[5].size(), label + 8) << l[5]; // a count: no "B"
}

TEST(MemtrackReport, RowShowsBytesWithCommasCountAndName)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(alpha), 1234567);
    r.track_alloc(&typeid(alpha), 0);
    r.track_alloc(&typeid(alpha), 0);
    std::vector<std::string> l = lines_of(report_of(r, false));
    ASSERT_GE(l.size(), 3u);
    EXPECT_EQ(l[1], "   1,234,567        3\talpha");
    EXPECT_EQ(l[3], "        1.23 MB       3\t (total)");
}

TEST(MemtrackReport, ZeroCurrentSizeGivesNoRowWithoutDiff)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(beta), 100);
    r.track_free(&typeid(beta), 100);
    std::string text = report_of(r, false);
    EXPECT_EQ(text.find("beta"), std::string::npos) << text;
}

TEST(MemtrackReport, ZeroCurrentSizeGivesARowWithDiffAfterAllocations)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(beta), 100);
    r.track_free(&typeid(beta), 100);
    std::vector<std::string> l = lines_of(report_of(r, true));
    ASSERT_GE(l.size(), 2u);
    EXPECT_EQ(l[1], "         100        1\tbeta");
}

TEST(MemtrackReport, DiffAfterResetGivesNoRow)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(beta), 100);
    r.reset();
    std::string text = report_of(r, true);
    EXPECT_EQ(text.find("beta"), std::string::npos) << text;
}

TEST(MemtrackReport, NegativeCurrentSizeShowsAMinus)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(gamma_type), 10);
    r.track_alloc(&typeid(gamma_type), 10);
    r.track_free(&typeid(gamma_type), 50);
    std::vector<std::string> l = lines_of(report_of(r, false));
    ASSERT_GE(l.size(), 2u);
    EXPECT_EQ(l[1], "         -30        1\tgamma_type");
}

TEST(MemtrackReport, NullTypeIsReportedAsUnknown)
{
    velk::memtrack_registrar r;
    r.track_alloc(nullptr, 64);
    std::vector<std::string> l = lines_of(report_of(r, false));
    ASSERT_GE(l.size(), 2u);
    EXPECT_EQ(l[1], "          64        1\tunknown");
}

TEST(MemtrackReport, DumpLeavesTheCountersAsTheyWere)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(alpha), 16);
    report_of(r, true);
    velk::memtrack rec{};
    ASSERT_EQ(r.list(&rec, 1, false), 1u);
    EXPECT_EQ(rec.size, 16);
    EXPECT_EQ(rec.nallocs, 1u);
}

namespace {

template <int... N>
void track_many(velk::memtrack_registrar& r, std::integer_sequence<int, N...>)
{
    (r.track_alloc(&typeid(many<N>), 1000 + N), ...);
}

} // namespace

TEST(MemtrackReport, HundredsOfTypesGoOutInSeveralWritesWithHeadingsTwice)
{
    velk::memtrack_registrar r;
    track_many(r, std::make_integer_sequence<int, 300>());
    std::string text = report_of(r, false);
    // More than the 8000-character buffer holds: it was written out on the way.
    EXPECT_GT(text.size(), 8000u);
    EXPECT_EQ(count_of(text, heading), 2);
    EXPECT_EQ(count_of(text, "\tmany<"), 300);
    EXPECT_NE(text.find("\tmany<0>\n"), std::string::npos);
    EXPECT_NE(text.find("\tmany<299>\n"), std::string::npos);
    EXPECT_NE(text.find(" (total)\n"), std::string::npos);
}

TEST(MemtrackReport, FileThatCannotBeOpenedGivesNoReport)
{
    temp_dir dir("memtrack");
    write_file(dir / "plain", "x");
    velk::memtrack_registrar r;
    std::string path = dir / "plain/report.log"; // a file stands where a directory should
    EXPECT_NO_THROW(r.dump(path.c_str(), false));
    EXPECT_EQ(read_file(path), "");
}

// -- The counters ---------------------------------------------------------------------------

TEST(MemtrackCounters, FreeOfANeverAllocatedTypeAddsNoRecord)
{
    velk::memtrack_registrar r;
    r.track_free(&typeid(alpha), 8);
    EXPECT_EQ(r.count(), 0u);
}

TEST(MemtrackCounters, AllocationsOfOneTypeShareARecord)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(alpha), 8);
    r.track_alloc(&typeid(alpha), 24);
    r.track_alloc(&typeid(beta), 4);
    EXPECT_EQ(r.count(), 2u);
    velk::memtrack rec[2]{};
    ASSERT_EQ(r.list(rec, 2, false), 2u);
    const velk::memtrack& a = std::string(rec[0].name) == "alpha" ? rec[0] : rec[1];
    EXPECT_EQ(a.size, 32);
    EXPECT_EQ(a.cur_size, 32);
    EXPECT_EQ(a.total_size, 32);
    EXPECT_EQ(a.nallocs, 2u);
    EXPECT_EQ(a.cur_allocs, 2u);
    EXPECT_EQ(a.total_allocs, 2u);
}

TEST(MemtrackCounters, FreeLowersOnlyTheCurrentCounters)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(alpha), 40);
    r.track_free(&typeid(alpha), 40);
    velk::memtrack rec{};
    ASSERT_EQ(r.list(&rec, 1, false), 1u);
    EXPECT_EQ(rec.cur_size, 0);
    EXPECT_EQ(rec.cur_allocs, 0u);
    EXPECT_EQ(rec.total_size, 40);
    EXPECT_EQ(rec.total_allocs, 1u);
}

TEST(MemtrackCounters, ListClearsSizeAndCountSinceTheLastListing)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(alpha), 40);
    velk::memtrack rec{};
    ASSERT_EQ(r.list(&rec, 1, false), 1u);
    EXPECT_EQ(rec.size, 40);
    ASSERT_EQ(r.list(&rec, 1, false), 1u);
    EXPECT_EQ(rec.size, 0);
    EXPECT_EQ(rec.nallocs, 0u);
    EXPECT_EQ(rec.cur_size, 40);
}

TEST(MemtrackCounters, ModifiedOnlyListSkipsRecordsWithoutNewAllocations)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(alpha), 40);
    r.track_alloc(&typeid(beta), 8);
    velk::memtrack rec[2]{};
    ASSERT_EQ(r.list(rec, 2, false), 2u);
    r.track_alloc(&typeid(beta), 8);
    ASSERT_EQ(r.list(rec, 2, true), 1u);
    EXPECT_STREQ(rec[0].name, "beta");
}

TEST(MemtrackCounters, ListStopsAtMaxRecords)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(alpha), 1);
    r.track_alloc(&typeid(beta), 1);
    r.track_alloc(&typeid(gamma_type), 1);
    velk::memtrack rec[3]{};
    EXPECT_EQ(r.list(rec, 2, false), 2u);
}

TEST(MemtrackCounters, ResetClearsSizeAndCountOfEveryRecord)
{
    velk::memtrack_registrar r;
    r.track_alloc(&typeid(alpha), 40);
    r.track_alloc(&typeid(beta), 8);
    r.reset();
    velk::memtrack rec[2]{};
    ASSERT_EQ(r.list(rec, 2, true), 0u);
    ASSERT_EQ(r.list(rec, 2, false), 2u);
    EXPECT_EQ(rec[0].cur_size + rec[1].cur_size, 48);
}

// -- Cleaned type names ------------------------------------------------------------------------

TEST(MemtrackTypeName, ClassAndStructWordsAreDropped)
{
    EXPECT_EQ(clean("class foo<struct bar,class baz>"), "foo<bar,baz>");
}

TEST(MemtrackTypeName, ZeroArrayWordBecomesEmptyBrackets)
{
    EXPECT_EQ(clean("char [0]"), "char []");
}

TEST(MemtrackTypeName, OtherWordsKeepTheirBlanks)
{
    EXPECT_EQ(clean("unsigned long"), "unsigned long");
    EXPECT_EQ(clean("foo<bar, baz>"), "foo<bar, baz>");
}

TEST(MemtrackTypeName, ShortWordsAreNotMistakenForEndings)
{
    EXPECT_EQ(clean("lass x"), "lass x");
    EXPECT_EQ(clean("truct y"), "truct y");
}

// -- The process-wide tracker -------------------------------------------------------------------

TEST(MemtrackSwitch, TrackingIsOffAtFirstAndCallsCountNothing)
{
    uint32_t before = velk::memtrack_count();
    velk::memtrack_alloc(&typeid(many<1000>), 8);
    EXPECT_EQ(velk::memtrack_count(), before);
}

TEST(MemtrackSwitch, EnableGivesThePreviousRequest)
{
    EXPECT_FALSE(velk::memtrack_enable(true));
    EXPECT_TRUE(velk::memtrack_enable(false));
}

TEST(MemtrackSwitch, EnabledTrackingCountsThroughTheFreeFunctions)
{
    velk::memtrack_enable(true);
    velk::memtrack_alloc(&typeid(many<1001>), 8);
    velk::memtrack_enable(false);
    velk::memtrack rec[64]{};
    uint32_t n = velk::memtrack_list(rec, 64, false);
    bool found = false;
    for (uint32_t i = 0; i < n; ++i)
        found |= std::string(rec[i].name) == "many<1001>";
    EXPECT_TRUE(found);
}

TEST(MemtrackSwitch, ShutdownSwitchesTrackingOffForGood)
{
    EXPECT_EXIT(
        {
            velk::memtrack_shutdown();
            velk::memtrack_enable(true);
            uint32_t before = velk::memtrack_count();
            velk::memtrack_alloc(&typeid(many<1002>), 8);
            velk::memtrack rec{};
            bool quiet = velk::memtrack_count() == before && velk::memtrack_list(&rec, 1, false) == 0;
            exit(quiet ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

// -- Out of memory at the top of a thread -------------------------------------------------------

namespace {

// Allocates from a space with a footprint limit until it is exhausted, as
// a throwing allocation would: null becomes std::bad_alloc.
void exhaust_limited_space()
{
    velk::mspace s = velk::mspace_create(0, true, 0);
    velk::mspace_set_footprint_limit(s, 1 << 20);
    for (;;) {
        if (!velk::mspace_alloc(s, 4096))
            throw std::bad_alloc();
    }
}

// In the dying child: the report lands in dir, the current directory.
void run_out_of_memory_in(const std::string& dir)
{
    std::error_code ec;
    std::filesystem::current_path(dir, ec);
    if (ec)
        exit(3);
    velk::testing::log_capture log(true);
    velk::thread t = velk::thread::create_new([] { exhaust_limited_space(); }, nullptr, "eater");
    velk::thread::join(t);
    exit(2); // not reached: the exception ends the process
}

} // namespace

class MemtrackDeathTest : public ::testing::Test
{
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(MemtrackDeathTest, ThreadOutOfMemoryLeavesMemoryLogAndALogLine)
{
    // The child runs this body again from the start: it must find the
    // parent's directory, not make one of its own.
    const char* const env = "VELK_MEMTRACK_OOM_DIR";
    std::unique_ptr<temp_dir> dir;
    std::string path;
    if (const char* inherited = getenv(env)) {
        path = inherited;
    } else {
        dir = std::make_unique<temp_dir>("oom");
        ASSERT_TRUE(dir->ok());
        path = dir->path().string();
        velk::testing::set_env(env, path.c_str());
    }
    EXPECT_EXIT(run_out_of_memory_in(path), velk::testing::ended_by_abort(),
                "out of memory in thread eater: std::bad_alloc\r");
    velk::testing::unset_env(env);
    std::string report = read_file(path + "/memory.log");
    EXPECT_EQ(count_of(report, heading), 2) << report;
    EXPECT_NE(report.find(" (total)\n"), std::string::npos) << report;
    EXPECT_NE(report.find("\nreleasable (via malloc_trim) space:      "), std::string::npos) << report;
    // The report goes with the temporary directory.
}
