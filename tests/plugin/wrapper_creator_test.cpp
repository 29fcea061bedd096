// The wrapper creators of the script backends, found through the registry
// of this program, which exports it as a host does. The caches are statics
// of the process: each test works on a backend of its own.
#include "interface/registrar.h"
#include "plugin/hostprobe_plugin.h"
#include "tests/support/host_interface_stub.h"

#include <gtest/gtest.h>

using xt::hostprobe_plugin;

namespace {

velk::creator_fn fake(uintptr_t n) { return reinterpret_cast<velk::creator_fn>(0x3000 + 16 * n); }

class WrapperCreator : public ::testing::Test
{
protected:
    void SetUp() override
    {
        xt::hostprobe_plugin_dispatcher::native_creator(
            plugin, nullptr, velk::iref<velk::stubsmith_interface>(new xt::testing::host_interface_stub));
        ASSERT_TRUE(plugin);
    }

    velk::iref<hostprobe_plugin> plugin;
};

} // namespace

TEST_F(WrapperCreator, ScriptBackendFindsItsCreatorUnderItsWrapperKey)
{
    velk::register_creator("xt::hostprobe_plugin@wrapper.js", fake(1));
    EXPECT_EQ(plugin->wrapper_creator(velk::backend_js), fake(1));
    velk::register_creator("xt::hostprobe_plugin@wrapper.js", nullptr);
}

TEST_F(WrapperCreator, FoundCreatorIsCached)
{
    velk::register_creator("xt::hostprobe_plugin@wrapper.lua", fake(2));
    plugin->wrapper_creator(velk::backend_lua);
    velk::register_creator("xt::hostprobe_plugin@wrapper.lua", nullptr);
    EXPECT_EQ(plugin->wrapper_creator(velk::backend_lua), fake(2));
}

TEST_F(WrapperCreator, FailedLookupIsTriedAgain)
{
    EXPECT_EQ(plugin->wrapper_creator(velk::backend_jsc), nullptr);
    velk::register_creator("xt::hostprobe_plugin@wrapper.jsc", fake(3));
    EXPECT_EQ(plugin->wrapper_creator(velk::backend_jsc), fake(3));
    velk::register_creator("xt::hostprobe_plugin@wrapper.jsc", nullptr);
}

TEST_F(WrapperCreator, NativeBackendGivesNullWhileItsKeyIsThere)
{
    velk::register_creator("xt::hostprobe_plugin@wrapper", fake(4));
    EXPECT_EQ(plugin->wrapper_creator(velk::backend_native), nullptr);
    velk::register_creator("xt::hostprobe_plugin@wrapper", nullptr);
}

TEST_F(WrapperCreator, UnknownBackendGivesNull)
{
    EXPECT_EQ(plugin->wrapper_creator(static_cast<velk::backend>(4)), nullptr);
}
