// host_registry: the hooks that the reference host gives the registry.
#include "host/host_registry.h"

#include "comm/log/logger.h"
#include "interface/registrar.h"

#include <cstdio>

namespace host {

namespace {

// The host's logger, made on first use: every module's log lines come to
// it through the registry's logger hook. Its console is standard error:
// standard output carries the commands' results alone.
velk::logger* host_logger()
{
    static velk::stdoutlogger console;
    static const bool on_stderr = (console.set_console(2), true);
    (void)on_stderr;
    return &console;
}

bool ends_with(const velk::token& t, const velk::token& suffix)
{
    return t.lens() >= suffix.lens() && velk::token(t.ptre() - suffix.lens(), suffix.lens()) == suffix;
}

} // namespace

bool accept_include_path(const velk::token& relative_path)
{
    return ends_with(relative_path, ".js") || ends_with(relative_path, ".lua");
}

// A program that never logged has no writer, and none is started for this.
void flush_log()
{
    if (velk::log_writer* w = velk::log_writer::existing())
        w->flush();
}

void setup_registry(const velk::token& root)
{
    velk::setup(root, nullptr, &accept_include_path, &host_logger);
}

} // namespace host
