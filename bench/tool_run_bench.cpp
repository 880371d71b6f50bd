// Cost of one whole vorn_tool run (help, and a run refused on its device id) against the cost
// of `ip -4 addr show dev lo`, spawned the same way in the same loop.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{

using Clock = std::chrono::steady_clock;

struct BenchRoot {
    std::string dir;
    std::vector<std::string> env;

    BenchRoot()
    {
        std::string tmpl = (fs::temp_directory_path() / "vorn-bench-XXXXXX").string();
        dir = mkdtemp(tmpl.data()) != nullptr ? tmpl : "/tmp/vorn-bench";
        fs::create_directories(dir + "/root/etc");
        fs::create_directories(dir + "/emu");
        env = {"VORN_TEST_ROOT=" + dir + "/root", "KOPA_EMU_DIR=" + dir + "/emu",
               std::string("PATH=") + (getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin")};
        (void)spawn_wait({KOPA_EMU_BIN, "init", "--devices", "8"});
    }
    ~BenchRoot()
    {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }

    // Runs argv with both output streams on /dev/null; returns the exit status.
    int spawn_wait(const std::vector<std::string> &argv) const
    {
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&fa, 2, "/dev/null", O_WRONLY, 0);
        std::vector<char *> args;
        for (const auto &a : argv)
            args.push_back(const_cast<char *>(a.c_str()));
        args.push_back(nullptr);
        std::vector<char *> envp;
        for (const auto &e : env)
            envp.push_back(const_cast<char *>(e.c_str()));
        envp.push_back(nullptr);
        pid_t pid = -1;
        int rc = posix_spawn(&pid, args[0], &fa, nullptr, args.data(), envp.data());
        posix_spawn_file_actions_destroy(&fa);
        if (rc != 0)
            return -1;
        int status = 0;
        (void)waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

BenchRoot &bench_root()
{
    static BenchRoot root;
    return root;
}

double seconds_of(const BenchRoot &root, const std::vector<std::string> &argv)
{
    auto start = Clock::now();
    (void)root.spawn_wait(argv);
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Times the tool run; the baseline runs in the same iteration so both see the same machine
// load. Reports the tool's time per run, the baseline's, and their ratio.
void run_against_baseline(benchmark::State &state, const std::vector<std::string> &tool_argv)
{
    const BenchRoot &root = bench_root();
    const std::vector<std::string> baseline = {"/usr/sbin/ip", "-4", "addr", "show", "dev", "lo"};
    double tool_total = 0;
    double base_total = 0;
    for (auto _ : state) {
        double t = seconds_of(root, tool_argv);
        state.SetIterationTime(t);
        tool_total += t;
        base_total += seconds_of(root, baseline);
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["tool_us"] = tool_total / n * 1e6;
    state.counters["ip_us"] = base_total / n * 1e6;
    state.counters["ratio"] = base_total > 0 ? tool_total / base_total : 0;
}

void BM_ToolHelp(benchmark::State &state)
{
    run_against_baseline(state, {VORN_TOOL_BIN, "-h"});
}

void BM_ToolBadDeviceId(benchmark::State &state)
{
    // Device 12 is not in the emulated list: the run asks the library and is refused.
    run_against_baseline(state, {VORN_TOOL_BIN, "-i", "12", "-mtu", "-g"});
}

BENCHMARK(BM_ToolHelp)->UseManualTime()->Unit(benchmark::kMicrosecond)->MinTime(2.0);
BENCHMARK(BM_ToolBadDeviceId)->UseManualTime()->Unit(benchmark::kMicrosecond)->MinTime(2.0);

} // namespace

BENCHMARK_MAIN();
