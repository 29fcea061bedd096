// metastream descriptors: the per-thread map and the definition steps that
// a streaming function in define mode goes through.
#include "comm/metastream/metastream.h"

#include "comm/singleton.h"

namespace velk {

using meta::type_desc;
using meta::var_desc;

namespace meta {

// -- The map ---------------------------------------------------------------------

structure_map::map_proper::~map_proper()
{
    for (type_desc* d : anonymous)
        delete d;
}

structure_map::structure_map() : map(new map_proper) {}

structure_map::~structure_map()
{
    delete map;
}

type_desc* structure_map::find(const token& name) const
{
    if (_recent) {
        const token& t = _recent->type_name;
        if (t.lens() == name.lens() && (t.ptr() == name.ptr() || token_key_equal()(t, name)))
            return _recent;
    }
    type_desc* d = const_cast<type_desc*>(map->table.find_value(name));
    if (d)
        _recent = d;
    return d;
}

type_desc* structure_map::create(const token& name, bstype::kind kind, uintptr_t stream_fn)
{
    type_desc* d = map->table.insert_unique(name);
    if (!d) // there already: callers find first
        return nullptr;
    // The node comes zeroed: the defaults that are not zero are set here.
    *d = type_desc();
    d->type_name = name;
    d->kind = kind;
    d->object_size = kind.size();
    d->stream_fn = stream_fn;
    return d;
}

type_desc* structure_map::create_anonymous()
{
    type_desc* d = new type_desc();
    try {
        *map->anonymous.add(1) = d;
    } catch (...) {
        delete d;
        throw;
    }
    return d;
}

void structure_map::list(dynarray<type_desc*, uint32_t>& out) const
{
    for (auto* n = map->table.first(); n; n = map->table.next(n))
        *out.add(1) = &n->value;
}

var_desc* add_var(type_desc& parent, type_desc* desc, const token& name, uint32_t offset)
{
    var_desc* v = parent.children.push();
    if (!v) // a reserved block that refused to grow
        throw std::bad_alloc();
    v->desc = desc;
    v->varname = name; // an empty name leaves it empty
    v->offset = offset;
    return v;
}

} // namespace meta

// -- The thread's map ------------------------------------------------------------

metastream::structure_map& metastream::get_structure_map()
{
    // Each thread gets its own node: local registrations are never matched.
    static thread_local structure_map* slot = nullptr;
    if (!slot)
        slot = register_singleton_of<structure_map>(true);
    return *slot;
}

// -- Definition ------------------------------------------------------------------

var_desc* metastream::attach_var(type_desc* d)
{
    var_desc* v;
    if (!root.desc) {
        root.desc = d;
        v = &root;
    } else {
        VELK_ASSERT_MSG(parent_var, "a member is defined outside of any structure or array");
        v = meta::add_var(*parent_var->desc, d, var_name, var_offset);
    }
    var_name = token();
    return v;
}

void metastream::define_primitive(const token& name, bstype::kind t)
{
    type_desc* d = map->find(name);
    if (!d)
        d = map->create(name, t, stream_fn);
    last_var = attach_var(d);
    d->stream_desc = d;
    close_array_parents();
}

metastream::type_desc* metastream::define_array(const token& name, void* object, uint64_t object_size,
                                                uint8_t is_plain, meta::access_ptr_fn access_ptr,
                                                meta::access_count_fn access_count,
                                                meta::access_push_fn access_push,
                                                meta::access_next_fn access_next, uint64_t array_size)
{
    if (type_desc* known = map->find(name)) { // its element came with it
        last_var = attach_var(known);
        close_array_parents();
        return nullptr;
    }
    type_desc* d = map->create(name, bstype::kind(bstype::kind::compound_word), stream_fn);
    d->array_size = array_size;
    d->is_plain = is_plain;
    d->access_ptr = access_ptr;
    d->access_count = access_count;
    d->access_push = access_push;
    d->access_next = access_next;
    d->object_size = object_size;
    d->is_array = 1;
    d->offset = static_cast<int32_t>(reinterpret_cast<uintptr_t>(object));
    d->stream_desc = d;
    var_desc* v = attach_var(d);
    parent_var = v;
    *map->stack.add(1) = v;
    return d;
}

metastream::type_desc* metastream::define_struct(const token& name, uint64_t object_size)
{
    if (type_desc* known = map->find(name)) { // its members came with it
        last_var = attach_var(known);
        close_array_parents();
        return nullptr;
    }
    type_desc* d = map->create(name, bstype::kind(bstype::kind::compound_word), stream_fn);
    d->object_size = object_size;
    d->stream_desc = d;
    var_desc* v = attach_var(d);
    parent_var = v;
    *map->stack.add(1) = v;
    return d;
}

void metastream::define_struct_end()
{
    map->stack.pop(last_var);
    parent_var = map->stack.is_empty() ? nullptr : map->stack.last();
    close_array_parents(); // the structure may be an array's element
}

void metastream::close_array_parents()
{
    while (parent_var && parent_var->desc->is_array) {
        if (!map->stack.pop(last_var))
            last_var = nullptr;
        if (map->stack.is_empty()) {
            parent_var = nullptr;
            break;
        }
        parent_var = map->stack.last();
    }
}

} // namespace velk
