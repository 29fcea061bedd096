// Fuzz target of reading typed values from Lua values (the Lua format
// stream under the binding's from_lua). The input is a small program that
// builds Lua values on a stack, one operation a byte (operands follow it):
//   nil, booleans, numbers from 8 bytes (NaN, infinities, huge, negative
//   zero), small integers, strings with zero bytes, tables, t[k] = v, t[#t+1]
//   = v, well-known member names as strings, functions, userdata (full and
//   light), coroutines, and copies of earlier values, which set into a table
//   make cycles.
// The value on the top is then read, in a fresh state each input, as text
// (from_lua), as numbers and booleans, and as the metastream tests' types
// (structures, arrays of structures, defaults). What must hold: each read
// ends normally, with velk::exception, or with a Lua error caught by
// lua_pcall; nothing crashes, nothing leaks, and the stack is left as it was.
#include "comm/exception.h"
#include "comm/metastream/fmtstream_lua_capi.h"
#include "fuzz/fuzz_check.h"
#include "tests/comm/metastream/test_types.h"

#include <lua.hpp>

#include <cstdint>
#include <cstring>

using velk::lua_streamer_context;
using velk::token;

namespace {

fuzz_inputs inputs{"from_lua_fuzz", "program", "target", {}, {}};

// Reads from the program's bytes; zeros past its end.
struct program
{
    const uint8_t* p;
    const uint8_t* end;
    bool done() const { return p >= end; }
    uint8_t byte() { return p < end ? *p++ : 0; }
    void bytes(void* out, size_t n)
    {
        size_t have = size_t(end - p) < n ? size_t(end - p) : n;
        memset(out, 0, n);
        memcpy(out, p, have);
        p += have;
    }
};

constexpr int max_values = 48;
constexpr int max_operations = 256;

const char* const member_names[] = {"x",      "y",    "name",   "origin",  "vertices", "weights", "corners",
                                    "scale",  "closed", "level", "comment", "legacy",   "anchor",  "retries",
                                    "mode",   "ports", "title",  "body",    "id",       "tag",     "small",
                                    "weight", "flags", "at",     "leaves",  "seed",     "branches"};
constexpr int member_count = sizeof member_names / sizeof member_names[0];

int nothing(lua_State*) { return 0; }

// t[k] = v for the table below key and value; nothing (both dropped) when
// no table lies there or the key can't be one (nil, NaN).
void set_field(lua_State* L, int base)
{
    int top = lua_gettop(L);
    bool key_ok = !lua_isnil(L, -2) && !(lua_type(L, -2) == LUA_TNUMBER && lua_tonumber(L, -2) != lua_tonumber(L, -2));
    if (top - base >= 3 && lua_istable(L, -3) && key_ok)
        lua_rawset(L, -3);
    else
        lua_pop(L, 2);
}

void append_element(lua_State* L, int base)
{
    if (lua_gettop(L) - base >= 2 && lua_istable(L, -2))
        lua_rawseti(L, -2, int(lua_objlen(L, -2)) + 1);
    else
        lua_pop(L, 1);
}

// Runs the program; leaves at least one value above base.
void build(lua_State* L, program& prog, int base)
{
    for (int n = 0; n < max_operations && !prog.done(); ++n) {
        int values = lua_gettop(L) - base;
        uint8_t op = prog.byte();
        if (values >= max_values && op % 16 < 12)
            op = 12; // full: only operations that take values off
        switch (op % 16) {
        case 0: lua_pushnil(L); break;
        case 1: lua_pushboolean(L, prog.byte() & 1); break;
        case 2: {
            double d;
            prog.bytes(&d, sizeof d);
            lua_pushnumber(L, d);
            break;
        }
        case 3: lua_pushinteger(L, static_cast<int8_t>(prog.byte())); break;
        case 4: {
            char text[32];
            size_t len = prog.byte() % sizeof text;
            prog.bytes(text, len);
            lua_pushlstring(L, text, len);
            break;
        }
        case 5: lua_createtable(L, 0, 0); break;
        case 6: lua_pushstring(L, member_names[prog.byte() % member_count]); break;
        case 7: lua_pushcfunction(L, nothing); break;
        case 8: lua_newuserdata(L, prog.byte() % 16); break;
        case 9: lua_pushlightuserdata(L, reinterpret_cast<void*>(uintptr_t(prog.byte()) << 4)); break;
        case 10: lua_newthread(L); break;
        case 11:
            if (values > 0)
                lua_pushvalue(L, base + 1 + prog.byte() % values); // a copy: a table set into itself is a cycle
            break;
        case 12:
            if (values >= 2)
                set_field(L, base);
            else if (values == 1)
                lua_pop(L, 1);
            break;
        case 13:
            if (values >= 1)
                append_element(L, base);
            break;
        case 14:
            if (values >= 2)
                lua_insert(L, -2); // swap the two on the top
            break;
        default:
            if (values >= 1)
                lua_pop(L, 1);
            break;
        }
    }
    if (lua_gettop(L) == base)
        lua_pushnil(L);
}

template <class T>
void read_as(lua_State* L)
{
    lua_streamer_context& s = lua_streamer_context::get_lua_streamer(true);
    s.bind_stack(L);
    T v{};
    try {
        s.meta.read_run(v);
    } catch (const velk::exception&) {
    }
}

void read_text(lua_State* L)
{
    lua_streamer_context& s = lua_streamer_context::get_lua_streamer(true);
    s.bind_stack(L);
    velk::charstr text;
    try {
        s.from_lua(text);
    } catch (const velk::exception&) {
    }
}

using reader = void (*)(lua_State*);
const reader readers[] = {
    read_text,
    read_as<int32_t>,
    read_as<uint8_t>,
    read_as<int64_t>,
    read_as<double>,
    read_as<bool>,
    read_as<velk::dynarray<int32_t>>,
    read_as<velk::dynarray<velk::charstr>>,
    read_as<velk::testing::point>,
    read_as<velk::testing::shape>,
    read_as<velk::testing::settings>,
    read_as<velk::testing::framed>,
    read_as<velk::testing::forest>,
};
const char* const reader_names[] = {"charstr", "int32",  "uint8", "int64",    "double", "bool",  "int32[]",
                                    "charstr[]", "point", "shape", "settings", "framed", "forest"};

// Under lua_pcall, so that a Lua error raised while reading unwinds to it:
// the reader's index is the upvalue, the value the argument.
int read_protected(lua_State* L)
{
    readers[lua_tointeger(L, lua_upvalueindex(1))](L);
    return 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    lua_State* L = luaL_newstate();
    REQUIRE(L != nullptr);
    program prog{data, data + size};
    build(L, prog, 0);
    int value = lua_gettop(L);
    for (size_t i = 0; i < sizeof readers / sizeof readers[0]; ++i) {
        inputs.second = token(reader_names[i]);
        lua_pushinteger(L, lua_Integer(i));
        lua_pushcclosure(L, read_protected, 1);
        lua_pushvalue(L, value);
        lua_pcall(L, 1, 0, 0); // a Lua error is an allowed end: its message stays
        lua_settop(L, value);
    }
    inputs.second = token();
    lua_close(L);
    return 0;
}
