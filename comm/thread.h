// Threads: the thread id value, the closure a thread runs, and the thread
// manager that knows every thread this library started.
//
// A thread is a 32-bit id and nothing more; what is known of it lives in one
// record per thread, in the manager's table from id to record. The record is
// made by the creator, entered in the table by its own thread, and removed
// and freed by that thread as its last act, so that the table is the only
// safe way to a record from another thread. There is no forced termination:
// cancellation sets a flag, which the thread sees by polling or as
// thread::CancelException from self_test_exit.
//
//   velk::thread t = velk::thread::create_new([] {
//       while (!velk::thread::self_should_cancel())
//           work();
//   }, nullptr, "worker");
//   velk::thread::cancel_and_wait(t, 1000);   // true once it is gone
//
// At the top of a thread, thread::CancelException ends it quietly; a
// std::bad_alloc leaves the memory report "memory.log" and a log line, a
// std::exception a log line, and both are thrown on, which ends the process.
#pragma once

#include "comm/charstr.h"
#include "comm/hash_table.h"
#include "comm/opcd.h"
#include "comm/pthreadx.h"
#include "comm/token.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

namespace velk {

class thread_manager;

// -- The closure a thread runs ---------------------------------------------------

// A move-only callable giving void* (a callable that gives nothing gives
// null). Callables of up to 56 bytes that move without throwing live inside
// the object; larger ones on the heap (std::bad_alloc when that fails).
class thread_function
{
public:
    static constexpr size_t inline_size = 56;

    thread_function() = default;

    template <class F, std::enable_if_t<!std::is_same_v<std::decay_t<F>, thread_function>, int> = 0>
    thread_function(F&& f)
    {
        using T = std::decay_t<F>;
        if constexpr (fits_inline<T>()) {
            _target = new (_store) T(std::forward<F>(f));
            _ops = &inline_ops<T>;
        } else {
            _target = new T(std::forward<F>(f));
            _ops = &heap_ops<T>;
        }
    }

    thread_function(thread_function&& other) noexcept { take(other); }
    thread_function& operator=(thread_function&& other) noexcept
    {
        if (this != &other) {
            reset();
            take(other);
        }
        return *this;
    }
    thread_function(const thread_function&) = delete;
    thread_function& operator=(const thread_function&) = delete;
    ~thread_function() { reset(); }

    // Runs the callable; std::bad_function_call when there is none.
    void* operator()()
    {
        if (!_ops)
            throw std::bad_function_call();
        return _ops->call(_target);
    }

    explicit operator bool() const { return _ops != nullptr; }

    // Destroys the callable; the object is empty afterwards.
    void reset()
    {
        if (_ops)
            _ops->destroy(_target);
        _ops = nullptr;
        _target = nullptr;
    }

private:
    struct ops
    {
        void* (*call)(void* target);
        void (*destroy)(void* target);
        // Moves an inline callable into to's store; null for heap callables.
        void (*move_to)(void* target, void* store);
    };

    template <class T>
    static constexpr bool fits_inline()
    {
        return sizeof(T) <= inline_size && alignof(T) <= 16 && std::is_nothrow_move_constructible_v<T>;
    }

    template <class T>
    static void* call(void* target)
    {
        if constexpr (std::is_void_v<std::invoke_result_t<T&>>) {
            (*static_cast<T*>(target))();
            return nullptr;
        } else {
            return (*static_cast<T*>(target))();
        }
    }

    template <class T>
    static constexpr ops inline_ops{
        &call<T>, [](void* t) { static_cast<T*>(t)->~T(); },
        [](void* t, void* store) {
            new (store) T(std::move(*static_cast<T*>(t)));
            static_cast<T*>(t)->~T();
        }};

    template <class T>
    static constexpr ops heap_ops{&call<T>, [](void* t) { delete static_cast<T*>(t); }, nullptr};

    void take(thread_function& other) noexcept
    {
        _ops = std::exchange(other._ops, nullptr);
        void* t = std::exchange(other._target, nullptr);
        if (_ops && _ops->move_to) {
            _ops->move_to(t, _store);
            _target = _store;
        } else {
            _target = t;
        }
    }

    alignas(16) unsigned char _store[inline_size];
    void* _target = nullptr; // _store, or the heap copy
    const ops* _ops = nullptr;
};

// -- Thread-local slot -------------------------------------------------------------

// One pointer per thread under a key. Not valid until init.
class thread_key
{
public:
    static constexpr uint32_t invalid_key = 0xFFFFFFFFu;

    // Allocates the key; false when the system has none left.
    bool init();
    // Releases the key; the values stored under it are not touched.
    void free();
    bool is_valid() const { return _key != invalid_key; }

    // Both require a valid key.
    void set(void* value);
    void* get() const;

private:
    uint32_t _key = invalid_key;
};

// -- Thread id -----------------------------------------------------------------------

class thread
{
public:
    static constexpr uint32_t invalid_id = 0xFFFFFFFFu;

    // The base of what a thread throws to end itself; unrelated to
    // std::exception and velk::exception.
    struct Exception
    {};
    // Thrown by self_test_exit when the thread was asked to end; caught at
    // the top of the thread, which then ends quietly with the result null.
    struct CancelException : Exception
    {
        explicit CancelException(uint32_t c = 0) : code(c) {}
        uint32_t code;
    };

    // The function of the pair form of create_new.
    using function_fn = void* (*)(void* arg);

    // The invalid id. Makes sure the thread manager exists.
    thread();
    explicit thread(uint32_t id) : _id(id) {}

    thread& operator=(uint32_t id)
    {
        _id = id;
        return *this;
    }
    bool operator==(uint32_t id) const { return _id == id; }
    bool operator==(const thread& t) const { return _id == t._id; }

    bool is_invalid() const { return _id == invalid_id; }
    uint32_t id() const { return _id; }

    // The calling thread, also one this library did not start.
    static thread self();
    static thread invalid() { return thread(invalid_id); }

    // -- Creation --------------------------------------------------------------

    // Starts fn on a new thread named name (empty: unnamed), with context
    // kept for context(). Gives the new thread's id once the thread runs
    // and is registered: exists is true from then until it ends.
    // Gives the invalid id, with fn destroyed, when the system refuses a
    // thread; std::bad_alloc when the record can't be allocated.
    static thread create_new(thread_function fn, void* context, const token& name);
    // The same with fn(arg).
    static thread create_new(function_fn fn, void* arg, void* context, const token& name);

    // -- Asking for a thread, by id ---------------------------------------------

    // Sets t's cancel flag: success, or ers::invalid_params when no record
    // has the id.
    static opcd cancel(thread t);
    // True while t's record is in the table.
    static bool exists(thread t);
    // t's cancel flag; false for an id without a record.
    static bool should_cancel(thread t);
    // Cancels t and waits up to ms milliseconds for it to go, in steps of a
    // millisecond. True when it is gone; also true for an unknown id.
    static bool cancel_and_wait(thread t, uint32_t ms);
    // Waits without limit until t is gone, looking every 20 ms. Throws
    // thread::CancelException (code 0) when the caller itself is cancelled
    // meanwhile. Returns at once for an unknown id.
    static void join(thread t);

    // -- The calling thread -------------------------------------------------------

    static void cancel_self();
    // The caller's cancel flag, read without a lock; false for a thread this
    // library did not start.
    static bool self_should_cancel();
    // Throws thread::CancelException with code when the caller's flag is
    // set; returns otherwise.
    static void self_test_exit(uint32_t code);
    // The context given at creation; null for a thread without a record.
    static void* context();
    // Stores name as the caller's name and applies it (visible to debuggers
    // and in /proc/<pid>/task/<tid>/comm, cut to 15 bytes). Nothing for a
    // thread without a record, or when the name is the same.
    static void set_name(const token& name);
    // Binds the caller to the processors of mask; gives the previous mask,
    // or 0 when the system refuses.
    static uint64_t set_affinity_mask(uint64_t mask);

private:
    uint32_t _id = invalid_id;
};

// -- The manager ------------------------------------------------------------------------

// One per thread started here; owned by the thread itself.
struct thread_record
{
    std::atomic<uintptr_t> handle{0};  // stored by the creator
    void* context = nullptr;
    thread_function function;
    std::atomic<uint32_t> id{thread::invalid_id};
    std::atomic<uint32_t> cancel{0};   // non-zero: cancellation was asked
    std::atomic<uint32_t> registered{0}; // set by the thread once it is in the table
    charstr name;
    thread_manager* manager = nullptr;
};

class thread_manager
{
public:
    // Called on a thread before its function, and after it returns.
    using hook_fn = void (*)();

    // The table's mutex is held only around lookups and flag changes.
    static constexpr uint32_t spin_count = 100;

    // The module's manager, made on first use (safely against racing
    // threads) as a singleton of the module. Throws std::bad_alloc, or
    // velk::exception when no thread-local key can be had.
    static thread_manager& instance();

    thread_manager();
    // Frees the key and the table; running threads are not touched and
    // outlive it at their own risk.
    ~thread_manager();
    thread_manager(const thread_manager&) = delete;
    thread_manager& operator=(const thread_manager&) = delete;

    // Either may be null.
    void set_hooks(hook_fn start, hook_fn end);

    thread create(thread_function fn, void* context, const token& name);

    opcd cancel(thread t);
    bool exists(thread t);
    bool should_cancel(thread t);
    bool cancel_and_wait(thread t, uint32_t ms);
    void join(thread t);

    // The caller's record, through the thread-local slot; null for a
    // thread this library did not start.
    thread_record* self_record() const { return static_cast<thread_record*>(_key.get()); }
    void* context_of(thread t);
    void set_name_of(thread t, const token& name);

private:
    static void* entry(void* record);
    void register_record(thread_record* r, uint32_t id);
    void unregister(uint32_t id);
    void report_exception(const thread_record* r, const char* what, bool out_of_memory);

    id_hash_table<thread_record> _table;
    thread_key _key;
    comm_mutex _mutex;
    hook_fn _start_hook = nullptr;
    hook_fn _end_hook = nullptr;
};

} // namespace velk
