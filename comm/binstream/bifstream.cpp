// bifstream: a filestream told apart by its attributes.
#include "comm/binstream/bifstream.h"

namespace velk {

uint32_t bifstream::binstream_attributes(bool in0out1) const
{
    return static_cast<uint32_t>(in0out1) ^ 1u;
}

opcd bifstream::open(const zstring& name, const token& arg)
{
    return filestream::open(name, arg);
}

} // namespace velk
