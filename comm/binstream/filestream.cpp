// filestream: one handle, two positions. The side named by op is at the
// handle's real position and kept in its field as it moves; the other
// side's field is where the handle goes when that side is used next.
#include "comm/binstream/filestream.h"

#include "comm/os/file.h"

namespace velk {

namespace {

// One system call moves at most the low 32 bits' worth of bytes.
uint32_t chunk_of(uint64_t len)
{
    return len > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(len);
}

uint32_t mode_flags(const token& arg)
{
    uint32_t f = 0;
    for (char c : arg) {
        switch (c) {
        case 'r': f |= os::open_read; break;
        case 'w': f |= os::open_write; break;
        case 'l': f |= os::open_share_deny_write; break;
        case 'e': f |= os::open_exclusive; break;
        case 'c': f |= os::open_create; break;
        case '-':
        case 't': f |= os::open_truncate; break;
        case '+':
        case 'a': f |= os::open_append; break;
        case 'S': f |= os::open_sequential; break;
        case 'R': f |= os::open_random; break;
        default: break; // other letters are skipped
        }
    }
    return f;
}

} // namespace

filestream::~filestream()
{
    close();
}

uint32_t filestream::binstream_attributes(bool in0out1) const
{
    return 0;
}

void filestream::switch_to(int32_t side)
{
    if (op == side)
        return;
    int64_t here = os::file_tell(handle);
    uint64_t& left = side == op_read ? wpos : rpos;
    uint64_t target = side == op_read ? rpos : wpos;
    if (here >= 0)
        left = static_cast<uint64_t>(here);
    os::file_seek(handle, static_cast<int64_t>(target));
    op = side;
}

opcd filestream::write_raw(const void* p, uint64_t& len)
{
    if (handle == -1)
        return ers::io_error;
    switch_to(op_write);
    int64_t n = os::file_write(handle, p, chunk_of(len));
    if (n < 0)
        return ers::io_error;
    wpos += static_cast<uint64_t>(n);
    len -= static_cast<uint64_t>(n);
    return {}; // a short write shows in len alone
}

opcd filestream::read_raw(void* p, uint64_t& len)
{
    if (handle == -1)
        return ers::io_error;
    switch_to(op_read);
    uint32_t ask = chunk_of(len);
    int64_t n = os::file_read(handle, p, ask);
    if (n < 0)
        return ers::io_error;
    rpos += static_cast<uint64_t>(n);
    len -= static_cast<uint64_t>(n);
    if (static_cast<uint64_t>(n) < ask)
        return ers::no_more_required_data;
    return len ? ers::retry : opcd(); // more than one call can move: ask again
}

opcd filestream::peek_read(uint32_t timeout)
{
    if (timeout != 0)
        return ers::invalid_params;
    int64_t size = handle == -1 ? -1 : os::file_length(handle);
    if (size < 0)
        size = 0;
    return rpos < static_cast<uint64_t>(size) ? opcd() : ers::no_more;
}

opcd filestream::peek_write(uint32_t timeout)
{
    return {};
}

opcd filestream::read_until(const substring& pattern, binstream* out, uint64_t max_size)
{
    return ers::unavailable;
}

opcd filestream::open(const zstring& name, const token& arg)
{
    close();
    rpos = wpos = 0;
    op = op_read;
    int32_t h = os::file_open(name.c_str(), mode_flags(arg));
    if (h == os::no_file)
        return ers::io_error;
    handle = h;
    return {};
}

opcd filestream::close(bool linger)
{
    if (handle != -1)
        os::file_close(handle);
    handle = -1;
    op = op_read;
    rpos = wpos = 0;
    return {};
}

bool filestream::is_open() const
{
    return handle != -1;
}

void filestream::flush() {}

void filestream::acknowledge(bool eat) {}

opcd filestream::reset_read()
{
    rpos = 0;
    if (op == op_read && handle != -1)
        os::file_seek(handle, 0);
    return {};
}

opcd filestream::reset_write()
{
    wpos = 0;
    if (op == op_write && handle != -1)
        os::file_seek(handle, 0);
    return {};
}

opcd filestream::seek(int32_t flags, int64_t pos)
{
    int32_t side = (flags & 1) ? op_read : op_write;
    uint64_t& field = side == op_read ? rpos : wpos;
    int64_t target = (flags & 4) ? static_cast<int64_t>(field) + pos : pos;
    if (target < 0)
        return ers::failed;
    if (side == op) {
        if (handle == -1 || os::file_seek(handle, target) < 0)
            return ers::failed;
    }
    field = static_cast<uint64_t>(target);
    return {};
}

uint64_t filestream::get_read_pos()
{
    if (op == op_read && handle != -1) {
        int64_t here = os::file_tell(handle);
        if (here >= 0)
            return static_cast<uint64_t>(here);
    }
    return rpos;
}

uint64_t filestream::get_write_pos()
{
    if (op == op_write && handle != -1) {
        int64_t here = os::file_tell(handle);
        if (here >= 0)
            return static_cast<uint64_t>(here);
    }
    return wpos;
}

// The field follows the handle here, so that peek_read and relative seeks,
// which read the field, see the position just set.
bool filestream::set_read_pos(uint64_t pos)
{
    if (handle == -1)
        return false;
    switch_to(op_read);
    if (os::file_seek(handle, static_cast<int64_t>(pos)) < 0)
        return false;
    rpos = pos;
    return true;
}

bool filestream::set_write_pos(uint64_t pos)
{
    if (handle == -1)
        return false;
    switch_to(op_write);
    if (os::file_seek(handle, static_cast<int64_t>(pos)) < 0)
        return false;
    wpos = pos;
    return true;
}

} // namespace velk
