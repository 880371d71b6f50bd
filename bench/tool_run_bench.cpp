// Cost of one whole vorn_tool run (help, and a run refused on its device id) against the cost
// of `ip -4 addr show dev lo`, spawned the same way in the same loop.
#include <benchmark/benchmark.h>

#include "bench/bench_sandbox.hpp"
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

struct BenchRoot : BenchSandbox {
    BenchRoot() : BenchSandbox(8) {}
};

BenchRoot &bench_root()
{
    static BenchRoot root;
    return root;
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
        double t = root.seconds_of(tool_argv);
        state.SetIterationTime(t);
        tool_total += t;
        base_total += root.seconds_of(baseline);
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
