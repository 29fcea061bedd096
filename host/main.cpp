// hostprobe: the reference host. Loads the plug-in and runs scripts against it.
#include "host/engines.h"

#include <cstdio>
#include <cstring>

namespace {

void print_help(FILE* out)
{
    fputs("usage: hostprobe COMMAND\n"
          "commands:\n"
          "  version   print the versions of V8 and LuaJIT this host runs with\n"
          "  --help    print this text\n",
          out);
}

int print_versions()
{
    printf("V8 %s\n", host::v8_version().c_str());
    printf("%s\n", host::luajit_version().c_str());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const char* command = argc > 1 ? argv[1] : "version";
    if (!strcmp(command, "version"))
        return print_versions();
    if (!strcmp(command, "--help") || !strcmp(command, "-h")) {
        print_help(stdout);
        return 0;
    }
    fprintf(stderr, "hostprobe: unknown command '%s'\n", command);
    print_help(stderr);
    return 2;
}
