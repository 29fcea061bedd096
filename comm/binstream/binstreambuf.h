// binstreambuf: a binstream over a growable memory buffer.
//
// Writes append to buf, whose element count is the write position; reads
// take from rpos on. Invariant: rpos never passes the count, except after
// set_write_pos cut the buffer below it, and then reads see no data.
// A read that finds too little delivers what there is, empties the whole
// buffer and answers ers::no_more.
//
//   binstreambuf buf;
//   uint64_t len = 5;
//   buf.write_raw("hello", len);
//   buf.transfer_to(file, binstream::unknown_size, nullptr, 4096);
//
// Nothing throws but acknowledge (ers::io_error_data_left, by value) and
// growth (std::bad_alloc, the buffer unchanged). One thread at a time.
#pragma once

#include "comm/binstream/binstream.h"
#include "comm/dynarray.h"

#include <cstdint>

namespace velk {

class binstreambuf : public binstream
{
public:
    using buffer_type = dynarray<uint8_t, uint64_t, comm_array_allocator>;

    // Empty.
    binstreambuf() = default;
    // Frees buf.
    ~binstreambuf() override = default;

    // 48 on both sides.
    uint32_t binstream_attributes(bool in0out1) const override;

    // Appends len bytes; len becomes 0. Throws std::bad_alloc.
    opcd write_raw(const void* p, uint64_t& len) override;

    // len bytes from rpos when there are that many; otherwise all there is,
    // the buffer emptied (count and rpos 0), len left as the bytes missing,
    // and ers::no_more.
    opcd read_raw(void* p, uint64_t& len) override;

    // Reads src into the buffer's own room, blocks of at most blocksize bytes
    // (0 is ers::invalid_params), until datasize is used up, a read fails or
    // comes short. The count is cut back to what arrived; the end of src is
    // success. written receives the bytes read. Throws std::bad_alloc.
    opcd transfer_from(binstream& src, uint64_t datasize, uint64_t* written, uint64_t blocksize) override;

    // Writes from rpos to dst in blocks of at most blocksize bytes, up to
    // the smaller of the count and datasize taken as an offset into the
    // buffer, not as a length from rpos: a datasize below rpos moves nothing.
    // Stops at a failure, or at a write that left bytes over
    // (ers::io_error_write_failed). written receives the bytes taken.
    opcd transfer_to(binstream& dst, uint64_t datasize, uint64_t* written, uint64_t blocksize) override;

    // ers::invalid_params for a timeout other than 0; success while unread
    // bytes remain, else ers::no_more.
    opcd peek_read(uint32_t timeout) override;
    // Success.
    opcd peek_write(uint32_t timeout) override;

    // Consumes the bytes before the first match of pattern (all that is left
    // when there is none), writing them to out first when given; the match
    // stays unread. Success on a match, ers::not_found otherwise; a failed
    // write to out is returned with nothing consumed. max_size is not used.
    opcd read_until(const substring& pattern, binstream* out, uint64_t max_size) override;

    // Always true.
    bool is_open() const override;
    // Nothing.
    void flush() override;
    // Throws ers::io_error_data_left when unread bytes remain, after
    // reset_read when eat is true. Returns when all was read.
    void acknowledge(bool eat = false) override;

    // rpos to 0.
    opcd reset_read() override;
    // The buffer emptied (count 0, block kept) and rpos 0.
    opcd reset_write() override;

    uint64_t get_read_pos() override;
    // The count.
    uint64_t get_write_pos() override;
    // A pos within the count is taken (true); beyond it rpos goes to the
    // count and the result is false.
    bool set_read_pos(uint64_t pos) override;
    // The count becomes pos; bytes it adds are zero. True. Throws std::bad_alloc.
    bool set_write_pos(uint64_t pos) override;

    // -- The buffer itself ------------------------------------------------------

    // The bytes written; the count is the write position.
    const buffer_type& buffer() const { return buf; }
    // For a caller that takes the data over: it must keep rpos within the count.
    buffer_type& buffer() { return buf; }
    // Unread bytes.
    uint64_t unread() const;

protected:
    buffer_type buf;
    uint64_t rpos = 0;
};

} // namespace velk
