// Global singletons across real modules, in a program that exports its
// sglo_registrar as a host does: two probe plug-ins, each with its own copy
// of velk, loaded as a host loads them. The paths of the modules come from the build
// (PROBE_MODULE_A, PROBE_MODULE_B).
#include "comm/singleton.h"

#include "comm/os/module.h"
#include "tests/interface/probe_loader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using velk::testing::fresh_type_name;
using velk::testing::is_module_loaded;
using velk::testing::loaded_probe;
using velk::testing::probe_instance;

namespace {

void* create_nothing() { return nullptr; }

class CrossModule : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(a.is_loaded()) << PROBE_MODULE_A << ": " << velk::testing::module_error();
        ASSERT_TRUE(b.is_loaded()) << PROBE_MODULE_B << ": " << velk::testing::module_error();
    }

    loaded_probe a{PROBE_MODULE_A};
    loaded_probe b{PROBE_MODULE_B};
};

} // namespace

// -- Which manager is process-wide --------------------------------------------

TEST_F(CrossModule, ModuleFindsTheMainProgramsRegistrar)
{
    EXPECT_EQ(a->main_program_symbol("sglo_registrar"), reinterpret_cast<void*>(&sglo_registrar));
}

TEST_F(CrossModule, ModulesUseTheMainProgramsSharedManager)
{
    EXPECT_EQ(a->process_manager(), sglo_registrar());
    EXPECT_EQ(b->process_manager(), sglo_registrar());
}

TEST_F(CrossModule, EachModuleStillHasItsOwnSharedManager)
{
    EXPECT_NE(a->own_shared_manager(), sglo_registrar());
    EXPECT_NE(b->own_shared_manager(), sglo_registrar());
    EXPECT_NE(a->own_shared_manager(), b->own_shared_manager());
}

TEST_F(CrossModule, ModulesExportedRegistrarGivesItsOwnSharedManager)
{
    auto registrar = reinterpret_cast<velk::sglo_registrar_fn>(velk::testing::module_symbol(a.handle(), "sglo_registrar"));
    ASSERT_NE(registrar, nullptr);
    EXPECT_EQ(registrar(), a->own_shared_manager());
}

TEST_F(CrossModule, ModulesCallByNameIsBoundToTheMainProgramsRegistrar)
{
    // Why the library reaches its own shared manager directly, not by name:
    // an ELF module's call binds to the main program's export. A DLL's call
    // binds within the DLL, so there the name is merely another way in.
#if defined(_WIN32)
    EXPECT_EQ(a->registrar_by_name(), a->own_shared_manager());
#else
    EXPECT_EQ(a->registrar_by_name(), sglo_registrar());
#endif
}

// -- Process-wide singletons --------------------------------------------------

TEST_F(CrossModule, TwoModulesGetOneProcessWideInstance)
{
    std::string name = fresh_type_name("cross_one");
    probe_instance* from_a = a->shared_instance(name.c_str());
    EXPECT_EQ(b->shared_instance(name.c_str()), from_a);
}

TEST_F(CrossModule, ProcessWideInstanceIsCreatedOnce)
{
    std::string name = fresh_type_name("cross_once");
    int a_before = a->creates();
    int b_before = b->creates();
    a->shared_instance(name.c_str());
    b->shared_instance(name.c_str());
    EXPECT_EQ(a->creates() - a_before, 1);
    EXPECT_EQ(b->creates() - b_before, 0);
}

TEST_F(CrossModule, SecondModulesInitRunsOnTheSharedInstance)
{
    std::string name = fresh_type_name("cross_init");
    probe_instance* shared = a->shared_instance(name.c_str());
    EXPECT_EQ(shared->inits, 0);
    b->shared_instance(name.c_str());
    EXPECT_EQ(shared->inits, 1);
    EXPECT_EQ(shared->last_init_by, b->tag);
}

TEST_F(CrossModule, ProcessWideInstanceIsTheFirstModulesObject)
{
    std::string name = fresh_type_name("cross_maker");
    b->shared_instance(name.c_str());
    EXPECT_EQ(a->shared_instance(name.c_str())->created_by, b->tag);
}

TEST_F(CrossModule, TypedUseSharesOneInstanceAcrossModules)
{
    probe_instance* from_a = a->typed_shared_instance();
    EXPECT_EQ(b->typed_shared_instance(), from_a);
}

TEST_F(CrossModule, MainProgramSeesTheModulesProcessWideInstance)
{
    std::string name = fresh_type_name("cross_seen");
    probe_instance* from_a = a->shared_instance(name.c_str());
    void* here = velk::register_singleton(&create_nothing, nullptr, nullptr, name.c_str(), nullptr, 0, false);
    EXPECT_EQ(here, from_a);
}

// -- The logger's array space ----------------------------------------------------

namespace {

// The process-wide node of the array space that a logger registered, or null.
const velk::singleton_node* logger_array_space_node()
{
    for (const velk::singleton_node* n = sglo_registrar()->head(); n; n = n->next)
        if (!n->local && n->file && std::string(n->file) == "comm/log/logger"
            && std::string(n->type_name).find("comm_array_mspace") != std::string::npos)
            return n;
    return nullptr;
}

} // namespace

TEST_F(CrossModule, LoggerThatComesFirstRegistersTheArraySpaceProcessWide)
{
    a->array_space_after_logger();
    const velk::singleton_node* node = logger_array_space_node();
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->line, 227);
}

TEST_F(CrossModule, ModulesWhoseLoggersComeFirstShareOneArraySpace)
{
    EXPECT_EQ(b->array_space_after_logger(), a->array_space_after_logger());
}

TEST_F(CrossModule, DynarrayLiesInTheSpaceTheLoggerRegistered)
{
    velk::mspace space = a->array_space_after_logger();
    EXPECT_EQ(a->dynarray_space(), space);
}

TEST_F(CrossModule, ArraySpaceMadeBeforeTheLoggerStaysTheModulesOwn)
{
    velk::mspace own = b->dynarray_space();
    velk::mspace shared = a->array_space_after_logger();
    EXPECT_EQ(b->array_space_after_logger(), own);
    EXPECT_NE(own, shared);
}

TEST_F(CrossModule, SharedArraySpaceOutlivesTheModuleThatMadeIt)
{
    velk::mspace made_by_a = a->array_space_after_logger();
    ASSERT_TRUE(a.close());
    ASSERT_FALSE(is_module_loaded(PROBE_MODULE_A));
    EXPECT_EQ(b->array_space_after_logger(), made_by_a);
    EXPECT_EQ(b->dynarray_space(), made_by_a);
}

// -- Module-local singletons --------------------------------------------------

TEST_F(CrossModule, EachModuleHasItsOwnLocalInstance)
{
    probe_instance* local_a = a->local_instance();
    probe_instance* local_b = b->local_instance();
    EXPECT_NE(local_a, local_b);
    EXPECT_EQ(local_a->created_by, a->tag);
    EXPECT_EQ(local_b->created_by, b->tag);
}

TEST_F(CrossModule, LocalRequestsMakeANewInstanceEachTimeWithinAModule)
{
    probe_instance* first = a->fresh_local_instance();
    probe_instance* second = a->fresh_local_instance();
    EXPECT_NE(first, second);
    a->remove(first);
    a->remove(second);
}

TEST_F(CrossModule, LocalSingletonsEndWithTheModule)
{
    int destroyed = 0;
    a->watch_local_destroy(&destroyed);
    a->local_instance();
    ASSERT_TRUE(a.close());
    EXPECT_EQ(destroyed, 1);
}

// -- Unloading ----------------------------------------------------------------

TEST_F(CrossModule, DlcloseUnloadsAModuleThatUsedItsSingletons)
{
    std::string name = fresh_type_name("cross_unload");
    a->shared_instance(name.c_str());
    a->local_instance();
    ASSERT_TRUE(is_module_loaded(PROBE_MODULE_A));
    ASSERT_TRUE(a.close());
    EXPECT_FALSE(is_module_loaded(PROBE_MODULE_A));
}

TEST_F(CrossModule, ProcessWideSingletonOutlivesTheModuleThatMadeIt)
{
    std::string name = fresh_type_name("cross_outlives");
    probe_instance* made_by_a = a->shared_instance(name.c_str());
    ASSERT_TRUE(a.close());
    ASSERT_FALSE(is_module_loaded(PROBE_MODULE_A));
    int b_before = b->creates();
    EXPECT_EQ(b->shared_instance(name.c_str()), made_by_a);
    EXPECT_EQ(b->creates(), b_before);
}

TEST_F(CrossModule, LookupStaysSafeAfterTheModuleThatNamedASingletonIsGone)
{
    // The run-time type name is text of module A; the list must not need it.
    probe_instance* made_by_a = a->typed_shared_instance();
    ASSERT_TRUE(a.close());
    ASSERT_FALSE(is_module_loaded(PROBE_MODULE_A));
    EXPECT_EQ(b->typed_shared_instance(), made_by_a);
}

TEST_F(CrossModule, ReloadedModuleStartsWithNewLocalsButFindsTheSharedOnes)
{
    std::string name = fresh_type_name("cross_reload");
    probe_instance* shared = a->shared_instance(name.c_str());
    ASSERT_TRUE(a.close());
    loaded_probe again(PROBE_MODULE_A);
    ASSERT_TRUE(again.is_loaded());
    EXPECT_EQ(again->creates(), 0);
    EXPECT_EQ(again->shared_instance(name.c_str()), shared);
}

// -- The module seam, seen from the modules -----------------------------------

TEST_F(CrossModule, ModulesHaveDistinctHandles)
{
    EXPECT_NE(a->module_handle(), b->module_handle());
    EXPECT_NE(a->module_handle(), velk::os::main_program_handle());
}

TEST_F(CrossModule, LibraryHandleGivesTheSameModuleHandleAsAnAddress)
{
    EXPECT_EQ(velk::os::library_module_handle(a.handle()), a->module_handle());
    EXPECT_EQ(velk::os::library_module_handle(b.handle()), b->module_handle());
}

TEST_F(CrossModule, ModuleFileIsThePathItWasLoadedFrom)
{
#if defined(_WIN32)
    // The loader names it in its own form (under Wine a drive letter and
    // backslashes): the same file, not the same text.
    EXPECT_TRUE(std::filesystem::equivalent(a->module_file(), PROBE_MODULE_A)) << a->module_file();
#else
    EXPECT_EQ(std::string(a->module_file()), PROBE_MODULE_A);
#endif
}

TEST_F(CrossModule, ModulesOwnExportIsNotTakenForTheMainPrograms)
{
    // A default lookup from inside the module finds the module's own table ...
    EXPECT_NE(a->default_lookup("singleton_probe_table"), nullptr);
    // ... which does not count as an export of the main program.
    EXPECT_EQ(a->main_program_symbol("singleton_probe_table"), nullptr);
}
