// The containers through which arrays pass a binstream.
//
// A stream never sees an array's storage directly: it asks the container for
// the next n elements to write out (extract) or for room for n more elements
// it reads (insert). A container that is_continuous and knows its count lets
// the stream move the whole array as one block of count * size bytes; others
// go element by element. The element kind travels in type; the streams set
// flag_separators in it at run time when the array's end is not known.
//
//   charstr text = ...;
//   binstream_container_fixed_array<char> c(text.ptr(), text.lens());
//   stream.write_array(c, nullptr);
#pragma once

#include "comm/binstream/bstype.h"
#include "comm/dynarray.h"
#include "comm/opcd.h"

#include <cstdint>

namespace velk {

class binstream_container_base
{
public:
    // Streams one compound element: (context, element, container). The
    // streams call it and do not look at the result.
    using fnstream = opcd (*)(void* m, void* element, binstream_container_base* c);

    // Count of a container whose end is not known in advance.
    static constexpr uint64_t unknown_count = UINT64_MAX;

    binstream_container_base(bstype::kind type, fnstream in, fnstream out)
        : stream_in(in), stream_out(out), type(type)
    {}
    virtual ~binstream_container_base() = default;

    // The next n elements, for writing them out; the container advances past
    // them. Null when there are no more.
    virtual const void* extract(uint64_t n) = 0;
    // Room for n more elements that a read fills; the container advances past
    // them. Null means no memory.
    virtual void* insert(uint64_t n) = 0;
    // True when n elements may be moved as one block of n * size bytes.
    virtual bool is_continuous() const = 0;
    // The number of elements, unknown_count when the end is not known.
    virtual uint64_t count() const = 0;

    fnstream stream_in;
    fnstream stream_out;
    bstype::kind type;
};

// Typed layer of the family: T is the element, COUNT the width of the count.
template <class T, class COUNT>
class binstream_containerT : public binstream_container_base
{
public:
    using value_type = T;
    using count_type = COUNT;

    explicit binstream_containerT(bstype::kind type, fnstream in = nullptr, fnstream out = nullptr)
        : binstream_container_base(type, in, out)
    {}
};

template <class T, class COUNT>
class binstream_container : public binstream_containerT<T, COUNT>
{
public:
    using binstream_containerT<T, COUNT>::binstream_containerT;
};

// A fixed run of elements [ptr, end): extract and insert hand out elements
// from the front. Asking for more than remains throws the NMore record
// (ers::no_more, an opcd by value) and leaves the position as it was.
template <class T, class COUNT = uint32_t>
class binstream_container_fixed_array : public binstream_container<T, COUNT>
{
public:
    using fnstream = binstream_container_base::fnstream;

    binstream_container_fixed_array(T* first, COUNT n, bstype::kind type = bstype::kind_of<T>(),
                                    fnstream in = nullptr, fnstream out = nullptr)
        : binstream_container<T, COUNT>(type, in, out), ptr(first), end(first + n)
    {}

    const void* extract(uint64_t n) override { return take(n); }
    void* insert(uint64_t n) override { return take(n); }
    bool is_continuous() const override { return true; }
    uint64_t count() const override { return static_cast<uint64_t>(end - ptr); }

    T* ptr;
    T* end;

private:
    T* take(uint64_t n)
    {
        if (n > static_cast<uint64_t>(end - ptr))
            throw ers::no_more;
        T* p = ptr;
        ptr += n;
        return p;
    }
};

// A view of a dynarray: extract walks the elements from pos, insert appends.
// The array must outlive the container.
template <class T, class COUNT = uint32_t, class A = comm_array_allocator>
class dynarray_binstream_container : public binstream_container<T, COUNT>
{
public:
    using fnstream = binstream_container_base::fnstream;

    explicit dynarray_binstream_container(dynarray<T, COUNT, A>& a,
                                          bstype::kind type = bstype::kind_of<T>(),
                                          fnstream in = nullptr, fnstream out = nullptr)
        : binstream_container<T, COUNT>(type, in, out), array(&a)
    {}

    // The element at pos, pos then advanced by n; null when fewer than n
    // elements remain, so that a walk ends instead of reading past the array.
    const void* extract(uint64_t n) override
    {
        uint64_t c = array->size();
        if (pos > c || n > c - pos)
            return nullptr;
        const T* p = array->ptr() + pos;
        pos += static_cast<COUNT>(n);
        return p;
    }

    // n uninitialised elements appended (growth by half the count); null when
    // the array could not grow. Throws std::bad_alloc.
    void* insert(uint64_t n) override { return array->add(static_cast<COUNT>(n)); }

    bool is_continuous() const override { return true; }
    uint64_t count() const override { return static_cast<uint32_t>(array->size()); }

    dynarray<T, COUNT, A>* array;
    COUNT pos = 0;
};

} // namespace velk
