#include "comm/dynamic_library.h"

#include <gtest/gtest.h>

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

TEST(DynamicLibrary, ErrorTextIsFixed)
{
    EXPECT_STREQ(velk::dynamic_library::error_text(), "Unknown error");
}
