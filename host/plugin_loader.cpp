// plugin_loader: loading and unloading the plug-in module.
#include "host/plugin_loader.h"

#include "host/host_registry.h"

namespace host {

bool plugin_module::load(const char* path, velk::charstr& error)
{
    if (is_loaded()) {
        error << "a plug-in is loaded already";
        return false;
    }
    if (!_library.open(path)) {
        error << "cannot load the plug-in '" << path << "': " << velk::dynamic_library::last_failure();
        return false;
    }
    return true;
}

// The module's log lines may still wait in the host's queue: they are its
// objects, and go before it does.
void plugin_module::unload()
{
    if (is_loaded())
        flush_log();
    _library.close();
}

} // namespace host
