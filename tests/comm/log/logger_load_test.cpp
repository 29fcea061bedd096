// The logger under load: two producers log numbered lines to one file while
// a third thread makes and drops lines that the level refuses. Every
// accepted line must reach the file exactly once, each producer's in its
// order: with the writer running to the end, and with the writer cancelled
// half-way, when the writer's destruction at the process's end writes what
// was left in the queue.
//
// LOGGER_LOAD_MESSAGES sets the lines per producer (default 200,000).
#include "comm/log/logger.h"

#include "tests/support/process_env.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace {

using velk::log_ref;
using velk::logger;

constexpr uint64_t default_messages = 200'000;

uint64_t messages_per_producer()
{
    const char* v = getenv("LOGGER_LOAD_MESSAGES");
    uint64_t n = v ? strtoull(v, nullptr, 10) : 0;
    return n ? n : default_messages;
}

struct load_counts
{
    std::atomic<uint64_t> refused_made{0};
    std::atomic<uint64_t> refused_accepted{0};
};

// Producers 0 and 1 log n lines each at level 3; a third thread asks for
// level 5 lines until they are done. midway, if given, runs on producer 0
// after half of its lines.
void produce(logger& log, uint64_t n, load_counts& counts, const std::function<void()>& midway = {})
{
    std::atomic<bool> done{false};
    std::thread refuser([&] {
        while (!done) {
            if (log_ref m = log.create_msg(5, "load", nullptr)) {
                *m << "refused line";
                ++counts.refused_accepted;
            }
            ++counts.refused_made;
        }
    });
    auto producer = [&](int id) {
        for (uint64_t i = 0; i < n; ++i) {
            if (id == 0 && i == n / 2 && midway)
                midway();
            if (log_ref m = log.create_msg(3, "load", nullptr))
                *m << 'p' << id << ' ' << i;
        }
    };
    std::thread p0(producer, 0), p1(producer, 1);
    p0.join();
    p1.join();
    done = true;
    refuser.join();
}

// "" when the file holds exactly 2 n lines "INFO: [load] p<id> <i>", each
// producer's i counting up from 0; else what is wrong.
std::string check_file(const std::string& path, uint64_t n)
{
    std::string text = read_file(path);
    uint64_t next[2] = {0, 0};
    size_t at = 0;
    const std::string head = "INFO: [load] p";
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos)
            return "unterminated line at byte " + std::to_string(at);
        if (text.compare(at, head.size(), head) != 0 || end - at < head.size() + 3)
            return "foreign line: " + text.substr(at, end - at);
        int id = text[at + head.size()] - '0';
        if ((id != 0 && id != 1) || text[at + head.size() + 1] != ' ')
            return "bad producer: " + text.substr(at, end - at);
        uint64_t i = strtoull(text.c_str() + at + head.size() + 2, nullptr, 10);
        if (i != next[id])
            return "producer " + std::to_string(id) + ": line " + std::to_string(i) + " where " +
                   std::to_string(next[id]) + " was due";
        ++next[id];
        at = end + 1;
    }
    if (next[0] != n || next[1] != n)
        return "lines: " + std::to_string(next[0]) + " and " + std::to_string(next[1]) + " of " + std::to_string(n);
    return "";
}

} // namespace

TEST(LoggerLoad, TwoProducersLoseNothingAndKeepTheirOrder)
{
    temp_dir dir("logger_load");
    std::string path = dir / "load.log";
    uint64_t n = messages_per_producer();
    {
        logger log(false, true);
        log.open(path.c_str());
        log.set_level(3);
        load_counts counts;
        produce(log, n, counts);
        EXPECT_TRUE(logger::terminate());
        EXPECT_GT(counts.refused_made.load(), 0u);
        EXPECT_EQ(counts.refused_accepted.load(), 0u);
    }
    EXPECT_EQ(check_file(path, n), "");
    logger restart; // the writer for whatever follows
}

namespace {

// In the child: the writer is cancelled half-way through; what the producers
// log afterwards stays queued until the process ends. Exit code 0 when
// lines were still queued at the end, as the test needs.
void run_with_cancelled_writer(const std::string& path, uint64_t n)
{
    logger log(false, true);
    log.open(path.c_str());
    log.set_level(3);
    velk::thread writer = velk::log_writer::instance().writer_thread();
    bool cancelled = false;
    load_counts counts;
    produce(log, n, counts, [&] { cancelled = velk::thread::cancel_and_wait(writer, 10000); });
    uint64_t left = velk::log_writer::instance().queued();
    exit(cancelled && left > 0 && counts.refused_accepted == 0 ? 0 : 3);
}

} // namespace

class LoggerLoadDeathTest : public ::testing::Test
{
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(LoggerLoadDeathTest, DestroyerWritesWhatACancelledWriterLeftQueued)
{
    // The child runs this body again: it must write to the parent's file.
    const char* const env = "VELK_LOGGER_LOAD_DIR";
    std::unique_ptr<temp_dir> dir;
    std::string folder;
    if (const char* inherited = getenv(env)) {
        folder = inherited;
    } else {
        dir = std::make_unique<temp_dir>("logger_cancel");
        ASSERT_TRUE(dir->ok());
        folder = dir->path().string();
        velk::testing::set_env(env, folder.c_str());
    }
    std::string path = folder + "/cancel.log";
    uint64_t n = messages_per_producer();
    EXPECT_EXIT(run_with_cancelled_writer(path, n), ::testing::ExitedWithCode(0), "");
    velk::testing::unset_env(env);
    EXPECT_EQ(check_file(path, n), "");
}
