// stubsmith_interface: the base of every generated interface.
//
// An interface object holds no logic: a counted reference to the native
// object behind it (host) and a pointer to the table of functions that every
// call goes through. The dispatchers of the script languages derive from the
// same interface class and reach the same table. The order of the virtual
// slots is fixed: modules built apart meet through it.
#pragma once

#include "comm/iref.h"
#include "comm/policy_base.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

// A creator as the registry keeps it: opaque, called through the signature
// that its key promises.
using creator_fn = void (*)();

// One entry of a method table; called through the method's real signature,
// with the interface's host as the first argument.
using method_fn = void (*)();

enum backend : uint8_t {
    backend_native = 0,
    backend_js = 1,
    backend_jsc = 2, // a key and a slot value only; no dispatcher returns it
    backend_lua = 3,
};

class stubsmith_interface : public counted_base
{
public:
    stubsmith_interface() = default;
    ~stubsmith_interface() override
    {
        _method_table = nullptr;
        _host.release();
    }

    virtual uint32_t interface_hash() const = 0;
    virtual bool is_derived(int32_t hash) const = 0;
    virtual const tokenhash& interface_name() const = 0;
    virtual velk::backend backend() const = 0;
    virtual creator_fn wrapper_creator(velk::backend b) const = 0;
    virtual const token& wrapper_key(velk::backend b) const = 0;
    // Routes calls through a recording object; not supported by default.
    virtual bool set_capture(void* sink, uint32_t instance_id) { return false; }
    virtual void dispatch_captured(uintptr_t, uintptr_t, uintptr_t) {}
    virtual stubsmith_interface* real_interface() { return this; }

    counted_base* host() const { return _host.get(); }
    method_fn* method_table() const { return _method_table; }

protected:
    // Calls entry index of the method table as R(host, args...).
    template <class R, class... A>
    R call_method(uint32_t index, A... args) const
    {
        using entry = R (*)(counted_base*, A...);
        return reinterpret_cast<entry>(_method_table[index])(_host.get(), args...);
    }

    iref<counted_base> _host;
    method_fn* _method_table = nullptr;
};

} // namespace velk
