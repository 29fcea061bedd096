// Test helper: one way for the tests of both systems to write paths. The
// library writes its own separator ("/", or "\" on Windows) and takes both;
// the tests spell their expectations with "/" and turn them into the
// system's form here, or the library's output into theirs.
#pragma once

#include "comm/dir/path_algebra.h"

#include <algorithm>
#include <string>

namespace velk::testing {

// Where "/" is no separator of the system's own, a leading "/" is no root.
inline constexpr bool slash_is_root = velk::path_algebra::separator == '/';
inline constexpr const char* no_slash_root = "a leading \"/\" is the root only where \"/\" is the separator";

// path with each "/" turned into the system's separator.
inline std::string system_form(std::string path)
{
    std::replace(path.begin(), path.end(), '/', velk::path_algebra::separator);
    return path;
}

// path with each system separator turned into "/".
inline std::string slash_form(std::string path)
{
    std::replace(path.begin(), path.end(), velk::path_algebra::separator, '/');
    return path;
}

} // namespace velk::testing
