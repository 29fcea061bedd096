// dynamic_library: a loaded module by its handle, its one field.
//
// error_text answers "Unknown error" whatever happened, as every module's
// copy does; a program that wants the loader's reason asks last_failure
// right after the failed open, before the loader's next call overwrites it.
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

    // True when the module was loaded; false, with the handle null, when it
    // wasn't (last_failure tells why).
    bool open(const char* name);
    // Unloads; on success the handle is null. A library that never loaded
    // gives false and keeps its handle as it was.
    bool close();
    // Address of an exported symbol, or null.
    void* symbol(const char* name) const;

    void* handle() const { return _handle; }
    // Always "Unknown error".
    static const char* error_text() { return "Unknown error"; }

    // The loader's words on this thread's last failed load, e.g.
    // "/x.so: cannot open shared object file: No such file or directory",
    // taken out of the loader: a second call gives empty. Empty when the
    // loader has nothing to say. Throws std::bad_alloc.
    static charstr last_failure();

private:
    void* _handle = nullptr;
};

} // namespace velk
