#include "comm/dynamic_library.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <string>

TEST(DynamicLibrary, NullNameLeavesHandleNull)
{
    velk::dynamic_library lib(nullptr);
    EXPECT_EQ(lib.handle(), nullptr);
}

TEST(DynamicLibrary, CloseAfterFailedLoadGivesFalseAndKeepsHandle)
{
    velk::dynamic_library lib("/nonexistent/libnothing.so");
    EXPECT_EQ(lib.handle(), nullptr);
    EXPECT_FALSE(lib.close());
    EXPECT_EQ(lib.handle(), nullptr);
}

TEST(DynamicLibrary, OpensFindsAndClosesASystemLibrary)
{
    velk::dynamic_library lib;
#if defined(_WIN32)
    ASSERT_TRUE(lib.open("msvcrt.dll")); // the C runtime, which exports cos too
#else
    ASSERT_TRUE(lib.open("libm.so.6"));
#endif
    EXPECT_NE(lib.symbol("cos"), nullptr);
    EXPECT_TRUE(lib.close());
    EXPECT_EQ(lib.handle(), nullptr);
}

TEST(DynamicLibrary, ErrorTextIsUnknownErrorEvenAfterAFailedLoad)
{
    velk::dynamic_library lib;
    EXPECT_STREQ(lib.error_text(), "Unknown error");
    ASSERT_FALSE(lib.open("/nonexistent/libnothing.so"));
    EXPECT_STREQ(lib.error_text(), "Unknown error");
    velk::dynamic_library::last_failure(); // leaves the loader's state clean
}

TEST(DynamicLibrary, MissingFileGivesTheLoadersReasonWithThePath)
{
#if defined(_WIN32)
    GTEST_SKIP() << "the system's message of a failed load names no file";
#endif
    velk::dynamic_library lib;
    ASSERT_FALSE(lib.open("/nonexistent/libnothing.so"));
    std::string reason = velk::dynamic_library::last_failure().c_str();
    EXPECT_NE(reason.find("/nonexistent/libnothing.so"), std::string::npos) << reason;
    EXPECT_NE(reason.find("No such file"), std::string::npos) << reason;
}

TEST(DynamicLibrary, TextFileGivesAReasonSayingItIsNoSharedObject)
{
#if defined(_WIN32)
    GTEST_SKIP() << "the system's message of a failed load names no file";
#endif
    temp_dir dir;
    ASSERT_TRUE(dir.ok());
    // Longer than an ELF header, so that the loader reads the header and
    // refuses it rather than finding the file too short.
    std::string path = dir / "notes.so";
    write_file(path, std::string(200, 'x') + "\nthis is text, not a shared object\n");
    velk::dynamic_library lib;
    ASSERT_FALSE(lib.open(path.c_str()));
    std::string reason = velk::dynamic_library::last_failure().c_str();
    EXPECT_NE(reason.find(path), std::string::npos) << reason;
    EXPECT_NE(reason.find("invalid ELF header"), std::string::npos) << reason;
}

TEST(DynamicLibrary, TheReasonIsGivenOnce)
{
    velk::dynamic_library lib;
    ASSERT_FALSE(lib.open("/nonexistent/libnothing.so"));
    EXPECT_FALSE(velk::dynamic_library::last_failure().is_empty());
    EXPECT_TRUE(velk::dynamic_library::last_failure().is_empty());
}
