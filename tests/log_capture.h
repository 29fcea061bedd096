// Test helper: collects the log lines the library makes, instead of writing them.
#pragma once

#include "comm/log/logmsg.h"

#include <string>
#include <vector>

namespace velk::testing {

class log_capture
{
public:
    log_capture() { set_log_hook(&make); lines().clear(); }
    ~log_capture() { set_log_hook(nullptr); }

    static std::vector<std::string>& lines()
    {
        static std::vector<std::string> all;
        return all;
    }

private:
    class captured : public logmsg
    {
    public:
        using logmsg::logmsg;

    protected:
        void release_hook() override
        {
            lines().emplace_back(text().ptr() ? text().ptr() : "", text().lens());
            delete this;
        }
    };

    static log_ref make(int32_t type, const tokenhash& source, const void*)
    {
        return log_ref(new captured(type, source));
    }
};

} // namespace velk::testing
