// Cost of `vornctl show --json` on sixteen devices, each with every saved item, 20 routes and 10
// ARP entries, against the `vorn_tool -i N -<cmd> -g` runs it replaces (every get of a saved
// item, the link and the recovery status, for every device), run one after another. Both are
// whole processes, spawned the same way in the same iteration.
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

// The gets that show --json answers for one device.
const std::vector<std::vector<std::string>> kGets = {
    {"-ip", "-g"},     {"-gateway", "-g"},    {"-netdetect", "-g"}, {"-mtu", "-g"},
    {"-mac", "-g"},    {"-dscp_to_tc", "-g"}, {"-generic", "-g"},   {"-shaping", "-g"},
    {"-route", "-g"},  {"-udp", "-g"},        {"-arp", "-g"},       {"-pfc", "-g"},
    {"-tc_cfg", "-g"}, {"-prio_tc", "-g"},    {"-fec", "-g"},       {"-send_arp", "-g"},
    {"-link", "-g"},   {"-cfg", "status"},
};

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
    // One gateway per group of devices.
    if (p == 0 || p == 4)
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
        std::string text;
        for (int p = 0; p < kDevices; ++p)
            text += device_lines(p);
        std::ofstream(dir + "/root/etc/vorn.conf", std::ios::trunc) << text;
        // The devices hold what is saved: show reads full tables.
        ready = spawn_wait({VORN_TOOL_BIN, "-a", "-cfg", "recovery"}) == 0;
    }
    ~BenchRoot()
    {
        std::error_code ec;
        fs::remove_all(dir, ec);
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
