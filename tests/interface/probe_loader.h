// Test helper: one probe module loaded as a host loads a plug-in, with
// immediate binding and local symbols, and unloaded at the end of scope.
#pragma once

#include "tests/comm/singleton_probe.h"

#include <dlfcn.h>

#include <string>

namespace velk::testing {

class loaded_probe
{
public:
    explicit loaded_probe(const char* path) : _handle(dlopen(path, RTLD_NOW | RTLD_LOCAL))
    {
        if (_handle) {
            auto table = reinterpret_cast<singleton_probe_table_fn>(dlsym(_handle, "singleton_probe_table"));
            _probe = table ? table() : nullptr;
        }
    }
    ~loaded_probe() { close(); }
    loaded_probe(const loaded_probe&) = delete;
    loaded_probe& operator=(const loaded_probe&) = delete;

    // True when the module loaded and exports its table.
    bool is_loaded() const { return _probe != nullptr; }
    const singleton_probe* operator->() const { return _probe; }
    const singleton_probe& operator*() const { return *_probe; }
    void* handle() const { return _handle; }

    // dlclose; true when the loader accepted it. The table is gone afterwards.
    bool close()
    {
        _probe = nullptr;
        if (!_handle)
            return false;
        bool closed = dlclose(_handle) == 0;
        _handle = nullptr;
        return closed;
    }

private:
    void* _handle;
    const singleton_probe* _probe = nullptr;
};

// Whether the loader still has the module at path in the process: a lookup
// that never loads anything.
inline bool is_module_loaded(const char* path)
{
    void* h = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (!h)
        return false;
    dlclose(h);
    return true;
}

// A type name that no earlier registration of this process used: the
// process-wide list outlives each test when a suite runs in one process.
inline std::string fresh_type_name(const char* base)
{
    static int serial = 0;
    return std::string(base) + "#" + std::to_string(++serial);
}

} // namespace velk::testing
