// hostprobe: the reference host. Owns the process's interface registry,
// loads the plug-in and works with it through the registry.
#include "comm/charstr.h"
#include "host/command_line.h"
#include "host/commands.h"
#include "host/engines.h"
#include "host/host_paths.h"
#include "host/host_registry.h"
#include "host/plugin_loader.h"
#include "host/script_runner.h"

#include <cstdio>
#include <cstring>
#include <exception>

namespace {

// Exit statuses: a command that failed, and a command line that is wrong.
constexpr int exit_failed = 1;
constexpr int exit_usage = 2;

// The methods' line comes from the interface's method list, so that the
// help names every method that `call` takes.
void print_help()
{
    velk::charstr text;
    text << "usage: hostprobe [--plugin PATH] [COMMAND [ARGUMENTS]]\n"
            "commands:\n"
            "  version              print the versions of V8 and LuaJIT this host runs with (the default)\n"
            "  keys NAME [SCRIPT]   list the registry keys of interface NAME (\"[ns::]class[.method]\");\n"
            "                       SCRIPT keeps only keys of that script language, \"\" only native ones\n"
            "  keys --pattern REGEX list the registry keys without a script part that REGEX matches whole\n"
            "  call METHOD [ARG...] create the plug-in's interface through the registry and call METHOD:\n"
            "                       ";
    host::append_method_usage(text);
    text << "\n"
            "  run FILE [--bind NAME] [--root DIR] [--timeout SECONDS] [--max-heap MB]\n"
            "                       run the script FILE, JavaScript (.js) or Lua (.lua), with the plug-in's\n"
            "                       interface object bound as NAME (default probe); JavaScript $include\n"
            "                       paths stay below DIR (default: FILE's folder); the script's log lines\n"
            "                       are printed\n"
            "                       --timeout ends the script after SECONDS with exit status 3 (default:\n"
            "                       no time limit)\n"
            "                       --max-heap ends a script whose heap grows beyond MB megabytes with exit\n"
            "                       status 1 (default: the engine's own limit)\n"
            "  --help               print this text\n"
            "options:\n"
            "  --plugin PATH        load the plug-in from PATH instead of next to this program\n";
    fwrite(text.ptr(), 1, text.lens(), stdout);
}

int usage_error(const velk::token& reason)
{
    fprintf(stderr, "hostprobe: %.*s\nrun 'hostprobe --help' for the commands\n", int(reason.lens()),
            reason.ptr());
    return exit_usage;
}

int print_versions(const host::command_line& cl)
{
    if (cl.arg_count > 0)
        return usage_error("version takes no arguments");
#if HOSTPROBE_WITH_JS
    printf("V8 %s\n", host::v8_version().c_str());
#endif
    printf("%s\n", host::luajit_version().c_str());
    return 0;
}

// Sets up the registry with root and where log lines go, and loads the
// plug-in, from --plugin or next to this program.
bool load_plugin(const host::command_line& cl, const velk::token& root, host::log_target lines,
                 host::plugin_module& plugin)
{
    velk::charstr error;
    velk::charstr path;
    if (cl.plugin_path) {
        path = velk::token(cl.plugin_path);
    } else if (!host::default_plugin_path(path)) {
        fputs("hostprobe: cannot tell where this program lies; give the plug-in with --plugin\n", stderr);
        return false;
    }
    host::setup_registry(root, lines);
    if (!plugin.load(path.c_str(), error)) {
        fprintf(stderr, "hostprobe: %s\n", error.c_str());
        return false;
    }
    return true;
}

// The commands that need the plug-in: their arguments are read first.
int run_with_plugin(const host::command_line& cl)
{
    velk::charstr error;
    host::keys_request keys;
    host::call_request call;
    bool is_keys = !strcmp(cl.command, "keys");
    bool ok = is_keys ? host::parse_keys(cl.arg_count, cl.args, keys, error)
                      : host::parse_call(cl.arg_count, cl.args, call, error);
    if (!ok)
        return usage_error(error);

    host::plugin_module plugin;
    if (!load_plugin(cl, host::script_root(), host::log_target::standard_error, plugin))
        return exit_failed;
    return is_keys ? host::run_keys(keys) : host::run_call(call);
}

// run: the file's extension picks the language, before anything loads; the
// script's place fixes the registry's root before the plug-in loads; the
// script's log lines are its output.
int run_script_file(const host::command_line& cl)
{
    velk::charstr error;
    host::run_request request;
    host::script_language language;
    if (!host::parse_run(cl.arg_count, cl.args, request, error) ||
        !host::choose_language(request.file, language, error))
        return usage_error(error);
    host::script_place place;
    if (!host::place_script(request, place, error)) {
        fprintf(stderr, "hostprobe: %s\n", error.c_str());
        return exit_failed;
    }
    host::plugin_module plugin;
    if (!load_plugin(cl, place.root, host::log_target::standard_output, plugin))
        return exit_failed;
    return host::run_script(language, request, place);
}

int run(const host::command_line& cl)
{
    if (!strcmp(cl.command, "version"))
        return print_versions(cl);
    if (!strcmp(cl.command, "--help")) {
        print_help();
        return 0;
    }
    if (!strcmp(cl.command, "keys") || !strcmp(cl.command, "call"))
        return run_with_plugin(cl);
    if (!strcmp(cl.command, "run"))
        return run_script_file(cl);
    velk::charstr error;
    error << "unknown command '" << cl.command << "'";
    return usage_error(error);
}

} // namespace

int main(int argc, char** argv)
{
    host::command_line cl;
    velk::charstr error;
    if (!host::parse_command_line(argc, argv, cl, error))
        return usage_error(error);
    int status = exit_failed;
    try {
        status = run(cl);
    } catch (const std::exception& e) {
        fprintf(stderr, "hostprobe: %s\n", e.what());
    }
    host::flush_log();
    return status;
}
