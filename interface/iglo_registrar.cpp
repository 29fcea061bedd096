// The module's own interface registry and its export, iglo_registrar.
//
// Kept apart from the registry's operations: a program that must answer the
// export with a registry of its own (a test of version checks) defines
// iglo_registrar itself, and the linker then leaves this file out.
#include "interface/interface_register.h"

#include "comm/singleton.h"
#include "interface/registrar.h"


namespace velk {

namespace {

// The place under which every module lists its registry among its
// singletons, the same in every build, so that reports read the same.
constexpr const char* registry_place = "comm/interface";
constexpr int32_t registry_line = 685;

// Null before the first use and again after the module's static
// destruction removed the registry.
interface_register_impl* registry_of_this_module = nullptr;

void* create_registry() { return new interface_register_impl; }

void destroy_registry(void* r) { delete static_cast<interface_register_impl*>(r); }

void init_nothing(void*) {}

// The life of the registry, as that of a guarded static: its construction
// registers the registry, and its destruction, the exit function that the
// module enrols with it, removes it. So the registry goes with the module's
// static destruction, after the exit functions enrolled later, such as those
// of the modules that the host loaded meanwhile; this module's front must
// not reach it afterwards.
struct registry_lifetime
{
    registry_lifetime()
    {
        void* r = register_singleton(&create_registry, &destroy_registry, &init_nothing,
                                     singleton_type_name<interface_register_impl>(), registry_place, registry_line, true);
        registry_of_this_module = static_cast<interface_register_impl*>(r);
    }

    ~registry_lifetime()
    {
        interface_register_impl* r = registry_of_this_module;
        registry_of_this_module = nullptr;
        forget_registrar(r);
        remove_singleton(r);
    }
};

} // namespace

interface_register_impl* own_interface_registry()
{
    // A local registration makes a new object on every call: the guarded
    // static makes sure that racing first uses share one.
    static const registry_lifetime lifetime;
    return registry_of_this_module;
}

} // namespace velk

extern "C" velk::interface_register_impl* iglo_registrar()
{
    return velk::own_interface_registry();
}
