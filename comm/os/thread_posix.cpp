// POSIX side of the thread seam: pthreads, with names through
// pthread_setname_np and slots through pthread keys.
#include "comm/os/thread.h"

#include <pthread.h>
#include <sched.h>

#include <cstring>

namespace velk::os {

uintptr_t thread_start(thread_entry_fn entry, void* arg)
{
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0)
        return 0;
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t handle;
    int rc = pthread_create(&handle, &attr, entry, arg);
    pthread_attr_destroy(&attr);
    // pthread_t is an address on glibc, never 0 for a started thread.
    return rc == 0 ? static_cast<uintptr_t>(handle) : 0;
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
    return pthread_setname_np(pthread_self(), buf) == 0;
}

uint64_t thread_set_current_affinity(uint64_t mask)
{
    cpu_set_t old_set;
    CPU_ZERO(&old_set);
    if (pthread_getaffinity_np(pthread_self(), sizeof(old_set), &old_set) != 0)
        return 0;
    cpu_set_t new_set;
    CPU_ZERO(&new_set);
    for (int i = 0; i < 64; ++i)
        if (mask & (uint64_t(1) << i))
            CPU_SET(i, &new_set);
    if (pthread_setaffinity_np(pthread_self(), sizeof(new_set), &new_set) != 0)
        return 0;
    uint64_t old_mask = 0;
    for (int i = 0; i < 64; ++i)
        if (CPU_ISSET(i, &old_set))
            old_mask |= uint64_t(1) << i;
    return old_mask;
}

bool tls_alloc(uint32_t& key)
{
    pthread_key_t k;
    if (pthread_key_create(&k, nullptr) != 0)
        return false;
    key = static_cast<uint32_t>(k);
    return true;
}

void tls_free(uint32_t key) { pthread_key_delete(static_cast<pthread_key_t>(key)); }

void tls_set(uint32_t key, void* value) { pthread_setspecific(static_cast<pthread_key_t>(key), value); }

void* tls_get(uint32_t key) { return pthread_getspecific(static_cast<pthread_key_t>(key)); }

bool tls_alloc_owned(uint32_t& key, tls_cleanup_fn cleanup)
{
    pthread_key_t k;
    if (pthread_key_create(&k, cleanup) != 0)
        return false;
    key = static_cast<uint32_t>(k);
    return true;
}

void tls_set_owned(uint32_t key, void* value) { tls_set(key, value); }

void* tls_get_owned(uint32_t key) { return tls_get(key); }

void tls_free_owned(uint32_t key) { tls_free(key); }

} // namespace velk::os
