// Cost of `vorn_tool -a -cfg recovery` on sixteen devices, each with every saved item, 20
// routes and 10 ARP entries, in configuration files of 10 KB, 100 KB and 1 MB (the rest of the
// file is other saved lines); against sixteen single-device recoveries run one after another,
// and against reading the file once (`cat`). All three are whole processes, run in the same
// iteration so that they see the same machine load.
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

struct BenchRoot : BenchSandbox {
    BenchRoot() : BenchSandbox(kDevices) {}

    // The saved items of every device, then other saved lines up to `size` bytes.
    void write_conf(size_t size) const
    {
        std::string text;
        for (int p = 0; p < kDevices; ++p)
            text += bench_device_lines(p, true);
        for (int n = 0; text.size() < size; ++n)
            text += "#kept_" + std::to_string(n) + "=a saved line of another tool\n";
        std::ofstream(conf(), std::ios::trunc) << text;
    }
};

BenchRoot &bench_root()
{
    static BenchRoot root;
    return root;
}

void BM_RecoverAll(benchmark::State &state)
{
    BenchRoot &root = bench_root();
    root.write_conf(static_cast<size_t>(state.range(0)));
    double all = 0, each = 0, read = 0;
    for (auto _ : state) {
        int status = 0;
        double t = root.seconds_of({VORN_TOOL_BIN, "-a", "-cfg", "recovery"}, &status);
        if (status != 0) {
            state.SkipWithError("-a -cfg recovery failed");
            return;
        }
        state.SetIterationTime(t);
        all += t;
        for (int d = 0; d < kDevices; ++d)
            each += root.seconds_of({VORN_TOOL_BIN, "-i", std::to_string(d), "-cfg", "recovery"});
        read += root.seconds_of({"/bin/cat", root.conf()});
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["all_ms"] = all / n * 1e3;
    state.counters["16_singles_ms"] = each / n * 1e3;
    state.counters["cat_ms"] = read / n * 1e3;
    state.counters["all/singles"] = each > 0 ? all / each : 0;
    state.counters["all/cat"] = read > 0 ? all / read : 0;
}

BENCHMARK(BM_RecoverAll)
    ->Arg(10 * 1024)
    ->Arg(100 * 1024)
    ->Arg(1000 * 1024)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);

} // namespace

BENCHMARK_MAIN();
