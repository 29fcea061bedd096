// Windows side of the thread seam: CreateThread, names through
// SetThreadDescription (looked up by name: older systems lack it) and the
// debugger's naming exception, affinity through SetThreadAffinityMask, slots
// through TlsAlloc.
#include "comm/os/thread.h"
#include "comm/os/thread_id.h"

#include <windows.h>

#include <cstring>
#include <new>

namespace velk::os {

namespace {

struct start_record
{
    thread_entry_fn entry;
    void* arg;
};

DWORD WINAPI trampoline(void* p)
{
    start_record r = *static_cast<start_record*>(p);
    delete static_cast<start_record*>(p);
    r.entry(r.arg);
    return 0;
}

using set_description_fn = HRESULT(WINAPI*)(HANDLE, PCWSTR);

set_description_fn set_description()
{
    static const auto fn = reinterpret_cast<set_description_fn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "SetThreadDescription")));
    return fn;
}

// The debuggers' convention for naming a thread: exception 0x406D1388 with
// this record, raised only while one is attached to catch it.
#pragma pack(push, 8)
struct thread_name_info
{
    DWORD type; // 0x1000
    LPCSTR name;
    DWORD thread_id;
    DWORD flags;
};
#pragma pack(pop)

void name_for_debugger(const char* name)
{
    if (!IsDebuggerPresent())
        return;
    thread_name_info info{0x1000, name, GetCurrentThreadId(), 0};
    RaiseException(0x406D1388, 0, sizeof(info) / sizeof(ULONG_PTR), reinterpret_cast<const ULONG_PTR*>(&info));
}

} // namespace

uint32_t current_thread_id() { return GetCurrentThreadId(); }

uintptr_t thread_start(thread_entry_fn entry, void* arg)
{
    auto* r = new (std::nothrow) start_record{entry, arg};
    if (!r)
        return 0;
    HANDLE h = CreateThread(nullptr, 0, &trampoline, r, 0, nullptr);
    if (!h) {
        delete r;
        return 0;
    }
    // Detached: nobody waits on the handle, so it is closed at once; its
    // value stays the thread's mark, never 0.
    CloseHandle(h);
    return reinterpret_cast<uintptr_t>(h);
}

bool thread_set_current_name(const char* name, uint32_t len)
{
    if (len > thread_name_max) {
        len = thread_name_max;
        // Back over continuation bytes (10xxxxxx) to the lead byte the cut
        // would separate from its tail, so the kept name stays valid UTF-8.
        uint32_t lead = len;
        while (lead > 0 && (static_cast<unsigned char>(name[lead]) & 0xC0) == 0x80)
            --lead;
        len = lead;
    }
    char buf[thread_name_max + 1];
    memcpy(buf, name, len);
    buf[len] = 0;
    name_for_debugger(buf);
    set_description_fn fn = set_description();
    if (!fn)
        return false;
    wchar_t wide[thread_name_max + 1];
    int n = MultiByteToWideChar(CP_UTF8, 0, buf, -1, wide, thread_name_max + 1);
    return n > 0 && SUCCEEDED(fn(GetCurrentThread(), wide));
}

uint64_t thread_set_current_affinity(uint64_t mask)
{
    return SetThreadAffinityMask(GetCurrentThread(), static_cast<DWORD_PTR>(mask));
}

bool tls_alloc(uint32_t& key)
{
    DWORD k = TlsAlloc();
    if (k == TLS_OUT_OF_INDEXES)
        return false;
    key = k;
    return true;
}

void tls_free(uint32_t key) { TlsFree(key); }

void tls_set(uint32_t key, void* value) { TlsSetValue(key, value); }

void* tls_get(uint32_t key) { return TlsGetValue(key); }

// Fiber-local slots: the system calls their cleanup as the thread ends. The
// callback's calling convention is the only one there is on x64.
bool tls_alloc_owned(uint32_t& key, tls_cleanup_fn cleanup)
{
    DWORD k = FlsAlloc(reinterpret_cast<PFLS_CALLBACK_FUNCTION>(cleanup));
    if (k == FLS_OUT_OF_INDEXES)
        return false;
    key = k;
    return true;
}

void tls_set_owned(uint32_t key, void* value) { FlsSetValue(key, value); }

void* tls_get_owned(uint32_t key) { return FlsGetValue(key); }

void tls_free_owned(uint32_t key) { FlsFree(key); }

} // namespace velk::os
