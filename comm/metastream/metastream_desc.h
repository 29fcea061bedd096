// metastream descriptors: the run-time description of a streamed type.
//
// A type_desc tells one type: its kind, its size, its members (var_desc, in
// the order of definition) or, for an array, its one element and accessors.
// Descriptors are built once per thread by running the type's streaming
// function in define mode, and live in the thread's structure_map until the
// module's singletons end. Invariant: a descriptor, once in the map, never
// moves and never changes its members; every engine step streams through
// `stream_desc`, never through the descriptor directly.
//
//   metastream::structure_map& map = metastream::get_structure_map();
//   metastream::type_desc* d = map.find("point");   // one hash lookup
//
// Per thread: no locks, and descriptors must not be handed to other threads.
#pragma once

#include "comm/binstream/bstype.h"
#include "comm/charstr.h"
#include "comm/dynarray.h"
#include "comm/hash_table.h"
#include "comm/token.h"

#include <cstdint>

namespace velk::meta {

struct type_desc;

// Array accessors, set by define_array for the array's object layout.
using access_ptr_fn = void* (*)(void* obj);
using access_count_fn = uint64_t (*)(const void* obj);
using access_push_fn = void* (*)(void* obj, uint64_t& index);
using access_next_fn = void* (*)(void* obj, uint64_t& index);

// Bytes of a cached value or of a default value (defval).
using byte_array = dynarray<uint8_t, uint64_t>;

// All ones: an array whose length is known only at run time.
inline constexpr uint64_t dynamic_array_size = UINT64_MAX;

struct var_desc
{
    type_desc* desc = nullptr;
    charstr varname;  // empty for an array's element and for the root
    uint32_t offset = 0;
    byte_array defval; // default value in the cache layout; empty: none
    uint8_t nameless = 0; // the root of a run: counts as named, sets flag_root
    uint8_t obsolete = 0; // read when present, never written
    uint8_t optional = 0; // absent on input is no error

    // The charstr count includes the terminator: a name has a count above 1.
    bool has_name() const { return !varname.is_empty(); }
    // Named for every test of the engine: a real name, or the root.
    bool named_or_root() const { return nameless || has_name(); }
    token name() const { return varname; }
};

} // namespace velk::meta

namespace velk {
template <>
struct relocatable<meta::var_desc> : std::true_type {}; // a pointer, two owning handles, bytes
} // namespace velk

namespace velk::meta {

struct type_desc
{
    dynarray<var_desc, uint32_t> children; // members; an array has one, its element
    uint64_t array_size = 0;               // fixed count, dynamic_array_size, 0 if no array
    token type_name;                       // the map's key; its text outlives the map
    uint64_t object_size = 0;              // a primitive: the size of its kind
    bstype::kind kind = bstype::kind::compound_word;
    uint8_t is_plain = 1;
    uint8_t is_array = 0;
    uint8_t reserved_flag = 0;
    type_desc* stream_desc = nullptr; // what the engine streams by; the descriptor itself
    int32_t offset = -1;
    access_ptr_fn access_ptr = nullptr;
    access_count_fn access_count = nullptr;
    access_push_fn access_push = nullptr;
    access_next_fn access_next = nullptr;
    uintptr_t stream_fn = 0; // copied from the metastream; unused here

    // A type with members or an array, as opposed to a primitive.
    bool is_compound() const { return kind.type() == bstype::kind::type_compound; }
};


// Every descriptor of one thread, keyed by type name.
class structure_map
{
public:
    // The name of a descriptor, its key.
    struct key_of
    {
        token operator()(const type_desc& d) const { return d.type_name; }
    };
    using table_type = hash_table<type_desc, token, key_of, token_key_hash, token_key_equal>;

    // The map proper: the keyed table and the nameless descriptors.
    struct map_proper
    {
        table_type table{hash_table_initial_buckets};
        dynarray<type_desc*, uint32_t> anonymous; // owned
        ~map_proper();
    };

    // An empty map of 64 buckets. Throws std::bad_alloc.
    structure_map();
    // Frees every descriptor, keyed and anonymous.
    ~structure_map();
    structure_map(const structure_map&) = delete;
    structure_map& operator=(const structure_map&) = delete;

    // The descriptor named name (same length and bytes), or null. Never fails.
    type_desc* find(const token& name) const;

    // A new descriptor with the defaults, kind and object_size the size of
    // kind, inserted under name, whose text must outlive the map (a literal
    // or a run-time type name). Null, with nothing done, when the name is
    // there already. Throws std::bad_alloc with the map unchanged.
    type_desc* create(const token& name, bstype::kind kind, uintptr_t stream_fn);

    // A new descriptor with no key, owned by the map: compound kind, is_plain
    // 1, offset -1, all else 0. Throws std::bad_alloc.
    type_desc* create_anonymous();

    // Appends pointers to every keyed descriptor, in bucket order.
    void list(dynarray<type_desc*, uint32_t>& out) const;

    uint64_t count() const { return map->table.count(); }

    dynarray<var_desc*, uint32_t> stack; // array and structure variables under definition
    map_proper* map;                     // owned

private:
    // The descriptor found last. A run looks up the same name again and
    // again, and hashing a run-time type name byte by byte costs more than
    // comparing it: a name equal to this one's is answered without the
    // table. Descriptors never move, so the pointer stays good.
    mutable type_desc* _recent = nullptr;
};

// Appends a member to parent's children and gives its address: desc, a
// copy of name (empty clears varname) and offset set, all else empty. The
// address is valid until parent gets its next member. Throws std::bad_alloc.
var_desc* add_var(type_desc& parent, type_desc* desc, const token& name, uint32_t offset);

} // namespace velk::meta
