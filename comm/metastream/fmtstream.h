// fmtstream: the layer between metastream and an outer format.
//
// A binstream whose byte operations hand on to one or two other streams
// (bound_read, bound_write) and whose value operations (read, write, the key
// and array operations) a concrete format replaces. Three operations follow
// the binstream table: fmtstream_name, fmtstream_err and reserved_f, so that
// the order of the table stands for every format.
//
//   my_format f;               // a concrete format
//   f.bind(buf, 0);            // reads and writes through buf
//   metastream m; ...          // m writes values into f
//   f.flush();                 // buffered text goes on to buf
//
// The binds are not owned: a bound stream must outlive the format or be
// unbound first. Handing on to an unbound side is a programming error and is
// not guarded. One thread at a time.
#pragma once

#include "comm/binstream/binstream.h"
#include "comm/charstr.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

class fmtstream : public binstream
{
public:
    fmtstream() = default;
    // Frees buffer; the bound streams are not touched.
    ~fmtstream() override = default;

    // 2, whatever the side.
    uint32_t binstream_attributes(bool in0out1) const override;

    // Hand-ons, arguments passed as they came.
    opcd write_raw(const void* p, uint64_t& len) override;
    opcd read_raw(void* p, uint64_t& len) override;
    opcd peek_read(uint32_t timeout) override;
    opcd peek_write(uint32_t timeout) override;
    // ers::not_implemented: a format reads values, not byte runs.
    opcd read_until(const substring& pattern, binstream* out, uint64_t max_size) override;
    opcd open(const zstring& name, const token& arg) override;
    opcd close(bool linger = false) override;
    bool is_open() const override;

    // io 0 binds both sides to bin, a positive io only the write side, a
    // negative io only the read side. Always success.
    opcd bind(binstream& bin, int32_t io) override;

    // With bound_write set: the text in buffer, if any, goes to this stream's
    // own write_raw in one call and buffer is emptied; then bound_write is
    // flushed. Without bound_write nothing happens.
    void flush() override;

    // Hand on when the side is bound; reset_write also empties buffer, bound
    // or not.
    opcd reset_read() override;
    opcd reset_write() override;

    // The format's name.
    virtual token fmtstream_name() = 0;
    // Lets the format add its position to an error text that metastream is
    // building: add true appends, add false only looks. Does nothing here.
    virtual void fmtstream_err(charstr& err, bool add);
    // Kept for the order of the table; called by nothing.
    virtual void reserved_f() = 0;

    binstream* bound_read = nullptr;  // raw input; not owned
    binstream* bound_write = nullptr; // raw output; not owned
    charstr buffer;                   // output text not yet handed on
};

} // namespace velk
