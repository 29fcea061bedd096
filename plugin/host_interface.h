// host_interface: the smallest host object that the plug-in's creators take.
//
// The plug-in knows the host's interface by its hash only and calls nothing
// of it: the object ties its life to the plug-in objects made for it. So it
// has the slots of stubsmith_interface and nothing more. Counted: the
// plug-in's objects hold it, and the last release frees it through the code
// of the module that made it. A host with an interface of its own derives
// from stubsmith_interface instead and answers the same hash.
#pragma once

#include "interface/stubsmith_interface.h"
#include "plugin/hostprobe_plugin.h"

#include <cstdint>

namespace xt {

class host_interface : public velk::stubsmith_interface
{
public:
    // The host's interface hash, as the plug-in knows it.
    static constexpr uint32_t hash = hostprobe_plugin::host_interface_hash;

    uint32_t interface_hash() const override { return hash; }
    bool is_derived(int32_t h) const override { return static_cast<uint32_t>(h) == hash; }
    const velk::tokenhash& interface_name() const override;
    velk::backend backend() const override { return velk::backend_native; }
    // No wrappers: null for every backend.
    velk::creator_fn wrapper_creator(velk::backend) const override { return nullptr; }
    // A null token for every backend.
    const velk::token& wrapper_key(velk::backend) const override;
};

} // namespace xt
