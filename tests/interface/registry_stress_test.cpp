// Eight threads on one registry, a million operations between them: each
// thread enters, looks up and removes keys of its own, whose state it alone
// decides and so knows exactly, and keys shared by all, whose answers may
// only be the shared key's one creator or nothing. At the end the number of
// successful entries and removals of each shared key must account for
// whether it is still there.
#include "interface/registrar.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int thread_count = 8;
constexpr int total_operations = 1'000'000;
constexpr int operations_per_thread = total_operations / thread_count;
constexpr int own_keys = 32;
constexpr int shared_keys = 8;

std::string own_key(int thread, int k) { return "stress" + std::to_string(thread) + "::own.k" + std::to_string(k); }
std::string shared_key(int k) { return "stress::shared.k" + std::to_string(k); }

// Distinct, never called: a creator tells which key it was entered under.
velk::creator_fn creator_at(int slot) { return reinterpret_cast<velk::creator_fn>(uintptr_t(0x20000 + 16 * slot)); }
velk::creator_fn own_creator(int thread, int k) { return creator_at(thread * own_keys + k); }
velk::creator_fn shared_creator(int k) { return creator_at(thread_count * own_keys + k); }

struct shared_counts
{
    std::array<std::atomic<int>, shared_keys> entered{};
    std::array<std::atomic<int>, shared_keys> removed{};
};

// Every answer this thread got that contradicts what it knows.
struct thread_result
{
    int wrong_own = 0;    // an own key's answer other than the thread's model
    int wrong_shared = 0; // a shared key's lookup gave a foreign creator
    int operations = 0;
};

struct own_state
{
    std::vector<std::string> keys;
    std::array<bool, own_keys> present{};
};

void own_operation(int thread, unsigned op, int k, own_state& s, thread_result& r)
{
    const std::string& key = s.keys[k];
    if (op == 0) {
        bool entered = velk::register_creator(key.c_str(), own_creator(thread, k));
        r.wrong_own += entered == s.present[k]; // entry succeeds exactly when absent
        s.present[k] = true;
    } else if (op == 1) {
        bool removed = velk::register_creator(key.c_str(), nullptr);
        r.wrong_own += removed != s.present[k];
        s.present[k] = false;
    } else {
        velk::creator_fn c = velk::get_creator(key.c_str());
        r.wrong_own += c != (s.present[k] ? own_creator(thread, k) : nullptr);
    }
}

void shared_operation(unsigned op, int k, const std::vector<std::string>& keys, shared_counts& counts,
                      thread_result& r)
{
    const std::string& key = keys[k];
    if (op == 0) {
        if (velk::register_creator(key.c_str(), shared_creator(k)))
            ++counts.entered[k];
    } else if (op == 1) {
        if (velk::register_creator(key.c_str(), nullptr))
            ++counts.removed[k];
    } else {
        velk::creator_fn c = velk::get_creator(key.c_str());
        r.wrong_shared += c != nullptr && c != shared_creator(k);
    }
}

// A quarter of the operations touch shared keys; entries, removals and
// lookups come in equal parts. Ends with the thread's own keys removed.
void run_thread(int thread, const std::vector<std::string>& shared, shared_counts& counts, thread_result& r)
{
    own_state s;
    for (int k = 0; k < own_keys; ++k)
        s.keys.push_back(own_key(thread, k));
    unsigned x = 2654435761u * (thread + 1);
    for (int i = 0; i < operations_per_thread; ++i) {
        x = x * 1103515245 + 12345; // a linear congruential walk; the high bits pick
        unsigned op = (x >> 16) % 3;
        bool on_shared = ((x >> 20) & 3) == 0;
        int k = (x >> 23) % (on_shared ? shared_keys : own_keys);
        if (on_shared)
            shared_operation(op, k, shared, counts, r);
        else
            own_operation(thread, op, k, s, r);
        ++r.operations;
    }
    for (int k = 0; k < own_keys; ++k)
        if (s.present[k] && !velk::register_creator(s.keys[k].c_str(), nullptr))
            ++r.wrong_own;
}

} // namespace

TEST(RegistryStress, EightThreadsAMillionOperationsEveryAnswerAsTheThreadKnowsIt)
{
    velk::registrar(); // made before the threads, as a host makes it at start
    const size_t before = velk::registrar()->count();
    std::vector<std::string> shared;
    for (int k = 0; k < shared_keys; ++k)
        shared.push_back(shared_key(k));
    shared_counts counts;
    std::vector<thread_result> results(thread_count);
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t)
        threads.emplace_back(run_thread, t, std::cref(shared), std::ref(counts), std::ref(results[t]));
    for (std::thread& t : threads)
        t.join();

    int operations = 0;
    for (int t = 0; t < thread_count; ++t) {
        EXPECT_EQ(results[t].wrong_own, 0) << "thread " << t;
        EXPECT_EQ(results[t].wrong_shared, 0) << "thread " << t;
        operations += results[t].operations;
    }
    EXPECT_EQ(operations, total_operations);
    size_t shared_left = 0;
    for (int k = 0; k < shared_keys; ++k) {
        int balance = counts.entered[k].load() - counts.removed[k].load();
        velk::creator_fn c = velk::get_creator(shared[k].c_str());
        ASSERT_TRUE(balance == 0 || balance == 1) << "shared key " << k << " entered " << counts.entered[k].load()
                                                  << " removed " << counts.removed[k].load();
        EXPECT_EQ(c, balance ? shared_creator(k) : nullptr) << "shared key " << k;
        EXPECT_GT(counts.entered[k].load(), 0) << "shared key " << k << " was contended";
        shared_left += balance;
    }
    EXPECT_EQ(velk::registrar()->count(), before + shared_left) << "own keys all removed";
}
