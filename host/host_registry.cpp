// host_registry: the hooks that the reference host gives the registry.
#include "host/host_registry.h"

#include "comm/log/logger.h"
#include "interface/registrar.h"

#include <atomic>

namespace host {

namespace {

// The host's loggers, one per console stream, made on first use. Every
// module's log lines come to the chosen one through the registry's logger
// hook and are written on the writer thread: a command's lines to standard
// error, so that standard output carries its results alone; a script's
// lines to standard output, where they are its results.
velk::logger* logger_on(int32_t stream)
{
    static velk::stdoutlogger out;
    static velk::stdoutlogger err;
    static const bool streams_set = (err.set_console(2), true);
    (void)streams_set;
    return stream == 2 ? &err : &out;
}

std::atomic<int32_t> chosen_stream{2};

velk::logger* host_logger() { return logger_on(chosen_stream.load(std::memory_order_relaxed)); }

bool ends_with(const velk::token& t, const velk::token& suffix)
{
    return t.lens() >= suffix.lens() && velk::token(t.ptre() - suffix.lens(), suffix.lens()) == suffix;
}

} // namespace

bool accept_include_path(const velk::token& relative_path)
{
    return ends_with(relative_path, ".js") || ends_with(relative_path, ".lua");
}

void setup_registry(const velk::token& root, log_target lines)
{
    chosen_stream = lines == log_target::standard_output ? 1 : 2;
    velk::setup(root, nullptr, &accept_include_path, &host_logger);
}

// A program that never logged has no writer, and none is started for this.
void flush_log()
{
    if (velk::log_writer* w = velk::log_writer::existing())
        w->flush();
}

} // namespace host
