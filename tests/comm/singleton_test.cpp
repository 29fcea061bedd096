// Global singletons within one module: the manager's list operations, the
// module's entry points and the hand-over. The cross-module behaviour is in
// singleton_modules_test.cpp and singleton_fallback_test.cpp.
#include "comm/singleton.h"

#include "comm/commassert.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using velk::global_singleton_manager;
using velk::token;
using velk::testing::log_capture;

namespace {

// -- Objects and their functions ---------------------------------------------

struct thing
{
    int serial = 0;
    int inits = 0;
};

int creates = 0;
int destroys = 0;
int last_destroyed = 0;

void* create_thing()
{
    auto* t = new thing;
    t->serial = ++creates;
    return t;
}

void destroy_thing(void* p)
{
    ++destroys;
    last_destroyed = static_cast<thing*>(p)->serial;
    delete static_cast<thing*>(p);
}

void init_thing(void* p) { ++static_cast<thing*>(p)->inits; }

void* create_failing() { throw std::runtime_error("create failed"); }

void destroy_nothing(void*) {}

// The node of instance in manager's list, or null.
const velk::singleton_node* node_of(const global_singleton_manager& manager, const void* instance)
{
    for (const velk::singleton_node* node = manager.head(); node; node = node->next)
        if (node->instance == instance)
            return node;
    return nullptr;
}

int nodes_of(const global_singleton_manager& manager)
{
    int n = 0;
    for (const velk::singleton_node* node = manager.head(); node; node = node->next)
        ++n;
    return n;
}

class SingletonManager : public ::testing::Test
{
protected:
    void SetUp() override
    {
        creates = 0;
        destroys = 0;
        last_destroyed = 0;
    }
    void TearDown() override
    {
        manager.destroy_singletons();
        velk::assert_set_break(1);
    }

    thing* add(const token& name, bool local, velk::singleton_init_fn init = &init_thing)
    {
        return static_cast<thing*>(manager.find_or_add_singleton(
            &create_thing, &destroy_thing, init, name, __FILE__, __LINE__, local));
    }

    int list_length() const { return nodes_of(manager); }

    global_singleton_manager manager;
};

} // namespace

// -- Lookup and addition ------------------------------------------------------

TEST_F(SingletonManager, NonLocalRequestFindsTheFirstInstance)
{
    thing* first = add("shared_type", false);
    EXPECT_EQ(add("shared_type", false), first);
}

TEST_F(SingletonManager, NonLocalRequestCreatesOnlyOnce)
{
    add("shared_type", false);
    add("shared_type", false);
    EXPECT_EQ(creates, 1);
}

TEST_F(SingletonManager, InitRunsOnTheFoundInstance)
{
    thing* first = add("shared_type", false);
    add("shared_type", false);
    EXPECT_EQ(first->inits, 1);
}

TEST_F(SingletonManager, InitDoesNotRunForANewInstance)
{
    thing* first = add("shared_type", false);
    EXPECT_EQ(first->inits, 0);
}

TEST_F(SingletonManager, NullInitIsSkippedOnAFoundInstance)
{
    thing* first = add("shared_type", false);
    EXPECT_EQ(add("shared_type", false, nullptr), first);
}

TEST_F(SingletonManager, NamesAreComparedByTextNotByAddress)
{
    char a[] = "same_name";
    char b[] = "same_name";
    thing* first = add(token(a, strlen(a)), false);
    EXPECT_EQ(add(token(b, strlen(b)), false), first);
}

TEST_F(SingletonManager, NamesThatDifferAreDifferentSingletons)
{
    thing* first = add("name_one", false);
    EXPECT_NE(add("name_two", false), first);
}

TEST_F(SingletonManager, APrefixOfANameIsAnotherName)
{
    thing* longer = add("prefix_and_more", false);
    EXPECT_NE(add("prefix", false), longer);
}

TEST_F(SingletonManager, LocalRequestsMakeANewInstanceEachTime)
{
    thing* first = add("local_type", true);
    thing* second = add("local_type", true);
    EXPECT_NE(first, second);
    EXPECT_EQ(creates, 2);
}

TEST_F(SingletonManager, LocalNodeIsInvisibleToNonLocalSearch)
{
    thing* local = add("mixed_type", true);
    EXPECT_NE(add("mixed_type", false), local);
    EXPECT_EQ(local->inits, 0);
}

TEST_F(SingletonManager, NewestNodeHeadsTheList)
{
    add("older", false);
    thing* newer = add("newer", false);
    ASSERT_NE(manager.head(), nullptr);
    EXPECT_EQ(manager.head()->instance, newer);
}

TEST_F(SingletonManager, NodeRecordsItsSourcePlaceAndLocality)
{
    manager.find_or_add_singleton(&create_thing, &destroy_thing, nullptr, "placed", "some/file", 77, true);
    const velk::singleton_node* node = manager.head();
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->file, "some/file");
    EXPECT_EQ(node->line, 77);
    EXPECT_TRUE(node->local);
    EXPECT_STREQ(node->type_name, "placed");
}

TEST_F(SingletonManager, NodeKeepsItsOwnCopyOfTheName)
{
    char name[] = "fleeting_name";
    thing* first = add(token(name, strlen(name)), false);
    memset(name, 'x', strlen(name)); // as if the registering module had gone
    EXPECT_EQ(add("fleeting_name", false), first);
}

TEST_F(SingletonManager, CountGrowsWithEachNewNode)
{
    add("a", false);
    add("a", false);
    add("b", true);
    EXPECT_EQ(manager.count(), 2);
}

TEST_F(SingletonManager, CountIsNeverLowered)
{
    thing* t = add("a", true);
    manager.remove_singleton(t);
    EXPECT_EQ(manager.count(), 1);
}

// -- Failures -----------------------------------------------------------------

TEST_F(SingletonManager, ThrowingCreatePassesTheExceptionOn)
{
    EXPECT_THROW(manager.find_or_add_singleton(&create_failing, &destroy_thing, nullptr, "failing",
                                               nullptr, 0, false),
                 std::runtime_error);
}

TEST_F(SingletonManager, ThrowingCreateAddsNothing)
{
    try {
        manager.find_or_add_singleton(&create_failing, &destroy_thing, nullptr, "failing", nullptr, 0, false);
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(manager.head(), nullptr);
    EXPECT_EQ(manager.count(), 0);
}

TEST_F(SingletonManager, ThrowingCreateLeavesTheMutexFree)
{
    try {
        manager.find_or_add_singleton(&create_failing, &destroy_thing, nullptr, "failing", nullptr, 0, false);
    } catch (const std::runtime_error&) {
    }
    // Another thread can register only if the unwinding released the mutex.
    thing* other = nullptr;
    std::thread([&] { other = add("after_failure", false); }).join();
    EXPECT_NE(other, nullptr);
}

// -- Threads ------------------------------------------------------------------

TEST_F(SingletonManager, RacingThreadsGetOneInstanceCreatedOnce)
{
    constexpr int threads = 8;
    void* got[threads] = {};
    std::vector<std::thread> pool;
    for (int i = 0; i < threads; ++i)
        pool.emplace_back([&, i] { got[i] = add("raced", false, nullptr); });
    for (std::thread& t : pool)
        t.join();
    EXPECT_EQ(creates, 1);
    for (void* p : got)
        EXPECT_EQ(p, got[0]);
}

// -- Re-entry -----------------------------------------------------------------

namespace {
global_singleton_manager* reentry_manager = nullptr;
void* inner_instance = nullptr;

void* create_registering_another()
{
    inner_instance = reentry_manager->find_or_add_singleton(&create_thing, &destroy_thing, nullptr,
                                                            "inner", nullptr, 0, false);
    return create_thing();
}
} // namespace

TEST_F(SingletonManager, CreateMayRegisterAnotherSingleton)
{
    reentry_manager = &manager;
    void* outer = manager.find_or_add_singleton(&create_registering_another, &destroy_thing, nullptr,
                                                "outer", nullptr, 0, false);
    EXPECT_NE(outer, nullptr);
    EXPECT_EQ(add("inner", false), inner_instance);
}

// -- Removal and shutdown -----------------------------------------------------

TEST_F(SingletonManager, RemovingAnUnknownInstanceDoesNothing)
{
    add("kept", true);
    thing stranger;
    EXPECT_FALSE(manager.remove_singleton(&stranger));
    EXPECT_EQ(list_length(), 1);
    EXPECT_EQ(destroys, 0);
}

TEST_F(SingletonManager, RemovingNullDoesNothing)
{
    add("kept", true);
    EXPECT_FALSE(manager.remove_singleton(nullptr));
    EXPECT_EQ(list_length(), 1);
}

TEST_F(SingletonManager, RemovingAnInstanceDestroysItAndUnlinksItsNode)
{
    add("first", true);
    thing* middle = add("middle", true);
    add("last", true);
    int serial = middle->serial;
    EXPECT_TRUE(manager.remove_singleton(middle));
    EXPECT_EQ(last_destroyed, serial);
    EXPECT_EQ(list_length(), 2);
}

TEST_F(SingletonManager, DestroyingAllGoesNewestFirst)
{
    add("first", true);
    add("second", true);
    manager.destroy_singletons();
    EXPECT_EQ(destroys, 2);
    EXPECT_EQ(last_destroyed, 1); // serial 2 went first
    EXPECT_EQ(manager.head(), nullptr);
}

TEST_F(SingletonManager, DestroyingAllSetsShuttingDown)
{
    add("first", true);
    manager.destroy_singletons();
    EXPECT_TRUE(manager.is_shutting_down());
}

TEST_F(SingletonManager, DestroyingAnEmptyListDoesNotShutDown)
{
    manager.destroy_singletons();
    EXPECT_FALSE(manager.is_shutting_down());
}

TEST_F(SingletonManager, AddingWhileShuttingDownReportsTheAssertion)
{
    add("first", true);
    manager.destroy_singletons();
    velk::assert_set_break(0);
    log_capture log;
    add("late", true);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], "Assertion failed in singleton(111), function "
                              "velk::global_singleton_manager::find_or_add_singleton:\n"
                              "\"!shutting_down\"\r");
}

TEST_F(SingletonManager, AddingWhileShuttingDownGoesOnWhenTheHandlerAllows)
{
    add("first", true);
    manager.destroy_singletons();
    velk::assert_set_break(0);
    log_capture log;
    thing* late = add("late", true);
    EXPECT_NE(late, nullptr);
    EXPECT_EQ(manager.head()->instance, late);
}

TEST_F(SingletonManager, AddingWhileShuttingDownTrapsByDefault)
{
    add("first", true);
    manager.destroy_singletons();
    EXPECT_DEATH(add("late", true), "");
}

// -- The module's entry points ------------------------------------------------

TEST(SingletonRegistration, LocalGoesToTheLocalManager)
{
    int before = velk::local_singleton_manager().count();
    void* t = velk::register_singleton(&create_thing, &destroy_thing, nullptr, "reg_local", nullptr, 0, true);
    EXPECT_EQ(velk::local_singleton_manager().count(), before + 1);
    velk::remove_singleton(t);
}

TEST(SingletonRegistration, NonLocalGoesToTheProcessManager)
{
    // A name of its own, so that every run of this test adds a node.
    static int runs = 0;
    std::string name = "reg_shared#" + std::to_string(++runs);
    int before = velk::process_singleton_manager().count();
    void* t = velk::register_singleton(&create_thing, &destroy_thing, nullptr, name.c_str(), nullptr, 0, false);
    EXPECT_NE(node_of(velk::process_singleton_manager(), t), nullptr);
    EXPECT_EQ(velk::process_singleton_manager().count(), before + 1);
}

TEST(SingletonRegistration, LocalAndSharedManagersDiffer)
{
    EXPECT_NE(&velk::local_singleton_manager(), sglo_registrar());
}

TEST(SingletonRegistration, WithoutAMainProgramExportTheOwnManagerIsProcessWide)
{
    // This test program exports no registrar.
    EXPECT_EQ(&velk::process_singleton_manager(), sglo_registrar());
}

TEST(SingletonRegistration, NullTypeNameIsLegal)
{
    void* t = velk::register_singleton(&create_thing, &destroy_thing, nullptr, nullptr, nullptr, 0, true);
    ASSERT_NE(t, nullptr);
    const velk::singleton_node* node = node_of(velk::local_singleton_manager(), t);
    ASSERT_NE(node, nullptr);
    EXPECT_TRUE(node->name.is_empty());
    velk::remove_singleton(t);
}

TEST(SingletonRegistration, NullTypeNameMatchesTheEmptyName)
{
    void* by_null = velk::register_singleton(&create_thing, &destroy_thing, nullptr, nullptr, nullptr, 0, false);
    void* by_empty = velk::register_singleton(&create_thing, &destroy_thing, nullptr, "", nullptr, 0, false);
    EXPECT_EQ(by_null, by_empty);
}

TEST(SingletonRegistration, RemovingAProcessWideInstanceLeavesIt)
{
    void* t = velk::register_singleton(&create_thing, &destroy_thing, nullptr, "stays", nullptr, 0, false);
    velk::remove_singleton(t);
    EXPECT_EQ(velk::register_singleton(&create_thing, &destroy_thing, nullptr, "stays", nullptr, 0, false), t);
}

TEST(SingletonRegistration, RemoveSingletonDestroysALocalInstance)
{
    destroys = 0;
    void* t = velk::register_singleton(&create_thing, &destroy_thing, nullptr, "goes", nullptr, 0, true);
    velk::remove_singleton(t);
    EXPECT_EQ(destroys, 1);
}

namespace {
struct typed_thing
{
    int value = 42;
};
} // namespace

TEST(SingletonRegistration, TypedUseRegistersUnderTheRunTimeTypeName)
{
    typed_thing* t = velk::register_singleton_of<typed_thing>(false);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->value, 42);
    const velk::singleton_node* node = node_of(velk::process_singleton_manager(), t);
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->type_name, typeid(typed_thing).name());
}

TEST(SingletonRegistration, TypedUseFindsTheSameInstanceAgain)
{
    typed_thing* t = velk::register_singleton_of<typed_thing>(false);
    EXPECT_EQ(velk::register_singleton_of<typed_thing>(false), t);
}

TEST(SingletonRegistration, TypedLocalUseIsDestroyedByRemoval)
{
    typed_thing* t = velk::register_singleton_of<typed_thing>(true, "typed", 1);
    int before = nodes_of(velk::local_singleton_manager());
    velk::remove_singleton(t);
    EXPECT_EQ(nodes_of(velk::local_singleton_manager()), before - 1);
}

// -- Hand-over ----------------------------------------------------------------

namespace {

thing handed_thing;

void* hand_over_local(void* instance, const char* name)
{
    return velk::register_singleton(velk::hand_over_instance(instance), &destroy_nothing, nullptr, name,
                                     nullptr, 0, true);
}

} // namespace

TEST(SingletonHandOver, RegistersTheExistingInstance)
{
    void* got = hand_over_local(&handed_thing, "handed");
    EXPECT_EQ(got, &handed_thing);
    velk::remove_singleton(got);
}

TEST(SingletonHandOver, PutsTheInstanceInTheSlotUntilRegistration)
{
    velk::singleton_create_fn create = velk::hand_over_instance(&handed_thing);
    EXPECT_EQ(velk::hand_over_slot(), &handed_thing);
    velk::remove_singleton(
        velk::register_singleton(create, &destroy_nothing, nullptr, "handed", nullptr, 0, true));
}

TEST(SingletonHandOver, RegistrationClearsTheSlot)
{
    velk::remove_singleton(hand_over_local(&handed_thing, "handed"));
    EXPECT_EQ(velk::hand_over_slot(), nullptr);
}

TEST(SingletonHandOver, FindingAnExistingInstanceClearsTheSlot)
{
    global_singleton_manager manager;
    manager.find_or_add_singleton(&create_thing, &destroy_thing, nullptr, "exists", nullptr, 0, false);
    thing other;
    manager.find_or_add_singleton(velk::hand_over_instance(&other), &destroy_nothing, nullptr, "exists",
                                  nullptr, 0, false);
    EXPECT_EQ(velk::hand_over_slot(), nullptr);
    manager.destroy_singletons();
}

TEST(SingletonHandOver, SlotBelongsToOneThread)
{
    velk::hand_over_instance(&handed_thing);
    void* seen_elsewhere = &handed_thing;
    std::thread([&] { seen_elsewhere = velk::hand_over_slot(); }).join();
    EXPECT_EQ(seen_elsewhere, nullptr);
    velk::remove_singleton(hand_over_local(&handed_thing, "handed")); // empties the slot
}

// A registration through the hand-over from a static initialiser of this
// program. The program's own initialisers run before those of the library's
// objects linked after them, so the slot has only its zero initial value here.
namespace {

thing early_thing;

struct early_registration
{
    void* slot_before = &early_thing; // overwritten by the constructor
    void* result = nullptr;
    void* slot_after = &early_thing;

    early_registration()
    {
        slot_before = velk::hand_over_slot();
        result = hand_over_local(&early_thing, "early_thing");
        slot_after = velk::hand_over_slot();
    }
    // The exit function of the site that owns the registration.
    ~early_registration()
    {
        if (result)
            velk::remove_singleton(result);
    }
};

early_registration early;

} // namespace

TEST(SingletonHandOver, SlotIsZeroDuringStaticInitialisation)
{
    EXPECT_EQ(early.slot_before, nullptr);
}

TEST(SingletonHandOver, WorksFromAStaticInitialiser)
{
    EXPECT_EQ(early.result, &early_thing);
}

TEST(SingletonHandOver, StaticInitialiserRegistrationClearsTheSlot)
{
    EXPECT_EQ(early.slot_after, nullptr);
}
