// dispatcher_census: how many JavaScript dispatchers live in the process, a
// process-wide count of its own (see interface/dispatcher_census.h).
//
//   int64_t before = velk::js::census().live;
//   ...                       // scripts make and drop objects; gc
//   assert(velk::js::census().live == before);
#pragma once

#include "interface/dispatcher_census.h"

namespace velk::js {

// Names the JavaScript binding's census; never defined.
struct engine_tag;

using dispatcher_census = velk::dispatcher_census<engine_tag>;

// The process's census of JavaScript dispatchers. Never null; throws
// std::bad_alloc on the first call when it can't be made.
inline dispatcher_census& census() { return dispatcher_census::of_process(); }

} // namespace velk::js
