// fmtstream_lua_capi: typed values onto and off the Lua stack, and the
// per-thread streamer that the generated method wrappers use.
#include "comm/metastream/fmtstream_lua_capi.h"

#include "comm/commassert.h"
#include "comm/singleton.h"
#include "comm/txtconv.h"

#include <lua.hpp>

#include <cstring>

namespace velk {

using kind = bstype::kind;

namespace {

bool is_string_type(uint8_t y)
{
    return y == kind::type_key || y == kind::type_char || y == kind::type_binary;
}

// An unsigned count of width size (0 meaning 8 bytes); other widths give 0.
uint64_t load_count(const void* p, uint16_t size)
{
    switch (size) {
    case 1: return *static_cast<const uint8_t*>(p);
    case 2: { uint16_t v; memcpy(&v, p, 2); return v; }
    case 4: { uint32_t v; memcpy(&v, p, 4); return v; }
    case 0:
    case 8: { uint64_t v; memcpy(&v, p, 8); return v; }
    default: return 0;
    }
}

// The low size bytes of v (1, 2, 4 or 8; others store nothing).
void store_bytes(void* p, uint16_t size, uint64_t v)
{
    switch (size) {
    case 1: { uint8_t b = uint8_t(v); memcpy(p, &b, 1); break; }
    case 2: { uint16_t b = uint16_t(v); memcpy(p, &b, 2); break; }
    case 4: { uint32_t b = uint32_t(v); memcpy(p, &b, 4); break; }
    case 8: memcpy(p, &v, 8); break;
    default: break;
    }
}

int64_t load_signed(const void* p, uint16_t size)
{
    switch (size) {
    case 1: return *static_cast<const int8_t*>(p);
    case 2: { int16_t v; memcpy(&v, p, 2); return v; }
    case 4: { int32_t v; memcpy(&v, p, 4); return v; }
    default: { int64_t v; memcpy(&v, p, 8); return v; }
    }
}

// A Lua number truncated toward zero to 64 bits signed. Outside that range
// (and for NaN) the result is the most negative value, as the processor's
// own conversion gives it, instead of the language's undefined behaviour.
int64_t truncate64(double d)
{
    if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0))
        return INT64_MIN;
    return static_cast<int64_t>(d);
}

// To unsigned 64 bits: values from 2^63 up lose 2^63 and get the top bit.
uint64_t truncate_u64(double d)
{
    constexpr double two63 = 9223372036854775808.0;
    if (d >= two63)
        return uint64_t(truncate64(d - two63)) | (uint64_t(1) << 63);
    return uint64_t(truncate64(d));
}

void skip_spaces(token& t)
{
    const char* p = t.ptr();
    while (p < t.ptre() && *p == ' ')
        ++p;
    t = token(p, t.ptre());
}

} // namespace

// -- fmtstream_lua_capi: frames --------------------------------------------------

fmtstream_lua_capi::fmtstream_lua_capi()
{
    frames.alloc(32);
    frames.reset();
}

void fmtstream_lua_capi::bind_lua(lua_State* state)
{
    L = state;
    top = lua_gettop(state);
    _absent_nil = false;
}

void fmtstream_lua_capi::push_frame(uint8_t is_object)
{
    frame* f = frames.push();
    f->is_object = is_object;
}

void fmtstream_lua_capi::pop_frame()
{
    frame f;
    frames.pop(f);
}

opcd fmtstream_lua_capi::store_member()
{
    if (!frames.is_empty() && frames.last().is_object)
        lua_settable(L, -3);
    return {};
}

// -- Keys ---------------------------------------------------------------------

opcd fmtstream_lua_capi::write_key(const token& key, int32_t)
{
    lua_pushlstring(L, key.ptr(), key.lens());
    return {};
}

// The stream never iterates a table: it asks for the member the descriptor
// wants, so members the type doesn't know are never seen.
opcd fmtstream_lua_capi::read_key(charstr& key, int32_t, const token& expected)
{
    drop_absent_nil();
    lua_pushlstring(L, expected.ptr(), expected.lens());
    lua_gettable(L, -2);
    if (lua_type(L, -1) == LUA_TNIL) {
        _absent_nil = true;
        return ers::no_more;
    }
    if (expected.is_empty())
        key.reset();
    else
        key = expected;
    return {};
}

// -- Values on writing -------------------------------------------------------

opcd fmtstream_lua_capi::write(const void* p, kind t)
{
    uint8_t y = t.type();
    if (t.has_flags(kind::flag_array_begin)) {
        if (is_string_type(y))
            return {}; // a string is pushed whole by write_array_content
        uint32_t n = uint32_t(load_count(p, t.size()));
        if (n == UINT32_MAX)
            n = 0;
        lua_createtable(L, int(n), 0);
        push_frame(0);
        return {};
    }
    if (t.has_flags(kind::flag_array_end)) {
        if (is_string_type(y))
            return {};
        pop_frame();
        return store_member();
    }
    if (y == kind::type_struct_close) {
        pop_frame();
        return store_member();
    }
    if (y == kind::type_struct_open) {
        lua_createtable(L, 0, 0);
        push_frame(1);
        return {};
    }
    switch (y) {
    case kind::type_compound:
    // Nothing pushed: time and angle can be read from Lua but not written to
    // it, and a member of such a type leaves the stack unbalanced.
    case kind::type_binary:
    case kind::type_errcode:
    case kind::type_time:
    case kind::type_angle:
        break;
    case kind::type_int:
        lua_pushinteger(L, lua_Integer(load_signed(p, t.size())));
        break;
    case kind::type_uint:
        lua_pushinteger(L, lua_Integer(load_count(p, t.size() == 0 ? 8 : t.size())));
        break;
    case kind::type_float:
        if (t.size() == 4) {
            float f;
            memcpy(&f, p, 4);
            lua_pushnumber(L, f);
        } else if (t.size() == 8) {
            double d;
            memcpy(&d, p, 8);
            lua_pushnumber(L, d);
        }
        break;
    case kind::type_bool:
        lua_pushboolean(L, *static_cast<const uint8_t*>(p));
        break;
    case kind::type_char:
        if (!t.has_flags(kind::flag_element))
            lua_pushlstring(L, static_cast<const char*>(p), 1);
        break;
    default:
        return ers::syntax_unknown_type;
    }
    return store_member();
}

// -- Values on reading -------------------------------------------------------

void fmtstream_lua_capi::drop_absent_nil()
{
    if (_absent_nil) {
        lua_settop(L, -2);
        _absent_nil = false;
    }
}

opcd fmtstream_lua_capi::read(void* p, kind t)
{
    drop_absent_nil();
    uint8_t y = t.type();
    if (t.has_flags(kind::flag_array_begin)) {
        if (y == kind::type_binary || y == kind::type_key)
            return {};
        if (y == kind::type_char) {
            size_t len = 0;
            if (!lua_tolstring(L, -1, &len))
                return ers::syntax_expected_string;
            store_bytes(p, t.size(), len);
            return {};
        }
        if (lua_type(L, -1) != LUA_TTABLE)
            return ers::syntax_expected_array;
        push_frame(0);
        store_bytes(p, t.size(), lua_objlen(L, -1));
        return {};
    }
    if (t.has_flags(kind::flag_array_end)) {
        if (y == kind::type_char)
            return {}; // read_array_content popped the string
        // Binary and key arrays take this path too although their begin
        // pushed no frame: the enclosing frame goes, and one value more is
        // popped. Kept as it stands.
        pop_frame();
        lua_settop(L, -2);
        return {};
    }
    if (y == kind::type_struct_close) {
        pop_frame();
        lua_settop(L, -2);
        return {};
    }
    if (y == kind::type_struct_open) {
        if (lua_type(L, -1) != LUA_TTABLE)
            return ers::syntax_expected_object;
        push_frame(1);
        return {};
    }
    if (y == kind::type_compound) {
        lua_settop(L, -2);
        return {};
    }
    if (y == kind::type_key)
        return ers::unavailable; // no pop
    opcd e = read_primitive(p, t);
    lua_settop(L, -2); // popped also when the conversion failed
    return e;
}

opcd fmtstream_lua_capi::read_primitive(void* p, kind t)
{
    uint16_t size = t.size();
    switch (t.type()) {
    case kind::type_binary:
        return {};
    case kind::type_int:
        if (!lua_isnumber(L, -1))
            return ers::syntax_expected_number;
        if (size == 8)
            store_bytes(p, 8, uint64_t(truncate64(lua_tonumber(L, -1))));
        else
            store_bytes(p, size, uint32_t(int32_t(truncate64(lua_tonumber(L, -1)))));
        return {};
    case kind::type_uint:
        if (!lua_isnumber(L, -1))
            return ers::syntax_expected_number;
        if (size == 8)
            store_bytes(p, 8, truncate_u64(lua_tonumber(L, -1)));
        else if (size == 4)
            store_bytes(p, 4, uint64_t(truncate64(lua_tonumber(L, -1))));
        else
            store_bytes(p, size, uint32_t(int32_t(truncate64(lua_tonumber(L, -1)))));
        return {};
    case kind::type_float:
        if (!lua_isnumber(L, -1))
            return ers::syntax_expected_number;
        if (size == 4) {
            float f = float(lua_tonumber(L, -1));
            memcpy(p, &f, 4);
        } else if (size == 8) {
            double d = lua_tonumber(L, -1);
            memcpy(p, &d, 8);
        }
        return {};
    case kind::type_bool:
        if (lua_type(L, -1) != LUA_TBOOLEAN)
            return ers::syntax_expected_boolean;
        *static_cast<uint8_t*>(p) = lua_toboolean(L, -1) ? 1 : 0;
        return {};
    case kind::type_char: {
        if (t.has_flags(kind::flag_element))
            return ers::not_implemented;
        if (lua_isnumber(L, -1) || !lua_isstring(L, -1))
            return ers::syntax_expected_string;
        size_t len = 0;
        const char* s = lua_tolstring(L, -1, &len);
        *static_cast<char*>(p) = len ? s[0] : 0;
        return {};
    }
    case kind::type_errcode: {
        if (!lua_isnumber(L, -1))
            return ers::syntax_expected_number;
        opcd e;
        e.set_code(uint32_t(lua_tointeger(L, -1)));
        memcpy(p, &e, sizeof e);
        return {};
    }
    case kind::type_time:
        if (!lua_isnumber(L, -1))
            return ers::syntax_expected_time;
        store_bytes(p, 8, uint64_t(truncate64(lua_tonumber(L, -1))));
        return {};
    case kind::type_angle: {
        if (!lua_isnumber(L, -1))
            return ers::syntax_expected_angle;
        double d = lua_tonumber(L, -1);
        memcpy(p, &d, 8);
        return {};
    }
    default:
        return ers::syntax_unknown_type;
    }
}

// -- Arrays --------------------------------------------------------------------

// The separator before element k stores element k - 1, and the closing one
// (end 1) the last: so nothing is stored before the first element.
opcd fmtstream_lua_capi::write_array_separator(kind t, uint8_t)
{
    if (t.has_flags(kind::flag_next_element) && !frames.is_empty()) {
        frame& f = frames.last();
        ++f.index;
        lua_rawseti(L, -2, int(f.index));
    }
    return {};
}

opcd fmtstream_lua_capi::read_array_separator(kind)
{
    if (frames.is_empty())
        return ers::no_more;
    frame& f = frames.last();
    ++f.index;
    lua_rawgeti(L, -1, int(f.index));
    if (lua_type(L, -1) != LUA_TNIL)
        return {};
    lua_settop(L, -2);
    return ers::no_more;
}

opcd fmtstream_lua_capi::write_array_content(binstream_container_base& c, uint64_t& count, void* m)
{
    uint8_t y = c.type.type();
    uint64_t n = c.count();
    if (y != kind::type_char && y != kind::type_binary)
        return write_array_items(c, count, m);
    if (!c.is_continuous() || n == binstream_container_base::unknown_count) {
        // The place is fixed so that the report reads the same wherever the
        // library is built.
        assert_message none;
        if (assert_report(none, "comm/metastream/fmtstream_lua_capi", 490, "write_array_content",
                          "c.is_continuous() && n != UMAXS", 1))
            VELK_TRAP();
        return ers::not_implemented;
    }
    const char* bytes = static_cast<const char*>(c.extract(n));
    if (y == kind::type_char) {
        lua_pushlstring(L, bytes, size_t(n));
    } else {
        // Two hex digits a byte, but only n characters are pushed: the Lua
        // string holds the first half of the text. Kept as it stands.
        buffer.reset();
        if (n) {
            char* dst = buffer.append_buffer(uint32_t(2 * n));
            charstrconv::hex_encode(bytes, dst, uint32_t(n), 1);
        }
        lua_pushlstring(L, buffer.ptr(), size_t(n));
    }
    return store_member();
}

opcd fmtstream_lua_capi::read_array_content(binstream_container_base& c, uint64_t n, uint64_t& count, void* m)
{
    uint8_t y = c.type.type();
    bool known = n != binstream_container_base::unknown_count;
    if (y != kind::type_char && y != kind::type_binary) {
        uint64_t len = lua_objlen(L, -1);
        if (known && n != len)
            return ers::mismatched_array_size;
        if (!known)
            n = len;
        return read_array_items(c, n, count, m);
    }
    // The string goes in every case, a failed length included.
    opcd e = y == kind::type_char ? read_char_array(c, n, count) : read_binary_array(c, n, count);
    lua_settop(L, -2);
    return e;
}

opcd fmtstream_lua_capi::read_char_array(binstream_container_base& c, uint64_t n, uint64_t& count)
{
    size_t len = 0;
    const char* s = lua_tolstring(L, -1, &len);
    bool known = n != binstream_container_base::unknown_count;
    if (known && n != len)
        return ers::mismatched_array_size;
    if (c.is_continuous()) {
        void* dst = c.insert(n); // n as given, all ones included
        if (!dst && len)
            return ers::out_of_memory;
        if (len)
            memcpy(dst, s, len);
        count = len;
        return {};
    }
    for (size_t i = 0; i < len; ++i) {
        char* dst = static_cast<char*>(c.insert(1));
        if (!dst)
            return ers::out_of_memory;
        *dst = s[i];
    }
    count = 0; // as it stands: the per-character path reports no count
    return {};
}

opcd fmtstream_lua_capi::read_binary_array(binstream_container_base& c, uint64_t n, uint64_t& count)
{
    size_t len = 0;
    const char* s = lua_tolstring(L, -1, &len);
    token text(s, s ? s + len : nullptr);
    bool known = n != binstream_container_base::unknown_count;
    uint64_t done = 0;
    bool undone = false;
    if (known && c.is_continuous()) {
        void* dst = c.insert(n);
        if (!dst && n)
            return ers::out_of_memory;
        uint32_t left = n ? charstrconv::hex_decode(text, dst, uint32_t(n), ' ') : 0;
        done = n - left;
        undone = left != 0;
    } else {
        while (!known || done < n) {
            if (done)
                skip_spaces(text); // the space separates pairs
            uint8_t byte;
            token before = text;
            if (charstrconv::hex_decode(text, &byte, 1, ' ') != 0) {
                text = before;
                undone = known;
                break;
            }
            void* dst = c.insert(1);
            if (!dst)
                return ers::out_of_memory;
            memcpy(dst, &byte, 1);
            ++done;
        }
    }
    count = done;
    if (known && undone)
        return ers::mismatched_not_enough_elements;
    skip_spaces(text);
    if (!text.is_empty())
        return ers::mismatched_characters_after_array;
    return {};
}

// -- lua_streamer_context ------------------------------------------------------

lua_streamer_context::lua_streamer_context()
{
    meta.fmt_read = &fmt;
    meta.fmt_write = &fmt;
}

// The format ends before the metastream that points at it, and the
// metastream's end would flush or acknowledge it: idle it first. The format
// does nothing in either, so nothing is lost.
lua_streamer_context::~lua_streamer_context()
{
    meta.rw_state = 0;
    meta.fmt_read = nullptr;
    meta.fmt_write = nullptr;
}

lua_streamer_context& lua_streamer_context::get_lua_streamer(bool local)
{
    static thread_local lua_streamer_context* slot = nullptr;
    if (!slot)
        slot = register_singleton_of<lua_streamer_context>(local);
    return *slot;
}

void lua_streamer_context::bind_stack(lua_State* L)
{
    meta.reset(true, false);
    fmt.bind_lua(L);
}

void lua_streamer_context::to_lua(const charstr& text)
{
    meta.write_run(text);
}

void lua_streamer_context::from_lua(charstr& text)
{
    meta.read_run(text);
}

} // namespace velk
