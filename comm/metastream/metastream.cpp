// metastream engine: the run, values, member lookup and structures.
//
// Reading matches what the input offers against the descriptor: a member
// that comes before it is asked for is read into the cache (fill_member),
// and taken from there when its turn comes (find_var). The cache holds
// offsets only: a structure's level is a table of one word per member, each
// word the distance from itself to the member's data, 0 while the member has
// not arrived. Arrays are in metastream_array.cpp.
#include "comm/metastream/metastream.h"

#include "comm/commassert.h"
#include "comm/exception.h"
#include "comm/log/logmsg.h"

#include <algorithm>
#include <cstring>

namespace velk {

using bstype::kind;
using meta::type_desc;
using meta::var_desc;

namespace {

// The text a message gives for a variable: its name, or nothing.
token label(const var_desc* v)
{
    return v ? v->name() : token();
}

} // namespace

// -- Life ----------------------------------------------------------------------------

metastream::metastream()
{
    reset(false, false);
}

metastream::~metastream()
{
    // A destructor can't report a format's failure: it is dropped.
    try {
        if (rw_state > 0 && fmt_write) {
            rw_state = 0;
            fmt_write->flush();
        } else if (rw_state < 0 && fmt_read) {
            rw_state = 0;
            fmt_read->acknowledge(true);
        }
    } catch (...) {
    }
}

void metastream::reset(bool flush, bool cached)
{
    if (flush) {
        if (rw_state < 0 && fmt_read)
            fmt_read->reset_read();
        else if (rw_state > 0 && fmt_write)
            fmt_write->reset_write();
        rw_state = 0;
        need_separator = 0;
    }
    var_stack.reset();
    cache.reset();
    cache_stack.reset();
    cur_cache = nullptr;
    if (cached)
        push_level() = {&cache, 0, none, nullptr, nullptr, 0};
    filling_var = nullptr;
    cache_root = nullptr;
    absent_var = nullptr;
    // Left over by a run that threw: they would point into its levels.
    default_var = nullptr;
    cache_skip = nullptr;
    last_absent = nullptr;
    var_name = token();
    writing = reading = described = 0;
    cur_var = nullptr;
    var_offset = 0;
    cur_name.reset();
    err.reset();
    map = &get_structure_map();
}

void metastream::begin_run(int32_t state)
{
    root.desc = nullptr;
    parent_var = nullptr;
    map->stack.reset(); // a definition that threw may have left its variables
    if (rw_state == 0) {
        err.reset();
        rw_state = state;
        cur_index = 0;
    }
    need_separator = 0;
}

void metastream::describe_root()
{
    described = 1;
    cur_var = &root;
    root.varname.reset();
    root.nameless = 1;
}

// -- Values ---------------------------------------------------------------------------

opcd metastream::data_read(void* p, kind t)
{
    if (described) {
        if (!t.has_flags(kind::flag_array_end) && cur_name.is_empty() && cur_var && !cur_var->nameless &&
            cur_var->has_name())
            if (opcd e = find_var())
                return e; // absent
        return process_value(p, t, true);
    }
    if (!t.has_flags(kind::flag_array_end) && need_separator) {
        if (opcd e = fmt_read->read(nullptr, kind(kind::separator_word))) {
            charstr msg;
            msg << " - error reading separator: " << e;
            raise(0, msg, true);
        }
    } else {
        rw_state = -1;
    }
    need_separator = !t.has_flags(kind::flag_array_begin);
    return fmt_read->read(p, t);
}

opcd metastream::data_write(const void* p, kind t)
{
    if (described) {
        if (!t.has_flags(kind::flag_array_end))
            if (opcd e = write_var_name(false))
                return e;
        return process_value(const_cast<void*>(p), t, false);
    }
    if (!t.has_flags(kind::flag_array_end) && need_separator) {
        if (opcd e = fmt_write->write(nullptr, kind(kind::separator_word)))
            return e;
    } else {
        rw_state = 1;
    }
    need_separator = !t.has_flags(kind::flag_array_begin);
    return fmt_write->write(p, t);
}

opcd metastream::process_value(void* p, kind t, bool read)
{
    if (opcd e = data_value(p, t, read)) {
        charstr msg;
        msg << " - error " << (read ? "reading" : "writing") << " variable '" << label(cur_var) << "', error: " << e;
        raise(0, msg, true);
    }
    if (t.has_flags(kind::flag_array_begin))
        return {}; // the array's variable stays current
    return next_var(read);
}

// A value that goes to or comes from the cache when a level is active, else
// straight to or from the format.
opcd metastream::data_value(void* p, kind t, bool read)
{
    if (!level_active())
        return read ? fmt_read->read(p, t) : fmt_write->write(p, t);
    bool filling = filling_var != nullptr;
    if (read && !t.has_flags(kind::flag_array_end) && !filling && cur_var && cur_var->named_or_root() &&
        read_word(*cur_cache->buffer, cur_cache->offs) == 0) { // the member did not arrive
        if (!use_default()) {
            charstr msg;
            msg << " - variable '" << label(cur_var) << "' not found and no default value provided";
            raise(1, msg, true);
        }
    }
    if (t.has_flags(kind::flag_array_begin))
        return array_begin_value(p, t, read);
    if (t.has_flags(kind::flag_array_end))
        return array_end_value(p, t, read);

    cache_entry& e = *cur_cache;
    meta::byte_array& buf = *e.buffer;
    uint64_t size = t.size();
    bool by_word = cur_var && cur_var->named_or_root(); // an element is read in sequence
    if (read && !filling) {
        uint64_t at;
        if (by_word) {
            at = e.offs + read_word(buf, e.offs);
            e.offs += 8;
        } else {
            at = align_up(e.offs, std::min<uint64_t>(size, 8));
            e.offs = at + size;
        }
        if (at + size > buf.size()) // a default value shorter than its layout says
            return ers::out_of_range;
        memcpy(p, buf.ptr() + at, size);
        return {};
    }
    uint64_t at = align_end(buf, by_word ? 8 : std::min<uint64_t>(size, 8));
    buf.add(size);
    if (by_word) {
        word_at(buf, e.offs) = at - e.offs;
        e.offs += 8;
    }
    if (filling) {
        if (size == 0)
            return {};
        return fmt_read->read(buf.ptr() + at, t);
    }
    if (size)
        memcpy(buf.ptr() + at, p, size);
    return {};
}

// An array's count: a new level, whose count word is read, or made and
// filled at the end.
opcd metastream::array_begin_value(void* p, kind t, bool read)
{
    cache_push(read);
    cache_entry& n = *cur_cache;
    if (read && !filling_var) {
        n.count_offs = n.offs;
        uint64_t count = read_word(*n.buffer, n.offs);
        n.offs += 8;
        store_width(p, t.size(), count);
        return {};
    }
    uint64_t at = align_end(*n.buffer, 8);
    n.buffer->add(8);
    n.count_offs = at;
    word_at(*n.buffer, at) = none;
    if (!filling_var)
        return {};
    return fmt_read->read(p, t);
}

opcd metastream::array_end_value(void* p, kind t, bool read)
{
    cache_entry& e = *cur_cache;
    opcd r;
    if (read && !filling_var) {
        if (load_width(p, t.size()) != read_word(*e.buffer, e.count_offs))
            return ers::mismatched_cached_elements_left; // the level stays open
    } else {
        if (read)
            r = fmt_read->read(p, t);
        word_at(*e.buffer, e.count_offs) = load_width(p, t.size());
    }
    if (e.saved_default)
        default_var = e.saved_default;
    pop_level();
    return r;
}

// -- Walking the members -------------------------------------------------------------

opcd metastream::next_var(bool read)
{
    if (var_stack.is_empty() || !var_stack.last().var)
        return {};
    type_desc* d = var_stack.last().var->desc->stream_desc;
    var_desc* first = d->children.ptr();
    var_desc* end = first ? first + d->children.size() : nullptr;
    var_desc* next = nullptr;
    if (cur_var && cur_var >= first && cur_var < end) {
        next = cur_var + 1;
        while (!read && next < end && next->obsolete) // never written
            ++next;
        if (next == end)
            next = nullptr;
    }
    if (filling_var && cur_var == filling_var) { // the filled member is done
        cur_cache->offs = none;
        return {};
    }
    if (cur_cache) {
        if (cur_var && cur_var == default_var) { // its default's level is finished
            default_var = cur_cache->saved_default;
            pop_level();
            if (cur_cache && cur_cache->offs != none)
                cur_cache->offs += 8;
        } else if (cur_var && cur_var == cache_skip) { // taken out of the cache: its slot is free
            word_at(cache, slot_of(*cur_cache, cur_var)) = 0;
            cur_cache->offs = none;
            cache_skip = nullptr;
        }
    }
    cur_var = next;
    if (read)
        cur_name.reset();
    return {};
}

void metastream::push_var(bool read)
{
    push_frame();
    type_desc* d = cur_var->desc->stream_desc;
    var_desc* v = d->children.ptr();
    var_desc* end = v ? v + d->children.size() : nullptr;
    while (!read && v && v < end && v->obsolete)
        ++v;
    cur_var = v != end ? v : nullptr;
    cur_index = 0;
}

opcd metastream::find_var()
{
    if (!filling_var) {
        if (!level_active() && !select_cached_slot())
            return search_input();
        if (cur_var->optional && read_word(*cur_cache->buffer, cur_cache->offs) == 0)
            return absent_optional();
        return {};
    }
    if (cur_cache && cur_cache->offs != none && read_word(*cur_cache->buffer, cur_cache->offs) != 0) {
        absent_var = cur_var; // filled earlier, out of order: nothing more on input
        return {};
    }
    return search_input();
}

// A member that arrived out of order and waits in the top level's table.
bool metastream::select_cached_slot()
{
    if (cache_stack.is_empty() || var_stack.is_empty() || cache_stack.last().var != var_stack.last().var)
        return false;
    cache_entry& e = cache_stack.last();
    uint64_t slot = slot_of(e, cur_var);
    if (read_word(cache, slot) == 0)
        return false;
    e.offs = slot;
    e.count_offs = none;
    e.buffer = &cache;
    cache_skip = cur_var;
    return true;
}

// Reads member names off the input until the wanted one comes; the others
// go to the cache.
opcd metastream::search_input()
{
    for (;;) {
        if (opcd e = read_var_name()) {
            if (default_var == cur_var && cur_var)
                return {}; // its default is in use
            if (cur_var->optional)
                return filling_var ? e : absent_optional();
            return {};
        }
        if (cur_name == cur_var->name())
            return {};
        fill_member();
    }
}

// An optional member that is not there: the streaming function keeps its
// value, and the walk moves on to the next member.
opcd metastream::absent_optional()
{
    last_absent = cur_var;
    if (!filling_var) {
        if (level_active())
            cur_cache->offs += 8;
        next_var(true);
    }
    return ers::no_more;
}

opcd metastream::read_var_name()
{
    opcd e = fmt_read->read_key(cur_name, static_cast<int32_t>(cur_index), cur_var->name());
    ++cur_index;
    if (!e)
        return {};
    charstr msg;
    if (e == ers::no_more) {
        if (filling_var) {
            absent_var = cur_var;
            return e;
        }
        if (use_default() || cur_var->optional)
            return e;
        msg << " - variable '" << label(cur_var) << "' not found and no default value provided";
    } else {
        msg << " - error while seeking for variable '" << label(cur_var) << "': " << e;
    }
    raise(1, msg, true);
}

bool metastream::use_default()
{
    if (!cur_var || cur_var->defval.is_empty())
        return false;
    var_desc* v = cur_var;
    push_level() = {&v->defval, 0, none, v, default_var, 0};
    default_var = v;
    return true;
}

// The input offers a member other than the one wanted: it is read into the
// cache now, into the parent's table.
void metastream::fill_member()
{
    if (var_stack.is_empty() || !var_stack.last().var) {
        err_code = ers::not_found_variable;
        charstr msg;
        msg << " - expected variable: " << cur_name;
        raise(0, msg, true);
    }
    var_desc* parent = var_stack.last().var;
    type_desc* pd = parent->desc->stream_desc;
    if (!(cur_cache && cur_cache->var == parent && cur_cache->buffer == &cache)) {
        if (!cache_root) {
            cache_root = parent;
            cache.reset();
        }
        uint64_t table = align_end(cache, 8);
        memset(cache.add(8 * pd->children.size()), 0, 8 * pd->children.size());
        push_level() = {&cache, none, none, parent, nullptr, table};
    } else if (!cache_root) {
        cache_root = parent;
    }
    var_desc* child = find_child(*pd, cur_name);
    if (!child) {
        err_code = ers::not_found_member_variable;
        charstr msg;
        msg << " - member variable: " << cur_name << " not defined";
        raise(1, msg, true);
    }
    uint32_t level = cache_stack.size() - 1;
    uint64_t slot = cache_stack[level].table + 8 * (child - pd->children.ptr());
    if (read_word(cache, slot) != 0) {
        err_code = ers::mismatched_redundant_member;
        charstr msg;
        msg << " - data for member: " << cur_name << " specified more than once";
        raise(1, msg, true);
    }
    uint64_t saved_offs = cache_stack[level].offs;
    var_desc* saved_var = cur_var;
    var_desc* saved_filling = filling_var;
    cache_stack[level].offs = slot;
    cur_var = child;
    filling_var = child;
    read_var(child);
    cur_cache = &cache_stack[level]; // levels above were pushed and popped
    cache_stack[level].offs = saved_offs;
    cur_var = saved_var;
    filling_var = saved_filling;
}

var_desc* metastream::find_child(type_desc& d, const token& name)
{
    for (var_desc& v : d.children)
        if (v.name() == name)
            return &v;
    return nullptr;
}

// One variable from the input into the cache, with no object.
void metastream::read_var(var_desc* v)
{
    if (!v->nameless && v->has_name())
        write_var_name(true); // a missing one shows as absent_var
    if (absent_var) {
        absent_var = nullptr;
        next_var(true);
        return;
    }
    type_desc* d = v->desc->stream_desc;
    if (!d->is_compound()) {
        process_value(nullptr, d->kind, true);
        return;
    }
    if (d->is_array) {
        cache_container c(*this, *d);
        read_array_framed(c);
        return;
    }
    struct_open(true);
    uint32_t level = cache_stack.size() - 1;
    uint64_t table = cache_stack[level].table;
    for (uint32_t i = 0; i < d->children.size(); ++i) {
        // Each member's slot by its number: a member's value moves offs on
        // itself, an absent one does not.
        cache_stack[level].offs = table + 8 * uint64_t(i);
        cur_var = &d->children[i];
        read_var(cur_var);
    }
    struct_close(true);
}

opcd metastream::write_var_name(bool read)
{
    if (!cur_name.is_empty() || !cur_var || cur_var->nameless || !cur_var->has_name())
        return {};
    if (read)
        return find_var();
    if (level_active())
        return {};
    if (opcd e = fmt_write->write_key(cur_var->name(), static_cast<int32_t>(cur_index))) {
        charstr msg;
        msg << " - error while writing the variable name '" << label(cur_var) << "': " << e;
        raise(1, msg, false);
    }
    ++cur_index;
    return {};
}

// -- Structures ---------------------------------------------------------------------

void metastream::struct_open(bool read)
{
    bool active = level_active();
    bool direct = !active || filling_var;
    if (direct) {
        kind t(kind::type_struct_open, 0, cur_var->nameless ? kind::flag_root : 0);
        const token* name = &cur_var->desc->stream_desc->type_name;
        opcd e = read ? fmt_read->read(const_cast<token*>(name), t) : fmt_write->write(name, t);
        if (e)
            raise(0, read ? token(" - error reading struct opening token\n")
                          : token(" - error writing struct opening token\n"),
                  read);
    }
    if (active) {
        cache_push(read);
        if (!read || filling_var) { // storing: a zeroed table
            uint64_t n = 8 * uint64_t(cur_var->desc->stream_desc->children.size());
            if (n)
                memset(cur_cache->buffer->add(n), 0, n);
        }
    }
    if (read)
        cur_name.reset();
    push_var(read);
}

void metastream::struct_close(bool read)
{
    bool was_active = level_active();
    pop_frame();
    if (read)
        cur_name.reset();
    bool was_cache_root = cur_var == cache_root;
    if (cur_cache && cur_cache->var == cur_var) {
        if (cur_cache->saved_default)
            default_var = cur_cache->saved_default;
        pop_level();
    }
    if (was_cache_root)
        cache_root = nullptr;
    if (!was_cache_root && was_active && !filling_var) {
        next_var(read); // cached data has no closing token
        return;
    }
    kind t(kind::type_struct_close, 0, cur_var->nameless ? kind::flag_root : 0);
    const token* name = &cur_var->desc->stream_desc->type_name;
    opcd e = read ? fmt_read->read(const_cast<token*>(name), t) : fmt_write->write(name, t);
    if (e)
        raise(0, read ? token(" - error reading struct closing token") : token(" - error writing struct closing token"),
              read);
    next_var(read);
}

bool metastream::struct_begin_rw()
{
    if (reading) {
        if (write_var_name(true) == ers::no_more) // absent and optional
            return false;
        struct_open(true);
        return true;
    }
    write_var_name(false);
    struct_open(false);
    return true;
}

void metastream::struct_end()
{
    if (reading || writing)
        struct_close(reading);
    else
        define_struct_end();
}

void metastream::push_frame()
{
    *var_stack.add(1) = {cur_var, cur_index};
}

void metastream::pop_frame()
{
    if (var_stack.is_empty())
        return;
    const var_frame& f = var_stack.last();
    cur_var = f.var;
    cur_index = static_cast<uint32_t>(f.index);
    var_stack.resize(var_stack.size() - 1);
}

// -- Cache levels --------------------------------------------------------------------

metastream::cache_entry& metastream::push_level()
{
    cache_entry* e = cache_stack.add(1);
    cur_cache = e;
    return *e;
}

void metastream::pop_level()
{
    cache_entry dropped;
    cache_stack.pop(dropped);
    cur_cache = cache_stack.is_empty() ? nullptr : &cache_stack.last();
}

void metastream::cache_push(bool read)
{
    VELK_ASSERT_MSG(cur_cache, "a cache level is pushed on no level");
    bool storing = !read || filling_var;
    cache_entry n{nullptr, none, none, cur_var, nullptr, 0};
    cache_entry& p = *cur_cache;
    if (cur_var->named_or_root()) {
        if (storing) {
            uint64_t at = align_end(*p.buffer, 8);
            word_at(*p.buffer, p.offs) = at - p.offs;
            n.offs = at;
            n.buffer = p.buffer;
        } else {
            uint64_t w = read_word(*p.buffer, p.offs);
            if (w) {
                n.buffer = p.buffer;
                n.offs = p.offs + w;
            } else { // the default value begins with one word
                n.buffer = &cur_var->defval;
                n.offs = 8;
            }
        }
        p.offs += 8;
    } else { // an element
        n.buffer = p.buffer;
        n.offs = storing ? align_end(*p.buffer, 8) : p.offs;
    }
    n.table = n.offs;
    push_level() = n;
}

uint64_t metastream::align_up(uint64_t x, uint64_t a)
{
    return a > 1 ? (x + a - 1) / a * a : x;
}

uint64_t metastream::align_end(meta::byte_array& b, uint64_t a)
{
    uint64_t n = b.size();
    uint64_t at = align_up(n, a);
    if (at != n)
        memset(b.add(at - n), 0, at - n);
    return at;
}

uint64_t metastream::slot_of(const cache_entry& e, const var_desc* v) const
{
    const type_desc* d = var_stack.last().var->desc->stream_desc;
    return e.table + 8 * uint64_t(v - d->children.ptr());
}

uint64_t& metastream::word_at(meta::byte_array& b, uint64_t offs)
{
    VELK_ASSERT_MSG(offs + 8 <= b.size(), "a cache word lies outside its buffer");
    return *reinterpret_cast<uint64_t*>(b.ptr() + offs);
}

uint64_t metastream::read_word(const meta::byte_array& b, uint64_t offs)
{
    if (offs == none || offs + 8 > b.size()) // outside: nothing arrived there
        return 0;
    uint64_t w;
    memcpy(&w, b.ptr() + offs, 8);
    return w;
}

// A count of width 1, 2, 4 or 8 bytes (0: 8).
uint64_t metastream::load_width(const void* p, uint32_t size)
{
    switch (size) {
    case 1: return *static_cast<const uint8_t*>(p);
    case 2: { uint16_t v; memcpy(&v, p, 2); return v; }
    case 4: { uint32_t v; memcpy(&v, p, 4); return v == UINT32_MAX ? none : v; }
    default: { uint64_t v; memcpy(&v, p, 8); return v; }
    }
}

void metastream::store_width(void* p, uint32_t size, uint64_t v)
{
    switch (size) {
    case 1: *static_cast<uint8_t*>(p) = uint8_t(v); break;
    case 2: { uint16_t x = uint16_t(v); memcpy(p, &x, 2); break; }
    case 4: { uint32_t x = uint32_t(v); memcpy(p, &x, 4); break; }
    default: memcpy(p, &v, 8); break;
    }
}

// -- Errors ---------------------------------------------------------------------------

void metastream::fmt_error(bool reading_side)
{
    fmtstream* f = reading_side ? fmt_read : fmt_write;
    if (f)
        f->fmtstream_err(err, true);
}

void metastream::warn_obsolete(const token& name)
{
    err << "warning: obsolete variable '" << name << "'";
    if (fmt_read)
        fmt_read->fmtstream_err(err, false);
    VELK_LOG(log_level::warning, "metastream") << err;
}

void metastream::dump_stack(int32_t depth, const var_desc* last)
{
    if (!err.is_empty())
        err << '\n';
    int64_t size = var_stack.size();
    int64_t n = depth < 1 ? size + depth : std::min<int64_t>(depth, size);
    for (int64_t i = 0; i < n; ++i)
        dump_level(var_stack[i].var);
    if (last)
        dump_level(last);
}

void metastream::dump_level(const var_desc* v)
{
    if (!v)
        return;
    if (v->has_name())
        err << '.' << v->varname;
    const type_desc* d = v->desc ? v->desc->stream_desc : nullptr;
    if (!d)
        return;
    if (d->is_array) {
        if (d->array_size != none)
            err << '[' << d->array_size << ']';
        else
            err << "[]";
    }
    err << ':' << d->type_name;
}

void metastream::raise(int32_t depth, const token& message, bool tell_format)
{
    dump_stack(depth, nullptr);
    err << message;
    if (tell_format)
        fmt_error(true);
    throw exception(token(err));
}

} // namespace velk
