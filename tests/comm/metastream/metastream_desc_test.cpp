// metastream descriptors: the per-thread map, definitions of primitives,
// arrays and structures, and the closing of array parents.
#include "comm/metastream/metastream.h"
#include "tests/comm/metastream/test_types.h"

#include <gtest/gtest.h>

#include <cstring>
#include <latch>
#include <thread>
#include <typeinfo>

using namespace velk;
using namespace velk::testing;

namespace {

// Runs T's streaming function in define mode, as a run does before it streams.
template <class T>
void define(metastream& m)
{
    m.reset(false, false);
    m.root.desc = nullptr;
    m.parent_var = nullptr;
    stream_meta(m, static_cast<T*>(nullptr));
}

struct two_texts
{
    charstr a;
    charstr b;
};

void stream_meta(metastream& m, two_texts* p)
{
    if (!m.struct_begin("two_texts", p))
        return;
    m.member("a", p, &two_texts::a);
    m.member("b", p, &two_texts::b);
    m.struct_end();
}

// A type name that no other test defines, so that each test sees a fresh one.
struct fresh_a
{
    int32_t v = 0;
};
void stream_meta(metastream& m, fresh_a* p)
{
    if (!m.struct_begin("fresh_a", p))
        return;
    m.member("v", p, &fresh_a::v);
    m.struct_end();
}

} // namespace

TEST(MetastreamDesc, DefiningCharstrTwiceCreatesOneArrayAndOneCharDescriptor)
{
    // On a thread of its own, so that no other test has defined them yet.
    std::thread([] {
        metastream m;
        uint64_t before = m.map->count();
        define<two_texts>(m);
        EXPECT_EQ(m.map->count(), before + 3); // two_texts, charstr, char
        metastream::type_desc* d = m.root.desc;
        ASSERT_EQ(d->children.size(), 2u);
        EXPECT_EQ(d->children[0].desc, d->children[1].desc);
    }).join();
}

TEST(MetastreamDesc, ASecondDefinitionOfCharstrAddsOnlyAVariable)
{
    std::thread([] {
        metastream m;
        define<charstr>(m);
        metastream::type_desc* first = m.root.desc;
        uint64_t count = m.map->count();
        define<charstr>(m);
        EXPECT_EQ(m.root.desc, first);
        EXPECT_EQ(m.map->count(), count);
        EXPECT_EQ(first->children.size(), 1u);
    }).join();
}

TEST(MetastreamDesc, AnArrayOfArraysClosesBothLevels)
{
    metastream m;
    define<dynarray<dynarray<int32_t>>>(m);
    EXPECT_EQ(m.parent_var, nullptr);
    EXPECT_TRUE(m.map->stack.is_empty());
    ASSERT_TRUE(m.root.desc->is_array);
    EXPECT_TRUE(m.root.desc->children[0].desc->is_array);
}

TEST(MetastreamDesc, ACharstrRootIsAnArrayWithOneNamelessChild)
{
    metastream m;
    define<charstr>(m);
    metastream::type_desc* d = m.root.desc;
    EXPECT_EQ(d->is_array, 1);
    EXPECT_EQ(d->is_plain, 0);
    EXPECT_EQ(d->array_size, UINT64_MAX);
    ASSERT_EQ(d->children.size(), 1u);
    EXPECT_TRUE(d->children[0].varname.is_empty());
    EXPECT_EQ(d->children[0].desc->kind.word(), 0x50001u);
}

TEST(MetastreamDesc, TheKeyDescriptorHasTheCharKind)
{
    metastream m;
    define<bstype::key>(m);
    EXPECT_EQ(m.root.desc->kind.word(), 0x50001u);
    EXPECT_TRUE(m.root.desc->type_name == token("bstype::key"));
}

TEST(MetastreamDesc, ATypeIsDefinedOncePerThreadAndFoundByName)
{
    metastream m;
    define<shape>(m);
    metastream::type_desc* d = m.root.desc;
    uint64_t count = m.map->count();
    define<shape>(m);
    EXPECT_EQ(m.root.desc, d);
    EXPECT_EQ(m.map->count(), count);
    EXPECT_EQ(m.map->find("shape"), d);
    EXPECT_EQ(d->stream_desc, d);
}

TEST(MetastreamDesc, AStructureListsItsMembersInOrderWithFlags)
{
    metastream m;
    define<settings>(m);
    metastream::type_desc* d = m.root.desc;
    ASSERT_EQ(d->children.size(), 7u);
    EXPECT_TRUE(d->children[0].varname == "level");
    EXPECT_EQ(d->children[0].optional, 1);
    EXPECT_EQ(d->children[2].obsolete, 1);
    EXPECT_FALSE(d->children[3].defval.is_empty());
}

TEST(MetastreamDesc, ADefaultValueIsAWordLeadingToTheValue)
{
    const meta::byte_array& d = retries_default();
    ASSERT_EQ(d.size(), 12u); // the word, then the 4-byte value
    uint64_t word;
    int32_t value;
    memcpy(&word, d.ptr(), 8);
    memcpy(&value, d.ptr() + 8, 4);
    EXPECT_EQ(word, 8u);
    EXPECT_EQ(value, 3);
}

TEST(MetastreamDesc, TwoThreadsDefiningTheSameTypeGetTheirOwnMaps)
{
    metastream::structure_map* maps[2] = {};
    metastream::type_desc* descs[2] = {};
    // Both wait here until the other has its metastream: the definitions
    // then run at once.
    std::latch start(2);
    auto run = [&](int i) {
        metastream m;
        start.arrive_and_wait();
        define<fresh_a>(m);
        maps[i] = m.map;
        descs[i] = m.root.desc;
    };
    std::thread a(run, 0), b(run, 1);
    a.join();
    b.join();
    EXPECT_NE(maps[0], maps[1]);
    EXPECT_NE(descs[0], descs[1]);
    EXPECT_NE(maps[0], &metastream::get_structure_map());
    EXPECT_EQ(maps[0]->find("fresh_a"), descs[0]);
}

TEST(MetastreamDesc, TheSameThreadAlwaysGetsTheSameMap)
{
    EXPECT_EQ(&metastream::get_structure_map(), &metastream::get_structure_map());
}

TEST(MetastreamDesc, ASecondDefinitionWithAnotherKindLeavesTheFirst)
{
    metastream m;
    m.reset(false, false);
    m.root.desc = nullptr;
    m.define_primitive("kind_probe", bstype::kind_of<int32_t>());
    m.root.desc = nullptr;
    m.define_primitive("kind_probe", bstype::kind_of<double>());
    EXPECT_EQ(m.map->find("kind_probe")->kind.word(), bstype::kind_of<int32_t>().word());
    EXPECT_EQ(m.root.desc->kind.word(), bstype::kind_of<int32_t>().word());
}

TEST(MetastreamDesc, CreateRefusesANameThatIsThere)
{
    metastream::structure_map map;
    EXPECT_NE(map.create("t", bstype::kind_of<int16_t>(), 0), nullptr);
    EXPECT_EQ(map.create("t", bstype::kind_of<int32_t>(), 0), nullptr);
    EXPECT_EQ(map.find("t")->object_size, 2u);
}

TEST(MetastreamDesc, ANewMapStartsWith64Buckets)
{
    metastream::structure_map map;
    EXPECT_EQ(map.map->table.bucket_count(), 64u);
}

TEST(MetastreamDesc, AnAnonymousDescriptorHasTheDefaults)
{
    metastream::structure_map map;
    metastream::type_desc* d = map.create_anonymous();
    EXPECT_EQ(d->kind.word(), 0xFF0000u);
    EXPECT_EQ(d->is_plain, 1);
    EXPECT_EQ(d->offset, -1);
    EXPECT_EQ(d->array_size, 0u);
    EXPECT_EQ(map.count(), 0u);
    EXPECT_EQ(map.map->anonymous.size(), 1u);
}

TEST(MetastreamDesc, ListGivesEveryKeyedDescriptor)
{
    metastream::structure_map map;
    map.create("a", bstype::kind_of<int8_t>(), 0);
    map.create("b", bstype::kind_of<int8_t>(), 0);
    dynarray<metastream::type_desc*, uint32_t> all;
    map.list(all);
    EXPECT_EQ(all.size(), 2u);
}

TEST(MetastreamDesc, AddVarCopiesTheNameAndAnEmptyNameStaysEmpty)
{
    metastream::type_desc parent;
    metastream::type_desc child;
    metastream::var_desc* v = meta::add_var(parent, &child, "m", 0);
    EXPECT_TRUE(v->varname == "m");
    metastream::var_desc* e = meta::add_var(parent, &child, token(), 0);
    EXPECT_TRUE(e->varname.is_empty());
    EXPECT_EQ(parent.children.size(), 2u);
}
