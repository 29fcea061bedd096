// commands: keys and call, through the process's registry.
#include "host/commands.h"

#include "comm/dynarray.h"
#include "host/command_line.h"
#include "host/host_interface.h"
#include "interface/registrar.h"

#include <cstdio>
#include <cstring>

namespace host {

namespace {

using xt::hostprobe_plugin;

struct method_name
{
    const char* name;
    hostprobe_plugin::method_index index;
};

// The interface's methods by their script names.
constexpr method_name methods[] = {
    {"getMAC", hostprobe_plugin::m_getMAC},
    {"mersenne_twister", hostprobe_plugin::m_mersenne_twister},
    {"testfunction", hostprobe_plugin::m_testfunction},
};

bool find_method(const char* name, hostprobe_plugin::method_index& out)
{
    for (const method_name& m : methods) {
        if (!strcmp(m.name, name)) {
            out = m.index;
            return true;
        }
    }
    return false;
}

void print_line(const velk::token& text)
{
    velk::charstr line;
    line << text << '\n';
    fwrite(line.ptr(), 1, line.lens(), stdout);
}

// The argument that a method of one number takes, read by parse.
template <class T>
bool read_number_argument(int argc, char** args, bool (*parse)(const char*, T&, velk::charstr&), T& out,
                          velk::charstr& error)
{
    if (argc < 2) {
        error << "call " << args[0] << " needs a number";
        return false;
    }
    if (argc > 2) {
        error << "call " << args[0] << " takes one number, not " << argc - 1 << " arguments";
        return false;
    }
    return parse(args[1], out, error);
}

// A new interface object from the plug-in's native creator, bound to a new
// object of the host; null when the plug-in registered no creator.
velk::iref<hostprobe_plugin> create_plugin_object()
{
    velk::creator_fn c = velk::get_creator(hostprobe_plugin::native_creator_key);
    velk::iref<hostprobe_plugin> out;
    if (c) {
        velk::iref<velk::stubsmith_interface> host_object(new host_interface);
        reinterpret_cast<xt::native_creator_fn>(c)(out, nullptr, host_object);
    }
    return out;
}

} // namespace

bool parse_keys(int argc, char** args, keys_request& out, velk::charstr& error)
{
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
        error << "call needs a METHOD: getMAC, mersenne_twister or testfunction";
        return false;
    }
    if (!find_method(args[0], out.method)) {
        error << "unknown method '" << args[0] << "': expected getMAC, mersenne_twister or testfunction";
        return false;
    }
    switch (out.method) {
    case hostprobe_plugin::m_mersenne_twister:
        return read_number_argument(argc, args, &parse_uint32, out.seed, error);
    case hostprobe_plugin::m_testfunction:
        return read_number_argument(argc, args, &parse_int32, out.x, error);
    default:
        if (argc > 1) {
            error << "call " << args[0] << " takes no argument";
            return false;
        }
        return true;
    }
}

int run_keys(const keys_request& r)
{
    velk::dynarray<velk::creator_match> found;
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
    switch (r.method) {
    case hostprobe_plugin::m_getMAC: text = p->getMAC(); break;
    case hostprobe_plugin::m_mersenne_twister: text << p->mersenne_twister(r.seed); break;
    case hostprobe_plugin::m_testfunction: text << p->testfunction(r.x); break;
    default: break;
    }
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

} // namespace

bool parse_run(int argc, char** args, run_request& out, velk::charstr& error)
{
    for (int i = 0; i < argc; ++i) {
        const char* a = args[i];
        if (!strcmp(a, "--bind")) {
            if (!option_value(argc, args, i, out.bind, error))
                return false;
        } else if (!strcmp(a, "--root")) {
            if (!option_value(argc, args, i, out.root, error))
                return false;
        } else if (a[0] == '-' && a[1]) {
            error << "run: unknown option '" << a << "'";
            return false;
        } else if (out.file) {
            error << "run takes one script file, not '" << out.file << "' and '" << a << "'";
            return false;
        } else {
            out.file = a;
        }
    }
    if (!out.file || !*out.file) {
        error << "run needs a script FILE";
        return false;
    }
    return true;
}

} // namespace host
