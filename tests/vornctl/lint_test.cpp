// vornctl lint: each finding made by a prepared host and file, with its severity, line and
// suggested command; every recovery buffer checked at its edge; a clean host gives none.
#include <gtest/gtest.h>

#include <cstring>

#include "commands/saved_item.hpp"
#include "tests/vornctl/ctl_support.hpp"

namespace
{

struct LintCase {
    const char *name;
    int devices;
    std::string conf;                                ///< the file, "" to keep it empty
    std::vector<std::vector<std::string>> tool_runs; ///< vorn_tool runs, "-i N ..." each
    std::vector<std::vector<std::string>> emu_runs;  ///< kopa-emu commands
    int status;                                      ///< lint's exit status
    std::string finding;                             ///< a line of the output (path: FILE)
    std::string suggestion;                          ///< the line after it, "" to skip
};

const LintCase kCases[] = {
    {"PrefixReadOfAnotherDevice",
     16,
     "mtu_10=9000\nmtu_1=1500\n",
     {},
     {},
     1,
     "error: FILE:1: a read of mtu_1 (device 1) is answered by this line of mtu_10",
     "vorn_tool -i 10 -mtu -s size 9000 (saves mtu_10 again at the end of the file)"},
    {"PrefixReadWithoutOwnLine",
     12,
     "bitmap_11=0,0,0,1,0,0,0,0\n",
     {},
     {},
     1,
     "error: FILE:1: a read of bitmap_1 (device 1) is answered by this line of bitmap_11",
     "vorn_tool -i 1 -pfc -s bitmap <bitmap>, then vorn_tool -i 11 -pfc -s bitmap "
     "0,0,0,1,0,0,0,0"},
    {"GatewayDeletionTakesRoutes",
     8,
     "address_1=10.0.0.2\nnetmask_1=255.255.255.0\ngateway_1=10.0.0.1\n"
     "route_address_20.0.0.0_netmask_255.0.0.0_3=gateway_10.3.0.1\n",
     {},
     {},
     1,
     "warning: FILE:4: the line holds gateway_1: deleting device 1's saved gateway",
     "after any change of device 1's gateway: vorn_tool -i 3 -route -a address 20.0.0.0 "
     "netmask 255.0.0.0 gateway 10.3.0.1"},
    {"GatewayDeletionTakesAnotherGateway",
     12,
     "gateway_1=10.0.0.1\naddress_10=10.10.0.2\nnetmask_10=255.255.255.0\ngateway_10=10.10.0.1\n",
     {},
     {},
     1,
     "warning: FILE:4: the line holds gateway_1",
     ""},
    {"RouteKeyInsideAnotherDevicesRoute",
     16,
     "route_address_30.0.0.0_netmask_255.0.0.0_11=gateway_20.0.0.1\n"
     "route_address_30.0.0.0_netmask_255.0.0.0_1=gateway_20.0.0.1\n",
     {},
     {},
     1,
     "warning: FILE:1: device 1's route key route_address_30.0.0.0_netmask_255.0.0.0_1 is inside "
     "this line of device 11",
     "after any change of device 1's routes: vorn_tool -i 11 -route -a address 30.0.0.0 netmask "
     "255.0.0.0 gateway 20.0.0.1"},
    {"LatentRouteKeyIsInfo",
     16,
     "route_address_30.0.0.0_netmask_255.0.0.0_11=gateway_20.0.0.1\n",
     {},
     {},
     0,
     "info: FILE:1: device 1's route key",
     ""},
    {"DscpListOverSixtyFourEntries",
     4,
     "dscp_tc_2=0:0,1:0,2:0,3:0,4:0,5:0,6:0,7:0,8:0,9:0,10:0,11:0,12:0,13:0,14:0,15:0,16:0,17:0,"
     "18:0,19:0,20:0,21:0,22:0,23:0,24:0,25:0,26:0,27:0,28:0,29:0,30:0,31:0,32:0,33:0,34:0,35:0,"
     "36:0,37:0,38:0,39:0,40:0,41:0,42:0,43:0,44:0,45:0,46:0,47:0,48:0,49:0,50:0,51:0,52:0,53:0,"
     "54:0,55:0,56:0,57:0,58:0,59:0,60:0,61:0,62:0,63:0,0:1\n",
     {},
     {},
     1,
     "error: FILE:1: dscp_tc_2: its list of 65 entries exceeds the 64 DSCP values: recovery of "
     "device 2 refuses it and stops there",
     "edit FILE: remove line 1, then set each value again: vorn_tool -i 2 -dscp_to_tc -s dscp "
     "<dscp> tc <tc>"},
    {"RouteLineNotInTheWrittenForm",
     4,
     "route_address_020.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.1\n",
     {},
     {},
     1,
     "error: FILE:1: route line not in the form the route command writes",
     ""},
    {"PolicyLineTheCheckersRefuse",
     4,
     "ip_route_0=ip 30.0.0.0 ip_mask 33 via 10.0.0.1 dev eth0 table 100\n",
     {},
     {},
     1,
     "error: FILE:1: the checkers refuse this saved ip_route line",
     ""},
    {"ArpLineTheCheckersRefuse",
     4,
     "arp_1=dev eth0 ip 10.0.0.9\n",
     {},
     {},
     1,
     "error: FILE:1: the checkers refuse this saved arp line",
     ""},
    {"LineWithoutEquals",
     4,
     "# kept\nmtu_0 9000\n",
     {},
     {},
     1,
     "warning: FILE:2: line without \"=\"",
     ""},
    {"LongLine",
     4,
     "#" + std::string(400, 'x') + "\n",
     {},
     {},
     1,
     "warning: FILE:1: the line is longer than 383 characters",
     ""},
    {"LineOfAnAbsentLogicalDeviceIsInfo",
     4,
     "arp_9=dev eth0 ip 10.0.0.9 mac 00:11:22:33:44:99\n",
     {},
     {},
     0,
     "info: FILE:1: no device has the logical id 9",
     ""},
    {"HalfOfAPair",
     4,
     "send_arp_status_3=1\n",
     {},
     {},
     1,
     "warning: host: device 3 has send_arp_status saved without send_arp_period",
     "vorn_tool -i 3 -send_arp -s period <send_arp_period> status 1"},
    {"MtuDiffers",
     4,
     "",
     {{"-i", "1", "-mtu", "-s", "size", "9000"}},
     {},
     1,
     "warning: host: MTU is not the same on every device: 1500 on dev 0,2,3; 9000 on dev 1",
     "vorn_tool -i 0 -mtu -s size 9000; vorn_tool -i 2 -mtu -s size 9000; vorn_tool -i 3 -mtu -s "
     "size 9000\n"},
    {"SavedValuesDisagreeProposeNothing",
     4,
     "",
     {{"-i", "1", "-mtu", "-s", "size", "9000"}, {"-i", "2", "-mtu", "-s", "size", "4000"}},
     {},
     1,
     "warning: host: MTU is not the same on every device: 1500 on dev 0,3; 9000 on dev 1; 4000 on "
     "dev 2: the saved values disagree (9000 on dev 1; 4000 on dev 2), so there is no value to "
     "propose",
     "none\n"},
    {"UnsavedValuesProposeNothing",
     4,
     "",
     {},
     {{"set", "1", "mtu", "9000"}},
     1,
     "warning: host: MTU is not the same on every device: 1500 on dev 0,2,3; 9000 on dev 1: no "
     "device saves it",
     "none\n"},
    {"UdpPortDiffers",
     4,
     "",
     {{"-i", "2", "-udp", "-s", "port", "5000"}},
     {},
     1,
     "warning: host: RoCE UDP port is not the same on every device: 4791 on dev 0,1,3; 5000 on "
     "dev 2",
     "vorn_tool -i 0 -udp -s port 5000; vorn_tool -i 1 -udp -s port 5000; vorn_tool -i 3 -udp -s "
     "port 5000\n"},
    {"DscpMapDiffers",
     4,
     "",
     {{"-i", "3", "-dscp_to_tc", "-s", "dscp", "46", "tc", "0"}},
     {},
     1,
     "warning: host: DSCP-to-class map is not the same on every device",
     "vorn_tool -i 0 -dscp_to_tc -s dscp 46 tc 0; vorn_tool -i 1 -dscp_to_tc -s dscp 46 tc 0; "
     "vorn_tool -i 2 -dscp_to_tc -s dscp 46 tc 0\n"},
    {"PriorityMapDiffers",
     4,
     "",
     {{"-i", "0", "-prio_tc", "-s", "prio_tc", "0,0,0,0,0,0,0,0"}},
     {},
     1,
     "warning: host: priority map is not the same on every device",
     "vorn_tool -i 1 -prio_tc -s prio_tc 0,0,0,0,0,0,0,0;"},
    {"PfcDiffers",
     4,
     "",
     {{"-i", "0", "-pfc", "-s", "bitmap", "0,0,0,1,0,0,0,0"}},
     {},
     1,
     "warning: host: PFC priority list is not the same on every device",
     "vorn_tool -i 1 -pfc -s bitmap 0,0,0,1,0,0,0,0;"},
    {"TrafficClassesDiffer",
     4,
     "",
     {{"-i", "0", "-tc_cfg", "-s", "tc_bw", "0,10,10,10,10,10,20,30", "tc_mode",
       "0,1,1,1,1,1,1,1"}},
     {},
     1,
     "warning: host: traffic-class configuration (bandwidth and mode) is not the same on every "
     "device",
     "vorn_tool -i 1 -tc_cfg -s tc_bw 0,10,10,10,10,10,20,30 tc_mode 0,1,1,1,1,1,1,1;"},
    {"GatewayOutsideItsSegment",
     4,
     "",
     {},
     {{"set", "2", "roce-ip", "10.2.0.2"},
      {"set", "2", "roce-mask", "255.255.255.0"},
      {"set", "2", "gateway", "10.9.0.1"}},
     1,
     "error: host: dev 2's gateway 10.9.0.1 is outside its address segment 10.2.0.2/255.255.255.0",
     "vorn_tool -i 2 -gateway -s gateway <an address in 10.2.0.2/255.255.255.0>"},
    {"SavedGatewayOutsideItsSegment",
     8,
     "address_5=10.5.0.2\nnetmask_5=255.255.255.0\ngateway_5=10.9.0.1\n",
     {},
     {},
     1,
     "error: host: dev 5's saved gateway 10.9.0.1 is outside its saved address segment",
     ""},
    {"TwoSavedGatewaysInOneGroup",
     8,
     "address_0=10.0.0.2\nnetmask_0=255.255.255.0\ngateway_0=10.0.0.1\n"
     "address_2=10.2.0.2\nnetmask_2=255.255.255.0\ngateway_2=10.2.0.1\n",
     {},
     {},
     1,
     "warning: host: devices 0,2 of one group each have a saved gateway",
     ""},
    {"UnhealthyDeviceIsInfo",
     4,
     "",
     {},
     {{"set", "1", "health", "2"}},
     0,
     "info: host: dev 1 not checked against the host: health major alarm",
     ""},
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const LintCase &c, std::ostream *os)
{
    *os << c.name;
}

class CtlLintTest : public ::testing::TestWithParam<LintCase>
{
};

std::string with_path(std::string text, const std::string &path)
{
    for (size_t at = text.find("FILE"); at != std::string::npos; at = text.find("FILE", at))
        text.replace(at, 4, path);
    return text;
}

TEST_P(CtlLintTest, FindingOfAPreparedHost)
{
    const LintCase &c = GetParam();
    ToolSandbox sb({"--devices", std::to_string(c.devices)});
    for (const auto &args : c.emu_runs)
        ASSERT_EQ(sb.emu(args).status, 0) << args[0];
    for (const auto &args : c.tool_runs) {
        const ProcResult r = sb.tool(args);
        ASSERT_EQ(r.status, 0) << args[2] << ": " << r.err;
    }
    if (!c.conf.empty())
        sb.set_conf(c.conf);
    const ProcResult r = run_ctl(sb, {"lint"});
    EXPECT_EQ(r.status, c.status) << r.out << r.err;
    const std::string finding = with_path(c.finding, sb.conf_path());
    const size_t at = r.out.find(finding);
    ASSERT_NE(at, std::string::npos) << finding << "\nin:\n" << r.out;
    if (!c.suggestion.empty()) {
        const size_t next = r.out.find('\n', at) + 1;
        const std::string expected = "    suggested: " + with_path(c.suggestion, sb.conf_path());
        EXPECT_EQ(r.out.substr(next, expected.size()), expected) << r.out;
    }
}

INSTANTIATE_TEST_SUITE_P(Findings, CtlLintTest, ::testing::ValuesIn(kCases),
                         [](const auto &param) { return std::string(param.param.name); });

class CtlLintFileTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "4"}};
};

// The buffers recovery reads the values into: a value of buffer-1 characters fits, one of buffer
// characters does not.
TEST_F(CtlLintFileTest, EveryValueIsCheckedAtTheEdgeOfItsRecoveryBuffer)
{
    std::vector<std::pair<const char *, size_t>> buffers;
    for (const SavedItem *def : g_saved_items) {
        if (def->buffer != 0)
            buffers.emplace_back(def->key, def->buffer);
    }
    std::string fits, too_long;
    for (const auto &[item, size] : buffers) {
        // A line holds 383 characters: the DSCP list cannot outgrow its buffer.
        if (size < 300)
            too_long += std::string(item) + "_1=" + std::string(size, '9') + "\n";
        fits +=
            std::string(item) + "_2=" + std::string(size - 1 - (size > 300 ? 12 : 0), '9') + "\n";
    }
    sb_.set_conf(fits + too_long);
    const ProcResult r = run_ctl(sb_, {"lint"});
    for (const auto &[item, size] : buffers) {
        const std::string fit_finding = std::string(item) + "_2: its value";
        EXPECT_EQ(r.out.find(fit_finding), std::string::npos) << fit_finding;
        if (size > 300)
            continue;
        const std::string finding = std::string(item) + "_1: its value of " + std::to_string(size) +
                                    " characters does not fit the " + std::to_string(size) +
                                    "-byte recovery buffer of " + item;
        EXPECT_NE(r.out.find(finding), std::string::npos) << finding << "\nin:\n" << r.out;
    }
}

// Every saved item: a value (or line) that its replay refuses is an error of lint. The values
// are the first of a hostile administrator's that the item's own check refuses and that fit its
// buffer, so an item whose check lets all of them through fails here.
TEST_F(CtlLintFileTest, EveryItemsRefusedValueIsAnError)
{
    const char *const kHostile[] = {"67",
                                    "99999",
                                    "3",
                                    "01:00:5e:00:00:01",
                                    "2,0,0,0,0,0,0,0",
                                    "64:1",
                                    "101,0,0,0,0,0,0,0",
                                    "x",
                                    "256.0.0.1",
                                    "255.255.0.255",
                                    "dev eth9 ip 10.0.0.1 mac 00:11:22:33:44:55",
                                    "dir up ip 10.0.0.0 ip_mask 8 table 1",
                                    "ip 10.0.0.0 ip_mask 40 via 10.0.0.1 dev eth0 table 1"};
    std::string conf;
    std::vector<std::string> keys;
    for (const SavedItem *item : g_saved_items) {
        const std::string key = item->line_key != nullptr ? std::string(item->line_key) + "_0"
                                : item->buffer == 0 ? std::string("route_address_x_netmask_y_1")
                                                    : std::string(item->key) + "_1";
        const char *refused = nullptr;
        for (const char *value : kHostile) {
            const std::string line = key + "=" + value;
            const bool fits = item->buffer == 0 || strlen(value) < item->buffer;
            const int32_t ret = item->check(item->buffer == 0 ? line.c_str() : value);
            const bool device =
                ret == 0 && item->device_check != nullptr && item->device_check(value) != 0;
            if (fits && (ret != 0 || device)) {
                refused = value;
                break;
            }
        }
        ASSERT_NE(refused, nullptr) << item->key << " takes every hostile value";
        conf += key + "=" + refused + "\n";
        keys.push_back(key);
    }
    sb_.set_conf(conf);
    const ProcResult r = run_ctl(sb_, {"lint"});
    EXPECT_EQ(r.status, 1) << r.out;
    for (size_t i = 0; i < keys.size(); ++i) {
        const std::string at = "error: " + sb_.conf_path() + ":" + std::to_string(i + 1) + ": ";
        EXPECT_NE(r.out.find(at), std::string::npos) << keys[i] << "\nin:\n" << r.out;
    }
}

// Lists longer than the device holds are warnings; verify names what cannot be applied.
TEST_F(CtlLintFileTest, ListsLongerThanTheDeviceHoldsAreWarnings)
{
    const uint32_t held = saved_item("ip_rules")->max_entries;
    std::string conf;
    for (uint32_t i = 0; i < held + 2; ++i)
        conf += "ip_rule_0=dir from ip 10.1." + std::to_string(i) + ".0 ip_mask 24 table 1\n";
    sb_.set_conf(conf);
    const ProcResult lint = run_ctl(sb_, {"lint"});
    EXPECT_EQ(lint.status, 1) << lint.out;
    EXPECT_NE(lint.out.find("warning: host: ip_rule_0: " + std::to_string(held + 2) +
                            " saved policy rules, the device holds " + std::to_string(held) +
                            ": the 2 past them cannot be applied"),
              std::string::npos)
        << lint.out;
    ASSERT_EQ(sb_.tool({"-i", "0", "-cfg", "recovery"}).status, 0);
    const ProcResult verify = run_ctl(sb_, {"verify", "-i", "0"});
    EXPECT_EQ(verify.status, 0) << verify.out << verify.err;
    EXPECT_NE(verify.out.find("dev 0 ip_rules: saved dir from ip 10.1." + std::to_string(held + 1) +
                              ".0 ip_mask 24 table 1 cannot be applied: the device holds " +
                              std::to_string(held)),
              std::string::npos)
        << verify.out;
    EXPECT_NE(verify.out.find("no drift:"), std::string::npos) << verify.out;
}

TEST_F(CtlLintFileTest, MissingFileIsAnError)
{
    ASSERT_EQ(unlink(sb_.conf_path().c_str()), 0);
    const ProcResult r = run_ctl(sb_, {"lint"});
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_NE(r.out.find("error: host: " + sb_.conf_path() +
                         " does not exist: recovery of every device fails"),
              std::string::npos)
        << r.out;
}

TEST_F(CtlLintFileTest, CleanHostGivesNoFinding)
{
    ToolSandbox sb({"--devices", "8"});
    for (int id = 0; id < 8; ++id) {
        const std::string net = "10." + std::to_string(id) + ".0.";
        set_on(sb, id, {"-ip", "-s", "address", net + "2", "netmask", "255.255.255.0"});
        set_on(sb, id, {"-mtu", "-s", "size", "9000"});
        set_on(sb, id, {"-udp", "-s", "port", "5000"});
        set_on(sb, id, {"-dscp_to_tc", "-s", "dscp", "46", "tc", "3"});
        set_on(sb, id, {"-pfc", "-s", "bitmap", "0,0,0,1,0,0,0,0"});
        set_on(
            sb, id,
            {"-route", "-a", "address", "20.0.0.0", "netmask", "255.0.0.0", "gateway", net + "1"});
        set_on(sb, id, {"-arp", "-a", "dev", "eth0", "ip", net + "9", "mac", "00:11:22:33:44:99"});
    }
    set_on(sb, 0, {"-gateway", "-s", "gateway", "10.0.0.1"});
    set_on(sb, 4, {"-gateway", "-s", "gateway", "10.4.0.1"});
    sb.set_conf(sb.conf() + "ip_rule_0=dir from ip 10.1.0.0 ip_mask 16 table 100\n");
    const ProcResult r = run_ctl(sb, {"lint"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(r.out, "lint: 0 error(s), 0 warning(s), 0 info\n");
}

} // namespace
