// script_runner: the language by extension, the script's place, and the
// hand-over to the language's runner.
#include "host/script_runner.h"

#include "comm/dir/directory.h"
#if HOSTPROBE_WITH_JS
#include "host/js_runner.h"
#endif
#include "host/lua_runner.h"
#include "interface/registrar.h"

#include <cstdio>
#include <cstring>

namespace host {

namespace {

// path made absolute against the current directory, and compacted.
bool absolute_path(const velk::token& path, velk::charstr& out)
{
    if (velk::path_algebra::is_absolute_path(path)) {
        out = path;
    } else {
        out = velk::directory::get_cwd();
        if (out.is_empty() || !velk::path_algebra::append_path(out, path, false))
            return false;
    }
    return velk::path_algebra::compact_path(out, '/');
}

// The part of file's name from its last dot, or null when the name (after
// the last folder) has no dot.
const char* extension_of(const char* file)
{
    const char* name = file;
    for (const char* p = file; *p; ++p)
        if (velk::path_algebra::is_separator(*p))
            name = p + 1;
    return strrchr(name, '.');
}

} // namespace

bool choose_language(const char* file, script_language& out, velk::charstr& error)
{
    const char* ext = extension_of(file);
    if (ext && !strcmp(ext, ".js")) {
        out = script_language::javascript;
        return true;
    }
    if (ext && !strcmp(ext, ".lua")) {
        out = script_language::lua;
        return true;
    }
    error << "run: '" << file << "' is neither JavaScript nor Lua: the file's name must end in .js or .lua";
    return false;
}

bool place_script(const run_request& r, script_place& out, velk::charstr& error)
{
    if (!absolute_path(velk::token(r.file), out.path)) {
        error << "cannot make a full path of '" << r.file << "'";
        return false;
    }
    if (r.root) {
        if (!absolute_path(velk::token(r.root), out.root)) {
            error << "cannot make a full path of the root '" << r.root << "'";
            return false;
        }
        if (!velk::path_algebra::is_separator(out.root.ptr()[out.root.lens() - 1]))
            out.root << '/';
    } else {
        velk::token dir = out.path;
        out.root = dir.cut_back_at_group(velk::path_algebra::separators,
                                         velk::cut_separator_to_returned | velk::cut_empty_if_none);
    }
    velk::token below = out.path;
    out.url.reset();
    if (velk::path_algebra::is_subpath(out.root, below))
        out.url << "file:///" << below;
    else
        out.url = out.path; // outside the root: its includes resolve to nothing
    return true;
}

int run_script(script_language language, const run_request& r, const script_place& place)
{
    if (language == script_language::lua)
        return run_lua_script(r, place);
#if HOSTPROBE_WITH_JS
    return run_js_script(r, place);
#else
    fprintf(stderr, "hostprobe: run: JavaScript is not available in this build\n");
    return 1; // the command fails, as with a plug-in that can't be loaded
#endif
}

void* script_creator(const velk::token& key)
{
    velk::creator_fn c = velk::get_creator(key);
    if (!c)
        fprintf(stderr, "hostprobe: the plug-in registered no creator under %.*s\n", int(key.lens()), key.ptr());
    return reinterpret_cast<void*>(c);
}

} // namespace host
