// A program that makes the log file fail under a logger that four threads
// are writing to, run as a child of log_file_fault_test so that neither the
// fault nor a crash reaches the test program.
//
//   log_file_fault_child size_limit LOG AFTER   no file grows past 40 bytes
//                                               while the threads log
//   log_file_fault_child full_fs DIR AFTER      DIR becomes a 64 KiB tmpfs in
//                                               a mount namespace of its own;
//                                               the log is copied to
//                                               DIR/../fault.copy at the end
//   log_file_fault_child failing_file LOG AFTER LOG opens, every write fails
//
// The log's first line is written alone ("INFO: [fault] first\n"); then
// each thread logs its numbered lines. After the flush the program logs
// "INFO: [fault] after the fault" to the file AFTER and "still alive" to
// the console. Exit 0 when it got that far, 77 when the tmpfs can't be
// mounted here (the reason on standard output), 3 when a check of its own
// fails (the reason on standard error), 2 for wrong arguments.
#include "comm/log/logger.h"

#include "tests/support/file_size_limit.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

using velk::log_ref;
using velk::logger;

constexpr int exit_cannot_mount = 77;
constexpr int threads = 4;
constexpr int lines_per_thread = 1000;

// The file limit, and the tmpfs's size: 16 pages of 4 KiB.
constexpr rlim_t file_limit = 40;
constexpr const char* tmpfs_options = "size=64k";

// Each line is about 100 bytes, so that 4000 of them fill the 64 KiB file
// system six times over.
const std::string padding(64, '.');

void log_lines(logger& log)
{
    if (log_ref m = log.create_msg(3, "fault", nullptr))
        *m << "first";
    logger::flush();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&log, t] {
            for (int i = 0; i < lines_per_thread; ++i)
                if (log_ref m = log.create_msg(3, "fault", nullptr))
                    *m << "thread " << t << " line " << i << ' ' << padding.c_str();
        });
    }
    for (std::thread& t : workers)
        t.join();
    logger::flush();
}

// The writer still runs: a line to a sound file, and one to the console.
void log_after(const char* after)
{
    logger second(false, true);
    second.open(after);
    if (log_ref m = second.create_msg(3, "fault", nullptr))
        *m << "after the fault";
    velk::stdoutlogger console;
    if (log_ref m = console.create_msg(3, "fault", nullptr))
        *m << "still alive";
    logger::flush();
}

int run_size_limit(const char* path, const char* after)
{
    {
        logger log(false, true);
        log.open(path);
        file_size_limit limit(file_limit);
        if (!limit.ok()) {
            fprintf(stderr, "setrlimit: %s\n", strerror(errno));
            return 3;
        }
        log_lines(log);
    }
    log_after(after);
    return 0;
}

// The mount is private to this process: it goes when the process ends, and
// no other process sees it.
int run_full_fs(const char* dir, const char* after)
{
    if (unshare(CLONE_NEWNS) != 0) {
        printf("unshare(CLONE_NEWNS): %s\n", strerror(errno));
        return exit_cannot_mount;
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        printf("making the mounts private: %s\n", strerror(errno));
        return exit_cannot_mount;
    }
    if (mount("tmpfs", dir, "tmpfs", 0, tmpfs_options) != 0) {
        printf("mount -t tmpfs: %s\n", strerror(errno));
        return exit_cannot_mount;
    }
    std::string path = std::string(dir) + "/fault.log";
    {
        logger log(false, true);
        log.open(path.c_str());
        log_lines(log);
    }
    std::filesystem::path copy = std::filesystem::path(dir).parent_path() / "fault.copy";
    std::error_code ec;
    std::filesystem::copy_file(path, copy, ec);
    if (ec) {
        fprintf(stderr, "copying the log: %s\n", ec.message().c_str());
        return 3;
    }
    log_after(after);
    return 0;
}

// The text that could not be written is dropped, not kept for later.
int run_failing_file(const char* path, const char* after)
{
    {
        logger log(false, true);
        log.open(path);
        log_lines(log);
        if (!log.file()->is_open()) {
            fprintf(stderr, "%s did not open\n", path);
            return 3;
        }
        if (!log.file()->pending().is_empty()) {
            fprintf(stderr, "%u bytes gathered in pending\n", log.file()->pending().lens());
            return 3;
        }
    }
    log_after(after);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    std::string mode = argv[1];
    if (mode == "size_limit")
        return run_size_limit(argv[2], argv[3]);
    if (mode == "full_fs")
        return run_full_fs(argv[2], argv[3]);
    if (mode == "failing_file")
        return run_failing_file(argv[2], argv[3]);
    return 2;
}
