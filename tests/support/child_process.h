// Test helper: runs a program in a child process and collects what it wrote
// on its standard output and its standard error, and how it ended.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace velk::testing {

struct child_result
{
    int exit_status = -1; // -1 when the child did not exit normally
    int signal = 0;       // the signal that ended it, or 0
    std::string out;
    std::string err;
};

namespace detail {

inline std::string read_and_remove(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    std::remove(path.c_str());
    return text.str();
}

inline std::string temp_file(const char* tag)
{
    std::string path = std::string(::testing::TempDir()) + "child_" + tag + "_XXXXXX";
    int fd = mkstemp(path.data());
    if (fd >= 0)
        close(fd);
    return path;
}

} // namespace detail

// Runs argv[0] (a path) with argv, its output going to files that are read
// back after it ended.
inline child_result run_child(const std::vector<std::string>& argv)
{
    child_result r;
    std::string out_path = detail::temp_file("out"), err_path = detail::temp_file("err");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out_path.c_str(), O_WRONLY | O_TRUNC, 0);
    posix_spawn_file_actions_addopen(&actions, 2, err_path.c_str(), O_WRONLY | O_TRUNC, 0);
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    int status = 0;
    if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) == 0 && waitpid(pid, &status, 0) == pid) {
        if (WIFEXITED(status))
            r.exit_status = WEXITSTATUS(status);
        if (WIFSIGNALED(status))
            r.signal = WTERMSIG(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    r.out = detail::read_and_remove(out_path);
    r.err = detail::read_and_remove(err_path);
    return r;
}

} // namespace velk::testing
