// host_paths: the places the reference host works with: where its plug-in
// lies, and the root below which scripts may include files. Both follow
// from the executable's own file, whatever name it was started by.
#pragma once

#include "comm/charstr.h"

namespace host {

#if defined(_WIN32)
// The file name of the plug-in, looked for next to the host's executable.
inline constexpr char plugin_file_name[] = "hostprobe_plugin.dll";
// Where an installed host finds it, from the executable's directory.
inline constexpr char installed_plugin_path[] = "../lib/hostprobe/hostprobe_plugin.dll";
#else
// The file name of the plug-in, looked for next to the host's executable.
inline constexpr char plugin_file_name[] = "hostprobe_plugin.so";
// Where an installed host finds it, from the executable's directory
// (bin/hostprobe and lib/hostprobe/hostprobe_plugin.so under one prefix).
inline constexpr char installed_plugin_path[] = "../lib/hostprobe/hostprobe_plugin.so";
#endif

// The path of the plug-in: next to the running executable, as a build tree
// has it, else where an installation puts it; the first of the two when
// neither file exists, so that the error names it. False when the
// executable's own path can't be told. Throws std::bad_alloc.
bool default_plugin_path(velk::charstr& out);

// The root of include paths: the directory of the running executable, with
// its trailing separator, so that the scripts that come with the host lie
// below it. Empty when the executable's path can't be told. Throws
// std::bad_alloc.
velk::charstr script_root();

} // namespace host
