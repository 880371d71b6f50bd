// What the whole-process benchmarks share: a throw-away test root and emulated host, a way to
// run a program in it with both output streams on /dev/null and time it, and the saved items of
// a fully configured device.
#pragma once

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

class BenchSandbox
{
  public:
    /// A fresh directory with root/etc and an emulated host of `devices` devices.
    explicit BenchSandbox(int devices)
    {
        namespace fs = std::filesystem;
        std::string tmpl = (fs::temp_directory_path() / "vorn-bench-XXXXXX").string();
        dir_ = mkdtemp(tmpl.data()) != nullptr ? tmpl : "";
        fs::create_directories(dir_ + "/root/etc");
        fs::create_directories(dir_ + "/emu");
        env_ = {"VORN_TEST_ROOT=" + dir_ + "/root", "KOPA_EMU_DIR=" + dir_ + "/emu",
                std::string("PATH=") + (getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin")};
        (void)spawn_wait({KOPA_EMU_BIN, "init", "--devices", std::to_string(devices)});
    }
    ~BenchSandbox()
    {
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }
    BenchSandbox(const BenchSandbox &) = delete;
    BenchSandbox &operator=(const BenchSandbox &) = delete;

    [[nodiscard]] std::string conf() const { return dir_ + "/root/etc/vorn.conf"; }

    /// Runs argv with both output streams on /dev/null; the exit status, -1 when it did not run.
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
        for (const auto &e : env_)
            envp.push_back(const_cast<char *>(e.c_str()));
        envp.push_back(nullptr);
        pid_t pid = -1;
        const int rc = posix_spawn(&pid, args[0], &fa, nullptr, args.data(), envp.data());
        posix_spawn_file_actions_destroy(&fa);
        if (rc != 0)
            return -1;
        int status = 0;
        (void)waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// The wall time of one run of argv, in seconds; its status in `*status` when given.
    double seconds_of(const std::vector<std::string> &argv, int *status = nullptr) const
    {
        const auto start = std::chrono::steady_clock::now();
        const int rc = spawn_wait(argv);
        if (status != nullptr)
            *status = rc;
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

  private:
    std::string dir_;
    std::vector<std::string> env_;
};

/// The saved items of device `p`, as its commands write them, with 20 routes and 10 ARP
/// entries. `gateway` says whether the device holds its group's gateway.
inline std::string bench_device_lines(int p, bool gateway)
{
    std::string s;
    auto line = [&s, p](const std::string &item, const std::string &value) {
        s += item + "_" + std::to_string(p) + "=" + value + "\n";
    };
    const std::string net = "10." + std::to_string(p) + ".0.";
    line("address", net + "2");
    line("netmask", "255.255.255.0");
    if (gateway)
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
