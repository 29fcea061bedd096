// binstreambuf: memory stream. Writes append to the dynarray; a block read
// from another stream goes straight into the array's new room, with no
// second copy.
#include "comm/binstream/binstreambuf.h"

#include <algorithm>
#include <cstring>

namespace velk {

uint32_t binstreambuf::binstream_attributes(bool in0out1) const
{
    return 48;
}

uint64_t binstreambuf::unread() const
{
    uint64_t n = buf.size();
    return n > rpos ? n - rpos : 0;
}

opcd binstreambuf::write_raw(const void* p, uint64_t& len)
{
    if (len != 0) {
        uint8_t* to = buf.add(len);
        if (!to)
            return ers::out_of_memory;
        std::memcpy(to, p, len);
    }
    len = 0;
    return {};
}

opcd binstreambuf::read_raw(void* p, uint64_t& len)
{
    uint64_t have = unread();
    if (have >= len) {
        if (len != 0)
            std::memcpy(p, buf.ptr() + rpos, len);
        rpos += len;
        len = 0;
        return {};
    }
    if (have != 0)
        std::memcpy(p, buf.ptr() + rpos, have);
    buf.reset();
    rpos = 0;
    len -= have;
    return ers::no_more;
}

opcd binstreambuf::transfer_from(binstream& src, uint64_t datasize, uint64_t* written, uint64_t blocksize)
{
    if (blocksize == 0) // no progress could ever be made
        return ers::invalid_params;
    uint64_t total = 0;
    uint64_t rest = datasize;
    opcd e;
    while (rest != 0) {
        uint64_t block = std::min(blocksize, rest);
        uint64_t base = buf.size();
        uint8_t* room = buf.add(block);
        if (!room) {
            e = ers::out_of_memory;
            break;
        }
        uint64_t left = block;
        e = read_raw_full(src, room, left);
        uint64_t got = block - left;
        buf.resize(base + got); // what did not arrive is not data
        total += got;
        rest -= got;
        if (e || got < block)
            break;
    }
    if (e == ers::no_more)
        e = opcd();
    if (written)
        *written = total;
    return e;
}

opcd binstreambuf::transfer_to(binstream& dst, uint64_t datasize, uint64_t* written, uint64_t blocksize)
{
    if (blocksize == 0)
        return ers::invalid_params;
    // An absolute limit, not a length from rpos: kept as the library always had it.
    uint64_t limit = std::min<uint64_t>(buf.size(), datasize);
    uint64_t total = 0;
    opcd e;
    while (rpos < limit) {
        uint64_t n = std::min(blocksize, limit - rpos);
        uint64_t left = n;
        e = dst.write_raw(buf.ptr() + rpos, left);
        uint64_t took = n - left;
        rpos += took;
        total += took;
        if (e)
            break;
        if (left != 0) {
            e = ers::io_error_write_failed;
            break;
        }
    }
    if (written)
        *written = total;
    return e;
}

opcd binstreambuf::peek_read(uint32_t timeout)
{
    if (timeout != 0)
        return ers::invalid_params;
    return unread() ? opcd() : ers::no_more;
}

opcd binstreambuf::peek_write(uint32_t timeout)
{
    return {};
}

opcd binstreambuf::read_until(const substring& pattern, binstream* out, uint64_t max_size)
{
    uint64_t have = unread();
    // A token spans at most 2^32 - 1 bytes; a longer rest is searched in its front.
    uint32_t span = have > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(have);
    const char* from = have ? reinterpret_cast<const char*>(buf.ptr() + rpos) : "";
    token rest(from, span);
    uint32_t at = rest.find(pattern, 0);
    bool found = at < span;
    if (out && at != 0) {
        uint64_t len = at;
        if (opcd e = out->write_raw(from, len))
            return e;
    }
    rpos += at;
    return found ? opcd() : ers::not_found;
}

bool binstreambuf::is_open() const
{
    return true;
}

void binstreambuf::flush() {}

void binstreambuf::acknowledge(bool eat)
{
    if (unread() == 0)
        return;
    if (eat)
        reset_read();
    throw ers::io_error_data_left;
}

opcd binstreambuf::reset_read()
{
    rpos = 0;
    return {};
}

opcd binstreambuf::reset_write()
{
    buf.reset();
    rpos = 0;
    return {};
}

uint64_t binstreambuf::get_read_pos()
{
    return rpos;
}

uint64_t binstreambuf::get_write_pos()
{
    return buf.size();
}

bool binstreambuf::set_read_pos(uint64_t pos)
{
    uint64_t n = buf.size();
    if (pos <= n) {
        rpos = pos;
        return true;
    }
    rpos = n;
    return false;
}

bool binstreambuf::set_write_pos(uint64_t pos)
{
    uint64_t n = buf.size();
    buf.resize(pos);
    if (pos > n) // no stale bytes from an earlier, longer content
        std::memset(buf.ptr() + n, 0, pos - n);
    return true;
}

} // namespace velk
