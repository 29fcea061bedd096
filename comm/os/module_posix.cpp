// Module linkage on ELF systems: dladdr names the module of an address, and
// dl_iterate_phdr, which always lists the main program first, tells which
// module is the main program.
#include "comm/os/module.h"

#include <dlfcn.h>
#include <link.h>

namespace velk::os {

namespace {

// Start of the main program's first loaded segment: an address that surely
// lies inside it, so that dladdr gives its handle the same way as for any
// other address.
int main_program_segment(dl_phdr_info* info, size_t, void* out)
{
    for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& ph = info->dlpi_phdr[i];
        if (ph.p_type == PT_LOAD && ph.p_memsz > 0) {
            *static_cast<const void**>(out) = reinterpret_cast<const void*>(info->dlpi_addr + ph.p_vaddr);
            break;
        }
    }
    return 1; // the first entry is all we need
}

} // namespace

uint64_t module_handle_of(const void* addr)
{
    Dl_info info;
    if (!addr || !dladdr(addr, &info))
        return 0;
    return reinterpret_cast<uintptr_t>(info.dli_fbase);
}

const char* module_file_of(const void* addr)
{
    Dl_info info;
    if (!addr || !dladdr(addr, &info))
        return nullptr;
    return info.dli_fname;
}

uint64_t main_program_handle()
{
    const void* inside = nullptr;
    dl_iterate_phdr(&main_program_segment, &inside);
    return module_handle_of(inside);
}

uint64_t library_module_handle(void* library)
{
    link_map* map = nullptr;
    if (!library || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || !map)
        return 0;
    // The dynamic section is part of every module's loaded image.
    return module_handle_of(map->l_ld);
}

void* main_program_symbol(const char* name)
{
    // A default lookup from inside a module also searches that module's own
    // exports, so a hit counts only when it lies in the main program.
    void* sym = dlsym(RTLD_DEFAULT, name);
    if (!sym || module_handle_of(sym) != main_program_handle())
        return nullptr;
    return sym;
}

} // namespace velk::os
