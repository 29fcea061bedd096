// host_registry: the hooks that the reference host gives the registry.
#include "host/host_registry.h"

#include "comm/log/logmsg.h"
#include "interface/registrar.h"

#include <cstdio>

namespace host {

namespace {

// A log line of any module, written at its last release to its stream:
// lead, the level's prefix, "[source] " and the text. The commands' lines
// go to standard error with "hostprobe: " as lead, so that standard output
// carries their results alone; a script's lines are its results and go to
// standard output as the library's console writes them.
class host_logmsg : public velk::logmsg
{
public:
    host_logmsg(int32_t type, const velk::tokenhash& source, FILE* to, const char* lead)
        : logmsg(type, source), _to(to), _lead(lead)
    {
    }

protected:
    void release_hook() override
    {
        velk::charstr line;
        line << _lead << velk::log_level_prefix(type());
        if (!source().is_empty())
            line << '[' << source() << "] ";
        line << text();
        if (line.ptr()[line.lens() - 1] != '\n') // a line that ends in one gets no second
            line << '\n';
        fwrite(line.ptr(), 1, line.lens(), _to);
        delete this;
    }

private:
    FILE* _to;
    const char* _lead;
};

void log_to_stderr(velk::log_ref& out, int32_t type, const velk::tokenhash& source, const void*)
{
    out = new host_logmsg(type, source, stderr, "hostprobe: ");
}

void log_to_stdout(velk::log_ref& out, int32_t type, const velk::tokenhash& source, const void*)
{
    out = new host_logmsg(type, source, stdout, "");
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

void setup_registry(const velk::token& root, log_target lines)
{
    // No logger of the host's own yet: the modules' log lines come through the hook.
    velk::setup(root, lines == log_target::standard_output ? &log_to_stdout : &log_to_stderr,
                &accept_include_path, nullptr);
}

void flush_log()
{
    // The hooks write each line as it is released, through the C runtime's
    // buffers; this empties them. Once the logger with its writer thread
    // makes the lines, this waits for its queue as well.
    fflush(stdout);
    fflush(stderr);
}

} // namespace host
