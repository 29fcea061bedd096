// plugin_loader: the plug-in module as the reference host loads it.
//
// Loading runs the module's static registration, which enters its keys in
// the host's registry; unloading runs its static destruction, which takes
// them out. So objects made by the module's creators must be gone before
// it is unloaded: their code lives in the module.
#pragma once

#include "comm/charstr.h"
#include "comm/dynamic_library.h"

namespace host {

class plugin_module
{
public:
    plugin_module() = default;
    // Unloads the module if it is loaded.
    ~plugin_module() { unload(); }
    plugin_module(const plugin_module&) = delete;
    plugin_module& operator=(const plugin_module&) = delete;

    // Loads the module at path. False, with the reason in error, when a
    // module is loaded already or the system can't load it; then the
    // loader's own words follow the path, since only they tell a missing
    // file from a broken one. An exception of the module's static
    // registration is the system's matter: it ends the process.
    bool load(const char* path, velk::charstr& error);

    // Unloads the module; nothing when none is loaded.
    void unload();

    bool is_loaded() const { return _library.handle() != nullptr; }

private:
    velk::dynamic_library _library;
};

} // namespace host
