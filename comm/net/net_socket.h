// net_socket: a thin owning wrapper of one IPv4 stream or datagram socket,
// with a uniform answer for a closed socket and a few composite operations:
// a graceful close, a wait across many sockets and timed waits.
//
// Invariant: the only state is the handle, all ones for no socket. The
// object owns it, yet the destructor leaves it open: closing is explicit
// (close or lingering_close), and a moved-from socket has no handle.
//
//   net_socket s;
//   s.open(true);
//   if (s.connect("127.0.0.1:8080", 0, false) == 0) s.send(msg, n, 0);
//   s.lingering_close();
//
// Failures: an operation marked "needs a handle" throws the opcd
// ers::disconnected when there is none. set_buffers and set_broadcast throw
// ers::failed when the system refuses the option. Everything else gives the
// system call's own result and leaves its error for last_error; would_block
// tells a pending state from a real failure. No lock: two threads on one
// socket are as safe as the system makes them, and a close during another
// thread's call is the caller's problem.
#pragma once

#include "comm/net/net_address.h"
#include "comm/os/net.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

class net_socket
{
public:
    static constexpr uint64_t no_handle = os::no_net_handle;

    net_socket() = default;
    // Takes over handle.
    explicit net_socket(uint64_t handle) : _handle(handle) {}
    // Leaves the handle open; see the banner.
    ~net_socket() = default;

    // A copy would own the same handle twice; a move hands it over.
    net_socket(const net_socket&) = delete;
    net_socket& operator=(const net_socket&) = delete;
    net_socket(net_socket&& other) noexcept : _handle(other._handle) { other._handle = no_handle; }
    // Closes this socket's own handle first.
    net_socket& operator=(net_socket&& other) noexcept;

    uint64_t handle() const { return _handle; }
    bool is_valid() const { return _handle != no_handle; }

    // -- Life -----------------------------------------------------------------

    // Closes any socket, then makes a stream (TCP) or datagram (UDP) socket.
    // False when the system refuses; there is no handle then.
    bool open(bool stream);

    // Closes the socket if there is one; there is no handle afterwards.
    void close();

    // Closes any socket and takes over handle.
    void assign(uint64_t handle);

    // Ends sending, drops what has arrived and not been read, then closes;
    // the peer reads all that was sent, then the end of data. Nothing
    // without a handle.
    void lingering_close();

    // -- Connection (each needs a handle) -------------------------------------

    // Binds to host (null or empty: any address) and port; a port in host
    // replaces port only when port is 0.
    int bind(const char* host, uint16_t port);
    int listen(int backlog);
    // The accepted socket's handle, no_handle on failure; out gets the peer.
    uint64_t accept(net_address& out);
    // Connects to the address of net_address::set(name, port, port_override).
    int connect(const token& name, uint16_t port, bool port_override);
    // Connects to address; the broadcast address first turns broadcasting on.
    int connect(const net_address& address);

    // -- Data (each needs a handle) -------------------------------------------

    // Bytes moved, 0 for the end of data on receiving, or -1. A send to a
    // peer that has gone fails with the error, never with a signal.
    int send(const void* buf, int size, int flags);
    int recv(void* buf, int size, int flags);
    int sendto(const void* buf, int size, int flags, const net_address& to);
    int recvfrom(void* buf, int size, int flags, net_address& from);

    // -- State ----------------------------------------------------------------

    // Without waiting: 1 when the socket can send (a connect has finished), -1
    // when an error is pending (a connect failed), else 0. No handle gives 0.
    int connected() const;

    // The socket's own address, or its peer's, into out: &out, or null when
    // the system can't tell. An address of 0 reads as 127.0.0.1; a peer on
    // 127.0.0.1 reads as net_address::local_address, with its port.
    net_address* local_address(net_address& out) const;
    net_address* peer_address(net_address& out) const;

    // -- Options (each needs a handle) ----------------------------------------

    // Sets the receive buffer size if receive is not 0, then the send buffer
    // size if send is not 0; gives the last call's result. Throws ers::failed
    // when that call failed or neither was made.
    int set_buffers(int receive, int send);
    int set_blocking(bool on);
    // Throws ers::failed when the system refuses.
    int set_broadcast(bool on);
    int set_debug(bool on);
    int set_reuse_address(bool on);
    int set_linger(uint8_t on, uint16_t seconds);

    // -- Waiting --------------------------------------------------------------

    // Waits until the socket can be read (data, the end of data or an error
    // to read) or written, up to ms milliseconds, or without limit when ms is
    // negative. 1 when ready, 0 when the time ran out, -1 on failure and,
    // without a call, without a handle.
    int wait_read(int ms) const;
    int wait_write(int ms) const;

    // Whether the last failure was an operation that has not finished (would
    // block, in progress, already in progress) rather than an error. Reads
    // and clears the last error.
    static bool would_block();

    // The last error of the calling thread, as the system numbers it.
    static int last_error() { return os::net_last_error(); }

    // Waits up to ms milliseconds until a socket of either list is ready, to
    // read or to write. The lists are null-terminated arrays of pointers, each
    // of which may be null or empty; of each, the first 64 sockets are
    // watched and the rest skipped. Both lists are then compacted in place to
    // the ready sockets, in their order, and null-terminated. Gives the count
    // of ready sockets in both, 0 at once when both are empty, or -1 on
    // failure (a socket without a handle, a negative ms), the lists then
    // unchanged.
    static int select_sockets(net_socket** readers, net_socket** writers, int ms);

    // The most sockets that select_sockets watches in one list.
    static constexpr uint32_t select_limit = 64;

private:
    // Throws ers::disconnected without a handle.
    void need_handle() const;

    uint64_t _handle = no_handle;
};

} // namespace velk
