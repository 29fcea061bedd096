// Test helper: records the requests comm_array_allocator serves while it lives.
#pragma once

#include "comm/alloc/commalloc.h"

#include <cstdint>
#include <vector>

namespace velk::testing {

class array_requests
{
public:
    struct request
    {
        array_request kind;
        const void* p;
        uint64_t count;
        uint64_t elem_size;
        uint64_t word; // the block's count word as the allocator left it
    };

    array_requests() { all().clear(); comm_array_allocator::set_observer(&record); }
    ~array_requests() { comm_array_allocator::set_observer(nullptr); }

    const std::vector<request>& list() const { return all(); }
    void clear() { all().clear(); }

    // Requests that ask for memory: everything but free.
    std::vector<request> asks() const
    {
        std::vector<request> out;
        for (const request& r : all())
            if (r.kind != array_request::free)
                out.push_back(r);
        return out;
    }

private:
    static std::vector<request>& all()
    {
        static std::vector<request> list;
        return list;
    }

    static void record(array_request kind, void* p, uint64_t count, uint64_t elem_size)
    {
        uint64_t word = p && kind != array_request::free ? comm_array_allocator::count(p) : 0;
        all().push_back({kind, p, count, elem_size, word});
    }
};

} // namespace velk::testing
