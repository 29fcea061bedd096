// ref: the two-pointer handle of objects that have no counter of their own.
//
// A ref holds a policy (a counted_base, whose counter counts the handles and
// whose release_hook says what the last release does) and the object the
// policy stands for. The two pointers are set and cleared together; all
// counting goes through the policy, the object pointer is a plain copy.
// Deleting is one last-release policy, handing the object back to a pool
// another.
//
//   velk::ref<logmsg> mine(policy, msg);       // counts one reference
//   velk::ref<logmsg> seen = stored.lock();    // null if stored is dying
//
// Different handles to one object may be used on different threads. One
// handle is not changed on two threads at once, except that lock may run
// while another thread releases that very handle.
#pragma once

#include "comm/commassert.h"
#include "comm/policy_base.h"

#include <atomic>
#include <cstddef>
#include <utility>

namespace velk {

template <class T>
class ref
{
public:
    ref() = default;
    ref(std::nullptr_t) {}

    // Holds the pair and counts one reference on policy, when not null.
    ref(counted_base* policy, T* object) : _policy(policy), _object(object)
    {
        if (policy)
            policy->add_refcount();
    }

    ref(const ref& r) : ref(r._policy, r._object) {}
    ref(ref&& r) noexcept
        : _policy(std::exchange(r._policy, nullptr)), _object(std::exchange(r._object, nullptr))
    {}
    ~ref() { release(); }

    // Counts the new pair before releasing the old one. Assigning the pair
    // the handle holds already is a failed silent check (assert_throw_check)
    // and changes nothing.
    ref& operator=(const ref& r)
    {
        assign(r._policy, r._object);
        return *this;
    }
    ref& operator=(ref&& r) noexcept
    {
        if (this != &r) {
            release();
            _policy = std::exchange(r._policy, nullptr);
            _object = std::exchange(r._object, nullptr);
        }
        return *this;
    }

    // Drops the reference; both fields are null afterwards. A null policy
    // only clears the object. The fields are cleared before the count drops,
    // so that a lock racing with this release sees either the whole pair
    // with a live count, or a pair it refuses.
    void release()
    {
        counted_base* p = _policy;
        field(_object).store(nullptr, std::memory_order_relaxed);
        field(_policy).store(nullptr, std::memory_order_relaxed);
        if (p)
            p->release_refcount();
    }

    // A new handle to the same pair, or a null one when the count has
    // reached 0 (or reaches it meanwhile): a dying object is never revived.
    // The policy's memory must outlive the call, as pooled policies do.
    ref lock() const
    {
        counted_base* p = field(_policy).load(std::memory_order_relaxed);
        T* o = field(_object).load(std::memory_order_relaxed);
        return lock(p, o);
    }

    // The same from a pair that holds no reference of its own (a weak pair).
    // A pair with a null member gives a null handle: it is being cleared.
    static ref lock(counted_base* policy, T* object)
    {
        ref r;
        if (policy && object && policy->add_refcount_if_alive()) {
            r._policy = policy;
            r._object = object;
        }
        return r;
    }

    T* get() const { return _object; }
    counted_base* policy() const { return _policy; }
    T* operator->() const { return _object; }
    T& operator*() const { return *_object; }
    explicit operator bool() const { return _object != nullptr; }
    bool is_empty() const { return _object == nullptr; }

private:
    template <class P>
    static std::atomic_ref<P*> field(P* const& f)
    {
        return std::atomic_ref<P*>(const_cast<P*&>(f));
    }

    void assign(counted_base* policy, T* object)
    {
        if (policy == _policy && object == _object) {
            if (policy)
                assert_throw_check();
            return;
        }
        if (policy)
            policy->add_refcount();
        counted_base* old = std::exchange(_policy, policy);
        _object = object;
        if (old)
            old->release_refcount();
    }

    counted_base* _policy = nullptr;
    T* _object = nullptr;
};

} // namespace velk
