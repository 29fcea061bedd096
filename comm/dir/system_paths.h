// system_paths: the places the system names for the process, the user and
// the modules loaded into the process: the current directory, the program's
// file, the temporary directory, the profile directory, and the file of the
// module that holds an address.
//
// Each answer is asked afresh of the system, nothing is cached, and a place
// that can't be had comes back empty (or false) rather than as an error. The
// path texts are as the system gives them, apart from the trailing separator
// that a directory gets where a function says so.
//
//   charstr cwd = system_paths::get_cwd();    // "/home/someone/work/"
//
// No state, no logging; nothing throws but std::bad_alloc.
#pragma once

#include "comm/charstr.h"
#include "comm/dir/path_algebra.h"

#include <cstdint>

namespace velk {

class system_paths : public path_algebra
{
public:
    // The current directory with a trailing separator; empty when it is too
    // long or can't be had.
    static charstr get_cwd();

    // The program's own file, compacted; empty when it can't be had.
    static charstr get_program_path();

    // The directory for temporary files, as the system gives it.
    static charstr get_tmp_dir();

    // The user's profile directory with a trailing separator; empty when the
    // user has none.
    static charstr home_dir();

    // The file of the module with this handle (0: the program) into dst,
    // behind its text with append, else in place of it. False when there is
    // no such module: dst is then empty, or as it was with append.
    static bool get_module_path(uint64_t handle, charstr& dst, bool append);

    // As get_module_path, with the file name only.
    static bool get_module_name(uint64_t handle, charstr& dst, bool append);

    // The handle of the module that holds addr, or 0 when none does; the
    // second form also puts the module's file in path, or empties it.
    static uint64_t module_of_address(const void* addr);
    static uint64_t module_of_address(const void* addr, charstr& path);
};

} // namespace velk
