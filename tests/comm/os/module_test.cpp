// The module seam: handles and files of addresses, and exports of the main
// program. This program exports module_test_export, as a host exports its
// registrars; what the seam answers from inside a loaded module is tested
// with the probe modules in tests/interface.
#include "comm/os/module.h"
#include "tests/support/module_loader.h"

#include <gtest/gtest.h>

#include <string>

extern "C" VELK_MODULE_EXPORT int module_test_export() { return 7; }

namespace {

using velk::testing::load_module;
using velk::testing::module_symbol;

int code_of_this_program() { return 1; }

// A library of the system that exports cos and sin: the C runtime's DLL,
// which every MinGW program loads, or the C library's maths.
#if defined(_WIN32)
constexpr const char* libm_name = "msvcrt.dll";
#else
constexpr const char* libm_name = "libm.so.6";
#endif

// An export that some module of the process has, found as a careless lookup
// would find it: in the whole process rather than in the main program.
void* export_anywhere(const char* name)
{
#if defined(_WIN32)
    return module_symbol(GetModuleHandleA("msvcrt.dll"), name);
#else
    return dlsym(RTLD_DEFAULT, name);
#endif
}

class LoadedLibm : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_NE(lib, nullptr) << velk::testing::module_error(); }
    void TearDown() override
    {
        if (lib)
            velk::testing::unload_module(lib);
    }
    void* lib = load_module(libm_name);
};

} // namespace

TEST(ModuleSeam, MainProgramHandleIsNotZero)
{
    EXPECT_NE(velk::os::main_program_handle(), 0u);
}

TEST(ModuleSeam, MainProgramHandleIsTheModuleOfItsCode)
{
    EXPECT_EQ(velk::os::main_program_handle(),
              velk::os::module_handle_of(reinterpret_cast<const void*>(&code_of_this_program)));
}

TEST(ModuleSeam, HandleOfNullIsZero)
{
    EXPECT_EQ(velk::os::module_handle_of(nullptr), 0u);
}

TEST(ModuleSeam, HandleOfAStackAddressIsZero)
{
    int on_stack = 0;
    EXPECT_EQ(velk::os::module_handle_of(&on_stack), 0u);
}

TEST(ModuleSeam, FileOfNullIsNull)
{
    EXPECT_EQ(velk::os::module_file_of(nullptr), nullptr);
}

TEST(ModuleSeam, LibraryHandleOfNullIsZero)
{
    EXPECT_EQ(velk::os::library_module_handle(nullptr), 0u);
}

TEST(ModuleSeam, FindsAnExportOfTheMainProgram)
{
    EXPECT_EQ(velk::os::main_program_symbol("module_test_export"),
              reinterpret_cast<void*>(&module_test_export));
}

TEST(ModuleSeam, UnknownNameIsNotFound)
{
    EXPECT_EQ(velk::os::main_program_symbol("no_such_export_anywhere"), nullptr);
}

TEST(ModuleSeam, ExportOfAnotherModuleDoesNotCount)
{
    // The C library is in the default search scope but is not the main program.
    ASSERT_NE(export_anywhere("strtol"), nullptr);
    EXPECT_EQ(velk::os::main_program_symbol("strtol"), nullptr);
}

TEST_F(LoadedLibm, AddressesInOneModuleGiveOneHandle)
{
    EXPECT_EQ(velk::os::module_handle_of(module_symbol(lib, "cos")), velk::os::module_handle_of(module_symbol(lib, "sin")));
}

TEST_F(LoadedLibm, LibraryIsNotTheMainProgram)
{
    EXPECT_NE(velk::os::module_handle_of(module_symbol(lib, "cos")), velk::os::main_program_handle());
}

TEST_F(LoadedLibm, LibraryHandleGivesTheSameNumberAsAnAddressInside)
{
    EXPECT_EQ(velk::os::library_module_handle(lib), velk::os::module_handle_of(module_symbol(lib, "cos")));
}

TEST_F(LoadedLibm, FileNamesTheLibrary)
{
    const char* file = velk::os::module_file_of(module_symbol(lib, "cos"));
    ASSERT_NE(file, nullptr);
    EXPECT_NE(std::string(file).find(libm_name), std::string::npos) << file;
}
