// The log call's road in a process with a registry (this program exports
// one, as a host does): the registry's log hook first, then the logger that
// its logger hook gives, else the module's own logger.
//
// A hook once given stays (setup ignores null hooks), so the tests run in
// the order of the road, from no hook to both.
#include "comm/log/logger.h"

#include "interface/registrar.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using velk::testing::capture_logger;

capture_logger& hosts_logger()
{
    static capture_logger l;
    return l;
}

capture_logger& hooks_logger()
{
    static capture_logger l;
    return l;
}

velk::logger* give_hosts_logger() { return &hosts_logger(); }

void make_in_hook(velk::log_ref& out, int32_t type, const velk::tokenhash& source, const void* context)
{
    out = hooks_logger().create_msg(type, source, context);
}

std::vector<std::string> bodies(const capture_logger& l)
{
    std::vector<std::string> out;
    for (const auto& line : l.lines())
        out.push_back(line.body);
    return out;
}

} // namespace

TEST(LogCallRoad, WithoutHooksTheModulesOwnLoggerTakesTheLine)
{
    velk::testing::log_capture capture;
    VELK_LOG(3, "road") << "own";
    EXPECT_EQ(capture.lines(), std::vector<std::string>{"own"});
    EXPECT_EQ(velk::get_logger(), &velk::testing::log_capture::the_logger());
}

TEST(LogCallRoad, LoggerHookGivesTheLoggerOfTheLine)
{
    velk::setup("", nullptr, nullptr, &give_hosts_logger);
    hosts_logger().clear();
    VELK_LOG(2, "road") << "to the host";
    ASSERT_EQ(hosts_logger().lines().size(), 1u);
    EXPECT_EQ(hosts_logger().lines()[0].text, "WARNING: [road] to the host");
    EXPECT_EQ(velk::get_logger(), &hosts_logger());
}

TEST(LogCallRoad, LoggersLevelStillRefuses)
{
    velk::setup("", nullptr, nullptr, &give_hosts_logger);
    hosts_logger().clear();
    hosts_logger().set_level(1);
    EXPECT_TRUE(velk::create_log_msg(2, "road", nullptr).is_empty());
    hosts_logger().set_level(7);
    EXPECT_TRUE(hosts_logger().lines().empty());
}

TEST(LogCallRoad, LogHookComesBeforeTheLoggerHook)
{
    velk::setup("", &make_in_hook, nullptr, &give_hosts_logger);
    hosts_logger().clear();
    hooks_logger().clear();
    VELK_LOG(1, "road") << "through the hook";
    EXPECT_EQ(bodies(hooks_logger()), std::vector<std::string>{"through the hook"});
    EXPECT_TRUE(hosts_logger().lines().empty());
}
