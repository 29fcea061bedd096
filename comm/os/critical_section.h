// Platform seam of the locks: a recursive lock that is tried up to its spin
// count before the caller blocks on it, entered again freely by its owner.
//
//   os::critical_section cs;
//   os::cs_init(cs, 500);
//   os::cs_enter(cs); ... os::cs_leave(cs);
//   os::cs_delete(cs);
#pragma once

#if defined(_WIN32)
#include "comm/os/critical_section_win.h"
#else
#include "comm/os/critical_section_posix.h"
#endif
