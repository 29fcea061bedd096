// directory: an iterator over the entries of one directory, and the static
// file probes and system locations of the library; the pure path operations
// come from path_algebra.
//
// An iterator is closed after construction and after open: the search starts
// with the first next, and ends at close, at a new open or at destruction.
// While it runs, curpath holds the current entry's full path, whose first
// baselen characters are the directory with a trailing separator. "." and
// ".." are entries like any other, in the order the system gives.
//
//   directory dir;
//   if (!dir.open(path, "*.txt"))
//       while (dir.next())
//           if (dir.is_entry_regular()) use(dir.current_path());
//
// An iterator is for one thread. The static functions keep no state, apart
// from chdir, which changes the process-wide current directory. Nothing here
// logs or throws, except std::bad_alloc.
#pragma once

#include "comm/charstr.h"
#include "comm/opcd.h"
#include "comm/os/dir.h"
#include "comm/path_algebra.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

class directory : public path_algebra
{
public:
    directory() = default;
    ~directory() { close(); }
    directory(const directory&) = delete;
    directory& operator=(const directory&) = delete;

    // -- Iteration ------------------------------------------------------------

    // Prepares a search of path for entries matching filter ("*.*" when empty;
    // see os::find_first for the wildcards). Any earlier search is closed
    // first. Fails with ers::failed when path can't be stat-ed; the iterator
    // is closed either way.
    opcd open(const token& path, const token& filter);

    // The status of the next entry, or null at the end of the search or when
    // it can't be started. Entries that can't be stat-ed are skipped. The
    // record belongs to the iterator and changes with the next call.
    const os::stat_record* next();

    // Ends the search; the iterator may be opened again.
    void close();

    bool is_open() const { return handle != os::no_search; }

    // The current entry's kind, by its status record.
    bool is_entry_directory() const;
    bool is_entry_regular() const;
    // A directory other than "." and "..".
    bool is_entry_subdirectory() const;

    // The current entry's full path and its name; views into the iterator,
    // valid up to the next call to next or open.
    token current_path() const { return curpath; }
    token current_name() const;

    // The search path, directory and filter: what the search will read.
    token search_pattern() const { return pattern; }

    // -- File probes ----------------------------------------------------------

    // After dropping a trailing separator: 0 no such thing, 2 a directory or
    // a device, 1 anything else.
    static int file_kind(const token& path);

    // True when path exists and is neither a directory nor a device.
    static bool is_regular(const token& path);

    // True when path is a directory. A drive ("C:") is probed with its
    // separator, any other path without its trailing one.
    static bool is_directory(const token& path);

    // The status of path, after dropping a trailing separator; false when it
    // can't be had, out unspecified.
    static bool stat(const token& path, os::stat_record& out);

    // Makes path, without its trailing separator, the current directory of
    // the process: 0 on success, else -1.
    static int chdir(const token& path);

    // -- System locations -----------------------------------------------------

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

private:
    charstr curpath;
    uint32_t baselen = 0;
    os::stat_record st = {};
    charstr pattern;
    intptr_t handle = os::no_search;
};

} // namespace velk
