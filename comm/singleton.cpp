// Global singletons: the managers, their list operations and the module's
// entry points.
//
// Nothing here has a dynamic initialiser: static initialisers of the module
// register singletons before any ordered start-up, so the managers are
// function-local statics and the hand-over slot and the cache are constant
// initialised.
#include "comm/singleton.h"

#include "comm/alloc/commalloc.h"
#include "comm/alloc/memtrack.h"
#include "comm/commassert.h"

#include <atomic>
#include <cstring>
#include <new>

namespace velk {

namespace {

// Carries an existing instance into its create function. Zero until the
// first hand-over, which may come from a static initialiser.
constinit thread_local void* handover_slot = nullptr;

// The process-wide manager, once looked up. Racing first uses find the same
// manager, so the store needs no lock.
constinit std::atomic<global_singleton_manager*> process_manager_cache{nullptr};

void* take_handed_over() { return handover_slot; }


// The place is fixed so that the report reads the same wherever the library
// is built.
void report_add_while_shutting_down()
{
    assert_message none;
    if (assert_report(none, "comm/singleton", 111,
                      "velk::global_singleton_manager::find_or_add_singleton", "!shutting_down", 1))
        VELK_TRAP();
}

// A node with its own copy of the name behind it, in one block: a node of a
// shared manager must not point into a module that may be unloaded.
singleton_node* new_node(const token& name)
{
    uint32_t len = name.lens();
    void* block = global_alloc(sizeof(singleton_node) + len + 1);
    if (!block)
        throw std::bad_alloc();
    auto* node = new (block) singleton_node{};
    char* text = reinterpret_cast<char*>(node + 1);
    if (len)
        memcpy(text, name.ptr(), len);
    text[len] = 0;
    node->type_name = text;
    node->name = token(text, len);
    return node;
}

void free_node(singleton_node* node)
{
    node->~singleton_node();
    global_release(node);
}

} // namespace

// -- global_singleton_manager -------------------------------------------------

singleton_node* global_singleton_manager::find_shared(const token& name) const
{
    for (singleton_node* node = _head; node; node = node->next) {
        if (!node->local && node->name == name)
            return node;
    }
    return nullptr;
}

// In order: the shutdown check (unlocked: it catches misuse, not races);
// then, under the mutex, either an existing shared node with its init, or a
// new node with a new instance at the head of the list. The hand-over slot is
// cleared on both ways out, so a hand-over never outlives its registration.
void* global_singleton_manager::find_or_add_singleton(singleton_create_fn create,
                                                      singleton_destroy_fn destroy,
                                                      singleton_init_fn init, const token& name,
                                                      const char* file, int32_t line, bool local)
{
    if (_shutting_down)
        report_add_while_shutting_down();

    comm_mutex_guard guard(_mutex);
    if (!local) {
        if (singleton_node* found = find_shared(name)) {
            if (init)
                init(found->instance);
            handover_slot = nullptr;
            return found->instance;
        }
    }

    singleton_node* node = new_node(name);
    try {
        node->instance = create();
    } catch (...) {
        free_node(node); // nothing was linked: the list stays as it was
        throw;
    }
    node->destroy = destroy;
    node->file = file;
    node->line = line;
    node->local = local;
    node->next = _head;
    _head = node;
    ++_count;
    handover_slot = nullptr;
    return node->instance;
}

void global_singleton_manager::unlink_and_destroy(singleton_node** link)
{
    singleton_node* node = *link;
    *link = node->next;
    if (node->destroy)
        node->destroy(node->instance);
    node->instance = nullptr;
    free_node(node);
}

bool global_singleton_manager::remove_singleton(void* instance)
{
    if (!instance)
        return false;
    for (singleton_node** link = &_head; *link; link = &(*link)->next) {
        if ((*link)->instance == instance) {
            unlink_and_destroy(link);
            return true;
        }
    }
    return false;
}

void global_singleton_manager::destroy_singletons()
{
    if (!_head)
        return;
    _shutting_down = true;
    // The head is read again each time: a destroy may remove other nodes.
    while (_head)
        unlink_and_destroy(&_head);
}

// -- The module's entry points ------------------------------------------------

global_singleton_manager& local_singleton_manager()
{
    static global_singleton_manager manager;
    return manager;
}

global_singleton_manager& own_shared_singleton_manager()
{
    static global_singleton_manager manager;
    return manager;
}

global_singleton_manager& process_singleton_manager()
{
    global_singleton_manager* m = process_manager_cache.load(std::memory_order_acquire);
    if (!m) {
        // The main program's list first, this module's own second.
        auto registrar = reinterpret_cast<sglo_registrar_fn>(os::main_program_symbol("sglo_registrar"));
        m = registrar ? registrar() : &own_shared_singleton_manager();
        process_manager_cache.store(m, std::memory_order_release);
    }
    return *m;
}

void* register_singleton(singleton_create_fn create, singleton_destroy_fn destroy,
                         singleton_init_fn init, const char* type_name, const char* file,
                         int32_t line, bool local)
{
    global_singleton_manager& manager = local ? local_singleton_manager() : process_singleton_manager();
    return manager.find_or_add_singleton(create, destroy, init, token(type_name), file, line, local);
}

singleton_create_fn hand_over_instance(void* instance)
{
    handover_slot = instance;
    return &take_handed_over;
}

void* hand_over_slot() { return handover_slot; }

void remove_singleton(void* instance)
{
    local_singleton_manager().remove_singleton(instance);
}

void destroy_local_singletons()
{
    memtrack_shutdown();
    local_singleton_manager().destroy_singletons();
}

} // namespace velk

extern "C" velk::global_singleton_manager* sglo_registrar()
{
    return &velk::own_shared_singleton_manager();
}
