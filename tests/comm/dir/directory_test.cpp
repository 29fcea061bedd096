// directory: the iterator over a tree that each test makes and removes, the
// file probes, and the system locations. The trees are made and checked with
// the standard library, never with the code under test.
#include "comm/dir/directory.h"

#include "comm/opcd.h"

#include <dlfcn.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>

namespace fs = std::filesystem;
using velk::charstr;
using velk::directory;
using velk::opcd;
using velk::token;
namespace ers = velk::ers;

namespace {

std::string str(const charstr& s) { return std::string(s.c_str(), s.lens()); }
std::string str(const token& t) { return std::string(t.ptr() ? t.ptr() : "", t.lens()); }
token tok(const std::string& s) { return token(s.data(), s.size()); }

// A fresh directory under the system's temporary place, removed with all it
// holds at the end of the test:
//   a.txt  b.TXT  c.log  noext  sub.txt/  sub/d.txt
class TempTree : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string templ = (fs::temp_directory_path() / "velk_dir_test_XXXXXX").string();
        ASSERT_NE(mkdtemp(templ.data()), nullptr);
        root = templ;
        for (const char* name : {"a.txt", "b.TXT", "c.log", "noext"})
            std::ofstream(fs::path(root) / name) << name;
        fs::create_directory(fs::path(root) / "sub.txt");
        fs::create_directory(fs::path(root) / "sub");
        std::ofstream(fs::path(root) / "sub" / "d.txt") << "d";
    }

    void TearDown() override
    {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }

    std::string at(const char* name) const { return root + "/" + name; }

    // Every name that a search of path with filter reports.
    std::set<std::string> names(const std::string& path, const char* filter) const
    {
        std::set<std::string> found;
        directory dir;
        if (dir.open(tok(path), token(filter)))
            return found;
        while (dir.next())
            found.insert(str(dir.current_name()));
        return found;
    }

    std::string root;
};

// Runs a test in another current directory and comes back.
class CwdGuard
{
public:
    CwdGuard() : saved(fs::current_path()) {}
    ~CwdGuard()
    {
        std::error_code ignored;
        fs::current_path(saved, ignored);
    }

private:
    fs::path saved;
};

// Sets or removes an environment variable for the length of a test.
class EnvGuard
{
public:
    explicit EnvGuard(const char* name) : name(name)
    {
        if (const char* v = getenv(name))
            saved = v;
    }
    ~EnvGuard()
    {
        if (saved)
            setenv(name, saved->c_str(), 1);
        else
            unsetenv(name);
    }

private:
    const char* name;
    std::optional<std::string> saved;
};

} // namespace

// -- Edge cases -------------------------------------------------------------------

TEST_F(TempTree, OpenOnDriveSearchesDriveRoot)
{
    CwdGuard cwd;
    fs::create_directory(fs::path(root) / "C:");
    fs::current_path(root);
    directory dir;
    ASSERT_EQ(dir.open("C:", ""), opcd());
    EXPECT_EQ(str(dir.search_pattern()), std::string("C:") + directory::separator + "*.*");
}

TEST_F(TempTree, OpenOnMissingDirectoryFails)
{
    directory dir;
    EXPECT_EQ(dir.open(tok(at("missing")), ""), ers::failed);
}

TEST_F(TempTree, OpenOnMissingDirectoryLeavesIteratorClosed)
{
    directory dir;
    dir.open(tok(at("missing")), "");
    EXPECT_FALSE(dir.is_open());
}

TEST_F(TempTree, FilterTxtStillReportsMatchingDirectories)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), "*.txt"), opcd());
    bool seen = false;
    while (dir.next())
        if (str(dir.current_name()) == "sub.txt")
            seen = dir.is_entry_directory();
    EXPECT_TRUE(seen);
}

// -- Iteration --------------------------------------------------------------------

TEST_F(TempTree, DefaultFilterReportsEveryEntryWithDots)
{
    std::set<std::string> expected{".", "..", "a.txt", "b.TXT", "c.log", "noext", "sub.txt", "sub"};
    EXPECT_EQ(names(root, ""), expected);
}

TEST_F(TempTree, FilterIgnoresCase)
{
    std::set<std::string> expected{"a.txt", "b.TXT", "sub.txt"};
    EXPECT_EQ(names(root, "*.txt"), expected);
}

TEST_F(TempTree, QuestionMarkTakesOneCharacter)
{
    std::set<std::string> expected{"sub"};
    EXPECT_EQ(names(root, "s?b"), expected);
}

TEST_F(TempTree, FilterWithoutMatchReportsNothing)
{
    EXPECT_TRUE(names(root, "*.none").empty());
}

TEST_F(TempTree, NameDotStarTakesTheNameWithoutDot)
{
    std::set<std::string> expected{"noext"};
    EXPECT_EQ(names(root, "noext.*"), expected);
}

TEST_F(TempTree, OpenAloneDoesNotStartTheSearch)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), ""), opcd());
    EXPECT_FALSE(dir.is_open());
}

TEST_F(TempTree, NextStartsTheSearch)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), ""), opcd());
    ASSERT_NE(dir.next(), nullptr);
    EXPECT_TRUE(dir.is_open());
}

TEST_F(TempTree, CurrentPathIsTheDirectoryAndTheName)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), "a.txt"), opcd());
    ASSERT_NE(dir.next(), nullptr);
    EXPECT_EQ(str(dir.current_path()), root + directory::separator + "a.txt");
}

TEST_F(TempTree, TrailingSeparatorOfThePathIsDropped)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root + "/"), ""), opcd());
    EXPECT_EQ(str(dir.search_pattern()), root + "/*.*");
}

TEST_F(TempTree, BackslashesReachTheSystemAsSeparators)
{
    std::set<std::string> expected{"d.txt"};
    EXPECT_EQ(names(root + "\\sub", "*.txt"), expected);
}

TEST_F(TempTree, RootSlashCanBeSearched)
{
    directory dir;
    ASSERT_EQ(dir.open("/", ""), opcd());
    EXPECT_NE(dir.next(), nullptr);
}

TEST_F(TempTree, NextReturnsTheStatusOfTheEntry)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), "a.txt"), opcd());
    const velk::os::stat_record* st = dir.next();
    ASSERT_NE(st, nullptr);
    EXPECT_EQ(static_cast<uintmax_t>(st->st_size), fs::file_size(at("a.txt")));
}

TEST_F(TempTree, RegularFileIsARegularEntry)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), "a.txt"), opcd());
    ASSERT_NE(dir.next(), nullptr);
    EXPECT_TRUE(dir.is_entry_regular());
}

TEST_F(TempTree, RegularFileIsNoDirectoryEntry)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), "a.txt"), opcd());
    ASSERT_NE(dir.next(), nullptr);
    EXPECT_FALSE(dir.is_entry_directory());
}

TEST_F(TempTree, SubdirectoryIsASubdirectoryEntry)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), "sub"), opcd());
    ASSERT_NE(dir.next(), nullptr);
    EXPECT_TRUE(dir.is_entry_subdirectory());
}

TEST_F(TempTree, DotsAreDirectoriesButNoSubdirectories)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), "."), opcd());
    ASSERT_NE(dir.next(), nullptr);
    ASSERT_TRUE(dir.is_entry_directory());
    EXPECT_FALSE(dir.is_entry_subdirectory());
}

TEST_F(TempTree, EntriesThatCannotBeStatedAreSkipped)
{
    fs::create_symlink(at("nowhere"), at("dangling.txt"));
    std::set<std::string> expected{"a.txt", "b.TXT", "sub.txt"};
    EXPECT_EQ(names(root, "*.txt"), expected);
}

TEST_F(TempTree, NextAfterTheEndStaysAtTheEnd)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), "a.txt"), opcd());
    ASSERT_NE(dir.next(), nullptr);
    ASSERT_EQ(dir.next(), nullptr);
    EXPECT_EQ(dir.next(), nullptr);
}

TEST_F(TempTree, CloseEndsTheSearch)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), ""), opcd());
    ASSERT_NE(dir.next(), nullptr);
    dir.close();
    EXPECT_FALSE(dir.is_open());
}

TEST_F(TempTree, NextAfterCloseStartsAgain)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), "a.txt"), opcd());
    ASSERT_NE(dir.next(), nullptr);
    ASSERT_EQ(dir.next(), nullptr);
    dir.close();
    EXPECT_NE(dir.next(), nullptr);
}

TEST_F(TempTree, NewOpenClosesTheOldSearch)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(root), ""), opcd());
    ASSERT_NE(dir.next(), nullptr);
    ASSERT_EQ(dir.open(tok(at("sub")), ""), opcd());
    EXPECT_FALSE(dir.is_open());
}

TEST_F(TempTree, SearchOfAFileFindsNothing)
{
    directory dir;
    ASSERT_EQ(dir.open(tok(at("a.txt")), ""), opcd());
    EXPECT_EQ(dir.next(), nullptr);
}

// -- File probes ------------------------------------------------------------------

TEST_F(TempTree, FileKindOfMissingIsZero)
{
    EXPECT_EQ(directory::file_kind(tok(at("missing"))), 0);
}

TEST_F(TempTree, FileKindOfFileIsOne)
{
    EXPECT_EQ(directory::file_kind(tok(at("a.txt"))), 1);
}

TEST_F(TempTree, FileKindOfDirectoryIsTwo)
{
    EXPECT_EQ(directory::file_kind(tok(at("sub"))), 2);
}

TEST_F(TempTree, FileKindDropsTrailingSeparator)
{
    EXPECT_EQ(directory::file_kind(tok(at("a.txt") + "/")), 1);
}

TEST(FileKind, DeviceIsTwo)
{
    EXPECT_EQ(directory::file_kind("/dev/null"), 2);
}

TEST_F(TempTree, FileIsRegular)
{
    EXPECT_TRUE(directory::is_regular(tok(at("a.txt"))));
}

TEST_F(TempTree, DirectoryIsNotRegular)
{
    EXPECT_FALSE(directory::is_regular(tok(at("sub"))));
}

TEST_F(TempTree, MissingIsNotRegular)
{
    EXPECT_FALSE(directory::is_regular(tok(at("missing"))));
}

TEST(IsRegular, DeviceIsNotRegular)
{
    EXPECT_FALSE(directory::is_regular("/dev/null"));
}

TEST_F(TempTree, DirectoryIsDirectory)
{
    EXPECT_TRUE(directory::is_directory(tok(at("sub"))));
}

TEST_F(TempTree, DirectoryWithTrailingSeparatorIsDirectory)
{
    EXPECT_TRUE(directory::is_directory(tok(at("sub") + "\\")));
}

TEST_F(TempTree, FileIsNoDirectory)
{
    EXPECT_FALSE(directory::is_directory(tok(at("a.txt"))));
}

TEST(IsDirectory, RootSlashIsDirectory)
{
    EXPECT_TRUE(directory::is_directory("/"));
}

TEST_F(TempTree, DriveFormIsProbedWithItsSeparator)
{
    CwdGuard cwd;
    fs::create_directory(fs::path(root) / "C:");
    fs::current_path(root);
    EXPECT_TRUE(directory::is_directory("C:"));
}

TEST_F(TempTree, StatGivesTheSize)
{
    velk::os::stat_record st;
    ASSERT_TRUE(directory::stat(tok(at("a.txt")), st));
    EXPECT_EQ(static_cast<uintmax_t>(st.st_size), fs::file_size(at("a.txt")));
}

TEST_F(TempTree, StatOfMissingFails)
{
    velk::os::stat_record st;
    EXPECT_FALSE(directory::stat(tok(at("missing")), st));
}

TEST_F(TempTree, ChdirMakesTheCurrentDirectory)
{
    CwdGuard cwd;
    ASSERT_EQ(directory::chdir(tok(at("sub") + "/")), 0);
    EXPECT_EQ(fs::current_path(), fs::canonical(at("sub")));
}

TEST_F(TempTree, ChdirToMissingFails)
{
    CwdGuard cwd;
    EXPECT_EQ(directory::chdir(tok(at("missing"))), -1);
}

// -- System locations -------------------------------------------------------------

TEST(GetCwd, IsTheCurrentDirectoryWithSeparator)
{
    EXPECT_EQ(str(directory::get_cwd()), fs::current_path().string() + directory::separator);
}

TEST_F(TempTree, GetCwdOfTooDeepDirectoryIsEmpty)
{
    // Deeper than the second buffer of 520 characters.
    CwdGuard cwd;
    fs::path deep = root;
    while (deep.string().size() <= 520)
        deep /= std::string(100, 'd');
    fs::create_directories(deep);
    fs::current_path(deep);
    EXPECT_TRUE(directory::get_cwd().is_empty());
}

TEST(GetProgramPath, NamesThisTestProgram)
{
    std::string path = str(directory::get_program_path());
    EXPECT_EQ(fs::path(path).filename(), "dir_test");
}

TEST(GetProgramPath, IsAnExistingFile)
{
    EXPECT_TRUE(fs::is_regular_file(str(directory::get_program_path())));
}

TEST(GetTmpDir, TakesTmpdir)
{
    EnvGuard env("TMPDIR");
    setenv("TMPDIR", "/some/where", 1);
    EXPECT_EQ(str(directory::get_tmp_dir()), "/some/where");
}

TEST(GetTmpDir, WithoutTmpdirIsSlashTmp)
{
    EnvGuard env("TMPDIR");
    unsetenv("TMPDIR");
    EXPECT_EQ(str(directory::get_tmp_dir()), "/tmp/");
}

TEST(HomeDir, TakesHomeWithSeparator)
{
    EnvGuard env("HOME");
    setenv("HOME", "/home/someone", 1);
    EXPECT_EQ(str(directory::home_dir()), "/home/someone/");
}

TEST(HomeDir, KeepsTheSeparatorOfHome)
{
    EnvGuard env("HOME");
    setenv("HOME", "/home/someone/", 1);
    EXPECT_EQ(str(directory::home_dir()), "/home/someone/");
}

TEST(HomeDir, WithoutHomeAsksThePasswordDatabase)
{
    EnvGuard env("HOME");
    unsetenv("HOME");
    passwd* pw = getpwuid(getuid());
    ASSERT_NE(pw, nullptr);
    EXPECT_EQ(str(directory::home_dir()), std::string(pw->pw_dir) + directory::separator);
}

TEST(GetModulePath, OfZeroIsTheProgram)
{
    charstr path;
    ASSERT_TRUE(directory::get_module_path(0, path, false));
    EXPECT_EQ(fs::path(str(path)).filename(), "dir_test");
}

TEST(GetModulePath, ReplacesTheText)
{
    charstr path = "old";
    ASSERT_TRUE(directory::get_module_path(0, path, false));
    EXPECT_EQ(str(path).find("old"), std::string::npos);
}

TEST(GetModulePath, AppendsBehindTheText)
{
    charstr path = "in:";
    ASSERT_TRUE(directory::get_module_path(0, path, true));
    EXPECT_EQ(str(path), "in:" + str(directory::get_program_path()));
}

TEST(GetModuleName, IsTheFileNameOnly)
{
    charstr name;
    ASSERT_TRUE(directory::get_module_name(0, name, false));
    EXPECT_EQ(str(name), "dir_test");
}

TEST(GetModuleName, AppendedKeepsTheOldText)
{
    charstr name = "a/";
    ASSERT_TRUE(directory::get_module_name(0, name, true));
    EXPECT_EQ(str(name), "a/dir_test");
}

TEST(ModuleOfAddress, OfThisProgramNamesTheProgram)
{
    static int in_program = 0;
    charstr path;
    ASSERT_NE(directory::module_of_address(&in_program, path), 0u);
    EXPECT_EQ(fs::path(str(path)).filename(), "dir_test");
}

TEST(ModuleOfAddress, OfALibraryNamesTheLibrary)
{
    void* lib = dlopen("libm.so.6", RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr);
    charstr path;
    uint64_t handle = directory::module_of_address(dlsym(lib, "cos"), path);
    EXPECT_NE(handle, directory::module_of_address(reinterpret_cast<const void*>(&directory::get_cwd)));
    EXPECT_NE(str(path).find("libm"), std::string::npos);
    dlclose(lib);
}

TEST(ModuleOfAddress, HandleGivesTheSameModulePath)
{
    void* lib = dlopen("libm.so.6", RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr);
    charstr by_address;
    charstr by_handle;
    uint64_t handle = directory::module_of_address(dlsym(lib, "cos"), by_address);
    ASSERT_TRUE(directory::get_module_path(handle, by_handle, false));
    EXPECT_EQ(str(by_handle), str(by_address));
    dlclose(lib);
}

TEST(ModuleOfAddress, OfNullIsZero)
{
    EXPECT_EQ(directory::module_of_address(nullptr), 0u);
}

TEST(ModuleOfAddress, OfNoModuleEmptiesThePath)
{
    int on_stack = 0;
    charstr path = "old";
    ASSERT_EQ(directory::module_of_address(&on_stack, path), 0u);
    EXPECT_TRUE(path.is_empty());
}
