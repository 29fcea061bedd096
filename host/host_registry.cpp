// host_registry: the hooks that the reference host gives the registry.
#include "host/host_registry.h"

#include "comm/log/logmsg.h"
#include "interface/registrar.h"

#include <cstdio>

namespace host {

namespace {

// A log line of any module, written to standard error at its last release:
// standard output carries the commands' results alone.
class stderr_logmsg : public velk::logmsg
{
public:
    using logmsg::logmsg;

protected:
    void release_hook() override
    {
        velk::charstr line;
        line << "hostprobe: " << velk::log_level_prefix(type());
        if (!source().is_empty())
            line << '[' << source() << "] ";
        line << text() << '\n';
        fwrite(line.ptr(), 1, line.lens(), stderr);
        delete this;
    }
};

void log_to_stderr(velk::log_ref& out, int32_t type, const velk::tokenhash& source, const void*)
{
    out = new stderr_logmsg(type, source);
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

void setup_registry(const velk::token& root)
{
    // No logger of the host's own yet: the modules' log lines come through the hook.
    velk::setup(root, &log_to_stderr, &accept_include_path, nullptr);
}

} // namespace host
