// The network seam on POSIX: BSD sockets, getaddrinfo restricted to IPv4 for
// names, poll in the place of select.
//
// Where the two systems differ the answers of the library's first system are
// kept: starting the layer only counts its users; a send never raises
// SIGPIPE; sockets are not inherited; select's fixed sets become poll, which
// has no limit on handle numbers, with select's own readiness rules and its
// refusal of bad handles and bad limits; a null name resolves this machine.
#include "comm/os/net.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>

namespace velk::os {

// The records handed in as 16 bytes are the system's IPv4 socket address.
static_assert(sizeof(sockaddr_in) == 16);
static_assert(offsetof(sockaddr_in, sin_family) == 0 && sizeof(sa_family_t) == 2);
static_assert(offsetof(sockaddr_in, sin_port) == 2);
static_assert(offsetof(sockaddr_in, sin_addr) == 4);

namespace {

constexpr socklen_t addr_len = sizeof(sockaddr_in);

std::atomic<uint32_t> users{0};

// Handles are descriptors; anything beyond their range is no socket.
int fd_of(net_handle h) { return h <= static_cast<net_handle>(INT_MAX) ? static_cast<int>(h) : -1; }

sockaddr* sa(void* addr16) { return static_cast<sockaddr*>(addr16); }
const sockaddr* sa(const void* addr16) { return static_cast<const sockaddr*>(addr16); }

// Repeats a call that a signal interrupted before it did anything.
template <class Call>
auto restart(Call call)
{
    decltype(call()) r;
    do
        r = call();
    while (r < 0 && errno == EINTR);
    return r;
}

int bad_size()
{
    errno = EINVAL;
    return -1;
}

// -- The system's name service -------------------------------------------

bool system_host_name(char* buf, uint32_t size)
{
    return ::gethostname(buf, size) == 0;
}

bool system_address_of(const char* name, uint32_t& addr_net)
{
    // The resolver of the first system takes a null name for this machine;
    // getaddrinfo would answer with the loopback address instead.
    char local[256] = {};
    if (!name) {
        if (::gethostname(local, sizeof local - 1) != 0)
            return false;
        name = local;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM; // one entry per address
    addrinfo* found = nullptr;
    if (::getaddrinfo(name, nullptr, &hints, &found) != 0)
        return false;
    bool ok = false;
    for (addrinfo* p = found; p && !ok; p = p->ai_next)
        if (p->ai_family == AF_INET && p->ai_addrlen >= addr_len) {
            addr_net = reinterpret_cast<const sockaddr_in*>(p->ai_addr)->sin_addr.s_addr;
            ok = true;
        }
    ::freeaddrinfo(found);
    return ok;
}

bool system_name_of(uint32_t addr_net, charstr& out)
{
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = addr_net;
    char name[NI_MAXHOST];
    if (::getnameinfo(reinterpret_cast<const sockaddr*>(&a), addr_len, name, sizeof name, nullptr, 0,
                      NI_NAMEREQD) != 0)
        return false;
    out = token(static_cast<const char*>(name));
    return true;
}

constexpr name_service system_service{system_host_name, system_address_of, system_name_of};
const name_service* service_in_use = &system_service;

// -- Waiting ----------------------------------------------------------------

// select's readiness on Linux: reading takes data, the end of data and
// errors; writing takes room and errors.
constexpr short read_ready = POLLIN | POLLRDNORM | POLLRDBAND | POLLHUP | POLLERR;
constexpr short write_ready = POLLOUT | POLLWRNORM | POLLWRBAND | POLLERR;

int64_t now_ms()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// The limit in whole milliseconds, rounded up so that a wait never ends
// early; -1 for no limit; far limits are cut to the longest poll takes.
int64_t limit_ms(const wait_time* limit)
{
    if (!limit)
        return -1;
    if (limit->seconds > INT_MAX / 1000)
        return INT_MAX;
    int64_t ms = limit->seconds * 1000 + (limit->microseconds + 999) / 1000;
    return ms < INT_MAX ? ms : INT_MAX;
}

// poll, restarted after a signal with what is left of the time.
int poll_for(pollfd* fds, nfds_t n, int64_t ms)
{
    int64_t deadline = ms < 0 ? 0 : now_ms() + ms;
    for (;;) {
        int r = ::poll(fds, n, static_cast<int>(ms));
        if (r >= 0 || errno != EINTR)
            return r;
        if (ms > 0) {
            ms = deadline - now_ms();
            if (ms < 0)
                ms = 0;
        }
    }
}

} // namespace

// -- Start and end of the layer ---------------------------------------------

int net_start()
{
    users.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

int net_stop()
{
    uint32_t n = users.load(std::memory_order_relaxed);
    while (n != 0)
        if (users.compare_exchange_weak(n, n - 1, std::memory_order_relaxed))
            return 0;
    errno = EINVAL; // the layer was not started
    return -1;
}

void net_cancel_blocking_call() {}

uint32_t net_start_count() { return users.load(std::memory_order_relaxed); }

// -- The last error ---------------------------------------------------------

int net_last_error() { return errno; }
void net_set_last_error(int e) { errno = e; }

bool net_is_pending(int e)
{
    return e == EWOULDBLOCK || e == EAGAIN || e == EINPROGRESS || e == EALREADY;
}

bool net_is_blocking_in_progress(int e) { return e == EINPROGRESS; }

// -- Names ------------------------------------------------------------------

uint32_t net_parse_dotted(const char* text)
{
    return text ? ::inet_addr(text) : INADDR_NONE;
}

const char* net_dotted_text(uint32_t addr_net)
{
    thread_local char text[INET_ADDRSTRLEN];
    in_addr a{addr_net};
    return ::inet_ntop(AF_INET, &a, text, sizeof text);
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
    int fd = ::socket(AF_INET, (stream ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0);
    return fd < 0 ? no_net_handle : static_cast<net_handle>(fd);
}

int sock_close(net_handle h) { return ::close(fd_of(h)); }
int sock_shutdown_send(net_handle h) { return ::shutdown(fd_of(h), SHUT_WR); }
int sock_bind(net_handle h, const void* addr16) { return ::bind(fd_of(h), sa(addr16), addr_len); }
int sock_listen(net_handle h, int backlog) { return ::listen(fd_of(h), backlog); }

net_handle sock_accept(net_handle h, void* addr16)
{
    socklen_t len = addr_len;
    int fd = restart([&] { return ::accept4(fd_of(h), sa(addr16), &len, SOCK_CLOEXEC); });
    return fd < 0 ? no_net_handle : static_cast<net_handle>(fd);
}

int sock_connect(net_handle h, const void* addr16) { return ::connect(fd_of(h), sa(addr16), addr_len); }

int sock_send(net_handle h, const void* buf, int size, int flags)
{
    if (size < 0)
        return bad_size();
    return static_cast<int>(restart([&] { return ::send(fd_of(h), buf, static_cast<size_t>(size), flags | MSG_NOSIGNAL); }));
}

int sock_recv(net_handle h, void* buf, int size, int flags)
{
    if (size < 0)
        return bad_size();
    return static_cast<int>(restart([&] { return ::recv(fd_of(h), buf, static_cast<size_t>(size), flags); }));
}

int sock_sendto(net_handle h, const void* buf, int size, int flags, const void* addr16)
{
    if (size < 0)
        return bad_size();
    return static_cast<int>(restart([&] {
        return ::sendto(fd_of(h), buf, static_cast<size_t>(size), flags | MSG_NOSIGNAL, sa(addr16), addr_len);
    }));
}

int sock_recvfrom(net_handle h, void* buf, int size, int flags, void* addr16)
{
    if (size < 0)
        return bad_size();
    socklen_t len = addr_len;
    return static_cast<int>(restart([&] {
        return ::recvfrom(fd_of(h), buf, static_cast<size_t>(size), flags, sa(addr16), &len);
    }));
}

int sock_name(net_handle h, void* addr16)
{
    socklen_t len = addr_len;
    return ::getsockname(fd_of(h), sa(addr16), &len);
}

int sock_peer_name(net_handle h, void* addr16)
{
    socklen_t len = addr_len;
    return ::getpeername(fd_of(h), sa(addr16), &len);
}

int sock_set_blocking(net_handle h, bool on)
{
    int fd = fd_of(h);
    int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0)
        return -1;
    flags = on ? flags & ~O_NONBLOCK : flags | O_NONBLOCK;
    return ::fcntl(fd, F_SETFL, flags) < 0 ? -1 : 0;
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
    return ::setsockopt(fd_of(h), SOL_SOCKET, name, &value, sizeof value);
}

int sock_set_linger(net_handle h, uint16_t on, uint16_t seconds)
{
    linger l{on, seconds};
    return ::setsockopt(fd_of(h), SOL_SOCKET, SO_LINGER, &l, sizeof l);
}

// -- Waiting ----------------------------------------------------------------

int sock_select(sock_wait* entries, uint32_t n, const wait_time* limit)
{
    if (limit && (limit->seconds < 0 || limit->microseconds < 0 || limit->microseconds >= 1000000)) {
        errno = EINVAL;
        return -1;
    }
    // The library watches at most 2 x 64; more take the heap.
    pollfd local[128];
    std::unique_ptr<pollfd[]> heap;
    pollfd* fds = local;
    if (n > sizeof local / sizeof local[0]) {
        heap.reset(new pollfd[n]);
        fds = heap.get();
    }
    for (uint32_t i = 0; i < n; ++i) {
        int fd = fd_of(entries[i].handle);
        if (fd < 0) {
            errno = EBADF;
            return -1;
        }
        fds[i] = {fd, static_cast<short>(entries[i].write ? POLLOUT : POLLIN), 0};
    }

    int r = poll_for(fds, n, limit_ms(limit));
    if (r < 0)
        return -1;
    int ready = 0;
    for (uint32_t i = 0; i < n; ++i) {
        if (fds[i].revents & POLLNVAL) { // a closed handle, as select reports it
            errno = EBADF;
            return -1;
        }
        entries[i].ready = (fds[i].revents & (entries[i].write ? write_ready : read_ready)) != 0;
        ready += entries[i].ready;
    }
    return ready;
}

// Linux marks a socket that never connected, or whose connect failed,
// writable too; only room to send without an error or a hang-up counts here.
int sock_connect_state(net_handle h)
{
    int fd = fd_of(h);
    if (fd < 0)
        return 0;
    pollfd p{fd, POLLOUT | POLLPRI, 0};
    if (::poll(&p, 1, 0) <= 0)
        return 0;
    if ((p.revents & POLLOUT) && !(p.revents & (POLLERR | POLLHUP)))
        return 1;
    if (p.revents & (POLLERR | POLLPRI))
        return -1;
    return 0;
}

} // namespace velk::os
