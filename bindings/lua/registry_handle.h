// registry_handle, weak_registry_handle: native handles of Lua values.
//
// A native object can't keep a stack slot across calls; it keeps a handle.
// registry_handle holds its value strongly, by a reference number in the Lua
// registry; weak_registry_handle holds it in the table with weak values at
// registry slot 1, so that the collector may still take it, and push then
// gives nil. Both are counted objects, reached through four virtual
// operations, so that strong and weak values are handled alike.
//
// Invariant: ref is 0 (empty) or a live reference of L's registry (strong)
// or of L's weak table (weak). A handle that holds a reference must be
// released while its state lives, on the state's thread: the release
// touches the state.
//
//   velk::iref<velk::lua::registry_handle> h(new velk::lua::registry_handle(L));
//   lua_newtable(L);
//   h->set();           // the table goes from the stack into the registry
//   h->push();          // ... and back, as often as needed
#pragma once

#include "comm/policy_base.h"

#include <lua.hpp>

#include <cstddef>
#include <cstdint>

namespace velk::lua {

// The registry slots that the state's set-up makes (see lua_state.h).
inline constexpr int weak_table_slot = 1;
inline constexpr int weak_gc_metatable_slot = 2;

class registry_handle : public counted_base
{
public:
    // Empty; L may be given later with set_state.
    explicit registry_handle(lua_State* L = nullptr) : _L(L) {}
    // Drops the reference, when there is one.
    ~registry_handle() override;

    registry_handle(const registry_handle&) = delete;
    registry_handle& operator=(const registry_handle&) = delete;

    // Drops the reference, if any; the handle is empty afterwards.
    virtual void reset();
    // Takes the value on top of L's stack (popped) into the handle, after
    // dropping the reference held before. A nil value gives the API's
    // reference of nil (LUA_REFNIL) for a strong handle.
    virtual void set();
    // Pushes the value; nothing when the handle is empty. Callers that use
    // the top afterwards test ref() first.
    virtual void push();

    int32_t ref() const { return _ref; }
    bool is_set() const { return _ref != 0; }
    lua_State* state() const { return _L; }
    // Gives the handle its state; only while it is empty.
    void set_state(lua_State* L) { _L = L; }

    // Handles come from the process heap, like the state they refer to,
    // and not from a module's own memory.
    static void* operator new(size_t size);
    static void operator delete(void* p);

protected:
    int32_t _ref = 0;
    lua_State* _L = nullptr;
};

class weak_registry_handle : public registry_handle
{
public:
    explicit weak_registry_handle(lua_State* L = nullptr) : registry_handle(L) {}
    ~weak_registry_handle() override;

    void reset() override;
    void set() override;
    void push() override;
};

} // namespace velk::lua
