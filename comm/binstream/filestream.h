// filestream: a binstream over one file, with independent read and write
// positions on one handle.
//
// The handle has one real position; op names the side it currently serves
// (1 reading, -1 writing) and the other side's position waits in its field.
// Switching sides remembers the handle's position for the side left and
// seeks to the other's. Invariant: handle is -1 exactly when closed, and a
// closed stream has both positions at 0.
//
//   filestream f;
//   if (!f.open(zstring(path.c_str()), "wct")) {
//       uint64_t len = text.lens();
//       f.write_raw(text.ptr(), len);     // len: the bytes not written
//       f.close();
//   }
//
// Nothing here throws; failures are opcd results. Not synchronised: one
// thread at a time.
#pragma once

#include "comm/binstream/binstream.h"

#include <cstdint>

namespace velk {

class filestream : public binstream
{
public:
    // Closed: handle -1, op 1, positions 0.
    filestream() = default;
    // Closes the handle if open.
    ~filestream() override;

    // 0: no attribute bits.
    uint32_t binstream_attributes(bool in0out1) const override;

    // Writes at the write position with one call of at most 2^32 - 1 bytes.
    // Success even when the write came short (a full device, a size limit):
    // len tells the bytes not written. ers::io_error when the stream is
    // closed or the system fails before writing anything.
    opcd write_raw(const void* p, uint64_t& len) override;

    // Reads at the read position with one call of at most 2^32 - 1 bytes;
    // len comes back as the bytes not delivered. Fewer bytes than asked:
    // ers::no_more_required_data ("required more data than available") with
    // what there was delivered. A request above 2^32 - 1 bytes that got its
    // full first part answers ers::retry for the rest. ers::io_error when the
    // stream is closed or the system fails, nothing delivered.
    opcd read_raw(void* p, uint64_t& len) override;

    // ers::invalid_params for a timeout other than 0; success while the read
    // position is below the file's size (0 when it can't be had), else
    // ers::no_more.
    opcd peek_read(uint32_t timeout) override;
    // Success.
    opcd peek_write(uint32_t timeout) override;
    // ers::unavailable: a file is not searched.
    opcd read_until(const substring& pattern, binstream* out, uint64_t max_size) override;

    // Closes whatever is open, then opens name with the mode letters of arg,
    // read one by one (others are skipped): r read, w write, l deny others
    // writing, e fail if the file exists, c create if missing, "-" or t
    // truncate, "+" or a append, S sequential and R random access hints.
    // Write alone opens write-only, read alone read-only, both or neither
    // read-write; always binary. Positions start at 0. ers::io_error when the
    // open fails; the stream is then closed.
    opcd open(const zstring& name, const token& arg) override;

    // Closes if open; handle -1, positions 0, op 1. Success.
    opcd close(bool linger = false) override;
    bool is_open() const override;
    // Nothing: writes are not buffered here.
    void flush() override;
    void acknowledge(bool eat = false) override;

    // The read position to 0, and the handle too when it serves reading.
    opcd reset_read() override;
    // The write position to 0, and the handle too when it serves writing.
    opcd reset_write() override;

    // flags bit 0 picks the side (1 read, 0 write); bit 2 makes pos relative
    // to that side's position. For the side the handle serves, the handle
    // seeks first: a failure, or a negative target, is ers::failed with the
    // position unchanged.
    opcd seek(int32_t flags, int64_t pos) override;

    // The side's position: the handle's own when it serves that side.
    uint64_t get_read_pos() override;
    uint64_t get_write_pos() override;
    // Switch the handle to that side and seek to pos; false when the stream
    // is closed or the seek fails.
    bool set_read_pos(uint64_t pos) override;
    bool set_write_pos(uint64_t pos) override;

protected:
    // Handle sides: op's values.
    static constexpr int32_t op_read = 1;
    static constexpr int32_t op_write = -1;

    // Makes the handle serve side (op_read or op_write): the handle's
    // position is kept as the other side's, then it seeks to side's own.
    void switch_to(int32_t side);

    int32_t handle = -1;
    int32_t op = op_read;
    uint64_t rpos = 0;
    uint64_t wpos = 0;
};

} // namespace velk
