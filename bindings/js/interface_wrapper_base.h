// interface_wrapper_base<T>: the base of every JavaScript dispatcher of
// interface T.
//
// It adds to T the script object (interface_context) and real, the native
// interface that the dispatcher wraps when it was made as a wrapper. Calls go
// through the method table and host that the dispatcher was bound to, which
// for a wrapper are real's. Either side of a script object and its
// dispatcher may end first: the dispatcher's end cuts the object loose (its
// field 0 becomes null, and its methods answer undefined), and the object's
// end gives back the one reference it held.
//
// Invariant: field 0 of object, while object is set, holds this dispatcher.
// The destructor needs the current isolate when object is set: a host that
// releases a dispatcher on a thread of its own enters the isolate first.
#pragma once

#include "bindings/js/dispatcher_census.h"
#include "bindings/js/interface_context.h"
#include "comm/commassert.h"
#include "comm/iref.h"
#include "interface/stubsmith_interface.h"

#include <v8.h>

#include <cstdint>

namespace velk::js {

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

    ~interface_wrapper_base() override
    {
        detach_object();
        real.release();
        --census().live;
        // T's destructor then clears the method table and releases host.
    }

    velk::backend backend() const override { return backend_js; }

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

    // Makes this dispatcher a wrapper of ifc (not null): real holds it,
    // and calls go through its method table to its host, both shared.
    void wrap(stubsmith_interface* ifc)
    {
        real = ifc;
        this->_method_table = ifc->method_table();
        this->_host = ifc->host();
    }

    // What a method call reaches: real if set, else this dispatcher.
    stubsmith_interface* call_target() { return real ? real.get() : static_cast<stubsmith_interface*>(this); }

    // The native interface behind a wrapper; null for a dispatcher made
    // around a native object of its own.
    iref<stubsmith_interface> real;

private:
    // Sets field 0 of the script object to null and lets the handle go:
    // the object stays valid, but no longer reaches this dispatcher.
    void detach_object()
    {
        if (object.IsEmpty())
            return;
        v8::Isolate* isolate = v8::Isolate::GetCurrent();
        VELK_ASSERT_MSG(isolate, "a JavaScript dispatcher with a script object ends outside its isolate");
        if (isolate) {
            v8::HandleScope scope(isolate);
            object.Get(isolate)->SetInternalField(0, v8::Null(isolate));
        }
        object.Reset();
    }
};

} // namespace velk::js
