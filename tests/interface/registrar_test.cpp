// The module-side front in a program that exports iglo_registrar, as a host
// does: the front finds this program's registry, names this program in the
// keys it enters, and sends log lines through the host's hook. Static
// registration is tested here inside one program; across real modules in
// tests/module/plugin_module_test.
#include "interface/registrar.h"

#include "comm/dir/directory.h"
#include "comm/log/logger.h"
#include "comm/dir/path_algebra.h"
#include "comm/os/module.h"
#include "comm/singleton.h"
#include "interface/ifc_autoregger.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using velk::creator_fn;
using velk::token;

namespace {

std::string str(const token& t) { return std::string(t.ptr() ? t.ptr() : "", t.lens()); }

creator_fn fake(uintptr_t n) { return reinterpret_cast<creator_fn>(0x2000 + 16 * n); }

// The module part that this program's front appends: its file name and handle.
std::string this_module_part()
{
    uint64_t handle = velk::os::main_program_handle();
    velk::charstr name;
    velk::directory::get_module_name(handle, name, false);
    return str(name) + ":" + std::to_string(handle);
}

// -- A static registration of this program, made before main ------------------

void static_group_creator() {}

int static_group_calls_on = 0;
int static_group_calls_off = 0;

void register_static_group(bool on)
{
    ++(on ? static_group_calls_on : static_group_calls_off);
    velk::register_key(on, "t::static_group@wrapper", &static_group_creator);
}

const velk::autoregger_site<&register_static_group> static_group;

} // namespace

// -- Finding the registry ----------------------------------------------------------

TEST(Registrar, IsTheRegistryThatTheMainProgramExports)
{
    EXPECT_EQ(velk::registrar(), iglo_registrar());
}

TEST(Registrar, IsThisModulesOwnRegistryInTheMainProgram)
{
    EXPECT_EQ(velk::registrar(), velk::own_interface_registry());
}

TEST(Registrar, OwnRegistryIsAModuleLocalSingleton)
{
    velk::interface_register_impl* r = velk::own_interface_registry();
    bool listed = false;
    for (const velk::singleton_node* n = velk::local_singleton_manager().head(); n; n = n->next)
        listed |= n->instance == r && n->local && n->line == 685;
    EXPECT_TRUE(listed);
}

// -- register_creator and get_creator ---------------------------------------------------

TEST(Registrar, RegisterCreatorAppendsThisModulesFileAndHandle)
{
    ASSERT_TRUE(velk::register_creator("t::named@wrapper", fake(1)));
    std::string text;
    velk::registrar()->inspect_entry("t::named@wrapper", [&](const velk::creator_entry& e) { text = str(e.ifcname); });
    EXPECT_EQ(text, "t::named@wrapper*" + this_module_part());
    velk::register_creator("t::named@wrapper", nullptr);
}

TEST(Registrar, RegisteredCreatorIsFoundByGetCreator)
{
    velk::register_creator("t::found@wrapper", fake(2));
    EXPECT_EQ(velk::get_creator("t::found@wrapper"), fake(2));
    velk::register_creator("t::found@wrapper", nullptr);
}

TEST(Registrar, GetCreatorOfAMissingKeyIsNull)
{
    EXPECT_EQ(velk::get_creator("t::never@wrapper"), nullptr);
}

TEST(Registrar, RegisterCreatorRefusesAKeyThatIsThere)
{
    velk::register_creator("t::twice@wrapper", fake(3));
    EXPECT_FALSE(velk::register_creator("t::twice@wrapper", fake(4)));
    EXPECT_EQ(velk::get_creator("t::twice@wrapper"), fake(3));
    velk::register_creator("t::twice@wrapper", nullptr);
}

TEST(Registrar, RegisterCreatorWithNullRemovesTheKey)
{
    velk::register_creator("t::gone@wrapper", fake(5));
    EXPECT_TRUE(velk::register_creator("t::gone@wrapper", nullptr));
    EXPECT_EQ(velk::get_creator("t::gone@wrapper"), nullptr);
}

// -- The forwarding functions ------------------------------------------------------------------

TEST(Registrar, FindCreatorsForwardsToTheRegistry)
{
    velk::register_creator("t::listed.create@creator.js", fake(6));
    velk::dynarray<velk::creator_match> found;
    velk::find_creators("t::listed", "js", found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(str(found[0].key), "t::listed.create@creator.js");
    velk::register_creator("t::listed.create@creator.js", nullptr);
}

TEST(Registrar, FindScriptCreatorsForwardsToTheRegistry)
{
    velk::register_creator("t::js::scripted.create", fake(7));
    velk::dynarray<velk::creator_match> found;
    velk::find_script_creators("t::scripted.create", "js", found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].creator, fake(7));
    velk::register_creator("t::js::scripted.create", nullptr);
}

TEST(Registrar, WrapperCreatorOfForwardsToTheRegistry)
{
    velk::register_creator("t::wrapped@wrapper", fake(8));
    EXPECT_EQ(velk::wrapper_creator_of("t::wrapped"), fake(8));
    velk::register_creator("t::wrapped@wrapper", nullptr);
}

TEST(Registrar, SetupAndRootPathForwardToTheRegistry)
{
    velk::setup("/registrar/root", nullptr, nullptr, nullptr);
    const std::string root = std::string("/registrar/root") + velk::path_algebra::separator;
    EXPECT_EQ(str(velk::root_path()), root);
    EXPECT_EQ(str(velk::registrar()->root_path()), root);
}

// -- The log call through the host's hook ------------------------------------------------------------

namespace {

std::vector<std::string> hooked_lines;

class hooked_logger : public velk::logger
{
public:
    void enqueue(velk::log_ref& msg) override
    {
        hooked_lines.push_back(str(msg->source()) + "|" + velk::testing::log_body(*msg));
    }
};

void host_hook(velk::log_ref& out, int32_t type, const velk::tokenhash& source, const void* context)
{
    static hooked_logger l;
    out = l.create_msg(type, source, context);
}

} // namespace

TEST(Registrar, LogCallGoesThroughTheHostsHook)
{
    velk::setup("", &host_hook, nullptr, nullptr);
    hooked_lines.clear();
    VELK_LOG(3, "regtest") << "through the host";
    EXPECT_EQ(hooked_lines, std::vector<std::string>{"regtest|through the host"});
}

// -- Static registration ---------------------------------------------------------------------------------

TEST(StaticRegistration, KeysOfAStaticSiteAreThereAtMain)
{
    EXPECT_EQ(velk::get_creator("t::static_group@wrapper"), reinterpret_cast<creator_fn>(&static_group_creator));
}

TEST(StaticRegistration, StaticSiteRegisteredOnce)
{
    EXPECT_EQ(static_group_calls_on, 1);
    EXPECT_EQ(static_group_calls_off, 0);
}

TEST(StaticRegistration, StaticSiteIsAModuleLocalSingleton)
{
    velk::ifc_autoregger* a = velk::autoregger_site<&register_static_group>::instance();
    ASSERT_NE(a, nullptr);
    bool listed = false;
    for (const velk::singleton_node* n = velk::local_singleton_manager().head(); n; n = n->next)
        listed |= n->instance == a && n->local && !n->file && n->line == 0;
    EXPECT_TRUE(listed);
}

namespace {

int group_on = 0;
int group_off = 0;

void group_creator() {}

void register_test_group(bool on)
{
    ++(on ? group_on : group_off);
    velk::register_key(on, "t::group.create@1", &group_creator);
    velk::register_key(on, "t::group@wrapper", &group_creator);
}

} // namespace

TEST(IfcAutoregger, StartEntersTheGroupsKeys)
{
    velk::ifc_autoregger* a = velk::ifc_autoregger::start(&register_test_group);
    EXPECT_NE(velk::get_creator("t::group.create@1"), nullptr);
    EXPECT_NE(velk::get_creator("t::group@wrapper"), nullptr);
    velk::ifc_autoregger::stop(a);
}

TEST(IfcAutoregger, StartClearsTheHandOverSlot)
{
    velk::ifc_autoregger* a = velk::ifc_autoregger::start(&register_test_group);
    EXPECT_EQ(velk::hand_over_slot(), nullptr);
    velk::ifc_autoregger::stop(a);
}

TEST(IfcAutoregger, StartGivesTheObjectOfTheGroup)
{
    velk::ifc_autoregger* a = velk::ifc_autoregger::start(&register_test_group);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->registration(), &register_test_group);
    velk::ifc_autoregger::stop(a);
}

TEST(IfcAutoregger, StopTakesTheKeysOut)
{
    velk::ifc_autoregger* a = velk::ifc_autoregger::start(&register_test_group);
    velk::ifc_autoregger::stop(a);
    EXPECT_EQ(velk::get_creator("t::group.create@1"), nullptr);
    EXPECT_EQ(velk::get_creator("t::group@wrapper"), nullptr);
}

TEST(IfcAutoregger, StopCallsTheRegistrationOnceWithFalse)
{
    group_off = 0;
    velk::ifc_autoregger* a = velk::ifc_autoregger::start(&register_test_group);
    velk::ifc_autoregger::stop(a);
    EXPECT_EQ(group_off, 1);
}

TEST(IfcAutoregger, StopClearsTheInstance)
{
    velk::ifc_autoregger* a = velk::ifc_autoregger::start(&register_test_group);
    velk::ifc_autoregger::stop(a);
    EXPECT_EQ(a, nullptr);
}

TEST(IfcAutoregger, StopOfANullInstanceDoesNothing)
{
    group_off = 0;
    velk::ifc_autoregger* a = nullptr;
    velk::ifc_autoregger::stop(a);
    EXPECT_EQ(group_off, 0);
}
