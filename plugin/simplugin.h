// simplugin: the native object behind xt::hostprobe_plugin, where the
// methods are written by hand.
//
// It ties the life of the host's object to its own through host_ref, and
// comes from the runtime's allocator, not from the global memory space.
#pragma once

#include "comm/charstr.h"
#include "comm/iref.h"
#include "comm/policy_base.h"
#include "interface/stubsmith_interface.h"

#include <cstdint>
#include <new>

namespace xt {

class simplugin : public velk::counted_base
{
public:
    explicit simplugin(const velk::iref<velk::stubsmith_interface>& host) : _host_ref(host) {}
    ~simplugin() override = default;

    // A new object for host, or empty when host holds nothing (the silent
    // assertion check, which throws only when throwing assertions are on).
    static velk::iref<simplugin> make(const velk::iref<velk::stubsmith_interface>& host);

    // The text of all network adapters' byte sums (see adapter_text); empty
    // when the system lists none or the list fails. Throws std::bad_alloc.
    velk::charstr getMAC();
    uint32_t mersenne_twister(uint32_t seed);
    int32_t testfunction(int32_t x);

    velk::stubsmith_interface* host_ref() const { return _host_ref.get(); }

    static void* operator new(size_t size) { return ::operator new(size); }
    static void operator delete(void* p) { ::operator delete(p); }

private:
    velk::iref<velk::stubsmith_interface> _host_ref;
};

} // namespace xt
