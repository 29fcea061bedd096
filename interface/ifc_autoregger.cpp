// ifc_autoregger: the group object, its singleton entry and its end.
//
// The object exists before it is listed, so it reaches the list through the
// thread's hand-over slot: this runs from static initialisers, before any
// ordered start-up of the module.
#include "interface/ifc_autoregger.h"

#include "comm/alloc/commalloc.h"
#include "comm/singleton.h"

#include <cstdio>
#include <cstdlib>
#include <new>

namespace velk {

namespace {

void init_nothing(void*) {}

void free_autoregger(ifc_autoregger* a)
{
    a->~ifc_autoregger();
    global_release(a);
}

} // namespace

void ifc_autoregger::end_process(const std::exception& e)
{
    fprintf(stderr, "module registration failed: %s\n", e.what());
    fflush(stderr);
    abort();
}

ifc_autoregger* ifc_autoregger::start(registration_fn fn)
{
    void* block = global_alloc(sizeof(ifc_autoregger));
    if (!block)
        throw std::bad_alloc();
    auto* a = new (block) ifc_autoregger(fn);
    try {
        fn(true);
    } catch (...) {
        free_autoregger(a);
        throw;
    }
    try {
        // No place: the registrations of all groups share one type name.
        return static_cast<ifc_autoregger*>(register_singleton(hand_over_instance(a), &destroy, &init_nothing,
                                                               singleton_type_name<ifc_autoregger>(),
                                                               nullptr, 0, true));
    } catch (...) {
        destroy(a); // unlisted, the keys would outlive the module
        throw;
    }
}

void ifc_autoregger::stop(ifc_autoregger*& instance)
{
    if (instance)
        remove_singleton(instance);
    instance = nullptr;
}

void ifc_autoregger::destroy(void* instance)
{
    auto* a = static_cast<ifc_autoregger*>(instance);
    a->_register(false);
    free_autoregger(a);
}

} // namespace velk
