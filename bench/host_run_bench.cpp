// Start-up of the reference host: the time from the start of a process to
// the end of `hostprobe run` of an empty script, which loads V8, the
// plug-in and one isolate and context; against `hostprobe version`, the
// same program that starts no engine and loads no plug-in. HOSTPROBE is
// the program's path, from the build.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

// Runs the host with args, its output discarded; false when it didn't
// exit with 0.
bool run_host(const std::vector<std::string>& args)
{
    std::vector<char*> argv;
    std::string program = HOSTPROBE;
    argv.push_back(program.data());
    for (const std::string& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    int status = 0;
    bool ok = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0 &&
              waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return ok;
}

void measure(benchmark::State& state, const std::vector<std::string>& args)
{
    for (auto _ : state) {
        if (!run_host(args)) {
            state.SkipWithError("the host failed");
            break;
        }
    }
}

void BM_host_run_empty_script(benchmark::State& state)
{
    std::string script = "/tmp/hostprobe_empty_" + std::to_string(getpid()) + ".js";
    std::ofstream(script).close();
    measure(state, {"run", script});
    std::remove(script.c_str());
}

void BM_host_version(benchmark::State& state) { measure(state, {"version"}); }

} // namespace

BENCHMARK(BM_host_run_empty_script)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_host_version)->UseRealTime()->Unit(benchmark::kMillisecond);
