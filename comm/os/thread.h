// Platform seam of threads: starting one, naming the calling thread, its
// processor affinity, and thread-local slots.
//
// A started thread is detached: it frees what it owns itself, and nobody
// joins it through the system. Thread ids are in comm/os/thread_id.h.
#pragma once

#include <cstdint>

namespace velk::os {

using thread_entry_fn = void* (*)(void* arg);

// Starts entry(arg) on a new detached thread with the default stack size.
// Gives the thread's handle, or 0 when the system refuses the thread.
uintptr_t thread_start(thread_entry_fn entry, void* arg);

// The longest name, in bytes, that the system keeps for a thread.
inline constexpr uint32_t thread_name_max = 15;

// Names the calling thread for debuggers and for /proc/<pid>/task/*/comm.
// The text is cut to thread_name_max bytes, and back to the start of a
// UTF-8 sequence that the cut would split. False when the system refuses.
bool thread_set_current_name(const char* name, uint32_t len);

// Binds the calling thread to the processors of mask (bit i: processor i).
// Gives the mask that was in force before, or 0 when the system refuses.
uint64_t thread_set_current_affinity(uint64_t mask);

// Thread-local slots holding one pointer each, null on every thread at first.
// tls_alloc gives false when no slot is left.
bool tls_alloc(uint32_t& key);
void tls_free(uint32_t key);
void tls_set(uint32_t key, void* value);
void* tls_get(uint32_t key);

// Slots whose value, when not null as its thread ends, is handed to cleanup
// on that thread. Unlike a thread_local object, whose destructor MinGW runs
// only after it has freed the thread's thread_local storage, such a value
// may own objects with destructors of their own.
using tls_cleanup_fn = void (*)(void* value);
bool tls_alloc_owned(uint32_t& key, tls_cleanup_fn cleanup);
void tls_set_owned(uint32_t key, void* value);
void* tls_get_owned(uint32_t key);
// Frees the slot. Windows hands the values still set to cleanup; POSIX
// leaves them to their owners.
void tls_free_owned(uint32_t key);

} // namespace velk::os
