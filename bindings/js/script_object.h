// script_object<D>: the generated shape of a JavaScript dispatcher D, kept in
// one place: its module-wide object template, make_object, the weak
// callback, and the one callback pattern that every method follows.
//
// D is a dispatcher class (interface_wrapper_base of its interface) that
// gives: `hash` (the interface hash), `name()` (its tokenhash) and
// `functions(count)` (the template's functions in order). A method is
// described once, by a method_info, and becomes a callback by
//
//   inline constexpr velk::js::method_info<int32_t(int32_t)> testfunction_info{
//       "testfunction", "hostprobe_plugin.testfunction", 2};
//   {"testfunction", &velk::js::script_object<D>::method<testfunction_info>}
//
// All of it runs on the isolate's thread. The template is built once per
// module, for the isolate of the first object, and serves every context of
// that isolate; objects for another isolate are refused with a script Error.
// The isolate is told by a mark in its last data slot (isolate_identity), not
// by its address: a new isolate may come at the address of a disposed one.
// A host must leave that slot to the binding.
#pragma once

#include "bindings/js/interface_object.h"
#include "bindings/js/js_convert.h"
#include "bindings/js/raw_field.h"
#include "comm/exception.h"
#include "comm/token.h"

#include <v8.h>

#include <cstdint>
#include <tuple>
#include <typeinfo>
#include <utility>

namespace velk::js {

// One method of an interface, as scripts reach it: the property name, the
// full name in messages ("interface.method"), the entry of the method
// table, and the native signature R(A...) of the entry behind the host
// argument.
template <class Sig>
struct method_info;

template <class R, class... A>
struct method_info<R(A...)>
{
    const char* name;
    const char* full_name;
    uint32_t index;
};

// Throws the SyntaxError of a method called with the wrong count.
void throw_argument_count(v8::Isolate* isolate, const char* full_name);
// Throws the ReferenceError of an object whose field 0 holds null.
void throw_null_interface(v8::Isolate* isolate, const char* full_name);

// What tells isolate from every other isolate of the process, the disposed
// ones too: a random mark kept in its last data slot, made on the first ask.
// Every module with the binding reads the same mark. Never 0.
uintptr_t isolate_identity(v8::Isolate* isolate);

template <class D>
class script_object
{
public:
    // The module's template, built on the first call. Empty, with a script
    // Error thrown, for an isolate other than the first one.
    static v8::MaybeLocal<v8::ObjectTemplate> object_template(v8::Isolate* isolate, v8::Local<v8::Context> context)
    {
        // Function-local: built once, safely against racing first calls.
        static const template_slot slot(isolate, context);
        if (slot.identity != isolate_identity(isolate)) {
            charstr text;
            text << D::name() << " objects belong to another isolate";
            throw_script_error(isolate, &v8::Exception::Error, text);
            return {};
        }
        return slot.handle.Get(isolate);
    }

    // A new script object of d in context: field 0 holds d, field 1 the
    // hash. With weak, object becomes a weak handle to it, and the object
    // holds one reference to d until the collector takes it. Without, object
    // is left to the caller. Empty when V8 refuses (a pending exception
    // says why).
    static v8::MaybeLocal<v8::Object> make_object(D* d, v8::Local<v8::Context> context, bool weak)
    {
        v8::Isolate* isolate = context->GetIsolate();
        v8::Local<v8::ObjectTemplate> t;
        if (!object_template(isolate, context).ToLocal(&t))
            return {};
        v8::Context::Scope in_context(context);
        v8::Local<v8::Object> obj;
        if (!t->NewInstance(context).ToLocal(&obj))
            return {};
        write_interface_fields(isolate, obj, static_cast<stubsmith_interface*>(d), D::hash);
        if (weak) {
            d->object.Reset(isolate, obj);
            d->object.SetWeak(d, &weak_first_pass, v8::WeakCallbackType::kParameter);
            d->add_refcount();
        }
        return obj;
    }

    // What a method call's receiver is: not an object of this interface
    // (another object, or one whose dispatcher is gone: methods give
    // undefined), one whose field 0 holds a null pointer, or one bound to
    // its dispatcher, which goes to out.
    enum class receiver_kind { other, null_pointer, bound };

    [[gnu::always_inline]] static receiver_kind receiver(v8::Local<v8::Object> self, D*& out)
    {
        if (self.IsEmpty())
            return receiver_kind::other;
        void* field = nullptr;
        // The raw read answers for the objects it knows, as the API would:
        // its agreement was checked when the template was built, and the
        // template comes before any object whose methods reach here.
        if (!raw_fields || !raw_interface_field(self, field)) {
            if (self->InternalFieldCount() != interface_field_count)
                return receiver_kind::other;
            v8::Local<v8::Value> f0 = self->GetInternalField(field_interface);
            if (!f0->IsExternal())
                return receiver_kind::other; // field 0 is null once the dispatcher is gone
            field = f0.As<v8::External>()->Value();
        }
        auto* ifc = static_cast<stubsmith_interface*>(field);
        if (!ifc)
            return receiver_kind::null_pointer;
        // An object of two fields holds an interface of some module in field
        // 0, by the contract of interface objects. A D of this module answers
        // both questions below alike, and is known by the address of its type
        // information, two loads away; anything else (a D of another module
        // too) is asked through its own slots: two virtual calls, where
        // reading field 1 would cost three calls into V8.
        if (&typeid(*ifc) == &typeid(D)) {
            out = static_cast<D*>(ifc);
            return receiver_kind::bound;
        }
        if (ifc->interface_hash() != D::hash || ifc->backend() != backend_js)
            return receiver_kind::other;
        out = static_cast<D*>(ifc);
        return receiver_kind::bound;
    }

    // The callback of method M: count check, receiver, context, call through
    // the method table, result, failure.
    template <const auto& M>
    static void method(const v8::FunctionCallbackInfo<v8::Value>& info)
    {
        invoke(info, M);
    }

    // "$ctx": the prototype of the global object of the receiver's context.
    static void ctx(const v8::FunctionCallbackInfo<v8::Value>& info)
    {
        v8::Isolate* isolate = info.GetIsolate();
        v8::HandleScope scope(isolate);
        D* d = nullptr;
        if (receiver(info.This(), d) != receiver_kind::bound)
            return;
        creation_context in_context(isolate, d->object);
        v8::Local<v8::Value> proto = in_context.enter()->Global()->GetPrototype();
        if (!proto.IsEmpty())
            info.GetReturnValue().Set(proto);
    }

    // "$rebind_events": the interface has no events; undefined.
    static void rebind_events(const v8::FunctionCallbackInfo<v8::Value>&) {}

private:
    // Whether receiver may read field 0 raw; set once, with the template.
    static inline bool raw_fields = false;

    struct template_slot
    {
        template_slot(v8::Isolate* i, v8::Local<v8::Context> context) : identity(isolate_identity(i))
        {
            raw_fields = raw_interface_field_checked(i, context);
            uint32_t count = 0;
            const function_entry* f = D::functions(count);
            handle.Set(i, build_object_template(i, D::name(), f, count));
        }
        uintptr_t identity;
        // Eternal: kept for the rest of the isolate's life, with no
        // disposal for the module's static destruction to get wrong.
        v8::Eternal<v8::ObjectTemplate> handle;
    };

    // The collector has taken the object: the handle must go now, and
    // nothing else of V8 may run. The reference is given back in the
    // second pass, where V8 may be used again: the release can end the
    // dispatcher, and with it native objects that reach V8 themselves.
    static void weak_first_pass(const v8::WeakCallbackInfo<D>& info)
    {
        info.GetParameter()->object.Reset();
        info.SetSecondPassCallback(&weak_second_pass);
    }

    static void weak_second_pass(const v8::WeakCallbackInfo<D>& info)
    {
        info.GetParameter()->release_refcount();
    }

    template <class R, class... A>
    static void invoke(const v8::FunctionCallbackInfo<v8::Value>& info, const method_info<R(A...)>& m)
    {
        v8::Isolate* isolate = info.GetIsolate();
        if (info.Length() != static_cast<int>(sizeof...(A))) {
            throw_argument_count(isolate, m.full_name);
            return;
        }
        // No handle scope of its own: V8 opens one around every callback,
        // and a second would only cost the call its price twice.
        D* d = nullptr;
        switch (receiver(info.This(), d)) {
        case receiver_kind::other:
            return; // undefined
        case receiver_kind::null_pointer:
            throw_null_interface(isolate, m.full_name);
            return;
        case receiver_kind::bound:
            break;
        }
        stubsmith_interface* target = d->call_target();
        creation_context in_context(isolate, d->object);
        try {
            call<R, A...>(info, isolate, in_context, target, m.index, std::index_sequence_for<A...>{});
        } catch (const exception& e) {
            in_context.enter(); // the error belongs to the object's context
            throw_type_error(isolate, e);
        }
    }

    template <class R, class... A, size_t... I>
    static void call(const v8::FunctionCallbackInfo<v8::Value>& info, v8::Isolate* isolate,
                     creation_context& context, stubsmith_interface* target, uint32_t index,
                     std::index_sequence<I...>)
    {
        using entry = R (*)(counted_base*, A...);
        auto fn = reinterpret_cast<entry>(target->method_table()[index]);
        // A braced list converts the arguments from left to right, as a
        // script expects of conversions with side effects.
        std::tuple<A...> args{from_script<A>(context, info[static_cast<int>(I)])...};
        (void)context; // a method without arguments converts none
        set_result(info.GetReturnValue(), isolate, fn(target->host(), std::get<I>(args)...));
    }
};

} // namespace velk::js
