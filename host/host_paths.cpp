// host_paths: the executable's directory and what lies in it.
#include "host/host_paths.h"

#include "comm/os/module.h"

namespace host {

velk::charstr script_root()
{
    velk::charstr dir;
    velk::token file(velk::os::main_program_file());
    // Flags 12: the directory part with its separator, or empty.
    dir = file.cut_back_at('/', velk::cut_separator_to_returned | velk::cut_empty_if_none);
    return dir;
}

bool default_plugin_path(velk::charstr& out)
{
    out = script_root();
    if (out.is_empty())
        return false;
    out << plugin_file_name;
    return true;
}

} // namespace host
