// The replay of the saved ARP entries, policy rules and routes, generic settings, FEC and
// gratuitous ARP, called in-process on a device that was reset, on a host whose physical ids
// differ from the logical ones.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "tests/support/tool_sandbox.hpp"

namespace
{

// The store resolves its file once per process, so every test here shares one sandbox and
// starts from a fresh host and an empty file.
class ArpReplayTest : public ::testing::Test
{
  protected:
    static inline ToolSandbox *shared_ = nullptr;
    const ToolSandbox &sb_ = *shared_;
    const DevRef dev_{2, 4}; // typed as 4, logical 2

    static void SetUpTestSuite()
    {
        shared_ = new ToolSandbox({"--devices", "4", "--phy-ids", "0,1,4,5"});
        for (const auto &[k, v] : shared_->env())
            setenv(k.c_str(), v.c_str(), 1);
    }
    static void TearDownTestSuite()
    {
        delete shared_;
        shared_ = nullptr;
    }
    void SetUp() override
    {
        ASSERT_EQ(sb_.emu({"init", "--devices", "4", "--phy-ids", "0,1,4,5"}).status, 0);
        sb_.set_conf("");
    }
    void ok(std::vector<std::string> args) const
    {
        args.insert(args.begin(), {"-i", "4"});
        ProcResult r = sb_.tool(args);
        ASSERT_EQ(r.status, 0) << r.err;
    }
    std::string device(const std::string &field) const { return sb_.emu({"get", "2", field}).out; }
    void fault(const std::string &op, const std::string &result) const
    {
        ASSERT_EQ(sb_.emu({"fault", "add", "--op", op, "--result", result}).status, 0);
    }
    /// Every replay item in recovery order, as recovery runs them: the first failure stops.
    int32_t replay_all() const
    {
        for (const SavedItem *item : g_saved_items) {
            const int32_t ret =
                item->replay != nullptr ? tool_cfg_replay_now(item->replay, dev_) : 0;
            if (ret != 0)
                return ret;
        }
        return 0;
    }
};

TEST_F(ArpReplayTest, ResetDeviceGetsEverySavedItemBack)
{
    ok({"-arp", "-a", "dev", "eth0", "ip", "10.0.0.5", "mac", "00:11:22:33:44:55"});
    ok({"-arp", "-a", "dev", "eth3", "ip", "10.0.0.6", "mac", "00:11:22:33:44:66"});
    ok({"-fec", "-s", "mode", "0"});
    ok({"-generic", "-s", "speed", "50000"});
    ok({"-generic", "-s", "auto_adapt", "1"});
    ok({"-send_arp", "-s", "period", "10", "status", "1"});
    // Policy routing written by hand: keywords in any order, blanks as an editor leaves them;
    // a comment, and the lines of other devices, are not replayed here.
    const std::string saved = sb_.conf();
    sb_.set_conf(saved + "ip_rule_2=dir from ip 10.1.0.0 ip_mask 16 table 100\n"
                         "ip_rule_2=table 7  dir to\tip 10.2.0.0 ip_mask 24\r\n"
                         "#ip_rule_2=dir from ip 10.9.0.0 ip_mask 16 table 9\n"
                         "ip_rule_1=dir from ip 10.8.0.0 ip_mask 16 table 8\n"
                         "ip_route_2=ip 20.0.0.0 ip_mask 8 via 10.1.0.1 dev eth0 table 100\n"
                         "ip_route_2=table 7 dev eth1 via 10.2.0.1 ip_mask 0 ip 0.0.0.0\n"
                         "ip_route_4=ip 30.0.0.0 ip_mask 8 via 10.1.0.1 dev eth0 table 100\n"
                         "arp_1=dev eth0 ip 10.0.0.9 mac 00:11:22:33:44:99\n");
    ASSERT_EQ(sb_.emu({"wipe", "2"}).status, 0);
    EXPECT_EQ(device("speed") + device("fec") + device("garp-period"), "0\n1\n60\n");

    EXPECT_EQ(replay_all(), 0);
    EXPECT_EQ(device("arp"), "eth0 10.0.0.5 00:11:22:33:44:55\neth3 10.0.0.6 00:11:22:33:44:66\n");
    EXPECT_EQ(device("rules"), "from 10.1.0.0/16 table 100\nto 10.2.0.0/24 table 7\n");
    EXPECT_EQ(device("ip-routes"), "20.0.0.0/8 via 10.1.0.1 dev eth0 table 100\n"
                                   "0.0.0.0/0 via 10.2.0.1 dev eth1 table 7\n");
    EXPECT_EQ(device("speed") + device("auto-adapt") + device("fec"), "50000\n1\n0\n");
    EXPECT_EQ(device("garp-period") + device("garp-status"), "10\n1\n");
    EXPECT_EQ(sb_.emu({"get", "1", "rules"}).out + sb_.emu({"get", "1", "arp"}).out, "\n\n");

    // A replay onto a device that holds it all already changes nothing.
    const std::string state = sb_.emu({"show", "2"}).out;
    EXPECT_EQ(replay_all(), 0);
    EXPECT_EQ(sb_.emu({"show", "2"}).out, state);
}

TEST_F(ArpReplayTest, MalformedLineStopsTheReplayWithTheCheckersCode)
{
    const std::string before = "ip_rule_2=dir from ip 10.1.0.0 ip_mask 16 table 100\n";
    const std::string after = "ip_rule_2=dir to ip 10.3.0.0 ip_mask 16 table 3\n";
    const std::vector<std::string> bad_rules = {
        "ip_rule_2=dir from ip 10.1.0.0 ip_mask 33 table 100\n",
        "ip_rule_2=dir up ip 10.1.0.0 ip_mask 16 table 100\n",
        "ip_rule_2=dir from ip 10.1.0 ip_mask 16 table 100\n",
        "ip_rule_2=dir from ip 10.1.0.0 ip_mask 16 table 256\n",
        "ip_rule_2=dir from ip 10.1.0.0 ip_mask 16\n",
        "ip_rule_2=dir from ip 10.1.0.0 ip_mask 16 table 1 table 2\n",
        "ip_rule_2=dir from dir to ip 10.1.0.0 ip_mask 16\n",
        "ip_rule_2=\n",
    };
    for (const std::string &bad : bad_rules) {
        SCOPED_TRACE(bad);
        ASSERT_EQ(sb_.emu({"wipe", "2"}).status, 0);
        sb_.set_conf(before + bad + after);
        EXPECT_EQ(tool_cfg_replay_now(tool_cfg_ip_rule_recovery, dev_), 0x2001);
        EXPECT_EQ(device("rules"), "from 10.1.0.0/16 table 100\n");
    }
    const std::vector<std::string> bad_lines = {
        "ip_route_2=ip 20.0.0.0 ip_mask 8 via 10.1.0.1 dev eth8 table 100\n",
        "ip_route_2=ip 20.0.0.0 ip_mask 8 gw 10.1.0.1 dev eth0 table 100\n",
        "ip_route_2=ip 20.0.0.0 ip_mask 8 via 10.1.0.1 dev eth0\n",
        "arp_2=dev eth0 ip 10.0.0.5 mac 00:11:22:33:44\n",
        "arp_2=dev eth0 ip 10.0.0.5 lladdr 00:11:22:33:44:55\n",
    };
    for (const std::string &bad : bad_lines) {
        SCOPED_TRACE(bad);
        sb_.set_conf(bad);
        EXPECT_EQ(replay_all(), 0x2001);
    }
}

TEST_F(ArpReplayTest, ItemsStopAtTheirFirstRefusal)
{
    struct Case {
        std::string conf, op, result;
        int32_t (*item)(DevRef, const ConfView &);
        int32_t code;
        std::string field, state;
    };
    const Case cases[] = {
        // A static speed that fails keeps the auto-adaptation from being tried.
        {"static_speed_4=12345\nauto_adapt_4=1\n", "", "", tool_cfg_generic_recovery, 0x2001,
         "auto-adapt", "0\n"},
        {"static_speed_4=1000\nauto_adapt_4=1\n", "set_generic_info", "-5",
         tool_cfg_generic_recovery, 0x4001, "auto-adapt", "0\n"},
        // Items applied through a device operation itself return its code; the gateway maps it.
        {"static_speed_4=1000\nauto_adapt_4=1\n", "set_optical_auto_adapt", "-5",
         tool_cfg_generic_recovery, -5, "speed", "1000\n"},
        {"dscp_tc_4=10:3,46:5\n", "set_dscp_map", "-5", tool_cfg_dscp_recovery, -5, "mtu",
         "1500\n"},
        {"gateway_4=10.0.0.1\n", "set_default_gateway_address", "-5", tool_cfg_gateway_recovery,
         0x4001, "gateway", "none\n"},
        {"auto_adapt_4=1\n", "", "", tool_cfg_generic_recovery, 0, "auto-adapt", "1\n"},
        {"encoding_4=4\n", "", "", tool_cfg_fec_recovery, 0x2001, "fec", "1\n"},
        {"encoding_4=2\n", "set_fec_info", "-5", tool_cfg_fec_recovery, 0x4001, "fec", "1\n"},
        // Half a gratuitous ARP setting is nothing to replay.
        {"send_arp_period_4=10\n", "", "", tool_cfg_gratuitous_arp_recovery, 0, "garp-period",
         "60\n"},
        {"send_arp_period_4=0\nsend_arp_status_4=1\n", "", "", tool_cfg_gratuitous_arp_recovery,
         0x2001, "garp-status", "0\n"},
        // A full table is no failure: the entries that fit are in place.
        {"arp_2=dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:55\n", "add_arp_entry", "5000",
         tool_cfg_arp_recovery, 0, "arp", "\n"},
        {"arp_2=dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:55\n", "add_arp_entry", "-5",
         tool_cfg_arp_recovery, 0x4001, "arp", "\n"},
        {"ip_route_2=ip 20.0.0.0 ip_mask 8 via 10.1.0.1 dev eth0 table 100\n", "add_ip_route", "-5",
         tool_cfg_ip_route_recovery, 0x4001, "ip-routes", "\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.conf);
        SetUp();
        sb_.set_conf(c.conf);
        if (!c.op.empty())
            fault(c.op, c.result);
        EXPECT_EQ(tool_cfg_replay_now(c.item, dev_), c.code);
        EXPECT_EQ(device(c.field), c.state);
    }
}

} // namespace
