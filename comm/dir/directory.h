// directory: an iterator over the entries of one directory, and the file
// operations that work in the directory it has open. The static probes and
// file operations come from file_ops, the system's places from system_paths,
// the pure path operations from path_algebra; all of them can be called as
// directory::name.
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
// An iterator is for one thread. Nothing here logs or throws, except
// std::bad_alloc.
#pragma once

#include "comm/charstr.h"
#include "comm/dir/file_ops.h"
#include "comm/opcd.h"
#include "comm/os/dir.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

class directory : public file_ops
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

    // -- File operations on the open iterator's directory ------------------
    //
    // Each cuts curpath back to the directory and appends name, or, when
    // name is empty, the file name of the other path (what follows its last
    // system separator), then copies or moves between that and the other
    // path. The current_... forms use the current entry's path as it is.

    opcd copy_file_from(const token& src, const token& name);
    opcd copy_file_to(const token& dst, const token& name);
    opcd move_file_from(const token& src, const token& name);
    opcd move_file_to(const token& dst, const token& name);
    opcd copy_current_file_to(const token& dst);
    opcd move_current_file_to(const token& dst);

private:
    // The walks of file_ops run on an iterator and hand on the entry's path
    // as the iterator holds it, without a copy.
    friend class file_ops;

    charstr curpath;
    uint32_t baselen = 0;
    os::stat_record st = {};
    charstr pattern;
    intptr_t handle = os::no_search;
};

} // namespace velk
