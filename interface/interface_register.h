// interface_register_impl: the process-wide table of creators under text keys.
//
// Every module of a process carries this class, but only one object counts:
// the one that the main program's iglo_registrar gives. Modules built apart
// reach it through its virtual table, so the order of the virtual slots and
// interface_version are a binary contract between them: a new operation goes
// at the end, and any change of a slot's meaning raises the version. The
// non-virtual members (notify_module_unload, the introspection) run the
// calling module's own copy of the code, so the layouts of the object and of
// creator_entry are part of the contract too.
//
// Invariants: a key is in the table at most once; no entry holds a null
// creator; every token of an entry points into its own ifcname. One mutex
// guards the table for the whole of each operation, list results included;
// no creator is called under it.
//
//   interface_register_impl* r = velk::registrar();
//   if (r->version_ok(velk::interface_version))
//       r->hook_creator("xt::hostprobe_plugin@wrapper*hostprobe_plugin.so:0", creator);
#pragma once

#include "comm/charstr.h"
#include "comm/dynarray.h"
#include "comm/hash_table.h"
#include "comm/log/logmsg.h"
#include "comm/os/module.h"
#include "comm/pthreadx.h"
#include "comm/token.h"
#include "interface/stubsmith_interface.h"

#include <cstdint>
#include <type_traits>

namespace velk {

class regex;
class logger;

// Modules of one process must agree on this number exactly.
inline constexpr int32_t interface_version = 7;

// The host's hooks, given through setup. The log hook makes a message in the
// host (out stays empty when the host wants no line); the path check gives
// the host's verdict on a resolved include path, relative to the root; the
// logger hook gives the host's logger.
using registry_log_hook_fn = void (*)(log_ref& out, int32_t type, const tokenhash& source,
                                      const void* context);
using path_check_hook_fn = bool (*)(const token& relative_path);
using logger_hook_fn = logger* (*)();

// An interface's unload hook, the creator under "interface@unload". Told of
// a client hook that goes with its module (client and module named, data the
// caller's array to append to), and after the module was loaded again (both
// tokens empty, data the array or null when this hook's first call wrote
// nothing). Its answer is not read.
using unload_hook_fn = bool (*)(const token& client, const token& module, dynarray<uint8_t>* data);

// One node's value in the table. All tokens are views into ifcname, whose
// leading keylen characters are the key; the rest is the module part.
struct creator_entry
{
    charstr ifcname;
    token class_name;
    token method;
    token ns;
    token script;
    token kind;
    token module;
    uint64_t module_handle;
    creator_fn creator;
    uint32_t hash;
    uint32_t keylen;
};

// One record of a list result. The key points into the entry's text and
// stays valid only while the entry exists.
struct creator_match
{
    token key;
    creator_fn creator;
};

// A removed client hook, as notify_module_unload reports it.
struct unload_entry
{
    charstr ifcname;
    uint32_t offset; // length of the data array before the hook ran
    uint32_t size;   // what the hook added to it
};

template <>
struct relocatable<unload_entry> : std::true_type {};

using creator_table = token_hash_table<creator_entry>;

class interface_register_impl
{
public:
    // As the singleton managers' lock: held only for table operations.
    static constexpr uint32_t spin_count = 500;

    // An empty table of 64 buckets, an empty root path and no hooks.
    // Throws std::bad_alloc.
    interface_register_impl();
    // Frees every entry, the root path and the mutex.
    virtual ~interface_register_impl();

    interface_register_impl(const interface_register_impl&) = delete;
    interface_register_impl& operator=(const interface_register_impl&) = delete;

    // -- The virtual slots, in their contracted order -----------------------

    // With a creator: enters full_key (key, and "*" and the module part if
    // any); false, the earlier entry unchanged, when the key is there. With
    // null: removes the key, whoever entered it; false when it is absent.
    // Throws std::bad_alloc with the table unchanged.
    virtual bool hook_creator(const token& full_key, creator_fn creator);

    // Appends the entries without a script part whose whole key pattern
    // matches (regex::match, a non-empty result). Gives out. Throws
    // std::bad_alloc, with the records made so far appended.
    virtual dynarray<creator_match>& find_by_pattern(const regex& pattern, dynarray<creator_match>& out);

    // The creator under name + "@wrapper", or null.
    virtual creator_fn wrapper_creator_of(const token& name);

    // Appends the entries of name ("[ns::]class[.method]"; an empty ns or
    // method matches any). A null script matches any script part, an empty
    // one only entries without one. Gives out. Throws std::bad_alloc, with
    // the records made so far appended.
    virtual dynarray<creator_match>& find_creators(const token& name, const token& script,
                                                   dynarray<creator_match>& out);

    // Appends the script-side creators of name: entries without a script
    // part whose namespace is the requested one followed by "::" and script
    // (a null script takes the namespace as it stands). Throws as above.
    virtual dynarray<creator_match>& find_script_creators(const token& name, const token& script,
                                                          dynarray<creator_match>& out);

    // The hook of client on interface ifc, under ifc + "@client-" + hash +
    // "." + client, or null. A non-empty module must end the file name of the
    // registering module, case ignored. Throws std::bad_alloc.
    virtual creator_fn client_creator(const token& client, const token& ifc, uint32_t hash,
                                      const token& module);

    // The creator under ifc + "@maker." + script, or null. Callable only
    // while its module stays loaded. Throws std::bad_alloc.
    virtual creator_fn maker_creator(const token& ifc, const token& script);

    // Appends the client hooks on ifc ("[ns::]class", the class taken whole)
    // with this hash: each record's key is the client's name. The namespace
    // must be equal, an empty one only matching entries without one. Gives
    // out. Throws std::bad_alloc, with the records made so far appended.
    virtual dynarray<creator_match>& find_clients(const token& ifc, int32_t hash,
                                                  dynarray<creator_match>& out);

    // The root of include paths; empty until the first setup with a path.
    virtual const charstr& root_path();
    virtual registry_log_hook_fn log_hook();
    virtual path_check_hook_fn path_check_hook();
    virtual logger_hook_fn logger_hook();

    // The creator under key, or null. It stays callable only while the
    // module that registered it stays loaded; nothing here keeps it loaded.
    virtual creator_fn find_creator(const token& key);

    // The first call with a non-empty path fixes the root (a separator is
    // added when it ends in none); later paths are ignored. Each non-null
    // hook replaces the stored one. Meant for the host, before other threads
    // use the registry. Throws std::bad_alloc.
    virtual void setup(const token& path, registry_log_hook_fn log_hook,
                       path_check_hook_fn path_check_hook, logger_hook_fn logger_hook);

    // True when version equals interface_version.
    virtual bool version_ok(int32_t version);

    // Turns the include path that a script names, seen from current_path
    // (a directory: absolute, or relative to the root, with or without
    // "file:///"), into a compacted full path below the root, in out. An
    // include path that starts with a separator or is absolute is taken
    // from the root. False when the path can't be made, holds a zero byte,
    // leaves the root by any ".." segment, or is refused by the host's path
    // check, which judges the paths taken from the root; out is unspecified
    // then. When out_relative isn't null it
    // receives the part behind the root, a view into out. With an empty
    // root every path that doesn't climb above its start lies below it.
    // Throws std::bad_alloc.
    virtual bool resolve_include_path(const token& current_path, const token& include_path,
                                      charstr& out, token* out_relative);

    // -- Not virtual: run by the calling module's own code -------------------

    // A host that replaces a module calls this twice, with the module's
    // handle before unloading it and with 0 after loading the new build,
    // with the same data and list, which are the caller's.
    // With a handle: every client hook that the module registered goes from
    // the table; the interface's unload hook, if any, is called first (under
    // the mutex) and may append to data; a record of the hook (its whole
    // text, its part of data) is appended to list. Other entries stay.
    // With 0: for each record in list, the unload hook of its interface, if
    // any, is called with empty tokens and data (null when the record's part
    // is empty), to restore. Always true. An exception from a hook passes
    // through, with the mutex released and the records made so far in list.
    bool notify_module_unload(uint64_t module_handle, dynarray<uint8_t>& data,
                              dynarray<unload_entry>& list);

    // -- Introspection, for diagnosis and tests ------------------------------

    // Entries and buckets of the table, read under the mutex.
    uint64_t count();
    uint64_t bucket_count();

    // Calls fn(entry) with the entry of key under the mutex; false, and fn
    // not called, when the key is absent.
    template <class FN>
    bool inspect_entry(const token& key, FN fn)
    {
        comm_mutex_guard guard(_mutex);
        const creator_entry* e = _hash.find_value(key);
        if (e)
            fn(*e);
        return e != nullptr;
    }

private:
    template <class MATCH>
    void append_matches(dynarray<creator_match>& out, MATCH match);
    bool insert_entry(charstr& text, creator_fn creator);
    bool current_directory(const token& current_path, charstr& out);
    bool remove_entry(const token& key);
    void remove_client_hooks(uint64_t module_handle, dynarray<uint8_t>& data, dynarray<unload_entry>& list);
    void restore_after_reload(dynarray<uint8_t>& data, dynarray<unload_entry>& list);
    static void report_lost_node();

    creator_table _hash;
    comm_mutex _mutex;
    charstr _root_path;
    registry_log_hook_fn _log_hook = nullptr;
    path_check_hook_fn _path_check_hook = nullptr;
    logger_hook_fn _logger_hook = nullptr;
};

// The type of iglo_registrar, as a lookup by name gives it.
using iglo_registrar_fn = interface_register_impl* (*)();

// This module's own registry, the one it exports as iglo_registrar: made on
// first use as a module-local singleton, destroyed with the module's static
// destruction; null after that. Reached directly, never through the exported
// name, which the loader may bind to the main program's. Throws
// std::bad_alloc on the first call when the registry can't be made.
interface_register_impl* own_interface_registry();

} // namespace velk

// Gives this module's own registry (own_interface_registry). Exported, so
// that the modules that the main program loads find the main program's.
extern "C" VELK_MODULE_EXPORT velk::interface_register_impl* iglo_registrar();
