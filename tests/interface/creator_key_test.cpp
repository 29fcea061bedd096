// The parse of registry keys: each part of the grammar, the numbers read
// from suffixes and module parts, and splits at the last separator.
#include "interface/creator_key.h"

#include <gtest/gtest.h>

#include <string>

using velk::creator_key;
using velk::parse_creator_key;
using velk::split_interface_name;

namespace {

std::string str(const velk::token& t) { return std::string(t.ptr() ? t.ptr() : "", t.lens()); }

} // namespace

// -- A script-side key: no suffix at all ---------------------------------------

TEST(CreatorKey, KeyWithoutAtHasNamespaceClassAndMethod)
{
    creator_key k = parse_creator_key("xt::js::hostprobe_plugin.create");
    EXPECT_EQ(str(k.ns), "xt::js");
    EXPECT_EQ(str(k.class_name), "hostprobe_plugin");
    EXPECT_EQ(str(k.method), "create");
}

TEST(CreatorKey, KeyWithoutAtHasEmptyKindScriptAndNoHash)
{
    creator_key k = parse_creator_key("xt::js::hostprobe_plugin.create");
    EXPECT_TRUE(k.kind.is_empty());
    EXPECT_TRUE(k.script.is_empty());
    EXPECT_EQ(k.hash, 0u);
}

// -- Numbers in the suffix ---------------------------------------------------------

TEST(CreatorKey, NativeCreatorKeyReadsTheInterfaceHash)
{
    creator_key k = parse_creator_key("xt::hostprobe_plugin.create@3445205045");
    EXPECT_EQ(str(k.kind), "3445205045");
    EXPECT_EQ(k.hash, 3445205045u);
    EXPECT_EQ(str(k.method), "create");
}

TEST(CreatorKey, ClientHookGivesKindClientItsHashAndTheClientAsScript)
{
    creator_key k = parse_creator_key("a@client-12.b.c");
    EXPECT_EQ(str(k.kind), "client");
    EXPECT_EQ(k.hash, 12u);
    EXPECT_EQ(str(k.script), "b.c");
}

TEST(CreatorKey, ClientWithoutDashHasNoHash)
{
    creator_key k = parse_creator_key("a@client");
    EXPECT_EQ(str(k.kind), "client");
    EXPECT_EQ(k.hash, 0u);
}

TEST(CreatorKey, SeventhCharacterMustBeTheDash)
{
    creator_key k = parse_creator_key("a@clients-1");
    EXPECT_EQ(str(k.kind), "clients-1");
    EXPECT_EQ(k.hash, 0u);
}

TEST(CreatorKey, SuffixStartingWithDigitsReadsThemAndKeepsTheKind)
{
    creator_key k = parse_creator_key("a@12x");
    EXPECT_EQ(k.hash, 12u);
    EXPECT_EQ(str(k.kind), "12x");
}

TEST(CreatorKey, SuffixNumberWrapsAt32Bits)
{
    // 2^32 + 5 wraps to 5.
    EXPECT_EQ(parse_creator_key("a@4294967301").hash, 5u);
}

TEST(CreatorKey, WordSuffixHasNoHash)
{
    EXPECT_EQ(parse_creator_key("xt::hostprobe_plugin@wrapper").hash, 0u);
}

// -- Script and kind -----------------------------------------------------------------

TEST(CreatorKey, SuffixSplitsAtItsFirstDot)
{
    creator_key k = parse_creator_key("xt::hostprobe_plugin.create@creator.js.x");
    EXPECT_EQ(str(k.kind), "creator");
    EXPECT_EQ(str(k.script), "js.x");
}

TEST(CreatorKey, WrapperKeyHasNoMethod)
{
    creator_key k = parse_creator_key("xt::hostprobe_plugin@wrapper.lua");
    EXPECT_EQ(str(k.class_name), "hostprobe_plugin");
    EXPECT_TRUE(k.method.is_empty());
    EXPECT_EQ(str(k.kind), "wrapper");
    EXPECT_EQ(str(k.script), "lua");
}

TEST(CreatorKey, NameWithoutNamespaceHasEmptyNamespace)
{
    creator_key k = parse_creator_key("lua::register_class.xt_hostprobe_plugin");
    EXPECT_EQ(str(k.ns), "lua");
    EXPECT_EQ(str(k.class_name), "register_class");
    EXPECT_EQ(str(k.method), "xt_hostprobe_plugin");
    EXPECT_TRUE(parse_creator_key("plain").ns.is_empty());
}

// -- The module part -------------------------------------------------------------------

TEST(CreatorKey, ModulePartGivesFileAndHandle)
{
    creator_key k = parse_creator_key("xt::hostprobe_plugin@wrapper*hostprobe_plugin.so:140714283171840");
    EXPECT_EQ(str(k.key), "xt::hostprobe_plugin@wrapper");
    EXPECT_EQ(str(k.module), "hostprobe_plugin.so");
    EXPECT_EQ(k.module_handle, 140714283171840ull);
}

TEST(CreatorKey, ModulePartWithoutHandleIsTheFile)
{
    creator_key k = parse_creator_key("k*file.so");
    EXPECT_EQ(str(k.module), "file.so");
    EXPECT_EQ(k.module_handle, 0u);
}

TEST(CreatorKey, ModulePartTakesNoPartInTheOtherFields)
{
    creator_key k = parse_creator_key("a.b@c.d*x.y@z::w:7");
    EXPECT_EQ(str(k.method), "b");
    EXPECT_EQ(str(k.script), "d");
    EXPECT_TRUE(k.ns.is_empty());
}

TEST(CreatorKey, KeyWithoutModulePartIsTheWholeText)
{
    creator_key k = parse_creator_key("xt::hostprobe_plugin@wrapper");
    EXPECT_EQ(str(k.key), "xt::hostprobe_plugin@wrapper");
    EXPECT_TRUE(k.module.is_empty());
}

// -- Several separators: the last one splits ---------------------------------------------

TEST(CreatorKey, SeveralStarsSplitAtTheLast)
{
    creator_key k = parse_creator_key("a*b*m.so:3");
    EXPECT_EQ(str(k.key), "a*b");
    EXPECT_EQ(str(k.module), "m.so");
}

TEST(CreatorKey, SeveralAtsSplitAtTheLast)
{
    creator_key k = parse_creator_key("a@b@wrapper");
    EXPECT_EQ(str(k.kind), "wrapper");
    EXPECT_EQ(str(k.class_name), "a@b");
}

TEST(CreatorKey, SeveralColonsInTheModuleSplitAtTheLast)
{
    creator_key k = parse_creator_key("k*c:/dir:x/m.so:42");
    EXPECT_EQ(str(k.module), "c:/dir:x/m.so");
    EXPECT_EQ(k.module_handle, 42u);
}

TEST(CreatorKey, SeveralNamespacesSplitAtTheLastDoubleColon)
{
    creator_key k = parse_creator_key("a::b::c.d");
    EXPECT_EQ(str(k.ns), "a::b");
    EXPECT_EQ(str(k.class_name), "c");
}

TEST(CreatorKey, SeveralDotsInTheNameSplitAtTheLast)
{
    creator_key k = parse_creator_key("ns::a.b.c@wrapper");
    EXPECT_EQ(str(k.class_name), "a.b");
    EXPECT_EQ(str(k.method), "c");
}

// -- Every part is a view of the parsed text --------------------------------------------

TEST(CreatorKey, PartsPointIntoTheParsedText)
{
    const char text[] = "xt::js::hostprobe_plugin.create@creator.js*m.so:1";
    creator_key k = parse_creator_key(velk::token(text, sizeof text - 1));
    for (const velk::token* t : {&k.key, &k.ns, &k.class_name, &k.method, &k.kind, &k.script, &k.module}) {
        EXPECT_GE(t->ptr(), text);
        EXPECT_LE(t->ptre(), text + sizeof text - 1);
    }
}

// -- Names as lookups take them -----------------------------------------------------------

TEST(InterfaceName, RunOfColonsSeparatesTheNamespace)
{
    velk::interface_name n = split_interface_name("xt::hostprobe_plugin.create");
    EXPECT_EQ(str(n.ns), "xt");
    EXPECT_EQ(str(n.class_name), "hostprobe_plugin");
    EXPECT_EQ(str(n.method), "create");
}

TEST(InterfaceName, ClassEndsAtTheFirstDot)
{
    velk::interface_name n = split_interface_name("a.b.c");
    EXPECT_EQ(str(n.class_name), "a");
    EXPECT_EQ(str(n.method), "b.c");
}

TEST(InterfaceName, NoColonMeansNoNamespace)
{
    velk::interface_name n = split_interface_name("hostprobe_plugin");
    EXPECT_TRUE(n.ns.is_empty());
    EXPECT_EQ(str(n.class_name), "hostprobe_plugin");
    EXPECT_TRUE(n.method.is_empty());
}
