// metastream: the typed serializer.
//
// A type describes itself by one streaming function, stream_meta(m, obj),
// which reads, writes or defines according to m's state (reading, writing,
// neither). A run first defines the type (obj null), which builds its
// descriptor once per thread (see metastream_desc.h), then streams the
// object by walking the descriptor in step with the streaming function and
// with a format stream (fmt_read, fmt_write). On reading, members may come
// in any order, be missing, have defaults or be optional: values that arrive
// before they are asked for wait in a cache of offsets, so that it may move
// as it grows.
//
//   metastream m;
//   m.fmt_write = &my_format;
//   m.write_run(text);            // one charstr through the format
//   m.fmt_read = &my_format;
//   m.read_run(text);             // and back
//
// Streaming failures throw velk::exception with the text of err: the path of
// open variables (":root.member:type"), the message, and the format's
// position. After a throw the object stays as it stood; the next run's reset
// cleans it up. A metastream belongs to one thread.
#pragma once

#include "comm/binstream/bstype.h"
#include "comm/binstream/container.h"
#include "comm/charstr.h"
#include "comm/dynarray.h"
#include "comm/metastream/fmtstream.h"
#include "comm/metastream/metastream_desc.h"
#include "comm/opcd.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

class metastream
{
public:
    using type_desc = meta::type_desc;
    using var_desc = meta::var_desc;
    using structure_map = meta::structure_map;

    // One open variable: the variable and the member number saved with it.
    struct var_frame
    {
        var_desc* var;
        uint64_t index; // the saved cur_index, in a 64-bit slot
    };

    // One open level of the cache (or of a default value).
    struct cache_entry
    {
        meta::byte_array* buffer; // cache, or a variable's defval
        uint64_t offs;            // current offset; all ones: no slot selected
        uint64_t count_offs;      // offset of this level's array count word; all ones: none
        var_desc* var;            // the variable the level belongs to
        var_desc* saved_default;  // default_var to restore when the level ends
        uint64_t table;           // offset of the member table in buffer
    };

    // The container through which an array of compound elements goes into
    // the cache during a read: elements have no memory of their own there.
    class cache_container : public binstream_container_base
    {
    public:
        cache_container(metastream& m, type_desc& d);
        const void* extract(uint64_t n) override { return nullptr; }
        // A non-null marker: the element's data go to the cache.
        void* insert(uint64_t n) override { return reinterpret_cast<void*>(uintptr_t(1)); }
        bool is_continuous() const override { return true; }
        uint64_t count() const override { return desc->array_size; }

        metastream* stream;
        type_desc* desc;

    private:
        static opcd read_element(void* m, void* element, binstream_container_base* c);
    };

    // All ones: no slot, no count word, a count not known.
    static constexpr uint64_t none = UINT64_MAX;

    // The state of reset(false, false), with fmt_read and fmt_write null.
    metastream();
    // With a write begun, flushes fmt_write; with a read begun, acknowledges
    // fmt_read (eat true). A failure of either is swallowed: a destructor
    // can't report it.
    ~metastream();
    metastream(const metastream&) = delete;
    metastream& operator=(const metastream&) = delete;

    // -- Runs ---------------------------------------------------------------------

    // Resets (flush: the format side of the run begun is reset too; cached:
    // one cache level open from the start), empties the path and the cache
    // (blocks kept) and fetches the thread's map.
    void reset(bool flush, bool cached);

    // The run for writing obj to fmt_write, which must be set: defines T,
    // then streams obj. Throws velk::exception on a streaming failure.
    template <class T>
    void write_run(const T& obj)
    {
        reset(true, false);
        begin_run(1);
        stream_meta(*this, static_cast<T*>(nullptr));
        describe_root();
        writing = 1;
        stream_meta(*this, const_cast<T*>(&obj));
        writing = 0;
    }

    // The run for reading into obj from fmt_read, which must be set. Members
    // absent from the input keep their values only when optional or
    // defaulted; otherwise velk::exception is thrown.
    template <class T>
    void read_run(T& obj)
    {
        reset(true, false);
        begin_run(-1);
        stream_meta(*this, static_cast<T*>(nullptr));
        describe_root();
        reading = 1;
        stream_meta(*this, &obj);
        reading = 0;
    }

    // -- Values: the calls of primitives' streaming functions ---------------------

    // One value of kind t into p. Success; ers::no_more when the variable is
    // an absent optional member (p untouched); a plain read's failure.
    // Throws velk::exception on a described failure.
    opcd data_read(void* p, bstype::kind t);
    // One value of kind t from p; a failed name or plain write is returned.
    opcd data_write(const void* p, bstype::kind t);

    // An array through c. Throw velk::exception on any failure.
    void read_container(binstream_container_base& c);
    void write_container(binstream_container_base& c);

    // -- Definition -----------------------------------------------------------------

    // The variable in hand becomes of the primitive type name (made on first
    // use with kind t).
    void define_primitive(const token& name, bstype::kind t);

    // The variable in hand becomes of the array type name. A new descriptor
    // when the type is new: the caller then defines the element; null when it
    // was defined already (the element with it).
    type_desc* define_array(const token& name, void* object, uint64_t object_size, uint8_t is_plain,
                            meta::access_ptr_fn access_ptr, meta::access_count_fn access_count,
                            meta::access_push_fn access_push, meta::access_next_fn access_next,
                            uint64_t array_size);

    // The variable in hand becomes of the structure type name. A new
    // descriptor when the type is new: the caller then defines the members
    // and calls define_struct_end; null when it was defined already.
    type_desc* define_struct(const token& name, uint64_t object_size);
    // Ends the members of the structure begun last.
    void define_struct_end();

    // An array has one element: after it, the array is finished, and so is any
    // array whose element it was.
    void close_array_parents();

    // -- Structures: the calls of a structure's streaming function ----------------

    // Opens the structure of the variable in hand. Reading: false, with
    // nothing opened, when it is an absent optional member (the object keeps
    // its value). Writing: always true. Throws velk::exception.
    bool struct_begin_rw();
    // Closes it. Throws velk::exception.
    void struct_end_rw();

    // -- Helpers for a type's streaming function (metastream_types.h) ------------------
    //
    //   void stream_meta(metastream& m, point* p)
    //   {
    //       if (!m.struct_begin("point", p))    // defined already, or absent and optional
    //           return;
    //       m.member("x", p, &point::x);
    //       m.member("tag", p, &point::tag, metastream::member_optional);
    //       m.struct_end();
    //   }

    // Flags of a member, fixed at its definition.
    enum member_flag : uint32_t {
        member_optional = 1, // absent on input: the object keeps its value
        member_obsolete = 2, // read (and warned about) when present, never written; implies optional
    };

    // Begins the structure type name (text outliving the map: a literal) for
    // obj, null in define mode. False when there is nothing to do: define mode
    // and the type is known, or reading and the member is absent and
    // optional. When true, the members follow, then struct_end.
    template <class S>
    bool struct_begin(const token& name, S* obj);
    void struct_end();

    // One member of the structure begun: field of obj (null in define mode).
    // flags from member_flag; defval, when given, is the member's default
    // value as make_default builds it, copied into the descriptor at
    // definition.
    template <class S, class T>
    void member(const token& name, S* obj, T S::*field, uint32_t flags = 0,
                const meta::byte_array* defval = nullptr);
    // The same with the member's address given (null in define mode).
    template <class T>
    void member_at(const token& name, T* p, uint32_t flags = 0, const meta::byte_array* defval = nullptr);

    // A default value for a member of type T: value written into a blob in
    // the layout a default is read from (a first word, then the data by
    // offsets). Throws velk::exception, std::bad_alloc.
    template <class T>
    static meta::byte_array make_default(const T& value);

    // Writes obj into cache as a default blob: the run with one cache level open.
    template <class T>
    void write_cached(const T& obj);

    // Appends the path, message and, with tell_format, the read format's
    // position to err, and throws it as velk::exception.
    [[noreturn]] void raise(int32_t depth, const token& message, bool tell_format);

    // -- Errors ---------------------------------------------------------------------------

    // Lets the read (true) or write format add its position to err.
    void fmt_error(bool reading);
    // Appends "warning: obsolete variable 'name'" to err, shows it to the read
    // format and logs it as a warning from "metastream".
    void warn_obsolete(const token& name);
    // Appends the path of the first depth open variables (depth < 1: all),
    // then last if given, to err; a line feed first when err holds text.
    void dump_stack(int32_t depth, const var_desc* last);

    // -- Inner steps (public for formats and tests that drive them) ----------------

    opcd process_value(void* p, bstype::kind t, bool read);
    opcd data_value(void* p, bstype::kind t, bool read);
    opcd next_var(bool read);
    opcd find_var();
    opcd read_var_name();
    bool use_default();
    void fill_member();
    void read_var(var_desc* v);
    opcd write_var_name(bool read);
    void struct_open(bool read);
    void struct_close(bool read);
    void push_var(bool read);
    void cache_push(bool read);
    void read_array_framed(binstream_container_base& c);
    opcd read_array_body(binstream_container_base& c, uint64_t n, uint64_t& got);
    opcd read_array_elements(binstream_container_base& c, uint64_t n, uint64_t& got);
    opcd write_array_body(binstream_container_base& c, uint64_t& got);
    opcd write_array_elements(binstream_container_base& c, uint64_t& got);

    // The thread's map, made on first use on each thread.
    static structure_map& get_structure_map();

    // A level is active: there is one and it has a slot selected.
    bool level_active() const { return cur_cache && cur_cache->offs != none; }

    // -- Fields -----------------------------------------------------------------------

    charstr err;
    var_desc root;
    var_desc* parent_var = nullptr;
    var_desc* last_var = nullptr;
    token var_name;
    uintptr_t stream_fn = 0;
    uint32_t var_offset = 0;
    int32_t rw_state = 0; // -1 a read has begun, 1 a write, 0 idle
    dynarray<var_frame, uint32_t> var_stack;
    var_desc* cur_var = nullptr;
    uint32_t cur_index = 0;
    charstr cur_name;
    uint8_t writing = 0;
    uint8_t reading = 0;
    uint8_t described = 0;
    uint8_t need_separator = 0;
    fmtstream* fmt_read = nullptr;
    fmtstream* fmt_write = nullptr;
    meta::byte_array cache;
    dynarray<cache_entry, uint32_t> cache_stack;
    cache_entry* cur_cache = nullptr;
    var_desc* cache_root = nullptr;
    var_desc* cache_skip = nullptr;
    var_desc* default_var = nullptr;
    var_desc* filling_var = nullptr;
    var_desc* absent_var = nullptr;
    structure_map* map = nullptr;
    // The member found absent (optional) by the last lookup; for obsolete warnings.
    var_desc* last_absent = nullptr;
    // The code beside the last member lookup failure's text (the exception
    // carries only the text).
    opcd err_code;

private:
    // Steps 2 and 4 of a run, around the definition.
    void begin_run(int32_t state);
    void describe_root();

    // The variable in hand becomes of type d: the root when the root has no
    // type yet, else a new member of parent_var's type.
    var_desc* attach_var(type_desc* d);

    // Steps of data_value for array markers.
    opcd array_begin_value(void* p, bstype::kind t, bool read);
    opcd array_end_value(void* p, bstype::kind t, bool read);

    // Steps of find_var.
    bool select_cached_slot();
    opcd search_input();
    opcd absent_optional();
    static var_desc* find_child(type_desc& d, const token& name);

    // Arrays of compound elements in the cache, linked element to element.
    opcd read_elements_cached(binstream_container_base& c, uint64_t n, uint64_t& got);
    opcd write_elements_cached(binstream_container_base& c, uint64_t& got);
    // Appends an element's link word to buf, unset, and points the previous
    // element's link (prev; none for the first) at it; gives its offset.
    static uint64_t append_link(meta::byte_array& buf, uint64_t prev);
    // Points the last element's link past the end of the array.
    static void close_links(meta::byte_array& buf, uint64_t last);
    // One element outside the cache, in a frame of its own: a compound one
    // through c's streaming function, a primitive one as a value. Throws
    // when a primitive fails.
    void stream_element(binstream_container_base& c, void* el, bstype::kind k, bool read);
    // Steps from the array in cur_var into its element: a new frame whose
    // variable is the array type's element (none without a description).
    void enter_element();
    [[noreturn]] void separator_failure(bool read, opcd e);

    // The path of open variables: cur_var and cur_index saved and restored.
    void push_frame();
    void pop_frame();

    // Cache levels. Words are 64-bit and 8-aligned; a level's table holds
    // one word per member.
    cache_entry& push_level();
    void pop_level();
    static uint64_t align_up(uint64_t x, uint64_t a);
    static uint64_t align_end(meta::byte_array& b, uint64_t a);
    uint64_t slot_of(const cache_entry& e, const var_desc* v) const;
    static uint64_t& word_at(meta::byte_array& b, uint64_t offs);
    // 0 for a word outside the buffer: nothing arrived there.
    static uint64_t read_word(const meta::byte_array& b, uint64_t offs);
    static uint64_t load_width(const void* p, uint32_t size);
    static void store_width(void* p, uint32_t size, uint64_t v);

    void dump_level(const var_desc* v);

};

// -- Streaming functions of the library's own types -------------------------------
// One overload per type, found by an unqualified call; obj is null in define mode.

void stream_meta(metastream& m, char* obj);
void stream_meta(metastream& m, bstype::key* obj);
void stream_meta(metastream& m, charstr* obj);

} // namespace velk

#include "comm/metastream/metastream_types.h"
