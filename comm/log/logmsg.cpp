#include "comm/log/logmsg.h"

#include <atomic>
#include <cstdio>

namespace velk {

namespace {
std::atomic<log_hook_fn> log_hook{nullptr};
} // namespace

logmsg& logmsg::operator<<(int64_t v)
{
    _text += std::to_string(v);
    return *this;
}

logmsg& logmsg::operator<<(uint64_t v)
{
    _text += std::to_string(v);
    return *this;
}

token log_level_prefix(int32_t type)
{
    static const token prefixes[] = {"FATAL: ", "ERROR: ", "WARNING: ", "INFO: ",
                                     "INFO: ", "DEBUG: ", "PERF: "};
    return type >= 0 && type <= 6 ? prefixes[type] : token();
}

void logmsg::release_hook()
{
    token prefix = log_level_prefix(_type);
    std::string line(prefix.begin(), prefix.end());
    if (!_source.is_empty())
        line.append("[").append(_source.ptr(), _source.lens()).append("] ");
    line += _text;
    if (line.empty() || line.back() != '\n')
        line += '\n';
    fwrite(line.data(), 1, line.size(), stdout);
    if (_text.size() && _text.back() == '\r')
        fflush(stdout);
    delete this;
}

void set_log_hook(log_hook_fn hook) { log_hook = hook; }

log_ref create_log_msg(int32_t type, const tokenhash& source, const void* context)
{
    if (log_hook_fn hook = log_hook.load())
        return hook(type, source, context);
    return log_ref(new logmsg(type, source));
}

} // namespace velk
