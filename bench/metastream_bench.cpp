// metastream against a direct copy: a charstr of 16 and of 4,096 characters
// written and read back through a format that keeps the bytes in a buffer,
// and a structure of 8 members read in order and out of order (the cache).
//
// The charstr benchmarks time both ways in each iteration, in the thread's
// CPU time, and report metastream/direct as `ratio`; the goal at 4,096
// characters is 1.5 or less. The structure benchmark reports out-of-order
// over in-order as `ratio`.
#include "bench/thread_cpu_clock.h"
#include "comm/binstream/binstreambuf.h"
#include "comm/charstr.h"
#include "comm/metastream/metastream.h"

#include <benchmark/benchmark.h>

#include <cstring>

using namespace velk;

namespace {

// Values as raw bytes: a key is its length byte and its characters, a
// structure ends with a zero byte, an array begins with its 8-byte count.
class byte_format : public fmtstream
{
public:
    binstreambuf::buffer_type bytes;
    uint64_t rpos = 0;

    opcd write_key(const token& key, int32_t) override
    {
        uint8_t* p = bytes.add(key.lens() + 1);
        p[0] = uint8_t(key.lens());
        memcpy(p + 1, key.ptr(), key.lens());
        return {};
    }
    opcd write(const void* p, bstype::kind t) override
    {
        if (t.has_flags(bstype::kind::flag_array_end) || t.type() == bstype::kind::type_struct_open)
            return {};
        if (t.type() == bstype::kind::type_struct_close) {
            *bytes.add(1) = 0;
            return {};
        }
        memcpy(bytes.add(t.size()), p, t.size());
        return {};
    }
    opcd write_array_content(binstream_container_base& c, uint64_t& count, void*) override
    {
        count = c.count();
        uint64_t n = count * c.type.size();
        pad_to_block(true);
        if (n)
            memcpy(bytes.add(n), c.extract(count), n);
        return {};
    }

    // A block starts at a multiple of 16 bytes, as the arrays of the memory
    // spaces do, so that its copies are between blocks of one alignment, as
    // the direct copy's are.
    void pad_to_block(bool writing)
    {
        if (writing) {
            uint64_t pad = (16 - bytes.size() % 16) % 16;
            if (pad)
                memset(bytes.add(pad), 0, pad);
        } else {
            rpos = (rpos + 15) & ~uint64_t(15);
        }
    }
    opcd write_raw(const void* p, uint64_t& len) override
    {
        memcpy(bytes.add(len), p, len);
        len = 0;
        return {};
    }

    opcd read_key(charstr& key, int32_t, const token&) override
    {
        uint8_t n = bytes[rpos];
        if (n == 0)
            return ers::no_more;
        key = token(reinterpret_cast<const char*>(bytes.ptr() + rpos + 1), n);
        rpos += n + 1;
        return {};
    }
    opcd read(void* p, bstype::kind t) override
    {
        if (t.has_flags(bstype::kind::flag_array_end) || t.type() == bstype::kind::type_struct_open)
            return {};
        if (t.type() == bstype::kind::type_struct_close) {
            ++rpos;
            return {};
        }
        memcpy(p, bytes.ptr() + rpos, t.size());
        rpos += t.size();
        return {};
    }
    opcd read_array_content(binstream_container_base& c, uint64_t n, uint64_t& count, void*) override
    {
        uint64_t len = n * c.type.size();
        pad_to_block(false);
        void* to = c.insert(n);
        if (len)
            memcpy(to, bytes.ptr() + rpos, len);
        rpos += len;
        count = n;
        return {};
    }
    opcd read_raw(void* p, uint64_t& len) override
    {
        memcpy(p, bytes.ptr() + rpos, len);
        rpos += len;
        len = 0;
        return {};
    }
    opcd reset_read() override
    {
        rpos = 0;
        return {};
    }
    // A read run resets the side that the write before it used; the bytes
    // must stay for the read, so the benchmark empties them itself before
    // each write.
    opcd reset_write() override { return {}; }
    token fmtstream_name() override { return "byte_format"; }
    void acknowledge(bool) override {}
    void reserved_f() override {}
    void flush() override {}
};

// Rounds timed between two clock reads: a thread's CPU clock is a system
// call of a few hundred nanoseconds, which must not weigh on a 16-byte copy.
constexpr int rounds = 64;

using bench::thread_cpu_ns;

struct eight
{
    int32_t a = 1, b = 2, c = 3, d = 4, e = 5, f = 6, g = 7, h = 8;
};

void stream_meta(metastream& m, eight* p)
{
    if (!m.struct_begin("eight", p))
        return;
    m.member("a", p, &eight::a);
    m.member("b", p, &eight::b);
    m.member("c", p, &eight::c);
    m.member("d", p, &eight::d);
    m.member("e", p, &eight::e);
    m.member("f", p, &eight::f);
    m.member("g", p, &eight::g);
    m.member("h", p, &eight::h);
    m.struct_end();
}

// A write and a read of a charstr of range(0) characters through metastream,
// against a copy of the same bytes into a buffer and back into a charstr.
void BM_charstr_vs_direct_copy(benchmark::State& state)
{
    const uint32_t n = uint32_t(state.range(0));
    charstr text;
    memset(text.alloc_buf(n), 'x', n);
    text.resize(int32_t(n));
    charstr back;
    byte_format f;
    metastream m;
    m.fmt_read = m.fmt_write = &f;
    binstreambuf::buffer_type direct;
    charstr direct_back;
    double meta = 0, copy = 0;
    for (auto _ : state) {
        double t0 = thread_cpu_ns();
        for (int r = 0; r < rounds; ++r) {
            f.bytes.reset();
            m.write_run(text);
            m.read_run(back);
            benchmark::DoNotOptimize(back.ptr());
        }
        double t1 = thread_cpu_ns();
        for (int r = 0; r < rounds; ++r) {
            direct.reset();
            memcpy(direct.add(n), text.ptr(), n);
            direct_back = token(reinterpret_cast<const char*>(direct.ptr()), n);
            benchmark::DoNotOptimize(direct_back.ptr());
        }
        double t2 = thread_cpu_ns();
        meta += t1 - t0;
        copy += t2 - t1;
    }
    double it = double(state.iterations()) * rounds;
    state.counters["metastream_ns_per_value"] = meta / it;
    state.counters["direct_ns_per_value"] = copy / it;
    state.counters["ratio"] = meta / copy;
}
BENCHMARK(BM_charstr_vs_direct_copy)->Arg(16)->Arg(4096);

// Reads of a structure of 8 members: members in order, and in reverse
// order, so that all but the last wait in the cache.
void BM_struct8_in_order_vs_out_of_order(benchmark::State& state)
{
    byte_format in_order, reversed;
    {
        metastream w;
        w.fmt_write = &in_order;
        w.write_run(eight{});
        w.rw_state = 0; // nothing to flush
    }
    // The same members, keys and values, last first.
    const char names[] = "abcdefgh";
    for (int i = 7; i >= 0; --i) {
        uint8_t* p = reversed.bytes.add(6);
        p[0] = 1;
        p[1] = uint8_t(names[i]);
        int32_t v = i + 1;
        memcpy(p + 2, &v, 4);
    }
    *reversed.bytes.add(1) = 0;
    metastream m;
    eight e;
    double ordered = 0, shuffled = 0;
    for (auto _ : state) {
        double t0 = thread_cpu_ns();
        m.fmt_read = &in_order;
        for (int r = 0; r < rounds; ++r) {
            m.read_run(e);
            benchmark::DoNotOptimize(e.h);
        }
        double t1 = thread_cpu_ns();
        m.fmt_read = &reversed;
        for (int r = 0; r < rounds; ++r) {
            m.read_run(e);
            benchmark::DoNotOptimize(e.h);
        }
        double t2 = thread_cpu_ns();
        ordered += t1 - t0;
        shuffled += t2 - t1;
    }
    m.rw_state = 0;
    if (e.a != 1 || e.h != 8)
        state.SkipWithError("read the wrong values");
    double it = double(state.iterations()) * rounds;
    state.counters["in_order_ns_per_value"] = ordered / it / 8;
    state.counters["out_of_order_ns_per_value"] = shuffled / it / 8;
    state.counters["ratio"] = shuffled / ordered;
}
BENCHMARK(BM_struct8_in_order_vs_out_of_order);

} // namespace
