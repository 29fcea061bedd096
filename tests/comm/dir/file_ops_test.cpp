// file_ops on trees in temporary directories: the probes of one path, making
// and removing directories, copying and moving files and trees (also across
// file systems, where /dev/shm is another one), truncating, stamping times,
// permissions, walks and temporary names. Trees are made and checked with
// the standard library and POSIX calls, never with the code under test.
//
// Tests run as root on the build machine, and root passes every permission
// test. Targets that must refuse a write are therefore paths below a regular
// file or in /proc, which stop root too; the one case that needs an entry
// that can't be removed runs in a child process that drops to the user
// "nobody".
#include "comm/dir/file_ops.h"

#include "comm/opcd.h"

#include "tests/support/file_size_limit.h"
#include "tests/support/path_forms.h"
#include "tests/support/process_env.h"
#include "tests/support/temp_dir.h"
#include "tests/support/windows_api.h"

#include <sys/stat.h>

#if !defined(_WIN32)
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <gtest/gtest.h>

#include <chrono>
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
using velk::file_ops;
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

#if defined(_WIN32)
using stat_type = struct _stat64;
stat_type stat_of(const std::string& p)
{
    stat_type st = {};
    ::_stat64(p.c_str(), &st);
    return st;
}
#else
using stat_type = struct stat;
stat_type stat_of(const std::string& p)
{
    stat_type st = {};
    ::stat(p.c_str(), &st);
    return st;
}
#endif

// The modification time of p in seconds since 1970, as the standard library reads it.
int64_t mtime_of(const std::string& p)
{
    auto t = std::chrono::file_clock::to_sys(fs::last_write_time(p));
    return std::chrono::duration_cast<std::chrono::seconds>(t.time_since_epoch()).count();
}

// A device that every system has.
#if defined(_WIN32)
const char* const null_device = "NUL";
#else
const char* const null_device = "/dev/null";
#endif

// The cases that rest on what only POSIX has.
#if defined(_WIN32)
#define SKIP_ON_WINDOWS(reason) GTEST_SKIP() << reason
#else
#define SKIP_ON_WINDOWS(reason) ((void)0)
#endif

// The relative paths of everything below root, with "/" between their
// segments on every system, directories with a trailing "/".
std::set<std::string> tree_of(const std::string& root)
{
    std::set<std::string> out;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        std::string rel = fs::relative(it->path(), root).generic_string();
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

// The variable that names the temporary directory: GetTempPathA reads TMP.
#if defined(_WIN32)
const char* const tmp_variable = "TMP";
#else
const char* const tmp_variable = "TMPDIR";
#endif

// Sets an environment variable for the life of the object.
class env_guard
{
public:
    env_guard(const char* name, const std::string& value) : _name(name)
    {
        if (const char* old = getenv(name))
            _old = old, _had = true;
        velk::testing::set_env(name, value.c_str());
    }
    ~env_guard()
    {
        if (_had)
            velk::testing::set_env(_name, _old.c_str());
        else
            velk::testing::unset_env(_name);
    }

private:
    const char* _name;
    std::string _old;
    bool _had = false;
};

class FileOps : public ::testing::Test
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

    temp_dir tmp{"file_ops"};
};

// A second temporary directory on another file system, or none.
class other_fs
{
public:
    explicit other_fs(const fs::path& beside)
    {
#if defined(_WIN32)
        // Under wine the drive Z: is the host's root, so Z:\dev\shm is its
        // tmpfs: another drive, and another file system, than C:.
        std::error_code ec;
        const fs::path shm = "Z:\\dev\\shm";
        if (beside.root_name() == shm.root_name() || !fs::is_directory(shm, ec))
            return;
        static int serial = 0;
        for (int attempt = 0; attempt < 100 && _path.empty(); ++attempt) {
            fs::path p = shm / ("file_ops_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++serial));
            if (fs::create_directory(p, ec))
                _path = p.string();
        }
#else
        struct stat shm, here;
        if (::stat("/dev/shm", &shm) != 0 || ::stat(beside.c_str(), &here) != 0)
            return;
        if (shm.st_dev == here.st_dev)
            return;
        std::string templ = "/dev/shm/file_ops_XXXXXX";
        if (mkdtemp(templ.data()))
            _path = templ;
#endif
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
    GTEST_SKIP() << "/dev/shm (Z:\\dev\\shm under wine) is missing or on the same file system as the "  \
                    "temporary directory"

#if defined(_WIN32)
// Runs fn here: the checks that keep a POSIX root out (mode bits) are not
// Windows', whose read-only attribute stops every user alike.
void run_unprivileged(const std::string&, const std::function<std::string()>& fn)
{
    EXPECT_EQ(fn(), "");
}

// Keeps the files in dir from being deleted, or lets them be again: the
// read-only attribute of each on Windows, the directory's write bits on POSIX.
bool lock_entries(const std::string& dir, bool locked)
{
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(dir, ec)) {
        std::string p = e.path().string();
        DWORD a = GetFileAttributesA(p.c_str());
        a = locked ? (a | FILE_ATTRIBUTE_READONLY) : (a & ~DWORD(FILE_ATTRIBUTE_READONLY));
        if (!SetFileAttributesA(p.c_str(), a))
            return false;
    }
    return !ec;
}
#else
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

bool lock_entries(const std::string& dir, bool locked)
{
    return ::chmod(dir.c_str(), locked ? 0555 : 0755) == 0;
}
#endif

} // namespace

// -- File probes -------------------------------------------------------------------

TEST_F(FileOps, FileKindIsZeroForAMissingPath)
{
    EXPECT_EQ(file_ops::file_kind(tok(at("missing"))), 0);
}

TEST_F(FileOps, FileKindIsOneForAFile)
{
    file("a.txt");
    EXPECT_EQ(file_ops::file_kind(tok(at("a.txt"))), 1);
}

TEST_F(FileOps, FileKindIsTwoForADirectory)
{
    dir("sub");
    EXPECT_EQ(file_ops::file_kind(tok(at("sub"))), 2);
}

TEST_F(FileOps, FileKindDropsATrailingSeparator)
{
    file("a.txt");
    EXPECT_EQ(file_ops::file_kind(tok(at("a.txt") + "/")), 1);
}

TEST_F(FileOps, FileKindIsTwoForADevice)
{
#if defined(_WIN32)
    if (velk::testing::under_wine())
        GTEST_SKIP() << "wine's _stat64 gives no status for the device NUL";
#endif
    EXPECT_EQ(file_ops::file_kind(null_device), 2);
}

TEST_F(FileOps, IsRegularHoldsForAFile)
{
    file("a.txt");
    EXPECT_TRUE(file_ops::is_regular(tok(at("a.txt"))));
}

TEST_F(FileOps, IsRegularFailsForADirectory)
{
    dir("sub");
    EXPECT_FALSE(file_ops::is_regular(tok(at("sub"))));
}

TEST_F(FileOps, IsRegularFailsForAMissingPath)
{
    EXPECT_FALSE(file_ops::is_regular(tok(at("missing"))));
}

TEST_F(FileOps, IsRegularFailsForADevice)
{
    EXPECT_FALSE(file_ops::is_regular(null_device));
}

TEST_F(FileOps, IsDirectoryHoldsForADirectory)
{
    dir("sub");
    EXPECT_TRUE(file_ops::is_directory(tok(at("sub"))));
}

TEST_F(FileOps, IsDirectoryDropsATrailingSeparator)
{
    dir("sub");
    EXPECT_TRUE(file_ops::is_directory(tok(at("sub") + "\\")));
}

TEST_F(FileOps, IsDirectoryFailsForAFile)
{
    file("a.txt");
    EXPECT_FALSE(file_ops::is_directory(tok(at("a.txt"))));
}

TEST_F(FileOps, IsDirectoryHoldsForTheRootSlash)
{
    EXPECT_TRUE(file_ops::is_directory("/"));
}

TEST_F(FileOps, IsDirectoryProbesABareDriveWithItsSeparator)
{
    dir("C:");
    cwd_guard here(tmp.path().string());
    EXPECT_TRUE(file_ops::is_directory("C:"));
}

TEST_F(FileOps, StatGivesTheSize)
{
    file("a.txt", "a.txt");
    velk::os::stat_record st;
    ASSERT_TRUE(file_ops::stat(tok(at("a.txt")), st));
    EXPECT_EQ(static_cast<uintmax_t>(st.st_size), fs::file_size(at("a.txt")));
}

TEST_F(FileOps, StatFailsForAMissingPath)
{
    velk::os::stat_record st;
    EXPECT_FALSE(file_ops::stat(tok(at("missing")), st));
}

TEST_F(FileOps, ChdirMakesTheCurrentDirectory)
{
    dir("sub");
    cwd_guard here(tmp.path().string());
    ASSERT_EQ(file_ops::chdir(tok(at("sub") + "/")), 0);
    EXPECT_EQ(fs::current_path(), fs::canonical(at("sub")));
}

TEST_F(FileOps, ChdirFailsForAMissingPath)
{
    cwd_guard here(tmp.path().string());
    EXPECT_EQ(file_ops::chdir(tok(at("missing"))), -1);
}

// -- mkdir ---------------------------------------------------------------------------

TEST_F(FileOps, MkdirOfABareDriveSucceedsWithoutASystemCall)
{
    cwd_guard here(tmp.path().string());
    EXPECT_EQ(file_ops::mkdir("C:"), opcd());
#if !defined(_WIN32) // where "C:" is a drive, no file of that name can be
    EXPECT_FALSE(exists(at("C:"))) << "a directory named C: was made";
#endif
}

TEST_F(FileOps, MkdirOfABareDriveWithASeparatorSucceedsToo)
{
    cwd_guard here(tmp.path().string());
    EXPECT_EQ(file_ops::mkdir("D:/"), opcd());
    EXPECT_FALSE(exists(at("D:")));
}

TEST_F(FileOps, MkdirMakesADirectory)
{
    EXPECT_EQ(file_ops::mkdir(tok(at("new"))), opcd());
    EXPECT_TRUE(is_dir(at("new")));
}

TEST_F(FileOps, MkdirDropsATrailingSeparator)
{
    EXPECT_EQ(file_ops::mkdir(tok(at("new/"))), opcd());
    EXPECT_TRUE(is_dir(at("new")));
}

TEST_F(FileOps, MkdirGivesItsDirectoriesMode750)
{
    SKIP_ON_WINDOWS("Windows has no mode bits: a new directory takes its parent's access list");
#if !defined(_WIN32)
    ASSERT_EQ(file_ops::mkdir(tok(at("new"))), opcd());
    mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(stat_of(at("new")).st_mode & 0777, 0750u & ~mask);
#endif
}

TEST_F(FileOps, MkdirOnAnExistingDirectorySucceeds)
{
    dir("there");
    EXPECT_EQ(file_ops::mkdir(tok(at("there"))), opcd());
}

TEST_F(FileOps, MkdirOnAnExistingFileSucceeds)
{
    file("plain", "keep");
    EXPECT_EQ(file_ops::mkdir(tok(at("plain"))), opcd());
    EXPECT_EQ(read_file(at("plain")), "keep");
}

TEST_F(FileOps, MkdirWithAMissingParentFails)
{
    EXPECT_EQ(file_ops::mkdir(tok(at("no/such"))), ers::failed);
    EXPECT_FALSE(exists(at("no")));
}

TEST_F(FileOps, MkdirBelowARegularFileFails)
{
    file("plain");
    EXPECT_EQ(file_ops::mkdir(tok(at("plain/sub"))), ers::failed);
}

TEST_F(FileOps, MkdirOfAnEmptyPathFails)
{
    EXPECT_EQ(file_ops::mkdir(""), ers::failed);
}

// -- mkdir_tree ---------------------------------------------------------------------

TEST_F(FileOps, MkdirTreeMakesEveryLevel)
{
    EXPECT_EQ(file_ops::mkdir_tree(tok(at("a/b/c")), false), opcd());
    EXPECT_TRUE(is_dir(at("a/b/c")));
}

TEST_F(FileOps, MkdirTreeWithSkipLastLeavesTheFileNameOut)
{
    EXPECT_EQ(file_ops::mkdir_tree(tok(at("a/b/file.txt")), true), opcd());
    EXPECT_TRUE(is_dir(at("a/b")));
    EXPECT_FALSE(exists(at("a/b/file.txt")));
}

TEST_F(FileOps, MkdirTreeWithSkipLastMakesALevelMarkedByATrailingSeparator)
{
    EXPECT_EQ(file_ops::mkdir_tree(tok(at("a/b/c//")), true), opcd());
    EXPECT_TRUE(is_dir(at("a/b/c")));
}

TEST_F(FileOps, MkdirTreeTakesBothSeparatorsAndRunsOfThem)
{
    EXPECT_EQ(file_ops::mkdir_tree(tok(tmp.path().string() + "\\x//y\\z"), false), opcd());
    EXPECT_TRUE(is_dir(at("x/y/z")));
}

TEST_F(FileOps, MkdirTreeOnExistingLevelsSucceeds)
{
    dir("a/b");
    EXPECT_EQ(file_ops::mkdir_tree(tok(at("a/b/c")), false), opcd());
    EXPECT_TRUE(is_dir(at("a/b/c")));
}

TEST_F(FileOps, MkdirTreeReturnsTheFirstFailureAtOnce)
{
    file("plain");
    EXPECT_EQ(file_ops::mkdir_tree(tok(at("plain/a/b")), false), ers::failed);
    EXPECT_TRUE(is_file(at("plain")));
}

// -- delete_file and delete_directory ---------------------------------------------------

TEST_F(FileOps, DeleteFileRemovesAFile)
{
    file("f");
    EXPECT_EQ(file_ops::delete_file(tok(at("f"))), opcd());
    EXPECT_FALSE(exists(at("f")));
}

TEST_F(FileOps, DeleteFileOfAMissingFileGivesIoError)
{
    EXPECT_EQ(file_ops::delete_file(tok(at("missing"))), ers::io_error);
}

TEST_F(FileOps, DeleteFileNeverRemovesADirectory)
{
    dir("empty");
    EXPECT_EQ(file_ops::delete_file(tok(at("empty"))), ers::io_error);
    EXPECT_TRUE(is_dir(at("empty")));
}

TEST_F(FileOps, DeleteDirectoryRemovesAnEmptyDirectory)
{
    dir("empty");
    EXPECT_EQ(file_ops::delete_directory(tok(at("empty/")), false), opcd());
    EXPECT_FALSE(exists(at("empty")));
}

TEST_F(FileOps, DeleteDirectoryWithoutRecursionLeavesAFullDirectory)
{
    file("full/f");
    EXPECT_EQ(file_ops::delete_directory(tok(at("full")), false), ers::io_error);
    EXPECT_TRUE(is_file(at("full/f")));
}

TEST_F(FileOps, DeleteDirectoryWithRecursionRemovesTheTree)
{
    sample_tree("a");
    EXPECT_EQ(file_ops::delete_directory(tok(at("a")), true), opcd());
    EXPECT_FALSE(exists(at("a")));
}

TEST_F(FileOps, DeleteDirectoryOfAMissingDirectoryGivesIoError)
{
    EXPECT_EQ(file_ops::delete_directory(tok(at("missing")), true), ers::io_error);
}

TEST_F(FileOps, DeleteDirectoryRemovesLinksWithoutFollowingThem)
{
    file("outside/keep.txt", "kept");
    file("outside/deeper/keep2.txt", "kept");
    file("a/f");
    MAKE_LINK_OR_SKIP(create_directory_symlink, at("outside"), at("a/link"));
    EXPECT_EQ(file_ops::delete_directory(tok(at("a")), true), opcd());
    EXPECT_FALSE(exists(at("a")));
    EXPECT_EQ(read_file(at("outside/keep.txt")), "kept");
    EXPECT_EQ(read_file(at("outside/deeper/keep2.txt")), "kept");
}

TEST_F(FileOps, DeleteDirectoryOfATreeWithAnUndeletableFileLeavesTheTopAndGivesIoError)
{
    std::string root = dir("work");
    run_unprivileged(root, [root]() -> std::string {
        std::string top = root + "/tree";
        fs::create_directories(top + "/locked");
        write_file(top + "/free.txt", "free");
        write_file(top + "/locked/stuck.txt", "stuck");
        if (!lock_entries(top + "/locked", true))
            return "locking failed";
        opcd e = file_ops::delete_directory(token(top.c_str()), true);
        std::string why;
        if (!(e == ers::io_error))
            why += "result was not IOerr; ";
        if (!fs::is_directory(top))
            why += "the top went; ";
        if (!fs::exists(top + "/locked/stuck.txt"))
            why += "the locked file went; ";
        if (fs::exists(top + "/free.txt"))
            why += "the free file stayed; ";
        lock_entries(top + "/locked", false);
        return why;
    });
}

// -- delete_files ----------------------------------------------------------------------

TEST_F(FileOps, DeleteFilesRemovesTheMatchingFilesOnly)
{
    file("d/a.tmp");
    file("d/b.TMP");
    file("d/c.txt");
    EXPECT_EQ(file_ops::delete_files(tok(at("d/*.tmp"))), opcd());
    EXPECT_FALSE(exists(at("d/a.tmp")));
    EXPECT_FALSE(exists(at("d/b.TMP")));
    EXPECT_TRUE(exists(at("d/c.txt")));
}

TEST_F(FileOps, DeleteFilesReportsTheDirectoriesItCouldNotRemove)
{
    file("d/a.txt");
    dir("d/sub");
    EXPECT_EQ(file_ops::delete_files(tok(at("d/*"))), ers::io_error);
    EXPECT_FALSE(exists(at("d/a.txt")));
    EXPECT_TRUE(is_dir(at("d/sub")));
    EXPECT_TRUE(is_dir(at("d")));
}

TEST_F(FileOps, DeleteFilesInAMissingDirectoryFails)
{
    EXPECT_EQ(file_ops::delete_files(tok(at("missing/*.txt"))), ers::failed);
}

TEST_F(FileOps, DeleteFilesWithoutADirectoryPartFails)
{
    cwd_guard here(tmp.path().string());
    file("a.txt");
    EXPECT_EQ(file_ops::delete_files("*.txt"), ers::failed);
    EXPECT_TRUE(exists(at("a.txt")));
}

// -- copy_file ----------------------------------------------------------------------------

TEST_F(FileOps, CopyFileCopiesTheContent)
{
    std::string data(100000, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = char(i * 13);
    file("src.bin", data);
    EXPECT_EQ(file_ops::copy_file(tok(at("src.bin")), tok(at("dst.bin"))), opcd());
    EXPECT_EQ(read_file(at("dst.bin")), data);
    EXPECT_EQ(read_file(at("src.bin")), data);
}

TEST_F(FileOps, CopyFileOfAnEmptyFileMakesAnEmptyFile)
{
    file("empty", "");
    EXPECT_EQ(file_ops::copy_file(tok(at("empty")), tok(at("copy"))), opcd());
    EXPECT_TRUE(is_file(at("copy")));
    EXPECT_EQ(read_file(at("copy")), "");
}

TEST_F(FileOps, CopyFileReplacesALongerDestination)
{
    file("src", "short");
    file("dst", "a much longer old content");
    EXPECT_EQ(file_ops::copy_file(tok(at("src")), tok(at("dst"))), opcd());
    EXPECT_EQ(read_file(at("dst")), "short");
}

TEST_F(FileOps, CopyFileOntoItselfDoesNothing)
{
    std::string p = file("same", "content");
    fs::file_time_type old_time = fs::last_write_time(p);
    EXPECT_EQ(file_ops::copy_file(tok(p), tok(p)), opcd());
    EXPECT_EQ(read_file(p), "content");
    EXPECT_EQ(fs::last_write_time(p), old_time);
}

TEST_F(FileOps, CopyFileOntoAnotherSpellingOfItselfKeepsTheContent)
{
    std::string p = file("d/same", "content");
    EXPECT_EQ(file_ops::copy_file(tok(p), tok(at("d/./same"))), opcd());
    EXPECT_EQ(read_file(p), "content");
}

TEST_F(FileOps, CopyFileOfAMissingSourceGivesIoErrorAndMakesNothing)
{
    EXPECT_EQ(file_ops::copy_file(tok(at("missing")), tok(at("dst"))), ers::io_error);
    EXPECT_FALSE(exists(at("dst")));
}

TEST_F(FileOps, CopyFileOfADirectoryGivesIoError)
{
    dir("d");
    EXPECT_EQ(file_ops::copy_file(tok(at("d")), tok(at("dst"))), ers::io_error);
    EXPECT_FALSE(exists(at("dst")));
}

TEST_F(FileOps, CopyFileBelowARegularFileGivesIoError)
{
    file("src", "data");
    file("plain");
    EXPECT_EQ(file_ops::copy_file(tok(at("src")), tok(at("plain/dst"))), ers::io_error);
}

TEST_F(FileOps, CopyFileToAPlaceThatRefusesFilesGivesIoError)
{
    SKIP_ON_WINDOWS("Windows has no /proc, whose entries refuse files to every user; the path below a "
                    "regular file stands for it");
#if !defined(_WIN32)
    if (::access("/proc/self/status", F_OK) != 0)
        GTEST_SKIP() << "no /proc on this system";
#endif
    file("src", "data");
    EXPECT_EQ(file_ops::copy_file(tok(at("src")), "/proc/velk_copy_target"), ers::io_error);
    EXPECT_FALSE(exists("/proc/velk_copy_target"));
}

TEST_F(FileOps, CopyFileWithAShortWriteGivesWriteFailedAndLeavesThePartialCopy)
{
    SKIP_WITHOUT_FILE_SIZE_LIMIT();
    file("src", std::string(300, 's'));
    opcd e;
    {
        file_size_limit limit(100);
        ASSERT_TRUE(limit.ok());
        e = file_ops::copy_file(tok(at("src")), tok(at("dst")));
    }
    EXPECT_EQ(e, ers::io_error);
    EXPECT_STREQ(e.info(), "write operation failed");
    EXPECT_EQ(read_file(at("dst")), std::string(100, 's'));
}

// -- move_file ------------------------------------------------------------------------------

TEST_F(FileOps, MoveFileRenamesAFile)
{
    file("a", "moved");
    EXPECT_EQ(file_ops::move_file(tok(at("a")), tok(at("b"))), opcd());
    EXPECT_FALSE(exists(at("a")));
    EXPECT_EQ(read_file(at("b")), "moved");
}

TEST_F(FileOps, MoveFileMovesADirectory)
{
    sample_tree("a");
    EXPECT_EQ(file_ops::move_file(tok(at("a")), tok(at("b"))), opcd());
    EXPECT_FALSE(exists(at("a")));
    EXPECT_EQ(read_file(at("b/sub/3.txt")), "three");
}

TEST_F(FileOps, MoveFileOfAMissingSourceGivesIoError)
{
    EXPECT_EQ(file_ops::move_file(tok(at("missing")), tok(at("b"))), ers::io_error);
    EXPECT_FALSE(exists(at("b")));
}

TEST_F(FileOps, MoveFileNeverReplacesAnExistingDestination)
{
    file("a", "new");
    file("b", "old");
    EXPECT_EQ(file_ops::move_file(tok(at("a")), tok(at("b"))), ers::io_error);
    EXPECT_EQ(read_file(at("a")), "new");
    EXPECT_EQ(read_file(at("b")), "old");
}

TEST_F(FileOps, MoveFileToAPlaceThatRefusesFilesGivesIoErrorAndKeepsTheSource)
{
    SKIP_ON_WINDOWS("Windows has no /proc, whose entries refuse files to every user; the path below a "
                    "regular file stands for it");
#if !defined(_WIN32)
    if (::access("/proc/self/status", F_OK) != 0)
        GTEST_SKIP() << "no /proc on this system";
#endif
    file("a", "stay");
    EXPECT_EQ(file_ops::move_file(tok(at("a")), "/proc/velk_move_target"), ers::io_error);
    EXPECT_EQ(read_file(at("a")), "stay");
}

TEST_F(FileOps, MoveFileBelowARegularFileGivesIoErrorAndKeepsTheSource)
{
    file("a", "stay");
    file("plain");
    EXPECT_EQ(file_ops::move_file(tok(at("a")), tok(at("plain/a"))), ers::io_error);
    EXPECT_EQ(read_file(at("a")), "stay");
}

TEST_F(FileOps, MoveFileAcrossFileSystemsMovesContentPermissionAndTimes)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    std::string src = file("a", std::string(50000, 'm'));
#if !defined(_WIN32)
    ::chmod(src.c_str(), 0640); // Windows has no mode bits to carry over
#endif
    ASSERT_EQ(file_ops::set_file_times(tok(src), 1000000000, 1200000000), opcd());
    std::string dst = other / "a";
    EXPECT_EQ(file_ops::move_file(tok(src), tok(dst)), opcd());
    EXPECT_FALSE(exists(src));
    EXPECT_EQ(read_file(dst), std::string(50000, 'm'));
#if !defined(_WIN32)
    EXPECT_EQ(stat_of(dst).st_mode & 07777, 0640u);
#endif
    EXPECT_EQ(mtime_of(dst), 1200000000);
}

TEST_F(FileOps, MoveFileAcrossFileSystemsNeverReplacesAnExistingDestination)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    std::string src = file("a", "new");
    write_file(other / "a", "old");
    EXPECT_EQ(file_ops::move_file(tok(src), tok(other / "a")), ers::io_error);
    EXPECT_EQ(read_file(src), "new");
    EXPECT_EQ(read_file(other / "a"), "old");
}

TEST_F(FileOps, MoveFileAcrossFileSystemsThatFailsToCopyLeavesTheSourceAndNoCopy)
{
    SKIP_WITHOUT_FILE_SIZE_LIMIT();
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    std::string src = file("a", std::string(100000, 'q'));
    opcd e;
    {
        file_size_limit limit(1000);
        ASSERT_TRUE(limit.ok());
        e = file_ops::move_file(tok(src), tok(other / "a"));
    }
    EXPECT_EQ(e, ers::io_error);
    EXPECT_EQ(read_file(src), std::string(100000, 'q'));
    EXPECT_FALSE(exists(other / "a"));
}

TEST_F(FileOps, MoveFileAcrossFileSystemsBelowARegularFileKeepsTheSource)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    std::string src = file("a", "stay");
    write_file(other / "plain", "");
    EXPECT_EQ(file_ops::move_file(tok(src), tok(other / "plain/a")), ers::io_error);
    EXPECT_EQ(read_file(src), "stay");
}

TEST_F(FileOps, MoveFileOfADirectoryAcrossFileSystemsGivesIoErrorAndKeepsIt)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    sample_tree("a");
    EXPECT_EQ(file_ops::move_file(tok(at("a")), tok(other / "a")), ers::io_error);
    EXPECT_EQ(read_file(at("a/sub/3.txt")), "three");
    EXPECT_FALSE(exists(other / "a"));
}

TEST_F(FileOps, MoveFileMovesALinkAcrossFileSystemsAsALink)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    MAKE_LINK_OR_SKIP(create_symlink, "target/name", at("link"));
    EXPECT_EQ(file_ops::move_file(tok(at("link")), tok(other / "link")), opcd());
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

TEST_F(FileOps, TransferTreeMakesTheTargetACopyOfTheSourceDirectory)
{
    sample_tree("a");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a")), tok(at("b")), false), opcd());
    EXPECT_EQ(tree_of(at("b")), sample_entries);
    EXPECT_EQ(read_file(at("b/sub/deep/4.bin")), std::string(20000, '4'));
    EXPECT_EQ(tree_of(at("a")), sample_entries);
}

TEST_F(FileOps, TransferTreeFromASlashIntoASlashCopiesTheContentsBesideWhatIsThere)
{
    sample_tree("a");
    file("b/old.txt");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a/")), tok(at("b/")), false), opcd());
    std::set<std::string> want = sample_entries;
    want.insert("old.txt");
    EXPECT_EQ(tree_of(at("b")), want);
}

TEST_F(FileOps, TransferTreeFromASlashCopiesTheContentsIntoAPlainTarget)
{
    sample_tree("a");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a/")), tok(at("b")), false), opcd());
    EXPECT_EQ(tree_of(at("b")), sample_entries);
}

TEST_F(FileOps, TransferTreeIntoASlashMakesTheSourceDirectoryInsideTheTarget)
{
    sample_tree("a");
    dir("b");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a")), tok(at("b/")), false), opcd());
    EXPECT_EQ(tree_of(at("b")), prefixed("a", sample_entries));
}

TEST_F(FileOps, TransferTreeMovingFromASlashMovesTheContentsAndKeepsTheSource)
{
    sample_tree("a");
    dir("b");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a/")), tok(at("b/")), true), opcd());
    EXPECT_EQ(tree_of(at("b")), sample_entries);
    EXPECT_TRUE(is_dir(at("a")));
    EXPECT_TRUE(tree_of(at("a")).empty());
}

TEST_F(FileOps, TransferTreeMovingIntoASlashMovesTheWholeSourceDirectory)
{
    sample_tree("a");
    dir("b");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a")), tok(at("b/")), true), opcd());
    EXPECT_EQ(tree_of(at("b")), prefixed("a", sample_entries));
    EXPECT_FALSE(exists(at("a")));
}

TEST_F(FileOps, TransferTreeCopiesAFileIntoADirectory)
{
    file("d/f.txt", "file");
    dir("b");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("d/f.txt")), tok(at("b/")), false), opcd());
    EXPECT_EQ(read_file(at("b/f.txt")), "file");
    EXPECT_TRUE(is_file(at("d/f.txt")));
}

TEST_F(FileOps, TransferTreeMovesAFileToANewName)
{
    file("f.txt", "file");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("f.txt")), tok(at("g.txt")), true), opcd());
    EXPECT_EQ(read_file(at("g.txt")), "file");
    EXPECT_FALSE(exists(at("f.txt")));
}

TEST_F(FileOps, TransferTreeOfAMissingSourceGivesIoErrorAndMakesNothing)
{
    EXPECT_EQ(file_ops::transfer_tree(tok(at("missing")), tok(at("b")), false), ers::io_error);
    EXPECT_FALSE(exists(at("b")));
}

TEST_F(FileOps, TransferTreeIntoItselfIsRefusedAndMakesNothing)
{
    sample_tree("a");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a")), tok(at("a/")), false), ers::invalid_params);
    EXPECT_EQ(tree_of(at("a")), sample_entries);
}

TEST_F(FileOps, TransferTreeBelowARegularFileFailsAtOnce)
{
    sample_tree("a");
    file("plain");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a")), tok(at("plain/b")), false), ers::failed);
    EXPECT_EQ(tree_of(at("a")), sample_entries);
}

TEST_F(FileOps, TransferTreeKeepsTheFirstFailureAndCopiesTheRest)
{
    sample_tree("a");
    dir("b/1.txt"); // a directory where a file must go
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a")), tok(at("b")), false), ers::io_error);
    EXPECT_EQ(read_file(at("b/2.log")), "two");
    EXPECT_EQ(read_file(at("b/sub/deep/4.bin")), std::string(20000, '4'));
}

TEST_F(FileOps, TransferTreeMovingWithAFailureKeepsTheSourceTop)
{
    sample_tree("a");
    file("b/2.log", "in the way");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a")), tok(at("b")), true), ers::io_error);
    EXPECT_EQ(read_file(at("a/2.log")), "two");
    EXPECT_EQ(read_file(at("b/2.log")), "in the way");
    EXPECT_EQ(read_file(at("b/sub/3.txt")), "three");
}

TEST_F(FileOps, TransferTreeCopiesAcrossFileSystems)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    sample_tree("a");
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a")), tok(other / "b"), false), opcd());
    EXPECT_EQ(tree_of(other / "b"), sample_entries);
    EXPECT_EQ(read_file(other / "b/sub/deep/4.bin"), std::string(20000, '4'));
}

TEST_F(FileOps, TransferTreeMovesAcrossFileSystems)
{
    other_fs other(tmp.path());
    REQUIRE_OTHER_FS(other);
    sample_tree("a");
    ASSERT_TRUE(fs::create_directory(other / "b"));
    EXPECT_EQ(file_ops::transfer_tree(tok(at("a")), tok(other / "b/"), true), opcd());
    EXPECT_EQ(tree_of(other / "b"), prefixed("a", sample_entries));
    EXPECT_FALSE(exists(at("a")));
}

// -- truncate, set_file_times, file_size ---------------------------------------------------------

TEST_F(FileOps, TruncateCutsAFile)
{
    file("f", "0123456789");
    EXPECT_EQ(file_ops::truncate(tok(at("f")), 4), opcd());
    EXPECT_EQ(read_file(at("f")), "0123");
}

TEST_F(FileOps, TruncateExtendsAFileWithZeros)
{
    file("f", "ab");
    EXPECT_EQ(file_ops::truncate(tok(at("f")), 5), opcd());
    EXPECT_EQ(read_file(at("f")), std::string("ab\0\0\0", 5));
}

TEST_F(FileOps, TruncateCreatesAMissingFile)
{
    EXPECT_EQ(file_ops::truncate(tok(at("new")), 3), opcd());
    EXPECT_EQ(read_file(at("new")), std::string(3, '\0'));
}

TEST_F(FileOps, TruncateBelowARegularFileGivesIoError)
{
    file("plain");
    EXPECT_EQ(file_ops::truncate(tok(at("plain/f")), 0), ers::io_error);
}

TEST_F(FileOps, TruncateOfADirectoryGivesIoError)
{
    dir("d");
    EXPECT_EQ(file_ops::truncate(tok(at("d")), 0), ers::io_error);
}

TEST_F(FileOps, TruncateToAnImpossibleSizeFailsAfterTheOpen)
{
    file("f", "keep");
    EXPECT_EQ(file_ops::truncate(tok(at("f")), UINT64_MAX / 2 + 1), ers::failed);
    EXPECT_EQ(read_file(at("f")), "keep");
}

TEST_F(FileOps, SetFileTimesStoresAnAccessOfZeroAs1970Exactly)
{
    file("f");
    EXPECT_EQ(file_ops::set_file_times(tok(at("f")), 0, 1500000000), opcd());
    stat_type st = stat_of(at("f"));
    EXPECT_EQ(st.st_atime, 0);
#if !defined(_WIN32)
    EXPECT_EQ(st.st_atim.tv_nsec, 0); // the runtime's stat of Windows has seconds only
#endif
}

TEST_F(FileOps, SetFileTimesStoresTheModificationTime)
{
    file("f");
    EXPECT_EQ(file_ops::set_file_times(tok(at("f")), 1000, 1500000000), opcd());
    stat_type st = stat_of(at("f"));
    EXPECT_EQ(st.st_mtime, 1500000000);
#if !defined(_WIN32)
    EXPECT_EQ(st.st_mtim.tv_nsec, 0); // the runtime's stat of Windows has seconds only
#endif
    EXPECT_EQ(st.st_atime, 1000);
}

TEST_F(FileOps, SetFileTimesOfAMissingFileGivesIoErrorAndMakesNothing)
{
    EXPECT_EQ(file_ops::set_file_times(tok(at("missing")), 0, 0), ers::io_error);
    EXPECT_FALSE(exists(at("missing")));
}

TEST_F(FileOps, SetFileTimesOfADirectoryGivesIoError)
{
    dir("d");
    EXPECT_EQ(file_ops::set_file_times(tok(at("d")), 0, 0), ers::io_error);
}

TEST_F(FileOps, FileSizeOfARegularFileIsItsLength)
{
    file("f", std::string(12345, 'z'));
    EXPECT_EQ(file_ops::file_size(tok(at("f"))), 12345u);
}

TEST_F(FileOps, FileSizeOfADirectoryOrAMissingFileIsZero)
{
    dir("d");
    EXPECT_EQ(file_ops::file_size(tok(at("d"))), 0u);
    EXPECT_EQ(file_ops::file_size(tok(at("missing"))), 0u);
}

// -- Writable ------------------------------------------------------------------------------------

TEST_F(FileOps, IsWritableOfAnOrdinaryFileIsTrue)
{
    file("f");
    EXPECT_TRUE(file_ops::is_writable(tok(at("f"))));
}

TEST_F(FileOps, IsWritableDropsATrailingSeparator)
{
    dir("d");
    EXPECT_TRUE(file_ops::is_writable(tok(at("d/"))));
}

TEST_F(FileOps, IsWritableOfAMissingPathIsFalse)
{
    file("plain");
    EXPECT_FALSE(file_ops::is_writable(tok(at("missing"))));
    EXPECT_FALSE(file_ops::is_writable(tok(at("plain/below"))));
}

TEST_F(FileOps, SetWritableFalseClearsEveryWriteBitAndKeepsTheRest)
{
    SKIP_ON_WINDOWS("Windows keeps one read-only attribute, not write bits of owner, group and others");
#if !defined(_WIN32)
    std::string p = file("f");
    ::chmod(p.c_str(), 0764);
    EXPECT_TRUE(file_ops::set_writable(tok(p), false));
    EXPECT_EQ(stat_of(p).st_mode & 07777, 0544u);
#endif
}

TEST_F(FileOps, SetWritableTrueGivesTheOwnerWritePermission)
{
    SKIP_ON_WINDOWS("Windows keeps one read-only attribute, not write bits of owner, group and others");
#if !defined(_WIN32)
    std::string p = file("f");
    ::chmod(p.c_str(), 0444);
    EXPECT_TRUE(file_ops::set_writable(tok(p), true));
    EXPECT_EQ(stat_of(p).st_mode & 07777, 0644u);
#endif
}

TEST_F(FileOps, SetWritableOfAMissingPathIsFalse)
{
    EXPECT_FALSE(file_ops::set_writable(tok(at("missing")), true));
}

TEST_F(FileOps, SetWritableSwitchesIsWritableForAnOrdinaryUser)
{
    std::string root = dir("work");
    run_unprivileged(root, [root]() -> std::string {
        std::string p = root + "/f";
        write_file(p, "x");
        if (!file_ops::set_writable(token(p.c_str()), false))
            return "set_writable(false) failed";
        if (file_ops::is_writable(token(p.c_str())))
            return "still writable";
        if (!file_ops::set_writable(token(p.c_str()), true))
            return "set_writable(true) failed";
        if (!file_ops::is_writable(token(p.c_str())))
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
    int r = file_ops::list_file_paths(tok(root), token(extension), mode, [&](const charstr& p, int kind) {
        std::string s = velk::testing::slash_form(str(p)); // one form for every system
        calls.push_back(std::to_string(kind) + ":" + s.substr(std::min(s.size(), root.size() + 1)));
    });
    if (result)
        *result = r;
    return calls;
}

std::set<std::string> as_set(const std::vector<std::string>& v) { return {v.begin(), v.end()}; }

} // namespace

TEST_F(FileOps, ListFilePathsWithADottedExtensionIgnoresCase)
{
    file("d/A.TXT");
    file("d/b.log");
    EXPECT_EQ(as_set(walk(at("d"), ".txt", 0)), (std::set<std::string>{"0:A.TXT"}));
}

TEST_F(FileOps, ListFilePathsWithAStarMatchesEveryFile)
{
    file("d/a.txt");
    file("d/noext");
    file("d/.hidden");
    EXPECT_EQ(as_set(walk(at("d"), "*", 0)), (std::set<std::string>{"0:a.txt", "0:noext", "0:.hidden"}));
}

TEST_F(FileOps, ListFilePathsWithAnUndottedExtensionWantsADotBeforeIt)
{
    file("d/a.txt");
    file("d/atxt");
    file("d/txt");
    EXPECT_EQ(as_set(walk(at("d"), "txt", 0)), (std::set<std::string>{"0:a.txt"}));
}

TEST_F(FileOps, ListFilePathsWithAnEmptyExtensionMatchesEveryFile)
{
    file("d/a.txt");
    file("d/b");
    EXPECT_EQ(as_set(walk(at("d"), "", 0)), (std::set<std::string>{"0:a.txt", "0:b"}));
}

TEST_F(FileOps, ListFilePathsWithoutModeBitsNeverEntersSubdirectories)
{
    file("d/a.txt");
    file("d/sub/b.txt");
    EXPECT_EQ(as_set(walk(at("d"), "*", 0)), (std::set<std::string>{"0:a.txt"}));
}

TEST_F(FileOps, ListFilePathsWithDirsAfterReportsEachDirectoryAfterItsContents)
{
    file("d/sub/b.txt");
    EXPECT_EQ(walk(at("d"), "*", 1), (std::vector<std::string>{"0:sub/b.txt", "1:sub"}));
}

TEST_F(FileOps, ListFilePathsWithDirsBeforeReportsEachDirectoryBeforeItsContents)
{
    file("d/sub/b.txt");
    EXPECT_EQ(walk(at("d"), "*", 2), (std::vector<std::string>{"2:sub", "0:sub/b.txt"}));
}

TEST_F(FileOps, ListFilePathsWithBothModeBitsReportsEachDirectoryBeforeAndAfter)
{
    file("d/sub/deep/c.txt");
    EXPECT_EQ(walk(at("d"), ".txt", 3),
              (std::vector<std::string>{"2:sub", "2:sub/deep", "0:sub/deep/c.txt", "1:sub/deep", "1:sub"}));
}

TEST_F(FileOps, ListFilePathsOfAMissingDirectoryGivesZeroAndCallsNothing)
{
    int r = -1;
    EXPECT_TRUE(walk(at("missing"), "*", 3, &r).empty());
    EXPECT_EQ(r, 0);
}

TEST_F(FileOps, ListFilePathsGivesOneForADirectoryItWalked)
{
    dir("d");
    int r = -1;
    walk(at("d"), "*", 0, &r);
    EXPECT_EQ(r, 1);
}

TEST_F(FileOps, ListFilePathsListsALinkToADirectoryAsAFile)
{
    file("outside/x.txt");
    dir("d");
    MAKE_LINK_OR_SKIP(create_directory_symlink, at("outside"), at("d/link"));
    EXPECT_EQ(walk(at("d"), "*", 3), (std::vector<std::string>{"0:link"}));
}

// -- unique_temp_dir -----------------------------------------------------------------------------------

TEST_F(FileOps, UniqueTempDirMakesANewDirectoryNamedByPrefixAndTime)
{
    env_guard env(tmp_variable, tmp.path().string());
    int64_t before = time(nullptr);
    charstr made = file_ops::unique_temp_dir("job");
    int64_t after = time(nullptr);
    std::string s = str(made);
    std::string head = tmp.path().string() + char(fs::path::preferred_separator) + "job";
    ASSERT_EQ(s.substr(0, head.size()), head);
    int64_t t = std::stoll(s.substr(head.size()));
    EXPECT_GE(t, before);
    EXPECT_LE(t, after);
    EXPECT_TRUE(is_dir(s));
}

TEST_F(FileOps, UniqueTempDirAfterATakenNameGivesARelativeName)
{
    std::string elsewhere = dir("cwd");
    env_guard env(tmp_variable, tmp.path().string() + "/");
    int64_t now = time(nullptr);
    for (int64_t t = now - 2; t < now + 12; ++t)
        dir("p" + std::to_string(t));
    cwd_guard here(elsewhere);
    charstr made = file_ops::unique_temp_dir("p");
    std::string s = str(made);
    ASSERT_FALSE(s.empty());
    EXPECT_FALSE(fs::path(s).is_absolute()) << s;
    EXPECT_TRUE(is_dir(elsewhere + "/" + s)) << s;
}

TEST_F(FileOps, UniqueTempDirGivesEmptyWhenEveryAttemptFails)
{
    SKIP_ON_WINDOWS("Windows refuses to remove a process's current directory");
#if !defined(_WIN32)
    std::string gone = dir("gone");
    env_guard env(tmp_variable, tmp.path().string());
    int64_t now = time(nullptr);
    for (int64_t t = now - 2; t < now + 12; ++t)
        dir("q" + std::to_string(t));
    cwd_guard here(gone);
    ASSERT_EQ(::rmdir(gone.c_str()), 0); // relative names can't be made in a removed directory
    EXPECT_TRUE(file_ops::unique_temp_dir("q").is_empty());
#endif
}
