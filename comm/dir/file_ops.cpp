// file_ops: the probes of one path, and the operations that make and remove
// directories, copy, move, cut and stamp files, walk a tree, and make a
// temporary name. Results are opcd values and nothing throws but
// std::bad_alloc. Every system call goes through comm/os/dir.h or
// comm/os/file.h; copies go through filestream, and the walks run on a
// directory iterator.
#include "comm/dir/file_ops.h"

#include "comm/binstream/filestream.h"
#include "comm/dir/directory.h"
#include "comm/os/file.h"
#include "comm/zstring.h"

#include <cctype>

namespace velk {

namespace {

// Every trailing separator dropped.
token without_trailing_separators(token path)
{
    while (path_algebra::ends_in_separator(path))
        path = token(path.ptr(), path.lens() - 1);
    return path;
}

// "X:", the bare drive form, which names a directory that always exists.
bool is_bare_drive(const token& path)
{
    return path.lens() == 2 && path[1] == ':';
}

// The last segment of a path, separators on either side dropped.
token last_segment(const token& path)
{
    token t = without_trailing_separators(path);
    return t.cut_back_at_group(path_algebra::separators, cut_drop_separator | cut_return_right);
}

bool extension_matches(const token& name, const token& extension, bool dotted)
{
    uint32_t n = name.lens();
    uint32_t e = extension.lens();
    if (n < e)
        return false;
    const char* tail = name.ptr() + (n - e);
    for (uint32_t i = 0; i < e; ++i)
        if (::tolower(static_cast<unsigned char>(tail[i])) != ::tolower(static_cast<unsigned char>(extension[i])))
            return false;
    // "txt" must be the extension of the name, "atxt" is not a match.
    return dotted || (n > e && tail[-1] == '.');
}

// A zero-terminated copy for the calls that take one.
zstring zcopy(const token& path)
{
    return zstring(path);
}

// The size of the buffer copy_file moves the data with.
constexpr uint64_t copy_block = 8192;

} // namespace

// -- File probes ----------------------------------------------------------

int file_ops::file_kind(const token& path)
{
    os::stat_record probe;
    if (!os::stat_path(path_algebra::without_trailing_separator(path), probe))
        return 0;
    return os::is_directory_record(probe) || os::is_device_record(probe) ? 2 : 1;
}

bool file_ops::is_regular(const token& path)
{
    os::stat_record probe;
    return os::stat_path(path, probe) && !os::is_directory_record(probe) && !os::is_device_record(probe);
}

bool file_ops::is_directory(const token& path)
{
    os::stat_record probe;
    if (is_drive_root_form(path) && !path_algebra::ends_in_separator(path)) {
        charstr root(path);
        root << separator;
        return os::stat_path(root, probe) && os::is_directory_record(probe);
    }
    return os::stat_path(path_algebra::without_trailing_separator(path), probe) && os::is_directory_record(probe);
}

bool file_ops::stat(const token& path, os::stat_record& out)
{
    return os::stat_path(path_algebra::without_trailing_separator(path), out);
}

bool file_ops::lies_within(const token& root, const token& path)
{
    charstr real_root, real_path;
    if (!os::real_path(root, real_root) || !os::real_path(path, real_path))
        return false;
    token rest = real_path;
    return path_algebra::is_subpath(real_root, rest);
}

int file_ops::chdir(const token& path)
{
    return os::change_dir(path_algebra::without_trailing_separator(path));
}

// -- Directories ------------------------------------------------------------------

opcd file_ops::mkdir(const token& path, uint32_t mode)
{
    token p = path_algebra::without_trailing_separator(path);
    if (is_bare_drive(p)) // a drive always exists: nothing to ask the system
        return {};
    int err = os::make_dir(p, mode);
    return err == 0 || err == os::err_exists ? opcd() : ers::failed;
}

opcd file_ops::mkdir_tree(const token& path, bool skip_last, uint32_t mode)
{
    bool trailing = path_algebra::ends_in_separator(path);
    token p = without_trailing_separators(path);
    if (p.is_empty()) // nothing, or the root alone
        return path.is_empty() ? ers::failed : opcd();
    for (uint32_t i = 1; i < p.lens(); ++i) {
        // Each level at its first separator; the root and runs of separators
        // add no level.
        if (!is_separator(p[i]) || is_separator(p[i - 1]))
            continue;
        if (opcd e = mkdir(token(p.ptr(), i), mode))
            return e;
    }
    if (skip_last && !trailing)
        return {};
    return mkdir(p, mode);
}

opcd file_ops::delete_file(const token& path)
{
    return os::remove_file(path) ? opcd() : ers::io_error;
}

opcd file_ops::delete_directory(const token& path, bool recursive)
{
    if (recursive) {
        opcd first;
        list_file_paths(path, "*", list_dirs_after, [&first](const charstr& entry, int kind) {
            bool ok = kind == list_file ? os::remove_file(entry)
                                        : os::remove_dir(path_algebra::without_trailing_separator(entry));
            if (!ok && !first)
                first = ers::io_error;
        });
        if (first) // the top stays when anything below it stayed
            return first;
    }
    return os::remove_dir(path_algebra::without_trailing_separator(path)) ? opcd() : ers::io_error;
}

opcd file_ops::delete_files(const token& path)
{
    token filter = path;
    token dir_part = filter.cut_back_at_group(separators, cut_drop_separator | cut_empty_if_none);
    directory dir;
    if (opcd e = dir.open(dir_part, filter))
        return e;
    opcd last;
    while (dir.next()) {
        if (dir.current_name() == token(".."))
            continue;
        if (!os::remove_file(dir.curpath))
            last = ers::io_error;
    }
    return last;
}

// -- Copying and moving -------------------------------------------------------------

opcd file_ops::copy_file(const token& src, const token& dst)
{
    // Another spelling of the same file would be truncated by opening dst.
    if (src == dst || os::same_file(src, dst))
        return {};
    filestream in, out;
    if (opcd e = in.open(zcopy(src), "r"))
        return e;
    if (opcd e = out.open(zcopy(dst), "wct"))
        return e;
    char buf[copy_block];
    opcd result;
    for (;;) {
        uint64_t len = copy_block;
        in.read_raw(buf, len); // a read error ends the copy as the end of the file does
        uint64_t got = copy_block - len;
        if (got == 0)
            break;
        uint64_t left = got;
        out.write_raw(buf, left);
        if (left != 0) {
            result = ers::io_error_write_failed;
            break;
        }
    }
    in.close();
    out.close();
    return result;
}

opcd file_ops::move_file(const token& src, const token& dst)
{
    return os::move_path(src, dst) ? opcd() : ers::io_error;
}

// The walk of a tree: see transfer_tree in file_ops.h for the forms of src and
// dst. The target directory d is made first; each entry's target is d and
// the entry's path below src. Directories are made before their contents
// and, when moving, removed after them.
opcd file_ops::transfer_tree(const token& src, const token& dst, bool move)
{
    bool src_sep = path_algebra::ends_in_separator(src);
    bool dst_sep = path_algebra::ends_in_separator(dst);

    if (is_regular(src)) {
        charstr d(dst);
        if (dst_sep) {
            token name = src;
            d << name.cut_back_at_group(separators, cut_drop_separator | cut_return_right);
        }
        return move ? move_file(src, d) : copy_file(src, d);
    }
    if (!is_directory(src))
        return ers::io_error;

    // The walk's own paths are src without trailing separators and "/".
    token walk = without_trailing_separators(src);
    uint32_t base = walk.lens() + 1;
    if (walk.is_empty()) { // the root
        walk = src;
        base = 1;
    }

    charstr d(dst);
    if (src_sep && dst_sep) {
    } else if (src_sep) {
        d << separator;
    } else if (dst_sep) {
        d << last_segment(src) << separator;
    } else {
        d << separator;
    }

    bool existed = file_kind(d) != 0;
    if (opcd e = mkdir(d, default_dir_mode))
        return e;
    if (lies_within(walk, d)) { // the walk would meet its own copies
        if (!existed)
            os::remove_dir(path_algebra::without_trailing_separator(d));
        return ers::invalid_params;
    }

    uint32_t dlen = d.lens();
    opcd first;
    list_file_paths(walk, "*", list_dirs_after | list_dirs_before, [&](const charstr& entry, int kind) {
        d.resize(static_cast<int32_t>(dlen));
        d << token(entry.ptr() + base, entry.ptre());
        opcd e;
        if (kind == list_dir_before)
            e = mkdir(d, default_dir_mode);
        else if (kind == list_file)
            e = move ? move_file(entry, d) : copy_file(entry, d);
        else if (move)
            e = delete_directory(entry, false);
        if (e && !first)
            first = e;
    });
    if (move && !first && !src_sep)
        return delete_directory(src, false);
    return first;
}

// -- File attributes ----------------------------------------------------------------

opcd file_ops::truncate(const token& path, uint64_t size)
{
    int32_t h = os::file_open(zcopy(path).c_str(), os::open_write | os::open_create);
    if (h == os::no_file)
        return ers::io_error;
    bool ok = os::file_set_length(h, size);
    os::file_close(h);
    return ok ? opcd() : ers::failed;
}

opcd file_ops::set_file_times(const token& path, int64_t access, int64_t modification)
{
    int32_t h = os::file_open(zcopy(path).c_str(), os::open_write);
    if (h == os::no_file)
        return ers::io_error;
    bool ok = os::file_set_times(h, access, modification);
    os::file_close(h);
    return ok ? opcd() : ers::failed;
}

uint64_t file_ops::file_size(const token& path)
{
    os::stat_record st;
    if (!os::stat_path(path, st) || !os::is_regular_record(st))
        return 0;
    return static_cast<uint64_t>(st.st_size);
}

bool file_ops::is_writable(const token& path)
{
    return os::can_write(path_algebra::without_trailing_separator(path));
}

bool file_ops::set_writable(const token& path, bool writable)
{
    return os::set_write_permission(path_algebra::without_trailing_separator(path), writable);
}

// -- Walks and temporary names --------------------------------------------------------

int file_ops::list_file_paths(const token& path, const token& extension, uint32_t mode, list_fn fn,
                               void* context)
{
    directory dir;
    if (dir.open(path, "*.*"))
        return 0;
    bool all = extension == token("*");
    bool dotted = extension.is_empty() || extension[0] == '.';
    while (dir.next()) {
        // A link to a directory is listed as a file, so that a walk that
        // removes or moves entries never reaches outside the tree.
        bool file = dir.is_entry_regular() ||
                    (dir.is_entry_subdirectory() && os::is_link(dir.curpath));
        if (file) {
            if (all || extension_matches(dir.current_name(), extension, dotted))
                fn(context, dir.curpath, list_file);
            continue;
        }
        if (mode == 0 || !dir.is_entry_subdirectory())
            continue;
        if (mode & list_dirs_before)
            fn(context, dir.curpath, list_dir_before);
        list_file_paths(dir.curpath, extension, mode, fn, context);
        if (mode & list_dirs_after)
            fn(context, dir.curpath, list_dir_after);
    }
    return 1;
}

charstr file_ops::unique_temp_dir(const token& prefix)
{
    charstr path = get_tmp_dir();
    if (!path_algebra::ends_in_separator(path))
        path << separator;
    int64_t t = os::time_now();
    for (int32_t i = 0; i < 10; ++i) {
        path << prefix << (t + i);
        if (file_kind(path) == 0 && !mkdir(path, default_dir_mode))
            return path;
        // To the attempt's number, not to the base: kept as the library had it.
        path.resize(i);
    }
    return charstr();
}

} // namespace velk
