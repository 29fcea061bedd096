// iref: the one-pointer intrusive handle of counted objects.
//
// The object's own counter counts the handles: making a handle of a non-null
// pointer adds a reference, dropping it releases one, and the release that
// drops the last calls the object's release_hook. A released handle is null.
#pragma once

#include "comm/commassert.h"

#include <cstddef>
#include <utility>

namespace velk {

template <class T>
class iref
{
public:
    iref() = default;
    iref(std::nullptr_t) {}
    iref(T* p) : _p(p) { if (p) p->add_refcount(); }
    iref(const iref& r) : iref(r._p) {}
    iref(iref&& r) noexcept : _p(std::exchange(r._p, nullptr)) {}
    template <class U>
    iref(const iref<U>& r) : iref(r.get()) {}
    ~iref() { release(); }

    iref& operator=(const iref& r) { assign(r._p); return *this; }
    iref& operator=(iref&& r) noexcept
    {
        if (this != &r) {
            release();
            _p = std::exchange(r._p, nullptr);
        }
        return *this;
    }
    iref& operator=(T* p) { assign(p); return *this; }

    // Makes the handle hold p, or a new default object when p is null.
    // The new object is counted before the old one is released. Holding p
    // already is a failed silent check (assert_throw_check): nothing changes.
    // Throws std::bad_alloc when the default object can't be allocated.
    T* create(T* p = nullptr)
    {
        if (p && p == _p) {
            assert_throw_check();
            return _p;
        }
        if (!p)
            p = new T();
        p->add_refcount();
        T* old = std::exchange(_p, p);
        if (old)
            old->release_refcount();
        return p;
    }

    // Drops the reference; the handle is null afterwards.
    void release()
    {
        if (T* p = std::exchange(_p, nullptr))
            p->release_refcount();
    }

    T* get() const { return _p; }
    T* operator->() const { return _p; }
    T& operator*() const { return *_p; }
    explicit operator bool() const { return _p != nullptr; }
    bool is_empty() const { return _p == nullptr; }

private:
    void assign(T* p)
    {
        if (p == _p) {
            if (p)
                assert_throw_check();
            return;
        }
        if (p)
            p->add_refcount();
        if (T* old = std::exchange(_p, p))
            old->release_refcount();
    }

    T* _p = nullptr;
};

} // namespace velk
