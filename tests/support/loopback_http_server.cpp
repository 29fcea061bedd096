#include "tests/support/loopback_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace velk::testing {

namespace {

// A TCP socket bound to 127.0.0.1 on a port of the system's choosing, and
// that port. Throws std::runtime_error.
int bind_loopback(uint16_t& port)
{
    int s = socket(AF_INET, SOCK_STREAM, 0);
    if (s < 0)
        throw std::runtime_error("socket failed");
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = 0; // the system picks a free port
    socklen_t len = sizeof a;
    if (bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        close(s);
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
std::string read_head(int connection)
{
    std::string head;
    char buf[1024]; // any size works: the loop reads until the head is complete
    while (head.find("\r\n\r\n") == std::string::npos) {
        ssize_t n = recv(connection, buf, sizeof buf, 0);
        if (n <= 0)
            break;
        head.append(buf, static_cast<size_t>(n));
    }
    return head;
}

void send_all(int connection, const std::string& data)
{
    size_t sent = 0;
    while (sent < data.size()) {
        ssize_t n = send(connection, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        sent += static_cast<size_t>(n);
    }
}

} // namespace

// -- loopback_http_server -----------------------------------------------------

loopback_http_server::loopback_http_server(std::string body) : _body(std::move(body))
{
    _listener = bind_loopback(_port);
    if (listen(_listener, 8) != 0) { // a short queue: requests come one by one
        close(_listener);
        throw std::runtime_error("listen failed");
    }
    _thread = std::thread([this] { serve(); });
}

loopback_http_server::~loopback_http_server()
{
    // Wakes the blocked accept, which then fails and ends the thread.
    shutdown(_listener, SHUT_RDWR);
    _thread.join();
    close(_listener);
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
        int connection = accept(_listener, nullptr, nullptr);
        if (connection < 0)
            return;
        answer(connection);
        close(connection);
    }
}

void loopback_http_server::answer(int connection)
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
    _socket = bind_loopback(_port);
}

refusing_port::~refusing_port()
{
    close(_socket);
}

std::string refusing_port::url(const std::string& path) const
{
    return loopback_url(_port, path);
}

} // namespace velk::testing
