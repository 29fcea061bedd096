#include "plugin/hostprobe_plugin.h"

#include "comm/alloc/commalloc.h"
#include "comm/exception.h"
#include "interface/registrar.h"
#include "plugin/simplugin.h"

#include <cstring>
#include <new>

namespace xt {

namespace {

// A method table entry of signature Sig: calls Method on the simplugin
// behind the host pointer. Method's type is spelled from the row's
// signature, so a simplugin method that differs from its row fails to build.
template <class Sig, Sig simplugin::*Method>
struct method_entry;

template <class R, class... A, R (simplugin::*Method)(A...)>
struct method_entry<R(A...), Method>
{
    static R call(velk::counted_base* host, A... args)
    {
        return (static_cast<simplugin*>(host)->*Method)(args...);
    }
    static velk::method_fn fn() { return reinterpret_cast<velk::method_fn>(&call); }
};

// The rows name the indices 0 to method_count - 1, each once, in order:
// the table is filled by index and copied whole.
constexpr bool rows_in_table_order()
{
    constexpr uint32_t indices[] = {
#define XT_HOSTPROBE_ROW_INDEX(name, index, signature) index,
        XT_HOSTPROBE_PLUGIN_METHODS(XT_HOSTPROBE_ROW_INDEX)
#undef XT_HOSTPROBE_ROW_INDEX
    };
    for (uint32_t i = 0; i < hostprobe_plugin::method_count; ++i)
        if (indices[i] != i)
            return false;
    return true;
}
static_assert(rows_in_table_order(), "the method rows must number the table from 0, in order");

velk::method_fn* module_method_table = nullptr;

// The tables live as long as the module: its static destruction frees them,
// since no object that could call through them outlives the module's code.
// An unloaded module would otherwise leave them unreachable.
struct method_tables_end
{
    ~method_tables_end() { hostprobe_plugin_dispatcher::release_tables(); }
};

const method_tables_end free_method_tables_at_exit;

velk::method_fn* alloc_table()
{
    void* p = velk::global_alloc(hostprobe_plugin::method_count * sizeof(velk::method_fn));
    if (!p)
        throw std::bad_alloc();
    return static_cast<velk::method_fn*>(p);
}

} // namespace

std::atomic<velk::creator_fn> hostprobe_plugin::_js_wrapper{nullptr};
std::atomic<velk::creator_fn> hostprobe_plugin::_jsc_wrapper{nullptr};
std::atomic<velk::creator_fn> hostprobe_plugin::_lua_wrapper{nullptr};

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

std::atomic<velk::creator_fn>* hostprobe_plugin::wrapper_cache(velk::backend b)
{
    switch (b) {
    case velk::backend_js: return &_js_wrapper;
    case velk::backend_jsc: return &_jsc_wrapper;
    case velk::backend_lua: return &_lua_wrapper;
    default: return nullptr;
    }
}

velk::creator_fn hostprobe_plugin::wrapper_creator(velk::backend b) const
{
    std::atomic<velk::creator_fn>* cache = wrapper_cache(b);
    if (!cache)
        return nullptr;
    velk::creator_fn c = cache->load(std::memory_order_relaxed);
    if (!c) {
        c = velk::get_creator(wrapper_key(b));
        cache->store(c, std::memory_order_relaxed);
    }
    return c;
}

velk::method_fn* hostprobe_plugin::get_method_table()
{
    if (!module_method_table) {
        velk::method_fn* t = alloc_table();
#define XT_HOSTPROBE_ENTRY(name, index, signature) t[index] = method_entry<signature, &simplugin::name>::fn();
        XT_HOSTPROBE_PLUGIN_METHODS(XT_HOSTPROBE_ENTRY)
#undef XT_HOSTPROBE_ENTRY
        module_method_table = t;
    }
    return module_method_table;
}

void hostprobe_plugin_dispatcher::release_tables()
{
    velk::global_release(module_method_table);
    velk::global_release(_capture_table);
    module_method_table = nullptr;
    _capture_table = nullptr;
}

bool hostprobe_plugin::bind_host(velk::counted_base* host)
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
                                                                 hostprobe_plugin* instance)
{
    hostprobe_plugin* d = instance ? instance : new hostprobe_plugin_dispatcher;
    out = d;
    d->bind_host(host);
    return out;
}

velk::iref<hostprobe_plugin>& hostprobe_plugin_dispatcher::native_creator(
    velk::iref<hostprobe_plugin>& out, hostprobe_plugin* instance,
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
    velk::iref<hostprobe_plugin>& out, velk::counted_base* host, hostprobe_plugin* instance)
{
    return bind(out, host, instance);
}

} // namespace xt
