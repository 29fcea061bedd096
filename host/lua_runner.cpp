// lua_runner: a Lua state for one script, and the run.
#include "host/lua_runner.h"

#include "bindings/lua/hostprobe_plugin_lua_creator.h"
#include "bindings/lua/lua_context.h"
#include "bindings/lua/lua_state.h"
#include "comm/exception.h"
#include "interface/registrar.h"
#include "plugin/host_interface.h"

#include <cstdio>

namespace host {

namespace {

// A Lua state for the length of one run, closed last: the finalizers of the
// objects that the script dropped run in lua_close, and give back their
// dispatchers while the plug-in's code is loaded.
class lua_session
{
public:
    lua_session() : _L(velk::lua::new_state()) {}
    ~lua_session()
    {
        if (_L)
            lua_close(_L);
    }
    lua_session(const lua_session&) = delete;
    lua_session& operator=(const lua_session&) = delete;

    lua_State* state() const { return _L; }

private:
    lua_State* _L;
};

// The error of a failed run on standard error. Lua lets a script raise any
// value, and one without a text would leave an empty line: name the file.
void print_error(const velk::exception& e, const char* file)
{
    if (*e.what())
        fprintf(stderr, "%s\n", e.what());
    else
        fprintf(stderr, "%s: the script raised an error that is no text\n", file);
}

} // namespace

// The creator runs a script before it binds the object, so a script could
// not reach the object at its top level. So it is called twice on one
// context: first without a script, to make the object and bind it, then
// with the file, which runs where the name is bound already. The second
// call's own object is bound nowhere and goes at once.
int run_lua_script(const run_request& r, const script_place& place)
{
    auto create = reinterpret_cast<xt::lua::creator_lua_fn>(velk::get_creator(xt::lua::creator_lua_key));
    if (!create) {
        fprintf(stderr, "hostprobe: the plug-in registered no creator under %.*s\n",
                int(xt::lua::creator_lua_key.lens()), xt::lua::creator_lua_key.ptr());
        return 1;
    }
    lua_session lua;
    if (!lua.state()) {
        fputs("hostprobe: no memory for a Lua state\n", stderr);
        return 1;
    }
    // "@" marks the chunk's name as a file's: Lua then writes "a.lua:3:"
    // in its messages, not "[string \"a.lua\"]:3:".
    velk::charstr chunk_name;
    chunk_name << '@' << r.file;

    int status = 0;
    velk::iref<velk::stubsmith_interface> host_object(new xt::host_interface);
    velk::iref<xt::hostprobe_plugin> probe;
    velk::iref<velk::lua::lua_context> context;
    try {
        // A fresh context, named after the file for log's lines.
        context = new velk::lua::lua_context(lua.state(), place.path);
        velk::lua::script_source bind;
        bind.context = context;
        create(probe, lua.state(), bind, host_object, velk::token(r.bind), nullptr);

        velk::lua::script_source file;
        file.text = place.path;
        file.is_path = true;
        file.url = chunk_name;
        file.context = context;
        velk::iref<xt::hostprobe_plugin> runner;
        create(runner, lua.state(), file, host_object, velk::token(), nullptr);
    } catch (const velk::exception& e) {
        print_error(e, r.file);
        status = 1;
    }
    // The object first: it holds its table in the state. The context's
    // handle goes next, and the state closes last (lua_session).
    probe.release();
    context.release();
    return status;
}

} // namespace host
