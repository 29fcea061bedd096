#include "comm/commassert.h"

#include "comm/exception.h"
#include "comm/iref.h"
#include "comm/log/logger.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>

using velk::testing::log_capture;

namespace {

struct counted : velk::counted_base
{
};

class Assertions : public ::testing::Test
{
protected:
    void TearDown() override
    {
        velk::assert_set_break(1);
        velk::assert_set_throw(0);
    }
    log_capture log;
};

int failing_site(int d)
{
    VELK_ASSERT(d >= 0);
    return d + 1;
}

int failing_site_with_detail(int d)
{
    VELK_ASSERT_MSG(d >= 0, "d is " << d);
    return d + 1;
}

} // namespace

TEST_F(Assertions, BreakZeroGoesOnWithoutTrap)
{
    velk::assert_set_break(0);
    EXPECT_EQ(failing_site(-5), -4);
}

TEST_F(Assertions, ReportHasTwoLinesWithFileLineFunctionAndExpression)
{
    velk::assert_set_break(0);
    failing_site(-1);
    ASSERT_EQ(log.lines().size(), 1u);
    const std::string& line = log.lines()[0];
    EXPECT_EQ(line.rfind("Assertion failed in commassert_test.cpp(", 0), 0u) << line;
    EXPECT_NE(line.find("), function failing_site:\n\"d >= 0\"\r"), std::string::npos) << line;
}

TEST_F(Assertions, DetailFollowsExpressionAfterColon)
{
    velk::assert_set_break(0);
    failing_site_with_detail(-3);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find("\"d >= 0\": d is -3\r"), std::string::npos) << log.lines()[0];
}

TEST_F(Assertions, ReportWithoutCarriageHasNoCharacter13)
{
    velk::assert_message none;
    velk::assert_report(none, "/a/b/file.cpp", -7, nullptr, nullptr, 0);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], "Assertion failed in file.cpp(-7), function :\n\"\"");
}

TEST_F(Assertions, ReportReturnsTheBreakSwitch)
{
    velk::assert_message none;
    velk::assert_set_break(0);
    EXPECT_EQ(velk::assert_report(none, "f", 1, "g", "0", 1), 0);
    velk::assert_set_break(1);
    EXPECT_EQ(velk::assert_report(none, "f", 1, "g", "0", 1), 1);
}

TEST_F(Assertions, HoldsSiteWithBreakSetTraps)
{
    EXPECT_DEATH(failing_site(-1), "");
}

TEST_F(Assertions, PassingSiteReportsNothing)
{
    EXPECT_EQ(failing_site(2), 3);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(Assertions, ThrowSwitchMakesSelfAssignmentThrow)
{
    velk::iref<counted> r;
    r.create();
    counted* same = r.get();
    velk::assert_set_throw(1);
    try {
        r = same;
        FAIL() << "no exception";
    } catch (const velk::exception& e) {
        EXPECT_STREQ(e.what(), "assertion failed");
    }
    EXPECT_EQ(r.get(), same);
    EXPECT_EQ(same->refcount(), 1u);
}

TEST_F(Assertions, SelfAssignmentWithThrowClearChangesNothing)
{
    velk::iref<counted> r;
    r.create();
    counted* same = r.get();
    EXPECT_NO_THROW(r = same);
    EXPECT_NO_THROW(r.create(same));
    EXPECT_EQ(same->refcount(), 1u);
}

TEST_F(Assertions, ThrowCheckReturnsWhenSwitchClear)
{
    EXPECT_NO_THROW(velk::assert_throw_check());
    velk::assert_set_throw(1);
    EXPECT_THROW(velk::assert_throw_check(), velk::exception);
}

// -- The log call ----------------------------------------------------------

namespace {
int logging_caller(int x)
{
    VELK_LOG(1, "test") << "value " << x;
    return x * 3;
}
} // namespace

TEST(LogCall, EmptyResultHasNoEffectOnCaller)
{
    velk::logger refusing;
    refusing.set_level(-2); // below every level: all refused
    velk::set_module_logger(&refusing);
    EXPECT_EQ(logging_caller(5), 15);
    EXPECT_TRUE(velk::create_log_msg(1, "test", nullptr).is_empty());
    velk::set_module_logger(nullptr);
}

TEST(LogCall, MessageIsDeliveredAtLastRelease)
{
    log_capture log;
    velk::log_ref msg = velk::create_log_msg(3, "src", nullptr);
    ASSERT_TRUE(msg);
    *msg << "held";
    velk::log_ref second = msg;
    msg.release();
    EXPECT_TRUE(log.lines().empty());
    second.release();
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], "held");
}

TEST(LogCall, DefaultWritesPrefixAndSourceToConsole)
{
    ::testing::internal::CaptureStdout();
    logging_caller(7);
    velk::logger::flush(); // written on the writer's thread
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "ERROR: [test] value 7\n");
}

TEST(LogCall, EachLevelHasItsPrefixAndLevelsOutsideHaveNone)
{
    EXPECT_TRUE(velk::log_level_prefix(0) == velk::token("FATAL: "));
    EXPECT_TRUE(velk::log_level_prefix(2) == velk::token("WARNING: "));
    EXPECT_TRUE(velk::log_level_prefix(3) == velk::token("INFO: "));
    EXPECT_TRUE(velk::log_level_prefix(6) == velk::token("PERF: "));
    EXPECT_TRUE(velk::log_level_prefix(7).is_empty());
    EXPECT_TRUE(velk::log_level_prefix(-1).is_empty());
}

// -- The detail holder ---------------------------------------------------------------

TEST(AssertMessage, HasNoDetailBeforeText)
{
    velk::assert_message m;
    EXPECT_FALSE(m.has_detail());
    EXPECT_TRUE(m.detail().is_empty());
}

TEST(AssertMessage, EmptyTextGivesNoDetail)
{
    velk::assert_message m;
    m << "";
    EXPECT_FALSE(m.has_detail());
}

TEST(AssertMessage, NullTextIsIgnored)
{
    velk::assert_message m;
    m << static_cast<const char*>(nullptr);
    EXPECT_FALSE(m.has_detail());
}

TEST(AssertMessage, ZeroTerminatedTextIsCopied)
{
    char text[] = "copied";
    velk::assert_message m;
    m << static_cast<const char*>(text);
    text[0] = 'X';
    EXPECT_TRUE(m.detail() == velk::token("copied"));
}

TEST(AssertMessage, TokenAndCharAreAppended)
{
    velk::assert_message m;
    m << velk::token("ab") << 'c';
    EXPECT_TRUE(m.detail() == velk::token("abc"));
}

TEST(AssertMessage, SignedIntegerIsWrittenWithSign)
{
    velk::assert_message m;
    m << int32_t(-2147483647 - 1);
    EXPECT_TRUE(m.detail() == velk::token("-2147483648"));
}

TEST(AssertMessage, UnsignedIntegerIsWrittenInFull)
{
    velk::assert_message m;
    m << uint32_t(4294967295u);
    EXPECT_TRUE(m.detail() == velk::token("4294967295"));
}

TEST(AssertMessage, FloatKeepsSixDecimals)
{
    velk::assert_message m;
    m << 0.1234567f;
    EXPECT_TRUE(m.detail() == velk::token("0.123457")) << std::string(m.detail().ptr(), m.detail().lens());
}

TEST(AssertMessage, DoubleKeepsTenDecimals)
{
    velk::assert_message m;
    m << 0.12345678901234;
    EXPECT_TRUE(m.detail() == velk::token("0.123456789")) << std::string(m.detail().ptr(), m.detail().lens());
}

// -- The literal check with the break switch off ----------------------------------------

TEST_F(Assertions, FailedLiteralCheckGoesOnWithoutTrapAndStillLogs)
{
    velk::assert_set_break(0);
    char buf[8] = "abc"; // zeros behind the text: not a literal's shape
    velk::token t(buf);
    EXPECT_EQ(t.lens(), 3u);
    EXPECT_EQ(log.lines().size(), 1u);
}

// -- enter_single_thread ------------------------------------------------------------

namespace {
const char single_thread_report[] =
    "Assertion failed in commassert(52), function velk::enter_single_thread::enter_single_thread:\n"
    "\"_tid == 0 || _tid == (uint)t\"\r";
} // namespace

TEST_F(Assertions, SingleThreadEntryTakesTheSlot)
{
    uint32_t slot = 0;
    velk::enter_single_thread guard(&slot);
    EXPECT_NE(slot, 0u);
}

TEST_F(Assertions, SingleThreadExitClearsTheSlot)
{
    uint32_t slot = 0;
    {
        velk::enter_single_thread guard(&slot);
    }
    EXPECT_EQ(slot, 0u);
}

TEST_F(Assertions, SingleThreadReentryOnSameThreadPasses)
{
    uint32_t slot = 0;
    velk::enter_single_thread outer(&slot);
    {
        velk::enter_single_thread inner(&slot);
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(Assertions, SingleThreadEntryOfSecondThreadIsReported)
{
    velk::assert_set_break(0);
    uint32_t slot = 0;
    velk::enter_single_thread guard(&slot);
    std::thread([&] { velk::enter_single_thread second(&slot); }).join();
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], single_thread_report);
}

TEST_F(Assertions, SingleThreadEntryOfSecondThreadTakesOverTheSlot)
{
    velk::assert_set_break(0);
    uint32_t slot = 0;
    velk::enter_single_thread guard(&slot);
    uint32_t mine = slot, seen_inside = 0;
    std::thread([&] {
        velk::enter_single_thread second(&slot);
        seen_inside = slot;
    }).join();
    EXPECT_NE(seen_inside, 0u);
    EXPECT_NE(seen_inside, mine);
}
