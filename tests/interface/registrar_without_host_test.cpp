// The front in a program that exports no iglo_registrar: nothing reaches a
// registry, the log call still works, and a plug-in loaded by such a host
// ends the process with the registrar's words. HOSTPROBE_PLUGIN and
// BARE_HOST are paths from the build.
#include "interface/registrar.h"

#include "comm/exception.h"
#include "tests/support/child_process.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// The text of what f throws as velk::exception; empty when it throws nothing.
template <class F>
std::string thrown_text(F f)
{
    try {
        f();
    } catch (const velk::exception& e) {
        return e.what();
    }
    return "";
}

void some_creator() {}

} // namespace

TEST(RegistrarWithoutHost, RegistrarThrowsNoEntryPoint)
{
    EXPECT_EQ(thrown_text([] { velk::registrar(); }), "no stubsmith entry point found");
}

TEST(RegistrarWithoutHost, RegisterCreatorThrowsNoEntryPoint)
{
    auto c = reinterpret_cast<velk::creator_fn>(&some_creator);
    EXPECT_EQ(thrown_text([c] { velk::register_creator("t::a@wrapper", c); }), "no stubsmith entry point found");
}

TEST(RegistrarWithoutHost, GetCreatorThrowsNoEntryPoint)
{
    EXPECT_EQ(thrown_text([] { velk::get_creator("t::a@wrapper"); }), "no stubsmith entry point found");
}

TEST(RegistrarWithoutHost, RegistrarIfFoundIsNull)
{
    EXPECT_EQ(velk::registrar_if_found(), nullptr);
}

TEST(RegistrarWithoutHost, LogCallFallsBackOnTheModulesOwnLine)
{
    velk::testing::log_capture capture;
    VELK_LOG(2, "regtest") << "still written";
    EXPECT_EQ(capture.lines(), std::vector<std::string>{"still written"});
}

// -- A plug-in in a host without registry --------------------------------------

TEST(HostWithoutRegistry, CannotTakeThePlugin)
{
    velk::testing::child_result r = velk::testing::run_child({BARE_HOST, HOSTPROBE_PLUGIN});
    EXPECT_NE(r.exit_status, 0);
    EXPECT_EQ(r.out.find("loaded"), std::string::npos) << r.out;
}

TEST(HostWithoutRegistry, EndsWithTheRegistrarsWordsOnItsErrorOutput)
{
    velk::testing::child_result r = velk::testing::run_child({BARE_HOST, HOSTPROBE_PLUGIN});
    EXPECT_NE(r.err.find("no stubsmith entry point found"), std::string::npos) << r.err;
}
