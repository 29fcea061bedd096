// Test helper: the part of a script binding's test host that is no engine's.
//
// binding_test_host makes a root folder of this process's own, sets up the
// registry there with a log hook that captures each line (with the context
// the hook was given) and a path check of the caller's, and loads the real
// plug-in module (HOSTPROBE_PLUGIN, a path from the build). An engine's
// test environment holds one, and does its engine's part around it.
#pragma once

#include "interface/interface_register.h"

#include <cstdint>
#include <string>
#include <vector>

namespace velk::testing {

// One line that a module logged through the registry's hook.
struct logged_line
{
    int32_t type;
    std::string source;
    uint32_t source_hash;
    std::string text;
    const void* context;
};

class binding_test_host
{
public:
    // Makes the root "<test temp dir><name>_root_<pid>/" afresh and sets up
    // the registry at it, with the capturing log hook and check as the
    // path check.
    void set_up_registry(const char* name, path_check_hook_fn check);
    // Loads the plug-in; a failure fails the calling test set-up.
    void load_plugin();
    // Unloads the plug-in, when loaded, and removes the root.
    void tear_down();

    // The registry's root, with its trailing "/".
    const std::string& root() const { return _root; }
    // Lines the hook captured since the last clear, in any host of the
    // process.
    static std::vector<logged_line>& log();

private:
    void* _plugin = nullptr;
    std::string _root;
};

// Writes a file at a full path, creating its folders.
void write_file(const std::string& path, const std::string& content);

} // namespace velk::testing
