// fmtstream_lua_capi: the Lua stack as an input and an output of metastream.
//
// Typed values become Lua values and back, with no text in between: a table
// is a structure or an array, a string an array of char, a number or a
// boolean a primitive. Invariant: the top of the stack holds the value being
// read or, on writing, the table being filled, with a key above it while a
// member is under way; frames has one entry per open table.
//
// lua_streamer_context bundles one metastream with one such format; each
// thread has its own, through which the generated method wrappers move their
// arguments and results:
//
//   lua_streamer_context& s = lua_streamer_context::get_lua_streamer(true);
//   s.bind_stack(L);
//   s.to_lua(text);          // one Lua string on the stack
//
// One thread at a time, on the thread of the Lua state in use.
#pragma once

#include "comm/charstr.h"
#include "comm/dynarray.h"
#include "comm/iref.h"
#include "comm/metastream/fmtstream.h"
#include "comm/metastream/metastream.h"

#include <cstdint>

struct lua_State;

namespace velk {

class fmtstream_lua_capi : public fmtstream
{
public:
    // One open table: the Lua array index reached, and whether members are
    // set by key (a structure) or by index (an array).
    struct frame
    {
        uint32_t index = 0;
        uint8_t is_object = 0;
    };

    // Reserves 32 frames, so that normal nesting never allocates.
    // Throws std::bad_alloc.
    fmtstream_lua_capi();
    ~fmtstream_lua_capi() override = default;

    // lua_pushlstring of key; success.
    opcd write_key(const token& key, int32_t kmember) override;
    // Pushes the member expected of the table at the top: success with key
    // set to expected, or ers::no_more with the nil left on the stack. The
    // engine never consumes that nil (an absent member is read from its
    // default, or not at all), so the next read takes it off first.
    opcd read_key(charstr& key, int32_t kmember, const token& expected) override;

    // A value, a marker or a count onto the stack; ers::syntax_unknown_type
    // for a type code the format doesn't know.
    opcd write(const void* p, bstype::kind t) override;
    // A value, a marker or a count from the top of the stack; a value is
    // popped also when its conversion fails. Failures: the detailed SynEr
    // values ("expected string", "expected number", ...), ers::unavailable for
    // a key character, ers::not_implemented for a single char element.
    opcd read(void* p, bstype::kind t) override;

    // From the second element on, stores the element on the top into the
    // array below it.
    opcd write_array_separator(bstype::kind t, uint8_t end) override;
    // Pushes the next element of the array on the top: ers::no_more at a nil.
    opcd read_array_separator(bstype::kind t) override;

    // Strings (char, binary) go in one lua_pushlstring; other arrays element
    // by element. count is not changed.
    opcd write_array_content(binstream_container_base& c, uint64_t& count, void* m) override;
    // Strings come in one copy; other arrays element by element. Failures:
    // the detailed Misma values for a length that doesn't match.
    opcd read_array_content(binstream_container_base& c, uint64_t n, uint64_t& count, void* m) override;

    // Makes state the stack in use and records its top; a nil left by an
    // earlier, failed run is not this stack's to take.
    void bind_lua(lua_State* state);

    void flush() override {}
    void acknowledge(bool eat = false) override {}
    token fmtstream_name() override { return "fmtstream_lua_capi"; }
    void fmtstream_err(charstr& err, bool add) override {}
    void reserved_f() override {}

    lua_State* L = nullptr; // the stack in use; set for each call
    int32_t top = 0;        // stack top recorded when L was set
    dynarray<frame> frames;

private:
    // Takes off the nil that an absent member's read_key left, if any.
    void drop_absent_nil();
    bool _absent_nil = false;

    void push_frame(uint8_t is_object);
    void pop_frame();
    // Step shared by the value operations: a member's key and value go into
    // the structure below them.
    opcd store_member();
    opcd read_primitive(void* p, bstype::kind t);
    opcd read_char_array(binstream_container_base& c, uint64_t n, uint64_t& count);
    opcd read_binary_array(binstream_container_base& c, uint64_t n, uint64_t& count);
};

class lua_streamer_context
{
public:
    // fmt_read and fmt_write point at the embedded format; no cache level.
    lua_streamer_context();
    ~lua_streamer_context();
    lua_streamer_context(const lua_streamer_context&) = delete;
    lua_streamer_context& operator=(const lua_streamer_context&) = delete;

    // The thread's own object, made on first use through the module's
    // singleton manager (local is always true: one node per thread) and
    // kept until the module ends, also past its thread's end.
    // Throws std::bad_alloc.
    static lua_streamer_context& get_lua_streamer(bool local = true);

    // Resets the metastream and makes L the stack in use. Run before each
    // call's streaming: one thread may serve several Lua states in turn.
    void bind_stack(lua_State* L);

    // Pushes text as one Lua string. Throws velk::exception with the
    // metastream's position text on failure.
    void to_lua(const charstr& text);
    // Fills text from the value on the top of the stack and pops it. Throws
    // velk::exception ("... expected string" and the like) on failure, and
    // then the value may still be there.
    void from_lua(charstr& text);


    metastream meta;
    fmtstream_lua_capi fmt;
};

} // namespace velk
