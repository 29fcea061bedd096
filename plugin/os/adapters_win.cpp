// Adapter list on Windows: GetAdaptersAddresses into a buffer on the
// process heap, first of a guessed size, then of the size the call asks for.
#include "plugin/os/adapters.h"

#include <winsock2.h>
#include <iphlpapi.h>
#include <windows.h>

#include <cstring>
#include <memory>

namespace xt::os {

namespace {

// The first guess at the list's size, in bytes; a machine with adapters
// always asks for more, and the second call gets what it asked for.
constexpr ULONG first_size = 448;
// GAA_FLAG_INCLUDE_ALL_INTERFACES: adapters that are down count too.
constexpr ULONG list_flags = 0x200;

struct heap_block
{
    void* p = nullptr;
    explicit heap_block(size_t n) : p(HeapAlloc(GetProcessHeap(), 0, n)) {}
    ~heap_block() { HeapFree(GetProcessHeap(), 0, p); }
    heap_block(const heap_block&) = delete;
    heap_block& operator=(const heap_block&) = delete;
};

} // namespace

bool list_adapter_addresses(velk::dynarray<adapter_address>& out)
{
    ULONG size = first_size;
    auto block = std::make_unique<heap_block>(size);
    if (!block->p)
        return false;
    ULONG rc = GetAdaptersAddresses(AF_UNSPEC, list_flags, nullptr, static_cast<IP_ADAPTER_ADDRESSES*>(block->p), &size);
    if (rc == ERROR_BUFFER_OVERFLOW) {
        block = std::make_unique<heap_block>(size);
        if (!block->p)
            return false;
        rc = GetAdaptersAddresses(AF_UNSPEC, list_flags, nullptr, static_cast<IP_ADAPTER_ADDRESSES*>(block->p), &size);
    }
    if (rc != NO_ERROR)
        return false;
    try {
        // The whole field, whatever the address's length says: zeros behind
        // a shorter address, as the system leaves them.
        for (auto* a = static_cast<const IP_ADAPTER_ADDRESSES*>(block->p); a; a = a->Next)
            memcpy(out.push()->bytes, a->PhysicalAddress, sizeof(adapter_address::bytes));
    } catch (...) {
        out.discard(); // keep the contract: nothing half-filled
        throw;
    }
    return true;
}

} // namespace xt::os
