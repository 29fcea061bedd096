// Test helper: collects the log lines the library makes, instead of writing them.
//
// capture_logger is a logger whose delivery records the line on the
// composer's thread instead of queueing it for the writer. log_capture
// makes one the module's own logger for its lifetime; a host hook can hand
// out messages of another one. Lines may come from any thread. With echo,
// each line is also written to standard error at once, for death tests that
// read what a dying process logged.
#pragma once

#include "comm/log/logger.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace velk::testing {

// The text of a message without the level's prefix and "[source] ".
inline std::string log_body(const logmsg& m)
{
    const charstr& t = m.text();
    std::string text(t.ptr() ? t.ptr() : "", t.lens());
    token prefix = log_level_prefix(m.type());
    size_t at = 0;
    std::string p(prefix.ptr() ? prefix.ptr() : "", prefix.lens());
    if (text.compare(0, p.size(), p) == 0)
        at = p.size();
    if (!m.source().is_empty()) {
        std::string s = "[" + std::string(m.source().ptr(), m.source().lens()) + "] ";
        if (text.compare(at, s.size(), s) == 0)
            at += s.size();
    }
    return text.substr(at);
}

struct captured_line
{
    int32_t type;
    std::string source;
    std::string text; // the whole line: prefix, "[source] " and body
    std::string body; // the text without prefix and source
};

class capture_logger : public logger
{
public:
    capture_logger() : logger(false, false) {}

    void enqueue(log_ref& msg) override
    {
        const charstr& t = msg->text();
        captured_line line{msg->type(), std::string(msg->source().ptr() ? msg->source().ptr() : "", msg->source().lens()),
                           std::string(t.ptr() ? t.ptr() : "", t.lens()), {}};
        line.body = log_body(*msg);
        if (echo) {
            fprintf(stderr, "%s\n", line.text.c_str());
            fflush(stderr);
        }
        std::lock_guard<std::mutex> g(_mutex);
        _lines.push_back(std::move(line));
    }

    // The lines so far, oldest first. Read them while no other thread logs.
    const std::vector<captured_line>& lines() const { return _lines; }
    void clear()
    {
        std::lock_guard<std::mutex> g(_mutex);
        _lines.clear();
    }

    bool echo = false;

private:
    std::mutex _mutex;
    std::vector<captured_line> _lines;
};

class log_capture
{
public:
    explicit log_capture(bool echo = false)
    {
        the_logger().echo = echo;
        the_logger().clear();
        refresh().clear();
        set_module_logger(&the_logger());
    }
    ~log_capture() { set_module_logger(nullptr); }

    // The bodies of the lines so far (the text without the level's prefix
    // and the source), oldest first. Read it while no other thread logs.
    static const std::vector<std::string>& lines()
    {
        std::vector<std::string>& out = refresh();
        const std::vector<captured_line>& all = the_logger().lines();
        for (size_t i = out.size(); i < all.size(); ++i)
            out.push_back(all[i].body);
        return out;
    }

    // The whole lines so far.
    static const std::vector<captured_line>& full_lines() { return the_logger().lines(); }

    static capture_logger& the_logger()
    {
        static capture_logger l;
        return l;
    }

private:
    static std::vector<std::string>& refresh()
    {
        static std::vector<std::string> bodies;
        return bodies;
    }
};

} // namespace velk::testing
