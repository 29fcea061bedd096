// Fuzz target of whole Lua scripts through the host's Lua runner
// (host::run_lua_script), with the plug-in's object bound as "probe", one
// second of time and 64 MB of heap. Each input gets a fresh state, as a run
// of the host does. What must hold for any input: the run ends with one of
// the runner's statuses (0, 1, or 3 for the time limit); no crash, no leak,
// no exception out of it.
//
// The standard libraries that reach outside the state are taken away first,
// on the script's own first line so that its line numbers stand: with os,
// io, package and require a fuzzed script could run commands, write files or
// end the fuzzer, and with debug it could remove the time limit's hook.
#include "fuzz/fuzz_check.h"
#include "fuzz/script_fuzz_host.h"
#include "host/lua_runner.h"

#include <cstdint>

namespace {

fuzz_inputs inputs{"lua_script_fuzz", "script", "status", {}, {}};

const char* const prelude = "os, io, debug, package, require, dofile, loadfile = nil; ";

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz_host::setup(".lua", 1, 64);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz_host::write(prelude, data, size);
    inputs.first = velk::token(reinterpret_cast<const char*>(data), size);
    fuzz_host::state& s = fuzz_host::current();
    int status = host::run_lua_script(s.request, s.place);
    REQUIRE(status == 0 || status == 1 || status == host::exit_timed_out);
    // As the host does before it exits: a line still queued when the
    // process ends would come from the plug-in's pool after it is gone.
    host::flush_log();
    return 0;
}
