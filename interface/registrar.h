// registrar: the module-side front of the interface registry.
//
// Every module has this front; each function ends in one virtual call on the
// process's registry, the one that the main program exports as
// iglo_registrar. A module never uses its own registry through this front:
// a host that exports none cannot take a module, whose first registration
// then throws. register_creator and get_creator check the version of the
// registry; the other functions forward as they are.
//
//   velk::register_creator("xt::hostprobe_plugin@wrapper", creator); // at load
//   velk::creator_fn c = velk::get_creator("xt::hostprobe_plugin@wrapper");
#pragma once

#include "comm/charstr.h"
#include "comm/dynarray.h"
#include "comm/token.h"
#include "interface/interface_register.h"

#include <cstdint>

namespace velk {

// The process's registry, looked up in the main program on the first call
// and then cached. Never null: throws velk::exception with the text "no
// stubsmith entry point found" when the main program exports no
// iglo_registrar (or it answers null).
interface_register_impl* registrar();

// As registrar, but null where registrar throws. For the log call, which
// must work in any program.
interface_register_impl* registrar_if_found();

// Clears the cache of registrar when it holds r: the registry r is about to
// go, with the static destruction of the module that owns it.
void forget_registrar(interface_register_impl* r);

// Enters key with creator, or removes key when creator is null, on behalf of
// this module: the registry gets key + "*" + this module's file name + ":" +
// its handle. False when the registry's version differs (logged when
// creator isn't null), when the key is there already (the earlier creator
// stays), or for the removal of an absent key. Throws as registrar, or
// std::bad_alloc.
bool register_creator(const token& key, creator_fn creator);

// The creator under key, or null; null and a logged error when the
// registry's version differs. Throws as registrar.
creator_fn get_creator(const token& key);

// -- Forwarding, without a version check; each throws as registrar ----------

dynarray<creator_match>& find_by_pattern(const regex& pattern, dynarray<creator_match>& out);
creator_fn wrapper_creator_of(const token& name);
dynarray<creator_match>& find_creators(const token& name, const token& script, dynarray<creator_match>& out);
dynarray<creator_match>& find_script_creators(const token& name, const token& script,
                                              dynarray<creator_match>& out);
creator_fn client_creator(const token& client, const token& ifc, uint32_t hash, const token& module);
creator_fn maker_creator(const token& ifc, const token& script);
dynarray<creator_match>& find_clients(const token& ifc, int32_t hash, dynarray<creator_match>& out);
const charstr& root_path();
void setup(const token& path, registry_log_hook_fn log_hook, path_check_hook_fn path_check_hook,
           logger_hook_fn logger_hook);
bool resolve_include_path(const token& current_path, const token& include_path, charstr& out,
                          token* out_relative);

// The library's log call (create_log_msg and get_logger, comm/log/logmsg.h)
// takes the route that this front installs at start: the registry's log
// hook, then its logger hook, then the module's own logger.

} // namespace velk
