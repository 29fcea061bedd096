#include "plugin/hostprobe_plugin.h"

#include "comm/commassert.h"
#include "comm/exception.h"
#include "plugin/simplugin.h"
#include "tests/plugin/sysfs_adapters.h"
#include "tests/support/host_interface_stub.h"

#include <gtest/gtest.h>

using xt::hostprobe_plugin;
using xt::hostprobe_plugin_dispatcher;
using xt::testing::host_interface_stub;

namespace {

velk::iref<velk::stubsmith_interface> make_host()
{
    return velk::iref<velk::stubsmith_interface>(new host_interface_stub);
}

velk::iref<hostprobe_plugin> create_plugin()
{
    velk::iref<hostprobe_plugin> out;
    hostprobe_plugin_dispatcher::native_creator(out, nullptr, make_host());
    return out;
}

} // namespace

TEST(HostprobePlugin, TestfunctionDoublesWithWrap)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    ASSERT_TRUE(p);
    EXPECT_EQ(p->testfunction(0x40000000), INT32_MIN);
    EXPECT_EQ(p->testfunction(-1), -2);
    EXPECT_EQ(p->testfunction(21), 42);
}

TEST(HostprobePlugin, GetMacOfThisMachineMatchesSysfs)
{
    SKIP_WITHOUT_SYSFS();
    velk::charstr text = create_plugin()->getMAC();
    EXPECT_EQ(std::string(text.c_str()), xt::testing::sysfs_adapter_text(xt::testing::sysfs_adapters()));
}

TEST(HostprobePlugin, GetMacIsTheFirstEntryOfTheMethodTable)
{
    using entry = velk::charstr (*)(velk::counted_base*);
    velk::iref<hostprobe_plugin> p = create_plugin();
    velk::charstr direct = reinterpret_cast<entry>(hostprobe_plugin::get_method_table()[0])(p->host());
    EXPECT_EQ(std::string(direct.c_str()), std::string(p->getMAC().c_str()));
}

TEST(HostprobePlugin, MersenneTwisterGivesTheFirstOutputForSeedZero)
{
    EXPECT_EQ(create_plugin()->mersenne_twister(0), 2357136044u);
}

TEST(HostprobePlugin, MersenneTwisterOfThePublishedSeedGivesThePublishedFirstOutput)
{
    EXPECT_EQ(create_plugin()->mersenne_twister(5489), 3499211612u);
}

TEST(HostprobePlugin, MersenneTwisterHasNoStateBetweenCalls)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    EXPECT_EQ(p->mersenne_twister(12345), p->mersenne_twister(12345));
}

TEST(HostprobePlugin, WrapperKeyOfNativeIsEmptyNotNull)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    const velk::token& k = p->wrapper_key(velk::backend_native);
    EXPECT_TRUE(k.is_empty());
    EXPECT_FALSE(k.is_null());
}

TEST(HostprobePlugin, WrapperKeyOfUnknownBackendIsNull)
{
    EXPECT_TRUE(create_plugin()->wrapper_key(static_cast<velk::backend>(4)).is_null());
}

TEST(HostprobePlugin, WrapperKeyOfAScriptBackendEndsInItsLanguage)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    EXPECT_TRUE(p->wrapper_key(velk::backend_js) == velk::token("xt::hostprobe_plugin@wrapper.js"));
    EXPECT_TRUE(p->wrapper_key(velk::backend_jsc) == velk::token("xt::hostprobe_plugin@wrapper.jsc"));
    EXPECT_TRUE(p->wrapper_key(velk::backend_lua) == velk::token("xt::hostprobe_plugin@wrapper.lua"));
}

TEST(HostprobePlugin, WrapperCreatorOfNativeIsNullWithoutAskingTheRegistry)
{
    // This program exports no registry: asking would throw.
    EXPECT_EQ(create_plugin()->wrapper_creator(velk::backend_native), nullptr);
}

TEST(HostprobePlugin, WrapperCreatorOfAScriptBackendAsksTheRegistry)
{
    EXPECT_THROW(create_plugin()->wrapper_creator(velk::backend_js), velk::exception);
}

TEST(HostprobePlugin, NativeCreatorKeyCarriesTheInterfaceHashInDecimal)
{
    velk::charstr expected;
    expected << "xt::hostprobe_plugin.create@" << hostprobe_plugin::hash;
    EXPECT_TRUE(expected == hostprobe_plugin::native_creator_key);
}

TEST(HostprobePlugin, IsDerivedOnlyForItsOwnHash)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    EXPECT_TRUE(p->is_derived(static_cast<int32_t>(0xCD59A835u)));
    EXPECT_FALSE(p->is_derived(static_cast<int32_t>(0x38934D07u)));
    EXPECT_FALSE(p->is_derived(0));
}

TEST(HostprobePlugin, IdentitySlotsAnswerAsTheNativeInterface)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    EXPECT_EQ(p->interface_hash(), 0xCD59A835u);
    EXPECT_TRUE(p->interface_name() == velk::token("xt::hostprobe_plugin"));
    EXPECT_EQ(p->interface_name().hash(), velk::token("xt::hostprobe_plugin").hash());
    EXPECT_EQ(p->backend(), velk::backend_native);
    EXPECT_EQ(p->real_interface(), p.get());
}

TEST(HostprobePlugin, CreatorKeyNumberIsTheInterfaceHash)
{
    EXPECT_EQ(velk::token("3445205045").touint(), hostprobe_plugin::hash);
}

// -- Creators --------------------------------------------------------------

TEST(NativeCreator, WithoutHostGivesNull)
{
    velk::iref<hostprobe_plugin> out = create_plugin();
    hostprobe_plugin_dispatcher::native_creator(out, nullptr, {});
    EXPECT_TRUE(out.is_empty());
}

TEST(NativeCreator, WithoutHostThrowsWhenThrowingAssertionsAreOn)
{
    velk::assert_set_throw(1);
    velk::iref<hostprobe_plugin> out;
    EXPECT_THROW(hostprobe_plugin_dispatcher::native_creator(out, nullptr, {}), velk::exception);
    velk::assert_set_throw(0);
    EXPECT_TRUE(out.is_empty());
}

TEST(NativeCreator, OutHoldsOneReferenceAndPluginHoldsHost)
{
    host_interface_stub::alive = 0;
    {
        velk::iref<hostprobe_plugin> p = create_plugin();
        EXPECT_EQ(p->refcount(), 1u);
        ASSERT_NE(p->host(), nullptr);
        EXPECT_EQ(p->host()->refcount(), 1u);
        EXPECT_EQ(host_interface_stub::alive, 1);
        EXPECT_EQ(p->method_table(), hostprobe_plugin::get_method_table());
    }
    EXPECT_EQ(host_interface_stub::alive, 0);
}

TEST(NativeCreator, UsesGivenInstance)
{
    auto* d = new hostprobe_plugin_dispatcher;
    velk::iref<hostprobe_plugin> out;
    hostprobe_plugin_dispatcher::native_creator(out, d, make_host());
    EXPECT_EQ(out.get(), d);
    EXPECT_EQ(d->refcount(), 1u);
    EXPECT_EQ(out->testfunction(4), 8);
}

TEST(NativeCreator, RebindingReleasesEarlierHost)
{
    host_interface_stub::alive = 0;
    auto* d = new hostprobe_plugin_dispatcher;
    velk::iref<hostprobe_plugin> out;
    hostprobe_plugin_dispatcher::native_creator(out, d, make_host());
    velk::iref<hostprobe_plugin> again;
    hostprobe_plugin_dispatcher::native_creator(again, d, make_host());
    EXPECT_EQ(host_interface_stub::alive, 1);
}

TEST(NativeWrapperCreator, BindsExistingNativeObject)
{
    velk::iref<xt::simplugin> plugin = xt::simplugin::make(make_host());
    velk::iref<hostprobe_plugin> out;
    hostprobe_plugin_dispatcher::native_wrapper_creator(out, plugin.get(), nullptr);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->host(), plugin.get());
    EXPECT_EQ(plugin->refcount(), 2u);
    EXPECT_EQ(out->mersenne_twister(5489), 3499211612u);
}

TEST(MethodTable, SameTableOnEveryRequest)
{
    EXPECT_EQ(hostprobe_plugin::get_method_table(), hostprobe_plugin::get_method_table());
}

TEST(MethodTable, EveryRowOfTheListHasItsEntry)
{
    velk::method_fn* t = hostprobe_plugin::get_method_table();
#define EXPECT_ENTRY(name, index, signature) EXPECT_NE(t[index], nullptr) << #name;
    XT_HOSTPROBE_PLUGIN_METHODS(EXPECT_ENTRY)
#undef EXPECT_ENTRY
}

TEST(MethodTable, EntriesAreTheMethodsOfTheirRows)
{
    // Each index calls its own method: 5489 tells the three apart.
    velk::iref<hostprobe_plugin> p = create_plugin();
    velk::method_fn* t = hostprobe_plugin::get_method_table();
    using mt = uint32_t (*)(velk::counted_base*, uint32_t);
    using tf = int32_t (*)(velk::counted_base*, int32_t);
    EXPECT_EQ(reinterpret_cast<mt>(t[hostprobe_plugin::m_mersenne_twister])(p->host(), 5489), 3499211612u);
    EXPECT_EQ(reinterpret_cast<tf>(t[hostprobe_plugin::m_testfunction])(p->host(), 5489), 10978);
}

TEST(MethodTable, AccessorConvertsItsArgumentAsTheRowsSignature)
{
    // A 64-bit argument reaches the 32-bit entry cut, as a call of a function
    // of the row's signature would pass it.
    EXPECT_EQ(create_plugin()->testfunction(int64_t{0x100000015}), 42);
}

TEST(DispatcherDestructor, ClearsTableAndReleasesHost)
{
    host_interface_stub::alive = 0;
    velk::iref<hostprobe_plugin> p = create_plugin();
    p.release();
    EXPECT_EQ(host_interface_stub::alive, 0);
}

// -- Capture ---------------------------------------------------------------

TEST(Capture, Instance254SucceedsWithShiftedId)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    int sink = 0;
    EXPECT_TRUE(p->set_capture(&sink, 254));
    EXPECT_EQ(hostprobe_plugin_dispatcher::capture_id(), 0xFE00u);
    EXPECT_EQ(hostprobe_plugin_dispatcher::capture_sink(), &sink);
}

TEST(Capture, Instance255FailsAndKeepsId)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    ASSERT_TRUE(p->set_capture(nullptr, 3));
    EXPECT_FALSE(p->set_capture(nullptr, 255));
    EXPECT_EQ(hostprobe_plugin_dispatcher::capture_id(), 0x300u);
}

TEST(Capture, CallsBehaveTheSameWithCaptureOn)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    int sink = 0;
    ASSERT_TRUE(p->set_capture(&sink, 1));
    EXPECT_NE(p->method_table(), hostprobe_plugin::get_method_table());
    EXPECT_EQ(p->testfunction(5), 10);
    EXPECT_EQ(p->mersenne_twister(5489), 3499211612u);
    ASSERT_TRUE(p->set_capture(nullptr, 1));
    EXPECT_EQ(p->method_table(), hostprobe_plugin::get_method_table());
}

TEST(Capture, SecondCaptureReplacesSinkForAllButTableOnlyForItsObject)
{
    velk::iref<hostprobe_plugin> a = create_plugin(), b = create_plugin();
    int sink1 = 0, sink2 = 0;
    ASSERT_TRUE(a->set_capture(&sink1, 1));
    ASSERT_TRUE(b->set_capture(nullptr, 2));
    EXPECT_EQ(hostprobe_plugin_dispatcher::capture_sink(), nullptr);
    EXPECT_NE(a->method_table(), hostprobe_plugin::get_method_table());
    ASSERT_TRUE(b->set_capture(&sink2, 2));
    EXPECT_EQ(a->method_table(), b->method_table());
}

TEST(Capture, DispatchCapturedAlwaysThrows)
{
    velk::iref<hostprobe_plugin> p = create_plugin();
    try {
        p->dispatch_captured(0, 0, 0);
        FAIL() << "no exception";
    } catch (const velk::exception& e) {
        EXPECT_STREQ(e.what(), "unknown method id in hostprobe_plugin capture dispatcher");
    }
}

TEST(Capture, BaseInterfaceRefusesCapture)
{
    host_interface_stub host;
    EXPECT_FALSE(host.set_capture(nullptr, 1));
    EXPECT_NO_THROW(host.dispatch_captured(1, 2, 3));
}
