// charstr appends and dynarray pushes against their standard counterparts.
//
// Each pair does the same work: a fresh container built up from empty (growth
// included), or a kept one reset and built again (the steady state of a log
// message or a pooled string, where no allocation happens).
#include "comm/charstr.h"
#include "comm/dynarray.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

namespace {

// Pieces of the length of keys, names and log fragments: 3 to 12 characters.
const velk::token pieces[] = {"key", "value", "xt::iface", ".create", "@", "hostprobe", "::", "metastream",
                              "=", "12345", "path/to", "file.log", "ERROR: ", "[ifcreg] ", "ok", "done."};
constexpr int piece_count = sizeof pieces / sizeof pieces[0];
constexpr int pieces_per_text = 64;
constexpr int chars_per_text = 256;
constexpr int pushes = 1000;

void charstr_pieces(velk::charstr& s)
{
    for (int i = 0; i < pieces_per_text; ++i)
        s << pieces[i % piece_count];
}

void string_pieces(std::string& s)
{
    for (int i = 0; i < pieces_per_text; ++i) {
        const velk::token& t = pieces[i % piece_count];
        s.append(t.ptr(), t.lens());
    }
}

} // namespace

static void BM_charstr_append_pieces(benchmark::State& state)
{
    for (auto _ : state) {
        velk::charstr s;
        charstr_pieces(s);
        benchmark::DoNotOptimize(s.ptr());
    }
    state.SetItemsProcessed(state.iterations() * pieces_per_text);
}
BENCHMARK(BM_charstr_append_pieces);

static void BM_string_append_pieces(benchmark::State& state)
{
    for (auto _ : state) {
        std::string s;
        string_pieces(s);
        benchmark::DoNotOptimize(s.data());
    }
    state.SetItemsProcessed(state.iterations() * pieces_per_text);
}
BENCHMARK(BM_string_append_pieces);

static void BM_charstr_append_pieces_reused(benchmark::State& state)
{
    velk::charstr s;
    for (auto _ : state) {
        s.reset();
        charstr_pieces(s);
        benchmark::DoNotOptimize(s.ptr());
    }
    state.SetItemsProcessed(state.iterations() * pieces_per_text);
}
BENCHMARK(BM_charstr_append_pieces_reused);

static void BM_string_append_pieces_reused(benchmark::State& state)
{
    std::string s;
    for (auto _ : state) {
        s.clear();
        string_pieces(s);
        benchmark::DoNotOptimize(s.data());
    }
    state.SetItemsProcessed(state.iterations() * pieces_per_text);
}
BENCHMARK(BM_string_append_pieces_reused);

static void BM_charstr_append_chars(benchmark::State& state)
{
    for (auto _ : state) {
        velk::charstr s;
        for (int i = 0; i < chars_per_text; ++i)
            s << static_cast<char>('a' + (i & 15));
        benchmark::DoNotOptimize(s.ptr());
    }
    state.SetItemsProcessed(state.iterations() * chars_per_text);
}
BENCHMARK(BM_charstr_append_chars);

static void BM_string_append_chars(benchmark::State& state)
{
    for (auto _ : state) {
        std::string s;
        for (int i = 0; i < chars_per_text; ++i)
            s += static_cast<char>('a' + (i & 15));
        benchmark::DoNotOptimize(s.data());
    }
    state.SetItemsProcessed(state.iterations() * chars_per_text);
}
BENCHMARK(BM_string_append_chars);

static void BM_dynarray_push(benchmark::State& state)
{
    for (auto _ : state) {
        velk::dynarray<uint32_t> a;
        for (uint32_t i = 0; i < pushes; ++i)
            *a.push() = i;
        benchmark::DoNotOptimize(a.ptr());
    }
    state.SetItemsProcessed(state.iterations() * pushes);
}
BENCHMARK(BM_dynarray_push);

static void BM_vector_push_back(benchmark::State& state)
{
    for (auto _ : state) {
        std::vector<uint32_t> v;
        for (uint32_t i = 0; i < pushes; ++i)
            v.push_back(i);
        benchmark::DoNotOptimize(v.data());
    }
    state.SetItemsProcessed(state.iterations() * pushes);
}
BENCHMARK(BM_vector_push_back);

static void BM_dynarray_push_reused(benchmark::State& state)
{
    velk::dynarray<uint32_t> a;
    for (auto _ : state) {
        a.reset();
        for (uint32_t i = 0; i < pushes; ++i)
            *a.push() = i;
        benchmark::DoNotOptimize(a.ptr());
    }
    state.SetItemsProcessed(state.iterations() * pushes);
}
BENCHMARK(BM_dynarray_push_reused);

static void BM_vector_push_back_reused(benchmark::State& state)
{
    std::vector<uint32_t> v;
    for (auto _ : state) {
        v.clear();
        for (uint32_t i = 0; i < pushes; ++i)
            v.push_back(i);
        benchmark::DoNotOptimize(v.data());
    }
    state.SetItemsProcessed(state.iterations() * pushes);
}
BENCHMARK(BM_vector_push_back_reused);

// -- A model of the allocator the arrays will sit on -------------------------------
// The append path asks the allocator for the block's usable size on every
// growth test; on the runtime allocator that is a library call. A memory space
// can answer it from its chunk header with one load. This policy models that:
// the usable size kept in a word before the count word. Used only here, to
// show what push costs once size is a load.

namespace {

struct inline_size_policy
{
    static constexpr uint64_t header = 16; // usable bytes, then the count word

    static uint64_t* words(const void* p) { return static_cast<uint64_t*>(const_cast<void*>(p)) - 2; }

    template <class T>
    static T* alloc(uint64_t count, velk::mspace = nullptr)
    {
        return static_cast<T*>(place(std::malloc(count * sizeof(T) + header), count, sizeof(T)));
    }
    template <class T>
    static T* realloc(T* p, uint64_t count, velk::mspace = nullptr)
    {
        void* block = std::realloc(p ? words(p) : nullptr, count * sizeof(T) + header);
        return static_cast<T*>(place(block, count, sizeof(T)));
    }
    template <class T>
    static bool resize_in_place(T*, uint64_t) { return false; }
    static void free(void* p) { std::free(words(p)); }
    static uint64_t size(const void* p) { return p ? words(p)[0] : 0; }
    static uint64_t count(const void* p) { return p ? words(p)[1] : 0; }
    static void set_count(void* p, uint64_t n) { words(p)[1] = n; }

    static void* place(void* block, uint64_t count, uint64_t elem_size)
    {
        if (!block)
            throw std::bad_alloc();
        auto* w = static_cast<uint64_t*>(block);
        w[0] = count * elem_size;
        w[1] = count;
        return w + 2;
    }
};

} // namespace

static void BM_dynarray_push_model_inline_size(benchmark::State& state)
{
    for (auto _ : state) {
        velk::dynarray<uint32_t, uint32_t, inline_size_policy> a;
        for (uint32_t i = 0; i < pushes; ++i)
            *a.push() = i;
        benchmark::DoNotOptimize(a.ptr());
    }
    state.SetItemsProcessed(state.iterations() * pushes);
}
BENCHMARK(BM_dynarray_push_model_inline_size);

static void BM_dynarray_push_model_inline_size_reused(benchmark::State& state)
{
    velk::dynarray<uint32_t, uint32_t, inline_size_policy> a;
    for (auto _ : state) {
        a.reset();
        for (uint32_t i = 0; i < pushes; ++i)
            *a.push() = i;
        benchmark::DoNotOptimize(a.ptr());
    }
    state.SetItemsProcessed(state.iterations() * pushes);
}
BENCHMARK(BM_dynarray_push_model_inline_size_reused);
