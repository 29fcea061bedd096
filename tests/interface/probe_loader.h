// Test helper: one probe module loaded as a host loads a plug-in, with
// immediate binding and local symbols, and unloaded at the end of scope.
#pragma once

#include "tests/comm/singleton_probe.h"
#include "tests/support/module_loader.h"

#include <string>

namespace velk::testing {

class loaded_probe
{
public:
    explicit loaded_probe(const char* path) : _handle(load_module(path))
    {
        if (_handle) {
            auto table = reinterpret_cast<singleton_probe_table_fn>(module_symbol(_handle, "singleton_probe_table"));
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

    // Unloads; true when the loader accepted it. The table is gone afterwards.
    bool close()
    {
        _probe = nullptr;
        if (!_handle)
            return false;
        bool closed = unload_module(_handle);
        _handle = nullptr;
        return closed;
    }

private:
    void* _handle;
    const singleton_probe* _probe = nullptr;
};

// Whether the loader still has the module at path in the process: a lookup
// that never loads anything.
inline bool is_module_loaded(const char* path) { return module_in_process(path); }

// A type name that no earlier registration of this process used: the
// process-wide list outlives each test when a suite runs in one process.
inline std::string fresh_type_name(const char* base)
{
    static int serial = 0;
    return std::string(base) + "#" + std::to_string(++serial);
}

} // namespace velk::testing
