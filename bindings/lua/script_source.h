// script_source: what a host hands the Lua context creator of an interface:
// the script (its text or its path), what goes before it, its chunk name,
// and the context to run it in.
//
// The host builds it and the module reads it, so its layout is a contract
// between them: fields are only ever added at the end.
//
//   velk::lua::script_source s;
//   s.text = "/srv/scripts/probe.lua";
//   s.is_path = true;                  // the chunk is named after the path
#pragma once

#include "bindings/lua/lua_context.h"
#include "comm/iref.h"
#include "comm/token.h"

namespace velk::lua {

struct script_source
{
    // The script's text, or its path when is_path is set. A null first
    // pointer means that there is no script: the object is made and bound,
    // and nothing runs. An empty text that isn't null is an empty chunk.
    token text;
    bool is_path = false;
    // Text put before the script, in the same chunk; may be empty.
    token prefix;
    // The chunk's name in messages; may be empty, and then a path names the
    // chunk itself.
    token url;
    // The context to use instead of a new one; may be null. Nothing is
    // installed in a context that the host gives.
    iref<lua_context> context;
};

} // namespace velk::lua
