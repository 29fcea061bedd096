// Test helper: a host_interface object as a host would give it, with only the
// slots of stubsmith_interface and the hash 0x38934D07.
#pragma once

#include "interface/stubsmith_interface.h"
#include "plugin/hostprobe_plugin.h"

namespace xt::testing {

class host_interface_stub : public velk::stubsmith_interface
{
public:
    static inline int alive = 0;
    host_interface_stub() { ++alive; }
    ~host_interface_stub() override { --alive; }

    uint32_t interface_hash() const override { return hostprobe_plugin::host_interface_hash; }
    bool is_derived(int32_t h) const override { return static_cast<uint32_t>(h) == interface_hash(); }
    const velk::tokenhash& interface_name() const override
    {
        static const velk::tokenhash n("host_interface");
        return n;
    }
    velk::backend backend() const override { return velk::backend_native; }
    velk::creator_fn wrapper_creator(velk::backend) const override { return nullptr; }
    const velk::token& wrapper_key(velk::backend) const override
    {
        static const velk::token none;
        return none;
    }
};

} // namespace xt::testing
