// Platform seam of file streams: the runtime's integer-handle file calls.
//
// A handle is a signed 32-bit number, -1 for none. Names come in with either
// separator and reach the system in its own form. Reads and writes move at
// most 2^32 - 1 bytes per call and carry on across the system's per-call cap
// and interrupted calls, so a short count means the end of the file, a full
// device or a limit of the process. Nothing here logs
// or throws, apart from std::bad_alloc for a converted name.
//
//   int32_t h = os::file_open("a/b.txt", os::open_read);
//   int64_t got = os::file_read(h, buf, n);
//   os::file_close(h);
#pragma once

#include <cstdint>

namespace velk::os {

// The handle of no file.
inline constexpr int32_t no_file = -1;

// Flags of file_open.
enum open_flags : uint32_t {
    open_read = 1,          // read access
    open_write = 2,         // write access; with open_read, both
    open_share_deny_write = 4, // others may not write while it is open
    open_exclusive = 8,     // fail when the file exists (with open_create)
    open_create = 16,       // create when missing
    open_truncate = 32,     // cut to length 0
    open_append = 64,       // every write goes to the end
    open_sequential = 128,  // access hint: front to back
    open_random = 256,      // access hint: scattered
};

// Opens name; a file made by the call is readable, and writable unless only
// open_read was asked for. A directory is not a file: opening one fails, as
// it does on Windows, so that callers meet the same failure on either
// platform. Gives the handle, or no_file when it fails.
int32_t file_open(const char* name, uint32_t flags);

// Reads up to len bytes: the count read (below len only at the end of the
// file), or -1 when the system fails before anything was read.
int64_t file_read(int32_t handle, void* p, uint32_t len);

// Writes up to len bytes: the count written (below len when the device or
// the process limit is full), or -1 when the system fails before anything
// was written.
int64_t file_write(int32_t handle, const void* p, uint32_t len);

// Moves the position to the absolute offset pos: the new position, or -1.
int64_t file_seek(int32_t handle, int64_t pos);

// The current position, or -1.
int64_t file_tell(int32_t handle);

// The file's size as the handle sees it, or -1.
int64_t file_length(int32_t handle);

// Makes the file exactly size bytes long, cutting or extending with zeros.
bool file_set_length(int32_t handle, uint64_t size);

// Sets the last access and modification times, in seconds since 1970; the
// other times of the file stay. False when the system refuses.
bool file_set_times(int32_t handle, int64_t access, int64_t modification);

// Closes the handle; no_file is ignored. False when the system reports a failure.
bool file_close(int32_t handle);

} // namespace velk::os
