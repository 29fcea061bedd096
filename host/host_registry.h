// host_registry: the reference host's side of the interface registry.
//
// The host owns the process's registry: it exports iglo_registrar (and
// sglo_registrar) from its executable, so that every module it loads finds
// the same registry and the same singletons. Before it loads a module it
// gives the registry its root path and its hooks.
#pragma once

#include "comm/token.h"

namespace host {

// Sets the registry's root path (the first call's path stands) and the
// host's hooks: log lines of all modules go to the host's logger, which
// writes them to standard error on its writer thread, and include paths
// are accepted only for script files. Throws velk::exception when the
// executable exports no registry, std::bad_alloc.
void setup_registry(const velk::token& root);

// Waits until the host's logger has written every line (at most 3 s). Call
// it before a module is unloaded, whose messages may still be queued, and
// before the program ends.
void flush_log();

// The host's verdict on an include path below the root: true for a file
// whose name ends in ".js" or ".lua".
bool accept_include_path(const velk::token& relative_path);

} // namespace host
