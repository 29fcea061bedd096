// Module linkage on Windows: a module's handle is its base address, which
// GetModuleHandleExA gives for any address inside it, and the main program's
// exports are those of GetModuleHandleA(NULL).
#include "comm/os/module.h"

#include <windows.h>

#include <cstring>

namespace velk::os {

namespace {

HMODULE module_of(const void* addr)
{
    HMODULE m = nullptr;
    // Unchanged refcount: the caller asks about a module it already holds.
    if (!addr || !GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                         GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                     static_cast<LPCSTR>(addr), &m))
        return nullptr;
    return m;
}

// The names given out, kept because the loader's own name text can't be
// lent: one entry per module and name, reused when its module is replaced
// by another of a different name, or round the table when all are taken.
struct module_name
{
    HMODULE module;
    char path[MAX_PATH];
};

constexpr unsigned name_slots = 64; // far above the modules of one process
module_name names[name_slots];
unsigned next_slot = 0;
SRWLOCK names_lock = SRWLOCK_INIT;

} // namespace

uint64_t module_handle_of(const void* addr) { return reinterpret_cast<uintptr_t>(module_of(addr)); }

const char* module_file_of(const void* addr)
{
    HMODULE m = module_of(addr);
    char path[MAX_PATH];
    DWORD len = m ? GetModuleFileNameA(m, path, MAX_PATH) : 0;
    if (len == 0 || len >= MAX_PATH) // none, or cut
        return nullptr;
    AcquireSRWLockExclusive(&names_lock);
    module_name* slot = nullptr;
    for (module_name& n : names)
        if (n.module == m && !strcmp(n.path, path))
            slot = &n;
    if (!slot) {
        slot = &names[next_slot++ % name_slots];
        for (module_name& n : names)
            if (n.module == m) // the module at this address has another name now
                slot = &n;
        slot->module = m;
        memcpy(slot->path, path, len + 1);
    }
    ReleaseSRWLockExclusive(&names_lock);
    return slot->path;
}

uint64_t main_program_handle() { return reinterpret_cast<uintptr_t>(GetModuleHandleA(nullptr)); }

uint64_t library_module_handle(void* library) { return reinterpret_cast<uintptr_t>(library); }

void* main_program_symbol(const char* name)
{
    // Only the .exe's own export table is searched, never another module's.
    return reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA(nullptr), name));
}

} // namespace velk::os
