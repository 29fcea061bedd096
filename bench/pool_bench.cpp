// Reusing an object through pool against allocating it anew: one take and
// one return against one new and one delete, on one thread and on two
// threads that share the pool (and the allocator). Then the same for an
// object that owns a text buffer, as a log message does: a pooled one keeps
// its buffer, a new one allocates it again.
#include "comm/charstr.h"
#include "comm/pool.h"

#include <benchmark/benchmark.h>

#include <cstdint>

namespace {

// About the size of a log message with its policy: 64 bytes.
struct pooled_object
{
    uint64_t words[8];
};

velk::pool<pooled_object*> shared_pool;

// Takes one object, or makes one when the pool is dry, and gives it back.
void take_and_return(velk::pool<pooled_object*>& p)
{
    pooled_object* o = p.create_instance();
    if (!o)
        o = new pooled_object;
    benchmark::DoNotOptimize(o);
    p.release_instance(o);
}

void drain(velk::pool<pooled_object*>& p)
{
    while (pooled_object* o = p.create_instance())
        delete o;
}

} // namespace

static void BM_pool_take_return(benchmark::State& state)
{
    for (auto _ : state)
        take_and_return(shared_pool);
    if (state.thread_index() == 0)
        drain(shared_pool);
}
BENCHMARK(BM_pool_take_return);
BENCHMARK(BM_pool_take_return)->Threads(2);

static void BM_new_delete(benchmark::State& state)
{
    for (auto _ : state) {
        auto* o = new pooled_object;
        benchmark::DoNotOptimize(o);
        delete o;
    }
}
BENCHMARK(BM_new_delete);
BENCHMARK(BM_new_delete)->Threads(2);

// -- With a text buffer --------------------------------------------------------------

namespace {

struct message_like
{
    velk::charstr text;
};

// A typical short log line: about 50 characters.
constexpr char line[] = "Assertion failed in pool_bench.cpp(42), function f";

velk::pool<message_like*> message_pool;

} // namespace

static void BM_pool_message_reuse(benchmark::State& state)
{
    for (auto _ : state) {
        message_like* m = message_pool.create_instance();
        if (!m)
            m = new message_like;
        m->text.reset();
        m->text << line;
        benchmark::DoNotOptimize(m->text.ptr());
        message_pool.release_instance(m);
    }
    while (message_like* m = message_pool.create_instance())
        delete m;
}
BENCHMARK(BM_pool_message_reuse);

static void BM_new_delete_message(benchmark::State& state)
{
    for (auto _ : state) {
        auto* m = new message_like;
        m->text << line;
        benchmark::DoNotOptimize(m->text.ptr());
        delete m;
    }
}
BENCHMARK(BM_new_delete_message);
