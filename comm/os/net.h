// Platform seam of the network layer: start and end of the layer, the last
// error, the name service and the socket calls that net_address and
// net_socket are built on.
//
// A socket is a handle of 64 bits, no_net_handle for none. An address passes
// through as a pointer to 16 bytes in the layout of the system's IPv4 socket
// address, which net_address shares. Every call gives the system's own result
// and leaves its error in the last-error slot (net_last_error); nothing here
// logs or throws, apart from std::bad_alloc for the copies of names.
//
//   os::net_handle h = os::sock_open(true);
//   if (os::sock_connect(h, &address) < 0 && os::net_is_pending(os::net_last_error())) ...
#pragma once

#include "comm/charstr.h"

#include <cstdint>

namespace velk::os {

using net_handle = uint64_t;

// The handle of no socket: all ones.
inline constexpr net_handle no_net_handle = ~net_handle(0);

// -- Start and end of the layer ---------------------------------------------

// Counts one more user of the layer: 0, or -1 when it can't be started.
int net_start();

// Counts one user less: 0, or -1, with the last error set, when there was none.
int net_stop();

// Cancels a blocking call of this thread that keeps net_stop from finishing;
// this system has none, so it does nothing.
void net_cancel_blocking_call();

// The users counted now; for tests.
uint32_t net_start_count();

// -- The last error ---------------------------------------------------------

// The error of the calling thread's last failed call; 0 for none.
int net_last_error();
void net_set_last_error(int e);

// The errors of an operation that has not finished rather than failed:
// would block, in progress, already in progress.
bool net_is_pending(int e);

// The error of a blocking call in progress, which keeps net_stop from finishing.
bool net_is_blocking_in_progress(int e);

// -- Names ------------------------------------------------------------------

// A dotted IPv4 text in any of its forms ("1.2.3.4", "10.1", "0x7f.1") as an
// address in network order; 0xFFFFFFFF for a text that is no address, which
// "255.255.255.255" also gives.
uint32_t net_parse_dotted(const char* text);

// The dotted text of an address in network order, in a buffer of the calling
// thread that the next call overwrites.
const char* net_dotted_text(uint32_t addr_net);

// The name service: this machine's name, names to addresses and back.
// Addresses are in network order. Each gives false, and leaves its output
// alone, when the answer can't be found.
struct name_service
{
    // This machine's name into buf of size bytes, zero-terminated within them.
    bool (*host_name)(char* buf, uint32_t size);
    // The first IPv4 address of name; a null name asks for this machine.
    bool (*address_of)(const char* name, uint32_t& addr_net);
    // The name of an address.
    bool (*name_of)(uint32_t addr_net, charstr& out);
};

// The service of the system, and the one in use, which is the system's
// unless replaced. set_name_service puts service in place (null: the
// system's) and gives the one it replaces. It is meant for tests, which must
// answer without a network; it is not safe while another thread looks up.
const name_service& system_name_service();
const name_service& current_name_service();
const name_service* set_name_service(const name_service* service);

// -- Sockets ----------------------------------------------------------------

// An IPv4 socket, stream or datagram; no_net_handle on failure. The socket
// is not inherited by programs that the process starts.
net_handle sock_open(bool stream);
int sock_close(net_handle h);
// Ends the sending side; the peer reads the end of data after what was sent.
int sock_shutdown_send(net_handle h);

int sock_bind(net_handle h, const void* addr16);
int sock_listen(net_handle h, int backlog);
// The accepted socket, and its peer into addr16; no_net_handle on failure.
net_handle sock_accept(net_handle h, void* addr16);
int sock_connect(net_handle h, const void* addr16);

// The counts of bytes moved, or -1. A send to a peer that has gone fails
// with the error; it never raises a signal.
int sock_send(net_handle h, const void* buf, int size, int flags);
int sock_recv(net_handle h, void* buf, int size, int flags);
int sock_sendto(net_handle h, const void* buf, int size, int flags, const void* addr16);
int sock_recvfrom(net_handle h, void* buf, int size, int flags, void* addr16);

// The socket's own address and its peer's into addr16: 0, or -1.
int sock_name(net_handle h, void* addr16);
int sock_peer_name(net_handle h, void* addr16);

// Blocking or not: 0, or -1.
int sock_set_blocking(net_handle h, bool on);

// The options of the socket level that the library sets.
enum class sock_option
{
    receive_buffer,
    send_buffer,
    broadcast,
    debug,
    reuse_address,
};

int sock_set_option(net_handle h, sock_option option, int value);
// Lingering on close: on, and the seconds to linger.
int sock_set_linger(net_handle h, uint16_t on, uint16_t seconds);

// -- Waiting ----------------------------------------------------------------

// One socket watched by sock_select, for reading or for writing.
struct sock_wait
{
    net_handle handle;
    bool write;
    bool ready; // set by sock_select
};

// A limit of a wait, as the system's select takes it.
struct wait_time
{
    int64_t seconds;
    int64_t microseconds;
};

// Waits until one of the n sockets is ready or the limit has passed (null: no
// limit), then marks the ready ones. Gives their count, 0 when the time ran
// out, or -1: an invalid handle, or a limit with negative parts or
// microseconds of a second or more, as select refuses them.
int sock_select(sock_wait* entries, uint32_t n, const wait_time* limit);

// Whether a socket can send, without waiting: 1 when it can, -1 when it has
// an error pending (a connect that failed) or urgent data, 0 otherwise, also
// while a connect is under way.
int sock_connect_state(net_handle h);

} // namespace velk::os
