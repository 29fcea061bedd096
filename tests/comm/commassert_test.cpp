#include "comm/commassert.h"

#include "comm/exception.h"
#include "comm/iref.h"
#include "comm/log/logmsg.h"
#include "tests/log_capture.h"

#include <gtest/gtest.h>

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
velk::log_ref refuse_all(int32_t, const velk::tokenhash&, const void*) { return {}; }

int logging_caller(int x)
{
    VELK_LOG(1, "test") << "value " << x;
    return x * 3;
}
} // namespace

TEST(LogCall, EmptyResultHasNoEffectOnCaller)
{
    velk::set_log_hook(&refuse_all);
    EXPECT_EQ(logging_caller(5), 15);
    EXPECT_TRUE(velk::create_log_msg(1, "test", nullptr).is_empty());
    velk::set_log_hook(nullptr);
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
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "ERROR: [test] value 7\n");
}

TEST(LogCall, LevelPrefixes)
{
    EXPECT_TRUE(velk::log_level_prefix(0) == velk::token("FATAL: "));
    EXPECT_TRUE(velk::log_level_prefix(2) == velk::token("WARNING: "));
    EXPECT_TRUE(velk::log_level_prefix(3) == velk::token("INFO: "));
    EXPECT_TRUE(velk::log_level_prefix(6) == velk::token("PERF: "));
    EXPECT_TRUE(velk::log_level_prefix(7).is_empty());
    EXPECT_TRUE(velk::log_level_prefix(-1).is_empty());
}
