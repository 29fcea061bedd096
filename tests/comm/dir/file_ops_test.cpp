// directory's file operations on trees in temporary directories: making and
// removing directories, copying and moving files and trees (also across
// file systems, where /dev/shm is another one), truncating, stamping times,
// permissions, walks and temporary names. Trees are made and checked with
// the standard library and POSIX calls, never with the code under test.
//
// Tests run as root on the build machine, and root passes every permission
// test. Targets that must refuse a write are therefore paths below a regular
// file or in /proc, which stop root too; the one case that needs an entry
// that can't be removed runs in a child process that drops to the user
// "nobody".
#include "comm/dir/directory.h"

#include "comm/opcd.h"

#include "tests/support/file_size_limit.h"
#include "tests/support/temp_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;
using velk::charstr;
using velk::directory;
using velk::opcd;
using velk::token;
namespace ers = velk::ers;

namespace {

token tok(const std::string& s) { return token(s.data(), s.size()); }
std::string str(const charstr& s) { return std::string(s.c_str(), s.lens()); }

bool is_dir(const std::string& p) { return fs::is_directory(fs::symlink_status(p)); }
bool is_file(const std::string& p) { return fs::is_regular_file(fs::symlink_status(p)); }
bool exists(const std::string& p)
{
    std::error_code ec;
    return fs::exists(fs::symlink_status(p, ec));
}

struct stat stat_of(const std::string& p)
{
    struct stat st = {};
    ::stat(p.c_str(), &st);
    return st;
}

// The relative paths of everything below root, directories with a trailing "/".
std::set<std::string> tree_of(const std::string& root)
{
    std::set<std::string> out;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        std::string rel = fs::relative(it->path(), root).string();
        out.insert(it->is_directory() && !it->is_symlink() ? rel + "/" : rel);
    }
    return out;
}

// Runs a test in another current directory and comes back.
class cwd_guard
{
public:
    explicit cwd_guard(const std::string& dir) : _saved(fs::current_path()) { fs::current_path(dir); }
    ~cwd_guard()
    {
        std::error_code ec;
        fs::current_path(_saved, ec);
    }

private:
    fs::path _saved;
};

// Sets an environment variable for the life of the object.
class env_guard
{
public:
    env_guard(const char* name, const std::string& value) : _name(name)
    {
        if (const char* old = getenv(name))
            _old = old, _had = true;
        setenv(name, value.c_str(), 1);
    }
    ~env_guard()
    {
        if (_had)
            setenv(_name, _old.c_str(), 1);
        else
            unsetenv(_name);
    }

private:
    const char* _name;
    std::string _old;
    bool _had = false;
};

class dir_ops : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(tmp.ok()); }

    // Makes a file with content text, and the directories on its way.
    std::string file(const std::string& rel, const std::string& text = "x")
    {
        std::string p = tmp / rel;
        fs::create_directories(fs::path(p).parent_path());
        write_file(p, text);
        return p;
    }
    std::string dir(const std::string& rel)
    {
        std::string p = tmp / rel;
        fs::create_directories(p);
        return p;
    }
    std::string at(const std::string& rel) const { return tmp / rel; }

    // a/1.txt a/2.log a/sub/3.txt a/sub/deep/4.bin
    std::string sample_tree(const std::string& name)
    {
        file(name + "/1.txt", "one");
        file(name + "/2.log", "two");
        file(name + "/sub/3.txt", "three");
        file(name + "/sub/deep/4.bin", std::string(20000, '4'));
        return at(name);
    }

    temp_dir tmp{"dir_ops"};
};

// A second temporary directory on another file system, or none.
class other_fs
{
public:
    explicit other_fs(const fs::path& near)
    {
        struct stat shm, here;
        if (::stat("/dev/shm", &shm) != 0 || ::stat(near.c_str(), &here) != 0)
            return;
        if (shm.st_dev == here.st_dev)
            return;
        std::string templ = "/dev/shm/dir_ops_XXXXXX";
        if (mkdtemp(templ.data()))
            _path = templ;
    }
    ~other_fs()
    {
        std::error_code ec;
        if (!_path.empty())
            fs::remove_all(_path, ec);
    }
    bool ok() const { return !_path.empty(); }
    std::string operator/(const std::string& name) const { return (fs::path(_path) / name).string(); }

private:
    std::string _path;
};

#define REQUIRE_OTHER_FS(o)                                                                    \
    if (!(o).ok())                                                                             \
    GTEST_SKIP() << "/dev/shm is missing or on the same file system as the temporary directory"

// Runs fn in a child process as the user "nobody" when the test runs as root
// (as itself otherwise), so that permissions hold. fn gives "" on success or
// what went wrong. Skips when the child can't drop its privileges.
void run_unprivileged(const std::string& writable_dir, const std::function<std::string()>& fn)
{
    constexpr uid_t nobody = 65534;
    if (geteuid() == 0) {
        ASSERT_EQ(::chown(writable_dir.c_str(), nobody, nobody), 0);
        // The temporary directory above it is root's own, mode 700: let nobody pass.
        ASSERT_EQ(::chmod(fs::path(writable_dir).parent_path().c_str(), 0711), 0);
    }
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::close(fds[0]);
        std::string msg;
        // Whatever happens, the child ends here: it must never go on running
        // the parent's tests.
        try {
            if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0))
                msg = "SKIP";
            else
                msg = fn();
        } catch (const std::exception& e) {
            msg = std::string("exception: ") + e.what();
        } catch (...) {
            msg = "exception";
        }
        ssize_t w = ::write(fds[1], msg.data(), msg.size());
        (void)w;
        _exit(0);
    }
    ::close(fds[1]);
    std::string msg;
    char buf[256];
    ssize_t n;
    while ((n = ::read(fds[0], buf, sizeof buf)) > 0)
        msg.append(buf, size_t(n));
    ::close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << "the child did not exit";
    if (msg == "SKIP")
        GTEST_SKIP() << "running as root, and the child could not become the user nobody";
    EXPECT_EQ(msg, "");
}

} // namespace

// -- mkdir ---------------------------------------------------------------------------

TEST_F(dir_ops, mkdir_of_a_bare_drive_succeeds_without_a_system_call)
{
    cwd_guard here(tmp.path().string());
    EXPECT_EQ(directory::mkdir("C:"), opcd());
    EXPECT_FALSE(exists(at("C:"))) << "a directory named C: was made";
}

TEST_F(dir_ops, mkdir_of_a_bare_drive_with_a_separator_succeeds_too)
{
    cwd_guard here(tmp.path().string());
    EXPECT_EQ(directory::mkdir("D:/"), opcd());
    EXPECT_FALSE(exists(at("D:")));
}

TEST_F(dir_ops, mkdir_makes_a_directory)
{
    EXPECT_EQ(directory::mkdir(tok(at("new"))), opcd());
    EXPECT_TRUE(is_dir(at("new")));
}

TEST_F(dir_ops, mkdir_drops_a_trailing_separator)
{
    EXPECT_EQ(directory::mkdir(tok(at("new/"))), opcd());
    EXPECT_TRUE(is_dir(at("new")));
}

TEST_F(dir_ops, mkdir_gives_its_directories_mode_750)
{
    ASSERT_EQ(directory::mkdir(tok(at("new"))), opcd());
    mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(stat_of(at("new")).st_mode & 0777, 0750u & ~mask);
}

TEST_F(dir_ops, mkdir_on_an_existing_directory_succeeds)
{
    dir("there");
    EXPECT_EQ(directory::mkdir(tok(at("there"))), opcd());
}

TEST_F(dir_ops, mkdir_on_an_existing_file_succeeds)
{
    file("plain", "keep");
    EXPECT_EQ(directory::mkdir(tok(at("plain"))), opcd());
    EXPECT_EQ(read_file(at("plain")), "keep");
}

TEST_F(dir_ops, mkdir_with_a_missing_parent_fails)
{
    EXPECT_EQ(directory::mkdir(tok(at("no/such"))), ers::failed);
    EXPECT_FALSE(exists(at("no")));
}

TEST_F(dir_ops, mkdir_below_a_regular_file_fails)
{
    file("plain");
    EXPECT_EQ(directory::mkdir(tok(at("plain/sub"))), ers::failed);
}

TEST_F(dir_ops, mkdir_of_an_empty_path_fails)
{
    EXPECT_EQ(directory::mkdir(""), ers::failed);
}

// -- mkdir_tree ---------------------------------------------------------------------

TEST_F(dir_ops, mkdir_tree_makes_every_level)
{
    EXPECT_EQ(directory::mkdir_tree(tok(at("a/b/c")), false), opcd());
    EXPECT_TRUE(is_dir(at("a/b/c")));
}

TEST_F(dir_ops, mkdir_tree_with_skip_last_leaves_the_file_name)
{
    EXPECT_EQ(directory::mkdir_tree(tok(at("a/b/file.txt")), true), opcd());
    EXPECT_TRUE(is_dir(at("a/b")));
    EXPECT_FALSE(exists(at("a/b/file.txt")));
}

TEST_F(dir_ops, mkdir_tree_with_skip_last_makes_a_level_marked_by_a_trailing_separator)
{
    EXPECT_EQ(directory::mkdir_tree(tok(at("a/b/c//")), true), opcd());
    EXPECT_TRUE(is_dir(at("a/b/c")));
}

TEST_F(dir_ops, mkdir_tree_takes_both_separators_and_runs_of_them)
{
    EXPECT_EQ(directory::mkdir_tree(tok(tmp.path().string() + "\\x//y\\z"), false), opcd());
    EXPECT_TRUE(is_dir(at("x/y/z")));
}

TEST_F(dir_ops, mkdir_tree_on_existing_levels_succeeds)
{
    dir("a/b");
    EXPECT_EQ(directory::mkdir_tree(tok(at("a/b/c")), false), opcd());
    EXPECT_TRUE(is_dir(at("a/b/c")));
}

TEST_F(dir_ops, mkdir_tree_returns_the_first_failure_at_once)
{
    file("plain");
    EXPECT_EQ(directory::mkdir_tree(tok(at("plain/a/b")), false), ers::failed);
    EXPECT_TRUE(is_file(at("plain")));
}

// -- delete_file and delete_directory ---------------------------------------------------

TEST_F(dir_ops, delete_file_removes_a_file)
{
    file("f");
    EXPECT_EQ(directory::delete_file(tok(at("f"))), opcd());
    EXPECT_FALSE(exists(at("f")));
}

TEST_F(dir_ops, delete_file_of_a_missing_file_gives_ioerr)
{
    EXPECT_EQ(directory::delete_file(tok(at("missing"))), ers::io_error);
}

TEST_F(dir_ops, delete_file_never_removes_a_directory)
{
    dir("empty");
    EXPECT_EQ(directory::delete_file(tok(at("empty"))), ers::io_error);
    EXPECT_TRUE(is_dir(at("empty")));
}

TEST_F(dir_ops, delete_directory_removes_an_empty_directory)
{
    dir("empty");
    EXPECT_EQ(directory::delete_directory(tok(at("empty/")), false), opcd());
    EXPECT_FALSE(exists(at("empty")));
}

TEST_F(dir_ops, delete_directory_without_recursion_leaves_a_full_directory)
{
    file("full/f");
    EXPECT_EQ(directory::delete_directory(tok(at("full")), false), ers::io_error);
    EXPECT_TRUE(is_file(at("full/f")));
}

TEST_F(dir_ops, delete_directory_with_recursion_removes_the_tree)
{
    sample_tree("a");
    EXPECT_EQ(directory::delete_directory(tok(at("a")), true), opcd());
    EXPECT_FALSE(exists(at("a")));
}

TEST_F(dir_ops, delete_directory_of_a_missing_directory_gives_ioerr)
{
    EXPECT_EQ(directory::delete_directory(tok(at("missing")), true), ers::io_error);
}

TEST_F(dir_ops, delete_directory_removes_links_without_following_them)
{
    file("outside/keep.txt", "kept");
    file("outside/deeper/keep2.txt", "kept");
    file("a/f");
    fs::create_directory_symlink(at("outside"), at("a/link"));
    EXPECT_EQ(directory::delete_directory(tok(at("a")), true), opcd());
    EXPECT_FALSE(exists(at("a")));
    EXPECT_EQ(read_file(at("outside/keep.txt")), "kept");
    EXPECT_EQ(read_file(at("outside/deeper/keep2.txt")), "kept");
}

TEST_F(dir_ops, delete_directory_of_a_tree_with_an_undeletable_file_leaves_the_top_and_gives_ioerr)
{
    std::string root = dir("work");
    run_unprivileged(root, [root]() -> std::string {
        std::string top = root + "/tree";
        fs::create_directories(top + "/locked");
        write_file(top + "/free.txt", "free");
        write_file(top + "/locked/stuck.txt", "stuck");
        if (::chmod((top + "/locked").c_str(), 0555) != 0)
            return "chmod failed";
        opcd e = directory::delete_directory(token(top.c_str()), true);
        std::string why;
        if (!(e == ers::io_error))
            why += "result was not IOerr; ";
        if (!fs::is_directory(top))
            why += "the top went; ";
        if (!fs::exists(top + "/locked/stuck.txt"))
            why += "the locked file went; ";
        if (fs::exists(top + "/free.txt"))
            why += "the free file stayed; ";
        ::chmod((top + "/locked").c_str(), 0755);
        return why;
    });
}

// -- delete_files ----------------------------------------------------------------------

TEST_F(dir_ops, delete_files_removes_the_matching_files_only)
{
    file("d/a.tmp");
    file("d/b.TMP");
    file("d/c.txt");
    EXPECT_EQ(directory::delete_files(tok(at("d/*.tmp"))), opcd());
    EXPECT_FALSE(exists(at("d/a.tmp")));
    EXPECT_FALSE(exists(at("d/b.TMP")));
    EXPECT_TRUE(exists(at("d/c.txt")));
}

TEST_F(dir_ops, delete_files_reports_the_directories_it_could_not_remove)
{
    file("d/a.txt");
    dir("d/sub");
    EXPECT_EQ(directory::delete_files(tok(at("d/*"))), ers::io_error);
    EXPECT_FALSE(exists(at("d/a.txt")));
    EXPECT_TRUE(is_dir(at("d/sub")));
    EXPECT_TRUE(is_dir(at("d")));
}

TEST_F(dir_ops, delete_files_in_a_missing_directory_fails)
{
    EXPECT_EQ(directory::delete_files(tok(at("missing/*.txt"))), ers::failed);
}

TEST_F(dir_ops, delete_files_without_a_directory_part_fails)
{
    cwd_guard here(tmp.path().string());
    file("a.txt");
    EXPECT_EQ(directory::delete_files("*.txt"), ers::failed);
    EXPECT_TRUE(exists(at("a.txt")));
}

// -- copy_file ----------------------------------------------------------------------------

TEST_F(dir_ops, copy_file_copies_the_content)
{
    std::string data(100000, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = char(i * 13);
    file("src.bin", data);
    EXPECT_EQ(directory::copy_file(tok(at("src.bin")), tok(at("dst.bin"))), opcd());
    EXPECT_EQ(read_file(at("dst.bin")), data);
    EXPECT_EQ(read_file(at("src.bin")), data);
}

TEST_F(dir_ops, copy_file_of_an_empty_file_makes_an_empty_file)
{
    file("empty", "");
    EXPECT_EQ(directory::copy_file(tok(at("empty")), tok(at("copy"))), opcd());
    EXPECT_TRUE(is_file(at("copy")));
    EXPECT_EQ(read_file(at("copy")), "");
}

TEST_F(dir_ops, copy_file_replaces_a_longer_destination)
{
    file("src", "short");
    file("dst", "a much longer old content");
    EXPECT_EQ(directory::copy_file(tok(at("src")), tok(at("dst"))), opcd());
    EXPECT_EQ(read_file(at("dst")), "short");
}

TEST_F(dir_ops, copy_file_onto_itself_does_nothing)
{
    std::string p = file("same", "content");
    struct timespec old_time = stat_of(p).st_mtim;
    EXPECT_EQ(directory::copy_file(tok(p), tok(p)), opcd());
    EXPECT_EQ(read_file(p), "content");
    EXPECT_EQ(stat_of(p).st_mtim.tv_nsec, old_time.tv_nsec);
    EXPECT_EQ(stat_of(p).st_mtim.tv_sec, old_time.tv_sec);
}

TEST_F(dir_ops, copy_file_onto_another_spelling_of_itself_keeps_the_content)
{
    std::string p = file("d/same", "content");
    EXPECT_EQ(directory::copy_file(tok(p), tok(at("d/./same"))), opcd());
    EXPECT_EQ(read_file(p), "content");
}

TEST_F(dir_ops, copy_file_of_a_missing_source_gives_ioerr_and_makes_nothing)
{
    EXPECT_EQ(directory::copy_file(tok(at("missing")), tok(at("dst"))), ers::io_error);
    EXPECT_FALSE(exists(at("dst")));
}

TEST_F(dir_ops, copy_file_of_a_directory_gives_ioerr)
{
    dir("d");
    EXPECT_EQ(directory::copy_file(tok(at("d")), tok(at("dst"))), ers::io_error);
    EXPECT_FALSE(exists(at("dst")));
}

TEST_F(dir_ops, copy_file_below_a_regular_file_gives_ioerr)
{
    file("src", "data");
    file("plain");
    EXPECT_EQ(directory::copy_file(tok(at("src")), tok(at("plain/dst"))), ers::io_error);
}

TEST_F(dir_ops, copy_file_into_proc_gives_ioerr)
{
    if (::access("/proc/self/status", F_OK) != 0)
        GTEST_SKIP() << "no /proc on this system";
    file("src", "data");
    EXPECT_EQ(directory::copy_file(tok(at("src")), "/proc/velk_copy_target"), ers::io_error);
    EXPECT_FALSE(exists("/proc/velk_copy_target"));
}

TEST_F(dir_ops, copy_file_with_a_short_write_gives_write_failed_and_leaves_the_partial_copy)
{
    file("src", std::string(300, 's'));
    opcd e;
    {
        file_size_limit limit(100);
        ASSERT_TRUE(limit.ok());
        e = directory::copy_file(tok(at("src")), tok(at("dst")));
    }
    EXPECT_EQ(e, ers::io_error);
    EXPECT_STREQ(e.info(), "write operation failed");
    EXPECT_EQ(read_file(at("dst")), std::string(100, 's'));
}

// -- move_file ------------------------------------------------------------------------------

TEST_F(dir_ops, move_file_renames_a_file)
{
    file("a", "moved");
    EXPECT_EQ(directory::move_file(tok(at("a")), tok(at("b"))), opcd());
    EXPECT_FALSE(exists(at("a")));
    EXPECT_EQ(read_file(at("b")), "moved");
}

TEST_F(dir_ops, move_file_moves_a_directory)
{
    sample_tree("a");
    EXPECT_EQ(directory::move_file(tok(at("a")), tok(at("b"))), opcd());
    EXPECT_FALSE(exists(at("a")));
    EXPECT_EQ(read_file(at("b/sub/3.txt")), "three");
}

TEST_F(dir_ops, move_file_of_a_missing_source_gives_ioerr)
{
    EXPECT_EQ(directory::move_file(tok(at("missing")), tok(at("b"))), ers::io_error);
    EXPECT_FALSE(exists(at("b")));
}

TEST_F(dir_ops, move_file_never_replaces_an_existing_destination)
{
    file("a", "new");
    file("b", "old");
    EXPECT_EQ(directory::move_file(tok(at("a")), tok(at("b"))), ers::io_error);
    EXPECT_EQ(read_file(at("a")), "new");
    EXPECT_EQ(read_file(at("b")), "old");
}

TEST_F(dir_ops, move_file_into_proc_gives_ioerr_and_keeps_the_source)
{
    if (::access("/proc/self/status", F_OK) != 0)
        GTEST_SKIP() << "no /proc on this system";
    file("a", "stay");
    EXPECT_EQ(directory::move_file(tok(at("a")), "/proc/velk_move_target"), ers::io_error);
    EXPECT_EQ(read_file(at("a")), "stay");
}

TEST_F(dir_ops, move_file_below_a_regular_file_gives_ioerr_and_keeps_the_source)
{
    file("a", "stay");
    file("plain");
    EXPECT_EQ(directory::move_file(tok(at("a")), tok(at("plain/a"))), ers::io_error);
    EXPECT_EQ(read_file(at("a")), "stay");
}

TEST_F(dir_ops, move_file_across_file_systems_moves_content_permission_and_times)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    std::string src = file("a", std::string(50000, 'm'));
    ::chmod(src.c_str(), 0640);
    timespec times[2] = {{1000000000, 0}, {1200000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, src.c_str(), times, 0), 0);
    std::string dst = other / "a";
    EXPECT_EQ(directory::move_file(tok(src), tok(dst)), opcd());
    EXPECT_FALSE(exists(src));
    EXPECT_EQ(read_file(dst), std::string(50000, 'm'));
    EXPECT_EQ(stat_of(dst).st_mode & 07777, 0640u);
    EXPECT_EQ(stat_of(dst).st_mtim.tv_sec, 1200000000);
}

TEST_F(dir_ops, move_file_across_file_systems_never_replaces_an_existing_destination)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    std::string src = file("a", "new");
    write_file(other / "a", "old");
    EXPECT_EQ(directory::move_file(tok(src), tok(other / "a")), ers::io_error);
    EXPECT_EQ(read_file(src), "new");
    EXPECT_EQ(read_file(other / "a"), "old");
}

TEST_F(dir_ops, move_file_across_file_systems_that_fails_to_copy_leaves_the_source_and_no_copy)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    std::string src = file("a", std::string(100000, 'q'));
    opcd e;
    {
        file_size_limit limit(1000);
        ASSERT_TRUE(limit.ok());
        e = directory::move_file(tok(src), tok(other / "a"));
    }
    EXPECT_EQ(e, ers::io_error);
    EXPECT_EQ(read_file(src), std::string(100000, 'q'));
    EXPECT_FALSE(exists(other / "a"));
}

TEST_F(dir_ops, move_file_across_file_systems_below_a_regular_file_keeps_the_source)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    std::string src = file("a", "stay");
    write_file(other / "plain", "");
    EXPECT_EQ(directory::move_file(tok(src), tok(other / "plain/a")), ers::io_error);
    EXPECT_EQ(read_file(src), "stay");
}

TEST_F(dir_ops, move_file_of_a_directory_across_file_systems_gives_ioerr_and_keeps_it)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    sample_tree("a");
    EXPECT_EQ(directory::move_file(tok(at("a")), tok(other / "a")), ers::io_error);
    EXPECT_EQ(read_file(at("a/sub/3.txt")), "three");
    EXPECT_FALSE(exists(other / "a"));
}

TEST_F(dir_ops, move_file_moves_a_link_across_file_systems_as_a_link)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    fs::create_symlink("target/name", at("link"));
    EXPECT_EQ(directory::move_file(tok(at("link")), tok(other / "link")), opcd());
    EXPECT_FALSE(exists(at("link")));
    EXPECT_EQ(fs::read_symlink(other / "link").string(), "target/name");
}

// -- transfer_tree ---------------------------------------------------------------------------

namespace {

const std::set<std::string> sample_entries = {"1.txt", "2.log", "sub/", "sub/3.txt", "sub/deep/",
                                              "sub/deep/4.bin"};

std::set<std::string> prefixed(const std::string& prefix, const std::set<std::string>& names)
{
    std::set<std::string> out = {prefix + "/"};
    for (const auto& n : names)
        out.insert(prefix + "/" + n);
    return out;
}

} // namespace

TEST_F(dir_ops, transfer_tree_copies_a_to_b_as_its_copy)
{
    sample_tree("a");
    EXPECT_EQ(directory::transfer_tree(tok(at("a")), tok(at("b")), false), opcd());
    EXPECT_EQ(tree_of(at("b")), sample_entries);
    EXPECT_EQ(read_file(at("b/sub/deep/4.bin")), std::string(20000, '4'));
    EXPECT_EQ(tree_of(at("a")), sample_entries);
}

TEST_F(dir_ops, transfer_tree_copies_the_contents_of_a_slash_into_b_slash)
{
    sample_tree("a");
    file("b/old.txt");
    EXPECT_EQ(directory::transfer_tree(tok(at("a/")), tok(at("b/")), false), opcd());
    std::set<std::string> want = sample_entries;
    want.insert("old.txt");
    EXPECT_EQ(tree_of(at("b")), want);
}

TEST_F(dir_ops, transfer_tree_copies_the_contents_of_a_slash_into_b)
{
    sample_tree("a");
    EXPECT_EQ(directory::transfer_tree(tok(at("a/")), tok(at("b")), false), opcd());
    EXPECT_EQ(tree_of(at("b")), sample_entries);
}

TEST_F(dir_ops, transfer_tree_copies_a_into_b_slash_as_b_a)
{
    sample_tree("a");
    dir("b");
    EXPECT_EQ(directory::transfer_tree(tok(at("a")), tok(at("b/")), false), opcd());
    EXPECT_EQ(tree_of(at("b")), prefixed("a", sample_entries));
}

TEST_F(dir_ops, transfer_tree_moving_a_slash_into_b_slash_moves_the_contents_and_a_stays)
{
    sample_tree("a");
    dir("b");
    EXPECT_EQ(directory::transfer_tree(tok(at("a/")), tok(at("b/")), true), opcd());
    EXPECT_EQ(tree_of(at("b")), sample_entries);
    EXPECT_TRUE(is_dir(at("a")));
    EXPECT_TRUE(tree_of(at("a")).empty());
}

TEST_F(dir_ops, transfer_tree_moving_a_into_b_slash_makes_b_a_and_a_goes)
{
    sample_tree("a");
    dir("b");
    EXPECT_EQ(directory::transfer_tree(tok(at("a")), tok(at("b/")), true), opcd());
    EXPECT_EQ(tree_of(at("b")), prefixed("a", sample_entries));
    EXPECT_FALSE(exists(at("a")));
}

TEST_F(dir_ops, transfer_tree_copies_a_file_into_a_directory)
{
    file("d/f.txt", "file");
    dir("b");
    EXPECT_EQ(directory::transfer_tree(tok(at("d/f.txt")), tok(at("b/")), false), opcd());
    EXPECT_EQ(read_file(at("b/f.txt")), "file");
    EXPECT_TRUE(is_file(at("d/f.txt")));
}

TEST_F(dir_ops, transfer_tree_moves_a_file_to_a_new_name)
{
    file("f.txt", "file");
    EXPECT_EQ(directory::transfer_tree(tok(at("f.txt")), tok(at("g.txt")), true), opcd());
    EXPECT_EQ(read_file(at("g.txt")), "file");
    EXPECT_FALSE(exists(at("f.txt")));
}

TEST_F(dir_ops, transfer_tree_of_a_missing_source_gives_ioerr_and_makes_nothing)
{
    EXPECT_EQ(directory::transfer_tree(tok(at("missing")), tok(at("b")), false), ers::io_error);
    EXPECT_FALSE(exists(at("b")));
}

TEST_F(dir_ops, transfer_tree_into_itself_is_refused_and_makes_nothing)
{
    sample_tree("a");
    EXPECT_EQ(directory::transfer_tree(tok(at("a")), tok(at("a/")), false), ers::invalid_params);
    EXPECT_EQ(tree_of(at("a")), sample_entries);
}

TEST_F(dir_ops, transfer_tree_below_a_regular_file_fails_at_once)
{
    sample_tree("a");
    file("plain");
    EXPECT_EQ(directory::transfer_tree(tok(at("a")), tok(at("plain/b")), false), ers::failed);
    EXPECT_EQ(tree_of(at("a")), sample_entries);
}

TEST_F(dir_ops, transfer_tree_keeps_the_first_failure_and_copies_the_rest)
{
    sample_tree("a");
    dir("b/1.txt"); // a directory where a file must go
    EXPECT_EQ(directory::transfer_tree(tok(at("a")), tok(at("b")), false), ers::io_error);
    EXPECT_EQ(read_file(at("b/2.log")), "two");
    EXPECT_EQ(read_file(at("b/sub/deep/4.bin")), std::string(20000, '4'));
}

TEST_F(dir_ops, transfer_tree_moving_with_a_failure_keeps_the_source_top)
{
    sample_tree("a");
    file("b/2.log", "in the way");
    EXPECT_EQ(directory::transfer_tree(tok(at("a")), tok(at("b")), true), ers::io_error);
    EXPECT_EQ(read_file(at("a/2.log")), "two");
    EXPECT_EQ(read_file(at("b/2.log")), "in the way");
    EXPECT_EQ(read_file(at("b/sub/3.txt")), "three");
}

TEST_F(dir_ops, transfer_tree_copies_across_file_systems)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    sample_tree("a");
    EXPECT_EQ(directory::transfer_tree(tok(at("a")), tok(other / "b"), false), opcd());
    EXPECT_EQ(tree_of(other / "b"), sample_entries);
    EXPECT_EQ(read_file(other / "b/sub/deep/4.bin"), std::string(20000, '4'));
}

TEST_F(dir_ops, transfer_tree_moves_across_file_systems)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    sample_tree("a");
    ASSERT_TRUE(fs::create_directory(other / "b"));
    EXPECT_EQ(directory::transfer_tree(tok(at("a")), tok(other / "b/"), true), opcd());
    EXPECT_EQ(tree_of(other / "b"), prefixed("a", sample_entries));
    EXPECT_FALSE(exists(at("a")));
}

// -- truncate, set_file_times, file_size ---------------------------------------------------------

TEST_F(dir_ops, truncate_cuts_a_file)
{
    file("f", "0123456789");
    EXPECT_EQ(directory::truncate(tok(at("f")), 4), opcd());
    EXPECT_EQ(read_file(at("f")), "0123");
}

TEST_F(dir_ops, truncate_extends_a_file_with_zeros)
{
    file("f", "ab");
    EXPECT_EQ(directory::truncate(tok(at("f")), 5), opcd());
    EXPECT_EQ(read_file(at("f")), std::string("ab\0\0\0", 5));
}

TEST_F(dir_ops, truncate_creates_a_missing_file)
{
    EXPECT_EQ(directory::truncate(tok(at("new")), 3), opcd());
    EXPECT_EQ(read_file(at("new")), std::string(3, '\0'));
}

TEST_F(dir_ops, truncate_below_a_regular_file_gives_ioerr)
{
    file("plain");
    EXPECT_EQ(directory::truncate(tok(at("plain/f")), 0), ers::io_error);
}

TEST_F(dir_ops, truncate_of_a_directory_gives_ioerr)
{
    dir("d");
    EXPECT_EQ(directory::truncate(tok(at("d")), 0), ers::io_error);
}

TEST_F(dir_ops, truncate_to_an_impossible_size_fails_after_the_open)
{
    file("f", "keep");
    EXPECT_EQ(directory::truncate(tok(at("f")), UINT64_MAX / 2 + 1), ers::failed);
    EXPECT_EQ(read_file(at("f")), "keep");
}

TEST_F(dir_ops, set_file_times_with_access_0_stores_1970_exactly)
{
    file("f");
    EXPECT_EQ(directory::set_file_times(tok(at("f")), 0, 1500000000), opcd());
    struct stat st = stat_of(at("f"));
    EXPECT_EQ(st.st_atim.tv_sec, 0);
    EXPECT_EQ(st.st_atim.tv_nsec, 0);
}

TEST_F(dir_ops, set_file_times_stores_the_modification_time)
{
    file("f");
    EXPECT_EQ(directory::set_file_times(tok(at("f")), 1000, 1500000000), opcd());
    struct stat st = stat_of(at("f"));
    EXPECT_EQ(st.st_mtim.tv_sec, 1500000000);
    EXPECT_EQ(st.st_mtim.tv_nsec, 0);
    EXPECT_EQ(st.st_atim.tv_sec, 1000);
}

TEST_F(dir_ops, set_file_times_of_a_missing_file_gives_ioerr_and_makes_nothing)
{
    EXPECT_EQ(directory::set_file_times(tok(at("missing")), 0, 0), ers::io_error);
    EXPECT_FALSE(exists(at("missing")));
}

TEST_F(dir_ops, set_file_times_of_a_directory_gives_ioerr)
{
    dir("d");
    EXPECT_EQ(directory::set_file_times(tok(at("d")), 0, 0), ers::io_error);
}

TEST_F(dir_ops, file_size_of_a_regular_file_is_its_length)
{
    file("f", std::string(12345, 'z'));
    EXPECT_EQ(directory::file_size(tok(at("f"))), 12345u);
}

TEST_F(dir_ops, file_size_of_a_directory_or_a_missing_file_is_zero)
{
    dir("d");
    EXPECT_EQ(directory::file_size(tok(at("d"))), 0u);
    EXPECT_EQ(directory::file_size(tok(at("missing"))), 0u);
}

// -- Writable ------------------------------------------------------------------------------------

TEST_F(dir_ops, is_writable_of_an_ordinary_file_is_true)
{
    file("f");
    EXPECT_TRUE(directory::is_writable(tok(at("f"))));
}

TEST_F(dir_ops, is_writable_drops_a_trailing_separator)
{
    dir("d");
    EXPECT_TRUE(directory::is_writable(tok(at("d/"))));
}

TEST_F(dir_ops, is_writable_of_a_missing_path_is_false)
{
    file("plain");
    EXPECT_FALSE(directory::is_writable(tok(at("missing"))));
    EXPECT_FALSE(directory::is_writable(tok(at("plain/below"))));
}

TEST_F(dir_ops, set_writable_false_clears_every_write_bit_and_keeps_the_rest)
{
    std::string p = file("f");
    ::chmod(p.c_str(), 0764);
    EXPECT_TRUE(directory::set_writable(tok(p), false));
    EXPECT_EQ(stat_of(p).st_mode & 07777, 0544u);
}

TEST_F(dir_ops, set_writable_true_gives_the_owner_write_permission)
{
    std::string p = file("f");
    ::chmod(p.c_str(), 0444);
    EXPECT_TRUE(directory::set_writable(tok(p), true));
    EXPECT_EQ(stat_of(p).st_mode & 07777, 0644u);
}

TEST_F(dir_ops, set_writable_of_a_missing_path_is_false)
{
    EXPECT_FALSE(directory::set_writable(tok(at("missing")), true));
}

TEST_F(dir_ops, a_file_made_read_only_is_not_writable_for_an_ordinary_user)
{
    std::string root = dir("work");
    run_unprivileged(root, [root]() -> std::string {
        std::string p = root + "/f";
        write_file(p, "x");
        if (!directory::set_writable(token(p.c_str()), false))
            return "set_writable(false) failed";
        if (directory::is_writable(token(p.c_str())))
            return "still writable";
        if (!directory::set_writable(token(p.c_str()), true))
            return "set_writable(true) failed";
        if (!directory::is_writable(token(p.c_str())))
            return "not writable again";
        return "";
    });
}

// -- list_file_paths --------------------------------------------------------------------------------

namespace {

// Every call of a walk, as "kind:path below root".
std::vector<std::string> walk(const std::string& root, const char* extension, uint32_t mode, int* result = nullptr)
{
    std::vector<std::string> calls;
    int r = directory::list_file_paths(tok(root), token(extension), mode, [&](const charstr& p, int kind) {
        std::string s = str(p);
        calls.push_back(std::to_string(kind) + ":" + s.substr(std::min(s.size(), root.size() + 1)));
    });
    if (result)
        *result = r;
    return calls;
}

std::set<std::string> as_set(const std::vector<std::string>& v) { return {v.begin(), v.end()}; }

} // namespace

TEST_F(dir_ops, list_file_paths_with_a_dotted_extension_ignores_case)
{
    file("d/A.TXT");
    file("d/b.log");
    EXPECT_EQ(as_set(walk(at("d"), ".txt", 0)), (std::set<std::string>{"0:A.TXT"}));
}

TEST_F(dir_ops, list_file_paths_with_star_matches_every_file)
{
    file("d/a.txt");
    file("d/noext");
    file("d/.hidden");
    EXPECT_EQ(as_set(walk(at("d"), "*", 0)), (std::set<std::string>{"0:a.txt", "0:noext", "0:.hidden"}));
}

TEST_F(dir_ops, list_file_paths_with_an_undotted_extension_wants_a_dot_before_it)
{
    file("d/a.txt");
    file("d/atxt");
    file("d/txt");
    EXPECT_EQ(as_set(walk(at("d"), "txt", 0)), (std::set<std::string>{"0:a.txt"}));
}

TEST_F(dir_ops, list_file_paths_with_an_empty_extension_matches_every_file)
{
    file("d/a.txt");
    file("d/b");
    EXPECT_EQ(as_set(walk(at("d"), "", 0)), (std::set<std::string>{"0:a.txt", "0:b"}));
}

TEST_F(dir_ops, list_file_paths_with_mode_0_never_enters_subdirectories)
{
    file("d/a.txt");
    file("d/sub/b.txt");
    EXPECT_EQ(as_set(walk(at("d"), "*", 0)), (std::set<std::string>{"0:a.txt"}));
}

TEST_F(dir_ops, list_file_paths_reports_directories_after_their_contents_with_mode_1)
{
    file("d/sub/b.txt");
    EXPECT_EQ(walk(at("d"), "*", 1), (std::vector<std::string>{"0:sub/b.txt", "1:sub"}));
}

TEST_F(dir_ops, list_file_paths_reports_directories_before_their_contents_with_mode_2)
{
    file("d/sub/b.txt");
    EXPECT_EQ(walk(at("d"), "*", 2), (std::vector<std::string>{"2:sub", "0:sub/b.txt"}));
}

TEST_F(dir_ops, list_file_paths_with_mode_3_reports_both)
{
    file("d/sub/deep/c.txt");
    EXPECT_EQ(walk(at("d"), ".txt", 3),
              (std::vector<std::string>{"2:sub", "2:sub/deep", "0:sub/deep/c.txt", "1:sub/deep", "1:sub"}));
}

TEST_F(dir_ops, list_file_paths_of_a_missing_directory_gives_0_and_no_call)
{
    int r = -1;
    EXPECT_TRUE(walk(at("missing"), "*", 3, &r).empty());
    EXPECT_EQ(r, 0);
}

TEST_F(dir_ops, list_file_paths_gives_1_for_a_directory_it_walked)
{
    dir("d");
    int r = -1;
    walk(at("d"), "*", 0, &r);
    EXPECT_EQ(r, 1);
}

TEST_F(dir_ops, list_file_paths_lists_a_link_to_a_directory_as_a_file)
{
    file("outside/x.txt");
    dir("d");
    fs::create_directory_symlink(at("outside"), at("d/link"));
    EXPECT_EQ(walk(at("d"), "*", 3), (std::vector<std::string>{"0:link"}));
}

// -- unique_temp_dir -----------------------------------------------------------------------------------

TEST_F(dir_ops, unique_temp_dir_makes_a_new_directory_named_by_prefix_and_time)
{
    env_guard env("TMPDIR", tmp.path().string());
    int64_t before = time(nullptr);
    charstr made = directory::unique_temp_dir("job");
    int64_t after = time(nullptr);
    std::string s = str(made);
    std::string head = tmp.path().string() + "/job";
    ASSERT_EQ(s.substr(0, head.size()), head);
    int64_t t = std::stoll(s.substr(head.size()));
    EXPECT_GE(t, before);
    EXPECT_LE(t, after);
    EXPECT_TRUE(is_dir(s));
}

TEST_F(dir_ops, unique_temp_dir_after_a_taken_name_gives_a_relative_name)
{
    std::string elsewhere = dir("cwd");
    env_guard env("TMPDIR", tmp.path().string() + "/");
    int64_t now = time(nullptr);
    for (int64_t t = now - 2; t < now + 12; ++t)
        dir("p" + std::to_string(t));
    cwd_guard here(elsewhere);
    charstr made = directory::unique_temp_dir("p");
    std::string s = str(made);
    ASSERT_FALSE(s.empty());
    EXPECT_NE(s[0], '/') << s;
    EXPECT_TRUE(is_dir(elsewhere + "/" + s)) << s;
}

TEST_F(dir_ops, unique_temp_dir_gives_empty_when_every_attempt_fails)
{
    std::string gone = dir("gone");
    env_guard env("TMPDIR", tmp.path().string());
    int64_t now = time(nullptr);
    for (int64_t t = now - 2; t < now + 12; ++t)
        dir("q" + std::to_string(t));
    cwd_guard here(gone);
    ASSERT_EQ(::rmdir(gone.c_str()), 0); // relative names can't be made in a removed directory
    EXPECT_TRUE(directory::unique_temp_dir("q").is_empty());
}

// -- Operations on the iterator's directory ---------------------------------------------------------------

TEST_F(dir_ops, copy_file_from_with_no_name_takes_the_source_file_name)
{
    file("src/f.txt", "from");
    dir("d");
    directory it;
    ASSERT_EQ(it.open(tok(at("d")), "*"), opcd());
    EXPECT_EQ(it.copy_file_from(tok(at("src/f.txt")), ""), opcd());
    EXPECT_EQ(read_file(at("d/f.txt")), "from");
}

TEST_F(dir_ops, copy_file_from_with_a_name_uses_it)
{
    file("src/f.txt", "from");
    dir("d");
    directory it;
    ASSERT_EQ(it.open(tok(at("d")), "*"), opcd());
    EXPECT_EQ(it.copy_file_from(tok(at("src/f.txt")), "g.txt"), opcd());
    EXPECT_EQ(read_file(at("d/g.txt")), "from");
}

TEST_F(dir_ops, copy_file_to_copies_out_of_the_directory)
{
    file("d/f.txt", "out");
    directory it;
    ASSERT_EQ(it.open(tok(at("d")), "*"), opcd());
    EXPECT_EQ(it.copy_file_to(tok(at("g.txt")), "f.txt"), opcd());
    EXPECT_EQ(read_file(at("g.txt")), "out");
}

TEST_F(dir_ops, move_file_from_and_move_file_to_move_through_the_directory)
{
    file("src/f.txt", "moving");
    dir("d");
    directory it;
    ASSERT_EQ(it.open(tok(at("d")), "*"), opcd());
    EXPECT_EQ(it.move_file_from(tok(at("src/f.txt")), ""), opcd());
    EXPECT_EQ(read_file(at("d/f.txt")), "moving");
    EXPECT_EQ(it.move_file_to(tok(at("f.txt")), ""), opcd());
    EXPECT_EQ(read_file(at("f.txt")), "moving");
    EXPECT_FALSE(exists(at("d/f.txt")));
    EXPECT_FALSE(exists(at("src/f.txt")));
}

TEST_F(dir_ops, current_file_operations_use_the_entry_in_hand)
{
    file("d/only.txt", "entry");
    dir("out");
    directory it;
    ASSERT_EQ(it.open(tok(at("d")), "*.txt"), opcd());
    ASSERT_NE(it.next(), nullptr);
    EXPECT_EQ(it.copy_current_file_to(tok(at("out/copy.txt"))), opcd());
    EXPECT_EQ(it.move_current_file_to(tok(at("out/moved.txt"))), opcd());
    EXPECT_EQ(read_file(at("out/copy.txt")), "entry");
    EXPECT_EQ(read_file(at("out/moved.txt")), "entry");
    EXPECT_FALSE(exists(at("d/only.txt")));
}
