// lua_object<D>: the generated shape of a Lua dispatcher D, kept in one
// place: the class table, make_object, the method wrappers, and the class
// table's log and query_interface.
//
// D is a dispatcher class (interface_wrapper_base of its interface) that
// gives: `hash` (the interface hash), `log_source()` (the source of its log
// lines, a tokenhash), `class_name` (the class table's name in a context) and
// `class_functions(count)` (the class table's functions, in order). A method
// is described once, by a method_info, and becomes the class table's
// function by
//
//   inline constexpr velk::lua::method_info<int32_t(int32_t)> testfunction_info{
//       "testfunction", 2, "Wrong number of arguments in hostprobe_plugin.testfunction", ...};
//   {"testfunction", &velk::lua::lua_object<D>::method<testfunction_info>}
//
// Every function that Lua calls is an outer and an inner function
// (lua_errors.h): a native failure reaches the script as a Lua error with
// its file and line, and no native exception crosses a Lua frame. All of it
// runs on the thread of the Lua state.
#pragma once

#include "bindings/lua/creator_lookup.h"
#include "bindings/lua/lua_errors.h"
#include "bindings/lua/lua_ext.h"
#include "bindings/lua/lua_state.h"
#include "bindings/lua/registry_handle.h"
#include "comm/charstr.h"
#include "comm/exception.h"
#include "comm/iref.h"
#include "comm/log/logger.h"
#include "comm/log/logmsg.h"
#include "comm/metastream/fmtstream_lua_capi.h"
#include "interface/registrar.h"
#include "interface/stubsmith_interface.h"

#include <lua.hpp>

#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>

namespace velk::lua {

// One method of an interface, as scripts reach it: its name in the class
// table, its entry of the method table, and its three failure texts, whole,
// so that a failure allocates nothing to say so. Sig is the native
// signature R(A...) of the entry behind the host argument.
template <class Sig>
struct method_info;

template <class R, class... A>
struct method_info<R(A...)>
{
    const char* name;
    uint32_t index;
    const char* wrong_count;  // "Wrong number of arguments in interface.M"
    const char* not_object;   // "Caller is not valid object in interface.M"
    const char* null_object;  // "Null interface object in interface.M"
};

// One function of a class table.
struct class_function
{
    const char* name;
    lua_CFunction fn;
};

// -- Values across the stack ------------------------------------------------------
// Integers go as 32-bit signed values, the script's number taken by
// lua_tointeger without a type check (a non-number is 0). Text goes
// through the thread's streamer; only a method with text binds it.

template <class T>
inline constexpr bool is_text_v = std::is_same_v<T, charstr>;

template <class T>
T argument_from_lua(lua_State* L, int index)
{
    if constexpr (is_text_v<T>) {
        lua_pushvalue(L, index);
        T text;
        lua_streamer_context::get_lua_streamer(true).from_lua(text); // pops
        return text;
    } else {
        // Read in place: a copy pushed and popped again would read the same.
        static_assert(std::is_integral_v<T> && sizeof(T) == 4, "a method argument of a type the binding can't pass");
        return static_cast<T>(static_cast<int32_t>(lua_tointeger(L, index)));
    }
}

template <class T>
void push_result(lua_State* L, const T& v)
{
    if constexpr (is_text_v<T>) {
        lua_streamer_context& s = lua_streamer_context::get_lua_streamer(true);
        s.bind_stack(L); // the method may have used the streamer itself
        s.to_lua(v);
    } else {
        static_assert(std::is_integral_v<T> && sizeof(T) == 4, "a method result of a type the binding can't pass");
        lua_pushinteger(L, static_cast<int32_t>(v));
    }
}

// The test of lua_hasfield and the read of the field in one raw lookup, as
// a method's hot path wants it: false when the value at index (> 0) is no
// table with "__cthis"; else true, and out is the pointer in its userdata,
// null when that holds null or is no pointer-sized userdata.
inline bool find_cthis(lua_State* L, int index, stubsmith_interface*& out)
{
    if (!lua_istable(L, index))
        return false;
    lua_pushtoken(L, names::cthis);
    lua_rawget(L, index);
    bool found = !lua_isnil(L, -1);
    void* p = lua_touserdata(L, -1);
    // A userdata of another size is not one that make_object made.
    out = p && lua_objlen(L, -1) == sizeof(void*) ? *static_cast<stubsmith_interface**>(p) : nullptr;
    lua_settop(L, -2);
    return found;
}

template <class D>
class lua_object
{
public:
    // The class registration: sets the class table in the context table on
    // top of the stack, which stays. Gives 0.
    static int register_class(lua_State* L)
    {
        lua_createtable(L, 0, 0);
        uint32_t count = 0;
        const class_function* f = D::class_functions(count);
        for (uint32_t i = 0; i < count; ++i) {
            lua_pushcclosure(L, f[i].fn, 0);
            lua_setfield(L, -2, f[i].name);
        }
        lua_setfield(L, -2, D::class_name);
        return 0;
    }

    // See hostprobe_plugin_lua_dispatcher::make_object.
    static iref<registry_handle>& make_object(D* d, iref<registry_handle>& out, bool weak)
    {
        registry_handle& ctx = *d->context;
        lua_State* L = ctx.state();
        ctx.push();
        if (!lua_hasfield(L, -1, D::class_name))
            register_class(L);
        lua_settop(L, -2);

        lua_createtable(L, 0, 3);
        lua_pushvalue(L, -1);
        lua_setmetatable(L, -2); // the table is its own metatable
        auto* cthis = static_cast<stubsmith_interface**>(lua_newuserdata(L, sizeof(void*)));
        *cthis = static_cast<stubsmith_interface*>(d);
        lua_setfield(L, -2, names::cthis);
        lua_pushnumber(L, static_cast<lua_Number>(D::hash));
        lua_setfield(L, -2, names::class_hash);
        ctx.push();
        lua_getfield(L, -1, D::class_name);
        lua_setfield(L, -3, names::index);
        lua_settop(L, -2);

        out.release();
        if (weak)
            out = new weak_registry_handle(L);
        else
            out = new registry_handle(L);
        if (weak) {
            // The userdata owns one reference now, given back by the __gc of
            // the metatable at registry slot 2 when Lua collects it.
            lua_getfield(L, -1, names::cthis);
            lua_rawgeti(L, LUA_REGISTRYINDEX, weak_gc_metatable_slot);
            lua_setmetatable(L, -2);
            lua_settop(L, -2);
            d->add_refcount();
        }
        out->set();
        return out;
    }

    // The class table's function of method M.
    template <const auto& M>
    static int method(lua_State* L)
    {
        return guarded<&method_body<M>>(L);
    }

    // "log" of the class table.
    static int log(lua_State* L) { return guarded<&log_body>(L); }
    // "query_interface" of the class table.
    static int query_interface(lua_State* L) { return guarded<&query_body>(L); }

private:
    template <const auto& M>
    static int method_body(lua_State* L)
    {
        return invoke(L, M);
    }

    template <class R, class... A>
    static int invoke(lua_State* L, const method_info<R(A...)>& m)
    {
        if (lua_gettop(L) != static_cast<int>(sizeof...(A)) + 1)
            throw exception(m.wrong_count);
        stubsmith_interface* d;
        if (!find_cthis(L, 1, d))
            throw exception(m.not_object);
        if (!d)
            throw exception(m.null_object);
        stubsmith_interface* target = d->real_interface();
        // A table of another interface's object, set here by hand.
        if (target->interface_hash() != D::hash)
            throw exception(m.not_object);
        constexpr bool uses_text = (is_text_v<A> || ...);
        if constexpr (uses_text)
            lua_streamer_context::get_lua_streamer(true).bind_stack(L);
        call<R, A...>(L, target, m.index, std::index_sequence_for<A...>{});
        return 1;
    }

    template <class R, class... A, size_t... I>
    static void call(lua_State* L, stubsmith_interface* target, uint32_t index, std::index_sequence<I...>)
    {
        using entry = R (*)(counted_base*, A...);
        auto fn = reinterpret_cast<entry>(target->method_table()[index]);
        // A braced list fetches the arguments from left to right.
        std::tuple<A...> args{argument_from_lua<A>(L, static_cast<int>(I) + 2)...};
        (void)L;
        push_result(L, fn(target->host(), std::get<I>(args)...));
    }

    // The dispatcher behind a "__cthis" pointer, when it is one of D.
    static D* dispatcher_of(stubsmith_interface* ifc)
    {
        if (!ifc || ifc->backend() != backend_lua || ifc->interface_hash() != D::hash)
            return nullptr;
        return static_cast<D*>(ifc);
    }

    static int log_body(lua_State* L)
    {
        if (lua_gettop(L) == 0)
            return 0;
        lua_insert(L, 1); // the message, the last argument, to the bottom
        stubsmith_interface* object = nullptr;
        if (find_cthis(L, lua_gettop(L), object)) {
            if (!object)
                throw exception("Null interface object in log");
            lua_settop(L, -2);
        }
        // The message is what lies on top now: with more than one argument
        // that is the one before the last, and the object, which then lies
        // between, is not looked at.
        token text = lua_toltoken(L, -1);
        int32_t level = log_level_from_text(text);
        if (log_ref msg = create_log_msg(level, D::log_source(), object); msg && !text.is_empty())
            *msg << text;
        // The line goes out as the last reference drops, here.
        lua_settop(L, 0);
        return 0;
    }

    static int query_body(lua_State* L)
    {
        if (lua_gettop(L) < 2)
            throw exception("Interface creator name or caller object is missing.");
        lua_pushvalue(L, 1);
        lua_remove(L, 1); // the caller on top
        if (!lua_hasfield(L, -1, names::cthis))
            return 0;
        lua_getfield(L, -1, names::cthis);
        if (!lua_isuserdata(L, -1))
            return 0;
        auto* p = static_cast<stubsmith_interface**>(lua_touserdata(L, -1));
        if (!p || !*p)
            throw exception("Null interface object in query_interface");
        D* caller = dispatcher_of(*p);
        lua_pushvalue(L, 1);
        lua_remove(L, 1); // the name on top
        creator_fn c = creator_named_on_top(L);
        lua_settop(L, -4); // the name, the caller and its userdata go
        using create_fn = int (*)(lua_State*, iref<registry_handle>*);
        return reinterpret_cast<create_fn>(c)(L, caller ? &caller->context : nullptr);
    }
};

} // namespace velk::lua
