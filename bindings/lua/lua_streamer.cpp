// lua_streamer: the calls on the thread's streamer.
#include "bindings/lua/lua_streamer.h"

#include "comm/metastream/fmtstream_lua_capi.h"

namespace velk::lua {

void bind_streamer(lua_State* L) { lua_streamer_context::get_lua_streamer(true).bind_stack(L); }

void text_to_lua(lua_State*, const charstr& text) { lua_streamer_context::get_lua_streamer(true).to_lua(text); }

void text_from_lua(lua_State*, charstr& text) { lua_streamer_context::get_lua_streamer(true).from_lua(text); }

iref<stubsmith_interface> interface_from_lua(lua_State*)
{
    return lua_streamer_context::get_lua_streamer(true).interface_from_lua();
}

} // namespace velk::lua
