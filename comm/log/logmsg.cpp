#include "comm/log/logmsg.h"

#include <atomic>
#include <cstdio>

namespace velk {

namespace {
std::atomic<log_hook_fn> log_hook{nullptr};
} // namespace

token log_level_prefix(int32_t type)
{
    static const token prefixes[] = {"FATAL: ", "ERROR: ", "WARNING: ", "INFO: ",
                                     "INFO: ", "DEBUG: ", "PERF: "};
    return type >= 0 && type <= 6 ? prefixes[type] : token();
}

void logmsg::release_hook()
{
    charstr line;
    line << log_level_prefix(_type);
    if (!_source.is_empty())
        line << '[' << _source << "] ";
    line << _text;
    bool synchronous = !_text.is_empty() && _text.ptr()[_text.lens() - 1] == '\r';
    if (line.is_empty() || line.ptr()[line.lens() - 1] != '\n')
        line << '\n';
    fwrite(line.ptr(), 1, line.lens(), stdout);
    if (synchronous)
        fflush(stdout);
    delete this;
}

void set_log_hook(log_hook_fn hook) { log_hook = hook; }

log_ref create_fallback_log_msg(int32_t type, const tokenhash& source, const void* context)
{
    if (log_hook_fn hook = log_hook.load())
        return hook(type, source, context);
    return log_ref(new logmsg(type, source));
}

} // namespace velk
