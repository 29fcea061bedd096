// The module seam: handles and files of addresses, and exports of the main
// program. This program exports module_test_export, as a host exports its
// registrars; what the seam answers from inside a loaded module is tested
// with the probe modules in tests/interface.
#include "comm/os/module.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <string>

extern "C" VELK_MODULE_EXPORT int module_test_export() { return 7; }

namespace {

int code_of_this_program() { return 1; }

class LoadedLibm : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_NE(lib, nullptr) << dlerror(); }
    void TearDown() override
    {
        if (lib)
            dlclose(lib);
    }
    void* lib = dlopen("libm.so.6", RTLD_NOW | RTLD_LOCAL);
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
    ASSERT_NE(dlsym(RTLD_DEFAULT, "strtol"), nullptr);
    EXPECT_EQ(velk::os::main_program_symbol("strtol"), nullptr);
}

TEST_F(LoadedLibm, AddressesInOneModuleGiveOneHandle)
{
    EXPECT_EQ(velk::os::module_handle_of(dlsym(lib, "cos")), velk::os::module_handle_of(dlsym(lib, "sin")));
}

TEST_F(LoadedLibm, LibraryIsNotTheMainProgram)
{
    EXPECT_NE(velk::os::module_handle_of(dlsym(lib, "cos")), velk::os::main_program_handle());
}

TEST_F(LoadedLibm, LibraryHandleGivesTheSameNumberAsAnAddressInside)
{
    EXPECT_EQ(velk::os::library_module_handle(lib), velk::os::module_handle_of(dlsym(lib, "cos")));
}

TEST_F(LoadedLibm, FileNamesTheLibrary)
{
    const char* file = velk::os::module_file_of(dlsym(lib, "cos"));
    ASSERT_NE(file, nullptr);
    EXPECT_NE(std::string(file).find("libm.so.6"), std::string::npos) << file;
}
