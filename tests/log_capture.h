// Test helper: collects the log lines the library makes, instead of writing them.
//
// Lines may come from any thread. With echo, each line is also written to
// standard error at once, for death tests that read what a dying process
// logged.
#pragma once

#include "comm/log/logmsg.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace velk::testing {

class log_capture
{
public:
    explicit log_capture(bool echo = false)
    {
        echo_flag() = echo;
        set_log_hook(&make);
        std::lock_guard<std::mutex> g(mutex());
        all().clear();
    }
    ~log_capture() { set_log_hook(nullptr); }

    // The lines so far, oldest first. Read it while no other thread logs.
    static const std::vector<std::string>& lines() { return all(); }

private:
    static std::vector<std::string>& all()
    {
        static std::vector<std::string> v;
        return v;
    }
    static std::mutex& mutex()
    {
        static std::mutex m;
        return m;
    }
    static bool& echo_flag()
    {
        static bool echo = false;
        return echo;
    }

    class captured : public logmsg
    {
    public:
        using logmsg::logmsg;

    protected:
        void release_hook() override
        {
            std::string line(text().ptr() ? text().ptr() : "", text().lens());
            if (echo_flag()) {
                fprintf(stderr, "%s\n", line.c_str());
                fflush(stderr);
            }
            {
                std::lock_guard<std::mutex> g(mutex());
                all().push_back(line);
            }
            delete this;
        }
    };

    static log_ref make(int32_t type, const tokenhash& source, const void*)
    {
        return log_ref(new captured(type, source));
    }
};

} // namespace velk::testing
