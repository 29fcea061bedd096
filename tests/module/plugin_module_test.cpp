// The plug-in as a real module in a host: this program exports its registry
// and singleton manager as the reference host does, and loads the plug-in
// and a second module, each with its own copy of velk. They meet in one
// registry; unloading the plug-in runs its static destruction, which takes
// out exactly its keys. HOSTPROBE_PLUGIN and REGISTRY_PROBE are paths from
// the build.
#include "comm/os/module.h"
#include "interface/registrar.h"
#include "plugin/hostprobe_plugin.h"
#include "tests/interface/registry_probe.h"
#include "tests/support/host_interface_stub.h"
#include "tests/support/module_loader.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

using xt::hostprobe_plugin;

namespace {

std::string str(const velk::token& t) { return std::string(t.ptr() ? t.ptr() : "", t.lens()); }

class loaded_module
{
public:
    explicit loaded_module(const char* path) : _handle(velk::testing::load_module(path)) {}
    ~loaded_module() { close(); }
    loaded_module(const loaded_module&) = delete;
    loaded_module& operator=(const loaded_module&) = delete;

    void* handle() const { return _handle; }
    uint64_t module_handle() const { return velk::os::library_module_handle(_handle); }
    void close()
    {
        if (_handle)
            velk::testing::unload_module(_handle);
        _handle = nullptr;
    }

private:
    void* _handle;
};

bool is_loaded(const char* path) { return velk::testing::module_in_process(path); }

// The keys the plug-in enters: the native group (2), the JavaScript group
// (4, only in a build with V8) and the Lua group (4).
constexpr uint64_t plugin_key_count = HOSTPROBE_WITH_JS ? 10 : 6;

// The Lua group, keys 7 to 10, in the order of registration.
const char* const lua_group_keys[] = {
    "lua::register_class.xt_hostprobe_plugin",
    "xt::hostprobe_plugin.create@creator.lua",
    "xt::lua::hostprobe_plugin.create",
    "xt::hostprobe_plugin@wrapper.lua",
};

velk::creator_fn native_creator() { return velk::get_creator(hostprobe_plugin::native_creator_key); }
velk::creator_fn native_wrapper_creator() { return velk::get_creator(hostprobe_plugin::native_wrapper_key); }

velk::iref<hostprobe_plugin> create_through_registry()
{
    velk::iref<hostprobe_plugin> out;
    velk::iref<velk::stubsmith_interface> host(new xt::testing::host_interface_stub);
    if (velk::creator_fn c = native_creator())
        reinterpret_cast<xt::native_creator_fn>(c)(out, nullptr, host);
    return out;
}

class PluginModule : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_NE(probe_module.handle(), nullptr) << velk::testing::module_error();
        auto table = reinterpret_cast<velk::testing::registry_probe_table_fn>(
            velk::testing::module_symbol(probe_module.handle(), "registry_probe_table"));
        ASSERT_NE(table, nullptr);
        probe = table();
        keys_without_plugin = velk::registrar()->count();
        plugin = std::make_unique<loaded_module>(HOSTPROBE_PLUGIN);
        ASSERT_NE(plugin->handle(), nullptr) << velk::testing::module_error();
    }

    loaded_module probe_module{REGISTRY_PROBE};
    const velk::testing::registry_probe* probe = nullptr;
    uint64_t keys_without_plugin = 0;
    std::unique_ptr<loaded_module> plugin;
};

} // namespace

// -- At load ---------------------------------------------------------------------

TEST_F(PluginModule, EntersItsNativeCreatorKey)
{
    EXPECT_NE(native_creator(), nullptr);
}

TEST_F(PluginModule, EntersItsNativeWrapperKey)
{
    EXPECT_NE(native_wrapper_creator(), nullptr);
}

TEST_F(PluginModule, EntersTheKeysOfItsGroups)
{
    EXPECT_EQ(velk::registrar()->count(), keys_without_plugin + plugin_key_count);
}

TEST_F(PluginModule, EntersTheKeysOfTheLuaGroup)
{
    for (const char* key : lua_group_keys)
        EXPECT_NE(velk::get_creator(key), nullptr) << key;
}

TEST_F(PluginModule, LuaGroupsCreatorsLieInThePlugin)
{
    for (const char* key : lua_group_keys)
        EXPECT_EQ(velk::os::module_handle_of(reinterpret_cast<const void*>(velk::get_creator(key))),
                  plugin->module_handle())
            << key;
}

TEST_F(PluginModule, CreatorsLieInThePlugin)
{
    EXPECT_EQ(velk::os::module_handle_of(reinterpret_cast<const void*>(native_creator())), plugin->module_handle());
}

TEST_F(PluginModule, KeysNameThePluginsFileAndHandle)
{
    std::string module;
    uint64_t handle = 0;
    velk::registrar()->inspect_entry(hostprobe_plugin::native_creator_key, [&](const velk::creator_entry& e) {
        module = str(e.module);
        handle = e.module_handle;
    });
#if defined(_WIN32)
    EXPECT_EQ(module, "hostprobe_plugin.dll");
#else
    EXPECT_EQ(module, "hostprobe_plugin.so");
#endif
    EXPECT_EQ(handle, plugin->module_handle());
}

// -- One registry for all modules ----------------------------------------------------

TEST_F(PluginModule, ModulesShareTheHostsRegistry)
{
    EXPECT_EQ(probe->registrar(), iglo_registrar());
}

TEST_F(PluginModule, SecondModuleFindsThePluginsCreator)
{
    EXPECT_EQ(probe->get_creator("xt::hostprobe_plugin.create@3445205045"), native_creator());
}

TEST_F(PluginModule, HostFindsTheSecondModulesKey)
{
    EXPECT_EQ(velk::get_creator(probe->own_key), probe->own_creator());
}

TEST_F(PluginModule, SecondRegistrationOfThePluginsKeysIsRefusedKeyByKey)
{
    velk::creator_fn theirs = probe->own_creator();
    EXPECT_FALSE(probe->register_creator("xt::hostprobe_plugin@wrapper", theirs));
    EXPECT_FALSE(probe->register_creator("xt::hostprobe_plugin.create@3445205045", theirs));
}

TEST_F(PluginModule, RefusedSecondRegistrationLeavesThePluginsCreators)
{
    velk::creator_fn before = native_creator();
    probe->register_creator("xt::hostprobe_plugin.create@3445205045", probe->own_creator());
    EXPECT_EQ(native_creator(), before);
}

// -- The interface through the registry ----------------------------------------------------

TEST_F(PluginModule, CreatorFromTheRegistryMakesAWorkingObject)
{
    velk::iref<hostprobe_plugin> p = create_through_registry();
    ASSERT_TRUE(p);
    EXPECT_EQ(p->testfunction(-1), -2);
    EXPECT_EQ(p->mersenne_twister(5489), 3499211612u);
}

TEST_F(PluginModule, PluginsObjectReleasesTheHostsObjectAtItsEnd)
{
    int alive_before = xt::testing::host_interface_stub::alive;
    velk::iref<hostprobe_plugin> p = create_through_registry();
    EXPECT_EQ(xt::testing::host_interface_stub::alive, alive_before + 1);
    p.release();
    EXPECT_EQ(xt::testing::host_interface_stub::alive, alive_before);
}

// -- Unloading ----------------------------------------------------------------------------

TEST_F(PluginModule, UnloadingRemovesThePluginsKeys)
{
    plugin->close();
    EXPECT_EQ(native_creator(), nullptr);
    EXPECT_EQ(native_wrapper_creator(), nullptr);
}

TEST_F(PluginModule, UnloadingRemovesTheKeysOfTheLuaGroup)
{
    plugin->close();
    for (const char* key : lua_group_keys)
        EXPECT_EQ(velk::get_creator(key), nullptr) << key;
}

TEST_F(PluginModule, UnloadingRemovesExactlyThePluginsKeys)
{
    plugin->close();
    EXPECT_EQ(velk::registrar()->count(), keys_without_plugin);
    EXPECT_EQ(velk::get_creator(probe->own_key), probe->own_creator());
}

TEST_F(PluginModule, UnloadedPluginIsGoneFromTheProcess)
{
    plugin->close();
    EXPECT_FALSE(is_loaded(HOSTPROBE_PLUGIN));
}

TEST_F(PluginModule, LoadingAgainRegistersAgain)
{
    plugin->close();
    loaded_module again(HOSTPROBE_PLUGIN);
    ASSERT_NE(again.handle(), nullptr) << velk::testing::module_error();
    EXPECT_EQ(velk::registrar()->count(), keys_without_plugin + plugin_key_count);
    EXPECT_EQ(velk::os::module_handle_of(reinterpret_cast<const void*>(native_creator())), again.module_handle());
}

TEST_F(PluginModule, UnloadingTheSecondModuleLeavesThePluginsKeys)
{
    probe_module.close();
    EXPECT_NE(native_creator(), nullptr);
    EXPECT_EQ(velk::registrar()->count(), keys_without_plugin + plugin_key_count - 1);
}

// -- A second copy of the plug-in's file -----------------------------------------------------

namespace {

// The plug-in's file under another name: the loader takes it for another
// module. The name is this process's own: tests run side by side, and a
// mapped module whose file is rewritten faults.
std::string copy_of_plugin()
{
    std::string path = std::string(::testing::TempDir()) + "hostprobe_plugin_copy_" + std::to_string(getpid()) + ".so";
    std::filesystem::copy_file(HOSTPROBE_PLUGIN, path, std::filesystem::copy_options::overwrite_existing);
    return path;
}

} // namespace

TEST_F(PluginModule, CopyLoadsWhileItsKeysAreRefused)
{
    std::string path = copy_of_plugin();
    loaded_module copy(path.c_str());
    EXPECT_NE(copy.handle(), nullptr) << velk::testing::module_error();
    EXPECT_EQ(velk::registrar()->count(), keys_without_plugin + plugin_key_count);
    copy.close();
    std::filesystem::remove(path);
}

TEST_F(PluginModule, CopysRefusedKeysLeaveTheFirstModulesCreators)
{
    std::string path = copy_of_plugin();
    loaded_module copy(path.c_str());
    ASSERT_NE(copy.handle(), nullptr) << velk::testing::module_error();
    EXPECT_EQ(velk::os::module_handle_of(reinterpret_cast<const void*>(native_creator())), plugin->module_handle());
    copy.close();
    std::filesystem::remove(path);
}

TEST_F(PluginModule, UnloadingTheCopyRemovesTheKeysByName)
{
    // Removal goes by name, whoever entered the key: the copy's static
    // destruction takes out the keys that the first module entered.
    std::string path = copy_of_plugin();
    loaded_module copy(path.c_str());
    ASSERT_NE(copy.handle(), nullptr) << velk::testing::module_error();
    copy.close();
    std::filesystem::remove(path);
    EXPECT_EQ(native_creator(), nullptr);
}
