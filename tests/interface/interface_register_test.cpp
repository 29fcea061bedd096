// The registry's table on objects of the test's own: entering and removing
// keys, growth, the lookups by name, the host's settings and the order of
// the virtual slots. The front that finds the process's registry is tested
// in registrar_test.
#include "comm/dir/path_algebra.h"
#include "interface/interface_register.h"
#include "tests/interface/register_helpers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>

using velk::creator_fn;
using velk::creator_match;
using velk::dynarray;
using velk::interface_register_impl;
using velk::token;

using register_helpers::fake;
using register_helpers::keys_of;
using register_helpers::str;

namespace {

void fill(interface_register_impl& r, int n)
{
    for (int i = 0; i < n; ++i)
        r.hook_creator(("k" + std::to_string(i)).c_str(), fake(i));
}

class Registry : public ::testing::Test
{
protected:
    std::set<std::string> creators(const token& name, const token& script)
    {
        dynarray<creator_match> found;
        return keys_of(r.find_creators(name, script, found));
    }
    std::set<std::string> script_creators(const token& name, const token& script)
    {
        dynarray<creator_match> found;
        return keys_of(r.find_script_creators(name, script, found));
    }

    interface_register_impl r;
};

// A table of the plug-in's and a second interface's keys in every form.
class RegistryWithKeys : public Registry
{
protected:
    void SetUp() override
    {
        const char* keys[] = {
            "xt::hostprobe_plugin@wrapper*hostprobe_plugin.so:1",
            "xt::hostprobe_plugin.create@3445205045*hostprobe_plugin.so:1",
            "xt::hostprobe_plugin.create@creator.js*hostprobe_plugin.so:1",
            "xt::js::hostprobe_plugin.create*hostprobe_plugin.so:1",
            "xt::hostprobe_plugin@wrapper.js*hostprobe_plugin.so:1",
            "xt::lua::hostprobe_plugin.create*hostprobe_plugin.so:1",
            "other::hostprobe_plugin.create@7*other.so:2",
            "xt::second@wrapper*second.so:3",
        };
        uintptr_t n = 0;
        for (const char* k : keys)
            ASSERT_TRUE(r.hook_creator(k, fake(++n))) << k;
    }
};

} // namespace

// -- Entering and removing keys ---------------------------------------------------

TEST_F(Registry, EnteredKeyIsFound)
{
    ASSERT_TRUE(r.hook_creator("xt::a@wrapper", fake(1)));
    EXPECT_EQ(r.find_creator("xt::a@wrapper"), fake(1));
}

TEST_F(Registry, MissingKeyGivesNull)
{
    r.hook_creator("xt::a@wrapper", fake(1));
    EXPECT_EQ(r.find_creator("xt::b@wrapper"), nullptr);
}

TEST_F(Registry, SecondRegistrationOfAKeyGivesFalse)
{
    r.hook_creator("xt::a@wrapper*one.so:1", fake(1));
    EXPECT_FALSE(r.hook_creator("xt::a@wrapper*two.so:2", fake(2)));
}

TEST_F(Registry, SecondRegistrationKeepsTheFirstCreator)
{
    r.hook_creator("xt::a@wrapper*one.so:1", fake(1));
    r.hook_creator("xt::a@wrapper*two.so:2", fake(2));
    EXPECT_EQ(r.find_creator("xt::a@wrapper"), fake(1));
}

TEST_F(Registry, SecondRegistrationKeepsTheFirstModule)
{
    r.hook_creator("xt::a@wrapper*one.so:1", fake(1));
    r.hook_creator("xt::a@wrapper*two.so:2", fake(2));
    std::string module;
    r.inspect_entry("xt::a@wrapper", [&](const velk::creator_entry& e) { module = str(e.module); });
    EXPECT_EQ(module, "one.so");
}

TEST_F(Registry, LookupIgnoresTheModulePartOfTheEntry)
{
    r.hook_creator("xt::a@wrapper*one.so:1", fake(1));
    EXPECT_EQ(r.find_creator("xt::a@wrapper"), fake(1));
}

TEST_F(Registry, RemovalTakesTheKeyOut)
{
    r.hook_creator("xt::a@wrapper", fake(1));
    EXPECT_TRUE(r.hook_creator("xt::a@wrapper", nullptr));
    EXPECT_EQ(r.find_creator("xt::a@wrapper"), nullptr);
}

TEST_F(Registry, RemovingAKeyThatAnotherModuleRegisteredSucceeds)
{
    r.hook_creator("xt::a@wrapper*one.so:1", fake(1));
    EXPECT_TRUE(r.hook_creator("xt::a@wrapper*two.so:2", nullptr));
    EXPECT_EQ(r.count(), 0u);
}

TEST_F(Registry, RemovingAnAbsentKeyGivesFalse)
{
    r.hook_creator("xt::a@wrapper", fake(1));
    EXPECT_FALSE(r.hook_creator("xt::b@wrapper", nullptr));
    EXPECT_EQ(r.count(), 1u);
}

TEST_F(Registry, RemovalLeavesOtherKeys)
{
    fill(r, 10);
    r.hook_creator("k3", nullptr);
    EXPECT_EQ(r.find_creator("k4"), fake(4));
    EXPECT_EQ(r.count(), 9u);
}

TEST_F(Registry, KeyCanBeEnteredAgainAfterRemoval)
{
    r.hook_creator("xt::a@wrapper", fake(1));
    r.hook_creator("xt::a@wrapper", nullptr);
    EXPECT_TRUE(r.hook_creator("xt::a@wrapper", fake(2)));
    EXPECT_EQ(r.find_creator("xt::a@wrapper"), fake(2));
}

TEST_F(Registry, EntryKeepsTheParsedParts)
{
    r.hook_creator("xt::js::hostprobe_plugin.create@creator.js*plug.so:77", fake(1));
    ASSERT_TRUE(r.inspect_entry("xt::js::hostprobe_plugin.create@creator.js", [&](const velk::creator_entry& e) {
        EXPECT_EQ(str(e.ns), "xt::js");
        EXPECT_EQ(str(e.class_name), "hostprobe_plugin");
        EXPECT_EQ(str(e.method), "create");
        EXPECT_EQ(str(e.kind), "creator");
        EXPECT_EQ(str(e.script), "js");
        EXPECT_EQ(str(e.module), "plug.so");
        EXPECT_EQ(e.module_handle, 77u);
        EXPECT_EQ(e.keylen, 42u);
    }));
}

TEST_F(Registry, EntryPartsPointIntoItsOwnText)
{
    std::string text = "xt::hostprobe_plugin.create@3445205045*plug.so:77";
    r.hook_creator(text.c_str(), fake(1));
    text.assign(text.size(), '#'); // the caller's text may change at once
    r.inspect_entry("xt::hostprobe_plugin.create@3445205045", [&](const velk::creator_entry& e) {
        const char* first = e.ifcname.ptr();
        const char* end = e.ifcname.ptre();
        for (const token* t : {&e.class_name, &e.method, &e.ns, &e.script, &e.kind, &e.module}) {
            EXPECT_GE(t->ptr(), first);
            EXPECT_LE(t->ptre(), end);
        }
        EXPECT_EQ(str(e.class_name), "hostprobe_plugin");
    });
}

// -- Growth ---------------------------------------------------------------------------

TEST_F(Registry, StartsWith64Buckets)
{
    EXPECT_EQ(r.bucket_count(), 64u);
}

TEST_F(Registry, SixtyFourEntriesStayIn64Buckets)
{
    fill(r, 64);
    EXPECT_EQ(r.bucket_count(), 64u);
}

TEST_F(Registry, The65thEntryGrowsTheTableTo128Buckets)
{
    fill(r, 65);
    EXPECT_EQ(r.bucket_count(), 128u);
}

TEST_F(Registry, EntriesAreFoundAfterGrowth)
{
    fill(r, 65);
    for (int i = 0; i < 65; ++i)
        EXPECT_EQ(r.find_creator(("k" + std::to_string(i)).c_str()), fake(i)) << i;
}

// -- find_creators ----------------------------------------------------------------------

TEST_F(RegistryWithKeys, NullScriptMatchesEntriesWithAnyScript)
{
    EXPECT_EQ(creators("xt::hostprobe_plugin", token()),
              (std::set<std::string>{"xt::hostprobe_plugin@wrapper", "xt::hostprobe_plugin.create@3445205045",
                                     "xt::hostprobe_plugin.create@creator.js", "xt::hostprobe_plugin@wrapper.js"}));
}

TEST_F(RegistryWithKeys, EmptyScriptMatchesOnlyEntriesWithoutScript)
{
    const char empty[1] = "";
    EXPECT_EQ(creators("xt::hostprobe_plugin", token(empty, empty)),
              (std::set<std::string>{"xt::hostprobe_plugin@wrapper", "xt::hostprobe_plugin.create@3445205045"}));
}

TEST_F(RegistryWithKeys, ScriptMatchesOnlyItsOwnEntries)
{
    EXPECT_EQ(creators("xt::hostprobe_plugin", "js"),
              (std::set<std::string>{"xt::hostprobe_plugin.create@creator.js", "xt::hostprobe_plugin@wrapper.js"}));
}

TEST_F(RegistryWithKeys, MethodMustMatchWhenGiven)
{
    EXPECT_EQ(creators("xt::hostprobe_plugin.create", token()),
              (std::set<std::string>{"xt::hostprobe_plugin.create@3445205045", "xt::hostprobe_plugin.create@creator.js"}));
}

TEST_F(RegistryWithKeys, EmptyNamespaceMatchesAnyNamespace)
{
    EXPECT_EQ(creators("hostprobe_plugin.create", "").size(), 4u); // xt, xt::js, xt::lua, other
}

TEST_F(RegistryWithKeys, NamespaceMustMatchWhenGiven)
{
    EXPECT_EQ(creators("other::hostprobe_plugin", token()),
              (std::set<std::string>{"other::hostprobe_plugin.create@7"}));
}

TEST_F(RegistryWithKeys, ClassMustMatch)
{
    EXPECT_EQ(creators("xt::second", token()), (std::set<std::string>{"xt::second@wrapper"}));
    EXPECT_TRUE(creators("xt::nothing", token()).empty());
}

TEST_F(RegistryWithKeys, ListResultsAppendToWhatIsThere)
{
    dynarray<creator_match> found;
    r.find_creators("xt::second", token(), found);
    r.find_creators("xt::second", token(), found);
    EXPECT_EQ(found.size(), 2u);
}

TEST_F(RegistryWithKeys, ListResultCarriesTheCreator)
{
    dynarray<creator_match> found;
    r.find_creators("xt::second", token(), found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].creator, fake(8));
}

// -- find_script_creators ------------------------------------------------------------------

TEST_F(RegistryWithKeys, ScriptCreatorIsFoundInTheLanguagesNamespace)
{
    EXPECT_EQ(script_creators("xt::hostprobe_plugin.create", "js"),
              (std::set<std::string>{"xt::js::hostprobe_plugin.create"}));
}

TEST_F(RegistryWithKeys, EachLanguageFindsItsOwnScriptCreator)
{
    EXPECT_EQ(script_creators("xt::hostprobe_plugin.create", "lua"),
              (std::set<std::string>{"xt::lua::hostprobe_plugin.create"}));
}

TEST_F(RegistryWithKeys, LanguageWithoutScriptCreatorFindsNothing)
{
    EXPECT_TRUE(script_creators("xt::hostprobe_plugin.create", "jsc").empty());
}

TEST_F(RegistryWithKeys, ScriptCreatorsSkipEntriesWithAScriptPart)
{
    std::set<std::string> found = script_creators("hostprobe_plugin.create", token());
    EXPECT_EQ(found.count("xt::hostprobe_plugin.create@creator.js"), 0u);
    EXPECT_EQ(found.size(), 4u);
}

TEST_F(RegistryWithKeys, NullScriptTakesTheNamespaceAsItStands)
{
    EXPECT_EQ(script_creators("xt::js::hostprobe_plugin.create", token()),
              (std::set<std::string>{"xt::js::hostprobe_plugin.create"}));
}

TEST_F(Registry, ScriptNamespaceNeedsTheDoubleColonBeforeTheLanguage)
{
    r.hook_creator("xjs::hostprobe_plugin.create", fake(1));
    r.hook_creator("ab_js::hostprobe_plugin.create", fake(2));
    EXPECT_TRUE(script_creators("hostprobe_plugin.create", "js").empty());
}

// -- wrapper_creator_of ----------------------------------------------------------------------

TEST_F(RegistryWithKeys, WrapperCreatorOfAddsTheWrapperSuffix)
{
    EXPECT_EQ(r.wrapper_creator_of("xt::second"), fake(8));
}

TEST_F(RegistryWithKeys, WrapperCreatorOfAnUnknownInterfaceIsNull)
{
    EXPECT_EQ(r.wrapper_creator_of("xt::third"), nullptr);
}

// -- setup ---------------------------------------------------------------------------------------

namespace {

void log_hook_a(velk::log_ref&, int32_t, const velk::tokenhash&, const void*) {}
void log_hook_b(velk::log_ref&, int32_t, const velk::tokenhash&, const void*) {}
bool check_a(const token&) { return true; }
bool check_b(const token&) { return false; }
velk::logger* logger_a() { return nullptr; }

} // namespace

TEST_F(Registry, RootPathIsEmptyAtFirst)
{
    EXPECT_TRUE(r.root_path().is_empty());
}

TEST_F(Registry, SetupTwiceKeepsTheFirstRoot)
{
    r.setup("/first/", nullptr, nullptr, nullptr);
    r.setup("/second/", nullptr, nullptr, nullptr);
    EXPECT_EQ(str(r.root_path()), "/first/");
}

TEST_F(Registry, SecondSetupReplacesTheHooksItGives)
{
    r.setup("/first/", &log_hook_a, &check_a, &logger_a);
    r.setup("/second/", &log_hook_b, &check_b, nullptr);
    EXPECT_EQ(r.log_hook(), &log_hook_b);
    EXPECT_EQ(r.path_check_hook(), &check_b);
}

TEST_F(Registry, SecondSetupKeepsTheHooksItGivesAsNull)
{
    r.setup("/first/", &log_hook_a, &check_a, &logger_a);
    r.setup("/second/", nullptr, nullptr, nullptr);
    EXPECT_EQ(r.log_hook(), &log_hook_a);
    EXPECT_EQ(r.path_check_hook(), &check_a);
    EXPECT_EQ(r.logger_hook(), &logger_a);
}

TEST_F(Registry, SetupAddsASeparatorToARootWithoutOne)
{
    // The separator is the one paths are written with on this platform.
    r.setup("c:/x", nullptr, nullptr, nullptr);
    EXPECT_EQ(str(r.root_path()), std::string("c:/x") + velk::path_algebra::separator);
}

TEST_F(Registry, SetupKeepsARootThatEndsInASlash)
{
    r.setup("c:/x/", nullptr, nullptr, nullptr);
    EXPECT_EQ(str(r.root_path()), "c:/x/");
}

TEST_F(Registry, SetupKeepsARootThatEndsInABackslash)
{
    r.setup("c:\\x\\", nullptr, nullptr, nullptr);
    EXPECT_EQ(str(r.root_path()), "c:\\x\\");
}

TEST_F(Registry, SetupWithAnEmptyPathLeavesTheRootEmpty)
{
    r.setup("", nullptr, nullptr, nullptr);
    EXPECT_TRUE(r.root_path().is_empty());
}

TEST_F(Registry, RootIsSetByTheFirstSetupThatGivesOne)
{
    r.setup("", nullptr, nullptr, nullptr);
    r.setup("/later/", nullptr, nullptr, nullptr);
    EXPECT_EQ(str(r.root_path()), "/later/");
}

// -- The version -------------------------------------------------------------------------------------

TEST_F(Registry, VersionSevenIsAccepted)
{
    EXPECT_TRUE(r.version_ok(7));
}

TEST_F(Registry, OtherVersionsAreRefused)
{
    EXPECT_FALSE(r.version_ok(6));
    EXPECT_FALSE(r.version_ok(8));
}

// -- What comes with the client hooks: nothing is found yet -----------------------------------------

TEST_F(RegistryWithKeys, ModuleUnloadNoticeLeavesTheTableAsItWas)
{
    dynarray<uint8_t> data;
    dynarray<velk::unload_entry> list;
    EXPECT_TRUE(r.notify_module_unload(1, data, list));
    EXPECT_EQ(r.count(), 8u);
    EXPECT_TRUE(list.is_empty());
}

// -- The order of the virtual slots: a contract between modules ----------------------------------------

namespace {

// The slot of a virtual member function in the virtual table: on this ABI
// a pointer to a virtual member holds its byte offset in the table plus 1.
template <class PMF>
size_t slot_of(PMF pmf)
{
    static_assert(sizeof(pmf) == 2 * sizeof(uintptr_t), "pointer to member: function word and adjustment");
    uintptr_t word;
    memcpy(&word, &pmf, sizeof word);
    return (word - 1) / sizeof(void*);
}

} // namespace

TEST(RegistrySlots, FollowTheContractedOrder)
{
    // Slots 0 and 1 are the two forms of the destructor.
    using r = interface_register_impl;
    EXPECT_EQ(slot_of(&r::hook_creator), 2u);
    EXPECT_EQ(slot_of(&r::find_by_pattern), 3u);
    EXPECT_EQ(slot_of(&r::wrapper_creator_of), 4u);
    EXPECT_EQ(slot_of(&r::find_creators), 5u);
    EXPECT_EQ(slot_of(&r::find_script_creators), 6u);
    EXPECT_EQ(slot_of(&r::client_creator), 7u);
    EXPECT_EQ(slot_of(&r::maker_creator), 8u);
    EXPECT_EQ(slot_of(&r::find_clients), 9u);
    EXPECT_EQ(slot_of(&r::root_path), 10u);
    EXPECT_EQ(slot_of(&r::log_hook), 11u);
    EXPECT_EQ(slot_of(&r::path_check_hook), 12u);
    EXPECT_EQ(slot_of(&r::logger_hook), 13u);
    EXPECT_EQ(slot_of(&r::find_creator), 14u);
    EXPECT_EQ(slot_of(&r::setup), 15u);
    EXPECT_EQ(slot_of(&r::version_ok), 16u);
    EXPECT_EQ(slot_of(&r::resolve_include_path), 17u);
}
