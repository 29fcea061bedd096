// interface_from_lua in a real LuaJIT state: the host's object found behind
// an object table, and null for every kind of value that is not one.
#include "bindings/lua/interface_from_lua.h"

#include <gtest/gtest.h>

#include <string>

using velk::lua::interface_from_lua;

namespace {

// An object with the host's interface hash, as a host gives one.
class fake_host : public velk::stubsmith_interface
{
public:
    explicit fake_host(uint32_t hash = 0x38934D07u) : _hash(hash) {}
    uint32_t interface_hash() const override { return _hash; }
    bool is_derived(int32_t h) const override { return static_cast<uint32_t>(h) == _hash; }
    const velk::tokenhash& interface_name() const override { return name; }
    velk::backend backend() const override { return velk::backend_native; }
    velk::creator_fn wrapper_creator(velk::backend) const override { return nullptr; }
    const velk::token& wrapper_key(velk::backend) const override { return key; }

    velk::tokenhash name{"fake_host"};
    velk::token key;

private:
    uint32_t _hash;
};

class LuaInterface : public ::testing::Test
{
protected:
    void SetUp() override
    {
        L = luaL_newstate();
        luaL_openlibs(L);
    }
    void TearDown() override { lua_close(L); }

    // Runs a chunk that returns one value and leaves it on the stack.
    void push_value(const char* expression)
    {
        std::string chunk = std::string("return ") + expression;
        ASSERT_EQ(luaL_loadstring(L, chunk.c_str()), 0) << lua_tostring(L, -1);
        ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0) << lua_tostring(L, -1);
    }

    // An object table as the dispatchers make it: "__cthis" a userdata with
    // the object's address, "__class_hash" a number.
    void push_object(velk::stubsmith_interface* object, double class_hash)
    {
        lua_createtable(L, 0, 2);
        auto** u = static_cast<velk::stubsmith_interface**>(lua_newuserdata(L, sizeof(void*)));
        *u = object;
        lua_setfield(L, -2, "__cthis");
        lua_pushnumber(L, class_hash);
        lua_setfield(L, -2, "__class_hash");
    }

    lua_State* L = nullptr;
    velk::iref<velk::stubsmith_interface> host{new fake_host};
};

TEST_F(LuaInterface, FindsTheHostObjectBehindAnObjectTable)
{
    push_object(host.get(), 0x38934D07u);
    uint32_t before = host->refcount();
    velk::iref<velk::stubsmith_interface> got = interface_from_lua(L);
    EXPECT_EQ(got.get(), host.get());
    EXPECT_EQ(host->refcount(), before + 1); // a reference added
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaInterface, GivesNullForAValueThatIsNoTable)
{
    push_value("'text'");
    EXPECT_FALSE(interface_from_lua(L));
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaInterface, GivesNullForATableWithoutCthis)
{
    push_value("{__class_hash = 0x38934D07}");
    EXPECT_FALSE(interface_from_lua(L));
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaInterface, GivesNullForATableWithoutClassHash)
{
    push_object(host.get(), 0x38934D07u);
    lua_pushnil(L);
    lua_setfield(L, -2, "__class_hash");
    EXPECT_FALSE(interface_from_lua(L));
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaInterface, GivesNullWhenTheClassHashIsNotTheObjects)
{
    push_object(host.get(), 0xCD59A835u);
    EXPECT_FALSE(interface_from_lua(L));
}

TEST_F(LuaInterface, GivesNullForAnObjectOfAnotherInterface)
{
    velk::iref<velk::stubsmith_interface> other(new fake_host(0xCD59A835u));
    push_object(other.get(), 0xCD59A835u);
    EXPECT_FALSE(interface_from_lua(L));
}

TEST_F(LuaInterface, GivesNullForAUserdataThatHoldsNull)
{
    push_object(nullptr, 0x38934D07u);
    EXPECT_FALSE(interface_from_lua(L));
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaInterface, GivesNullForAUserdataOfAnotherSize)
{
    push_object(host.get(), 0x38934D07u);
    lua_newuserdata(L, 1);
    lua_setfield(L, -2, "__cthis");
    EXPECT_FALSE(interface_from_lua(L));
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaInterface, DoesNotRunAMetamethodOfTheTable)
{
    push_value("setmetatable({}, {__index = function() error('no metamethods here') end})");
    EXPECT_FALSE(interface_from_lua(L));
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaInterface, GivesNullWhenCthisIsNoUserdata)
{
    push_value("{__cthis = 5, __class_hash = 0x38934D07}");
    EXPECT_FALSE(interface_from_lua(L));
    EXPECT_EQ(lua_gettop(L), 0);
}

} // namespace
