// The logger against spdlog's asynchronous logger, both writing the same
// lines to a file in the same run.
//
// Throughput: one or two producer threads log a batch of numbered lines;
// the time runs until the last line is in the file (our writer idle, or
// spdlog's thread pool joined and its file closed). Producer cost: what one
// accepted and one refused log call costs the calling thread, the refused
// one through the whole log call as a module makes it (registry, logger
// hook, level test). Goals: throughput at least spdlog's; a refused call
// under 5 ns.
#include "comm/log/logger.h"

#include "interface/registrar.h"

#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

// Lines per iteration, shared among the producers.
constexpr int64_t batch = 200'000;

std::string bench_file(const char* tag)
{
    const char* tmp = getenv("TMPDIR");
    return std::string(tmp && *tmp ? tmp : "/tmp") + "/velk_logger_bench_" + tag + ".log";
}

template <class F>
double run_producers(int producers, F produce)
{
    auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (int p = 0; p < producers; ++p)
        threads.emplace_back(produce, p, batch / producers);
    for (std::thread& t : threads)
        t.join();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// -- Throughput to a file --------------------------------------------------------------

void velk_file(benchmark::State& state)
{
    int producers = static_cast<int>(state.range(0));
    std::string path = bench_file("velk");
    for (auto _ : state) {
        velk::logger log(false, true);
        log.open(path.c_str());
        auto start = std::chrono::steady_clock::now();
        run_producers(producers, [&](int id, int64_t n) {
            for (int64_t i = 0; i < n; ++i)
                if (velk::log_ref m = log.create_msg(3, "bench", nullptr))
                    *m << "message " << id << ' ' << i;
        });
        velk::logger::flush(); // every line written
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    state.SetItemsProcessed(state.iterations() * batch);
    remove(path.c_str());
}

void spdlog_file(benchmark::State& state)
{
    int producers = static_cast<int>(state.range(0));
    std::string path = bench_file("spdlog");
    for (auto _ : state) {
        auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
        auto pool = std::make_shared<spdlog::details::thread_pool>(8192, 1);
        auto log = std::make_shared<spdlog::async_logger>("bench", sink, pool,
                                                          spdlog::async_overflow_policy::block);
        // The same line as ours: the level's prefix and the source are text.
        log->set_pattern("%v");
        auto start = std::chrono::steady_clock::now();
        run_producers(producers, [&](int id, int64_t n) {
            for (int64_t i = 0; i < n; ++i)
                log->info("INFO: [bench] message {} {}", id, i);
        });
        // Joining the pool writes the queue; the last owner closes the file.
        log.reset();
        pool.reset();
        sink.reset();
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    state.SetItemsProcessed(state.iterations() * batch);
    remove(path.c_str());
}

BENCHMARK(velk_file)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(spdlog_file)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

// -- Producer cost -------------------------------------------------------------------------

// The host's logger, given through the registry's logger hook: the road of
// a log call made by a module.
velk::logger* host_logger = nullptr;

velk::logger* give_logger() { return host_logger; }

velk::logger& hosts_logger()
{
    if (!host_logger) {
        static velk::logger l(false, true);
        l.open(bench_file("accepted").c_str());
        host_logger = &l;
        velk::setup("", nullptr, nullptr, &give_logger);
    }
    return *host_logger;
}

void velk_accepted(benchmark::State& state)
{
    hosts_logger().set_level(7);
    int64_t i = 0;
    for (auto _ : state) {
        VELK_LOG(3, "bench") << "message " << i++;
    }
    velk::logger::flush();
    state.SetItemsProcessed(state.iterations());
    remove(bench_file("accepted").c_str());
}

void velk_refused(benchmark::State& state)
{
    hosts_logger().set_level(4);
    int64_t i = 0;
    for (auto _ : state) {
        VELK_LOG(5, "bench") << "refused " << i++;
        benchmark::ClobberMemory();
    }
    hosts_logger().set_level(7);
    state.SetItemsProcessed(state.iterations());
}

void velk_refused_by_logger(benchmark::State& state)
{
    velk::logger log;
    log.set_level(4);
    static constexpr velk::tokenhash source("bench");
    int64_t i = 0;
    for (auto _ : state) {
        if (velk::log_ref m = log.create_msg(5, source, nullptr))
            *m << "refused " << i;
        ++i;
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

void spdlog_refused(benchmark::State& state)
{
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(bench_file("spdlog_refused"), true);
    auto pool = std::make_shared<spdlog::details::thread_pool>(8192, 1);
    auto log = std::make_shared<spdlog::async_logger>("refused", sink, pool, spdlog::async_overflow_policy::block);
    log->set_level(spdlog::level::info);
    int64_t i = 0;
    for (auto _ : state) {
        log->debug("refused {}", i++);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
    log.reset();
    pool.reset();
    sink.reset();
    remove(bench_file("spdlog_refused").c_str());
}

BENCHMARK(velk_accepted);
BENCHMARK(velk_refused);
BENCHMARK(velk_refused_by_logger);
BENCHMARK(spdlog_refused);

} // namespace
