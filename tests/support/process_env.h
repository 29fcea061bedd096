// Test helper: the process's environment and how a death test's child ends,
// on either system. Windows has no signals: abort() ends a program with exit
// code 3, and a trap instruction with the illegal instruction's exception
// code, where POSIX reports SIGABRT and SIGILL.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

namespace velk::testing {

// Sets name to value in this process's environment, which children inherit.
inline void set_env(const char* name, const char* value)
{
#if defined(_WIN32)
    _putenv_s(name, value);
#else
    setenv(name, value, 1);
#endif
}

// Removes name from this process's environment.
inline void unset_env(const char* name)
{
#if defined(_WIN32)
    _putenv_s(name, ""); // an empty value removes the variable
#else
    unsetenv(name);
#endif
}

#if defined(_WIN32)
constexpr int status_illegal_instruction = static_cast<int>(0xC000001Du); // STATUS_ILLEGAL_INSTRUCTION
inline ::testing::ExitedWithCode ended_by_abort() { return ::testing::ExitedWithCode(3); }
inline ::testing::ExitedWithCode ended_by_trap() { return ::testing::ExitedWithCode(status_illegal_instruction); }
#else
inline ::testing::KilledBySignal ended_by_abort() { return ::testing::KilledBySignal(SIGABRT); }
inline ::testing::KilledBySignal ended_by_trap() { return ::testing::KilledBySignal(SIGILL); }
#endif

} // namespace velk::testing
