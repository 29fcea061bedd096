// interface_register_impl: the table operations, the host's settings and the
// resolution of include paths.
//
// Keys are parsed once, when they are entered; an entry keeps views of its
// parts, so the list operations compare part by part without splitting keys
// again. Each operation holds the mutex for its whole length.
#include "interface/interface_register.h"

#include "comm/commassert.h"
#include "comm/dir/path_algebra.h"
#include "comm/regex/regex.h"
#include "interface/creator_key.h"

#include <cstring>
#include <utility>

namespace velk {

namespace {

bool has_zero_byte(const token& t)
{
    return t.lens() && memchr(t.ptr(), 0, t.lens()) != nullptr;
}

// Whether any segment of path is "..".
bool has_climb(const token& path)
{
    const char* seg = path.ptr();
    for (const char* p = path.ptr(); ; ++p) {
        bool end = p == path.ptre();
        if (end || path_algebra::is_separator(*p)) {
            if (p - seg == 2 && seg[0] == '.' && seg[1] == '.')
                return true;
            if (end)
                return false;
            seg = p + 1;
        }
    }
}

// Compacts path with "/" and checks that no ".." is left in it: the include
// part of a path is appended unnormalised, and its ".." segments must not
// lead out of the root once a file is opened under the path. Compaction
// keeps the ".." segments that it can't undo in a relative path.
bool stays_compact_below_root(charstr& path)
{
    return path_algebra::compact_path(path, '/') && !has_climb(path);
}

token key_of(const creator_entry& e) { return prefix_key(e.ifcname.ptr(), e.keylen); }

// Fills a fresh entry from the parse of text, then takes text over. The
// parts point into text's buffer, which moves into the entry unchanged.
void fill_entry(creator_entry& e, const creator_key& k, charstr& text, creator_fn creator)
{
    e.class_name = k.class_name;
    e.method = k.method;
    e.ns = k.ns;
    e.script = k.script;
    e.kind = k.kind;
    e.module = k.module;
    e.module_handle = k.module_handle;
    e.creator = creator;
    e.hash = k.hash;
    e.keylen = k.key.lens();
    e.ifcname = std::move(text);
}

// ns, as a script-side creator of script lives in it: "outer::script",
// giving "outer". A null script takes ns as it stands. False when ns isn't
// of that form.
bool outer_namespace(const token& ns, const token& script, token& outer)
{
    if (script.is_null()) {
        outer = ns;
        return true;
    }
    uint32_t n = script.lens();
    if (ns.lens() < n + 2 || !(token(ns.ptre() - n, n) == script))
        return false;
    const char* sep = ns.ptre() - n - 2;
    if (sep[0] != ':' || sep[1] != ':')
        return false;
    outer = token(ns.ptr(), sep);
    return true;
}

} // namespace

interface_register_impl::interface_register_impl() : _hash(hash_table_initial_buckets), _mutex(spin_count)
{
}

interface_register_impl::~interface_register_impl() = default;

// -- Entering and removing keys ---------------------------------------------

bool interface_register_impl::hook_creator(const token& full_key, creator_fn creator)
{
    if (!creator) // removal: the module part takes no part in it
        return remove_entry(parse_creator_key(full_key).key);
    charstr text(full_key);
    return insert_entry(text, creator);
}

// The text is parsed before the lock; a refused key leaves it with the
// caller, who frees it.
bool interface_register_impl::insert_entry(charstr& text, creator_fn creator)
{
    creator_key k = parse_creator_key(text);
    comm_mutex_guard guard(_mutex);
    creator_entry* e = _hash.insert_unique(k.key);
    if (!e) // the key is there: the earlier entry stays
        return false;
    fill_entry(*e, k, text, creator);
    return true;
}

bool interface_register_impl::remove_entry(const token& key)
{
    comm_mutex_guard guard(_mutex);
    return _hash.erase(key) != 0;
}

// -- Lookups ----------------------------------------------------------------

creator_fn interface_register_impl::find_creator(const token& key)
{
    comm_mutex_guard guard(_mutex);
    const creator_entry* e = _hash.find_value(key);
    return e ? e->creator : nullptr;
}

creator_fn interface_register_impl::wrapper_creator_of(const token& name)
{
    charstr key;
    key << name << "@wrapper";
    return find_creator(key);
}

// Walks every entry in bucket order under the mutex and appends those that
// match says yes to.
template <class MATCH>
void interface_register_impl::append_matches(dynarray<creator_match>& out, MATCH match)
{
    comm_mutex_guard guard(_mutex);
    for (const creator_table::node* n = _hash.first(); n; n = _hash.next(n)) {
        if (match(n->value))
            out.push(creator_match{key_of(n->value), n->value.creator});
    }
}

dynarray<creator_match>& interface_register_impl::find_creators(const token& name, const token& script,
                                                                dynarray<creator_match>& out)
{
    interface_name want = split_interface_name(name);
    append_matches(out, [&](const creator_entry& e) {
        return (script.is_null() || e.script == script) && e.class_name == want.class_name &&
               (want.method.is_empty() || e.method == want.method) &&
               (want.ns.is_empty() || e.ns == want.ns);
    });
    return out;
}

dynarray<creator_match>& interface_register_impl::find_script_creators(const token& name,
                                                                       const token& script,
                                                                       dynarray<creator_match>& out)
{
    interface_name want = split_interface_name(name);
    append_matches(out, [&](const creator_entry& e) {
        token outer;
        return e.script.is_empty() && e.class_name == want.class_name &&
               (want.method.is_empty() || e.method == want.method) &&
               outer_namespace(e.ns, script, outer) && (want.ns.is_empty() || outer == want.ns);
    });
    return out;
}

// -- Patterns, client hooks and makers ---------------------------------------

// Only entries without a script part are offered to the pattern, and only a
// whole-key match counts: match gives the empty token when it stopped short.
dynarray<creator_match>& interface_register_impl::find_by_pattern(const regex& pattern,
                                                                  dynarray<creator_match>& out)
{
    append_matches(out, [&](const creator_entry& e) {
        return e.script.is_empty() && !pattern.match(key_of(e)).is_empty();
    });
    return out;
}

creator_fn interface_register_impl::client_creator(const token& client, const token& ifc, uint32_t hash,
                                                   const token& module)
{
    charstr key;
    key << ifc << "@client-" << hash << '.' << client;
    comm_mutex_guard guard(_mutex);
    const creator_entry* e = _hash.find_value(key);
    if (!e || e->hash != hash) // the key holds the hash: a differing one can't come from a parse
        return nullptr;
    if (!module.is_empty() && !e->module.ends_with_icase(module))
        return nullptr;
    return e->creator;
}

creator_fn interface_register_impl::maker_creator(const token& ifc, const token& script)
{
    charstr key;
    key << ifc << "@maker." << script;
    return find_creator(key);
}

// The class is what follows the last run of ":", dots and all; the namespace
// must be equal, an empty one included.
dynarray<creator_match>& interface_register_impl::find_clients(const token& ifc, int32_t hash,
                                                               dynarray<creator_match>& out)
{
    token ns = ifc;
    token class_name = ns.cut_back_at_group("::", cut_drop_separator | cut_return_right);
    comm_mutex_guard guard(_mutex);
    for (const creator_table::node* n = _hash.first(); n; n = _hash.next(n)) {
        const creator_entry& e = n->value;
        if (e.hash == static_cast<uint32_t>(hash) && e.kind == token("client") && e.class_name == class_name &&
            e.ns == ns)
            out.push(creator_match{e.script, e.creator});
    }
    return out;
}

// -- Module unload ---------------------------------------------------------------

bool interface_register_impl::notify_module_unload(uint64_t module_handle, dynarray<uint8_t>& data,
                                                   dynarray<unload_entry>& list)
{
    comm_mutex_guard guard(_mutex); // held across the hooks, which may call in again on this thread
    if (module_handle != 0)
        remove_client_hooks(module_handle, data, list);
    else
        restore_after_reload(data, list);
    return true;
}

// The first mode. Each client hook of the module goes, after the interface's
// unload hook (the text up to the end of the class, and "@unload") had its
// say: it is told the client and the module and may append to data what it
// needs back once the module is loaded again. The node after the current one
// is found first, since the current one goes away.
void interface_register_impl::remove_client_hooks(uint64_t module_handle, dynarray<uint8_t>& data,
                                                  dynarray<unload_entry>& list)
{
    for (creator_table::node* n = _hash.first(); n;) {
        creator_table::node* after = _hash.next(n);
        creator_entry& en = n->value;
        if (en.module_handle != module_handle || !(en.kind == token("client"))) {
            n = after;
            continue;
        }
        uint32_t offset = data.size();
        charstr hook_key;
        hook_key << token(en.ifcname.ptr(), en.class_name.ptre()) << "@unload";
        if (const creator_entry* hook = _hash.find_value(hook_key))
            reinterpret_cast<unload_hook_fn>(hook->creator)(en.script, en.module, &data);
        unload_entry* ue = list.push();
        ue->ifcname = std::move(en.ifcname);
        ue->offset = offset;
        ue->size = data.size() - offset;
        if (!_hash.erase_value_slot(&en, token(ue->ifcname.ptr(), ue->ifcname.ptr() + en.keylen)))
            report_lost_node();
        n = after;
    }
}

// The node of an entry that the walk just met was not in the chain of its
// key: the table is broken. Reported under the place that every module's
// copy of this code reports it with.
void interface_register_impl::report_lost_node()
{
    assert_message detail;
    if (assert_report(detail, "comm/interface", 438, "velk::interface_register_impl::notify_module_unload",
                      "_hash.erase_value_slot(&en, token(ue->ifcname.ptr(), ue->ifcname.ptr() + en.keylen))", 1))
        VELK_TRAP();
}

// The second mode: every interface that lost a client hook hears, through
// empty tokens, that it may restore. A hook gets the whole data array, or
// null when its own call wrote nothing; it finds its own part itself.
void interface_register_impl::restore_after_reload(dynarray<uint8_t>& data, dynarray<unload_entry>& list)
{
    for (const unload_entry& ue : list) {
        token name = ue.ifcname;
        const char* at = static_cast<const char*>(memchr(name.ptr(), '@', name.lens()));
        charstr hook_key;
        hook_key << token(name.ptr(), at ? at : name.ptre()) << "@unload";
        const creator_entry* hook = _hash.find_value(hook_key);
        if (!hook)
            continue;
        reinterpret_cast<unload_hook_fn>(hook->creator)(token(), token(), ue.size > 0 ? &data : nullptr);
    }
}

// -- The host's settings ------------------------------------------------------

const charstr& interface_register_impl::root_path() { return _root_path; }
registry_log_hook_fn interface_register_impl::log_hook() { return _log_hook; }
path_check_hook_fn interface_register_impl::path_check_hook() { return _path_check_hook; }
logger_hook_fn interface_register_impl::logger_hook() { return _logger_hook; }

void interface_register_impl::setup(const token& path, registry_log_hook_fn log_hook,
                                    path_check_hook_fn path_check_hook, logger_hook_fn logger_hook)
{
    comm_mutex_guard guard(_mutex);
    if (_root_path.is_empty()) {
        _root_path = path;
        if (!_root_path.is_empty() && !path_algebra::is_separator(_root_path.ptr()[_root_path.lens() - 1]))
            _root_path << path_algebra::separator;
    }
    if (log_hook)
        _log_hook = log_hook;
    if (path_check_hook)
        _path_check_hook = path_check_hook;
    if (logger_hook)
        _logger_hook = logger_hook;
}

bool interface_register_impl::version_ok(int32_t version) { return version == interface_version; }

// -- Include paths --------------------------------------------------------------

// In order: the path is made from the root (an include path that starts
// with a separator, or is absolute), or from the current path and the
// include path (relative); it must then lie below the root. The host judges
// the paths taken from the root; a relative include is fenced by the root
// alone.
bool interface_register_impl::resolve_include_path(const token& current_path, const token& include_path,
                                                   charstr& out, token* out_relative)
{
    if (has_zero_byte(current_path) || has_zero_byte(include_path))
        return false; // a file name would end early at it
    bool host_checks = true;
    char first = include_path.first_char();
    if (path_algebra::is_separator(first) || path_algebra::is_absolute_path(include_path)) {
        token rest = include_path;
        if (path_algebra::is_separator(first))
            rest = token(rest.ptr() + 1, rest.ptre());
        out = _root_path;
        if (!path_algebra::append_path(out, rest, true))
            return false;
    } else {
        if (!current_directory(current_path, out) || !path_algebra::append_path(out, include_path, true))
            return false;
        host_checks = false;
    }
    if (!stays_compact_below_root(out))
        return false;
    token rest = out;
    if (!path_algebra::is_subpath(_root_path, rest))
        return false;
    if (out_relative)
        *out_relative = rest;
    return !host_checks || !_path_check_hook || _path_check_hook(rest);
}

// The current path as the base of a relative include: as it stands when it
// is absolute, else below the root, without a leading "file:///". Compacted.
bool interface_register_impl::current_directory(const token& current_path, charstr& out)
{
    token current = current_path;
    if (path_algebra::is_absolute_path(current)) {
        out = current;
    } else {
        current.consume_prefix_icase("file:///");
        out = _root_path;
        if (!path_algebra::append_path(out, current, true))
            return false;
    }
    return path_algebra::compact_path(out, '/');
}

// -- Introspection --------------------------------------------------------------

uint64_t interface_register_impl::count()
{
    comm_mutex_guard guard(_mutex);
    return _hash.count();
}

uint64_t interface_register_impl::bucket_count()
{
    comm_mutex_guard guard(_mutex);
    return _hash.bucket_count();
}

} // namespace velk
