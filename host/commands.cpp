// commands: keys and call, through the process's registry.
#include "host/commands.h"

#include "comm/dynarray.h"
#include "comm/exception.h"
#include "host/command_line.h"
#include "interface/registrar.h"
#include "plugin/host_interface.h"

#include <cstdio>
#include <cstring>

namespace host {

namespace {

using xt::hostprobe_plugin;

void print_line(const velk::token& text)
{
    velk::charstr line;
    line << text << '\n';
    fwrite(line.ptr(), 1, line.lens(), stdout);
}

// A new interface object from the plug-in's native creator, bound to a new
// object of the host; null when the plug-in registered no creator.
velk::iref<hostprobe_plugin> create_plugin_object()
{
    velk::creator_fn c = velk::get_creator(hostprobe_plugin::native_creator_key);
    velk::iref<hostprobe_plugin> out;
    if (c) {
        velk::iref<velk::stubsmith_interface> host_object(new xt::host_interface);
        reinterpret_cast<xt::native_creator_fn>(c)(out, nullptr, host_object);
    }
    return out;
}

} // namespace

// keys --pattern REGEX: the pattern is compiled here, so that a bad one is a
// wrong command line, refused before the plug-in loads.
bool parse_keys_pattern(int argc, char** args, keys_request& out, velk::charstr& error)
{
    if (argc != 2) {
        error << "keys --pattern takes one REGEX";
        return false;
    }
    try {
        out.pattern.compile(velk::token(args[1]));
    } catch (const velk::exception& e) {
        error << "bad pattern '" << args[1] << "': " << e.what();
        return false;
    }
    out.by_pattern = true;
    return true;
}

bool parse_keys(int argc, char** args, keys_request& out, velk::charstr& error)
{
    if (argc >= 1 && !strcmp(args[0], "--pattern"))
        return parse_keys_pattern(argc, args, out, error);
    if (argc < 1 || argc > 2) {
        error << "keys takes a NAME and optionally a SCRIPT";
        return false;
    }
    out.name = velk::token(args[0]);
    out.script = argc == 2 ? velk::token(args[1]) : velk::token();
    return true;
}

bool parse_call(int argc, char** args, call_request& out, velk::charstr& error)
{
    if (argc < 1) {
        error << "call needs a METHOD: ";
        append_method_names(error);
        return false;
    }
    out.method = find_method_call(args[0]);
    if (!out.method) {
        error << "unknown method '" << args[0] << "': expected ";
        append_method_names(error);
        return false;
    }
    out.words = args + 1;
    out.word_count = argc - 1;
    return out.method->check(args[0], out.word_count, out.words, error);
}

int run_keys(const keys_request& r)
{
    velk::dynarray<velk::creator_match> found;
    if (r.by_pattern)
        velk::find_by_pattern(r.pattern, found);
    else
        velk::find_creators(r.name, r.script, found);
    for (const velk::creator_match& m : found)
        print_line(m.key);
    return 0;
}

int run_call(const call_request& r)
{
    velk::iref<hostprobe_plugin> p = create_plugin_object();
    if (!p) {
        fprintf(stderr, "hostprobe: the plug-in registered no creator under %.*s\n",
                int(hostprobe_plugin::native_creator_key.lens()), hostprobe_plugin::native_creator_key.ptr());
        return 1;
    }
    velk::charstr text;
    r.method->call(*p, r.method->index, r.words, text);
    print_line(text);
    return 0;
}

// -- run --------------------------------------------------------------------------

namespace {

// The value of option args[i]; advances i past it. False, with the reason
// in error, when the value is missing or empty.
bool option_value(int argc, char** args, int& i, const char*& out, velk::charstr& error)
{
    const char* option = args[i];
    if (++i == argc || !*args[i]) {
        error << "run: " << option << " needs a value";
        return false;
    }
    out = args[i];
    return true;
}

// The value of limit option args[i], a number from 1 to the 32-bit maximum;
// advances i past it. False, with the reason in error, for anything else:
// a limit of 0 would end every script at once, and no limit is the default.
bool limit_value(int argc, char** args, int& i, uint32_t& out, velk::charstr& error)
{
    const char* option = args[i];
    const char* text = nullptr;
    if (!option_value(argc, args, i, text, error))
        return false;
    velk::charstr why;
    if (!parse_uint32(text, out, why) || out == 0) {
        error << "run: " << option << " takes a whole number from 1 to 4294967295, not '" << text << "'";
        return false;
    }
    return true;
}

} // namespace

bool parse_run(int argc, char** args, run_request& out, velk::charstr& error)
{
    for (int i = 0; i < argc; ++i) {
        const char* a = args[i];
        bool ok = true;
        if (!strcmp(a, "--bind")) {
            ok = option_value(argc, args, i, out.bind, error);
        } else if (!strcmp(a, "--root")) {
            ok = option_value(argc, args, i, out.root, error);
        } else if (!strcmp(a, "--timeout")) {
            ok = limit_value(argc, args, i, out.limits.seconds, error);
        } else if (!strcmp(a, "--max-heap")) {
            ok = limit_value(argc, args, i, out.limits.heap_mb, error);
        } else if (a[0] == '-' && a[1]) {
            error << "run: unknown option '" << a << "'";
            return false;
        } else if (out.file) {
            error << "run takes one script file, not '" << out.file << "' and '" << a << "'";
            return false;
        } else {
            out.file = a;
        }
        if (!ok)
            return false;
    }
    if (!out.file || !*out.file) {
        error << "run needs a script FILE";
        return false;
    }
    return true;
}

} // namespace host
