// The locks, Windows side: a CRITICAL_SECTION made with
// InitializeCriticalSectionAndSpinCount, which spins and re-enters by
// itself. Its record is kept as opaque bytes so that <windows.h> stays out
// of the library's headers; the calls are in critical_section_win.cpp.
#pragma once

#include <cstdint>

namespace velk::os {

struct critical_section
{
    // sizeof(CRITICAL_SECTION) on 64-bit Windows; checked where it is used.
    alignas(8) unsigned char record[40];
};

void cs_init(critical_section& cs, uint32_t spin_count);
void cs_delete(critical_section& cs);
bool cs_try_enter(critical_section& cs);
void cs_enter(critical_section& cs);
void cs_leave(critical_section& cs);

} // namespace velk::os
