// Test format: a small text form of metastream values, read member by member
// in the order the input lists them.
//
//   {name="box",origin={x=1,y=2},weights=[3:1,2,3],tags=["a","b"]}
//
// A structure is braces around key=value pairs separated by commas; an array
// is brackets, with an optional count and colon; a char array is a quoted
// string (\" and \\ escaped); a lone char is 'c'; numbers are decimal, booleans
// true and false. Unlike a format that looks members up by name, read_key
// hands metastream whatever member comes next, so out-of-order input drives
// the cache. fmtstream_err appends " at offset N", the read position.
//
// With shuffle set, each structure's members are written in an order drawn
// from it, so that reading the text back takes the cache at every depth.
#pragma once

#include "comm/metastream/metastream.h"
#include "comm/opcd.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace velk::testing {

class text_format : public fmtstream
{
public:
    // The run being served: a block of numbers on input (read_raw) takes
    // its element's size from the variable being read.
    metastream* meta = nullptr;
    std::string in;  // input text
    size_t pos = 0;  // read position in it
    charstr out;     // written text

    void set_input(const std::string& text)
    {
        in = text;
        pos = 0;
    }
    std::string output() const { return std::string(out.ptr() ? out.ptr() : "", out.lens()); }

    // Writing: the order of each structure's members is drawn from this
    // generator when set; null keeps them in order.
    std::mt19937* shuffle = nullptr;
    // Structures written with their members out of order, by depth (0: the root).
    std::vector<uint64_t> reordered;

    // -- Writing --------------------------------------------------------------

    opcd write_key(const token& key, int32_t kmember) override
    {
        if (shuffle && !open_structs.empty())
            open_structs.back().members.push_back(out.lens());
        if (kmember > 0)
            out << ',';
        out << key << '=';
        return {};
    }

    opcd write(const void* p, bstype::kind t) override
    {
        using K = bstype::kind;
        if (t.has_flags(K::flag_array_begin)) {
            write_elem = t;
            raw_index = 0;
            if (is_text(t))
                out << '"';
            else {
                out << '[';
                uint64_t n = load(p, t.size());
                if (n != UINT64_MAX)
                    out << n << ':';
            }
            return {};
        }
        if (t.has_flags(K::flag_array_end)) {
            out << (is_text(t) ? '"' : ']');
            return {};
        }
        switch (t.type()) {
        case K::type_struct_open:
            out << '{';
            if (shuffle)
                open_structs.push_back({out.lens(), {}});
            return {};
        case K::type_struct_close:
            if (shuffle && !open_structs.empty())
                shuffle_members();
            out << '}';
            return {};
        case K::type_separator: out << ';'; return {};
        default: return write_value(p, t);
        }
    }

    opcd write_array_separator(bstype::kind t, uint8_t end) override
    {
        if (!end && t.has_flags(bstype::kind::flag_next_element))
            out << ',';
        return {};
    }

    opcd write_array_content(binstream_container_base& c, uint64_t& count, void* m) override
    {
        uint64_t n = c.count();
        bstype::kind k = c.type.with(c.type.size(), bstype::kind::flag_element);
        if (is_text(c.type)) {
            const char* p = static_cast<const char*>(c.extract(n));
            for (uint64_t i = 0; i < n; ++i)
                put_char(p[i]);
            count = n;
            return {};
        }
        for (count = 0; count < n; ++count) {
            const void* el = c.extract(1);
            if (!el)
                break;
            write_array_separator(k, 0);
            if (!k.is_primitive())
                c.stream_out(m, const_cast<void*>(el), &c);
            else if (opcd e = write_value(el, k))
                return e;
            k.set_flags(bstype::kind::flag_element | bstype::kind::flag_next_element);
        }
        return {};
    }

    // The bytes of an array's elements as one block, of the array begun last.
    opcd write_raw(const void* p, uint64_t& len) override
    {
        auto* b = static_cast<const char*>(p);
        bstype::kind elem = write_elem;
        if (!is_text(elem)) {
            if (!meta || !meta->cur_var)
                return ers::not_implemented;
            elem = meta->cur_var->desc->stream_desc->children[0].desc->kind;
        }
        uint64_t size = is_text(elem) ? 1 : elem.size();
        for (uint64_t i = 0; i + size <= len; i += size) {
            if (is_text(elem))
                put_char(b[i]);
            else {
                if (raw_index++)
                    out << ',';
                write_value(b + i, elem);
            }
        }
        len = 0;
        return {};
    }

    opcd reset_write() override
    {
        out.reset();
        open_structs.clear();
        return fmtstream::reset_write();
    }

    // -- Reading --------------------------------------------------------------

    opcd read_key(charstr& key, int32_t kmember, const token& expected) override
    {
        key.reset();
        skip_space();
        if (at_end() || in[pos] == '}')
            return ers::no_more;
        if (in[pos] == ',')
            ++pos;
        skip_space();
        size_t b = pos;
        while (!at_end() && (isalnum(uint8_t(in[pos])) || in[pos] == '_'))
            ++pos;
        if (b == pos || at_end() || in[pos] != '=')
            return ers::syntax;
        key = token(in.data() + b, pos - b);
        ++pos;
        return {};
    }

    opcd read(void* p, bstype::kind t) override
    {
        using K = bstype::kind;
        skip_space();
        if (t.has_flags(K::flag_array_begin))
            return read_array_begin(p, t);
        if (t.has_flags(K::flag_array_end))
            return expect(is_text(t) ? '"' : ']', ers::syntax);
        switch (t.type()) {
        case K::type_struct_open: return expect('{', ers::syntax_expected_object);
        case K::type_struct_close: return expect('}', ers::syntax);
        case K::type_separator: return expect(';', ers::syntax);
        default: return read_value(p, t);
        }
    }

    opcd read_array_separator(bstype::kind t) override
    {
        skip_space();
        if (at_end() || in[pos] == ']')
            return ers::no_more;
        if (t.has_flags(bstype::kind::flag_next_element))
            return expect(',', ers::syntax);
        return {};
    }

    opcd read_array_content(binstream_container_base& c, uint64_t n, uint64_t& count, void* m) override
    {
        bstype::kind k = c.type.with(c.type.size(), bstype::kind::flag_element);
        count = 0;
        if (is_text(c.type)) {
            void* to = c.insert(n);
            if (!to && n)
                return ers::out_of_memory;
            uint64_t len = n;
            opcd e = read_raw(to, len);
            if (!e)
                count = n;
            return e;
        }
        for (; count < n; ++count) {
            if (read_array_separator(k))
                break;
            void* el = c.insert(1);
            if (!el)
                return ers::out_of_memory;
            if (!k.is_primitive())
                c.stream_in(m, el, &c);
            else if (opcd e = read_value(el, k))
                return e;
            k.set_flags(bstype::kind::flag_element | bstype::kind::flag_next_element);
        }
        return {};
    }

    // The elements of the array begun last, as bytes: characters of a
    // string, or numbers with their commas.
    opcd read_raw(void* p, uint64_t& len) override
    {
        auto* b = static_cast<char*>(p);
        bstype::kind elem = read_elem;
        if (!is_text(elem)) {
            if (!meta || !meta->cur_var)
                return ers::not_implemented;
            elem = meta->cur_var->desc->stream_desc->children[0].desc->kind;
        }
        uint64_t size = is_text(elem) ? 1 : elem.size();
        for (uint64_t i = 0; i + size <= len; i += size) {
            if (is_text(elem)) {
                if (at_end() || in[pos] == '"')
                    return ers::no_more;
                if (in[pos] == '\\')
                    ++pos;
                b[i] = in[pos++];
            } else {
                skip_space();
                if (raw_index++ && expect(',', ers::syntax))
                    return ers::syntax;
                if (opcd e = read_value(b + i, elem))
                    return e;
            }
        }
        len = 0;
        return {};
    }

    opcd reset_read() override
    {
        pos = 0;
        return {};
    }

    token fmtstream_name() override { return "text_format"; }
    void fmtstream_err(charstr& err, bool add) override
    {
        if (add)
            err << " at offset " << uint64_t(pos);
    }
    void acknowledge(bool eat) override {}
    void reserved_f() override {}
    void flush() override {}

private:
    static bool is_text(bstype::kind t)
    {
        return t.type() == bstype::kind::type_char || t.type() == bstype::kind::type_key;
    }
    bool at_end() const { return pos >= in.size(); }
    void skip_space()
    {
        while (!at_end() && isspace(uint8_t(in[pos])))
            ++pos;
    }
    opcd expect(char c, opcd fail)
    {
        skip_space();
        if (at_end() || in[pos] != c)
            return fail;
        ++pos;
        return {};
    }
    void put_char(char c)
    {
        if (c == '"' || c == '\\' || c == '\'')
            out << '\\';
        out.append(token(&c, &c + 1)); // append(char) ignores a zero byte, which a string may hold
    }

    static uint64_t load(const void* p, uint32_t size)
    {
        switch (size) {
        case 1: return *static_cast<const uint8_t*>(p);
        case 2: { uint16_t v; memcpy(&v, p, 2); return v; }
        case 4: { uint32_t v; memcpy(&v, p, 4); return v == UINT32_MAX ? UINT64_MAX : v; }
        default: { uint64_t v; memcpy(&v, p, 8); return v; }
        }
    }
    static void store(void* p, uint32_t size, uint64_t v)
    {
        switch (size) {
        case 1: { uint8_t x = uint8_t(v); memcpy(p, &x, 1); break; }
        case 2: { uint16_t x = uint16_t(v); memcpy(p, &x, 2); break; }
        case 4: { uint32_t x = uint32_t(v); memcpy(p, &x, 4); break; }
        default: memcpy(p, &v, 8); break;
        }
    }

    opcd write_value(const void* p, bstype::kind t)
    {
        using K = bstype::kind;
        char buf[40];
        switch (t.type()) {
        case K::type_int: {
            int64_t v = t.size() == 1 ? *static_cast<const int8_t*>(p)
                      : t.size() == 2 ? int64_t(int16_t(load(p, 2)))
                      : t.size() == 4 ? int64_t(int32_t(uint32_t(*static_cast<const uint32_t*>(p))))
                                      : int64_t(load(p, 8));
            out << v;
            return {};
        }
        case K::type_uint: {
            uint64_t v = t.size() == 4 ? *static_cast<const uint32_t*>(p) : load(p, t.size());
            out << v;
            return {};
        }
        case K::type_float:
            if (t.size() == 4)
                snprintf(buf, sizeof buf, "%.9g", double(*static_cast<const float*>(p)));
            else
                snprintf(buf, sizeof buf, "%.17g", *static_cast<const double*>(p));
            out << static_cast<const char*>(buf);
            return {};
        case K::type_bool: out << (*static_cast<const uint8_t*>(p) ? "true" : "false"); return {};
        case K::type_char:
        case K::type_key:
            out << '\'';
            put_char(*static_cast<const char*>(p));
            out << '\'';
            return {};
        default: return ers::syntax_unknown_type;
        }
    }

    opcd read_value(void* p, bstype::kind t)
    {
        using K = bstype::kind;
        skip_space();
        const char* s = in.c_str() + pos;
        char* e = nullptr;
        switch (t.type()) {
        case K::type_int: {
            long long v = strtoll(s, &e, 10);
            if (e == s)
                return ers::syntax_expected_number;
            store(p, t.size(), uint64_t(v));
            break;
        }
        case K::type_uint: {
            if (*s == '-')
                return ers::syntax_expected_number;
            unsigned long long v = strtoull(s, &e, 10);
            if (e == s)
                return ers::syntax_expected_number;
            store(p, t.size(), v);
            break;
        }
        case K::type_float: {
            double v = strtod(s, &e);
            if (e == s)
                return ers::syntax_expected_number;
            if (t.size() == 4) {
                float f = strtof(s, &e);
                memcpy(p, &f, 4);
            } else {
                memcpy(p, &v, 8);
            }
            break;
        }
        case K::type_bool:
            if (!strncmp(s, "true", 4)) {
                *static_cast<uint8_t*>(p) = 1;
                e = const_cast<char*>(s) + 4;
            } else if (!strncmp(s, "false", 5)) {
                *static_cast<uint8_t*>(p) = 0;
                e = const_cast<char*>(s) + 5;
            } else {
                return ers::syntax_expected_boolean;
            }
            break;
        case K::type_char:
        case K::type_key: {
            if (s[0] != '\'')
                return ers::syntax_expected_string;
            size_t at = 1;
            if (s[at] == '\\')
                ++at;
            if (!s[at] || s[at + 1] != '\'')
                return ers::syntax_expected_string;
            *static_cast<char*>(p) = s[at];
            e = const_cast<char*>(s) + at + 2;
            break;
        }
        default: return ers::syntax_unknown_type;
        }
        pos += e - s;
        return {};
    }

    // '"' and the length of the string up to its closing quote; or '[' and
    // an optional "count:".
    opcd read_array_begin(void* p, bstype::kind t)
    {
        read_elem = t;
        raw_index = 0;
        if (is_text(t)) {
            if (opcd e = expect('"', ers::syntax_expected_string))
                return e;
            uint64_t n = 0;
            for (size_t i = pos; i < in.size() && in[i] != '"'; ++i, ++n)
                if (in[i] == '\\')
                    ++i;
            store(p, t.size(), n);
            return {};
        }
        if (opcd e = expect('[', ers::syntax_expected_array))
            return e;
        size_t i = pos;
        while (i < in.size() && isdigit(uint8_t(in[i])))
            ++i;
        if (i > pos && i < in.size() && in[i] == ':') {
            store(p, t.size(), strtoull(in.c_str() + pos, nullptr, 10));
            pos = i + 1;
        } else {
            store(p, t.size(), UINT64_MAX);
        }
        return {};
    }

    // A structure being written: where its members begin in out.
    struct open_struct
    {
        uint32_t start;                // just past '{'
        std::vector<uint32_t> members; // each member's start, its comma included
    };
    std::vector<open_struct> open_structs;

    // Puts the members of the innermost open structure, whose text is whole
    // (nested structures already shuffled), in an order drawn from shuffle.
    void shuffle_members()
    {
        open_struct s = std::move(open_structs.back());
        open_structs.pop_back();
        size_t n = s.members.size();
        std::vector<std::string> texts;
        for (size_t i = 0; i < n; ++i) {
            uint32_t b = s.members[i] + (i ? 1 : 0); // past the comma
            uint32_t e = i + 1 < n ? s.members[i + 1] : out.lens();
            texts.emplace_back(out.ptr() + b, e - b);
        }
        std::vector<size_t> order(n);
        for (size_t i = 0; i < n; ++i)
            order[i] = i;
        for (size_t i = n; i > 1; --i)
            std::swap(order[i - 1], order[(*shuffle)() % i]);
        bool moved = false;
        for (size_t i = 0; i < n; ++i)
            moved |= order[i] != i;
        if (moved) {
            size_t depth = open_structs.size();
            if (reordered.size() <= depth)
                reordered.resize(depth + 1);
            ++reordered[depth];
        }
        out.resize(int32_t(s.start));
        for (size_t i = 0; i < n; ++i) {
            if (i)
                out << ',';
            out << token(texts[order[i]].data(), texts[order[i]].size());
        }
    }

    bstype::kind write_elem;
    bstype::kind read_elem;
    uint64_t raw_index = 0;
};

// The text form of v, written by a metastream through the test format.
template <class T>
std::string write_text(const T& v)
{
    text_format f;
    metastream m;
    m.fmt_write = &f;
    m.write_run(v);
    return f.output();
}

} // namespace velk::testing
