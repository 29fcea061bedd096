// run_limits: the words and statuses of a run that a limit ended.
#include "host/run_limits.h"

#include "host/host_registry.h"

#include <cstdio>
#include <cstdlib>

namespace host {

int report_timeout(const run_limits& limits)
{
    fprintf(stderr, "script timed out after %u s\n", unsigned(limits.seconds));
    return exit_timed_out;
}

int report_out_of_memory(uint32_t limit_mb)
{
    fprintf(stderr, "script ran out of memory (limit %u MB)\n", unsigned(limit_mb));
    return exit_out_of_memory;
}

void end_process(int status)
{
    flush_log();
    fflush(stdout);
    fflush(stderr);
    std::_Exit(status); // no destructors: the script's thread still runs and holds what they would end
}

} // namespace host
