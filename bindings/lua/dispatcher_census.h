// dispatcher_census: how many Lua dispatchers live in the process.
//
// Every dispatcher counts itself in at construction and out at destruction,
// whichever module made it. The count is a process-wide singleton, found by
// its type name, so a host or a test reads the same number as the modules
// that make the dispatchers: it is how a leak of the object tables'
// references shows, and how a test sees the collector give them back.
//
//   int64_t before = velk::lua::census().live;
//   ...                       // scripts make and drop objects; collect
//   assert(velk::lua::census().live == before);
#pragma once

#include "interface/singleton.h"

#include <atomic>
#include <cstdint>

namespace velk::lua {

struct dispatcher_census
{
    std::atomic<int64_t> live{0};  // made and not yet destroyed
    std::atomic<uint64_t> made{0}; // made in the life of the process
};

// The process's census, registered with the process-wide singleton manager
// on this module's first call and then cached. Never null. Throws
// std::bad_alloc on the first call when it can't be made.
inline dispatcher_census& census()
{
    // Function-local: first uses from several threads wait for one lookup.
    static dispatcher_census* const c =
        register_singleton_of<dispatcher_census>(false, "bindings/lua/dispatcher_census", __LINE__);
    return *c;
}

} // namespace velk::lua
