// lua_runner: a Lua state for one script, and the run.
#include "host/lua_runner.h"

#include "bindings/lua/hostprobe_plugin_lua_creator.h"
#include "bindings/lua/lua_context.h"
#include "comm/exception.h"
#include "host/lua_limits.h"
#include "interface/registrar.h"
#include "plugin/host_interface.h"

#include <cstdio>

namespace host {

namespace {

// A Lua state for the length of one run, made under the run's limits and
// closed last: the finalizers of the objects that the script dropped run in
// lua_close, and give back their dispatchers while the plug-in's code is
// loaded. The limits outlive it: its allocator counts into them.
class lua_session
{
public:
    explicit lua_session(lua_limits& limits) : _L(limits.new_state()) {}
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

// The words of a failed run. Lua lets a script raise any value, and one
// without a text would leave an empty line: name the file.
void describe_error(const velk::exception& e, const char* file, velk::charstr& out)
{
    if (*e.what())
        out << e.what() << '\n';
    else
        out << file << ": the script raised an error that is no text\n";
}

// The creator runs a script before it binds the object, so a script could
// not reach the object at its top level. So it is called twice on one
// context: first without a script, to make the object and bind it, then
// with the file, which runs where the name is bound already. The second
// call's own object is bound nowhere and goes at once. False, with the
// words in error, when the script failed.
bool run_file(xt::lua::creator_lua_fn create, lua_State* L, const run_request& r, const script_place& place,
              velk::iref<xt::hostprobe_plugin>& probe, velk::iref<velk::lua::lua_context>& context,
              velk::charstr& error)
{
    // "@" marks the chunk's name as a file's: Lua then writes "a.lua:3:"
    // in its messages, not "[string \"a.lua\"]:3:".
    velk::charstr chunk_name;
    chunk_name << '@' << r.file;
    velk::iref<velk::stubsmith_interface> host_object(new xt::host_interface);
    try {
        // A fresh context, named after the file for log's lines.
        context = new velk::lua::lua_context(L, place.path);
        velk::lua::script_source bind;
        bind.context = context;
        create(probe, L, bind, host_object, velk::token(r.bind), nullptr);

        velk::lua::script_source file;
        file.text = place.path;
        file.is_path = true;
        file.url = chunk_name;
        file.context = context;
        velk::iref<xt::hostprobe_plugin> runner;
        create(runner, L, file, host_object, velk::token(), nullptr);
    } catch (const velk::exception& e) {
        describe_error(e, r.file, error);
        return false;
    }
    return true;
}

} // namespace

int run_lua_script(const run_request& r, const script_place& place)
{
    auto create = find_script_creator<xt::lua::creator_lua_fn>(xt::lua::creator_lua_key);
    if (!create)
        return 1;
    lua_limits limits(r.limits);
    lua_session lua(limits);
    if (!lua.state()) {
        fputs("hostprobe: no memory for a Lua state\n", stderr);
        return 1;
    }
    velk::iref<xt::hostprobe_plugin> probe;
    velk::iref<velk::lua::lua_context> context;
    velk::charstr error;
    bool ran = run_file(create, lua.state(), r, place, probe, context, error);
    limits.finish(lua.state());
    // A limit's words stand alone, without the error it raised. A timeout
    // ends the run even when the script caught it; a refused allocation
    // only when the script failed.
    int status = ran ? 0 : 1;
    lua_limits::reason hit = limits.hit();
    if (hit == lua_limits::reason::time || (hit == lua_limits::reason::heap && !ran))
        status = limits.report();
    else
        fwrite(error.c_str(), 1, error.lens(), stderr); // c_str: never null, even when empty
    // The object first: it holds its table in the state. The context's
    // handle goes next, and the state closes last (lua_session).
    probe.release();
    context.release();
    return status;
}

} // namespace host
