// Test helper: the smallest host object, counting its live instances so that
// a test can see when the plug-in's objects let go of it.
#pragma once

#include "plugin/host_interface.h"

namespace xt::testing {

class host_interface_stub : public host_interface
{
public:
    static inline int alive = 0;
    host_interface_stub() { ++alive; }
    ~host_interface_stub() override { --alive; }
};

} // namespace xt::testing
