// host_registry: the reference host's side of the interface registry.
//
// The host owns the process's registry: it exports iglo_registrar (and
// sglo_registrar) from its executable, so that every module it loads finds
// the same registry and the same singletons. Before it loads a module it
// gives the registry its root path and its hooks.
#pragma once

#include "comm/token.h"

namespace host {

// Where the log lines of all modules go: standard error, beside a command's
// results, or standard output, where a script's lines are its results.
enum class log_target { standard_error, standard_output };

// Sets the registry's root path (the first call's path stands) and the
// host's hooks: the host's logger takes the log lines of all modules and
// writes them to lines on its writer thread, and include paths are
// accepted only for script files. Throws velk::exception when the
// executable exports no registry, std::bad_alloc.
void setup_registry(const velk::token& root, log_target lines = log_target::standard_error);

// Waits until the host's logger has written every line made so far (at
// most 3 s). The host calls it before it unloads a module, whose messages
// may still be queued, and before it exits.
void flush_log();

// The host's verdict on an include path below the root: true for a file
// whose name ends in ".js" or ".lua".
bool accept_include_path(const velk::token& relative_path);

} // namespace host
