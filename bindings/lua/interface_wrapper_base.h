// interface_wrapper_base<T>: the base of every Lua dispatcher of interface T.
//
// It adds to T the Lua side (interface_context) and real, the native
// interface that the dispatcher wraps when it was made as a wrapper. Calls go
// through the method table and host that the dispatcher was bound to, which
// for a wrapper are real's.
//
// Invariant: the "__cthis" userdata of object, while object is set, holds
// this dispatcher. A dispatcher that ends while it holds its object table
// writes null into that userdata first: a script that kept the table then
// gets the null-interface-object error, never a dangling pointer. The
// destructor needs the state of object alive, on its thread.
#pragma once

#include "bindings/lua/dispatcher_census.h"
#include "bindings/lua/interface_context.h"
#include "bindings/lua/lua_ext.h"
#include "comm/iref.h"
#include "interface/stubsmith_interface.h"

#include <lua.hpp>

#include <cstdint>

namespace velk::lua {

template <class T>
class interface_wrapper_base : public T, public interface_context
{
public:
    // Throws std::bad_alloc when the process's census can't be made.
    interface_wrapper_base()
    {
        dispatcher_census& c = census();
        ++c.live;
        ++c.made;
    }

    // real, object and context go in this order, then T's part (the method
    // table and host).
    ~interface_wrapper_base() override
    {
        detach_object();
        real.release();
        object.release();
        context.release();
        --census().live;
    }

    velk::backend backend() const override { return backend_lua; }

    // Forward to real. Without real, the interface's own slot answers: a
    // dispatcher that forwarded to itself would call itself without end.
    bool set_capture(void* sink, uint32_t instance_id) override
    {
        return real ? real->set_capture(sink, instance_id) : T::set_capture(sink, instance_id);
    }
    void dispatch_captured(uintptr_t a, uintptr_t b, uintptr_t c) override
    {
        if (real)
            real->dispatch_captured(a, b, c);
        else
            T::dispatch_captured(a, b, c);
    }

    stubsmith_interface* real_interface() override { return real ? real.get() : this; }

    // Makes this dispatcher a wrapper of ifc (not null) living in the
    // context table of ctx: real holds ifc, calls go through its method
    // table to its host, and this dispatcher's own weak context handle is
    // set to ctx's table. ctx must hold a table.
    void wrap(stubsmith_interface* ifc, registry_handle& ctx)
    {
        real = ifc;
        this->_method_table = ifc->method_table();
        this->_host = ifc->host();
        context->set_state(ctx.state());
        ctx.push();
        context->set();
    }

    // What a method call reaches: real if set, else this dispatcher.
    stubsmith_interface* call_target() { return real ? real.get() : static_cast<stubsmith_interface*>(this); }

    // The native interface behind a wrapper; null for a dispatcher made
    // around a native object of its own.
    iref<stubsmith_interface> real;

private:
    // Writes null into the "__cthis" userdata of the object table held.
    void detach_object()
    {
        if (!object || !object->is_set())
            return;
        lua_State* L = object->state();
        int top = lua_gettop(L);
        object->push();
        if (lua_istable(L, -1)) {
            lua_getfield(L, -1, names::cthis);
            if (void* p = lua_touserdata(L, -1))
                *static_cast<stubsmith_interface**>(p) = nullptr;
        }
        lua_settop(L, top);
    }
};

} // namespace velk::lua
