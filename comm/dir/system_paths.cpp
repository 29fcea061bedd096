// system_paths: each place asked of the system through comm/os/dir.h or
// comm/os/module.h, in buffers that grow from the size the library was first
// written for.
#include "comm/dir/system_paths.h"

#include "comm/os/dir.h"
#include "comm/os/module.h"

#include <initializer_list>

namespace velk {

namespace {

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

charstr system_paths::get_cwd()
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

charstr system_paths::get_program_path()
{
    charstr file;
    program_file(file);
    compact_path(file, 0);
    return file;
}

charstr system_paths::get_tmp_dir()
{
    charstr dir;
    os::temp_dir(dir);
    return dir;
}

charstr system_paths::home_dir()
{
    charstr dir;
    if (os::user_profile_dir(dir) && !path_algebra::ends_in_separator(dir))
        dir << separator;
    return dir;
}

bool system_paths::get_module_path(uint64_t handle, charstr& dst, bool append)
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

bool system_paths::get_module_name(uint64_t handle, charstr& dst, bool append)
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

uint64_t system_paths::module_of_address(const void* addr)
{
    return os::module_handle_of(addr);
}

uint64_t system_paths::module_of_address(const void* addr, charstr& path)
{
    uint64_t handle = os::module_handle_of(addr);
    if (handle)
        get_module_path(handle, path, false);
    else
        path.reset();
    return handle;
}

} // namespace velk
