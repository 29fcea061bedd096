// The Lua context creator of xt::hostprobe_plugin and its native creator's
// cache.
#include "bindings/lua/hostprobe_plugin_lua_creator.h"

#include "bindings/lua/hostprobe_plugin_lua_dispatcher.h"
#include "bindings/lua/lua_errors.h"
#include "bindings/lua/lua_ext.h"
#include "bindings/lua/lua_state.h"
#include "comm/binstream/bifstream.h"
#include "comm/binstream/binstreambuf.h"
#include "comm/charstr.h"
#include "comm/exception.h"
#include "comm/zstring.h"
#include "interface/registrar.h"

#include <atomic>

namespace xt::lua {

namespace {

using dispatcher = hostprobe_plugin_lua_dispatcher;

// Filled on first use without a guard: racing threads store the same value.
// Never reset: the creator lives in this module, as this cache does.
std::atomic<velk::creator_fn> native_creator_cache{nullptr};

// The file's bytes behind the prefix, in buf. Throws "<path> not found".
void read_script_file(const velk::lua::script_source& source, velk::binstreambuf& buf)
{
    velk::bifstream file;
    if (file.open(velk::zstring(source.text), "r")) {
        velk::charstr why;
        why << source.text << " not found";
        throw velk::exception(velk::token(why));
    }
    uint64_t len = source.prefix.lens();
    if (len)
        buf.write_raw(source.prefix.ptr(), len);
    // The whole file: a short last block is its end.
    buf.transfer_from(file, velk::binstream::unknown_size, nullptr, 4096);
    file.close();
}

// The chunk to run: a view into the source's own text, buffer or file.
velk::token script_text(const velk::lua::script_source& source, velk::charstr& buffer,
                        velk::binstreambuf& file)
{
    if (source.is_path) {
        read_script_file(source, file);
        const auto& bytes = file.buffer();
        return velk::token(reinterpret_cast<const char*>(bytes.ptr()), static_cast<size_t>(bytes.size()));
    }
    if (source.prefix.is_empty())
        return source.text;
    buffer << source.prefix << source.text;
    return buffer;
}

// Loads and runs the chunk in the context. Lua's message, on failure, goes
// into the exception and off the stack.
void run_chunk(lua_State* L, const velk::lua::script_source& source, velk::lua::lua_context& context)
{
    velk::charstr buffer;
    velk::binstreambuf file;
    velk::token text = script_text(source, buffer, file);
    velk::token name = source.url.is_empty() && source.is_path ? source.text : source.url;
    if (!context.is_set())
        throw velk::exception("Can't load script without context!");
    // Text only: the runtime doesn't verify bytecode, and a crafted chunk
    // could bring the host down.
    if (luaL_loadtext(L, text.ptr() ? text.ptr() : "", text.lens(), name) != 0)
        velk::lua::lua_throw_error(L, velk::token());
    context.push();
    lua_setfenv(L, -2); // the chunk runs in the context
    if (lua_pcall(L, 0, 0, 0) != 0)
        velk::lua::lua_throw_error(L, velk::token());
}

// The object table, held by the dispatcher, in the context; published
// under bindname unless that is empty.
void publish_object(lua_State* L, dispatcher* d, velk::lua::lua_context& context, const velk::token& bindname)
{
    velk::iref<velk::lua::registry_handle> ctx(new velk::lua::weak_registry_handle(velk::lua::main_thread(L)));
    context.push();
    ctx->set();
    d->context = ctx;
    velk::iref<velk::lua::registry_handle> object;
    d->make_object(object, false);
    d->object = object;
    if (bindname.is_empty())
        return;
    context.push();
    object->push();
    lua_setfield(L, -2, bindname);
    lua_settop(L, -2);
}

} // namespace

velk::iref<hostprobe_plugin>& native_create(velk::iref<hostprobe_plugin>& out, hostprobe_plugin* instance,
                                            const velk::iref<velk::stubsmith_interface>& arg)
{
    velk::creator_fn c = native_creator_cache.load(std::memory_order_relaxed);
    if (!c) {
        c = velk::get_creator(hostprobe_plugin::native_creator_key);
        native_creator_cache.store(c, std::memory_order_relaxed);
    }
    if (!c) {
        out.release();
        return out;
    }
    return reinterpret_cast<native_creator_fn>(c)(out, instance, arg);
}

velk::iref<hostprobe_plugin>& create_with_script(velk::iref<hostprobe_plugin>& out, lua_State* L,
                                                 const velk::lua::script_source& source,
                                                 const velk::iref<velk::stubsmith_interface>& arg,
                                                 const velk::token& bindname,
                                                 velk::iref<velk::lua::lua_context>* context_out)
{
    {
        // The local reference ends the dispatcher if the native creator
        // leaves it unbound; otherwise out holds it.
        velk::iref<dispatcher> d(new dispatcher);
        native_create(out, d.get(), arg);
    }
    if (!out)
        throw velk::exception("failed to create interface object");
    const int top = lua_gettop(L);
    try {
        velk::iref<velk::lua::lua_context> context = source.context;
        if (!context)
            context = new velk::lua::lua_context(L, source.is_path ? source.text : velk::token());
        if (context_out)
            *context_out = context;
        if (!source.text.is_null())
            run_chunk(L, source, *context);
        publish_object(L, static_cast<dispatcher*>(out.get()), *context, bindname);
    } catch (...) {
        // No object for a failed creation; the stack is as it was.
        lua_settop(L, top);
        out.release();
        throw;
    }
    return out;
}

} // namespace xt::lua
