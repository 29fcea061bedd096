// Test format: the text format with a switch that makes one of its
// operations fail with a given code, so that each failure metastream
// reports can be met on its own, with the text format's position.
#pragma once

#include "tests/comm/metastream/text_format.h"

namespace velk::testing {

class failing_format : public text_format
{
public:
    enum class op {
        none,
        read_separator,        // read of a plain-value separator
        read_array_separator,  // read_array_separator
        write_array_separator, // write_array_separator
        write_value,           // write of a primitive value (no marker)
        write_struct_open,     // write of a structure's opening token
        write_struct_close,    // write of a structure's closing token
        read_key,              // read_key
        write_key,             // write_key
    };

    op fail = op::none;
    opcd code;    // what the failing operation gives
    int skip = 0; // calls of that operation that succeed before it fails

    opcd read(void* p, bstype::kind t) override
    {
        if (t.type() == bstype::kind::type_separator && failing(op::read_separator))
            return code;
        return text_format::read(p, t);
    }

    opcd write(const void* p, bstype::kind t) override
    {
        using K = bstype::kind;
        bool marker = t.has_flags(K::flag_array_begin) || t.has_flags(K::flag_array_end);
        if (!marker && t.type() == K::type_struct_open) {
            if (failing(op::write_struct_open))
                return code;
        } else if (!marker && t.type() == K::type_struct_close) {
            if (failing(op::write_struct_close))
                return code;
        } else if (!marker && t.type() != K::type_separator && failing(op::write_value)) {
            return code;
        }
        return text_format::write(p, t);
    }

    opcd read_array_separator(bstype::kind t) override
    {
        if (failing(op::read_array_separator))
            return code;
        return text_format::read_array_separator(t);
    }

    opcd write_array_separator(bstype::kind t, uint8_t end) override
    {
        if (failing(op::write_array_separator))
            return code;
        return text_format::write_array_separator(t, end);
    }

    opcd read_key(charstr& key, int32_t kmember, const token& expected) override
    {
        if (failing(op::read_key))
            return code;
        return text_format::read_key(key, kmember, expected);
    }

    opcd write_key(const token& key, int32_t kmember) override
    {
        if (failing(op::write_key))
            return code;
        return text_format::write_key(key, kmember);
    }

private:
    bool failing(op o)
    {
        if (o != fail)
            return false;
        if (skip > 0) {
            --skip;
            return false;
        }
        return true;
    }
};

} // namespace velk::testing
