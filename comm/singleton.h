// Global singletons: objects that exist once per module or once per process,
// made on first use and kept in a list by type name.
//
// Every module links its own copy of this library and so has its own
// statics. Each module therefore holds two managers: local_singleton_manager,
// for objects of this module alone, and a shared one that it exports as
// sglo_registrar. The process-wide list is the shared manager of the main
// program when the main program exports sglo_registrar, else the module's
// own. Non-local singletons are matched by the text of their type name, never
// by address: the same class has one name but a separate type record in each
// module. Local registrations are never matched: each makes a new instance,
// so callers keep the result in a static.
//
// Invariant: nodes leave a list only through remove_singleton and
// destroy_singletons, which only the module's exit functions call, on the
// local manager. Nodes of a shared manager stay until the process ends and
// own a copy of their name, so that a lookup stays safe after the module that
// added them is gone. A module works on the main program's manager with its
// own copy of this code: the layouts below must agree in every module.
//
//   static logger* the_logger;
//   if (!the_logger)
//       the_logger = velk::register_singleton_of<logger>(true, "comm/log/logger", 42);
#pragma once

#include "comm/os/module.h"
#include "comm/pthreadx.h"
#include "comm/token.h"

#include <cstdint>
#include <typeinfo>

namespace velk {

using singleton_create_fn = void* (*)();
using singleton_destroy_fn = void (*)(void* instance);
using singleton_init_fn = void (*)(void* instance);

// One registered singleton. Shared managers are reached from several modules,
// so this layout and the manager's are a contract between them.
struct singleton_node
{
    void* instance;
    singleton_destroy_fn destroy;
    const char* type_name; // start of the node's own copy of the name
    const char* file;      // source place, for diagnosis only: it may lie in
                           // a module that is gone; may be null
    int32_t line;          // may be 0
    singleton_node* next;
    token name;            // compared in lookups
    bool local;            // never matched by a lookup
};

class global_singleton_manager
{
public:
    // As the interface registry's lock: held for short list walks, and
    // longer only while a create runs, which happens once per singleton.
    static constexpr uint32_t spin_count = 500;

    global_singleton_manager() : _mutex(spin_count) {}
    // Ends the mutex and nothing else: ending a manager destroys no singleton.
    ~global_singleton_manager() = default;
    global_singleton_manager(const global_singleton_manager&) = delete;
    global_singleton_manager& operator=(const global_singleton_manager&) = delete;

    // Returns the instance registered under name, or makes one. A non-local
    // call matches an existing non-local node of the same name; then init, if
    // not null, is called with it and create is not. Otherwise (and always
    // for local) create is called and a new node heads the list. Create and
    // init run under the manager's mutex and may register singletons
    // themselves. The thread's hand-over slot is cleared in either case.
    // Adding while shutting down is an assertion; if the handler lets the
    // program go on, so does the call.
    // Throws std::bad_alloc when the node can't be allocated, and passes on
    // what create throws; in both cases nothing is added.
    void* find_or_add_singleton(singleton_create_fn create, singleton_destroy_fn destroy,
                                singleton_init_fn init, const token& name, const char* file,
                                int32_t line, bool local);

    // Unlinks the node of instance, calls its destroy and frees the node.
    // Gives false, and does nothing, for an instance that isn't listed. Takes
    // no lock: only exit functions call it.
    bool remove_singleton(void* instance);

    // Marks the manager as shutting down (when the list isn't empty) and
    // destroys every node, newest first. Takes no lock.
    void destroy_singletons();

    // Introspection, for diagnosis and tests; unlocked reads.
    const singleton_node* head() const { return _head; }
    int32_t count() const { return _count; }
    bool is_shutting_down() const { return _shutting_down; }

private:
    singleton_node* find_shared(const token& name) const;
    void unlink_and_destroy(singleton_node** link);

    comm_mutex _mutex;
    singleton_node* _head = nullptr;
    int32_t _count = 0;         // nodes added so far; never lowered
    bool _shutting_down = false;
};

// -- The module's entry points -----------------------------------------------

// The manager of this module's own singletons. Made on first use, safely
// against racing threads, and usable from static initialisers.
global_singleton_manager& local_singleton_manager();

// This module's own shared manager, the one it exports as sglo_registrar.
// Reached directly, never through the exported name: the loader binds a
// module's own references to an exported name to the main program's
// definition when the main program exports the same name.
global_singleton_manager& own_shared_singleton_manager();

// The process-wide manager: the main program's sglo_registrar if it exports
// one, else this module's own shared manager. Looked up once, then cached.
global_singleton_manager& process_singleton_manager();

// Registers a singleton with the local manager (local true) or the
// process-wide one, and returns the instance. A null type_name is the empty
// name. See find_or_add_singleton for what runs and what is thrown.
void* register_singleton(singleton_create_fn create, singleton_destroy_fn destroy,
                         singleton_init_fn init, const char* type_name, const char* file,
                         int32_t line, bool local);

// Registers an object that exists already: puts instance in this thread's
// hand-over slot and returns a create function that gives it back. Pass the
// result to register_singleton at once, on the same thread.
singleton_create_fn hand_over_instance(void* instance);

// What this thread's hand-over slot holds now; null when no hand-over is
// pending. For tests.
void* hand_over_slot();

// Destroys one singleton of local_singleton_manager. An instance that isn't
// listed there, such as a process-wide singleton, is ignored: those are
// destroyed by no module.
void remove_singleton(void* instance);

// Destroys all singletons of local_singleton_manager, newest first, and
// refuses later additions. For a host that ends a module by hand; nothing in
// the library calls it.
void destroy_local_singletons();

// -- Typed use ---------------------------------------------------------------

// The name under which T is registered: its run-time type name, which is the
// same text in every module.
template <class T>
const char* singleton_type_name()
{
    return typeid(T).name();
}

// Default construction and deletion: a class with its own operator new and
// delete (counted objects use the global memory) keeps them.
template <class T>
void* singleton_create_default()
{
    return new T();
}

template <class T>
void singleton_destroy_default(void* instance)
{
    delete static_cast<T*>(instance);
}

// Registers T under its type name, made by default construction. init, when
// given, runs for a caller that finds an existing process-wide instance.
template <class T>
T* register_singleton_of(bool local, const char* file = nullptr, int32_t line = 0,
                         singleton_init_fn init = nullptr)
{
    return static_cast<T*>(register_singleton(&singleton_create_default<T>,
                                              &singleton_destroy_default<T>, init,
                                              singleton_type_name<T>(), file, line, local));
}

// The type of sglo_registrar, as a lookup by name gives it.
using sglo_registrar_fn = global_singleton_manager* (*)();

} // namespace velk

// Gives this module's own shared manager; never null. Exported, so that the
// main program's can be found by the modules it loads.
extern "C" VELK_MODULE_EXPORT velk::global_singleton_manager* sglo_registrar();
