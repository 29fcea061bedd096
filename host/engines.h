// The script engines the reference host runs with.
#pragma once

#include <string>

namespace host {

#if HOSTPROBE_WITH_JS
// V8's own version text, e.g. "10.2.154.26-node.37". Only in a build with V8.
std::string v8_version();
#endif

// What the loaded LuaJIT says of itself (jit.version), e.g. "LuaJIT 2.1.0-beta3".
std::string luajit_version();

} // namespace host
