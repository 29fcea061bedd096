#include "tests/support/loopback_http_server.h"

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <stdexcept>

namespace velk::testing {

namespace {

// The sockets of both systems as one integer type; -1 for none (Winsock's
// INVALID_SOCKET is all ones too).
#if defined(_WIN32)
using sock = SOCKET;
constexpr int no_signal = 0; // Winsock never raises SIGPIPE
void close_socket(intptr_t s) { closesocket(static_cast<SOCKET>(s)); }
// Winsock is counted: started by each server and port, ended with it.
void start_sockets()
{
    WSADATA data;
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0)
        throw std::runtime_error("WSAStartup failed");
}
void stop_sockets() { WSACleanup(); }
#else
using sock = int;
constexpr int no_signal = MSG_NOSIGNAL;
void close_socket(intptr_t s) { close(static_cast<int>(s)); }
void start_sockets() {}
void stop_sockets() {}
#endif

sock sock_of(intptr_t s) { return static_cast<sock>(s); }

// A TCP socket bound to 127.0.0.1 on a port of the system's choosing, and
// that port. Throws std::runtime_error.
intptr_t bind_loopback(uint16_t& port)
{
    intptr_t s = static_cast<intptr_t>(socket(AF_INET, SOCK_STREAM, 0));
    if (s == -1)
        throw std::runtime_error("socket failed");
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = 0; // the system picks a free port
    socklen_t len = sizeof a;
    if (bind(sock_of(s), reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        getsockname(sock_of(s), reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        close_socket(s);
        throw std::runtime_error("bind to 127.0.0.1 failed");
    }
    port = ntohs(a.sin_port);
    return s;
}

std::string loopback_url(uint16_t port, const std::string& path)
{
    return "http://127.0.0.1:" + std::to_string(port) + path;
}

// Reads until the blank line that ends a request head, or the peer stops.
std::string read_head(intptr_t connection)
{
    std::string head;
    char buf[1024]; // any size works: the loop reads until the head is complete
    while (head.find("\r\n\r\n") == std::string::npos) {
        int n = static_cast<int>(recv(sock_of(connection), buf, sizeof buf, 0));
        if (n <= 0)
            break;
        head.append(buf, static_cast<size_t>(n));
    }
    return head;
}

void send_all(intptr_t connection, const std::string& data)
{
    size_t sent = 0;
    while (sent < data.size()) {
        int n = static_cast<int>(
            send(sock_of(connection), data.data() + sent, static_cast<int>(data.size() - sent), no_signal));
        if (n <= 0)
            return;
        sent += static_cast<size_t>(n);
    }
}

} // namespace

// -- loopback_http_server -----------------------------------------------------

loopback_http_server::loopback_http_server(std::string body) : _body(std::move(body))
{
    start_sockets();
    _listener = bind_loopback(_port);
    if (listen(sock_of(_listener), 8) != 0) { // a short queue: requests come one by one
        close_socket(_listener);
        stop_sockets();
        throw std::runtime_error("listen failed");
    }
    _thread = std::thread([this] { serve(); });
}

loopback_http_server::~loopback_http_server()
{
    // Wakes the blocked accept, which then fails and ends the thread: a
    // shutdown does it on Linux, only closing the socket does on Windows.
#if defined(_WIN32)
    close_socket(_listener);
    _thread.join();
#else
    shutdown(_listener, SHUT_RDWR);
    _thread.join();
    close_socket(_listener);
#endif
    stop_sockets();
}

std::string loopback_http_server::url(const std::string& path) const
{
    return loopback_url(_port, path);
}

std::vector<std::string> loopback_http_server::request_lines() const
{
    std::lock_guard<std::mutex> guard(_lock);
    return _lines;
}

void loopback_http_server::serve()
{
    for (;;) {
        intptr_t connection = static_cast<intptr_t>(accept(sock_of(_listener), nullptr, nullptr));
        if (connection == -1)
            return;
        answer(connection);
        close_socket(connection);
    }
}

void loopback_http_server::answer(intptr_t connection)
{
    std::string head = read_head(connection);
    {
        std::lock_guard<std::mutex> guard(_lock);
        _lines.push_back(head.substr(0, head.find("\r\n")));
    }
    send_all(connection, "HTTP/1.1 200 OK\r\n"
                         "Content-Type: text/plain\r\n"
                         "Content-Length: " + std::to_string(_body.size()) + "\r\n"
                         "Connection: close\r\n"
                         "\r\n" + _body);
}

// -- refusing_port ------------------------------------------------------------

refusing_port::refusing_port()
{
    start_sockets();
    _socket = bind_loopback(_port);
}

refusing_port::~refusing_port()
{
    close_socket(_socket);
    stop_sockets();
}

std::string refusing_port::url(const std::string& path) const
{
    return loopback_url(_port, path);
}

} // namespace velk::testing
