// filestream against the C library's buffered files: sequential write and
// read of a file in 64 KiB blocks, the way a log or a copy moves data. The
// argument is the file size; 256 MiB is registered, and the same code runs
// for any size. Each benchmark works in a directory of its own under the
// system's temporary place and removes it when done. The goal is to stay
// within 1.1 times the C library's time.
#include "comm/binstream/filestream.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr uint64_t block_size = 64 * 1024;
constexpr int64_t file_size = 256ll * 1024 * 1024;

// A fresh temporary directory with one file name in it, removed at the end.
class scratch_file
{
public:
    scratch_file()
    {
        const char* tmp = std::getenv("TMPDIR");
        std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/filestream_bench_XXXXXX";
        if (mkdtemp(templ.data()))
            _dir = templ;
        _path = _dir + "/data.bin";
    }
    ~scratch_file()
    {
        std::error_code ec;
        if (!_dir.empty())
            std::filesystem::remove_all(_dir, ec);
    }
    bool ok() const { return !_dir.empty(); }
    const char* path() const { return _path.c_str(); }

private:
    std::string _dir;
    std::string _path;
};

std::vector<char> pattern_block()
{
    std::vector<char> b(block_size);
    for (size_t i = 0; i < b.size(); ++i)
        b[i] = char(i * 31 + 7);
    return b;
}

// Writes size bytes with the C library: the file every read benchmark reads.
bool make_file(const char* path, int64_t size)
{
    std::vector<char> b = pattern_block();
    FILE* f = std::fopen(path, "wb");
    if (!f)
        return false;
    for (int64_t done = 0; done < size; done += block_size)
        std::fwrite(b.data(), 1, block_size, f);
    return std::fclose(f) == 0;
}

void bm_filestream_write(benchmark::State& state)
{
    scratch_file file;
    std::vector<char> b = pattern_block();
    int64_t size = state.range(0);
    for (auto _ : state) {
        velk::filestream f;
        if (f.open(velk::zstring(file.path()), "wct")) {
            state.SkipWithError("open failed");
            break;
        }
        for (int64_t done = 0; done < size; done += block_size) {
            uint64_t len = block_size;
            f.write_raw(b.data(), len);
            if (len)
                state.SkipWithError("short write");
        }
        f.close();
    }
    state.SetBytesProcessed(state.iterations() * size);
}

void bm_fwrite(benchmark::State& state)
{
    scratch_file file;
    std::vector<char> b = pattern_block();
    int64_t size = state.range(0);
    for (auto _ : state) {
        FILE* f = std::fopen(file.path(), "wb");
        if (!f) {
            state.SkipWithError("fopen failed");
            break;
        }
        for (int64_t done = 0; done < size; done += block_size)
            if (std::fwrite(b.data(), 1, block_size, f) != block_size)
                state.SkipWithError("short write");
        std::fclose(f);
    }
    state.SetBytesProcessed(state.iterations() * size);
}

void bm_filestream_read(benchmark::State& state)
{
    scratch_file file;
    int64_t size = state.range(0);
    if (!file.ok() || !make_file(file.path(), size)) {
        state.SkipWithError("could not make the file");
        return;
    }
    std::vector<char> b(block_size);
    for (auto _ : state) {
        velk::filestream f;
        if (f.open(velk::zstring(file.path()), "r")) {
            state.SkipWithError("open failed");
            break;
        }
        for (int64_t done = 0; done < size; done += block_size) {
            uint64_t len = block_size;
            f.read_raw(b.data(), len);
            if (len)
                state.SkipWithError("short read");
        }
        benchmark::DoNotOptimize(b.data());
        f.close();
    }
    state.SetBytesProcessed(state.iterations() * size);
}

void bm_fread(benchmark::State& state)
{
    scratch_file file;
    int64_t size = state.range(0);
    if (!file.ok() || !make_file(file.path(), size)) {
        state.SkipWithError("could not make the file");
        return;
    }
    std::vector<char> b(block_size);
    for (auto _ : state) {
        FILE* f = std::fopen(file.path(), "rb");
        if (!f) {
            state.SkipWithError("fopen failed");
            break;
        }
        for (int64_t done = 0; done < size; done += block_size)
            if (std::fread(b.data(), 1, block_size, f) != block_size)
                state.SkipWithError("short read");
        benchmark::DoNotOptimize(b.data());
        std::fclose(f);
    }
    state.SetBytesProcessed(state.iterations() * size);
}

} // namespace

BENCHMARK(bm_filestream_write)->Arg(file_size)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bm_fwrite)->Arg(file_size)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bm_filestream_read)->Arg(file_size)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bm_fread)->Arg(file_size)->Unit(benchmark::kMillisecond)->UseRealTime();
