// xt::hostprobe_plugin: the scriptable interface of this module, its native
// dispatcher, the method table and the two native creators.
//
// Generated shape: the interface class answers the identity slots and calls
// through the method table; the dispatcher binds a native object and the
// table; the creators make or reuse a dispatcher and bind it. The methods,
// their indices and signatures come from plugin/hostprobe_plugin_methods.h
// alone: the index enum, the accessors and the table all expand that list.
#pragma once

#include "comm/charstr.h"
#include "interface/stubsmith_interface.h"
#include "plugin/hostprobe_plugin_methods.h"

#include <atomic>
#include <cstdint>
#include <utility>

namespace xt {

// What a row's signature R(A...) tells of its method: the result, the
// argument count, and the type of its method table entry, which takes the
// interface's host pointer before the arguments.
template <class Sig>
struct method_signature;

template <class R, class... A>
struct method_signature<R(A...)>
{
    using result = R;
    using entry = R (*)(velk::counted_base*, A...);
    static constexpr uint32_t arity = sizeof...(A);
};

class hostprobe_plugin : public velk::stubsmith_interface
{
public:
    static constexpr uint32_t hash = 0xCD59A835u;
    // The registry keys of the native creators. The number in the creator's
    // key is hash in decimal: a client states by the key which interface
    // text it was built against.
    static constexpr velk::token native_wrapper_key = "xt::hostprobe_plugin@wrapper";
    static constexpr velk::token native_creator_key = "xt::hostprobe_plugin.create@3445205045";
    // The host's own interface, known to this module by its hash only.
    static constexpr uint32_t host_interface_hash = 0x38934D07u;

    // Indices of the method table, m_<name> for each row; method_count is
    // the number of rows.
#define XT_HOSTPROBE_INDEX(name, index, signature) m_##name = index,
#define XT_HOSTPROBE_COUNT(name, index, signature) +1
    enum method_index : uint32_t {
        XT_HOSTPROBE_PLUGIN_METHODS(XT_HOSTPROBE_INDEX)
        method_count = 0 XT_HOSTPROBE_PLUGIN_METHODS(XT_HOSTPROBE_COUNT)
    };
#undef XT_HOSTPROBE_INDEX
#undef XT_HOSTPROBE_COUNT

    static const velk::tokenhash& name();

    uint32_t interface_hash() const override { return hash; }
    bool is_derived(int32_t h) const override { return static_cast<uint32_t>(h) == hash; }
    const velk::tokenhash& interface_name() const override { return name(); }
    velk::backend backend() const override { return velk::backend_native; }
    // The wrapper creator of a script backend, looked up under wrapper_key(b)
    // on first use and cached; a failed lookup is tried again on the next
    // call. Null for the native backend, without asking the registry. Throws
    // as velk::get_creator when the process has no registry.
    velk::creator_fn wrapper_creator(velk::backend b) const override;
    const velk::token& wrapper_key(velk::backend b) const override;

    // Calls entry index of the bound method table as Sig, the signature of
    // that index's row. The arguments convert to Sig's parameter types as
    // in a call of a function of that signature. The object must be bound
    // (method_table() not null); what the method throws reaches the caller.
    template <class Sig, class... A>
    typename method_signature<Sig>::result call(uint32_t index, A&&... args) const
    {
        auto fn = reinterpret_cast<typename method_signature<Sig>::entry>(_method_table[index]);
        return fn(_host.get(), std::forward<A>(args)...);
    }

    // One accessor per row, named as the method: p->getMAC(),
    // p->mersenne_twister(5489), p->testfunction(21).
#define XT_HOSTPROBE_ACCESSOR(name, index, signature)                        \
    template <class... A>                                                     \
    typename method_signature<signature>::result name(A&&... args) const      \
    {                                                                         \
        return call<signature>(m_##name, std::forward<A>(args)...);           \
    }
    XT_HOSTPROBE_PLUGIN_METHODS(XT_HOSTPROBE_ACCESSOR)
#undef XT_HOSTPROBE_ACCESSOR

    // The module's table, allocated on the first request and never freed.
    // Unguarded: two threads racing on the first use fill equal tables.
    static velk::method_fn* get_method_table();

    // Takes a counted reference to host and binds the module's table. Always
    // true. Every dispatcher of the interface, native or scripted, is bound
    // here: the creators take any of them as their instance.
    bool bind_host(velk::counted_base* host);

private:
    // The cache of wrapper_creator for backend b; null for a backend
    // without a wrapper creator.
    static std::atomic<velk::creator_fn>* wrapper_cache(velk::backend b);

    // Filled without a guard: racing first uses store equal values. Atomic
    // only so that the race is well defined.
    static std::atomic<velk::creator_fn> _js_wrapper;
    static std::atomic<velk::creator_fn> _jsc_wrapper;
    static std::atomic<velk::creator_fn> _lua_wrapper;
};

class hostprobe_plugin_dispatcher : public hostprobe_plugin
{
public:
    ~hostprobe_plugin_dispatcher() override = default;

    // Routes calls through a copy of the table for sink; instance_id must be
    // below 255. The id and sink are shared by all dispatchers.
    bool set_capture(void* sink, uint32_t instance_id) override;
    // No method of this interface is captured: always throws velk::exception.
    void dispatch_captured(uintptr_t, uintptr_t, uintptr_t) override;

    // The creator under native_creator_key: makes a simplugin for host and
    // binds it to instance (a dispatcher of any backend, already allocated),
    // or to a new native dispatcher when instance is null. out is null when
    // host holds nothing. Throws std::bad_alloc.
    static velk::iref<hostprobe_plugin>& native_creator(velk::iref<hostprobe_plugin>& out,
                                                         hostprobe_plugin* instance,
                                                         const velk::iref<velk::stubsmith_interface>& host);

    // The creator under native_wrapper_key: binds an existing native object.
    static velk::iref<hostprobe_plugin>& native_wrapper_creator(velk::iref<hostprobe_plugin>& out,
                                                                 velk::counted_base* host,
                                                                 hostprobe_plugin* instance);

    // Frees the method table and the capture table. Run by the module's
    // static destruction, when no object can call through them any more.
    static void release_tables();

    static uint32_t capture_id() { return _capture_id; }
    static void* capture_sink() { return _capture_sink; }

private:
    static velk::iref<hostprobe_plugin>& bind(velk::iref<hostprobe_plugin>& out, velk::counted_base* host,
                                              hostprobe_plugin* instance);

    static uint32_t _capture_id;
    static void* _capture_sink;
    static velk::method_fn* _capture_table;
};

// The signatures that the native keys promise, for clients that find the
// creators in the registry.
using native_creator_fn = decltype(&hostprobe_plugin_dispatcher::native_creator);
using native_wrapper_creator_fn = decltype(&hostprobe_plugin_dispatcher::native_wrapper_creator);

} // namespace xt
