// Several threads on one registry at once, through the front of a program
// that exports it: writers enter and remove their own keys, readers look up
// keys of every writer and keys that nobody enters, a lister walks the
// table. No lookup may give a creator that was not entered under its key.
#include "interface/registrar.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int writers = 3;
constexpr int keys_per_writer = 40;
constexpr int rounds = 150;

std::string key_of(int writer, int k) { return "w" + std::to_string(writer) + "::iface.k" + std::to_string(k); }
std::string never_key(int k) { return "never::iface.k" + std::to_string(k); }

// The one creator that key (writer, k) is ever entered with; never called.
velk::creator_fn creator_of(int writer, int k)
{
    return reinterpret_cast<velk::creator_fn>(uintptr_t(0x10000 + 16 * (writer * keys_per_writer + k)));
}

struct tally
{
    std::atomic<int> wrong{0};    // a creator other than the key's own
    std::atomic<int> phantom{0};  // a creator for a key that nobody enters
    std::atomic<int> found{0};
    std::atomic<bool> stop{false};
};

// Enters its keys, removes every other one, enters them again, then removes
// all: the table sees insertions, removals and growth.
void write_keys(int writer, tally& t)
{
    std::vector<std::string> keys;
    for (int k = 0; k < keys_per_writer; ++k)
        keys.push_back(key_of(writer, k));
    for (int round = 0; round < rounds; ++round) {
        for (int k = 0; k < keys_per_writer; ++k)
            velk::register_creator(keys[k].c_str(), creator_of(writer, k));
        for (int k = 0; k < keys_per_writer; k += 2)
            velk::register_creator(keys[k].c_str(), nullptr);
        for (int k = 0; k < keys_per_writer; k += 2)
            velk::register_creator(keys[k].c_str(), creator_of(writer, k));
        for (int k = 0; k < keys_per_writer; ++k)
            velk::register_creator(keys[k].c_str(), nullptr);
    }
}

void read_keys(int seed, tally& t)
{
    unsigned x = seed;
    while (!t.stop.load()) {
        x = x * 1103515245 + 12345; // a small linear congruential walk over the keys
        int writer = (x >> 8) % (writers + 1);
        int k = (x >> 16) % keys_per_writer;
        if (writer == writers) {
            if (velk::get_creator(never_key(k).c_str()))
                ++t.phantom;
            continue;
        }
        velk::creator_fn c = velk::get_creator(key_of(writer, k).c_str());
        if (c && c != creator_of(writer, k))
            ++t.wrong;
        t.found += c != nullptr;
    }
}

// The keys of a list result point into entries that a writer may remove
// as soon as the list is made, so only the creators are checked.
void list_keys(tally& t)
{
    const uintptr_t first = reinterpret_cast<uintptr_t>(creator_of(0, 0));
    const uintptr_t last = reinterpret_cast<uintptr_t>(creator_of(writers - 1, keys_per_writer - 1));
    while (!t.stop.load()) {
        velk::dynarray<velk::creator_match> found;
        velk::find_creators("iface", velk::token(), found);
        for (const velk::creator_match& m : found) {
            uintptr_t c = reinterpret_cast<uintptr_t>(m.creator);
            if (c < first || c > last || (c - first) % 16 != 0)
                ++t.wrong;
        }
    }
}

} // namespace

TEST(RegistryConcurrency, LookupsNeverGiveACreatorThatWasNotEnteredUnderTheKey)
{
    // The module's array space is made on first use without a guard, which
    // the allocator accepts; this test is about the registry, so this thread
    // makes the space and the registry before the others start.
    velk::registrar();
    velk::dynarray<velk::creator_match> warm;
    tally t;
    std::vector<std::thread> others;
    for (int r = 0; r < 2; ++r)
        others.emplace_back(read_keys, 7 + r, std::ref(t));
    others.emplace_back(list_keys, std::ref(t));
    std::vector<std::thread> writing;
    for (int w = 0; w < writers; ++w)
        writing.emplace_back(write_keys, w, std::ref(t));
    for (std::thread& w : writing)
        w.join();
    t.stop = true;
    for (std::thread& o : others)
        o.join();

    EXPECT_EQ(t.wrong.load(), 0);
    EXPECT_EQ(t.phantom.load(), 0);
    EXPECT_GT(t.found.load(), 0) << "the readers met entered keys";
    EXPECT_EQ(velk::registrar()->count(), 0u) << "every writer removed all its keys";
}

TEST(RegistryConcurrency, RacingFirstUsesFindOneRegistry)
{
    std::vector<std::thread> threads;
    std::vector<velk::interface_register_impl*> seen(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&seen, i] { seen[i] = velk::registrar(); });
    for (std::thread& th : threads)
        th.join();
    for (velk::interface_register_impl* r : seen)
        EXPECT_EQ(r, iglo_registrar());
}
