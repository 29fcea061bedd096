// Replacing a real module in a running host. This program exports its
// registry as a host does and serves the interface "probe::served", whose
// unload hook saves the state of each client that goes and restores it when
// told. A client module hooks a client on it; the host tells the registry
// that the module goes (with its handle), unloads it, loads a rebuilt copy
// (the second build of the same source), and tells the registry that the
// module was replaced (0). CLIENT_PROBE_V1 and CLIENT_PROBE_V2 are paths from
// the build.
#include "comm/os/module.h"
#include "interface/registrar.h"
#include "tests/interface/client_probe.h"
#include "tests/interface/probe_loader.h"


#include <gtest/gtest.h>

#include <cstring>
#include <string>

using velk::dynarray;
using velk::token;
using velk::unload_entry;

namespace {

std::string str(const token& t) { return std::string(t.ptr() ? t.ptr() : "", t.lens()); }

// -- The interface's side: what its unload hook saves and gets back ------------------

// The state the interface keeps for its client, as bytes of every value, so
// that a byte lost or changed on the way shows.
std::string client_state()
{
    std::string s = "probe_client state:";
    for (int i = 0; i < 256; ++i)
        s += static_cast<char>(i);
    return s;
}

struct served_interface
{
    std::string saved;        // what the first call appended
    std::string client_told;  // the client named in the first call
    std::string module_told;  // the module named in the first call
    std::string restored;     // what the second call found at the place saved
    int first_calls = 0;
    int second_calls = 0;
    bool second_had_data = false;
    uint32_t saved_at = 0;
} served;

bool served_unload_hook(const token& client, const token& module, dynarray<uint8_t>* data)
{
    if (!client.is_empty()) { // the client goes: save its state
        ++served.first_calls;
        served.client_told = str(client);
        served.module_told = str(module);
        served.saved = client_state();
        served.saved_at = data->size();
        uint8_t* to = data->add(static_cast<uint32_t>(served.saved.size()));
        memcpy(to, served.saved.data(), served.saved.size());
        return true;
    }
    ++served.second_calls; // the module is back: restore
    served.second_had_data = data != nullptr;
    if (data && served.saved_at + served.saved.size() <= data->size())
        served.restored.assign(reinterpret_cast<const char*>(data->ptr()) + served.saved_at, served.saved.size());
    return true;
}

struct loaded_client
{
    explicit loaded_client(const char* path) : handle(velk::testing::load_module(path))
    {
        if (handle) {
            auto table = reinterpret_cast<velk::testing::client_probe_table_fn>(velk::testing::module_symbol(handle, "client_probe_table"));
            probe = table ? table() : nullptr;
        }
    }
    ~loaded_client() { close(); }
    void close()
    {
        if (handle)
            velk::testing::unload_module(handle);
        handle = nullptr;
        probe = nullptr;
    }

    void* handle;
    const velk::testing::client_probe* probe = nullptr;
};

// The client's hook as the interface finds it, and its answer: the build of
// the module that holds it; 0 when there is no hook.
int client_build()
{
    velk::creator_fn c = velk::client_creator("probe_client", "probe::served", 7, "");
    return c ? reinterpret_cast<velk::testing::client_probe_hook_fn>(c)() : 0;
}

class ModuleReplacement : public ::testing::Test
{
protected:
    void SetUp() override
    {
        served = served_interface{};
        ASSERT_TRUE(velk::register_creator("probe::served@unload", reinterpret_cast<velk::creator_fn>(&served_unload_hook)));
    }

    void TearDown() override { velk::register_creator("probe::served@unload", nullptr); }

    // The replacement, step by step, noting what each step leaves.
    void replace()
    {
        loaded_client first(CLIENT_PROBE_V1);
        ASSERT_NE(first.probe, nullptr) << velk::testing::module_error();
        build_before = client_build();
        handle = velk::os::library_module_handle(first.handle);
        entry_handle = 0;
        velk::registrar()->inspect_entry("probe::served@client-7.probe_client",
                                         [&](const velk::creator_entry& e) { entry_handle = e.module_handle; });

        ASSERT_TRUE(velk::registrar()->notify_module_unload(handle, data, list));
        build_after_notice = client_build();
        first.close();
        first_still_loaded = velk::testing::is_module_loaded(CLIENT_PROBE_V1);

        loaded_client second(CLIENT_PROBE_V2);
        ASSERT_NE(second.probe, nullptr) << velk::testing::module_error();
        build_of_rebuilt = client_build();
        ASSERT_TRUE(velk::registrar()->notify_module_unload(0, data, list));
        second.close();
    }

    uint64_t handle = 0;
    uint64_t entry_handle = 0;
    int build_before = 0;
    int build_after_notice = -1;
    int build_of_rebuilt = 0;
    bool first_still_loaded = true;
    dynarray<uint8_t> data;
    dynarray<unload_entry> list;
};

} // namespace

TEST_F(ModuleReplacement, InterfaceGetsBackExactlyTheBytesItSaved)
{
    replace();
    ASSERT_EQ(served.second_calls, 1);
    EXPECT_EQ(served.restored, served.saved);
    EXPECT_EQ(served.saved, client_state());
}

TEST_F(ModuleReplacement, ClientHookCarriesTheModulesHandle)
{
    replace();
    EXPECT_NE(handle, 0u);
    EXPECT_EQ(entry_handle, handle);
}

TEST_F(ModuleReplacement, FirstNoticeTellsTheHookTheClientAndItsModule)
{
    replace();
    EXPECT_EQ(served.first_calls, 1);
    EXPECT_EQ(served.client_told, "probe_client");
    EXPECT_NE(served.module_told.find("client_probe_v1"), std::string::npos) << served.module_told;
}

TEST_F(ModuleReplacement, FirstNoticeTakesTheClientHookOut)
{
    replace();
    EXPECT_EQ(build_before, 1);
    EXPECT_EQ(build_after_notice, 0);
}

TEST_F(ModuleReplacement, FirstNoticeRecordsTheHookAndItsPartOfData)
{
    replace();
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(str(token(list[0].ifcname).cut_back_at('*', velk::cut_drop_separator)),
              "probe::served@client-7.probe_client");
    EXPECT_EQ(list[0].offset, 0u);
    EXPECT_EQ(list[0].size, client_state().size());
}

TEST_F(ModuleReplacement, OldBuildIsReallyUnloaded)
{
    replace();
    EXPECT_FALSE(first_still_loaded);
}

TEST_F(ModuleReplacement, RebuiltModuleAnswersThroughItsNewHook)
{
    replace();
    EXPECT_EQ(build_of_rebuilt, 2);
}

TEST_F(ModuleReplacement, SecondNoticeGivesTheHookTheData)
{
    replace();
    EXPECT_TRUE(served.second_had_data);
}

TEST_F(ModuleReplacement, UnloadingTheRebuiltModuleTakesItsHookOut)
{
    replace();
    EXPECT_EQ(client_build(), 0);
}
