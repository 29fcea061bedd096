// host_paths: the executable's directory and what lies in it.
#include "host/host_paths.h"

#include "comm/dir/directory.h"

namespace host {

velk::charstr script_root()
{
    velk::charstr file = velk::directory::get_program_path();
    velk::token path = file;
    // Flags 12: the directory part with its separator, or empty.
    velk::token dir = path.cut_back_at_group(velk::path_algebra::separators,
                                             velk::cut_separator_to_returned | velk::cut_empty_if_none);
    return velk::charstr(dir);
}

bool default_plugin_path(velk::charstr& out)
{
    velk::charstr dir = script_root();
    if (dir.is_empty())
        return false;
    out = dir;
    out << plugin_file_name;
    if (velk::directory::is_regular(out))
        return true;
    velk::charstr installed = dir;
    installed << installed_plugin_path;
    if (velk::directory::is_regular(installed))
        out.swap(installed);
    return true;
}

} // namespace host
