// Platform seam of module linkage: which loaded module holds an address, and
// what the main program exports.
//
// A module is identified by a 64-bit handle: the address at which the
// loader mapped it. The same module always gives the same handle while it
// stays loaded, whichever address inside it is asked about, and whether it is
// asked about by an address or by the handle its loader returned. 0 means
// "no module". The process-wide entry points (the registrars) are found only
// in the main program, never in a module that happens to export the same
// name.
//
//   auto reg = reinterpret_cast<registrar_fn>(velk::os::main_program_symbol("sglo_registrar"));
#pragma once

#include <cstdint>

// Marks one of the few C entry points that a module exports; everything else
// is hidden, so that each module keeps its own copy of the library. On
// Windows the build lists the exports of each DLL and .exe (a definition
// file, cmake/module_exports.cmake): a mark in the library would export the
// registrars from every program that links it.
#if defined(_WIN32)
#define VELK_MODULE_EXPORT
#else
#define VELK_MODULE_EXPORT __attribute__((visibility("default")))
#endif

namespace velk::os {

// Address of the export name of the main program, or null when the main
// program doesn't export it. An export of the same name in any other module
// (including the caller's own) counts as not found.
void* main_program_symbol(const char* name);

// Handle of the module that contains addr, or 0 when addr lies in none.
uint64_t module_handle_of(const void* addr);

// Handle of the main program; never 0.
uint64_t main_program_handle();

// Handle of the module behind a handle of the loader (dlopen's or
// LoadLibraryA's result), the
// same number that module_handle_of gives for addresses inside it; 0 for a
// null handle. The library handle must be open.
uint64_t library_module_handle(void* library);

// Path of the module that contains addr, as the loader knows it, or null
// when addr lies in none. The text belongs to the loader and stays valid
// while the module is loaded.
const char* module_file_of(const void* addr);

} // namespace velk::os
