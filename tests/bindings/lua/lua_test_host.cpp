// Test helper: the Lua host of the binding's tests.
#include "tests/bindings/lua/lua_test_host.h"

#include "bindings/lua/dispatcher_census.h"
#include "bindings/lua/hostprobe_plugin_lua_creator.h"
#include "bindings/lua/lua_ext.h"
#include "bindings/lua/lua_state.h"
#include "interface/registrar.h"

namespace velk::testing {

namespace {

// The process's registry, root folder and plug-in.
binding_test_host& host()
{
    static binding_test_host h;
    return h;
}

bool accept_path(const token&) { return true; }

} // namespace

// -- The environment ------------------------------------------------------------

void lua_environment::SetUp()
{
    host().set_up_registry("lua", &accept_path);
    host().load_plugin();
}

void lua_environment::TearDown() { host().tear_down(); }

const std::string& lua_environment::root() { return host().root(); }
std::vector<logged_line>& lua_environment::log() { return binding_test_host::log(); }

// The environment of every program that links this helper.
const auto* const environment = ::testing::AddGlobalTestEnvironment(new lua_environment);

std::string write_root_file(const std::string& relative, const std::string& content)
{
    std::string path = lua_environment::root() + relative;
    write_file(path, content);
    return path;
}

creator_fn creator(const token& key) { return velk::get_creator(key); }

// -- The fixture ----------------------------------------------------------------

LuaTest::LuaTest() : L(velk::lua::new_state()), host_object(new xt::testing::host_interface_stub)
{
    lua_environment::log().clear();
}

LuaTest::~LuaTest()
{
    objects.clear();
    contexts.clear();
    lua_close(L);
}

std::string LuaTest::create_with(const velk::lua::script_source& source, iref<xt::hostprobe_plugin>& out,
                                 const char* bindname, iref<velk::lua::lua_context>* context)
{
    auto c = reinterpret_cast<xt::lua::creator_lua_fn>(creator(xt::lua::creator_lua_key));
    if (!c)
        return "no creator";
    try {
        c(out, L, source, host_object, token(bindname), context);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

iref<velk::lua::lua_context> LuaTest::new_context(const char* bindname, iref<xt::hostprobe_plugin>* out)
{
    velk::lua::script_source none; // a null text: no script runs
    iref<velk::lua::lua_context> context;
    iref<xt::hostprobe_plugin> made;
    EXPECT_EQ(create_with(none, made, bindname, &context), "");
    EXPECT_TRUE(made);
    if (out)
        *out = made;
    else
        objects.push_back(made);
    context->push();
    push_host_object();
    lua_setfield(L, -2, "host");
    lua_settop(L, -2);
    contexts.push_back(context);
    return context;
}

lua_result LuaTest::run(velk::lua::lua_context* context, const std::string& code, const std::string& name)
{
    lua_result r;
    const int top = lua_gettop(L);
    if (luaL_loadbuffer(L, code.data(), code.size(), token(name.data(), name.size())) == 0) {
        if (context) {
            context->push();
            lua_setfenv(L, -2);
        }
        r.ok = lua_pcall(L, 0, 1, 0) == 0;
    }
    switch (lua_type(L, -1)) {
    case LUA_TNIL: r.text = "nil"; break;
    case LUA_TBOOLEAN: r.text = lua_toboolean(L, -1) ? "true" : "false"; break;
    case LUA_TNUMBER:
    case LUA_TSTRING: {
        size_t n = 0;
        const char* s = lua_tolstring(L, -1, &n);
        r.text.assign(s, n);
        break;
    }
    default: r.text = lua_typename(L, lua_type(L, -1));
    }
    lua_settop(L, top);
    return r;
}

void LuaTest::push_host_object()
{
    lua_createtable(L, 0, 2);
    auto* p = static_cast<stubsmith_interface**>(lua_newuserdata(L, sizeof(void*)));
    *p = host_object.get();
    lua_setfield(L, -2, "__cthis");
    lua_pushnumber(L, xt::hostprobe_plugin::host_interface_hash);
    lua_setfield(L, -2, "__class_hash");
}

void LuaTest::collect_garbage()
{
    // A finalizer may free what another one kept: collect until stable.
    int before = -1;
    for (int i = 0; i < 10 && before != lua_gc(L, LUA_GCCOUNTB, 0) + 1024 * lua_gc(L, LUA_GCCOUNT, 0); ++i) {
        before = lua_gc(L, LUA_GCCOUNTB, 0) + 1024 * lua_gc(L, LUA_GCCOUNT, 0);
        lua_gc(L, LUA_GCCOLLECT, 0);
    }
}

int64_t LuaTest::live_dispatchers() const { return velk::lua::census().live; }

} // namespace velk::testing
