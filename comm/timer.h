// The three clocks: a nanosecond counter for measuring, a day-time clock for
// timestamps, and a 32-bit millisecond tick for timeouts.
//
// Every value is integer arithmetic that loses nothing to overflow; the wall
// clock is read once per process. The first-use steps are unguarded: two
// threads may both compute the same frequency (or a day offset that differs
// by the time between them).
#pragma once

#include <cstdint>

namespace velk {

// Nanoseconds of the performance counter: (c / f) * 1e9 + ((c % f) * 1e9) / f.
uint64_t current_time_ns();

// current_time_ns plus an offset computed on first call from the wall clock;
// see timer.cpp. Not folded again after a day.
uint64_t time_of_day_ns();

// Converts a raw counter difference to nanoseconds by the same split.
uint64_t counter_to_ns(uint64_t counts);

class nsec_timer
{
public:
    nsec_timer() { reset(); }

    // Reads the clock first so the frequency is known, then starts from now.
    void reset();
    // Starts from now with a raw reading only.
    void reset_raw();

    uint64_t time_ns() const;
    // Seconds as a double; unsigned-safe for values with the top bit set.
    double time() const;

    uint64_t start() const { return _start; }
    uint64_t base() const { return _base; }
    void set_base(uint64_t base) { _base = base; }

private:
    uint64_t _start = 0;
    uint64_t _base = 0;
};

// On the 32-bit millisecond tick; its wrap every 49.7 days is harmless to
// the differences below. The period, the unit of ticks and time_to_next, is
// in microseconds.
class msec_timer
{
public:
    explicit msec_timer(uint32_t period = 1) : _period(period) { reset(); }

    void reset();
    // Reads as started ms ago.
    void reset_back(uint32_t ms);

    uint32_t time() const;
    uint32_t time_us() const;
    uint32_t time_reset();
    // Elapsed periods; a period of 0 is the caller's error (division by zero).
    uint32_t ticks() const;
    // n periods minus the elapsed time, in 32 bits: past the point due it is a
    // large unsigned value, which callers test for.
    uint32_t time_to_next(uint32_t n) const;

    // Milliseconds from start to tick in 32 bits, right across a wrap of the tick.
    static constexpr uint32_t since(uint32_t start, uint32_t tick) { return tick - start; }

    void set_period(uint32_t period) { _period = period; }
    uint32_t period() const { return _period; }

private:
    uint64_t _start = 0;
    uint32_t _period;
};

} // namespace velk
