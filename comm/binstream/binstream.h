// binstream: the one abstract byte-and-value stream of the library.
//
// Everything that moves data goes through this table of 36 virtual
// operations, whose order is fixed. A value is always handed over together
// with its bstype::kind, so that one caller serves a raw byte sink and a
// structured format alike; arrays pass through a binstream_container.
// Results are opcd: null success, ers::no_more the normal end of data,
// ers::retry a request to call again for the rest. Slots without a body here
// (pure) end the process when reached through a base that lacks them.
//
//   binstreambuf buf;
//   uint32_t v = 7;
//   buf.write(&v, bstype::kind_of<uint32_t>());
//   buf.read(&v, bstype::kind_of<uint32_t>());
//
// Exceptions: reserved_b, reserved_c and reserved_e throw ers::not_implemented
// by value; acknowledge of a buffer and a fixed array container asked for
// too much throw their opcd records. Nothing else throws, apart from
// std::bad_alloc. A stream belongs to one thread at a time.
#pragma once

#include "comm/binstream/bstype.h"
#include "comm/binstream/container.h"
#include "comm/charstr.h"
#include "comm/opcd.h"
#include "comm/token.h"
#include "comm/zstring.h"

#include <cstdint>

namespace velk {

class binstream
{
public:
    // All ones: a position or a size that is not known.
    static constexpr uint64_t unknown_size = UINT64_MAX;
    // The stack buffer of block copies between two streams.
    static constexpr uint64_t transfer_block = 32768;

    binstream() = default;
    binstream(const binstream&) = delete;
    binstream& operator=(const binstream&) = delete;

    // -- 1-4: identity and keys ----------------------------------------------

    virtual ~binstream() = default;

    // Attribute bits of the stream for the input (false) or output (true) side.
    virtual uint32_t binstream_attributes(bool in0out1) const = 0;

    // A member's key: a separator first when kmember > 0 (its result is not
    // looked at), then the characters as an array of key kind (0xA0001).
    virtual opcd write_key(const token& key, int32_t kmember);

    // The mirror of write_key: a failed separator read is returned; key is
    // emptied, filled, and zero-terminated when it holds any characters.
    // expected is for formats that know what comes; the base ignores it.
    virtual opcd read_key(charstr& key, int32_t kmember, const token& expected);

    // -- 5-8: values and bytes -----------------------------------------------

    // size(t) bytes from p through write_raw; a kind of size 0 writes nothing.
    virtual opcd write(const void* p, bstype::kind t);

    // size(t) bytes into p through read_raw, calling again while it answers
    // ers::retry; a kind of size 0 reads nothing and succeeds.
    virtual opcd read(void* p, bstype::kind t);

    // Writes len bytes from p; len comes back as the bytes not taken.
    virtual opcd write_raw(const void* p, uint64_t& len) = 0;

    // Reads len bytes into p; len comes back as the bytes not delivered. A
    // stream that ends early delivers what it has and answers ers::no_more.
    virtual opcd read_raw(void* p, uint64_t& len) = 0;

    // -- 9-10: block copies --------------------------------------------------

    // Copies up to datasize bytes (unknown_size: to the end of src) from src
    // into this stream, in blocks of at most blocksize bytes (0 is
    // ers::invalid_params). written, when given, receives the bytes the
    // destination accepted. The end of the source counts as success; a write
    // that leaves bytes over stops the copy with ers::io_error_write_failed.
    virtual opcd transfer_from(binstream& src, uint64_t datasize, uint64_t* written, uint64_t blocksize);

    // The same from this stream into dst.
    virtual opcd transfer_to(binstream& dst, uint64_t datasize, uint64_t* written, uint64_t blocksize);

    // -- 11-14: arrays -------------------------------------------------------

    // The byte end (0 between elements, 1 after the last) through write_raw.
    virtual opcd write_array_separator(bstype::kind t, uint8_t end);

    // One byte through read_raw: 0 success, any other byte ers::no_more (the
    // end of an array of unknown length); a read failure is returned.
    virtual opcd read_array_separator(bstype::kind t);

    // Writes the elements of c: as one block when c is continuous, of
    // primitive kind and of known count, else one by one (with separators
    // when c's type has flag_separators). count receives the elements moved.
    virtual opcd write_array_content(binstream_container_base& c, uint64_t& count, void* m);

    // Reads up to n elements into c (n unknown_count: until a separator read
    // ends it), by block or one by one as write_array_content.
    virtual opcd read_array_content(binstream_container_base& c, uint64_t n, uint64_t& count, void* m);

    // -- 15-23: state --------------------------------------------------------

    // Whether data can be read (success) or not (ers::no_more); a stream that
    // can't wait answers ers::invalid_params to a timeout other than 0.
    virtual opcd peek_read(uint32_t timeout) = 0;
    virtual opcd peek_write(uint32_t timeout) = 0;

    // Consumes input up to the first match of pattern, handing it to out when
    // given; the match itself stays unread.
    virtual opcd read_until(const substring& pattern, binstream* out, uint64_t max_size) = 0;

    // Opens the stream on name with mode letters arg: ers::not_implemented here.
    virtual opcd open(const zstring& name, const token& arg);
    // ers::not_implemented here.
    virtual opcd close(bool linger = false);
    virtual bool is_open() const = 0;
    // Binds another stream as a side of this one: ers::not_implemented here.
    virtual opcd bind(binstream& bin, int32_t io);
    virtual void flush() = 0;
    // Ends a read: a stream with unread input complains as it defines.
    virtual void acknowledge(bool eat = false) = 0;

    // -- 24-32: positions and reserved slots ---------------------------------

    // reset_write, then reset_read; the first failure is returned.
    virtual opcd reset_all();
    virtual opcd reset_read() = 0;
    virtual opcd reset_write() = 0;
    // Unused slot kept for the table's order: ers::not_implemented.
    virtual opcd reserved_a();
    // Moves a position: ers::not_implemented here.
    virtual opcd seek(int32_t flags, int64_t pos);
    // Unused slots kept for the table's order: b, c and e throw
    // ers::not_implemented; d gives reserved_b(x) - x.
    virtual uint64_t reserved_b(uint64_t x);
    virtual opcd reserved_c();
    virtual uint64_t reserved_d(uint64_t x);
    virtual opcd reserved_e();

    // -- 33-36: positions ----------------------------------------------------

    // unknown_size here.
    virtual uint64_t get_read_pos();
    virtual uint64_t get_write_pos();
    // False here: the stream has no positions to set.
    virtual bool set_read_pos(uint64_t pos);
    virtual bool set_write_pos(uint64_t pos);

    // -- Arrays as a whole (not virtual) -------------------------------------

    // The count as a 4-byte array begin marker (all ones when not known, and
    // then with separators between the elements), the content, and an array
    // end marker with the count moved. The first failure is returned.
    opcd write_array(binstream_container_base& c, void* m);

    // The mirror of write_array.
    opcd read_array(binstream_container_base& c, void* m);

protected:
    // The element-by-element halves of write_array_content and
    // read_array_content, for formats that never take an array as one block.
    opcd write_array_items(binstream_container_base& c, uint64_t& count, void* m);
    opcd read_array_items(binstream_container_base& c, uint64_t n, uint64_t& count, void* m);

    // The block copy of transfer_from and transfer_to, on a 32768-byte stack buffer.
    static opcd copy_blocks(binstream& src, binstream& dst, uint64_t datasize, uint64_t* written,
                            uint64_t blocksize);

    // read_raw of s for len bytes, calling again while it answers ers::retry.
    // len comes back as the bytes not delivered.
    static opcd read_raw_full(binstream& s, void* p, uint64_t& len);
};

} // namespace velk
