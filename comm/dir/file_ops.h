// file_ops: the static probes that ask the system about one path, and the
// operations that change the file system: making and removing directories,
// copying, moving, cutting and stamping files, walking a tree, and making a
// temporary name. The places the system names come from system_paths, the
// pure path operations from path_algebra.
//
// Every operation reports through its result, never by throwing (std::bad_alloc
// apart) and never by logging. Nothing keeps state, apart from chdir, which
// changes the process-wide current directory. Tree walks are not guarded:
// they see the file system as it changes under them.
//
//   if (opcd e = file_ops::mkdir_tree(path, true))
//       return e;                     // path's directories, its file name left
//   return file_ops::copy_file(src, path);
#pragma once

#include "comm/charstr.h"
#include "comm/dir/system_paths.h"
#include "comm/opcd.h"
#include "comm/os/dir.h"
#include "comm/token.h"

#include <cstdint>
#include <type_traits>

namespace velk {

class file_ops : public system_paths
{
public:
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

    // Whether the existing path lies at or below the existing directory
    // root, both with links resolved: a link below root that leads out of
    // it does not. False when either can't be resolved.
    static bool lies_within(const token& root, const token& path);

    // Makes path, without its trailing separator, the current directory of
    // the process: 0 on success, else -1.
    static int chdir(const token& path);

    // -- File operations --------------------------------------------------------
    //
    // ers::io_error stands for a failed removal, move, open for change, read
    // or write; ers::failed for what goes wrong after a successful open and
    // for mkdir.

    // Permission of the directories the library makes: octal 750.
    static constexpr uint32_t default_dir_mode = 0750;

    // Makes the directory path, a trailing separator dropped. A bare drive
    // ("C:") is success without asking the system; so is a path that exists
    // already, also as a file, since the system gives the same error for
    // both. Anything else is ers::failed.
    static opcd mkdir(const token& path, uint32_t mode = default_dir_mode);

    // Makes every directory along path, from the first level down, returning
    // the first failure at once. With skip_last the last segment is taken for
    // a file name and not made, unless a trailing separator marks it as a
    // directory.
    static opcd mkdir_tree(const token& path, bool skip_last, uint32_t mode = default_dir_mode);

    // Removes the file path (never a directory); ers::io_error when it can't.
    static opcd delete_file(const token& path);

    // Removes the directory path. With recursive, its contents go first,
    // files and then each directory after its own contents; a removal that
    // fails is noted as ers::io_error and the rest go on, and then path
    // itself is left in place and the failure returned. Symbolic links are
    // removed, never followed. ers::io_error when path can't be removed.
    static opcd delete_directory(const token& path, bool recursive);

    // Removes the entries of a directory that match a filter, given as one
    // path: "dir/*.tmp". ".." is left out; "." and subdirectories are tried
    // too, and fail without harm, so the result is the last failure
    // (ers::io_error), or the iterator's when the directory can't be opened
    // (also when path has no directory part).
    static opcd delete_files(const token& path);

    // Copies the file src to dst, replacing dst; nothing at all when both name
    // the same file. An open that fails gives ers::io_error with dst untouched
    // (when it was src that failed). A read error ends the copy like the end
    // of the file; a short write ends it with ers::io_error_write_failed, and
    // the partial dst stays. Times and permission are not copied.
    static opcd copy_file(const token& src, const token& dst);

    // Moves src to dst, also across file systems for a file (a copy and a
    // removal, or nothing when the copy fails). An existing dst is never
    // replaced. ers::io_error when the move did not happen.
    static opcd move_file(const token& src, const token& dst);

    // Copies (or, with move, moves) a file or a whole tree. A file goes to
    // dst, or into dst when dst ends in a separator. A directory: "a/" to
    // "b/" or "b" puts a's contents into b; "a" to "b/" makes b/a; "a" to "b"
    // makes b the copy of a. The target directory is made when missing, a
    // failure there returned at once (ers::failed). Entries then go one by one
    // and the first failure is kept while the rest go on. A moved "a" goes
    // away when all of it moved; a moved "a/" stays, emptied. ers::io_error
    // when src is neither a file nor a directory; ers::invalid_params when
    // the target lies inside src.
    static opcd transfer_tree(const token& src, const token& dst, bool move);

    // Makes the file path exactly size bytes long, creating it when missing.
    // ers::io_error when it can't be opened for writing, ers::failed when
    // the length can't be set.
    static opcd truncate(const token& path, uint64_t size);

    // Sets the last access and modification times of an existing file, in
    // seconds since 1970; its other times stay. ers::io_error when it can't
    // be opened for writing, ers::failed when the times can't be set.
    static opcd set_file_times(const token& path, int64_t access, int64_t modification);

    // The size of a regular file in bytes; 0 for anything else and on error.
    static uint64_t file_size(const token& path);

    // Whether the process may write path, a trailing separator dropped.
    static bool is_writable(const token& path);

    // Gives path write permission or takes all of it away (the read-only
    // switch; other permission bits stay), a trailing separator dropped.
    // False when the system refuses.
    static bool set_writable(const token& path, bool writable);

    // Kinds a list_file_paths callback is given, and the mode bits that ask
    // for directories (either bit also means recursion).
    enum list_kind : int { list_file = 0, list_dir_after = 1, list_dir_before = 2 };
    enum list_mode : uint32_t { list_dirs_after = 1, list_dirs_before = 2 };

    using list_fn = void (*)(void* context, const charstr& path, int kind);

    // Calls fn with the full path of each regular file of the directory path
    // whose name ends in extension, compared without case ("*" takes every
    // file; an extension without a leading dot must follow a dot, so "txt"
    // takes "a.txt" but not "atxt"). Mode 0 stays in this directory; with
    // mode bits it descends into subdirectories and reports each before
    // (list_dirs_before) and after (list_dirs_after) its contents. A
    // symbolic link to a directory is reported as a file and not entered.
    // 1, or 0 when the directory can't be opened. The path passed to fn is
    // valid during the call only.
    static int list_file_paths(const token& path, const token& extension, uint32_t mode, list_fn fn,
                               void* context);

    // The same with any callable taking (const charstr& path, int kind).
    template <class F>
    static int list_file_paths(const token& path, const token& extension, uint32_t mode, F&& fn)
    {
        using fn_type = std::remove_reference_t<F>;
        return list_file_paths(
            path, extension, mode,
            [](void* c, const charstr& p, int k) { (*static_cast<fn_type*>(c))(p, k); },
            const_cast<void*>(static_cast<const void*>(&fn)));
    }

    // A new directory under the temporary place: prefix and the current time
    // in seconds, trying the next nine seconds when a name is taken. After a
    // taken name the text is cut to the attempt's number of characters, not
    // to the base: the library always did so, and later names are relative.
    // Empty when all ten attempts failed.
    static charstr unique_temp_dir(const token& prefix);

protected:
    // "C:" or "C:/": a drive root, in the forms that name the same directory.
    // The iterator's open reads a drive as is_directory does.
    static bool is_drive_root_form(const token& path)
    {
        uint32_t n = path.lens();
        return (n == 2 || n == 3) && path[1] == ':';
    }
};

} // namespace velk
