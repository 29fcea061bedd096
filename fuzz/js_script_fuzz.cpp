// Fuzz target of whole JavaScript scripts through the host's JavaScript
// runner, with the plug-in's object bound as "probe", one second of time and
// 128 MB of heap. V8 and one isolate serve every input (host::js_engine):
// an isolate per input costs far more than most scripts take to run.
// FUZZ_ISOLATE_PER_INPUT=1 makes one per input instead, to compare; the
// binding builds its object template for the first isolate only, so from
// the second isolate on the plug-in's object is refused (or worse, see the
// README's Fuzzing section).
// What must hold for any input: the run ends with one of the runner's
// statuses (0, 1, or 3 for the time limit); no crash, no leak, no
// exception out of it.
#include "fuzz/fuzz_check.h"
#include "fuzz/script_fuzz_host.h"
#include "host/js_runner.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

fuzz_inputs inputs{"js_script_fuzz", "script", "status", {}, {}};

constexpr uint32_t heap_mb = 128;

bool isolate_per_input()
{
    const char* v = getenv("FUZZ_ISOLATE_PER_INPUT");
    return v && *v == '1';
}

std::unique_ptr<host::js_engine>& engine()
{
    static std::unique_ptr<host::js_engine> e;
    return e;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz_host::setup(".js", 1, heap_mb);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz_host::write("", data, size);
    inputs.first = velk::token(reinterpret_cast<const char*>(data), size);
    fuzz_host::state& s = fuzz_host::current();
    if (!engine() || isolate_per_input()) {
        engine().reset(); // the old isolate goes before the new one is made
        engine() = std::make_unique<host::js_engine>(s.request.limits);
    }
    int status = engine()->run(s.request, s.place);
    REQUIRE(status == 0 || status == 1 || status == host::exit_timed_out);
    // As the host does before it exits: a line still queued when the
    // process ends would come from the plug-in's pool after it is gone.
    host::flush_log();
    return 0;
}
