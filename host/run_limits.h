// run_limits: how long a script may run and how much heap it may take, and
// what the host says when a limit ends it.
//
//   hostprobe run FILE --timeout SECONDS --max-heap MB
//
// Both limits are off unless given: no time limit, and the engine's own
// heap limit. A script that runs out of time ends the host with status 3
// and "script timed out after N s"; one that runs out of heap with status 1
// and "script ran out of memory (limit N MB)", both on standard error.
#pragma once

#include <cstdint>

namespace host {

struct run_limits
{
    uint32_t seconds = 0; // --timeout; 0: no time limit
    uint32_t heap_mb = 0; // --max-heap; 0: the engine's own limit
};

// The exit status of a run that its time limit ended.
constexpr int exit_timed_out = 3;

// The exit status of a run that its heap limit ended: the one of any
// failed script.
constexpr int exit_out_of_memory = 1;

// Prints "script timed out after N s" (N the seconds given) on standard
// error; gives exit_timed_out.
int report_timeout(const run_limits& limits);

// Prints "script ran out of memory (limit N MB)" on standard error; gives
// exit_out_of_memory.
int report_out_of_memory(uint32_t limit_mb);

// Ends the process with status at once, from any thread, after the log
// lines made so far are written: the last resort when a script can't be
// stopped any other way. Skips every destructor and the plug-in's unload.
[[noreturn]] void end_process(int status);

} // namespace host
