// A log file that stops taking text: a file size limit, a full file system,
// a file whose every write fails. Four threads log 1000 lines each while it
// happens. The writer drops what the file doesn't take, and the process
// lives on and logs to a sound file and to the console afterwards. Each
// case runs in log_file_fault_child, so that the fault stays out of this
// program; the log that the child leaves behind is checked here.
#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using velk::testing::child_result;
using velk::testing::run_child;

// What the child logs; see log_file_fault_child.cpp.
constexpr int threads = 4;
const std::string first_line = "INFO: [fault] first\n";
const std::string after_line = "INFO: [fault] after the fault\n";
const std::string console_line = "INFO: [fault] still alive\n";
constexpr int exit_cannot_mount = 77;

std::string thread_line(int t, int i)
{
    return "INFO: [fault] thread " + std::to_string(t) + " line " + std::to_string(i) + ' ' +
           std::string(64, '.') + '\n';
}

// "" when text is what the writer wrote until the file stopped taking more:
// at most capacity bytes, the first line, then the threads' lines, each
// thread's in its order, the last one possibly cut. Else what is wrong.
std::string check_cut_log(const std::string& text, size_t capacity)
{
    if (text.size() > capacity)
        return std::to_string(text.size()) + " bytes, above " + std::to_string(capacity);
    if (text.compare(0, first_line.size(), first_line) != 0)
        return "does not begin with the first line: " + text.substr(0, first_line.size());
    int next[threads] = {};
    size_t at = first_line.size();
    while (at < text.size()) {
        std::string rest = text.substr(at);
        int fits = -1;
        for (int t = 0; t < threads && fits < 0; ++t) {
            std::string due = thread_line(t, next[t]);
            bool whole = rest.compare(0, due.size(), due) == 0;
            bool cut = due.compare(0, rest.size(), rest) == 0;
            if (whole || cut)
                fits = t;
        }
        if (fits < 0)
            return "foreign or out of order at byte " + std::to_string(at) + ": " + rest.substr(0, 100);
        at += thread_line(fits, next[fits]).size();
        ++next[fits];
    }
    return "";
}

struct fault_run
{
    temp_dir dir{"log_fault"};
    std::string log = dir / "fault.log";
    std::string after = dir / "after.log";
    child_result child;

    // Runs the child's case on the file (or directory) target.
    void run(const char* mode, const std::string& target)
    {
        ASSERT_TRUE(dir.ok());
        child = run_child({LOG_FILE_FAULT_CHILD, mode, target, after});
    }
    // The child lived to the end and its writer still wrote.
    void expect_alive()
    {
        EXPECT_EQ(child.signal, 0) << child.err;
        EXPECT_EQ(child.exit_status, 0) << child.err;
        EXPECT_EQ(read_file(after), after_line);
        EXPECT_NE(child.out.find(console_line), std::string::npos) << child.out;
    }
};

// The size limit of the child; see file_size_limit.h.
constexpr size_t file_limit = 40;
// The child's tmpfs: "size=64k".
constexpr size_t tmpfs_size = 64 * 1024;

} // namespace

// -- A file size limit ------------------------------------------------------------------

TEST(LogFileFault, SizeLimitLeavesTheProcessAliveAndLogging)
{
    fault_run f;
    f.run("size_limit", f.log);
    f.expect_alive();
}

TEST(LogFileFault, SizeLimitKeepsTheFirstBytesUpToTheLimit)
{
    fault_run f;
    f.run("size_limit", f.log);
    ASSERT_EQ(f.child.exit_status, 0) << "the log of a child that did not finish: " << f.child.err;
    std::string text = read_file(f.log);
    EXPECT_EQ(text.size(), file_limit); // a short write fills up to the limit
    EXPECT_EQ(check_cut_log(text, file_limit), "");
}

// -- A full file system -----------------------------------------------------------------

TEST(LogFileFault, FullFileSystemLeavesTheProcessAliveAndLogging)
{
    fault_run f;
    std::string mount = f.dir / "mnt";
    ASSERT_TRUE(std::filesystem::create_directory(mount));
    f.run("full_fs", mount);
    if (f.child.exit_status == exit_cannot_mount)
        GTEST_SKIP() << "no tmpfs can be mounted here: " << f.child.out;
    f.expect_alive();
    std::string text = read_file(f.dir / "fault.copy");
    EXPECT_GT(text.size(), first_line.size());
    EXPECT_EQ(check_cut_log(text, tmpfs_size), "");
}

// -- A file whose writes fail -----------------------------------------------------------

// /dev/full opens, and every write to it fails with ENOSPC. The child also
// checks that the lines were dropped rather than kept in pending.
TEST(LogFileFault, FailingWritesLeaveTheProcessAliveAndLogging)
{
    fault_run f;
    f.run("failing_file", "/dev/full");
    f.expect_alive();
}
