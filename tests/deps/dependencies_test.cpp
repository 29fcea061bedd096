// Each third-party dependency works on this machine: fails where an install step is missing.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <libplatform/libplatform.h>
#include <lua.hpp>
#include <v8.h>

#include <memory>
#include <string>

TEST(Dependencies, V8EvaluatesAnExpression)
{
    std::unique_ptr<v8::Platform> platform = v8::platform::NewDefaultPlatform();
    v8::V8::InitializePlatform(platform.get());
    v8::V8::Initialize();
    v8::Isolate::CreateParams params;
    params.array_buffer_allocator = v8::ArrayBuffer::Allocator::NewDefaultAllocator();
    v8::Isolate* isolate = v8::Isolate::New(params);
    int32_t result = 0;
    {
        v8::Isolate::Scope isolate_scope(isolate);
        v8::HandleScope handles(isolate);
        v8::Local<v8::Context> context = v8::Context::New(isolate);
        v8::Context::Scope context_scope(context);
        v8::Local<v8::String> source = v8::String::NewFromUtf8Literal(isolate, "6*7");
        v8::Local<v8::Value> value =
            v8::Script::Compile(context, source).ToLocalChecked()->Run(context).ToLocalChecked();
        result = value->Int32Value(context).FromJust();
    }
    isolate->Dispose();
    v8::V8::Dispose();
    v8::V8::DisposePlatform();
    delete params.array_buffer_allocator;
    EXPECT_EQ(result, 42);
}

TEST(Dependencies, LuaJitRunsAChunk)
{
    lua_State* L = luaL_newstate();
    ASSERT_NE(L, nullptr);
    luaL_openlibs(L);
    ASSERT_EQ(luaL_dostring(L, "return 6*7"), 0) << lua_tostring(L, -1);
    EXPECT_EQ(lua_tointeger(L, -1), 42);
    lua_close(L);
}

TEST(Dependencies, CurlInitialises)
{
    ASSERT_EQ(curl_global_init(CURL_GLOBAL_DEFAULT), CURLE_OK);
    CURL* easy = curl_easy_init();
    EXPECT_NE(easy, nullptr);
    curl_easy_cleanup(easy);
    curl_global_cleanup();
}

TEST(Dependencies, JsonCppParsesAnObject)
{
    const std::string text = R"({"lat": 48.5, "country": "X"})";
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    ASSERT_TRUE(reader->parse(text.data(), text.data() + text.size(), &root, &errors)) << errors;
    EXPECT_DOUBLE_EQ(root["lat"].asDouble(), 48.5);
    EXPECT_EQ(root["country"].asString(), "X");
}
