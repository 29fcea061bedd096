// Platform seam of the file system, as far as paths and directory searches go:
// status records, directory searches with a name filter, the current
// directory and the places the system keeps for the program and the user.
//
// Paths come in as tokens with either separator; the seam hands them to the
// system in the system's own form. Nothing here logs or throws, apart from
// std::bad_alloc for the copies it makes.
//
//   os::stat_record st;
//   if (os::stat_path(path, st) && os::is_directory_record(st)) ...
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"

#include <sys/stat.h>

#include <cstdint>

namespace velk::os {

// The system's status record of a file, as stat fills it; on Windows the
// runtime's record with 64-bit sizes and times.
#if defined(_WIN32)
using stat_record = struct ::_stat64;
#else
using stat_record = struct ::stat;
#endif

// Fills out for path; false, out unspecified, when the path can't be read.
bool stat_path(const token& path, stat_record& out);

// The kind of a record, by its type field.
bool is_directory_record(const stat_record& st);
bool is_regular_record(const stat_record& st);
bool is_device_record(const stat_record& st);

// -- Directory searches ---------------------------------------------------

// The handle of no search.
inline constexpr intptr_t no_search = -1;

// Starts a search on pattern: a directory, a separator and a filter of "*"
// and "?" wildcards, compared without regard to case; a filter ending in
// ".*" also takes names without a dot. Gives the handle and, in name, the
// first matching entry's name; no_search, name null, when the directory can't
// be read or nothing matches. A name stays valid up to the next call on its
// search. The handle must be closed with find_close. Throws std::bad_alloc.
intptr_t find_first(const token& pattern, const char*& name);

// The next matching name of an open search; null at the end, and after it.
const char* find_next(intptr_t handle);

// Ends an open search; no_search is ignored.
void find_close(intptr_t handle);

// -- Changes to the file system ----------------------------------------------

// The error number of "it exists already", the same on every system the
// library knows (17).
inline constexpr int err_exists = 17;

// Makes the directory path: 0 on success, else the system's error number.
int make_dir(const token& path, uint32_t mode);

// Removes the empty directory path; false when the system refuses.
bool remove_dir(const token& path);

// Removes the file path, never a directory; false when the system refuses.
bool remove_file(const token& path);

// Moves src to dst, never replacing an existing dst. Across file systems a
// file (or a symbolic link) is copied, with its permission and times, and
// then removed; a copy that fails is removed again, so that either src or
// a whole dst exists afterwards. A directory moves only within one file
// system. False when the move did not happen.
bool move_path(const token& src, const token& dst);

// True when both paths exist and name the same file.
bool same_file(const token& a, const token& b);

// True when path itself is a symbolic link, whatever it points to.
bool is_link(const token& path);

// Whether the process may write path.
bool can_write(const token& path);

// Sets or clears the path's write permission, the rest of its mode kept:
// writable adds the owner's write bit, read-only clears every write bit.
bool set_write_permission(const token& path, bool writable);

// The canonical absolute form of an existing path, links resolved; false
// when it can't be had.
bool real_path(const token& path, charstr& out);

// The current time in seconds since 1970.
int64_t time_now();

// -- Process and user places ----------------------------------------------

// The current directory into buf of size bytes, zero-terminated; false when
// it doesn't fit or can't be had.
bool current_dir(char* buf, uint32_t size);

// Makes path the process's current directory: 0 on success, else -1.
int change_dir(const token& path);

// The program's own file into buf, not terminated: the length written, equal
// to size when the name may have been cut, 0 on failure.
uint32_t program_file_name(char* buf, uint32_t size);

// The directory for temporary files, as the system names it.
void temp_dir(charstr& out);

// The user's profile directory, as the system names it; false, out empty,
// when there is none.
bool user_profile_dir(charstr& out);

} // namespace velk::os
