// A fresh directory under the test's temporary place, removed with all it
// holds when the object goes. Tests make and check files in it with the
// standard library, never with the code under test.
#pragma once

#include <gtest/gtest.h>

#if defined(_WIN32)
#include <process.h>
#endif

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

class temp_dir
{
public:
    explicit temp_dir(const std::string& tag = "velk")
    {
#if defined(_WIN32)
        // The runtime has no mkdtemp: a name of this process and a serial,
        // made by create_directory, which refuses one that exists.
        static int serial = 0;
        std::string base = std::string(::testing::TempDir()) + tag + "_" + std::to_string(_getpid()) + "_";
        for (int attempt = 0; attempt < 1000 && _path.empty(); ++attempt) {
            std::string name = base + std::to_string(++serial);
            std::error_code ec;
            if (std::filesystem::create_directory(name, ec))
                _path = name;
        }
#else
        std::string templ = std::string(::testing::TempDir()) + tag + "_XXXXXX";
        if (mkdtemp(templ.data()))
            _path = templ;
#endif
    }
    ~temp_dir()
    {
        std::error_code ec;
        if (!_path.empty()) {
            // Read-only entries made by a test must not keep the tree alive.
            for (auto it = std::filesystem::recursive_directory_iterator(_path, ec);
                 !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
                std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                             std::filesystem::perm_options::add, ec);
            std::filesystem::remove_all(_path, ec);
        }
    }
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;

    bool ok() const { return !_path.empty(); }
    const std::filesystem::path& path() const { return _path; }
    // The path of name inside the directory.
    std::string operator/(const std::string& name) const { return (_path / name).string(); }

private:
    std::filesystem::path _path;
};

// The whole content of a file; empty when it can't be read.
inline std::string read_file(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Makes a symbolic link with make (a std::filesystem function). On Windows,
// which makes links only with a privilege (and under wine not at all), a
// refusal skips the test; elsewhere a failure throws, as without the macro.
#if defined(_WIN32)
#define MAKE_LINK_OR_SKIP(make, target, link)                                                   \
    do {                                                                                        \
        std::error_code link_ec;                                                                \
        std::filesystem::make(target, link, link_ec);                                           \
        if (link_ec)                                                                            \
            GTEST_SKIP() << "this system makes no symbolic links: " << link_ec.message();      \
    } while (0)
#else
#define MAKE_LINK_OR_SKIP(make, target, link) std::filesystem::make(target, link)
#endif

// Writes data as the whole content of a file.
inline void write_file(const std::string& path, const std::string& data)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(data.data(), static_cast<std::streamsize>(data.size()));
}
