// plugin_loader: loading and unloading the plug-in module.
#include "host/plugin_loader.h"

namespace host {

bool plugin_module::load(const char* path, velk::charstr& error)
{
    if (is_loaded()) {
        error << "a plug-in is loaded already";
        return false;
    }
    if (!_library.open(path)) {
        error << "cannot load the plug-in '" << path << "'";
        return false;
    }
    return true;
}

void plugin_module::unload()
{
    _library.close();
}

} // namespace host
