// registry_handle, weak_registry_handle and the state's set-up, on a bare
// LuaJIT state.
#include "bindings/lua/lua_state.h"
#include "bindings/lua/registry_handle.h"
#include "comm/iref.h"

#include <gtest/gtest.h>
#include <lua.hpp>

using velk::iref;
using velk::lua::registry_handle;
using velk::lua::weak_registry_handle;

namespace {

class RegistryHandle : public ::testing::Test
{
protected:
    ~RegistryHandle() override { lua_close(L); }

    // A new table with t.mark = mark on top of the stack.
    void push_marked(int mark)
    {
        lua_createtable(L, 0, 1);
        lua_pushinteger(L, mark);
        lua_setfield(L, -2, "mark");
    }

    // The mark of the table on top, popped; -1 for anything else.
    int pop_mark()
    {
        int mark = -1;
        if (lua_istable(L, -1)) {
            lua_getfield(L, -1, "mark");
            mark = static_cast<int>(lua_tointeger(L, -1));
            lua_pop(L, 1);
        }
        lua_pop(L, 1);
        return mark;
    }

    lua_State* L = velk::lua::new_state();
};

} // namespace

// -- The state's set-up ------------------------------------------------------------

TEST_F(RegistryHandle, SetupPutsATableWithWeakValuesAtSlot1)
{
    lua_rawgeti(L, LUA_REGISTRYINDEX, 1);
    ASSERT_TRUE(lua_istable(L, -1));
    ASSERT_TRUE(lua_getmetatable(L, -1));
    lua_getfield(L, -1, "__mode");
    EXPECT_STREQ(lua_tostring(L, -1), "v");
}

TEST_F(RegistryHandle, SetupPutsAMetatableWithGcAtSlot2)
{
    lua_rawgeti(L, LUA_REGISTRYINDEX, 2);
    ASSERT_TRUE(lua_istable(L, -1));
    lua_getfield(L, -1, "__gc");
    EXPECT_TRUE(lua_iscfunction(L, -1));
}

TEST_F(RegistryHandle, GcMetatableDropsOneReferenceWhenTheUserdataIsCollected)
{
    struct counted : velk::counted_base
    {
    };
    iref<counted> object(new counted);
    object->add_refcount(); // the userdata's reference
    auto* p = static_cast<velk::counted_base**>(lua_newuserdata(L, sizeof(void*)));
    *p = object.get();
    lua_rawgeti(L, LUA_REGISTRYINDEX, 2);
    lua_setmetatable(L, -2);
    lua_pop(L, 1);
    EXPECT_EQ(object->refcount(), 2u);
    lua_gc(L, LUA_GCCOLLECT, 0);
    EXPECT_EQ(object->refcount(), 1u);
}

TEST_F(RegistryHandle, MainThreadOfACoroutineIsTheStatesMainThread)
{
    lua_State* co = lua_newthread(L);
    EXPECT_EQ(velk::lua::main_thread(co), L);
}

// -- Strong handles ---------------------------------------------------------------

TEST_F(RegistryHandle, NewHandleIsEmpty)
{
    iref<registry_handle> h(new registry_handle(L));
    EXPECT_EQ(h->ref(), 0);
    EXPECT_FALSE(h->is_set());
}

TEST_F(RegistryHandle, SetTakesTheTopValueOffTheStack)
{
    iref<registry_handle> h(new registry_handle(L));
    int top = lua_gettop(L);
    push_marked(7);
    h->set();
    EXPECT_EQ(lua_gettop(L), top);
    EXPECT_NE(h->ref(), 0);
}

TEST_F(RegistryHandle, PushGivesBackTheValueThatWasSet)
{
    iref<registry_handle> h(new registry_handle(L));
    push_marked(7);
    h->set();
    h->push();
    EXPECT_EQ(pop_mark(), 7);
}

TEST_F(RegistryHandle, StrongHandleKeepsItsValueThroughCollections)
{
    iref<registry_handle> h(new registry_handle(L));
    push_marked(7);
    h->set();
    lua_gc(L, LUA_GCCOLLECT, 0);
    h->push();
    EXPECT_EQ(pop_mark(), 7);
}

TEST_F(RegistryHandle, SetOnAFullHandleReleasesTheOldReference)
{
    iref<registry_handle> h(new registry_handle(L));
    push_marked(1);
    h->set();
    int old = h->ref();
    push_marked(2);
    h->set();
    // The old number was freed before the new reference was taken, which
    // therefore reuses it.
    EXPECT_EQ(h->ref(), old);
    h->push();
    EXPECT_EQ(pop_mark(), 2);
}

TEST_F(RegistryHandle, PushOnAnEmptyHandleLeavesTheStackUnchanged)
{
    iref<registry_handle> h(new registry_handle(L));
    int top = lua_gettop(L);
    h->push();
    EXPECT_EQ(lua_gettop(L), top);
}

TEST_F(RegistryHandle, ResetEmptiesTheHandleAndASecondResetDoesNothing)
{
    iref<registry_handle> h(new registry_handle(L));
    push_marked(1);
    h->set();
    int old = h->ref();
    h->reset();
    EXPECT_EQ(h->ref(), 0);
    // A second reset must not put the number on the free list again.
    h->reset();
    lua_pushboolean(L, 1);
    int a = luaL_ref(L, LUA_REGISTRYINDEX);
    lua_pushboolean(L, 1);
    int b = luaL_ref(L, LUA_REGISTRYINDEX);
    EXPECT_EQ(a, old);
    EXPECT_NE(b, old);
}

TEST_F(RegistryHandle, DestroyingAHandleFreesItsRegistrySlotForReuse)
{
    int old = 0;
    {
        iref<registry_handle> h(new registry_handle(L));
        push_marked(1);
        h->set();
        old = h->ref();
    }
    lua_pushboolean(L, 1);
    EXPECT_EQ(luaL_ref(L, LUA_REGISTRYINDEX), old);
}

// -- Weak handles -----------------------------------------------------------------

TEST_F(RegistryHandle, WeakHandlePushesItsValueWhileItLives)
{
    iref<registry_handle> h(new weak_registry_handle(L));
    push_marked(3);
    lua_pushvalue(L, -1);
    h->set(); // the stack keeps a copy alive
    lua_gc(L, LUA_GCCOLLECT, 0);
    h->push();
    EXPECT_EQ(pop_mark(), 3);
    lua_pop(L, 1);
}

TEST_F(RegistryHandle, WeakHandlePushAfterCollectionPushesNil)
{
    iref<registry_handle> h(new weak_registry_handle(L));
    push_marked(3);
    h->set();
    lua_gc(L, LUA_GCCOLLECT, 0);
    int top = lua_gettop(L);
    h->push();
    ASSERT_EQ(lua_gettop(L), top + 1);
    EXPECT_TRUE(lua_isnil(L, -1));
    lua_pop(L, 1);
}

TEST_F(RegistryHandle, WeakHandleKeepsItsReferenceOutOfTheRegistry)
{
    iref<registry_handle> h(new weak_registry_handle(L));
    push_marked(3);
    lua_pushvalue(L, -1);
    h->set();
    lua_rawgeti(L, LUA_REGISTRYINDEX, 1);
    lua_rawgeti(L, -1, h->ref());
    EXPECT_TRUE(lua_rawequal(L, -1, -3));
    lua_pop(L, 3);
}

TEST_F(RegistryHandle, WeakSetOnAFullHandleReleasesTheOldReference)
{
    iref<registry_handle> h(new weak_registry_handle(L));
    push_marked(1);
    h->set();
    int old = h->ref();
    push_marked(2);
    h->set();
    // The old number was freed before the new reference was taken.
    EXPECT_EQ(h->ref(), old);
}

TEST_F(RegistryHandle, WeakResetEmptiesTheHandleAndASecondResetDoesNothing)
{
    iref<registry_handle> h(new weak_registry_handle(L));
    push_marked(1);
    h->set();
    int old = h->ref();
    h->reset();
    h->reset();
    EXPECT_EQ(h->ref(), 0);
    lua_rawgeti(L, LUA_REGISTRYINDEX, 1);
    lua_pushboolean(L, 1);
    int a = luaL_ref(L, -2);
    lua_pushboolean(L, 1);
    int b = luaL_ref(L, -2);
    lua_pop(L, 1);
    EXPECT_EQ(a, old);
    EXPECT_NE(b, old);
}

TEST_F(RegistryHandle, WeakPushOnAnEmptyHandleLeavesTheStackUnchanged)
{
    iref<registry_handle> h(new weak_registry_handle(L));
    int top = lua_gettop(L);
    h->push();
    EXPECT_EQ(lua_gettop(L), top);
}
