// fmtstream: the hand-ons of a format stream to its bound byte streams.
#include "comm/metastream/fmtstream.h"

namespace velk {

uint32_t fmtstream::binstream_attributes(bool) const
{
    return 2;
}

opcd fmtstream::write_raw(const void* p, uint64_t& len)
{
    return bound_write->write_raw(p, len);
}

opcd fmtstream::read_raw(void* p, uint64_t& len)
{
    return bound_read->read_raw(p, len);
}

opcd fmtstream::peek_read(uint32_t timeout)
{
    return bound_read->peek_read(timeout);
}

opcd fmtstream::peek_write(uint32_t timeout)
{
    return bound_write->peek_write(timeout);
}

opcd fmtstream::read_until(const substring&, binstream*, uint64_t)
{
    return ers::not_implemented;
}

opcd fmtstream::open(const zstring& name, const token& arg)
{
    return bound_write->open(name, arg);
}

opcd fmtstream::close(bool linger)
{
    return bound_write->close(linger);
}

bool fmtstream::is_open() const
{
    return bound_read->is_open();
}

opcd fmtstream::bind(binstream& bin, int32_t io)
{
    if (io >= 0)
        bound_write = &bin;
    if (io > 0)
        return {};
    bound_read = &bin;
    return {};
}

void fmtstream::flush()
{
    if (!bound_write)
        return;
    if (buffer.lens() != 0) {
        uint64_t len = buffer.lens();
        write_raw(buffer.ptr(), len);
        buffer.reset();
    }
    bound_write->flush();
}

opcd fmtstream::reset_read()
{
    return bound_read ? bound_read->reset_read() : opcd{};
}

opcd fmtstream::reset_write()
{
    opcd e = bound_write ? bound_write->reset_write() : opcd{};
    buffer.reset();
    return e;
}

void fmtstream::fmtstream_err(charstr&, bool) {}

} // namespace velk
