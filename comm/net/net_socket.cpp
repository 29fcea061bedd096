// net_socket: the wrapper's rules over the socket calls of comm/os/net: the
// answer for a missing handle, the options that must not fail, the graceful
// close and the waits.
#include "comm/net/net_socket.h"

#include "comm/opcd.h"

namespace velk {

namespace {

// A wait of ms milliseconds, split as the system's select takes it; negative
// parts stay negative, for the system to refuse.
os::wait_time split_ms(int ms)
{
    return {ms / 1000, static_cast<int64_t>(ms % 1000) * 1000};
}

int wait_one(uint64_t handle, bool write, int ms)
{
    if (handle == os::no_net_handle)
        return -1;
    os::sock_wait entry{handle, write, false};
    os::wait_time limit = split_ms(ms);
    return os::sock_select(&entry, 1, ms < 0 ? nullptr : &limit);
}

// Puts the first select_limit sockets of list into entries from at; gives
// how many went in.
uint32_t gather(net_socket** list, bool write, os::sock_wait* entries, uint32_t at)
{
    uint32_t n = 0;
    for (net_socket** p = list; p && *p && n < net_socket::select_limit; ++p, ++n)
        entries[at + n] = {(*p)->handle(), write, false};
    return n;
}

// Keeps in list the sockets whose entries are ready, in order, and ends it
// with a null; those beyond the watched ones are dropped. Gives the count kept.
int compact(net_socket** list, const os::sock_wait* entries, uint32_t watched)
{
    if (!list)
        return 0;
    net_socket** out = list;
    for (uint32_t i = 0; list[i]; ++i)
        if (i < watched && entries[i].ready)
            *out++ = list[i];
    *out = nullptr;
    return static_cast<int>(out - list);
}

} // namespace

net_socket& net_socket::operator=(net_socket&& other) noexcept
{
    if (this != &other) {
        close();
        _handle = other._handle;
        other._handle = no_handle;
    }
    return *this;
}

void net_socket::need_handle() const
{
    if (_handle == no_handle)
        throw ers::disconnected;
}

// -- Life -------------------------------------------------------------------

bool net_socket::open(bool stream)
{
    close();
    _handle = os::sock_open(stream);
    return _handle != no_handle;
}

void net_socket::close()
{
    if (_handle == no_handle)
        return;
    os::sock_close(_handle);
    _handle = no_handle;
}

void net_socket::assign(uint64_t handle)
{
    close();
    _handle = handle;
}

// The peer gets the end of data after all that was sent, since the send
// side ends first; what has arrived here is read without waiting and
// dropped, so that the close doesn't reset the connection on data left
// unread.
void net_socket::lingering_close()
{
    if (_handle == no_handle)
        return;
    os::sock_shutdown_send(_handle);
    os::sock_set_blocking(_handle, false);
    char drop[32];
    while (os::sock_recv(_handle, drop, sizeof drop, 0) > 0) {
    }
    close();
}

// -- Connection -------------------------------------------------------------

int net_socket::bind(const char* host, uint16_t port)
{
    need_handle();
    net_address a(token(host), port, true);
    return os::sock_bind(_handle, a.data());
}

int net_socket::listen(int backlog)
{
    need_handle();
    return os::sock_listen(_handle, backlog);
}

uint64_t net_socket::accept(net_address& out)
{
    need_handle();
    return os::sock_accept(_handle, out.data());
}

int net_socket::connect(const token& name, uint16_t port, bool port_override)
{
    need_handle();
    return connect(net_address(name, port, port_override));
}

int net_socket::connect(const net_address& address)
{
    need_handle();
    if (address.is_broadcast())
        set_broadcast(true);
    return os::sock_connect(_handle, address.data());
}

// -- Data -------------------------------------------------------------------

int net_socket::send(const void* buf, int size, int flags)
{
    need_handle();
    return os::sock_send(_handle, buf, size, flags);
}

int net_socket::recv(void* buf, int size, int flags)
{
    need_handle();
    return os::sock_recv(_handle, buf, size, flags);
}

int net_socket::sendto(const void* buf, int size, int flags, const net_address& to)
{
    need_handle();
    return os::sock_sendto(_handle, buf, size, flags, to.data());
}

int net_socket::recvfrom(void* buf, int size, int flags, net_address& from)
{
    need_handle();
    return os::sock_recvfrom(_handle, buf, size, flags, from.data());
}

// -- State ------------------------------------------------------------------

int net_socket::connected() const
{
    return os::sock_connect_state(_handle);
}

net_address* net_socket::local_address(net_address& out) const
{
    if (os::sock_name(_handle, out.data()) != 0)
        return nullptr;
    if (out.is_any())
        out.set_numeric(net_address::loopback, out.port());
    return &out;
}

// A peer on this machine is named by the machine's own address, so that the
// result means the same to a third party.
net_address* net_socket::peer_address(net_address& out) const
{
    if (os::sock_peer_name(_handle, out.data()) != 0)
        return nullptr;
    if (out.is_any())
        out.set_numeric(net_address::loopback, out.port());
    if (out.is_local()) {
        uint16_t port = out.port();
        out.local_address();
        out.set_port(port);
    }
    return &out;
}

// -- Options ----------------------------------------------------------------

int net_socket::set_buffers(int receive, int send)
{
    need_handle();
    int r = -1;
    if (receive != 0)
        r = os::sock_set_option(_handle, os::sock_option::receive_buffer, receive);
    if (send != 0)
        r = os::sock_set_option(_handle, os::sock_option::send_buffer, send);
    if (r == -1) // the last call failed, or neither was made
        throw ers::failed;
    return r;
}

int net_socket::set_blocking(bool on)
{
    need_handle();
    return os::sock_set_blocking(_handle, on);
}

int net_socket::set_broadcast(bool on)
{
    need_handle();
    int r = os::sock_set_option(_handle, os::sock_option::broadcast, on ? 1 : 0);
    if (r == -1)
        throw ers::failed;
    return r;
}

int net_socket::set_debug(bool on)
{
    need_handle();
    return os::sock_set_option(_handle, os::sock_option::debug, on ? 1 : 0);
}

int net_socket::set_reuse_address(bool on)
{
    need_handle();
    return os::sock_set_option(_handle, os::sock_option::reuse_address, on ? 1 : 0);
}

int net_socket::set_linger(uint8_t on, uint16_t seconds)
{
    need_handle();
    return os::sock_set_linger(_handle, on, seconds);
}

// -- Waiting ----------------------------------------------------------------

int net_socket::wait_read(int ms) const { return wait_one(_handle, false, ms); }
int net_socket::wait_write(int ms) const { return wait_one(_handle, true, ms); }

bool net_socket::would_block()
{
    int e = os::net_last_error();
    if (e == 0)
        return false;
    os::net_set_last_error(0);
    return os::net_is_pending(e);
}

int net_socket::select_sockets(net_socket** readers, net_socket** writers, int ms)
{
    os::sock_wait entries[2 * select_limit];
    uint32_t nr = gather(readers, false, entries, 0);
    uint32_t nw = gather(writers, true, entries, nr);
    if (nr + nw == 0)
        return 0;

    // A negative time goes to the system as it is, which refuses it.
    os::wait_time limit = split_ms(ms);
    if (os::sock_select(entries, nr + nw, &limit) < 0)
        return -1;
    return compact(readers, entries, nr) + compact(writers, entries + nr, nw);
}

} // namespace velk
