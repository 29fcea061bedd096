// The network seam on Windows: Winsock, started at version 1.1 once per user
// of the layer; select for waiting; the resolver's gethostbyname for names.
#include "comm/os/net.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>

namespace velk::os {

// The records handed in as 16 bytes are the system's IPv4 socket address.
static_assert(sizeof(sockaddr_in) == 16);
static_assert(offsetof(sockaddr_in, sin_family) == 0);
static_assert(offsetof(sockaddr_in, sin_port) == 2);
static_assert(offsetof(sockaddr_in, sin_addr) == 4);

namespace {

constexpr int addr_len = sizeof(sockaddr_in);

std::atomic<uint32_t> users{0};

SOCKET sock_of(net_handle h) { return static_cast<SOCKET>(h); }

sockaddr* sa(void* addr16) { return static_cast<sockaddr*>(addr16); }
const sockaddr* sa(const void* addr16) { return static_cast<const sockaddr*>(addr16); }

int result(int r) { return r == SOCKET_ERROR ? -1 : r; }

int bad_size()
{
    WSASetLastError(WSAEINVAL);
    return -1;
}

// -- The system's name service -------------------------------------------

bool system_host_name(char* buf, uint32_t size)
{
    return ::gethostname(buf, static_cast<int>(size)) == 0;
}

// gethostbyname takes a null name for this machine, as the library expects.
bool system_address_of(const char* name, uint32_t& addr_net)
{
    char local[256] = {};
    if (!name) {
        if (::gethostname(local, sizeof local - 1) != 0)
            return false;
        name = local;
    }
    hostent* h = ::gethostbyname(name);
    if (!h || h->h_addrtype != AF_INET || !h->h_addr_list || !h->h_addr_list[0])
        return false;
    memcpy(&addr_net, h->h_addr_list[0], 4);
    return true;
}

bool system_name_of(uint32_t addr_net, charstr& out)
{
    hostent* h = ::gethostbyaddr(reinterpret_cast<const char*>(&addr_net), 4, AF_INET);
    if (!h || !h->h_name)
        return false;
    out = token(static_cast<const char*>(h->h_name));
    return true;
}

constexpr name_service system_service{system_host_name, system_address_of, system_name_of};
const name_service* service_in_use = &system_service;

} // namespace

// -- Start and end of the layer ---------------------------------------------

// Winsock counts its own users; the count here is for the tests.
int net_start()
{
    WSADATA data;
    if (WSAStartup(MAKEWORD(1, 1), &data) != 0)
        return -1;
    users.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

int net_stop()
{
    uint32_t n = users.load(std::memory_order_relaxed);
    while (n != 0) {
        if (users.compare_exchange_weak(n, n - 1, std::memory_order_relaxed))
            return WSACleanup() == 0 ? 0 : -1;
    }
    WSASetLastError(WSANOTINITIALISED); // the layer was not started
    return -1;
}

// Winsock 2 has no blocking hooks to cancel.
void net_cancel_blocking_call() {}

uint32_t net_start_count() { return users.load(std::memory_order_relaxed); }

// -- The last error ---------------------------------------------------------

int net_last_error() { return WSAGetLastError(); }
void net_set_last_error(int e) { WSASetLastError(e); }

bool net_is_pending(int e) { return e == WSAEWOULDBLOCK || e == WSAEINPROGRESS || e == WSAEALREADY; }

bool net_is_blocking_in_progress(int e) { return e == WSAEINPROGRESS; }

// -- Names ------------------------------------------------------------------

uint32_t net_parse_dotted(const char* text) { return text ? ::inet_addr(text) : INADDR_NONE; }

const char* net_dotted_text(uint32_t addr_net)
{
    thread_local char text[16]; // "255.255.255.255" and its zero
    auto* b = reinterpret_cast<const unsigned char*>(&addr_net);
    snprintf(text, sizeof text, "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
    return text;
}

const name_service& system_name_service() { return system_service; }
const name_service& current_name_service() { return *service_in_use; }

const name_service* set_name_service(const name_service* service)
{
    const name_service* old = service_in_use;
    service_in_use = service ? service : &system_service;
    return old;
}

// -- Sockets ----------------------------------------------------------------

net_handle sock_open(bool stream)
{
    // WSASocket without WSA_FLAG_OVERLAPPED, and not inherited by children.
    SOCKET s = WSASocketW(AF_INET, stream ? SOCK_STREAM : SOCK_DGRAM, 0, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT);
    if (s == INVALID_SOCKET && WSAGetLastError() == WSAEINVAL) // a system without the flag
        s = ::socket(AF_INET, stream ? SOCK_STREAM : SOCK_DGRAM, 0);
    return s == INVALID_SOCKET ? no_net_handle : static_cast<net_handle>(s);
}

int sock_close(net_handle h) { return result(::closesocket(sock_of(h))); }
int sock_shutdown_send(net_handle h) { return result(::shutdown(sock_of(h), SD_SEND)); }
int sock_bind(net_handle h, const void* addr16) { return result(::bind(sock_of(h), sa(addr16), addr_len)); }
int sock_listen(net_handle h, int backlog) { return result(::listen(sock_of(h), backlog)); }

net_handle sock_accept(net_handle h, void* addr16)
{
    int len = addr_len;
    SOCKET s = ::accept(sock_of(h), sa(addr16), &len);
    return s == INVALID_SOCKET ? no_net_handle : static_cast<net_handle>(s);
}

int sock_connect(net_handle h, const void* addr16) { return result(::connect(sock_of(h), sa(addr16), addr_len)); }

// Winsock raises no signal on a send to a peer that has gone.
int sock_send(net_handle h, const void* buf, int size, int flags)
{
    if (size < 0)
        return bad_size();
    return result(::send(sock_of(h), static_cast<const char*>(buf), size, flags));
}

int sock_recv(net_handle h, void* buf, int size, int flags)
{
    if (size < 0)
        return bad_size();
    return result(::recv(sock_of(h), static_cast<char*>(buf), size, flags));
}

int sock_sendto(net_handle h, const void* buf, int size, int flags, const void* addr16)
{
    if (size < 0)
        return bad_size();
    return result(::sendto(sock_of(h), static_cast<const char*>(buf), size, flags, sa(addr16), addr_len));
}

int sock_recvfrom(net_handle h, void* buf, int size, int flags, void* addr16)
{
    if (size < 0)
        return bad_size();
    int len = addr_len;
    return result(::recvfrom(sock_of(h), static_cast<char*>(buf), size, flags, sa(addr16), &len));
}

int sock_name(net_handle h, void* addr16)
{
    int len = addr_len;
    return result(::getsockname(sock_of(h), sa(addr16), &len));
}

int sock_peer_name(net_handle h, void* addr16)
{
    int len = addr_len;
    return result(::getpeername(sock_of(h), sa(addr16), &len));
}

int sock_set_blocking(net_handle h, bool on)
{
    u_long non_blocking = on ? 0 : 1;
    return result(::ioctlsocket(sock_of(h), FIONBIO, &non_blocking));
}

int sock_set_option(net_handle h, sock_option option, int value)
{
    int name = 0;
    switch (option) {
    case sock_option::receive_buffer: name = SO_RCVBUF; break;
    case sock_option::send_buffer: name = SO_SNDBUF; break;
    case sock_option::broadcast: name = SO_BROADCAST; break;
    case sock_option::debug: name = SO_DEBUG; break;
    case sock_option::reuse_address: name = SO_REUSEADDR; break;
    }
    return result(::setsockopt(sock_of(h), SOL_SOCKET, name, reinterpret_cast<const char*>(&value), sizeof value));
}

int sock_set_linger(net_handle h, uint16_t on, uint16_t seconds)
{
    linger l{on, seconds};
    return result(::setsockopt(sock_of(h), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&l), sizeof l));
}

// -- Waiting ----------------------------------------------------------------

// select's sets hold FD_SETSIZE sockets each; the library watches at most 64
// of each kind, and more are refused as select refuses them.
int sock_select(sock_wait* entries, uint32_t n, const wait_time* limit)
{
    if (limit && (limit->seconds < 0 || limit->microseconds < 0 || limit->microseconds >= 1000000)) {
        WSASetLastError(WSAEINVAL);
        return -1;
    }
    fd_set reads, writes;
    FD_ZERO(&reads);
    FD_ZERO(&writes);
    for (uint32_t i = 0; i < n; ++i) {
        fd_set& set = entries[i].write ? writes : reads;
        if (set.fd_count >= FD_SETSIZE) {
            WSASetLastError(WSAEINVAL);
            return -1;
        }
        FD_SET(sock_of(entries[i].handle), &set);
    }
    timeval tv{};
    if (limit) {
        tv.tv_sec = limit->seconds > LONG_MAX ? LONG_MAX : static_cast<long>(limit->seconds);
        tv.tv_usec = static_cast<long>(limit->microseconds);
    }
    if (n == 0) { // Winsock refuses three empty sets: the wait is a sleep
        Sleep(limit ? static_cast<DWORD>(tv.tv_sec * 1000 + (tv.tv_usec + 999) / 1000) : INFINITE);
        return 0;
    }
    int r = ::select(0, &reads, &writes, nullptr, limit ? &tv : nullptr);
    if (r == SOCKET_ERROR)
        return -1;
    int ready = 0;
    for (uint32_t i = 0; i < n; ++i) {
        entries[i].ready = FD_ISSET(sock_of(entries[i].handle), entries[i].write ? &writes : &reads) != 0;
        ready += entries[i].ready;
    }
    return ready;
}

// Writable: connected with room to send. A failed connect shows in the
// exception set; urgent data too.
int sock_connect_state(net_handle h)
{
    fd_set writes, errors;
    FD_ZERO(&writes);
    FD_ZERO(&errors);
    FD_SET(sock_of(h), &writes);
    FD_SET(sock_of(h), &errors);
    timeval zero{};
    if (::select(0, nullptr, &writes, &errors, &zero) <= 0)
        return 0;
    if (FD_ISSET(sock_of(h), &errors))
        return -1;
    return FD_ISSET(sock_of(h), &writes) ? 1 : 0;
}

} // namespace velk::os
