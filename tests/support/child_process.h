// Test helper: runs a program in a child process and collects what it wrote
// on its standard output and its standard error, and how it ended.
#pragma once

#include "tests/support/windows_api.h"

#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#if !defined(_WIN32)
extern char** environ;
#endif

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

#if defined(_WIN32)
// A file of its own for each stream of each child.
inline std::string temp_file(const char* tag)
{
    static int serial = 0;
    return std::string(::testing::TempDir()) + "child_" + tag + "_" + std::to_string(GetCurrentProcessId()) + "_" +
           std::to_string(++serial);
}

// The child's text with Windows' line ends turned into "\n", as the tests
// compare text.
inline std::string text_lines(std::string s)
{
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i)
        if (!(s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n'))
            out += s[i];
    return out;
}

// One argument as the C runtime splits a command line: in quotes, with the
// backslashes before a quote doubled and the quote escaped.
inline void append_argument(std::string& line, const std::string& a)
{
    line += '"';
    size_t slashes = 0;
    for (char c : a) {
        if (c == '\\') {
            ++slashes;
            continue;
        }
        line.append(c == '"' ? 2 * slashes + 1 : slashes, '\\');
        slashes = 0;
        line += c;
    }
    line.append(2 * slashes, '\\');
    line += '"';
}

inline HANDLE inheritable_file(const std::string& path)
{
    SECURITY_ATTRIBUTES sa{sizeof sa, nullptr, TRUE};
    return CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &sa, CREATE_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}
#else
inline std::string temp_file(const char* tag)
{
    std::string path = std::string(::testing::TempDir()) + "child_" + tag + "_XXXXXX";
    int fd = mkstemp(path.data());
    if (fd >= 0)
        close(fd);
    return path;
}
#endif

} // namespace detail

#if defined(_WIN32)
// Runs argv[0] (a path) with argv, its output going to files that are read
// back after it ended. Windows has no signals: signal stays 0.
inline child_result run_child(const std::vector<std::string>& argv)
{
    child_result r;
    std::string out_path = detail::temp_file("out"), err_path = detail::temp_file("err");
    std::string line;
    for (const std::string& a : argv) {
        if (!line.empty())
            line += ' ';
        detail::append_argument(line, a);
    }
    HANDLE out = detail::inheritable_file(out_path), err = detail::inheritable_file(err_path);
    STARTUPINFOA si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    si.hStdOutput = out;
    si.hStdError = err;
    PROCESS_INFORMATION pi{};
    if (out != INVALID_HANDLE_VALUE && err != INVALID_HANDLE_VALUE &&
        CreateProcessA(argv[0].c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi)) {
        WaitForSingleObject(pi.hProcess, INFINITE);
        DWORD code = 0;
        if (GetExitCodeProcess(pi.hProcess, &code))
            r.exit_status = static_cast<int>(code);
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    }
    if (out != INVALID_HANDLE_VALUE)
        CloseHandle(out);
    if (err != INVALID_HANDLE_VALUE)
        CloseHandle(err);
    r.out = detail::text_lines(detail::read_and_remove(out_path));
    r.err = detail::text_lines(detail::read_and_remove(err_path));
    return r;
}
#else
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

#endif

} // namespace velk::testing
