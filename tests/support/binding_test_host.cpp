// Test helper: the registry, root folder and plug-in of the bindings' test hosts.
#include "tests/support/binding_test_host.h"

#include "comm/log/logger.h"
#include "interface/registrar.h"
#include "tests/support/log_capture.h"
#include "tests/support/module_loader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

namespace velk::testing {

namespace {

// Keeps each line in the test's log at its delivery, with the context that
// the hook was given. Its text is copied out there: the plug-in may append
// from its own memory space, which must not outlive the plug-in in this
// program's hands.
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
        binding_test_host::log().push_back({msg->type(), std::string(s.ptr() ? s.ptr() : "", s.lens()),
                                            msg->source().hash(), log_body(*msg), context});
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

} // namespace

void binding_test_host::set_up_registry(const char* name, path_check_hook_fn check)
{
    _root = std::string(::testing::TempDir()) + name + "_root_" + std::to_string(getpid()) + "/";
    std::filesystem::remove_all(_root);
    std::filesystem::create_directories(_root);
    velk::setup(_root.c_str(), &capture_line, check, nullptr);
}

void binding_test_host::load_plugin()
{
    _plugin = load_module(HOSTPROBE_PLUGIN);
    ASSERT_NE(_plugin, nullptr) << module_error();
}

void binding_test_host::tear_down()
{
    if (_plugin)
        unload_module(_plugin);
    _plugin = nullptr;
    std::filesystem::remove_all(_root);
}

std::vector<logged_line>& binding_test_host::log()
{
    static std::vector<logged_line> lines;
    return lines;
}

void write_file(const std::string& path, const std::string& content)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

} // namespace velk::testing
