// registrar: finding the process's registry, the registration of this
// module's keys with its name and handle, and the log call through the
// host's hook.
#include "interface/registrar.h"

#include "comm/dir/directory.h"
#include "comm/exception.h"
#include "comm/log/logger.h"
#include "comm/os/module.h"

#include <atomic>

namespace velk {

namespace {

// The registry once found. Racing first uses find the same object, so the
// store needs no lock; it is atomic only so that the race is well defined.
constinit std::atomic<interface_register_impl*> registrar_cache{nullptr};
// What the cache holds once the lookup found nothing. A function, not a
// constant: the cache is read by static initialisers of other files.
interface_register_impl* no_registrar() { return reinterpret_cast<interface_register_impl*>(uintptr_t(1)); }

// Module paths are cut to 259 characters, what a name buffer of 260 bytes
// holds with its terminator: the limit that modules of every build apply,
// so that they name one module alike.
constexpr uint32_t max_module_path = 259;

interface_register_impl* look_up_registrar()
{
    auto entry = reinterpret_cast<iglo_registrar_fn>(os::main_program_symbol("iglo_registrar"));
    return entry ? entry() : nullptr;
}

// "*", then the file name of the module that holds this code and ":" and its
// handle; just "*:0" when the system can't tell the module.
void append_module_part(charstr& text)
{
    charstr path;
    uint64_t handle = directory::module_of_address(reinterpret_cast<const void*>(&append_module_part), path);
    text << '*';
    if (!path.is_empty()) {
        token file = path;
        if (file.lens() > max_module_path)
            file = token(file.ptr(), max_module_path);
        text << file.cut_back_at_group(path_algebra::separators, cut_drop_separator | cut_return_right);
    } else {
        handle = 0;
    }
    text << ':' << handle;
}

} // namespace

namespace {

// A main program's exports are fixed when it is loaded, so "none" is
// remembered as well: a program without a registry must not pay a symbol
// lookup on every log call.
[[gnu::noinline]] interface_register_impl* look_up_and_cache()
{
    interface_register_impl* r = look_up_registrar();
    registrar_cache.store(r ? r : no_registrar(), std::memory_order_release);
    return r;
}

// The cached answer without a call: the log call asks on every line.
inline interface_register_impl* cached_registrar()
{
    interface_register_impl* r = registrar_cache.load(std::memory_order_acquire);
    if (__builtin_expect(r != nullptr, 1))
        return r == no_registrar() ? nullptr : r;
    return look_up_and_cache();
}

} // namespace

interface_register_impl* registrar_if_found() { return cached_registrar(); }

interface_register_impl* registrar()
{
    interface_register_impl* r = registrar_if_found();
    if (!r)
        throw exception("no stubsmith entry point found");
    return r;
}

void forget_registrar(interface_register_impl* r)
{
    registrar_cache.compare_exchange_strong(r, nullptr);
}

bool register_creator(const token& key, creator_fn creator)
{
    interface_register_impl* r = registrar();
    if (!r->version_ok(interface_version)) {
        if (creator) { // a refused removal stays silent
            VELK_LOG(log_level::error, "ifcreg") << "declined interface registration for " << key
                                  << ", mismatched stubsmith version (v" << interface_version << ")";
        }
        return false;
    }
    charstr text;
    text << key;
    append_module_part(text);
    return r->hook_creator(text, creator);
}

creator_fn get_creator(const token& key)
{
    interface_register_impl* r = registrar();
    if (!r->version_ok(interface_version)) {
        VELK_LOG(log_level::error, "ifcreg") << "mismatched stubsmith version for " << key << "(v" << interface_version << ")";
        return nullptr;
    }
    return r->find_creator(key);
}

// -- Forwarding ---------------------------------------------------------------

dynarray<creator_match>& find_by_pattern(const regex& pattern, dynarray<creator_match>& out)
{
    return registrar()->find_by_pattern(pattern, out);
}

creator_fn wrapper_creator_of(const token& name) { return registrar()->wrapper_creator_of(name); }

dynarray<creator_match>& find_creators(const token& name, const token& script, dynarray<creator_match>& out)
{
    return registrar()->find_creators(name, script, out);
}

dynarray<creator_match>& find_script_creators(const token& name, const token& script,
                                              dynarray<creator_match>& out)
{
    return registrar()->find_script_creators(name, script, out);
}

creator_fn client_creator(const token& client, const token& ifc, uint32_t hash, const token& module)
{
    return registrar()->client_creator(client, ifc, hash, module);
}

creator_fn maker_creator(const token& ifc, const token& script)
{
    return registrar()->maker_creator(ifc, script);
}

dynarray<creator_match>& find_clients(const token& ifc, int32_t hash, dynarray<creator_match>& out)
{
    return registrar()->find_clients(ifc, hash, out);
}

const charstr& root_path() { return registrar()->root_path(); }

void setup(const token& path, registry_log_hook_fn log_hook, path_check_hook_fn path_check_hook,
           logger_hook_fn logger_hook)
{
    registrar()->setup(path, log_hook, path_check_hook, logger_hook);
}

bool resolve_include_path(const token& current_path, const token& include_path, charstr& out,
                          token* out_relative)
{
    return registrar()->resolve_include_path(current_path, include_path, out, out_relative);
}

// -- The log call ---------------------------------------------------------------

namespace {

// The host's log hook when the process's registry holds one; else the
// host's logger when the registry gives one; else the line is left to the
// module's own logger. The registry is asked whatever its version, so that
// the refusals of a registry of another version reach the host's log too.
// Every answer is a counted reference already, never a weak one, so there is
// no count that could have reached 0 by the time it arrives: nothing to lock.
bool route_to_host(log_ref& out, int32_t type, const tokenhash& source, const void* context)
{
    interface_register_impl* r = cached_registrar();
    if (!r)
        return false;
    if (registry_log_hook_fn hook = r->log_hook()) {
        hook(out, type, source, context);
        return true;
    }
    if (logger_hook_fn hook = r->logger_hook())
        if (logger* l = hook()) {
            out = l->create_msg(type, source, context);
            return true;
        }
    return false;
}

logger* hosts_logger()
{
    if (interface_register_impl* r = cached_registrar())
        if (logger_hook_fn hook = r->logger_hook())
            return hook();
    return nullptr;
}

// Runs before the module's ordinary static initialisers, so that their log
// lines take the host's road too.
[[gnu::constructor(101)]] void install_route_to_host() { install_log_route(&route_to_host, &hosts_logger); }

} // namespace

} // namespace velk
