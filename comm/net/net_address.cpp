// net_address: parsing of endpoint texts, printing, resolution and the
// lookups of this machine; the system's part stays behind comm/os/net.
//
// The address and port are kept in network order, as the system's record
// has them; every conversion to host order goes through net32 and net16.
#include "comm/net/net_address.h"

#include "comm/os/net.h"

#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace velk {

// The record must be the system's socket address, byte for byte.
struct net_address_layout
{
    static_assert(sizeof(net_address) == 16);
    static_assert(offsetof(net_address, _family) == 0);
    static_assert(offsetof(net_address, _port) == 2);
    static_assert(offsetof(net_address, _addr) == 4);
    static_assert(offsetof(net_address, _zero) == 8);
};

namespace {

// Network order is big-endian: swapping between it and host order is the
// same operation in both directions.
constexpr uint32_t net32(uint32_t v)
{
    if constexpr (std::endian::native == std::endian::little)
        return __builtin_bswap32(v);
    else
        return v;
}

constexpr uint16_t net16(uint16_t v)
{
    if constexpr (std::endian::native == std::endian::little)
        return __builtin_bswap16(v);
    else
        return v;
}

const char* find_char(const char* first, const char* end, char c)
{
    auto p = static_cast<const char*>(memchr(first, c, static_cast<size_t>(end - first)));
    return p ? p : end;
}

// An optional sign, then decimal digits up to the first other character; no
// digits give 0. The number wraps modulo 2^32, so that cutting it to 16 bits
// afterwards gives it modulo 65536 however long it is.
uint32_t parse_port(const char* p, const char* end)
{
    bool negative = false;
    if (p < end && (*p == '-' || *p == '+'))
        negative = *p++ == '-';
    uint32_t n = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p)
        n = n * 10 + static_cast<uint32_t>(*p - '0');
    return negative ? 0u - n : n;
}

// A dotted address, or else the resolver's first address; 0 when neither
// gives one. An empty host is passed on as null, which the resolver takes
// for this machine.
uint32_t resolve_host(const token& host)
{
    charstr z(host);
    const char* name = host.is_empty() ? nullptr : z.c_str();
    uint32_t a = os::net_parse_dotted(name);
    if (a != net_address::broadcast)
        return a;
    uint32_t found = 0;
    if (!os::current_name_service().address_of(name, found))
        return 0;
    return found;
}

// This machine's name as the record of a lookup takes it: a zeroed buffer of
// 256 bytes, of which the name may fill 255. A failure leaves it empty.
struct machine_name
{
    char text[256] = {};
    machine_name() { os::current_name_service().host_name(text, sizeof text - 1); }
};

// The end of the layer, run by the exit handling. A blocking call still in
// progress is cancelled and the end tried once more.
void net_cleanup()
{
    if (os::net_stop() != 0 && os::net_is_blocking_in_progress(os::net_last_error())) {
        os::net_cancel_blocking_call();
        os::net_stop();
    }
}

} // namespace

int net_startup()
{
    if (os::net_start() != 0)
        return -1;
    // Should the runtime's exit table be full, the layer simply stays counted
    // to the end of the process, which is all its end would do.
    std::atexit(net_cleanup);
    return 0;
}

// -- Setting ----------------------------------------------------------------

// The steps in order: the empty name and "<broadcast>" stand for themselves;
// otherwise a scheme ("...://") is skipped, a path ("/...") cut off, a user
// ("...@") skipped, and a ":" splits the host from its port. The host is
// then "localhost", a dotted address, or a name for the resolver.
void net_address::set(const token& name, uint16_t port, bool port_override)
{
    *this = net_address();

    if (name.is_empty() || name[0] == 0) {
        // any
    } else if (name == token("<broadcast>")) {
        _addr = broadcast;
    } else {
        const char* first = name.ptr();
        const char* end = name.ptre();
        uint32_t scheme = name.find(substring::scheme_separator());
        if (scheme < name.lens())
            first += scheme + 3;
        end = find_char(first, end, '/');
        const char* at = find_char(first, end, '@');
        if (at < end)
            first = at + 1;

        const char* colon = find_char(first, end, ':');
        if (colon < end) {
            uint32_t parsed = parse_port(colon + 1, end);
            if (port == 0 || !port_override)
                port = static_cast<uint16_t>(parsed);
        }

        token host(first, colon);
        _addr = host == token("localhost") ? net32(loopback) : resolve_host(host);
    }
    _port = net16(port);
}

void net_address::set_numeric(uint32_t addr, uint16_t port)
{
    *this = net_address();
    _addr = net32(addr);
    _port = net16(port);
}

uint32_t net_address::addr() const { return net32(_addr); }
uint16_t net_address::port() const { return net16(_port); }
void net_address::set_port(uint16_t port) { _port = net16(port); }

bool net_address::operator==(const net_address& other) const
{
    return memcmp(this, &other, sizeof *this) == 0;
}

// -- Printing ---------------------------------------------------------------

charstr& net_address::to_text(charstr& out, bool with_port) const
{
    // "255.255.255.255:65535" is the longest text.
    char buf[24];
    char* p = buf;
    auto put = [&p](uint32_t v) {
        if (v >= 100)
            *p++ = static_cast<char>('0' + v / 100);
        if (v >= 10)
            *p++ = static_cast<char>('0' + v / 10 % 10);
        *p++ = static_cast<char>('0' + v % 10);
    };
    uint32_t a = addr();
    for (int shift = 24; shift >= 0; shift -= 8) {
        put((a >> shift) & 0xFF);
        *p++ = '.';
    }
    --p; // no dot behind the last byte
    out.set(buf, static_cast<uint32_t>(p - buf));
    if (with_port)
        out << ':' << port();
    return out;
}

charstr& net_address::to_host_name(charstr& out, bool with_port) const
{
    if (is_local())
        out = "localhost";
    else if (!os::current_name_service().name_of(_addr, out))
        to_text(out, false);
    if (with_port)
        out << ':' << port();
    return out;
}

// -- This machine -----------------------------------------------------------

void net_address::local_address()
{
    machine_name name;
    set(token(static_cast<const char*>(name.text)), 0, false);
}

void net_address::local_broadcast()
{
    local_address();
    _addr = net32((addr() & 0xFFFFFF00u) | 0xFFu);
}

const char* net_address::local_ip_text()
{
    machine_name name;
    uint32_t a = 0;
    if (!os::current_name_service().address_of(name.text, a))
        return "127.0.0.1";
    const char* text = os::net_dotted_text(a);
    return text ? text : "127.0.0.1";
}

charstr net_address::local_host_name()
{
    // The name is asked for with a limit of 64 bytes; one more keeps it terminated.
    char buf[65] = {};
    charstr out;
    if (os::current_name_service().host_name(buf, 64))
        out = token(static_cast<const char*>(buf));
    return out;
}

} // namespace velk
