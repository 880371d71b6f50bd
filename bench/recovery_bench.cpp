// Cost of `vorn_tool -a -cfg recovery` on sixteen devices, each with every saved item, 20
// routes and 10 ARP entries, in configuration files of 10 KB, 100 KB and 1 MB (the rest of the
// file is other saved lines); against sixteen single-device recoveries run one after another,
// and against reading the file once (`cat`). All three are whole processes, run in the same
// iteration so that they see the same machine load.
#include <benchmark/benchmark.h>
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

// The saved items of one device, as its commands write them.
std::string device_lines(int p)
{
    std::string s;
    auto line = [&s, p](const std::string &item, const std::string &value) {
        s += item + "_" + std::to_string(p) + "=" + value + "\n";
    };
    const std::string net = "10." + std::to_string(p) + ".0.";
    line("address", net + "2");
    line("netmask", "255.255.255.0");
    line("gateway", net + "1");
    line("netdetect", net + "100");
    line("mtu", "9000");
    char mac[18];
    snprintf(mac, sizeof(mac), "00:11:22:33:44:%02x", p);
    line("mac_addr", mac);
    line("dscp_tc", "26:3,46:5");
    line("static_speed", "100000");
    line("auto_adapt", "1");
    line("bw_limit", "50000");
    for (int r = 0; r < 20; ++r)
        s += "route_address_" + std::to_string(20 + r) + ".0.0.0_netmask_255.0.0.0_" +
             std::to_string(p) + "=gateway_" + net + "1\n";
    line("roce_port", "5000");
    for (int a = 0; a < 10; ++a) {
        char arp_mac[18];
        snprintf(arp_mac, sizeof(arp_mac), "00:11:22:33:%02x:%02x", p, a);
        line("arp", "dev eth0 ip " + net + std::to_string(10 + a) + " mac " + arp_mac);
    }
    line("ip_rule", "dir from ip 10.1.0.0 ip_mask 16 table 100");
    line("ip_route", "ip 30.0.0.0 ip_mask 8 via " + net + "1 dev eth0 table 100");
    line("bitmap", "0,0,0,1,0,0,0,0");
    line("tc_bw", "0,10,10,10,10,10,20,30");
    line("tc_mode", "0,1,1,1,1,1,1,1");
    line("prio_tc", "0,1,2,3,4,5,6,7");
    line("encoding", "1");
    line("send_arp_period", "30");
    line("send_arp_status", "1");
    return s;
}

struct BenchRoot {
    std::string dir;
    std::vector<std::string> env;

    BenchRoot()
    {
        std::string tmpl = (fs::temp_directory_path() / "vorn-bench-XXXXXX").string();
        dir = mkdtemp(tmpl.data()) != nullptr ? tmpl : "";
        fs::create_directories(dir + "/root/etc");
        fs::create_directories(dir + "/emu");
        env = {"VORN_TEST_ROOT=" + dir + "/root", "KOPA_EMU_DIR=" + dir + "/emu",
               std::string("PATH=") + (getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin")};
        (void)spawn_wait({KOPA_EMU_BIN, "init", "--devices", std::to_string(kDevices)});
    }
    ~BenchRoot()
    {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
    std::string conf() const { return dir + "/root/etc/vorn.conf"; }

    // The saved items of every device, then other saved lines up to `size` bytes.
    void write_conf(size_t size) const
    {
        std::string text;
        for (int p = 0; p < kDevices; ++p)
            text += device_lines(p);
        for (int n = 0; text.size() < size; ++n)
            text += "#kept_" + std::to_string(n) + "=a saved line of another tool\n";
        std::ofstream(conf(), std::ios::trunc) << text;
    }

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
    double seconds_of(const std::vector<std::string> &argv, int *status = nullptr) const
    {
        auto start = Clock::now();
        int rc = spawn_wait(argv);
        if (status != nullptr)
            *status = rc;
        return std::chrono::duration<double>(Clock::now() - start).count();
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
