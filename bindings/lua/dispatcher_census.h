// dispatcher_census: how many Lua dispatchers live in the process, a
// process-wide count of its own (see interface/dispatcher_census.h).
//
//   int64_t before = velk::lua::census().live;
//   ...                       // scripts make and drop objects; collect
//   assert(velk::lua::census().live == before);
#pragma once

#include "interface/dispatcher_census.h"

namespace velk::lua {

// Names the Lua binding's census; never defined.
struct engine_tag;

using dispatcher_census = velk::dispatcher_census<engine_tag>;

// The process's census of Lua dispatchers. Never null; throws
// std::bad_alloc on the first call when it can't be made.
inline dispatcher_census& census() { return dispatcher_census::of_process(); }

} // namespace velk::lua
