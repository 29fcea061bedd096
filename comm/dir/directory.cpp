// directory: the search over one directory, and the copies and moves in and
// out of the directory it has open. Every system call goes through
// comm/os/dir.h; the copies and moves are file_ops's own.
#include "comm/dir/directory.h"

namespace velk {

namespace {

// What follows the last system separator; the whole path when it has none.
token file_name_after_separator(const token& path)
{
    const char* p = path.ptre();
    while (p > path.ptr() && p[-1] != path_algebra::separator)
        --p;
    return token(p, path.ptre());
}

} // namespace

// -- Iteration ------------------------------------------------------------

opcd directory::open(const token& path, const token& filter)
{
    close();
    pattern = path;
    if (is_drive_root_form(pattern)) {
        if (!path_algebra::ends_in_separator(pattern))
            pattern << separator;
    } else if (pattern.lens() > 1 && path_algebra::ends_in_separator(pattern)) {
        pattern.resize(-1);
    }

    os::stat_record probe;
    if (!os::stat_path(pattern, probe))
        return ers::failed;

    // Only the system's own separator counts here: "C:\" becomes "C:\/".
    // The doubled separator is harmless to the search.
    if (pattern.is_empty() || pattern.ptr()[pattern.lens() - 1] != separator)
        pattern << separator;
    curpath = pattern;
    baselen = pattern.lens();
    pattern << (filter.is_empty() ? token("*.*") : filter);
    return opcd();
}

const os::stat_record* directory::next()
{
    for (;;) {
        const char* name = nullptr;
        if (handle == os::no_search)
            handle = os::find_first(pattern, name);
        else
            name = os::find_next(handle);
        if (!name)
            return nullptr;

        curpath.resize(static_cast<int32_t>(baselen));
        curpath << name;
        if (os::stat_path(curpath, st))
            return &st;
    }
}

void directory::close()
{
    os::find_close(handle);
    handle = os::no_search;
}

bool directory::is_entry_directory() const { return os::is_directory_record(st); }

bool directory::is_entry_regular() const { return os::is_regular_record(st); }

bool directory::is_entry_subdirectory() const
{
    token name = current_name();
    return is_entry_directory() && !(name == token(".")) && !(name == token(".."));
}

token directory::current_name() const
{
    return curpath.lens() < baselen ? token() : token(curpath.ptr() + baselen, curpath.ptre());
}

// -- Operations on the iterator's directory ----------------------------------------------

opcd directory::copy_file_from(const token& src, const token& name)
{
    curpath.resize(static_cast<int32_t>(baselen));
    curpath << (name.is_empty() ? file_name_after_separator(src) : name);
    return copy_file(src, curpath);
}

opcd directory::copy_file_to(const token& dst, const token& name)
{
    curpath.resize(static_cast<int32_t>(baselen));
    curpath << (name.is_empty() ? file_name_after_separator(dst) : name);
    return copy_file(curpath, dst);
}

opcd directory::move_file_from(const token& src, const token& name)
{
    curpath.resize(static_cast<int32_t>(baselen));
    curpath << (name.is_empty() ? file_name_after_separator(src) : name);
    return move_file(src, curpath);
}

opcd directory::move_file_to(const token& dst, const token& name)
{
    curpath.resize(static_cast<int32_t>(baselen));
    curpath << (name.is_empty() ? file_name_after_separator(dst) : name);
    return move_file(curpath, dst);
}

opcd directory::copy_current_file_to(const token& dst)
{
    return copy_file(curpath, dst);
}

opcd directory::move_current_file_to(const token& dst)
{
    return move_file(curpath, dst);
}

} // namespace velk
