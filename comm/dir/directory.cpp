// directory: the search over one directory, the probes that ask the system
// about one path, and the places the system names for the program and the
// user. Every system call goes through comm/os/dir.h or comm/os/module.h.
#include "comm/dir/directory.h"

#include "comm/os/module.h"

#include <initializer_list>

namespace velk {

namespace {

// "C:" or "C:/": a drive root, in the forms that name the same directory.
bool is_drive_root_form(const token& path)
{
    uint32_t n = path.lens();
    return (n == 2 || n == 3) && path[1] == ':';
}

// The largest path the system the library was first written for handles
// (MAX_PATH, terminator included); buffers start there.
constexpr uint32_t max_path = 260;
// The program's buffer doubles only while under this size: 260, 520, 1040.
// A longer name comes back cut to 1040 bytes, as the library always did.
constexpr uint32_t program_path_limit = 1024;

// The program's file, uncompacted; the buffer grows until the name fits with
// a byte to spare, since a full buffer may hold a cut name.
void program_file(charstr& out)
{
    uint32_t size = max_path;
    uint32_t n = 0;
    for (;;) {
        n = os::program_file_name(out.alloc_buf(size), size);
        if (n < size || size >= program_path_limit)
            break;
        size *= 2;
    }
    out.resize(static_cast<int32_t>(n));
}

// Asking about an address of the program gives the name it was started by,
// not its file: the program is named by its file instead.
void module_file(uint64_t handle, charstr& out)
{
    if (handle == 0 || handle == os::main_program_handle()) {
        program_file(out);
        return;
    }
    out = token(os::module_file_of(reinterpret_cast<const void*>(handle)));
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

// -- File probes ----------------------------------------------------------

int directory::file_kind(const token& path)
{
    os::stat_record probe;
    if (!os::stat_path(path_algebra::without_trailing_separator(path), probe))
        return 0;
    return os::is_directory_record(probe) || os::is_device_record(probe) ? 2 : 1;
}

bool directory::is_regular(const token& path)
{
    os::stat_record probe;
    return os::stat_path(path, probe) && !os::is_directory_record(probe) && !os::is_device_record(probe);
}

bool directory::is_directory(const token& path)
{
    os::stat_record probe;
    if (is_drive_root_form(path) && !path_algebra::ends_in_separator(path)) {
        charstr root(path);
        root << separator;
        return os::stat_path(root, probe) && os::is_directory_record(probe);
    }
    return os::stat_path(path_algebra::without_trailing_separator(path), probe) && os::is_directory_record(probe);
}

bool directory::stat(const token& path, os::stat_record& out)
{
    return os::stat_path(path_algebra::without_trailing_separator(path), out);
}

int directory::chdir(const token& path)
{
    return os::change_dir(path_algebra::without_trailing_separator(path));
}

// -- System locations -----------------------------------------------------

charstr directory::get_cwd()
{
    charstr dir;
    for (uint32_t size : {max_path, 2 * max_path}) {
        if (os::current_dir(dir.alloc_buf(size), size)) {
            dir.correct_length();
            if (!dir.is_empty() && !path_algebra::ends_in_separator(dir))
                dir << separator;
            return dir;
        }
    }
    return charstr();
}

charstr directory::get_program_path()
{
    charstr file;
    program_file(file);
    compact_path(file, 0);
    return file;
}

charstr directory::get_tmp_dir()
{
    charstr dir;
    os::temp_dir(dir);
    return dir;
}

charstr directory::home_dir()
{
    charstr dir;
    if (os::user_profile_dir(dir) && !path_algebra::ends_in_separator(dir))
        dir << separator;
    return dir;
}

bool directory::get_module_path(uint64_t handle, charstr& dst, bool append)
{
    charstr file;
    module_file(handle, file);
    bool found = !file.is_empty();
    if (append)
        dst << file;
    else
        dst.swap(file);
    return found;
}

bool directory::get_module_name(uint64_t handle, charstr& dst, bool append)
{
    uint32_t old = append ? dst.lens() : 0;
    if (!get_module_path(handle, dst, append))
        return false;
    token added(dst.ptr() + old, dst.ptre());
    token name = added.cut_back_at_group(separators, cut_drop_separator | cut_return_right);
    uint32_t folders = static_cast<uint32_t>(name.ptr() - (dst.ptr() + old));
    if (folders)
        dst.del(static_cast<int32_t>(old), folders);
    return true;
}

uint64_t directory::module_of_address(const void* addr)
{
    return os::module_handle_of(addr);
}

uint64_t directory::module_of_address(const void* addr, charstr& path)
{
    uint64_t handle = os::module_handle_of(addr);
    if (handle)
        get_module_path(handle, path, false);
    else
        path.reset();
    return handle;
}

} // namespace velk
