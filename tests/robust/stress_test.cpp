// A storm of setting runs: 32 runs at a time, for a few seconds, of every command that saves a
// setting, on all sixteen devices of a host. Then the file, the devices, and a recovery of the
// wiped devices from the file must all tell the same story:
// - every run ends with success or with a refusal of its own (status 7); none is turned away
//   busy, fails to save or dies;
// - the saved value of each single-valued item is the value of a run that succeeded, and of one
//   that no later successful run of another value followed (a run counts as later when it
//   started after the other had ended: runs that overlap in time may have taken the setting
//   lock in either order); each gateway group's one saved gateway likewise;
// - after `kopa-emu wipe --all` and `vorn_tool -a -cfg recovery`, every device is again what it
//   was before the wipe (route and ARP tables as sets): the file held every setting the devices
//   held, and nothing else. The recovery changes no line of the file.
//
// The physical ids (0..3 in one gateway group, 40..51 in the other) are such that no device's
// key is a prefix of another's, and the addresses (70.<n>.0.0/16) begin with no physical id, so
// that the store's prefix reads and substring deletions (docs/decisions.md, key rules) leave the
// devices independent of one another. VORN_STRESS_SECONDS (default 6) sets the length of the
// storm and VORN_STRESS_SEED its random choices.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/robust/saved_file.hpp"

namespace robust
{
namespace
{

using Clock = std::chrono::steady_clock;

constexpr int kDevices = 16;
constexpr int kRunners = 32;

/// The physical id of each logical id.
int phy_of(int logic)
{
    return logic < 4 ? logic : 36 + logic;
}

/// The gateway group of a device (by physical id: 0..3, and the rest).
int group_of(int logic)
{
    return phy_of(logic) < 4 ? 0 : 1;
}

std::string phy_list()
{
    std::string list;
    for (int d = 0; d < kDevices; ++d)
        list += (d == 0 ? "" : ",") + std::to_string(phy_of(d));
    return list;
}

/// One command line, and the single-valued items it saves when it succeeds.
struct Cmd {
    std::string kind;
    int logic;
    std::vector<std::string> args;
    std::vector<std::pair<std::string, std::string>> saves;
};

/// A run of a command: its status and when it started and ended.
struct StormRun {
    Cmd cmd;
    int status;
    Clock::time_point start, end;
};

template <typename T> const T &pick(std::mt19937 &rng, const std::vector<T> &choices)
{
    return choices[std::uniform_int_distribution<size_t>(0, choices.size() - 1)(rng)];
}

Cmd make_cmd(std::mt19937 &rng)
{
    const int d = std::uniform_int_distribution<int>(0, kDevices - 1)(rng);
    const std::string p = std::to_string(phy_of(d));
    const std::string net = "70." + std::to_string(d) + ".";
    Cmd c{"", d, {"-i", p}, {}};
    auto add = [&](std::string kind, std::vector<std::string> words,
                   std::vector<std::pair<std::string, std::string>> saves) {
        c.kind = std::move(kind);
        c.args.insert(c.args.end(), words.begin(), words.end());
        for (auto &[item, value] : saves)
            c.saves.emplace_back(item + "_" + p, value);
    };
    const std::string mac_base =
        "00:11:22:33:" + std::string(d < 10 ? "0" : "") + std::to_string(d) + ":0";
    switch (std::uniform_int_distribution<int>(0, 18)(rng)) {
    case 0: {
        const std::string a = net + pick<std::string>(rng, {"0", "1", "2"}) + ".2";
        add("ip", {"-ip", "-s", "address", a, "netmask", "255.255.0.0"},
            {{"address", a}, {"netmask", "255.255.0.0"}});
        break;
    }
    case 1:
        // Saved under the group's key handling, checked on its own.
        add("gateway", {"-gateway", "-s", "gateway", net + pick<std::string>(rng, {"0.1", "0.3"})},
            {});
        break;
    case 2: {
        const std::string a = net + pick<std::string>(rng, {"0.9", "0.10"});
        add("netdetect", {"-netdetect", "-s", "address", a}, {{"netdetect", a}});
        break;
    }
    case 3: {
        const std::string v = pick<std::string>(rng, {"1500", "4000", "9000"});
        add("mtu", {"-mtu", "-s", "size", v}, {{"mtu", v}});
        break;
    }
    case 4: {
        const std::string v = mac_base + pick<std::string>(rng, {"1", "2"});
        add("mac", {"-mac", "-s", "mac", v}, {{"mac_addr", v}});
        break;
    }
    case 5: {
        const std::string v = pick<std::string>(rng, {"4791", "5000", "6000"});
        add("udp", {"-udp", "-s", "port", v}, {{"roce_port", v}});
        break;
    }
    case 6:
        add("route add",
            {"-route", "-a", "address",
             pick<std::string>(rng, {"30.0.0.0", "31.0.0.0", "32.0.0.0"}), "netmask", "255.0.0.0",
             "gateway", net + pick<std::string>(rng, {"0.1", "0.2"})},
            {});
        break;
    case 7:
        add("route del",
            {"-route", "-d", "address",
             pick<std::string>(rng, {"30.0.0.0", "31.0.0.0", "32.0.0.0"}), "netmask", "255.0.0.0"},
            {});
        break;
    case 8:
        add("dscp",
            {"-dscp_to_tc", "-s", "dscp", pick<std::string>(rng, {"5", "10", "46"}), "tc",
             pick<std::string>(rng, {"0", "3", "7"})},
            {});
        break;
    case 9: {
        const std::string v = pick<std::string>(rng, {"1000", "2000", "400000"});
        add("shaping", {"-shaping", "-s", "bw_limit", v}, {{"bw_limit", v}});
        break;
    }
    case 10: {
        const std::string v = pick<std::string>(rng, {"0,0,0,1,0,0,0,0", "1,1,0,0,0,0,0,0"});
        add("pfc", {"-pfc", "-s", "bitmap", v}, {{"bitmap", v}});
        break;
    }
    case 11: {
        const bool first = std::uniform_int_distribution<int>(0, 1)(rng) == 0;
        const std::string bw = first ? "10,10,10,10,10,10,20,20" : "0,20,20,20,20,20,0,0";
        const std::string mode = first ? "1,1,1,1,1,1,1,1" : "0,1,1,1,1,1,0,0";
        add("tc_cfg", {"-tc_cfg", "-s", "tc_bw", bw, "tc_mode", mode},
            {{"tc_bw", bw}, {"tc_mode", mode}});
        break;
    }
    case 12: {
        const std::string v = pick<std::string>(rng, {"0,1,2,3,4,5,6,7", "7,6,5,4,3,2,1,0"});
        add("prio_tc", {"-prio_tc", "-s", "prio_tc", v}, {{"prio_tc", v}});
        break;
    }
    case 13:
        add("arp add",
            {"-arp", "-a", "dev", pick<std::string>(rng, {"eth0", "eth1"}), "ip",
             net + pick<std::string>(rng, {"0.7", "0.8"}), "mac", mac_base + "7"},
            {});
        break;
    case 14:
        add("arp del",
            {"-arp", "-d", "ip", net + pick<std::string>(rng, {"0.7", "0.8"}), "dev",
             pick<std::string>(rng, {"eth0", "eth1"})},
            {});
        break;
    case 15: {
        const bool on = std::uniform_int_distribution<int>(0, 1)(rng) == 0;
        add("send_arp", {"-send_arp", "-s", "period", on ? "30" : "60", "status", on ? "1" : "0"},
            {{"send_arp_period", on ? "30" : "60"}, {"send_arp_status", on ? "1" : "0"}});
        break;
    }
    case 16: {
        const std::string v = pick<std::string>(rng, {"0", "1", "2"});
        add("fec", {"-fec", "-s", "mode", v}, {{"encoding", v}});
        break;
    }
    case 17: {
        const std::string v = pick<std::string>(rng, {"25000", "100000"});
        add("generic speed", {"-generic", "-s", "speed", v}, {{"static_speed", v}});
        break;
    }
    default: {
        const std::string v = pick<std::string>(rng, {"0", "1"});
        add("generic auto_adapt", {"-generic", "-s", "auto_adapt", v}, {{"auto_adapt", v}});
        break;
    }
    }
    return c;
}

/// The saved lines of the file by key (a key may hold several lines: routes, ARP entries).
std::multimap<std::string, std::string> saved_lines(const std::string &text)
{
    std::multimap<std::string, std::string> lines;
    filter_lines(text, [&](const std::string &l) {
        const size_t eq = l.find('=');
        if (eq != std::string::npos)
            lines.emplace(l.substr(0, eq), l.substr(eq + 1));
        return false;
    });
    return lines;
}

/// Everything of a device that a setting changes: the emulator's view (without the recovery
/// status, with route and ARP entries sorted) and the tool's reads of its QoS state.
std::string device_state(const ToolSandbox &sb, int logic)
{
    std::istringstream in(sb.emu({"show", std::to_string(logic)}).out);
    std::vector<std::string> lines;
    std::string header, line;
    std::vector<std::string> entries;
    auto flush = [&] {
        std::sort(entries.begin(), entries.end());
        for (auto &e : entries)
            lines.push_back(header + " " + e);
        entries.clear();
    };
    while (std::getline(in, line)) {
        if (line.starts_with("    ")) { // an entry of the table named above it
            entries.push_back(line.substr(4));
            continue;
        }
        flush();
        header = line;
        if (!line.starts_with("  cfg status"))
            lines.push_back(line);
    }
    flush();
    std::string state;
    for (const auto &l : lines)
        state += l + "\n";
    const std::string p = std::to_string(phy_of(logic));
    for (const char *cmd : {"-dscp_to_tc", "-shaping", "-pfc", "-tc_cfg", "-prio_tc"}) {
        const ProcResult r = sb.tool({"-i", p, cmd, "-g"});
        state += std::string(cmd) + " status " + std::to_string(r.status) + "\n" + r.out;
    }
    return state;
}

int env_int(const char *name, int fallback)
{
    const char *text = std::getenv(name);
    return text != nullptr && text[0] != '\0' ? atoi(text) : fallback;
}

TEST(StressTest, ThirtyTwoRunsAtATimeLeaveFileAndDevicesInStepAndRecoverable)
{
    ToolSandbox sb({"--devices", std::to_string(kDevices), "--phy-ids", phy_list()});
    const int seconds = env_int("VORN_STRESS_SECONDS", 6);
    const unsigned seed =
        static_cast<unsigned>(env_int("VORN_STRESS_SEED", std::random_device{}()));
    SCOPED_TRACE("VORN_STRESS_SEED=" + std::to_string(seed));

    // The storm.
    std::mutex mu;
    std::vector<StormRun> runs;
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    std::vector<std::thread> runners;
    for (int t = 0; t < kRunners; ++t)
        runners.emplace_back([&, t] {
            std::mt19937 rng(seed + static_cast<unsigned>(t));
            std::vector<StormRun> mine;
            while (Clock::now() < deadline) {
                Cmd cmd = make_cmd(rng);
                const auto start = Clock::now();
                const ProcResult r = sb.tool(cmd.args);
                mine.push_back({std::move(cmd), r.status, start, Clock::now()});
            }
            const std::lock_guard<std::mutex> lock(mu);
            runs.insert(runs.end(), mine.begin(), mine.end());
        });
    for (auto &r : runners)
        r.join();

    std::map<std::string, std::map<int, int>> statuses;
    for (const StormRun &r : runs)
        ++statuses[r.cmd.kind][r.status];
    std::ostringstream summary;
    summary << runs.size() << " runs in " << seconds << " s (seed " << seed << "):";
    for (const auto &[kind, by_status] : statuses) {
        summary << " " << kind;
        for (const auto &[status, n] : by_status)
            summary << (status == 0 ? " ok " : " status " + std::to_string(status) + " ") << n;
        summary << ";";
    }
    std::cout << summary.str() << "\n";
    RecordProperty("storm", summary.str());
    for (const auto &[kind, by_status] : statuses)
        for (const auto &[status, n] : by_status)
            EXPECT_TRUE(status == 0 || status == 7)
                << n << " runs of " << kind << " ended with " << status;

    // Each single-valued item holds the value of a successful run that no later successful run
    // of another value followed.
    const std::string file = sb.conf();
    const auto saved = saved_lines(file);
    std::map<std::string, std::vector<const StormRun *>> by_key;
    for (const StormRun &r : runs)
        if (r.status == 0)
            for (const auto &[key, value] : r.cmd.saves)
                by_key[key].push_back(&r);
    auto value_in = [](const StormRun *r, const std::string &key) {
        for (const auto &[k, v] : r->cmd.saves)
            if (k == key)
                return v;
        return std::string();
    };
    for (const auto &[key, list] : by_key) {
        SCOPED_TRACE(key);
        ASSERT_EQ(saved.count(key), 1u);
        const std::string value = saved.find(key)->second;
        bool allowed = false;
        for (const StormRun *a : list) {
            if (value_in(a, key) != value)
                continue;
            bool overtaken = false;
            for (const StormRun *b : list)
                overtaken = overtaken || (b->start > a->end && value_in(b, key) != value);
            allowed = allowed || !overtaken;
        }
        EXPECT_TRUE(allowed) << "saved " << value << " is no last value of the item";
    }
    // One gateway per group, from a successful run that no later one in the group followed.
    for (int g = 0; g < 2; ++g) {
        std::vector<const StormRun *> sets;
        for (const StormRun &r : runs)
            if (r.status == 0 && r.cmd.kind == "gateway" && group_of(r.cmd.logic) == g)
                sets.push_back(&r);
        std::vector<std::pair<int, std::string>> lines;
        for (int d = 0; d < kDevices; ++d) {
            auto range = saved.equal_range("gateway_" + std::to_string(phy_of(d)));
            for (auto it = range.first; it != range.second; ++it)
                if (group_of(d) == g)
                    lines.emplace_back(d, it->second);
        }
        ASSERT_EQ(lines.size(), sets.empty() ? 0u : 1u) << "gateway lines of group " << g;
        if (sets.empty())
            continue;
        bool allowed = false;
        for (const StormRun *a : sets) {
            if (a->cmd.logic != lines[0].first || a->cmd.args.back() != lines[0].second)
                continue;
            bool overtaken = false;
            for (const StormRun *b : sets)
                overtaken =
                    overtaken || (b->start > a->end && (b->cmd.logic != a->cmd.logic ||
                                                        b->cmd.args.back() != a->cmd.args.back()));
            allowed = allowed || !overtaken;
        }
        EXPECT_TRUE(allowed) << "gateway " << lines[0].second << " of device " << lines[0].first
                             << " is no last gateway of group " << g;
    }

    // The wiped devices come back from the file as they were.
    std::vector<std::string> before(kDevices);
    for (int d = 0; d < kDevices; ++d)
        before[d] = device_state(sb, d);
    ASSERT_EQ(sb.emu({"wipe", "--all"}).status, 0);
    const ProcResult rec = sb.tool({"-a", "-cfg", "recovery"});
    EXPECT_EQ(rec.status, 0) << rec.err;
    EXPECT_EQ(std::count(rec.out.begin(), rec.out.end(), '\n'), kDevices) << rec.out;
    for (int d = 0; d < kDevices; ++d)
        EXPECT_EQ(device_state(sb, d), before[d]) << "device " << d << " after the recovery";
    EXPECT_TRUE(sb.conf() == file) << "the recovery changed the file";
}

} // namespace
} // namespace robust
