// script_context: running a script for an interface object, and finding
// the files it names.
//
// A script runs in the current context of the current isolate. Its errors
// reach the host as a velk::exception whose text names the script and line:
//
//   "file:///a.js(3): ReferenceError: x is not defined (load_script)"
//
// Paths that scripts name are taken relative to the running script, whose
// name (its URL, "file:///" and the path below the registry's root) tells
// where it lies, and are resolved below the root by the registry: no path
// may lead out of it.
#pragma once

#include "bindings/js/script_source.h"
#include "comm/charstr.h"
#include "comm/token.h"
#include "interface/stubsmith_interface.h"

#include <v8.h>

#include <cstdint>

namespace velk::js {

// The key under which a host gives the creator of a web page's context.
inline constexpr token page_context_key = "~html@system_context_getter2";

// The signature that page_context_key promises: fills out with the page's
// context for script and the interface object, or leaves it empty.
using page_context_fn = void (*)(v8::Local<v8::Context>& out, const script_source& script,
                                 stubsmith_interface* ifc);

// What a script path says of itself, judged on its part before the first
// "?", case respected: a page is an "http://" or "https://" address or a
// name ending in ".html"; is_js a name ending in ".js".
struct page_test
{
    bool page = false;
    bool is_js = false;
};
page_test test_page(const token& path);

// How load_script reports a failure.
enum load_mode : int32_t {
    load_throw_native = 0, // a velk::exception with the script's name and line
    load_rethrow = 1,      // the script exception, rethrown to the calling script
};

// Compiles text in the current context with url as its resource name, and
// runs it. Gives the compiled script; empty after a failure in mode
// load_rethrow. Throws velk::exception in mode load_throw_native (see the
// banner for its text), std::bad_alloc.
v8::Local<v8::Script> load_script(const token& text, const token& url, int32_t mode);

// The outcomes of rebase_path.
enum rebase_result : int {
    rebase_ok = 0,
    rebase_no_frame = 1,      // the stack has no such frame
    rebase_unresolved = 2,    // the registry refused the path
};

// Resolves path as the script of stack frame frame (0: the innermost
// script) names it: relative to that script's directory, or, starting with
// a separator or "file:///", to the root. out gets the full path, relative
// the part behind the root (a view into out; empty unless the registry got
// that far). Throws velk::exception when the process has no registry,
// std::bad_alloc.
int rebase_path(const token& path, uint32_t frame, charstr& out, token& relative);

// Logs (level 2, from source) why the native creator name + version isn't
// there: "interface creator not found (name)" when the registry has no
// native creator of that name at all, else "interface creator version
// mismatch (requested name+version, found key, key...)". Throws as the
// registry does.
void report_missing_creator(const token& source, const token& name, const token& version);

} // namespace velk::js
