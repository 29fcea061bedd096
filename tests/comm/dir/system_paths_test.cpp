// system_paths: the places the system names for this test program, its user
// and the modules loaded into it, checked against the standard library, the
// environment and the loader.
#include "comm/dir/system_paths.h"

#include "tests/support/cwd_guard.h"
#include "tests/support/temp_dir.h"

#include "tests/support/module_loader.h"
#include "tests/support/process_env.h"

#if !defined(_WIN32)
#include <pwd.h>
#include <unistd.h>
#endif

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace fs = std::filesystem;
using velk::charstr;
using velk::system_paths;

namespace {

std::string str(const charstr& s) { return std::string(s.c_str(), s.lens()); }

using velk::testing::CwdGuard;

using velk::testing::set_env;
using velk::testing::unset_env;

// A library of the system with cos in it, loaded by every program of its kind.
#if defined(_WIN32)
const char* const libm_name = "msvcrt.dll";
#else
const char* const libm_name = "libm.so.6";
#endif

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
            set_env(name, saved->c_str());
        else
            unset_env(name);
    }

private:
    const char* name;
    std::optional<std::string> saved;
};

// A temporary directory for the tests that must stand somewhere.
class SystemPaths : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(tmp.ok()); }

    temp_dir tmp{"system_paths"};
};

// The name the test program is built under.
#if defined(_WIN32)
const char* const program_name = "system_paths_test.exe";
#else
const char* const program_name = "system_paths_test";
#endif

} // namespace

// -- The current directory and the program ----------------------------------------

TEST_F(SystemPaths, GetCwdGivesTheCurrentDirectoryWithASeparator)
{
    EXPECT_EQ(str(system_paths::get_cwd()), fs::current_path().string() + system_paths::separator);
}

TEST_F(SystemPaths, GetCwdIsEmptyWhenTheDirectoryIsTooDeep)
{
    // Deeper than the second buffer of 520 characters.
    CwdGuard cwd;
    fs::path deep = tmp.path();
    while (deep.string().size() <= 520)
        deep /= std::string(100, 'd');
    fs::create_directories(deep);
    fs::current_path(deep);
    EXPECT_TRUE(system_paths::get_cwd().is_empty());
}

TEST_F(SystemPaths, GetProgramPathNamesThisTestProgram)
{
    std::string path = str(system_paths::get_program_path());
    EXPECT_EQ(fs::path(path).filename(), program_name);
}

TEST_F(SystemPaths, GetProgramPathIsAnExistingFile)
{
    EXPECT_TRUE(fs::is_regular_file(str(system_paths::get_program_path())));
}

// -- The temporary and the profile directory ----------------------------------------

#if defined(_WIN32)
// GetTempPathA reads TMP first, then TEMP, and ends the directory with "\".
TEST_F(SystemPaths, GetTmpDirTakesTmp)
{
    EnvGuard env("TMP");
    set_env("TMP", "C:\\some\\where");
    EXPECT_EQ(str(system_paths::get_tmp_dir()), "C:\\some\\where\\");
}

TEST_F(SystemPaths, GetTmpDirWithoutTmpTakesTemp)
{
    EnvGuard tmp_env("TMP");
    EnvGuard temp_env("TEMP");
    unset_env("TMP");
    set_env("TEMP", "C:\\other");
    EXPECT_EQ(str(system_paths::get_tmp_dir()), "C:\\other\\");
}

// The profile comes from the process's token, whatever HOME says.
TEST_F(SystemPaths, HomeDirIsTheUserProfileWithASeparator)
{
    const char* profile = getenv("USERPROFILE");
    ASSERT_NE(profile, nullptr);
    EXPECT_EQ(str(system_paths::home_dir()), std::string(profile) + system_paths::separator);
}
#else
TEST_F(SystemPaths, GetTmpDirTakesTmpdir)
{
    EnvGuard env("TMPDIR");
    setenv("TMPDIR", "/some/where", 1);
    EXPECT_EQ(str(system_paths::get_tmp_dir()), "/some/where");
}

TEST_F(SystemPaths, GetTmpDirWithoutTmpdirFallsBackOnSlashTmp)
{
    EnvGuard env("TMPDIR");
    unsetenv("TMPDIR");
    EXPECT_EQ(str(system_paths::get_tmp_dir()), "/tmp/");
}

TEST_F(SystemPaths, HomeDirTakesHomeAndAddsASeparator)
{
    EnvGuard env("HOME");
    setenv("HOME", "/home/someone", 1);
    EXPECT_EQ(str(system_paths::home_dir()), "/home/someone/");
}

TEST_F(SystemPaths, HomeDirKeepsTheSeparatorOfHome)
{
    EnvGuard env("HOME");
    setenv("HOME", "/home/someone/", 1);
    EXPECT_EQ(str(system_paths::home_dir()), "/home/someone/");
}

TEST_F(SystemPaths, HomeDirWithoutHomeAsksThePasswordDatabase)
{
    EnvGuard env("HOME");
    unsetenv("HOME");
    passwd* pw = getpwuid(getuid());
    ASSERT_NE(pw, nullptr);
    EXPECT_EQ(str(system_paths::home_dir()), std::string(pw->pw_dir) + system_paths::separator);
}
#endif

// -- Modules ----------------------------------------------------------------------

TEST_F(SystemPaths, GetModulePathOfZeroNamesTheProgram)
{
    charstr path;
    ASSERT_TRUE(system_paths::get_module_path(0, path, false));
    EXPECT_EQ(fs::path(str(path)).filename(), program_name);
}

TEST_F(SystemPaths, GetModulePathReplacesTheText)
{
    charstr path = "old";
    ASSERT_TRUE(system_paths::get_module_path(0, path, false));
    EXPECT_EQ(str(path).find("old"), std::string::npos);
}

TEST_F(SystemPaths, GetModulePathAppendsBehindTheText)
{
    charstr path = "in:";
    ASSERT_TRUE(system_paths::get_module_path(0, path, true));
    EXPECT_EQ(str(path), "in:" + str(system_paths::get_program_path()));
}

TEST_F(SystemPaths, GetModuleNameGivesTheFileNameOnly)
{
    charstr name;
    ASSERT_TRUE(system_paths::get_module_name(0, name, false));
    EXPECT_EQ(str(name), program_name);
}

TEST_F(SystemPaths, GetModuleNameAppendedKeepsTheOldText)
{
    charstr name = "a/";
    ASSERT_TRUE(system_paths::get_module_name(0, name, true));
    EXPECT_EQ(str(name), std::string("a/") + program_name);
}

TEST_F(SystemPaths, ModuleOfAddressInThisProgramNamesTheProgram)
{
    static int in_program = 0;
    charstr path;
    ASSERT_NE(system_paths::module_of_address(&in_program, path), 0u);
    EXPECT_EQ(fs::path(str(path)).filename(), program_name);
}

TEST_F(SystemPaths, ModuleOfAddressInALibraryNamesTheLibrary)
{
    void* lib = velk::testing::load_module(libm_name);
    ASSERT_NE(lib, nullptr);
    charstr path;
    uint64_t handle = system_paths::module_of_address(velk::testing::module_symbol(lib, "cos"), path);
    EXPECT_NE(handle, system_paths::module_of_address(reinterpret_cast<const void*>(&system_paths::get_cwd)));
    EXPECT_NE(str(path).find(libm_name), std::string::npos);
    velk::testing::unload_module(lib);
}

TEST_F(SystemPaths, ModuleOfAddressGivesAHandleThatGetModulePathNamesAlike)
{
    void* lib = velk::testing::load_module(libm_name);
    ASSERT_NE(lib, nullptr);
    charstr by_address;
    charstr by_handle;
    uint64_t handle = system_paths::module_of_address(velk::testing::module_symbol(lib, "cos"), by_address);
    ASSERT_TRUE(system_paths::get_module_path(handle, by_handle, false));
    EXPECT_EQ(str(by_handle), str(by_address));
    velk::testing::unload_module(lib);
}

TEST_F(SystemPaths, ModuleOfAddressIsZeroForNull)
{
    EXPECT_EQ(system_paths::module_of_address(nullptr), 0u);
}

TEST_F(SystemPaths, ModuleOfAddressOutsideEveryModuleEmptiesThePath)
{
    int on_stack = 0;
    charstr path = "old";
    ASSERT_EQ(system_paths::module_of_address(&on_stack, path), 0u);
    EXPECT_TRUE(path.is_empty());
}
