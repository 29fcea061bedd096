// Test helper: the Lua host of the binding's tests.
#include "tests/bindings/lua/lua_test_host.h"

#include "bindings/lua/dispatcher_census.h"
#include "bindings/lua/hostprobe_plugin_lua_creator.h"
#include "bindings/lua/lua_ext.h"
#include "bindings/lua/lua_state.h"
#include "comm/log/logger.h"
#include "interface/registrar.h"
#include "tests/log_capture.h"

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

namespace velk::testing {

namespace {

struct environment_state
{
    void* plugin = nullptr;
    std::string root;
    std::vector<logged_line> log;
};

environment_state& state()
{
    static environment_state s;
    return s;
}

// Keeps each line in the test's log at its delivery, with the context that
// the hook was given. Its text is copied out there: the plug-in may append
// from its own memory space.
class line_logger : public logger
{
public:
    void enqueue(log_ref& msg) override
    {
        const void* context = nullptr;
        if (auto it = contexts.find(msg.get()); it != contexts.end()) {
            context = it->second;
            contexts.erase(it);
        }
        token s = msg->source();
        state().log.push_back({msg->type(), std::string(s.ptr() ? s.ptr() : "", s.lens()), msg->source().hash(),
                               log_body(*msg), context});
    }

    std::map<const logmsg*, const void*> contexts;
};

void capture_line(log_ref& out, int32_t type, const tokenhash& source, const void* context)
{
    static line_logger lines;
    out = lines.create_msg(type, source, context);
    if (out)
        lines.contexts[out.get()] = context;
}

bool accept_path(const token&) { return true; }

} // namespace

// -- The environment ------------------------------------------------------------

void lua_environment::SetUp()
{
    environment_state& s = state();
    s.root = std::string(::testing::TempDir()) + "lua_root_" + std::to_string(getpid()) + "/";
    std::filesystem::remove_all(s.root);
    std::filesystem::create_directories(s.root);
    velk::setup(s.root.c_str(), &capture_line, &accept_path, nullptr);
    s.plugin = dlopen(HOSTPROBE_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(s.plugin, nullptr) << dlerror();
}

void lua_environment::TearDown()
{
    environment_state& s = state();
    if (s.plugin)
        dlclose(s.plugin);
    std::filesystem::remove_all(s.root);
}

const std::string& lua_environment::root() { return state().root; }
std::vector<logged_line>& lua_environment::log() { return state().log; }

// The environment of every program that links this helper.
const auto* const environment = ::testing::AddGlobalTestEnvironment(new lua_environment);

std::string write_root_file(const std::string& relative, const std::string& content)
{
    std::string path = lua_environment::root() + relative;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
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
