// The locks on Windows: critical sections, spin count as given.
#include "comm/os/critical_section.h"

#include <windows.h>

namespace velk::os {

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(critical_section::record));
static_assert(alignof(CRITICAL_SECTION) <= alignof(critical_section));

namespace {
CRITICAL_SECTION* native(critical_section& cs) { return reinterpret_cast<CRITICAL_SECTION*>(cs.record); }
} // namespace

void cs_init(critical_section& cs, uint32_t spin_count)
{
    // Cannot fail since Windows Vista; the result is kept for older systems only.
    InitializeCriticalSectionAndSpinCount(native(cs), spin_count);
}

void cs_delete(critical_section& cs) { DeleteCriticalSection(native(cs)); }

bool cs_try_enter(critical_section& cs) { return TryEnterCriticalSection(native(cs)) != FALSE; }

void cs_enter(critical_section& cs) { EnterCriticalSection(native(cs)); }

void cs_leave(critical_section& cs) { LeaveCriticalSection(native(cs)); }

} // namespace velk::os
