// A host that exports no registry: loads the module named on its command
// line as a host loads a plug-in and says whether that worked. Run by the
// tests in a child process, since a module that needs a registry ends it.
#include "tests/support/module_loader.h"

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: bare_host MODULE\n", stderr);
        return 2;
    }
    void* module = velk::testing::load_module(argv[1]);
    if (!module) {
        fprintf(stderr, "bare_host: %s\n", velk::testing::module_error());
        return 3;
    }
    puts("loaded");
    velk::testing::unload_module(module);
    return 0;
}
