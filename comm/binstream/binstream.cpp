// The default behaviour of every binstream slot, and the array protocol that
// all streams share: a count marker, the content (one block when it can be,
// else element by element, with separators when the end is unknown), and an
// end marker with the count moved.
#include "comm/binstream/binstream.h"

#include <algorithm>

namespace velk {

using bstype::kind;

// -- Keys ----------------------------------------------------------------------

opcd binstream::write_key(const token& key, int32_t kmember)
{
    if (kmember > 0)
        write(nullptr, kind(kind::separator_word)); // a format may ignore it; so does the key
    // The characters are only read out; the container's pointers are not const.
    binstream_container_fixed_array<char, uint32_t> c(const_cast<char*>(key.ptr()), key.lens(),
                                                      kind::key_char_word);
    return write_array(c, nullptr);
}

opcd binstream::read_key(charstr& key, int32_t kmember, const token& expected)
{
    if (kmember > 0)
        if (opcd e = read(nullptr, kind(kind::separator_word)))
            return e;
    key.reset();
    auto& chars = key.dynarray_ref();
    dynarray_binstream_container<char, uint32_t> c(chars, kind::key_char_word);
    opcd e = read_array(c, nullptr);
    if (!chars.is_empty())
        *chars.add(1) = 0;
    return e;
}

// -- Values ----------------------------------------------------------------------

opcd binstream::write(const void* p, kind t)
{
    uint64_t len = t.size();
    if (len == 0)
        return {};
    return write_raw(p, len);
}

opcd binstream::read(void* p, kind t)
{
    uint64_t len = t.size();
    if (len == 0)
        return {};
    return read_raw_full(*this, p, len);
}

opcd binstream::read_raw_full(binstream& s, void* p, uint64_t& len)
{
    auto* at = static_cast<char*>(p);
    for (;;) {
        uint64_t before = len;
        opcd e = s.read_raw(at, len);
        if (!(e == ers::retry))
            return e;
        at += before - len;
    }
}

// -- Block copies ----------------------------------------------------------------

opcd binstream::copy_blocks(binstream& src, binstream& dst, uint64_t datasize, uint64_t* written,
                            uint64_t blocksize)
{
    if (blocksize == 0) // no progress could ever be made
        return ers::invalid_params;
    char buf[transfer_block];
    uint64_t total = 0;
    uint64_t rest = datasize;
    opcd result;
    while (rest != 0) {
        uint64_t want = std::min({transfer_block, blocksize, rest});
        uint64_t left = want;
        opcd re = read_raw_full(src, buf, left);
        uint64_t got = want - left;
        if (got != 0) {
            uint64_t wlen = got;
            opcd we = dst.write_raw(buf, wlen);
            total += got - wlen;
            if (we) {
                result = we;
                break;
            }
            if (wlen != 0) { // the destination is full or failing
                result = ers::io_error_write_failed;
                break;
            }
        }
        rest -= got;
        if (re) {
            if (!(re == ers::no_more))
                result = re;
            break;
        }
        if (got == 0) // a source that delivers nothing without saying so
            break;
    }
    if (written)
        *written = total;
    return result;
}

opcd binstream::transfer_from(binstream& src, uint64_t datasize, uint64_t* written, uint64_t blocksize)
{
    return copy_blocks(src, *this, datasize, written, blocksize);
}

opcd binstream::transfer_to(binstream& dst, uint64_t datasize, uint64_t* written, uint64_t blocksize)
{
    return copy_blocks(*this, dst, datasize, written, blocksize);
}

// -- Arrays ----------------------------------------------------------------------

opcd binstream::write_array_separator(kind t, uint8_t end)
{
    uint64_t len = 1;
    return write_raw(&end, len);
}

opcd binstream::read_array_separator(kind t)
{
    uint8_t b = 0;
    uint64_t len = 1;
    if (opcd e = read_raw(&b, len))
        return e;
    return b ? ers::no_more : opcd();
}

opcd binstream::write_array(binstream_container_base& c, void* m)
{
    uint64_t n = c.count();
    uint32_t n32 = static_cast<uint32_t>(n); // an unknown count stays all ones
    if (opcd e = write(&n32, c.type.with(4, kind::flag_array_begin)))
        return e;
    if (n == binstream_container_base::unknown_count)
        c.type.add_flags(kind::flag_separators);
    uint64_t moved = 0;
    if (opcd e = write_array_content(c, moved, m))
        return e;
    return write(&moved, c.type.with(0, kind::flag_array_end));
}

opcd binstream::read_array(binstream_container_base& c, void* m)
{
    uint32_t n32 = UINT32_MAX;
    if (opcd e = read(&n32, c.type.with(4, kind::flag_array_begin)))
        return e;
    uint64_t n = n32;
    if (n32 == UINT32_MAX) {
        c.type.add_flags(kind::flag_separators);
        n = binstream_container_base::unknown_count;
    }
    uint64_t moved = 0;
    if (opcd e = read_array_content(c, n, moved, m))
        return e;
    return read(&moved, c.type.with(0, kind::flag_array_end));
}

opcd binstream::write_array_content(binstream_container_base& c, uint64_t& count, void* m)
{
    count = 0;
    uint64_t n = c.count();
    kind et = c.type;
    bool known = n != binstream_container_base::unknown_count;
    if (et.is_primitive() && c.is_continuous() && known) {
        // The whole array in one write_raw, with no loop on Retry.
        uint64_t bytes = et.size() * n;
        const void* p = c.extract(n);
        if (!p && bytes)
            return ers::no_more;
        opcd e = write_raw(p, bytes);
        if (!e)
            count = n;
        return e;
    }
    return write_array_items(c, count, m);
}

opcd binstream::write_array_items(binstream_container_base& c, uint64_t& count, void* m)
{
    count = 0;
    uint64_t n = c.count();
    kind et = c.type;
    bool seps = c.type.has_flags(kind::flag_separators);
    kind k = et.with(et.size(), kind::flag_element);
    uint64_t done = 0;
    opcd e;
    for (; done < n; ++done) {
        const void* p = c.extract(1);
        if (!p)
            break;
        if (seps && (e = write_array_separator(k, 0)))
            break;
        if (!k.is_primitive()) {
            if (!c.stream_out) { // a compound container must say how to write its elements
                e = ers::not_implemented;
                break;
            }
            c.stream_out(m, const_cast<void*>(p), &c);
        } else if ((e = write(p, k))) {
            break;
        }
        k.set_flags(kind::flag_element | kind::flag_next_element);
    }
    count = done;
    if (e)
        return e;
    if (seps)
        return write_array_separator(k, 1);
    return {};
}

opcd binstream::read_array_content(binstream_container_base& c, uint64_t n, uint64_t& count, void* m)
{
    count = 0;
    kind et = c.type;
    bool known = n != binstream_container_base::unknown_count;
    if (et.is_primitive() && c.is_continuous() && known) {
        uint64_t bytes = et.size() * n;
        void* p = c.insert(n);
        if (!p && bytes)
            return ers::out_of_memory;
        opcd e = read_raw_full(*this, p, bytes);
        if (!e)
            count = n;
        return e;
    }
    return read_array_items(c, n, count, m);
}

opcd binstream::read_array_items(binstream_container_base& c, uint64_t n, uint64_t& count, void* m)
{
    count = 0;
    kind et = c.type;
    bool seps = c.type.has_flags(kind::flag_separators);
    kind k = et.with(et.size(), kind::flag_element);
    uint64_t done = 0;
    opcd e;
    for (; done < n; ++done) {
        if (seps && read_array_separator(k)) // any failure here is the array's end
            break;
        void* p = c.insert(1);
        if (!p) {
            e = ers::out_of_memory;
            break;
        }
        if (!k.is_primitive()) {
            if (!c.stream_in) {
                e = ers::not_implemented;
                break;
            }
            c.stream_in(m, p, &c);
        } else if ((e = read(p, k))) {
            break;
        }
        k.set_flags(kind::flag_element | kind::flag_next_element);
    }
    count = done;
    return e;
}

// -- Defaults of the remaining slots -------------------------------------------

opcd binstream::open(const zstring& name, const token& arg) { return ers::not_implemented; }
opcd binstream::close(bool linger) { return ers::not_implemented; }
opcd binstream::bind(binstream& bin, int32_t io) { return ers::not_implemented; }

opcd binstream::reset_all()
{
    opcd ew = reset_write();
    opcd er = reset_read();
    return ew ? ew : er;
}

opcd binstream::reserved_a() { return ers::not_implemented; }
opcd binstream::seek(int32_t flags, int64_t pos) { return ers::not_implemented; }
uint64_t binstream::reserved_b(uint64_t x) { throw ers::not_implemented; }
opcd binstream::reserved_c() { throw ers::not_implemented; }
uint64_t binstream::reserved_d(uint64_t x) { return reserved_b(x) - x; }
opcd binstream::reserved_e() { throw ers::not_implemented; }

uint64_t binstream::get_read_pos() { return unknown_size; }
uint64_t binstream::get_write_pos() { return unknown_size; }
bool binstream::set_read_pos(uint64_t pos) { return false; }
bool binstream::set_write_pos(uint64_t pos) { return false; }

} // namespace velk
