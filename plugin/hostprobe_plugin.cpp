#include "plugin/hostprobe_plugin.h"

#include "comm/alloc/commalloc.h"
#include "comm/exception.h"
#include "plugin/simplugin.h"

#include <cstring>
#include <new>

namespace xt {

namespace {

// A method table entry: calls Method on the simplugin behind the host pointer.
template <auto Method>
struct method_entry;

template <class R, class... A, R (simplugin::*Method)(A...)>
struct method_entry<Method>
{
    static R call(velk::counted_base* host, A... args)
    {
        return (static_cast<simplugin*>(host)->*Method)(args...);
    }
    static velk::method_fn fn() { return reinterpret_cast<velk::method_fn>(&call); }
};

velk::method_fn* module_method_table = nullptr;

velk::method_fn* alloc_table()
{
    void* p = velk::global_alloc(hostprobe_plugin::method_count * sizeof(velk::method_fn));
    if (!p)
        throw std::bad_alloc();
    return static_cast<velk::method_fn*>(p);
}

} // namespace

uint32_t hostprobe_plugin_dispatcher::_capture_id = 0xFFFF;
void* hostprobe_plugin_dispatcher::_capture_sink = nullptr;
velk::method_fn* hostprobe_plugin_dispatcher::_capture_table = nullptr;

const velk::tokenhash& hostprobe_plugin::name()
{
    static const velk::tokenhash n("xt::hostprobe_plugin");
    return n;
}

const velk::token& hostprobe_plugin::wrapper_key(velk::backend b) const
{
    static const velk::token keys[] = {
        velk::token(""),                      // native: an empty token
        "xt::hostprobe_plugin@wrapper.js",
        "xt::hostprobe_plugin@wrapper.jsc",
        "xt::hostprobe_plugin@wrapper.lua",
    };
    static const velk::token none;
    return b < sizeof keys / sizeof keys[0] ? keys[b] : none;
}

velk::creator_fn hostprobe_plugin::wrapper_creator(velk::backend) const
{
    // The script backends find their wrapper creators through the interface
    // registry, which this module does not reach yet.
    return nullptr;
}

velk::method_fn* hostprobe_plugin::get_method_table()
{
    if (!module_method_table) {
        velk::method_fn* t = alloc_table();
        t[m_getMAC] = method_entry<&simplugin::getMAC>::fn();
        t[m_mersenne_twister] = method_entry<&simplugin::mersenne_twister>::fn();
        t[m_testfunction] = method_entry<&simplugin::testfunction>::fn();
        module_method_table = t;
    }
    return module_method_table;
}

bool hostprobe_plugin_dispatcher::bind_host(velk::counted_base* host)
{
    _host = host;
    _method_table = get_method_table();
    return true;
}

bool hostprobe_plugin_dispatcher::set_capture(void* sink, uint32_t instance_id)
{
    if (instance_id >= 255)
        return false;
    _capture_id = instance_id << 8;
    _capture_sink = sink;
    if (!sink) {
        _method_table = get_method_table();
        return true;
    }
    if (!_capture_table) {
        velk::method_fn* t = alloc_table();
        memcpy(t, get_method_table(), method_count * sizeof(velk::method_fn));
        _capture_table = t;
    }
    _method_table = _capture_table;
    return true;
}

void hostprobe_plugin_dispatcher::dispatch_captured(uintptr_t, uintptr_t, uintptr_t)
{
    throw velk::exception("unknown method id in hostprobe_plugin capture dispatcher");
}

velk::iref<hostprobe_plugin>& hostprobe_plugin_dispatcher::bind(velk::iref<hostprobe_plugin>& out,
                                                                 velk::counted_base* host,
                                                                 hostprobe_plugin_dispatcher* instance)
{
    hostprobe_plugin_dispatcher* d = instance ? instance : new hostprobe_plugin_dispatcher;
    out = d;
    d->bind_host(host);
    return out;
}

velk::iref<hostprobe_plugin>& hostprobe_plugin_dispatcher::native_creator(
    velk::iref<hostprobe_plugin>& out, hostprobe_plugin_dispatcher* instance,
    const velk::iref<velk::stubsmith_interface>& host)
{
    velk::iref<simplugin> plugin = simplugin::make(host);
    if (!plugin) {
        out.release();
        return out;
    }
    // The local reference ends here; the dispatcher's host keeps the only one.
    return bind(out, plugin.get(), instance);
}

velk::iref<hostprobe_plugin>& hostprobe_plugin_dispatcher::native_wrapper_creator(
    velk::iref<hostprobe_plugin>& out, velk::counted_base* host, hostprobe_plugin_dispatcher* instance)
{
    return bind(out, host, instance);
}

} // namespace xt
