// bifstream: the file stream for reading whole files.
//
// A filestream in all but its attributes, which mark the input side, and an
// open of its own that hands on to filestream::open.
//
//   bifstream f;
//   if (!f.open(zstring(path.c_str()), "r"))
//       buf.transfer_from(f, binstream::unknown_size, nullptr, 4096);
#pragma once

#include "comm/binstream/filestream.h"

namespace velk {

class bifstream : public filestream
{
public:
    bifstream() = default;
    ~bifstream() override = default;

    // in0out1 xor 1: 1 for the input side, 0 for the output side.
    uint32_t binstream_attributes(bool in0out1) const override;

    // filestream::open, unchanged.
    opcd open(const zstring& name, const token& arg) override;
};

} // namespace velk
