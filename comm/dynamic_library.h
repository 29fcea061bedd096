// dynamic_library: a loaded module by its handle, and the loader's reason
// when a module could not be loaded.
//
// The reason is copied out of the loader at the failure, since the loader
// keeps only its latest message and overwrites it on the next call.
#pragma once

#include "comm/charstr.h"

#include <cstdint>

namespace velk {

class dynamic_library
{
public:
    dynamic_library() = default;
    // Loads name; a null name leaves the handle null. A failed load leaves it null too.
    explicit dynamic_library(const char* name) { if (name) open(name); }
    dynamic_library(const dynamic_library&) = delete;
    dynamic_library& operator=(const dynamic_library&) = delete;

    // True when the module was loaded. False, with the handle null and the
    // loader's reason in error_text, when it wasn't; a load that succeeds
    // drops the reason of an earlier failure.
    bool open(const char* name);
    // Unloads; on success the handle is null. A library that never loaded
    // gives false and keeps its handle as it was.
    bool close();
    // Address of an exported symbol, or null.
    void* symbol(const char* name) const;

    void* handle() const { return _handle; }
    // Why the last open failed, in the loader's words, e.g.
    // "/x.so: cannot open shared object file: No such file or directory";
    // "Unknown error" when no open has failed or the loader gave no reason.
    const char* error_text() const { return _error.is_empty() ? "Unknown error" : _error.c_str(); }

private:
    void* _handle = nullptr;
    charstr _error;
};

} // namespace velk
