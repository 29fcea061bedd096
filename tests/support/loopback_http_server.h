// Test helper: a tiny HTTP server on 127.0.0.1 that gives one fixed reply to
// every request and keeps each request line as it arrived, bytes and all.
//
// It listens on a port the system picks, from construction to destruction,
// and serves one connection at a time on a thread of its own; every reply
// closes its connection. Only GET without a body is understood. On Windows
// each object keeps Winsock started while it lives.
//
//   loopback_http_server location(R"({"country": "X"})");
//   fetch(location.url("/json/1.2.3.4"));
//   EXPECT_EQ(location.request_lines()[0], "GET /json/1.2.3.4 HTTP/1.1");
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velk::testing {

class loopback_http_server
{
public:
    // Starts listening; throws std::runtime_error when it can't.
    explicit loopback_http_server(std::string body);
    // Stops listening and waits for the serving thread.
    ~loopback_http_server();

    loopback_http_server(const loopback_http_server&) = delete;
    loopback_http_server& operator=(const loopback_http_server&) = delete;

    uint16_t port() const { return _port; }
    // "http://127.0.0.1:PORT" followed by path.
    std::string url(const std::string& path) const;

    // The raw first line of each request so far (up to the "\r\n"), in order.
    std::vector<std::string> request_lines() const;

private:
    void serve();
    void answer(intptr_t connection);

    std::string _body;
    intptr_t _listener = -1; // the system's socket handle
    uint16_t _port = 0;
    mutable std::mutex _lock;
    std::vector<std::string> _lines;
    std::thread _thread;
};

// A loopback port where a connection is refused: bound, so nobody else takes
// it while the object lives, but not listening.
class refusing_port
{
public:
    refusing_port();
    ~refusing_port();

    refusing_port(const refusing_port&) = delete;
    refusing_port& operator=(const refusing_port&) = delete;

    // "http://127.0.0.1:PORT" followed by path.
    std::string url(const std::string& path) const;

private:
    intptr_t _socket = -1;
    uint16_t _port = 0;
};

} // namespace velk::testing
