// The registry's client hooks, makers, pattern lookups and module unload, on
// objects of the test's own. The replacement of a real module is tested in
// module_replacement_test.
#include "interface/interface_register.h"
#include "tests/interface/register_helpers.h"

#include "comm/exception.h"
#include "comm/regex/regex.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

using velk::creator_fn;
using velk::creator_match;
using velk::dynarray;
using velk::interface_register_impl;
using velk::token;
using velk::unload_entry;

using register_helpers::fake;
using register_helpers::keys_of;
using register_helpers::str;

namespace {

std::string bytes(const dynarray<uint8_t>& data)
{
    return std::string(reinterpret_cast<const char*>(data.ptr()), data.size());
}

// -- Unload hooks that record what they are told ------------------------------------

struct hook_call
{
    std::string client;
    std::string module;
    bool client_null;
    const dynarray<uint8_t>* data;
};

std::vector<hook_call> calls;
interface_register_impl* reentered = nullptr; // the registry a hook calls into, if any
creator_fn found_from_hook = nullptr;

void record(const token& client, const token& module, dynarray<uint8_t>* data)
{
    calls.push_back({str(client), str(module), client.is_null(), data});
}

// Saves the client's name, so that it can be told back after the reload.
bool saving_hook(const token& client, const token& module, dynarray<uint8_t>* data)
{
    record(client, module, data);
    if (!client.is_empty() && data) {
        uint8_t* to = data->add(client.lens());
        memcpy(to, client.ptr(), client.lens());
    }
    return true;
}

bool silent_hook(const token& client, const token& module, dynarray<uint8_t>* data)
{
    record(client, module, data);
    return false;
}

bool reentering_hook(const token& client, const token& module, dynarray<uint8_t>* data)
{
    record(client, module, data);
    found_from_hook = reentered->find_creator("a::served@wrapper");
    return true;
}

bool throwing_hook(const token& client, const token& module, dynarray<uint8_t>* data)
{
    record(client, module, data);
    throw velk::exception("hook refused");
}

template <class FN>
creator_fn as_creator(FN* fn) { return reinterpret_cast<creator_fn>(fn); }

class InterfaceHooks : public ::testing::Test
{
protected:
    void SetUp() override
    {
        calls.clear();
        reentered = &r;
        found_from_hook = nullptr;
    }

    bool has(const char* key) { return r.find_creator(key) != nullptr; }

    interface_register_impl r;
    dynarray<uint8_t> data;
    dynarray<unload_entry> list;
};

} // namespace

// -- client_creator ----------------------------------------------------------------

TEST_F(InterfaceHooks, ClientCreatorFindsTheHookByClientInterfaceAndHash)
{
    r.hook_creator("a::served@client-12.my::client*client.so:5", fake(1));
    EXPECT_EQ(r.client_creator("my::client", "a::served", 12, ""), fake(1));
}

TEST_F(InterfaceHooks, ClientCreatorWithAnotherHashGivesNull)
{
    r.hook_creator("a::served@client-12.c*client.so:5", fake(1));
    EXPECT_EQ(r.client_creator("c", "a::served", 13, ""), nullptr);
}

TEST_F(InterfaceHooks, ClientCreatorOfAnEntryWithADifferingHashGivesNull)
{
    // A client named "x@7" makes a key whose last "@" starts the suffix "7":
    // the entry is found under the key, but its hash is 7, not 5.
    r.hook_creator("i@client-5.x@7", fake(1));
    ASSERT_EQ(r.find_creator("i@client-5.x@7"), fake(1));
    EXPECT_EQ(r.client_creator("x@7", "i", 5, ""), nullptr);
}

TEST_F(InterfaceHooks, ClientCreatorModuleIgnoresCase)
{
    r.hook_creator("a::served@client-1.c*x.dll:5", fake(1));
    EXPECT_EQ(r.client_creator("c", "a::served", 1, "X.DLL"), fake(1));
}

TEST_F(InterfaceHooks, ClientCreatorWithAnotherModuleGivesNull)
{
    r.hook_creator("a::served@client-1.c*x.dll:5", fake(1));
    EXPECT_EQ(r.client_creator("c", "a::served", 1, "y.dll"), nullptr);
}

TEST_F(InterfaceHooks, ClientCreatorModuleNeedOnlyEndTheFileName)
{
    r.hook_creator("a::served@client-1.c*libclient.so:5", fake(1));
    EXPECT_EQ(r.client_creator("c", "a::served", 1, "CLIENT.SO"), fake(1));
}

TEST_F(InterfaceHooks, ClientCreatorWithEmptyModuleMatchesAnyModule)
{
    r.hook_creator("a::served@client-1.c*whatever.so:5", fake(1));
    EXPECT_EQ(r.client_creator("c", "a::served", 1, ""), fake(1));
}

TEST_F(InterfaceHooks, ClientCreatorOfAMissingHookGivesNull)
{
    EXPECT_EQ(r.client_creator("c", "a::served", 1, ""), nullptr);
}

// -- find_clients -------------------------------------------------------------------

TEST_F(InterfaceHooks, FindClientsGivesTheClientNamesOfOneHash)
{
    r.hook_creator("a::served@client-3.first", fake(1));
    r.hook_creator("a::served@client-3.second::one", fake(2));
    r.hook_creator("a::served@client-4.other_hash", fake(3));
    dynarray<creator_match> found;
    EXPECT_EQ(keys_of(r.find_clients("a::served", 3, found)), (std::set<std::string>{"first", "second::one"}));
}

TEST_F(InterfaceHooks, FindClientsRecordsCarryTheHooksCreators)
{
    r.hook_creator("a::served@client-3.first", fake(7));
    dynarray<creator_match> found;
    r.find_clients("a::served", 3, found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].creator, fake(7));
}

TEST_F(InterfaceHooks, FindClientsNeedsAnEqualNamespace)
{
    r.hook_creator("a::served@client-3.c", fake(1));
    r.hook_creator("b::served@client-3.c", fake(2));
    r.hook_creator("served@client-3.c", fake(3));
    dynarray<creator_match> found;
    r.find_clients("served", 3, found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].creator, fake(3));
}

TEST_F(InterfaceHooks, FindClientsTakesOnlyClientHooks)
{
    r.hook_creator("a::served@clients-3.c", fake(1));
    r.hook_creator("a::served@3.c", fake(2));
    r.hook_creator("a::served@client-3.c", fake(3));
    dynarray<creator_match> found;
    r.find_clients("a::served", 3, found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].creator, fake(3));
}

TEST_F(InterfaceHooks, FindClientsTakesTheClassWholeWithItsDots)
{
    r.hook_creator("a::served.part@client-3.c", fake(1));
    dynarray<creator_match> found;
    EXPECT_TRUE(r.find_clients("a::served.part", 3, found).is_empty());
}

TEST_F(InterfaceHooks, FindClientsAppendsToWhatIsThere)
{
    r.hook_creator("a::served@client-3.c", fake(1));
    dynarray<creator_match> found;
    found.push(creator_match{"earlier", fake(9)});
    r.find_clients("a::served", 3, found);
    EXPECT_EQ(found.size(), 2u);
}

// -- maker_creator ------------------------------------------------------------------

TEST_F(InterfaceHooks, MakerCreatorFindsTheMakerOfAScriptLanguage)
{
    r.hook_creator("xt::hostprobe_plugin@maker.js*hostprobe_plugin.so:1", fake(1));
    r.hook_creator("xt::hostprobe_plugin@maker.lua*hostprobe_plugin.so:1", fake(2));
    EXPECT_EQ(r.maker_creator("xt::hostprobe_plugin", "js"), fake(1));
    EXPECT_EQ(r.maker_creator("xt::hostprobe_plugin", "lua"), fake(2));
}

TEST_F(InterfaceHooks, MakerCreatorOfAMissingLanguageGivesNull)
{
    r.hook_creator("xt::hostprobe_plugin@maker.js", fake(1));
    EXPECT_EQ(r.maker_creator("xt::hostprobe_plugin", "py"), nullptr);
}

// -- find_by_pattern -----------------------------------------------------------------

class PatternLookup : public InterfaceHooks
{
protected:
    void SetUp() override
    {
        InterfaceHooks::SetUp();
        const char* keys[] = {
            "xt::hostprobe_plugin@wrapper*hostprobe_plugin.so:1",
            "xt::hostprobe_plugin.create@3445205045*hostprobe_plugin.so:1",
            "xt::hostprobe_plugin.create@creator.js*hostprobe_plugin.so:1",
            "xt::js::hostprobe_plugin.create*hostprobe_plugin.so:1",
            "xt::hostprobe_plugin@maker.js*hostprobe_plugin.so:1",
            "xt::second@wrapper*second.so:3",
        };
        uintptr_t n = 0;
        for (const char* k : keys)
            ASSERT_TRUE(r.hook_creator(k, fake(++n))) << k;
    }

    std::set<std::string> matching(const char* pattern)
    {
        velk::regex re;
        re.compile(pattern);
        dynarray<creator_match> found;
        return keys_of(r.find_by_pattern(re, found));
    }
};

TEST_F(PatternLookup, FindsTheKeysThePatternMatchesWhole)
{
    EXPECT_EQ(matching(".*@wrapper"),
              (std::set<std::string>{"xt::hostprobe_plugin@wrapper", "xt::second@wrapper"}));
}

TEST_F(PatternLookup, KeysWithAScriptPartAreNotOffered)
{
    // "...@creator.js" and "...@maker.js" have the script part "js".
    EXPECT_EQ(matching("xt::hostprobe_plugin.*"),
              (std::set<std::string>{"xt::hostprobe_plugin@wrapper", "xt::hostprobe_plugin.create@3445205045"}));
}

TEST_F(PatternLookup, ModulePartTakesNoPartInTheMatch)
{
    EXPECT_TRUE(matching(".*hostprobe_plugin\\.so.*").empty());
}

TEST_F(PatternLookup, MatchThatStopsShortDoesNotCount)
{
    EXPECT_TRUE(matching("xt::second").empty());
}

TEST_F(PatternLookup, RecordsCarryTheCreators)
{
    velk::regex re;
    re.compile("xt::second@wrapper");
    dynarray<creator_match> found;
    r.find_by_pattern(re, found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].creator, fake(6));
}

TEST_F(PatternLookup, EmptyPatternFindsNothing)
{
    // It matches only the empty key, and an empty match is no match.
    EXPECT_TRUE(matching("").empty());
}

TEST_F(PatternLookup, RegexWithoutProgramFindsNothing)
{
    velk::regex none;
    dynarray<creator_match> found;
    EXPECT_TRUE(r.find_by_pattern(none, found).is_empty());
}

// -- notify_module_unload with a handle ---------------------------------------------

TEST_F(InterfaceHooks, UnloadOfAnUnknownHandleChangesNothing)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.hook_creator("a::served@unload*served.so:6", as_creator(&saving_hook));
    *data.push() = 42;
    uint64_t before = r.count();
    EXPECT_TRUE(r.notify_module_unload(99, data, list));
    EXPECT_EQ(r.count(), before);
    EXPECT_EQ(data.size(), 1u);
    EXPECT_EQ(data[0], 42);
    EXPECT_TRUE(list.is_empty());
    EXPECT_TRUE(calls.empty());
}

TEST_F(InterfaceHooks, UnloadRemovesTheModulesClientHooks)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.notify_module_unload(5, data, list);
    EXPECT_FALSE(has("a::served@client-1.c"));
}

TEST_F(InterfaceHooks, UnloadKeepsTheModulesOtherEntries)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.hook_creator("b::own@wrapper*client.so:5", fake(2));
    r.notify_module_unload(5, data, list);
    EXPECT_TRUE(has("b::own@wrapper"));
    EXPECT_EQ(r.count(), 1u);
}

TEST_F(InterfaceHooks, UnloadKeepsOtherModulesClientHooks)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.hook_creator("a::served@client-1.d*other.so:6", fake(2));
    r.notify_module_unload(5, data, list);
    EXPECT_TRUE(has("a::served@client-1.d"));
}

TEST_F(InterfaceHooks, UnloadCallsTheInterfacesHookWithClientAndModule)
{
    r.hook_creator("a::served@client-1.my.client*client.so:5", fake(1));
    r.hook_creator("a::served@unload*served.so:6", as_creator(&saving_hook));
    r.notify_module_unload(5, data, list);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].client, "my.client");
    EXPECT_EQ(calls[0].module, "client.so");
    EXPECT_EQ(calls[0].data, &data);
}

TEST_F(InterfaceHooks, UnloadHookOfAMethodKeyIsTheInterfaces)
{
    // The hook's key runs from the namespace to the end of the class.
    r.hook_creator("a::served.method@client-1.c*client.so:5", fake(1));
    r.hook_creator("a::served@unload", as_creator(&saving_hook));
    r.notify_module_unload(5, data, list);
    EXPECT_EQ(calls.size(), 1u);
}

TEST_F(InterfaceHooks, UnloadRecordsTheWholeTextAndTheHooksPartOfData)
{
    r.hook_creator("a::served@client-1.client*client.so:5", fake(1));
    r.hook_creator("a::served@unload", as_creator(&saving_hook));
    *data.push() = 1; // the caller's own bytes come first
    r.notify_module_unload(5, data, list);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].ifcname, "a::served@client-1.client*client.so:5");
    EXPECT_EQ(list[0].offset, 1u);
    EXPECT_EQ(list[0].size, 6u);
    EXPECT_EQ(bytes(data), std::string("\x01") + "client");
}

TEST_F(InterfaceHooks, UnloadOfSeveralHooksLaysTheirPartsOneAfterTheOther)
{
    r.hook_creator("a::served@client-1.first*client.so:5", fake(1));
    r.hook_creator("a::served@client-2.second*client.so:5", fake(2));
    r.hook_creator("a::served@unload", as_creator(&saving_hook));
    r.notify_module_unload(5, data, list);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].offset + list[0].size, list[1].offset);
    EXPECT_EQ(list[1].offset + list[1].size, data.size());
    EXPECT_EQ(data.size(), std::string("first").size() + std::string("second").size());
}

TEST_F(InterfaceHooks, HookThatWritesNothingGivesRecordOfSizeZero)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.hook_creator("a::served@unload", as_creator(&silent_hook));
    r.notify_module_unload(5, data, list);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].size, 0u);
}

TEST_F(InterfaceHooks, HookThatWroteNothingGetsNullDataOnRestore)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.hook_creator("a::served@unload", as_creator(&silent_hook));
    r.notify_module_unload(5, data, list);
    calls.clear();
    r.notify_module_unload(0, data, list);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].data, nullptr);
}

TEST_F(InterfaceHooks, ClientOfAnInterfaceWithoutUnloadHookIsRemovedAllTheSame)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.notify_module_unload(5, data, list);
    EXPECT_FALSE(has("a::served@client-1.c"));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].size, 0u);
}

TEST_F(InterfaceHooks, WrapperOfTheUnloadedModuleStays)
{
    r.hook_creator("a::served@wrapper*client.so:5", fake(1));
    r.notify_module_unload(5, data, list);
    EXPECT_TRUE(has("a::served@wrapper"));
    EXPECT_TRUE(list.is_empty());
}

TEST_F(InterfaceHooks, HookMayCallTheRegistryAgain)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.hook_creator("a::served@wrapper", fake(2));
    r.hook_creator("a::served@unload", as_creator(&reentering_hook));
    r.notify_module_unload(5, data, list);
    EXPECT_EQ(found_from_hook, fake(2));
}

TEST_F(InterfaceHooks, ExceptionOfAHookPassesThroughWithTheMutexReleased)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.hook_creator("a::served@unload", as_creator(&throwing_hook));
    EXPECT_THROW(r.notify_module_unload(5, data, list), velk::exception);
    // Another thread can take the table.
    uint64_t count = 0;
    std::thread other([&] { count = r.count(); });
    other.join();
    EXPECT_EQ(count, 2u);
}

TEST_F(InterfaceHooks, ExceptionOfAHookLeavesTheRecordsMadeBefore)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.hook_creator("a::served@unload", as_creator(&saving_hook));
    r.hook_creator("b::served@client-1.c*client.so:5", fake(2));
    r.hook_creator("b::served@unload", as_creator(&throwing_hook));
    EXPECT_THROW(r.notify_module_unload(5, data, list), velk::exception);
    // Whichever came first in the walk, at most the hook that didn't throw made a record.
    ASSERT_LE(list.size(), 1u);
    for (const unload_entry& ue : list)
        EXPECT_EQ(ue.ifcname, "a::served@client-1.c*client.so:5");
}

// -- notify_module_unload with 0 ------------------------------------------------------

TEST_F(InterfaceHooks, RestoreWithAnEmptyListDoesNothing)
{
    r.hook_creator("a::served@unload", as_creator(&saving_hook));
    *data.push() = 3;
    EXPECT_TRUE(r.notify_module_unload(0, data, list));
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(data.size(), 1u);
}

TEST_F(InterfaceHooks, RestoreCallsTheHookWithEmptyTokensAndTheData)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.hook_creator("a::served@unload", as_creator(&saving_hook));
    r.notify_module_unload(5, data, list);
    calls.clear();
    r.notify_module_unload(0, data, list);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].client, "");
    EXPECT_EQ(calls[0].module, "");
    EXPECT_EQ(calls[0].data, &data);
    EXPECT_EQ(bytes(data), "c");
}

TEST_F(InterfaceHooks, RestoreSkipsRecordsWhoseInterfaceHasNoHook)
{
    r.hook_creator("a::served@client-1.c*client.so:5", fake(1));
    r.notify_module_unload(5, data, list);
    EXPECT_TRUE(r.notify_module_unload(0, data, list));
    EXPECT_TRUE(calls.empty());
}

TEST_F(InterfaceHooks, RestoreFindsTheHookUpToTheFirstAt)
{
    // The record's text is cut at its first "@", unlike the key's parse.
    dynarray<unload_entry> made;
    unload_entry* ue = made.push();
    ue->ifcname = "a::served@odd@client-1.c*client.so:5";
    ue->size = 1;
    r.hook_creator("a::served@unload", as_creator(&saving_hook));
    r.notify_module_unload(0, data, made);
    EXPECT_EQ(calls.size(), 1u);
}

TEST_F(InterfaceHooks, RestoreCallsTheHookOncePerRecord)
{
    r.hook_creator("a::served@client-1.first*client.so:5", fake(1));
    r.hook_creator("a::served@client-2.second*client.so:5", fake(2));
    r.hook_creator("a::served@unload", as_creator(&saving_hook));
    r.notify_module_unload(5, data, list);
    calls.clear();
    r.notify_module_unload(0, data, list);
    EXPECT_EQ(calls.size(), 2u);
}
