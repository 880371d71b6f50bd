// Every saved item of a device set with its own command, the device reset, and -cfg recovery:
// the device holds every value again, and the items reach it in the replay order.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"

namespace
{

// One command per saved item of device 0, in no particular order.
const std::vector<std::vector<std::string>> kSets = {
    {"-udp", "-s", "port", "5000"},
    {"-mtu", "-s", "size", "9000"},
    {"-ip", "-s", "address", "10.0.0.2", "netmask", "255.255.255.0"},
    {"-gateway", "-s", "gateway", "10.0.0.1"},
    {"-netdetect", "-s", "address", "10.0.0.100"},
    {"-mac", "-s", "mac", "00:11:22:33:44:55"},
    {"-dscp_to_tc", "-s", "dscp", "46", "tc", "5"},
    {"-generic", "-s", "speed", "100000"},
    {"-generic", "-s", "auto_adapt", "1"},
    {"-shaping", "-s", "bw_limit", "50000"},
    {"-route", "-a", "address", "20.0.0.0", "netmask", "255.0.0.0", "gateway", "10.0.0.1"},
    {"-arp", "-a", "dev", "eth0", "ip", "10.0.0.9", "mac", "00:11:22:33:44:99"},
    {"-pfc", "-s", "bitmap", "0,0,0,1,0,0,0,0"},
    {"-tc_cfg", "-s", "tc_bw", "0,10,10,10,10,10,20,30", "tc_mode", "0,1,1,1,1,1,1,1"},
    {"-prio_tc", "-s", "prio_tc", "0,1,2,3,4,5,6,7"},
    {"-fec", "-s", "mode", "1"},
    {"-send_arp", "-s", "period", "30", "status", "1"},
};

// The set operation of each item, in the replay order (the address goes through a library
// call of its own, not the channel).
const std::vector<std::string> kReplayOps = {
    "set_default_gateway_address",
    "set_net_detect_ip_address",
    "set_mtu",
    "set_mac_address",
    "set_dscp_map",
    "set_generic_info",
    "set_optical_auto_adapt",
    "set_port_shaping",
    "add_route_table",
    "set_roce_port",
    "add_arp_entry",
    "add_ip_rule",
    "add_ip_route",
    "set_pfc_enabled",
    "set_tc_cfg",
    "set_prio_tc_info",
    "set_fec_info",
    "set_gratuitous_arp_info",
};

class RecoveryItemsTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "2"}};

    ProcResult run(std::vector<std::string> args) const
    {
        args.insert(args.begin(), {"-i", "0"});
        return sb_.tool(args);
    }
    // Every "-g" answer of the items, as one text.
    std::string shown() const
    {
        std::string all;
        for (const char *cmd : {"-ip", "-gateway", "-netdetect", "-mtu", "-mac", "-dscp_to_tc",
                                "-generic", "-shaping", "-route", "-udp", "-arp", "-pfc", "-tc_cfg",
                                "-prio_tc", "-fec", "-send_arp"}) {
            ProcResult r = run({cmd, "-g"});
            all += std::string(cmd) + " " + std::to_string(r.status) + "\n" + r.out;
        }
        return all + sb_.emu({"get", "0", "rules"}).out + sb_.emu({"get", "0", "ip-routes"}).out;
    }
    // The names of the set operations the journal saw, in order, once each.
    std::vector<std::string> replayed_ops() const
    {
        std::string text = sb_.emu({"journal"}).out;
        std::vector<std::string> ops;
        const std::regex rec("op 0x[0-9a-fA-F]+\\(([a-z_]+)\\)");
        for (auto it = std::sregex_iterator(text.begin(), text.end(), rec);
             it != std::sregex_iterator(); ++it) {
            const std::string name = (*it)[1].str();
            if ((name.rfind("set_", 0) == 0 || name.rfind("add_", 0) == 0) &&
                name != "set_cfg_status" && (ops.empty() || ops.back() != name))
                ops.push_back(name);
        }
        return ops;
    }
};

TEST_F(RecoveryItemsTest, EveryItemComesBackInTheReplayOrder)
{
    for (const auto &args : kSets) {
        ProcResult r = run(args);
        ASSERT_EQ(r.status, 0) << args[0] << ": " << r.err;
    }
    // Policy rules and routes are written into the file by the administrator.
    sb_.set_conf(sb_.conf() + "ip_rule_0=dir from ip 10.1.0.0 ip_mask 16 table 100\n" +
                 "ip_route_0=ip 30.0.0.0 ip_mask 8 via 10.0.0.1 dev eth0 table 100\n");
    ASSERT_EQ(run({"-cfg", "recovery"}).status, 0);
    const std::string before = shown();

    ASSERT_EQ(sb_.emu({"wipe", "0"}).status, 0);
    ASSERT_NE(shown(), before) << "the reset changed nothing";
    ASSERT_EQ(sb_.emu({"journal", "--on"}).status, 0);
    ASSERT_EQ(sb_.emu({"journal", "--clear"}).status, 0);
    ProcResult r = run({"-cfg", "recovery"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(run({"-cfg", "status"}).out, "config status:SUCCESS\n");
    EXPECT_EQ(shown(), before);
    EXPECT_EQ(replayed_ops(), kReplayOps);
}

} // namespace
