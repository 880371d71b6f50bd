// Cost of `vornctl show --json` on sixteen devices, each with every saved item, 20 routes and 10
// ARP entries, against the `vorn_tool -i N -<cmd> -g` runs it replaces (every get of a saved
// item, the link and the recovery status, for every device), run one after another. Both are
// whole processes, spawned the same way in the same iteration.
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
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{

using Clock = std::chrono::steady_clock;
constexpr int kDevices = 16;

// The gets that show --json answers for one device.
const std::vector<std::vector<std::string>> kGets = {
    {"-ip", "-g"},     {"-gateway", "-g"},    {"-netdetect", "-g"}, {"-mtu", "-g"},
    {"-mac", "-g"},    {"-dscp_to_tc", "-g"}, {"-generic", "-g"},   {"-shaping", "-g"},
    {"-route", "-g"},  {"-udp", "-g"},        {"-arp", "-g"},       {"-pfc", "-g"},
    {"-tc_cfg", "-g"}, {"-prio_tc", "-g"},    {"-fec", "-g"},       {"-send_arp", "-g"},
    {"-link", "-g"},   {"-cfg", "status"},
};

struct BenchRoot : BenchSandbox {
    BenchRoot() : BenchSandbox(kDevices)
    {
        std::string text;
        for (int p = 0; p < kDevices; ++p)
            text += bench_device_lines(p, p == 0 || p == 4); // one gateway per group
        std::ofstream(conf(), std::ios::trunc) << text;
        // The devices hold what is saved: show reads full tables.
        ready = spawn_wait({VORN_TOOL_BIN, "-a", "-cfg", "recovery"}) == 0;
    }

    bool ready = false;
};

BenchRoot &bench_root()
{
    static BenchRoot root;
    return root;
}

void BM_ShowJsonAgainstGets(benchmark::State &state)
{
    BenchRoot &root = bench_root();
    if (!root.ready) {
        state.SkipWithError("the recovery that fills the devices failed");
        return;
    }
    double show = 0, gets = 0;
    for (auto _ : state) {
        int status = 0;
        const double t = root.seconds_of({VORNCTL_BIN, "show", "--json"}, &status);
        if (status != 0) {
            state.SkipWithError("vornctl show --json failed");
            return;
        }
        state.SetIterationTime(t);
        show += t;
        for (int d = 0; d < kDevices; ++d) {
            for (const auto &get : kGets) {
                std::vector<std::string> argv = {VORN_TOOL_BIN, "-i", std::to_string(d)};
                argv.insert(argv.end(), get.begin(), get.end());
                gets += root.seconds_of(argv);
            }
        }
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["show_ms"] = show / n * 1e3;
    state.counters["gets_ms"] = gets / n * 1e3;
    state.counters["runs"] = static_cast<double>(kDevices * kGets.size());
    state.counters["show/gets"] = gets > 0 ? show / gets : 0;
}

BENCHMARK(BM_ShowJsonAgainstGets)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

} // namespace

BENCHMARK_MAIN();
