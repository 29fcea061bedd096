// Test helper: runs a test in another current directory and comes back.
#pragma once

#include <filesystem>
#include <system_error>

namespace velk::testing {

// Remembers the current directory and goes back to it when it ends; a test
// changes directory freely meanwhile.
class CwdGuard
{
public:
    CwdGuard() : saved(std::filesystem::current_path()) {}
    ~CwdGuard()
    {
        std::error_code ignored;
        std::filesystem::current_path(saved, ignored);
    }
    CwdGuard(const CwdGuard&) = delete;
    CwdGuard& operator=(const CwdGuard&) = delete;

private:
    std::filesystem::path saved;
};

} // namespace velk::testing
