// dynamic_library: a loaded module by its handle.
#pragma once

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

    // True when the module was loaded.
    bool open(const char* name);
    // Unloads; on success the handle is null. A library that never loaded
    // gives false and keeps its handle as it was.
    bool close();
    // Address of an exported symbol, or null.
    void* symbol(const char* name) const;

    void* handle() const { return _handle; }
    // The system gives no more than this.
    static const char* error_text() { return "Unknown error"; }

private:
    void* _handle = nullptr;
};

} // namespace velk
