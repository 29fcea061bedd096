#include "comm/timer.h"

#include "comm/os/clock.h"

#include <atomic>

namespace velk {

namespace {
// First-use state; relaxed atomics only so that the benign race is defined.
std::atomic<uint64_t> frequency{0};
std::atomic<int64_t> day_offset{0};
constexpr uint64_t ns_per_s = 1000000000ull;
constexpr uint64_t ns_per_day = 86400ull * ns_per_s;

uint64_t counter_frequency()
{
    uint64_t f = frequency.load(std::memory_order_relaxed);
    if (!f) {
        f = os::perf_frequency();
        frequency.store(f, std::memory_order_relaxed);
    }
    return f;
}
} // namespace

uint64_t counter_to_ns(uint64_t c)
{
    uint64_t f = counter_frequency();
    return (c / f) * ns_per_s + ((c % f) * ns_per_s) / f;
}

uint64_t current_time_ns()
{
    return counter_to_ns(os::perf_counter());
}

// offset = ((w * 100 - s * 1e9) mod one day) - t, in wrap-around arithmetic,
// with w the wall clock in 100 ns units, s the runtime's whole seconds since
// 1970 and t the counter's nanoseconds. Kept as it stands, whatever the value
// then means: only the differences of this clock are used.
uint64_t time_of_day_ns()
{
    int64_t offset = day_offset.load(std::memory_order_relaxed);
    if (offset == 0) {
        uint64_t t = current_time_ns();
        uint64_t w = os::system_filetime();
        uint64_t s = static_cast<uint64_t>(os::seconds_since_1970());
        uint64_t in_day = (w * 100 - s * ns_per_s) % ns_per_day;
        offset = static_cast<int64_t>(in_day - t);
        day_offset.store(offset, std::memory_order_relaxed);
    }
    return current_time_ns() + static_cast<uint64_t>(offset);
}

void nsec_timer::reset()
{
    current_time_ns();
    reset_raw();
}

void nsec_timer::reset_raw()
{
    _start = os::perf_counter();
    _base = 0;
}

uint64_t nsec_timer::time_ns() const
{
    return counter_to_ns(os::perf_counter() - _start) + _base;
}

double nsec_timer::time() const
{
    uint64_t ns = time_ns();
    if (ns >> 63) {
        // Halve, convert, double: keeps the value unsigned.
        double half = static_cast<double>((ns >> 1) | (ns & 1));
        return half * 2 * 1e-9;
    }
    return static_cast<double>(ns) * 1e-9;
}

void msec_timer::reset() { _start = os::tick_ms(); }

void msec_timer::reset_back(uint32_t ms) { _start = static_cast<uint32_t>(os::tick_ms() - ms); }

uint32_t msec_timer::time() const { return since(static_cast<uint32_t>(_start), os::tick_ms()); }

uint32_t msec_timer::time_us() const { return time() * 1000u; }

uint32_t msec_timer::time_reset()
{
    uint32_t tick = os::tick_ms();
    uint32_t elapsed = since(static_cast<uint32_t>(_start), tick);
    _start = tick;
    return elapsed;
}

uint32_t msec_timer::ticks() const
{
    return static_cast<uint32_t>((static_cast<uint64_t>(time()) * 1000u) / _period);
}

uint32_t msec_timer::time_to_next(uint32_t n) const
{
    return n * _period - time() * 1000u;
}

} // namespace velk
