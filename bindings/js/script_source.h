// script_source: what a host hands the context creator of an interface:
// the script (its text or its path), what goes before it, its name in
// messages, and the context to run it in.
//
// The host builds it and the module reads it, so its layout is a contract
// between them: fields are only ever added at the end.
//
//   velk::js::script_source s;
//   s.text = "/srv/scripts/probe.js";
//   s.is_path = true;
//   s.url = "file:///probe.js";
#pragma once

#include "comm/token.h"

#include <v8.h>

namespace velk::js {

struct script_source
{
    // The script's text, or its path when is_path is set. A null first
    // pointer means that there is no script: the object is made and bound,
    // and nothing runs. An empty text that isn't null is an empty script.
    token text;
    bool is_path = false;
    // Text put before the script; may be empty.
    token prefix;
    // The script's name in messages and stack traces; may be empty, and then
    // a path names the script itself.
    token url;
    // The context to use instead of a new one; may be empty. Nothing is
    // installed in a context that comes from the host.
    v8::Local<v8::Context> context;
};

} // namespace velk::js
