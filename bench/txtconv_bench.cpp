// Number writing of comm/txtconv against std::to_chars, in the same run.
//
// Each pair writes the same 1024 values, one per iteration, in turn:
// - "span" pairs write into a char array: the conversion alone.
// - "charstr" pairs append to a kept string that is reset every 1024 values:
//   the steady state of a log message. The std side converts with to_chars
//   into a stack array and appends the text, so both pay the same growth.
// The goal is a velk side within 1.5x of its to_chars side.
#include "comm/charstr.h"
#include "comm/txtconv.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr size_t value_count = 1024; // a power of two: the index is masked

// Integers of every length from 1 to 19 digits, with either sign.
std::vector<int64_t> mixed_integers()
{
    std::mt19937_64 rng(12345);
    std::vector<int64_t> v;
    for (size_t i = 0; i < value_count; ++i) {
        int64_t limit = 1;
        for (size_t d = 1 + i % 18; d > 0; --d)
            limit *= 10;
        int64_t x = static_cast<int64_t>(rng() % static_cast<uint64_t>(limit));
        v.push_back(i & 1 ? -x : x);
    }
    return v;
}

// Integers as a log shows them: counts, sizes and ids of 1 to 6 digits.
std::vector<int64_t> small_integers()
{
    std::mt19937_64 rng(54321);
    std::vector<int64_t> v;
    for (size_t i = 0; i < value_count; ++i) {
        int64_t limit = 1;
        for (size_t d = 1 + i % 6; d > 0; --d)
            limit *= 10;
        v.push_back(static_cast<int64_t>(rng() % static_cast<uint64_t>(limit)));
    }
    return v;
}

// Doubles from 1e-5 to 1e9 with either sign: the values of timings and rates.
std::vector<double> mixed_doubles()
{
    std::mt19937_64 rng(777);
    std::uniform_real_distribution<double> mantissa(1.0, 10.0);
    std::vector<double> v;
    for (size_t i = 0; i < value_count; ++i) {
        double x = mantissa(rng);
        for (int e = static_cast<int>(i % 15) - 5; e > 0; --e)
            x *= 10;
        for (int e = static_cast<int>(i % 15) - 5; e < 0; ++e)
            x /= 10;
        v.push_back(i & 1 ? -x : x);
    }
    return v;
}

// The width of the spans: room for 1e9 with 6 decimals and a sign, and for
// any 64-bit integer.
constexpr int span_width = 24;

// A charstr pair's loop: append each value in turn to a kept string, reset
// every value_count values.
template <class V, class Append>
void charstr_loop(benchmark::State& state, const std::vector<V>& values, Append append)
{
    velk::charstr s;
    size_t i = 0;
    for (auto _ : state) {
        if ((i & (value_count - 1)) == 0)
            s.reset();
        append(s, values[i++ & (value_count - 1)]);
    }
    benchmark::DoNotOptimize(s.ptr());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// A span pair's loop: write each value in turn into one char array.
template <class Write>
void span_loop(benchmark::State& state, const std::vector<double>& values, Write write)
{
    char buf[span_width];
    size_t i = 0;
    for (auto _ : state) {
        char* end = write(buf, buf + span_width, values[i++ & (value_count - 1)]);
        benchmark::DoNotOptimize(end);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// The std side of a charstr pair: to_chars into a stack array, then append.
template <class V, class... Format>
void append_to_chars(velk::charstr& s, V v, Format... format)
{
    char buf[span_width];
    char* end = std::to_chars(buf, buf + span_width, v, format...).ptr;
    s.append(velk::token(buf, end));
}

} // namespace

// -- Integers ---------------------------------------------------------------------

static void BM_int64_charstr(benchmark::State& state)
{
    charstr_loop(state, mixed_integers(), [](velk::charstr& s, int64_t v) { s << v; });
}
BENCHMARK(BM_int64_charstr);

static void BM_int64_to_chars_charstr(benchmark::State& state)
{
    charstr_loop(state, mixed_integers(), [](velk::charstr& s, int64_t v) { append_to_chars(s, v); });
}
BENCHMARK(BM_int64_to_chars_charstr);

static void BM_small_int_charstr(benchmark::State& state)
{
    charstr_loop(state, small_integers(), [](velk::charstr& s, int64_t v) { s << v; });
}
BENCHMARK(BM_small_int_charstr);

static void BM_small_int_to_chars_charstr(benchmark::State& state)
{
    charstr_loop(state, small_integers(), [](velk::charstr& s, int64_t v) { append_to_chars(s, v); });
}
BENCHMARK(BM_small_int_to_chars_charstr);

// Hexadecimal with the general form against to_chars in base 16.
static void BM_hex_append_num_charstr(benchmark::State& state)
{
    charstr_loop(state, mixed_integers(),
                 [](velk::charstr& s, int64_t v) { s.append_num(16, static_cast<uint64_t>(v), 0); });
}
BENCHMARK(BM_hex_append_num_charstr);

static void BM_hex_to_chars_charstr(benchmark::State& state)
{
    charstr_loop(state, mixed_integers(),
                 [](velk::charstr& s, int64_t v) { append_to_chars(s, static_cast<uint64_t>(v), 16); });
}
BENCHMARK(BM_hex_to_chars_charstr);

// -- Floating point ------------------------------------------------------------------

// Exactly 6 decimals: append_float's nfrac -6 against to_chars' fixed form
// with precision 6, both into a span.
static void BM_float_fixed6_span(benchmark::State& state)
{
    span_loop(state, mixed_doubles(), [](char* p, char* e, double v) {
        return velk::charstrconv::append_float(p, e, v, -6);
    });
}
BENCHMARK(BM_float_fixed6_span);

static void BM_float_fixed6_to_chars_span(benchmark::State& state)
{
    span_loop(state, mixed_doubles(), [](char* p, char* e, double v) {
        return std::to_chars(p, e, v, std::chars_format::fixed, 6).ptr;
    });
}
BENCHMARK(BM_float_fixed6_to_chars_span);

// At most 6 decimals, trailing zeros dropped, against to_chars' shortest
// form, which also writes no trailing zeros (and up to 17 digits).
static void BM_float_upto6_span(benchmark::State& state)
{
    span_loop(state, mixed_doubles(), [](char* p, char* e, double v) {
        return velk::charstrconv::append_float(p, e, v, 6);
    });
}
BENCHMARK(BM_float_upto6_span);

static void BM_float_shortest_to_chars_span(benchmark::State& state)
{
    span_loop(state, mixed_doubles(), [](char* p, char* e, double v) { return std::to_chars(p, e, v).ptr; });
}
BENCHMARK(BM_float_shortest_to_chars_span);

// The charstr path: grow by the width, write, cut back.
static void BM_float_fixed6_charstr(benchmark::State& state)
{
    charstr_loop(state, mixed_doubles(), [](velk::charstr& s, double v) { s.append_float(v, -6, span_width); });
}
BENCHMARK(BM_float_fixed6_charstr);

static void BM_float_fixed6_to_chars_charstr(benchmark::State& state)
{
    charstr_loop(state, mixed_doubles(),
                 [](velk::charstr& s, double v) { append_to_chars(s, v, std::chars_format::fixed, 6); });
}
BENCHMARK(BM_float_fixed6_to_chars_charstr);
