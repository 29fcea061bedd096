// metastream arrays: the framing (count, body, end with the count moved) and
// the bodies, to and from the format or the cache.
//
// In the cache an array is a count word, filled in at its end, then the
// elements: primitives packed, each aligned to the smaller of its size and
// 8; compound elements each behind a link word that leads to the next one.
#include "comm/metastream/metastream.h"

#include "comm/exception.h"

#include <algorithm>
#include <cstring>

namespace velk {

using bstype::kind;
using meta::type_desc;
using meta::var_desc;

// -- cache_container -------------------------------------------------------------------

metastream::cache_container::cache_container(metastream& m, type_desc& d)
    : binstream_container_base(d.children[0].desc->stream_desc->kind, &read_element, nullptr),
      stream(&m), desc(&d)
{}

opcd metastream::cache_container::read_element(void* m, void* element, binstream_container_base* c)
{
    auto* self = static_cast<cache_container*>(c);
    self->stream->read_var(&self->desc->children[0]);
    return {};
}

// -- Reading -----------------------------------------------------------------------------

void metastream::read_container(binstream_container_base& c)
{
    if (cur_name.is_empty() && cur_var && !cur_var->nameless && cur_var->has_name())
        if (opcd e = find_var())
            throw exception(e);
    cur_name.reset();
    read_array_framed(c);
}

void metastream::read_array_framed(binstream_container_base& c)
{
    uint64_t count = none;
    process_value(&count, c.type.with(8, kind::flag_array_begin), true);
    if (count == none)
        c.type.add_flags(kind::flag_separators);
    uint64_t got = 0;
    if (opcd e = read_array_body(c, count, got))
        throw exception(e);
    process_value(&got, c.type.with(0, kind::flag_array_end), true);
}

opcd metastream::read_array_body(binstream_container_base& c, uint64_t n, uint64_t& got)
{
    c.type.add_flags(kind::flag_separators);
    kind et = c.type;
    got = 0;
    if (!et.is_primitive())
        return level_active() ? read_elements_cached(c, n, got) : read_array_elements(c, n, got);
    if (!level_active())
        return fmt_read->read_array_content(c, n, got, this);
    bool known = n != none;
    if (!(known && c.is_continuous()))
        return read_array_elements(c, n, got);
    uint64_t bytes = et.size() * n;
    cache_entry& e = *cur_cache;
    if (!filling_var) { // one block out of the cache
        if (e.offs + bytes > e.buffer->size())
            return ers::out_of_range;
        void* to = c.insert(n);
        if (!to && bytes)
            return ers::out_of_memory;
        if (bytes)
            memcpy(to, e.buffer->ptr() + e.offs, bytes);
        e.offs += bytes;
        got = n;
        return {};
    }
    // One block from the format, straight into the cache.
    uint64_t at = align_end(*e.buffer, std::min<uint64_t>(et.size(), 8));
    if (bytes)
        e.buffer->add(bytes);
    uint64_t len = bytes;
    opcd r;
    for (uint8_t* to = e.buffer->ptr() + at; len;) {
        uint64_t before = len;
        r = fmt_read->read_raw(to, len);
        if (!(r == ers::retry))
            break;
        to += before - len;
    }
    if (!r)
        got = n;
    return r;
}

opcd metastream::read_array_elements(binstream_container_base& c, uint64_t n, uint64_t& got)
{
    kind k = c.type.with(c.type.size(), kind::flag_element);
    bool seps = c.type.has_flags(kind::flag_separators);
    if (n == none && level_active() && !filling_var)
        return ers::mismatched_cached_elements_left; // a cached array always knows its count
    for (got = 0; got < n; ++got) {
        if (seps) {
            if (!described)
                need_separator = 0;
            if (!level_active() || filling_var) {
                opcd e = fmt_read->read_array_separator(k);
                if (e == ers::no_more)
                    break;
                if (e)
                    separator_failure(true, e);
            }
        }
        void* el = c.insert(1);
        if (!el)
            return ers::out_of_memory;
        stream_element(c, el, k, true);
        k.set_flags(kind::flag_element | kind::flag_next_element);
    }
    return {};
}

// Compound elements in the cache: each behind a link word that leads to the
// next element's link word.
opcd metastream::read_elements_cached(binstream_container_base& c, uint64_t n, uint64_t& got)
{
    bool filling = filling_var != nullptr;
    uint32_t level = cache_stack.size() - 1;
    kind k = c.type.with(c.type.size(), kind::flag_element);
    uint64_t prev_link = none;
    if (n == none && !filling)
        return ers::mismatched_cached_elements_left;
    for (got = 0; got < n; ++got) {
        if (filling) {
            opcd e = fmt_read->read_array_separator(k);
            if (e == ers::no_more)
                break;
            if (e)
                separator_failure(true, e);
            k.set_flags(kind::flag_element | kind::flag_next_element);
        }
        void* el = c.insert(1);
        if (!el)
            return ers::out_of_memory;
        meta::byte_array& buf = *cache_stack[level].buffer;
        uint64_t next = 0;
        if (!filling) {
            uint64_t link = cache_stack[level].offs;
            next = link + read_word(buf, link);
            cache_stack[level].offs = link + 8;
        } else {
            prev_link = append_link(buf, prev_link);
        }
        enter_element();
        c.stream_in(this, el, &c);
        pop_frame();
        cur_cache = &cache_stack[level];
        if (!filling)
            cache_stack[level].offs = next;
    }
    if (filling && got)
        close_links(*cache_stack[level].buffer, prev_link);
    return {};
}

// -- Writing -------------------------------------------------------------------------------

void metastream::write_container(binstream_container_base& c)
{
    if (opcd e = write_var_name(false))
        throw exception(e);
    uint64_t count = c.count();
    process_value(&count, c.type.with(8, kind::flag_array_begin), false);
    if (count == none)
        c.type.add_flags(kind::flag_separators);
    uint64_t got = 0;
    if (opcd e = write_array_body(c, got))
        throw exception(e);
    process_value(&got, c.type.with(0, kind::flag_array_end), false);
}

opcd metastream::write_array_body(binstream_container_base& c, uint64_t& got)
{
    c.type.add_flags(kind::flag_separators);
    kind et = c.type;
    uint64_t n = c.count();
    got = 0;
    if (!et.is_primitive())
        return level_active() ? write_elements_cached(c, got) : write_array_elements(c, got);
    if (!level_active())
        return fmt_write->write_array_content(c, got, this);
    if (!(n != none && c.is_continuous()))
        return write_array_elements(c, got);
    uint64_t bytes = et.size() * n;
    const void* from = c.extract(n);
    if (!from && bytes)
        return ers::no_more;
    if (!filling_var) { // the block into the cache
        cache_entry& e = *cur_cache;
        uint64_t at = align_end(*e.buffer, std::min<uint64_t>(et.size(), 8));
        if (bytes) {
            e.buffer->add(bytes);
            memcpy(e.buffer->ptr() + at, from, bytes);
        }
        e.offs += bytes;
        got = n;
        return {};
    }
    uint64_t len = bytes;
    opcd r = fmt_write->write_raw(from, len);
    if (!r)
        got = n;
    return r;
}

opcd metastream::write_array_elements(binstream_container_base& c, uint64_t& got)
{
    kind k = c.type.with(c.type.size(), kind::flag_element);
    bool seps = c.type.has_flags(kind::flag_separators);
    uint64_t n = c.count();
    for (got = 0; got < n; ++got) {
        // The element first: no separator goes out for an element that isn't there.
        const void* el = c.extract(1);
        if (!el)
            break;
        if (seps) {
            if (!described)
                need_separator = 0;
            if (!level_active())
                if (opcd e = fmt_write->write_array_separator(k, 0))
                    separator_failure(false, e);
        }
        stream_element(c, const_cast<void*>(el), k, false);
        k.set_flags(kind::flag_element | kind::flag_next_element);
    }
    if (seps && !level_active())
        return fmt_write->write_array_separator(k, 1);
    return {};
}

opcd metastream::write_elements_cached(binstream_container_base& c, uint64_t& got)
{
    uint32_t level = cache_stack.size() - 1;
    uint64_t n = c.count();
    uint64_t prev_link = none;
    for (got = 0; got < n; ++got) {
        const void* el = c.extract(1);
        if (!el)
            break;
        prev_link = append_link(*cache_stack[level].buffer, prev_link);
        enter_element();
        c.stream_out(this, const_cast<void*>(el), &c);
        pop_frame();
        cur_cache = &cache_stack[level];
    }
    if (got)
        close_links(*cache_stack[level].buffer, prev_link);
    return {};
}

// -- Elements ------------------------------------------------------------------------------

void metastream::enter_element()
{
    push_frame();
    type_desc* ad = cur_var ? cur_var->desc->stream_desc : nullptr;
    cur_var = ad && ad->children.size() ? &ad->children[0] : nullptr;
    cur_index = 0;
}

void metastream::stream_element(binstream_container_base& c, void* el, kind k, bool read)
{
    enter_element();
    if (!k.is_primitive()) {
        if (read)
            c.stream_in(this, el, &c);
        else
            c.stream_out(this, el, &c);
    } else if (opcd e = data_value(el, k, read)) {
        charstr msg;
        msg << (read ? " - error reading variable '" : " - error writing variable '")
            << (cur_var ? cur_var->name() : token()) << "', error: " << e;
        raise(0, msg, true);
    } else {
        next_var(read);
    }
    pop_frame();
}

uint64_t metastream::append_link(meta::byte_array& buf, uint64_t prev)
{
    uint64_t at = align_end(buf, 8);
    if (prev != none)
        word_at(buf, prev) = at - prev;
    buf.add(8);
    word_at(buf, at) = none; // the last element's, until close_links
    return at;
}

void metastream::close_links(meta::byte_array& buf, uint64_t last)
{
    uint64_t end = align_end(buf, 8);
    word_at(buf, last) = end - last;
}

void metastream::separator_failure(bool read, opcd e)
{
    charstr msg;
    msg << (read ? " - error reading array separator: " : " - error writing array separator: ") << e;
    raise(0, msg, read);
}

} // namespace velk
