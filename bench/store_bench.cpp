// Configuration store speed on a 1,000,000-byte file: a write and a read of the last key, each
// measured against a plain copy of the same file (read whole, write whole) in the same run.
#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "config/store.hpp"

namespace
{

constexpr size_t kFileSize = 1000000;

struct BenchFiles {
    std::string root, conf, copy;
    std::string last_item;
};

// Builds root/etc/vorn.conf of exactly kFileSize bytes of "<item>_0=<value>" lines and points
// the store at it.
const BenchFiles &files()
{
    static BenchFiles f = [] {
        BenchFiles b;
        char tmpl[] = "/tmp/vorn-store-bench-XXXXXX";
        if (mkdtemp(tmpl) == nullptr)
            abort();
        b.root = tmpl;
        b.conf = b.root + "/etc/vorn.conf";
        b.copy = b.root + "/copy.conf";
        if (mkdir((b.root + "/etc").c_str(), 0755) != 0 || setenv("VORN_TEST_ROOT", tmpl, 1) != 0)
            abort();
        std::string text;
        int n = 0;
        std::string line;
        for (;;) {
            b.last_item = "item" + std::to_string(n++);
            line = b.last_item + "_0=10.20.30.40\n";
            if (text.size() + line.size() > kFileSize)
                break;
            text += line;
        }
        // Pad the last line's value so the file is exactly kFileSize bytes.
        b.last_item = "item" + std::to_string(n - 2);
        text.insert(text.size() - 1, std::string(kFileSize - text.size(), '9'));
        if (text.size() != kFileSize)
            abort();
        FILE *out = fopen(b.conf.c_str(), "w");
        if (out == nullptr || fwrite(text.data(), 1, text.size(), out) != text.size() ||
            fclose(out) != 0)
            abort();
        return b;
    }();
    return f;
}

std::string last_value()
{
    char value[kCfgLineSize] = {};
    if (cfg_read_conf(0, files().last_item.c_str(), value, sizeof(value)) != 0)
        abort();
    return value;
}

void BM_PlainCopy(benchmark::State &state)
{
    std::vector<char> buf(2 * kFileSize);
    for (auto _ : state) {
        FILE *in = fopen(files().conf.c_str(), "r");
        size_t n = fread(buf.data(), 1, buf.size(), in);
        fclose(in);
        FILE *out = fopen(files().copy.c_str(), "w");
        fwrite(buf.data(), 1, n, out);
        fclose(out);
        benchmark::DoNotOptimize(n);
    }
}

void BM_WriteConf(benchmark::State &state)
{
    // Rewriting the last key with its own value leaves the file as it was.
    const std::string value = last_value();
    for (auto _ : state) {
        if (cfg_write_conf(0, files().last_item.c_str(), value.c_str()) != 0)
            state.SkipWithError("cfg_write_conf failed");
    }
}

void BM_ReadConf(benchmark::State &state)
{
    char value[kCfgLineSize];
    for (auto _ : state) {
        if (cfg_read_conf(0, files().last_item.c_str(), value, sizeof(value)) != 0)
            state.SkipWithError("cfg_read_conf failed");
        benchmark::DoNotOptimize(value);
    }
}

BENCHMARK(BM_PlainCopy)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WriteConf)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ReadConf)->Unit(benchmark::kMicrosecond);

// Console output plus the two ratios against the plain copy.
class RatioReporter : public benchmark::ConsoleReporter
{
  public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                times_[run.run_name.function_name] = run.GetAdjustedRealTime();
                cpu_[run.run_name.function_name] = run.GetAdjustedCPUTime();
            }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override
    {
        ConsoleReporter::Finalize();
        const double copy = times_["BM_PlainCopy"];
        if (copy <= 0)
            return;
        const double copy_cpu = cpu_["BM_PlainCopy"];
        printf("write/copy ratio: %.2f real, %.2f cpu (target <= 3)\n",
               times_["BM_WriteConf"] / copy, cpu_["BM_WriteConf"] / copy_cpu);
        printf("read/copy ratio:  %.2f real, %.2f cpu (target <= 1)\n",
               times_["BM_ReadConf"] / copy, cpu_["BM_ReadConf"] / copy_cpu);
    }

  private:
    std::map<std::string, double> times_;
    std::map<std::string, double> cpu_;
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    (void)files();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    (void)system(("rm -rf '" + files().root + "'").c_str());
    return 0;
}
