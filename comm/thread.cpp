// The thread manager: creation and the life of a thread's record, lookups
// by id under the manager's mutex, and the report of what escapes a thread.
//
// Invariant: a record is in the table from its thread's registration to its
// thread's last act; only that thread inserts and erases it.
#include "comm/thread.h"

#include "comm/alloc/commalloc.h"
#include "comm/alloc/memtrack.h"
#include "comm/exception.h"
#include "comm/log/logmsg.h"
#include "comm/os/thread.h"
#include "comm/os/thread_id.h"
#include "comm/singleton.h"

#include <cstdlib>
#include <cstring>
#include <exception>

namespace velk {

// -- thread_key -------------------------------------------------------------------

bool thread_key::init()
{
    uint32_t k;
    if (!os::tls_alloc(k))
        return false;
    _key = k;
    return true;
}

void thread_key::free()
{
    if (is_valid())
        os::tls_free(_key);
    _key = invalid_key;
}

void thread_key::set(void* value) { os::tls_set(_key, value); }
void* thread_key::get() const { return os::tls_get(_key); }

// -- The singleton -------------------------------------------------------------------

namespace {

// The place that the manager gives its singleton manager, with the line of
// the call: reports list it with the library's threading primitives.
constexpr const char* thread_manager_place = "comm/pthreadx";

thread_manager* the_manager = nullptr;

void* create_manager() { return new thread_manager; }
void destroy_manager(void* m) { delete static_cast<thread_manager*>(m); }

// Registers the manager with the module's singletons; its destruction, an
// exit function of the module, removes it. Objects that start threads are
// made after it and so end before it.
struct manager_lifetime
{
    manager_lifetime()
    {
        the_manager = static_cast<thread_manager*>(register_singleton(
            &create_manager, &destroy_manager, nullptr, singleton_type_name<thread_manager>(),
            thread_manager_place, __LINE__, true));
    }
    ~manager_lifetime()
    {
        thread_manager* m = std::exchange(the_manager, nullptr);
        remove_singleton(m);
    }
};

void apply_name(const token& name) { os::thread_set_current_name(name.ptr(), name.lens()); }

} // namespace

thread_manager& thread_manager::instance()
{
    // A local registration makes a new object on every call: the guarded
    // static makes racing first uses share one.
    static const manager_lifetime lifetime;
    return *the_manager;
}

thread_manager::thread_manager() : _table(hash_table_initial_buckets), _mutex(spin_count)
{
    if (!_key.init())
        throw exception("no thread-local slot left for the thread manager");
}

thread_manager::~thread_manager() { _key.free(); }

void thread_manager::set_hooks(hook_fn start, hook_fn end)
{
    comm_mutex_guard g(_mutex);
    _start_hook = start;
    _end_hook = end;
}

// -- Creation ---------------------------------------------------------------------------

// The creator and the new thread meet once. The new thread registers and
// then tells its id (the kernel gives it only to the thread itself); the
// creator answers with the handle, and after that answer it never touches
// the record again, since the thread may free it at any time. So a thread
// is in the table when create_new returns: a cancel or join that follows at
// once is never lost.
thread thread_manager::create(thread_function fn, void* context, const token& name)
{
    // The record is the thread's own, from the process heap.
    void* block = malloc(sizeof(thread_record));
    if (!block)
        throw std::bad_alloc();
    comm_array_mspace_ensure(); // the name's buffer, and the table's
    thread_record* r = new (block) thread_record;
    r->context = context;
    r->function = std::move(fn);
    try {
        if (!name.is_empty())
            r->name = name;
    } catch (...) {
        r->~thread_record();
        free(r);
        throw;
    }
    r->manager = this;

    uintptr_t handle = os::thread_start(&thread_manager::entry, r);
    if (!handle) {
        r->~thread_record();
        free(r);
        return thread::invalid();
    }
    while (!r->registered.load(std::memory_order_acquire))
        sleep(0);
    uint32_t id = r->id.load(std::memory_order_relaxed);
    r->handle.store(handle, std::memory_order_release);
    return thread(id);
}

// The id is stored under the mutex, before the record is entered: the
// table's key is read from the record.
void thread_manager::register_record(thread_record* r, uint32_t id)
{
    {
        comm_mutex_guard g(_mutex);
        r->id.store(id, std::memory_order_relaxed);
        _table.insert_value(r); // a second record of an id is not entered
        _key.set(r);
    }
    r->registered.store(1, std::memory_order_release);
}

void thread_manager::unregister(uint32_t id)
{
    comm_mutex_guard g(_mutex);
    _table.erase(id);
}

// The line is synchronous (it ends in the character 13): it is written before
// the exception, thrown on, takes the process down. A failure to log must
// not replace the exception that is reported.
void thread_manager::report_exception(const thread_record* r, const char* what, bool out_of_memory)
{
    try {
        VELK_LOG(log_level::fatal, "threadmgr") << (out_of_memory ? "out of memory in thread " : "exception in thread ")
                                 << r->name << ": " << what << '\r';
    } catch (...) {
    }
}

void* thread_manager::entry(void* p)
{
    auto* r = static_cast<thread_record*>(p);
    if (!r->name.is_empty())
        apply_name(r->name);

    thread_manager* m = r->manager;
    m->register_record(r, os::current_thread_id());
    while (r->handle.load(std::memory_order_acquire) == 0)
        sleep(0);
    if (hook_fn start = m->_start_hook)
        start();

    void* result = nullptr;
    try {
        result = r->function();
    } catch (const thread::CancelException&) {
        result = nullptr;
    } catch (const std::bad_alloc& e) {
        try {
            memtrack_dump("memory.log", false);
        } catch (...) { // the report must not replace what it reports
        }
        m->report_exception(r, e.what(), true);
        throw;
    } catch (const std::exception& e) {
        m->report_exception(r, e.what(), false);
        throw;
    }

    if (hook_fn end = m->_end_hook)
        end();
    m->unregister(r->id.load(std::memory_order_relaxed));
    r->~thread_record();
    free(r);
    return result;
}

// -- Lookups by id -----------------------------------------------------------------------

opcd thread_manager::cancel(thread t)
{
    comm_mutex_guard g(_mutex);
    thread_record** r = _table.find_value(t.id());
    if (!r)
        return ers::invalid_params;
    (*r)->cancel.store(1, std::memory_order_relaxed);
    return opcd();
}

bool thread_manager::exists(thread t)
{
    comm_mutex_guard g(_mutex);
    return _table.find_value(t.id()) != nullptr;
}

bool thread_manager::should_cancel(thread t)
{
    comm_mutex_guard g(_mutex);
    thread_record** r = _table.find_value(t.id());
    return r && (*r)->cancel.load(std::memory_order_relaxed) != 0;
}

bool thread_manager::cancel_and_wait(thread t, uint32_t ms)
{
    if (cancel(t) == ers::invalid_params)
        return true;
    sleep(0); // the other thread may see the flag at once
    for (uint32_t i = 0; i < ms; ++i) {
        if (!exists(t))
            return true;
        sleep(1);
    }
    return !exists(t);
}

void thread_manager::join(thread t)
{
    for (;;) {
        if (!exists(t))
            return;
        if (thread_record* self = self_record(); self && self->cancel.load(std::memory_order_relaxed))
            throw thread::CancelException(0);
        sleep(20);
    }
}

void* thread_manager::context_of(thread t)
{
    comm_mutex_guard g(_mutex);
    thread_record** r = _table.find_value(t.id());
    return r ? (*r)->context : nullptr;
}

void thread_manager::set_name_of(thread t, const token& name)
{
    comm_mutex_guard g(_mutex);
    thread_record** found = _table.find_value(t.id());
    if (!found)
        return;
    thread_record* r = *found;
    if (r->name.lens() == name.lens() && strncmp(r->name.c_str(), name.ptr(), name.lens()) == 0)
        return;
    r->name = name;
    apply_name(name);
}

// -- thread -----------------------------------------------------------------------------

thread::thread() { thread_manager::instance(); }

thread thread::self() { return thread(os::current_thread_id()); }

thread thread::create_new(thread_function fn, void* context, const token& name)
{
    return thread_manager::instance().create(std::move(fn), context, name);
}

thread thread::create_new(function_fn fn, void* arg, void* context, const token& name)
{
    return create_new(thread_function([fn, arg] { return fn(arg); }), context, name);
}

opcd thread::cancel(thread t) { return thread_manager::instance().cancel(t); }
bool thread::exists(thread t) { return thread_manager::instance().exists(t); }
bool thread::should_cancel(thread t) { return thread_manager::instance().should_cancel(t); }
bool thread::cancel_and_wait(thread t, uint32_t ms) { return thread_manager::instance().cancel_and_wait(t, ms); }
void thread::join(thread t) { thread_manager::instance().join(t); }

void thread::cancel_self() { thread_manager::instance().cancel(self()); }

bool thread::self_should_cancel()
{
    thread_record* r = thread_manager::instance().self_record();
    return r && r->cancel.load(std::memory_order_relaxed) != 0;
}

void thread::self_test_exit(uint32_t code)
{
    if (self_should_cancel())
        throw CancelException(code);
}

void* thread::context() { return thread_manager::instance().context_of(self()); }

void thread::set_name(const token& name) { thread_manager::instance().set_name_of(self(), name); }

uint64_t thread::set_affinity_mask(uint64_t mask) { return os::thread_set_current_affinity(mask); }

} // namespace velk
