// Echo round trip on loopback: a 64-byte message sent, echoed by a peer
// thread and read back, through net_socket against the same exchange with
// plain send and recv. Both use one connection set-up, made with the
// system's calls; only the calls of the exchange differ, on both ends.
// Goal: net_socket within 1.1x of the plain calls.
#include "comm/net/net_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <thread>

namespace {

constexpr int message_size = 64;

// A connected pair of stream sockets on 127.0.0.1: {client, server}, or
// {-1, -1} on failure.
struct fd_pair
{
    int client = -1;
    int server = -1;
};

fd_pair connect_loopback()
{
    fd_pair p;
    int l = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (l < 0 || bind(l, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(l, 1) != 0 ||
        getsockname(l, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        if (l >= 0)
            close(l);
        return p;
    }
    p.client = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(p.client, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0)
        p.server = accept(l, nullptr, nullptr);
    close(l);
    return p;
}

// Moves exactly n bytes with the calls of the API under test; false at the
// end of data or on an error.
template <class Io>
bool exactly(Io io, char* buf, int n)
{
    for (int done = 0; done < n;) {
        int r = io(buf + done, n - done);
        if (r <= 0)
            return false;
        done += r;
    }
    return true;
}

// The exchange: the peer echoes each message until the client's end of data.
template <class Send, class Recv, class Close>
void run_echo(benchmark::State& state, Send send_of, Recv recv_of, Close close_of, int client, int server)
{
    std::thread peer([&] {
        char buf[message_size];
        while (exactly([&](char* p, int n) { return recv_of(server, p, n); }, buf, message_size) &&
               exactly([&](char* p, int n) { return send_of(server, p, n); }, buf, message_size)) {
        }
        close_of(server);
    });

    char msg[message_size];
    memset(msg, 'm', sizeof msg);
    char back[message_size];
    for (auto _ : state) {
        if (!exactly([&](char* p, int n) { return send_of(client, p, n); }, msg, message_size) ||
            !exactly([&](char* p, int n) { return recv_of(client, p, n); }, back, message_size)) {
            state.SkipWithError("echo failed");
            break;
        }
        benchmark::DoNotOptimize(back);
    }
    close_of(client);
    peer.join();
}

void BM_echo_net_socket(benchmark::State& state)
{
    fd_pair p = connect_loopback();
    if (p.server < 0) {
        state.SkipWithError("no loopback connection");
        return;
    }
    // The sockets are reached by index so that both ends use the wrapper.
    velk::net_socket sockets[2];
    sockets[0].assign(static_cast<uint64_t>(p.client));
    sockets[1].assign(static_cast<uint64_t>(p.server));
    run_echo(
        state,
        [&](int i, const char* b, int n) { return sockets[i].send(b, n, 0); },
        [&](int i, char* b, int n) { return sockets[i].recv(b, n, 0); },
        [&](int i) { sockets[i].close(); }, 0, 1);
}
BENCHMARK(BM_echo_net_socket)->UseRealTime();

void BM_echo_plain_calls(benchmark::State& state)
{
    fd_pair p = connect_loopback();
    if (p.server < 0) {
        state.SkipWithError("no loopback connection");
        return;
    }
    // MSG_NOSIGNAL, as the wrapper sends, so that the calls compared are the same.
    run_echo(
        state,
        [](int fd, const char* b, int n) { return static_cast<int>(send(fd, b, static_cast<size_t>(n), MSG_NOSIGNAL)); },
        [](int fd, char* b, int n) { return static_cast<int>(recv(fd, b, static_cast<size_t>(n), 0)); },
        [](int fd) { close(fd); }, p.client, p.server);
}
BENCHMARK(BM_echo_plain_calls)->UseRealTime();

} // namespace
