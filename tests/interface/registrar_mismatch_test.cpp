// A process whose registry reports another version: this program exports an
// iglo_registrar of its own (so the library's is left out of the link) that
// gives such a registry. The front refuses to register and to look up, and
// says so in the log; the plug-in loads all the same, without keys.
// HOSTPROBE_PLUGIN is the plug-in's path from the build.
#include "interface/registrar.h"

#include "comm/log/logger.h"
#include "tests/support/log_capture.h"

#include "tests/support/module_loader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// A registry of the same layout whose version check always fails, as one
// built against another version would answer.
class other_version_registry : public velk::interface_register_impl
{
public:
    bool version_ok(int32_t) override { return false; }
};

other_version_registry& the_registry()
{
    static other_version_registry r;
    return r;
}

std::vector<std::string> lines;

// Records the body of each line at its delivery.
class line_recorder : public velk::logger
{
public:
    void enqueue(velk::log_ref& msg) override { lines.push_back(velk::testing::log_body(*msg)); }
};

// Both this program's lines and the plug-in's come through the registry's hook.
void record(velk::log_ref& out, int32_t type, const velk::tokenhash& source, const void* context)
{
    static line_recorder recorder;
    out = recorder.create_msg(type, source, context);
}

void some_creator() {}

class OtherVersion : public ::testing::Test
{
protected:
    void SetUp() override
    {
        the_registry().setup("", &record, nullptr, nullptr);
        lines.clear();
    }
    velk::creator_fn creator = reinterpret_cast<velk::creator_fn>(&some_creator);
};

} // namespace

extern "C" VELK_MODULE_EXPORT velk::interface_register_impl* iglo_registrar()
{
    return &the_registry();
}

TEST_F(OtherVersion, RegistrationIsRefused)
{
    EXPECT_FALSE(velk::register_creator("t::a@wrapper", creator));
}

TEST_F(OtherVersion, RefusedRegistrationEntersNothing)
{
    velk::register_creator("t::a@wrapper", creator);
    EXPECT_EQ(the_registry().count(), 0u);
}

TEST_F(OtherVersion, RefusedRegistrationIsLogged)
{
    velk::register_creator("t::a@wrapper", creator);
    EXPECT_EQ(lines, std::vector<std::string>{
                         "declined interface registration for t::a@wrapper, mismatched stubsmith version (v7)"});
}

TEST_F(OtherVersion, RefusedRemovalIsSilent)
{
    EXPECT_FALSE(velk::register_creator("t::a@wrapper", nullptr));
    EXPECT_TRUE(lines.empty());
}

TEST_F(OtherVersion, LookupGivesNullEvenForAKeyInTheTable)
{
    the_registry().hook_creator("t::present@wrapper", creator);
    EXPECT_EQ(velk::get_creator("t::present@wrapper"), nullptr);
    the_registry().hook_creator("t::present@wrapper", nullptr);
}

TEST_F(OtherVersion, LookupIsLoggedWithoutBlankBeforeTheVersion)
{
    velk::get_creator("t::b@wrapper");
    EXPECT_EQ(lines, std::vector<std::string>{"mismatched stubsmith version for t::b@wrapper(v7)"});
}

TEST_F(OtherVersion, PluginLoadsAllTheSame)
{
    void* plugin = velk::testing::load_module(HOSTPROBE_PLUGIN);
    EXPECT_NE(plugin, nullptr) << velk::testing::module_error();
    if (plugin)
        velk::testing::unload_module(plugin);
}

// The plug-in enters its JavaScript keys only where it has V8.
bool is_javascript_key(const std::string& key)
{
    return key.find("::js::") != std::string::npos || key.ends_with(".js");
}

TEST_F(OtherVersion, PluginsKeysAreRefusedOneByOne)
{
    void* plugin = velk::testing::load_module(HOSTPROBE_PLUGIN);
    ASSERT_NE(plugin, nullptr) << velk::testing::module_error();
    EXPECT_EQ(the_registry().count(), 0u);
    std::vector<std::string> expected;
    for (const char* key : {"xt::hostprobe_plugin@wrapper", "xt::hostprobe_plugin.create@3445205045",
                            "xt::hostprobe_plugin.create@creator.js", "xt::js::hostprobe_plugin.create",
                            "xt::hostprobe_plugin@wrapper.js", "xt::hostprobe_plugin@maker.js",
                            "lua::register_class.xt_hostprobe_plugin", "xt::hostprobe_plugin.create@creator.lua",
                            "xt::lua::hostprobe_plugin.create", "xt::hostprobe_plugin@wrapper.lua"})
        if (HOSTPROBE_WITH_JS || !is_javascript_key(key))
            expected.push_back(std::string("declined interface registration for ") + key +
                           ", mismatched stubsmith version (v7)");
    EXPECT_EQ(lines, expected);
    velk::testing::unload_module(plugin);
}

TEST_F(OtherVersion, UnloadedPluginsRemovalsAreSilent)
{
    void* plugin = velk::testing::load_module(HOSTPROBE_PLUGIN);
    ASSERT_NE(plugin, nullptr) << velk::testing::module_error();
    lines.clear();
    velk::testing::unload_module(plugin);
    EXPECT_TRUE(lines.empty());
}
