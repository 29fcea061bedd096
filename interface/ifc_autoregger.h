// ifc_autoregger: the static registration of a module's creators.
//
// One object per group of keys. A static initialiser of the module makes it,
// which enters the group's keys in the process's registry; it is kept as a
// module-local singleton, and the module's exit function removes it, which
// takes the keys out again. So a module's keys live exactly as long as the
// module is loaded. Invariant: the registration function of a group enters
// (on true) and removes (on false) the same keys, in the same order.
//
//   void register_native_group(bool on)
//   {
//       velk::register_key(on, "xt::hostprobe_plugin@wrapper", &native_wrapper_creator);
//   }
//   const velk::autoregger_site<&register_native_group> native_group;
#pragma once

#include "comm/token.h"
#include "interface/registrar.h"
#include "interface/stubsmith_interface.h"

#include <exception>
#include <stdexcept>

namespace velk {

class ifc_autoregger
{
public:
    using registration_fn = void (*)(bool on);

    // Allocates the object for fn, calls fn(true) and lists the object as a
    // module-local singleton, whose destruction calls fn(false). Gives the
    // object. Throws std::bad_alloc, and what fn throws (the registrar's
    // exception when the host exports no registry); the object is then
    // freed, and a failed listing takes the keys out again.
    static ifc_autoregger* start(registration_fn fn);

    // The exit function's work: removes the singleton, which takes the keys
    // out, and clears instance. Nothing for a null instance.
    static void stop(ifc_autoregger*& instance);

    registration_fn registration() const { return _register; }

    // Ends the process as an exception that left a static initialiser would:
    // "module registration failed: " and e's text on standard error, then
    // abort. For Windows, where static initialisers run inside the loader,
    // which no exception may leave.
    [[noreturn]] static void end_process(const std::exception& e);

private:
    explicit ifc_autoregger(registration_fn fn) : _register(fn) {}

    static void destroy(void* instance);

    registration_fn _register;
};

// One row of a group's key table: enters key with creator on true, removes
// key on false. The registry's answer is dropped: a refused key leaves the
// interface unreachable under it, and the module loads all the same.
template <class FN>
void register_key(bool on, const token& key, FN* creator)
{
    register_creator(key, on ? reinterpret_cast<creator_fn>(creator) : nullptr);
}

// The static initialiser of one group, defined once per group at namespace
// scope: its construction starts the group's ifc_autoregger, and its
// destruction, the exit function that the module enrols with it, stops it.
// Groups of one translation unit start in the order of their definitions
// and stop in the reverse order.
template <ifc_autoregger::registration_fn FN>
class autoregger_site
{
public:
    autoregger_site()
    {
#if defined(_WIN32)
        try {
            _instance = ifc_autoregger::start(FN);
        } catch (const std::exception& e) {
            ifc_autoregger::end_process(e);
        } catch (...) {
            ifc_autoregger::end_process(std::runtime_error("an exception of unknown type"));
        }
#else
        _instance = ifc_autoregger::start(FN);
#endif
    }
    // Static destruction of a module runs per module, also when it is
    // unloaded early; functions enrolled with atexit may instead be run at
    // the end of the process, when a sanitizer's runtime stands in for it.
    ~autoregger_site() { ifc_autoregger::stop(_instance); }
    autoregger_site(const autoregger_site&) = delete;
    autoregger_site& operator=(const autoregger_site&) = delete;

    // The group's object; null once the module's exit function ran.
    static ifc_autoregger* instance() { return _instance; }

private:
    static inline ifc_autoregger* _instance = nullptr;
};

} // namespace velk
