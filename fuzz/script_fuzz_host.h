// The host side of the script fuzz targets: the program is a host as
// `hostprobe run` is one. It exports the registry (see fuzz/CMakeLists.txt),
// sets it up with a scratch directory of its own as the root, loads the
// plug-in once, and runs each input as the one file in that directory, with
// the plug-in's object bound as "probe" and a time and heap limit. The
// directory and its file go when the process ends normally.
//
// Invariant: after setup() the plug-in is loaded and place() names the
// scratch file; write() replaces its content.
#pragma once

#include "comm/charstr.h"
#include "host/commands.h"
#include "host/host_registry.h"
#include "host/plugin_loader.h"
#include "host/script_runner.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace fuzz_host {

struct state
{
    std::string dir;
    std::string file;
    host::run_request request;
    host::script_place place;
    host::plugin_module plugin;
};

inline state& current()
{
    static state* s = new state; // never destroyed: the plug-in stays loaded until exit
    return *s;
}

inline void remove_scratch()
{
    state& s = current();
    unlink(s.file.c_str());
    rmdir(s.dir.c_str());
}

// Makes the scratch directory (under $TMPDIR, else /tmp), sets up the
// registry with it as the root and loads the plug-in at HOSTPROBE_PLUGIN.
// extension is ".js" or ".lua". Ends the process with the reason when any
// of it fails: a fuzzer without its host has nothing to run.
inline void setup(const char* extension, uint32_t seconds, uint32_t heap_mb)
{
    state& s = current();
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/hostprobe_fuzz_XXXXXX";
    if (!mkdtemp(pattern.data())) {
        perror("script fuzz: cannot make the scratch directory");
        exit(1);
    }
    s.dir = pattern;
    s.file = s.dir + "/fuzz" + extension;
    atexit(remove_scratch);

    host::setup_registry(velk::token(s.dir.c_str()), host::log_target::standard_error);
    velk::charstr error;
    if (!s.plugin.load(HOSTPROBE_PLUGIN, error)) {
        fprintf(stderr, "script fuzz: %s\n", error.c_str());
        exit(1);
    }
    s.request.file = s.file.c_str();
    s.request.root = s.dir.c_str();
    s.request.limits.seconds = seconds;
    s.request.limits.heap_mb = heap_mb;
    if (!host::place_script(s.request, s.place, error)) {
        fprintf(stderr, "script fuzz: %s\n", error.c_str());
        exit(1);
    }
}

// Writes prefix and then the input as the scratch file.
inline void write(const char* prefix, const uint8_t* data, size_t size)
{
    FILE* f = fopen(current().file.c_str(), "wb");
    if (!f) {
        perror("script fuzz: cannot write the scratch file");
        abort();
    }
    fputs(prefix, f);
    fwrite(data, 1, size, f);
    fclose(f);
}

} // namespace fuzz_host
