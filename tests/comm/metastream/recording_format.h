// Test format that records the calls metastream makes on it, with the kinds.
#pragma once

#include "comm/metastream/fmtstream.h"

#include <cstdio>
#include <string>
#include <vector>

namespace velk::testing {

class recording_format : public fmtstream
{
public:
    struct call
    {
        std::string op;
        uint32_t kind;
    };
    std::vector<call> calls;

    opcd write(const void* p, bstype::kind t) override { return note("write", t); }
    opcd read(void* p, bstype::kind t) override { return note("read", t); }
    opcd write_key(const token& key, int32_t kmember) override { return note("write_key", 0); }
    opcd write_array_content(binstream_container_base& c, uint64_t& count, void* m) override
    {
        count = c.count();
        return note("write_array_content", c.type);
    }
    opcd write_raw(const void* p, uint64_t& len) override
    {
        len = 0;
        return note("write_raw", 0);
    }
    opcd write_array_separator(bstype::kind t, uint8_t end) override { return note("write_array_separator", t); }

    // The operations, one per call, as "op" or "op:kind in hex" when with_kind.
    std::string ops(bool with_kind = false) const
    {
        std::string s;
        for (const call& c : calls) {
            if (!s.empty())
                s += ' ';
            s += c.op;
            if (with_kind) {
                char buf[16];
                snprintf(buf, sizeof buf, ":%X", c.kind);
                s += buf;
            }
        }
        return s;
    }

    token fmtstream_name() override { return "recording_format"; }
    void acknowledge(bool eat) override {}
    void reserved_f() override {}
    void flush() override {}
    opcd reset_write() override { return {}; }

private:
    opcd note(const char* op, uint32_t kind)
    {
        calls.push_back({op, kind});
        return {};
    }
};

} // namespace velk::testing
