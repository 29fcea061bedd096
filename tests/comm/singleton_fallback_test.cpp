// Global singletons across real modules, in a program that exports no
// sglo_registrar: each module falls back on its own shared manager. The
// modules stay loaded to the end of the process, because their process-wide
// singletons live in their own statics and no module destroys those.
#include "comm/singleton.h"

#include "comm/os/module.h"
#include "tests/interface/probe_loader.h"

#include <gtest/gtest.h>

#include <string>

using velk::testing::fresh_type_name;
using velk::testing::loaded_probe;
using velk::testing::probe_instance;

namespace {

class WithoutMainProgramRegistrar : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        a = new loaded_probe(PROBE_MODULE_A);
        b = new loaded_probe(PROBE_MODULE_B);
    }

    void SetUp() override
    {
        ASSERT_TRUE(a->is_loaded()) << PROBE_MODULE_A << ": " << velk::testing::module_error();
        ASSERT_TRUE(b->is_loaded()) << PROBE_MODULE_B << ": " << velk::testing::module_error();
    }

    static const velk::testing::singleton_probe& probe_a() { return **a; }
    static const velk::testing::singleton_probe& probe_b() { return **b; }

    static loaded_probe* a;
    static loaded_probe* b;
};

loaded_probe* WithoutMainProgramRegistrar::a = nullptr;
loaded_probe* WithoutMainProgramRegistrar::b = nullptr;

} // namespace

TEST_F(WithoutMainProgramRegistrar, ModuleFindsNoRegistrarInTheMainProgram)
{
    EXPECT_EQ(probe_a().main_program_symbol("sglo_registrar"), nullptr);
}

TEST_F(WithoutMainProgramRegistrar, ModulesOwnRegistrarIsNotTakenForTheMainPrograms)
{
    // A default lookup from inside the module finds the module's own
    // registrar ...
    void* found = probe_a().default_lookup("sglo_registrar");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(velk::os::module_handle_of(found), probe_a().module_handle());
    // ... which must not count as the main program's.
    EXPECT_EQ(probe_a().main_program_symbol("sglo_registrar"), nullptr);
}

TEST_F(WithoutMainProgramRegistrar, EachModuleFallsBackOnItsOwnSharedManager)
{
    EXPECT_EQ(probe_a().process_manager(), probe_a().own_shared_manager());
    EXPECT_EQ(probe_b().process_manager(), probe_b().own_shared_manager());
}

TEST_F(WithoutMainProgramRegistrar, ModulesProcessWideManagersDiffer)
{
    EXPECT_NE(probe_a().process_manager(), probe_b().process_manager());
    EXPECT_NE(probe_a().process_manager(), &velk::process_singleton_manager());
}

TEST_F(WithoutMainProgramRegistrar, ModulesGetTwoDifferentProcessWideInstances)
{
    std::string name = fresh_type_name("fallback_two");
    probe_instance* from_a = probe_a().shared_instance(name.c_str());
    probe_instance* from_b = probe_b().shared_instance(name.c_str());
    EXPECT_NE(from_a, from_b);
    EXPECT_EQ(from_a->created_by, probe_a().tag);
    EXPECT_EQ(from_b->created_by, probe_b().tag);
}

TEST_F(WithoutMainProgramRegistrar, EachModuleCreatesItsOwnAndRunsNoInit)
{
    std::string name = fresh_type_name("fallback_each");
    int a_before = probe_a().creates();
    int b_before = probe_b().creates();
    probe_instance* from_a = probe_a().shared_instance(name.c_str());
    probe_instance* from_b = probe_b().shared_instance(name.c_str());
    EXPECT_EQ(probe_a().creates() - a_before, 1);
    EXPECT_EQ(probe_b().creates() - b_before, 1);
    EXPECT_EQ(from_a->inits + from_b->inits, 0);
}

TEST_F(WithoutMainProgramRegistrar, WithinOneModuleTheProcessWideInstanceIsStillShared)
{
    std::string name = fresh_type_name("fallback_within");
    probe_instance* first = probe_a().shared_instance(name.c_str());
    EXPECT_EQ(probe_a().shared_instance(name.c_str()), first);
}
