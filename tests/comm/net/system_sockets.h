// Test helper: the system's own socket calls, which the net tests check the
// library against, on either system: BSD sockets, or Winsock (started on the
// first use here and left to the process's end). Errors are the system's
// numbers: errno's, or WSAGetLastError's.
#pragma once

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#endif

#include <cstdint>

namespace velk::testing {

#if defined(_WIN32)
using system_socket = SOCKET;

namespace sock_error {
constexpr int refused = WSAECONNREFUSED;
constexpr int in_progress = WSAEINPROGRESS;
constexpr int already = WSAEALREADY;
constexpr int aborted = WSAECONNABORTED; // sending after the peer went
constexpr int reset = WSAECONNRESET;
constexpr int access = WSAEACCES;
constexpr int invalid = WSAEINVAL;
constexpr int not_a_socket = WSAENOTSOCK;
} // namespace sock_error

// Winsock answers nothing before WSAStartup.
inline bool start_system_sockets()
{
    static const bool started = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    return started;
}

inline int last_socket_error() { return WSAGetLastError(); }
inline void set_socket_error(int e) { WSASetLastError(e); }

// Whether h is an open socket: only an open one has a type.
inline bool socket_is_open(uint64_t h)
{
    int type = 0;
    int len = sizeof type;
    return getsockopt(static_cast<SOCKET>(h), SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &len) == 0;
}

inline void close_socket_handle(uint64_t h) { closesocket(static_cast<SOCKET>(h)); }

// The address family of socket h: Winsock tells it in the protocol record.
inline int socket_family(uint64_t h)
{
    WSAPROTOCOL_INFOA info{};
    int len = sizeof info;
    if (getsockopt(static_cast<SOCKET>(h), SOL_SOCKET, SO_PROTOCOL_INFOA, reinterpret_cast<char*>(&info), &len) != 0)
        return -1;
    return info.iAddressFamily;
}

// Two open handles of the system for a net_socket to take over: sockets.
inline bool two_handles(uint64_t out[2])
{
    start_system_sockets();
    for (int i = 0; i < 2; ++i)
        out[i] = static_cast<uint64_t>(::socket(AF_INET, SOCK_STREAM, 0));
    return out[0] != static_cast<uint64_t>(INVALID_SOCKET) && out[1] != static_cast<uint64_t>(INVALID_SOCKET);
}

// An open handle that is no socket, so that socket options fail on it: a
// file handle (of the null device).
inline uint64_t handle_of_no_socket()
{
    return reinterpret_cast<uint64_t>(CreateFileA("NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                  OPEN_EXISTING, 0, nullptr));
}
// Closes what a net_socket's close left open: closesocket can't close a file.
inline void close_no_socket(uint64_t h) { CloseHandle(reinterpret_cast<HANDLE>(h)); }
#else
using system_socket = int;

namespace sock_error {
constexpr int refused = ECONNREFUSED;
constexpr int in_progress = EINPROGRESS;
constexpr int already = EALREADY;
constexpr int aborted = EPIPE; // sending after the peer went
constexpr int reset = ECONNRESET;
constexpr int access = EACCES;
constexpr int invalid = EINVAL;
constexpr int not_a_socket = EBADF;
} // namespace sock_error

inline bool start_system_sockets() { return true; }

inline int last_socket_error() { return errno; }
inline void set_socket_error(int e) { errno = e; }

inline bool socket_is_open(uint64_t h) { return fcntl(static_cast<int>(h), F_GETFD) != -1; }

inline void close_socket_handle(uint64_t h) { close(static_cast<int>(h)); }

// The address family of socket h.
inline int socket_family(uint64_t h)
{
    int family = -1;
    socklen_t len = sizeof family;
    getsockopt(static_cast<int>(h), SOL_SOCKET, SO_DOMAIN, &family, &len);
    return family;
}

// Two open handles of the system for a net_socket to take over: a pipe's.
inline bool two_handles(uint64_t out[2])
{
    int p[2];
    if (pipe(p) != 0)
        return false;
    out[0] = static_cast<uint64_t>(p[0]);
    out[1] = static_cast<uint64_t>(p[1]);
    return true;
}

// An open handle that is no socket, so that socket options fail on it.
inline uint64_t handle_of_no_socket()
{
    return static_cast<uint64_t>(open("/dev/null", O_RDONLY | O_CLOEXEC));
}
// A net_socket's close closed the descriptor already.
inline void close_no_socket(uint64_t) {}
#endif

} // namespace velk::testing
