// dispatcher_census<Engine>: how many script dispatchers of one engine live
// in the process.
//
// Every dispatcher counts itself in at construction and out at destruction,
// whichever module made it. The count is a process-wide singleton, found by
// its type name, so a host or a test reads the same number as the modules
// that make the dispatchers: it is how a leak of the script objects'
// references shows, and how a test sees the collector give them back.
// Engine is a tag type of the binding's own, so that each engine has its
// own census (its own type name) and no binding includes another.
//
//   namespace velk::lua {
//   struct engine_tag;
//   using dispatcher_census = velk::dispatcher_census<engine_tag>;
//   inline dispatcher_census& census() { return dispatcher_census::of_process(); }
//   }
#pragma once

#include "comm/singleton.h"

#include <atomic>
#include <cstdint>

namespace velk {

template <class Engine>
struct dispatcher_census
{
    std::atomic<int64_t> live{0};  // made and not yet destroyed
    std::atomic<uint64_t> made{0}; // made in the life of the process

    // The process's census, registered with the process-wide singleton
    // manager on this module's first call and then cached. Never null.
    // Throws std::bad_alloc on the first call when it can't be made.
    static dispatcher_census& of_process()
    {
        // Function-local: first uses from several threads wait for one lookup.
        static dispatcher_census* const c =
            register_singleton_of<dispatcher_census>(false, "interface/dispatcher_census", __LINE__);
        return *c;
    }
};

} // namespace velk
