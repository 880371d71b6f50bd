// End-to-end tests of -mac, -mtu, -link, -udp, -lldp, -vnic and -net_health through the real
// tool and the emulator, and of the MTU, MAC and RoCE port replay items.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "commands/replay.hpp"
#include "tests/support/tool_sandbox.hpp"

namespace
{

const char *kHelpMtu = "   [-s]        : set mtu cfg \n       size %d : set mtu size, from 68 to "
                       "9702\n   [-g]        : get mtu cfg\n";
const char *kHelpLink = "   [-s down]   : shut down eth port \n   [-g]        : get the eth "
                        "ports link status, UP or DOWN \n";
const char *kHelpMac = "   [-s]        : set mac address \n       mac %s : such as "
                       "XX:XX:XX:XX:XX:XX\n   [-g]        : get mac address \n";
const char *kHelpUdp = "   [-s]        : set roce port port range 4097~65535\n       port %d : "
                       "roce UDP port\n   [-g]        : get roce udp port\n";
const char *kHelpNetHealth = "   [-g]        : get net health status \n";
const char *kMacRefused = "The mac address you configured is invalid or saved by system\n";
const char *kWriteFailed = "Write file failed, cmd execute failed! pls check cmd run permission.\n";
const char *kPermission = "permission denied: pls check this cmd run permission.\n";

// The parameter list the front-end prints after a parameter error of `cmd`.
std::string usage(const std::string &cmd, const char *help)
{
    return "[ vorn_tool -i dev_id " + cmd + " ] needs the following parameters:\n" + help + "\n";
}

class PortCommandsTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "2"}};

    ProcResult run(std::vector<std::string> args) const
    {
        args.insert(args.begin(), {"-i", "0"});
        return sb_.tool(args);
    }
    std::string device(const std::string &field) const
    {
        std::string out = sb_.emu({"get", "0", field}).out;
        return out.substr(0, out.find_last_not_of('\n') + 1);
    }
    void set_device(const std::string &field, const std::string &value) const
    {
        ASSERT_EQ(sb_.emu({"set", "0", field, value}).status, 0) << field;
    }
    // Number of run-log CONFIG lines, each stamped and attributed, that carry `text`.
    int config_lines(const std::string &text) const
    {
        const std::regex line(
            "CONFIG MAJOR [^ ]*\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} "
            "[^ ]+ [^ :]+:\\d+ >>> " +
            text + "\n");
        std::string log = sb_.run_log();
        return static_cast<int>(std::distance(std::sregex_iterator(log.begin(), log.end(), line),
                                              std::sregex_iterator()));
    }
};

TEST_F(PortCommandsTest, SettingsAtTheirBoundsReachDeviceFileAndGet)
{
    struct Case {
        std::vector<std::string> set;
        std::string field, state, saved, shown, config;
    };
    const std::string mtu_cfg = "start to set mtu of logic_id\\[0\\]";
    const Case cases[] = {
        {{"-mtu", "-s", "size", "68"}, "mtu", "68", "mtu_0=68\n", "mtu:68\n", mtu_cfg},
        {{"-mtu", "-s", "size", "9702"}, "mtu", "9702", "mtu_0=9702\n", "mtu:9702\n", mtu_cfg},
        {{"-mac", "-s", "mac", "aB:cD:eF:01:23:45"},
         "mac",
         "ab:cd:ef:01:23:45",
         "mtu_0=9702\nmac_addr_0=aB:cD:eF:01:23:45\n",
         "mac addr: ab:cd:ef:01:23:45\n",
         "start to set mac address of logic_id\\[0\\]"},
        // The reserved texts compare case-sensitively: a mixed-case broadcast passes.
        {{"-mac", "-s", "mac", "ff:FF:ff:FF:ff:FF"},
         "mac",
         "ff:ff:ff:ff:ff:ff",
         "mtu_0=9702\nmac_addr_0=ff:FF:ff:FF:ff:FF\n",
         "mac addr: ff:ff:ff:ff:ff:ff\n",
         "start to set mac address of logic_id\\[0\\]"},
        {{"-udp", "-s", "port", "65535"},
         "udp-port",
         "65535",
         "mtu_0=9702\nmac_addr_0=ff:FF:ff:FF:ff:FF\nroce_port_0=65535\n",
         "udp_port:65535\n",
         "start to set roce_port of logic_id\\[0\\]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.set.back());
        int before = config_lines(c.config);
        ProcResult set = run(c.set);
        EXPECT_EQ(set.status, 0);
        EXPECT_EQ(set.out + set.err, "");
        EXPECT_EQ(device(c.field), c.state);
        EXPECT_EQ(sb_.conf(), c.saved);
        EXPECT_EQ(config_lines(c.config), before + 1);
        EXPECT_EQ(run({c.set[0], "-g"}).out, c.shown);
    }
}

TEST_F(PortCommandsTest, RefusedCommandLinesLeaveDeviceAndFileAlone)
{
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string out, err;
    };
    const std::string mtu = usage("-mtu", kHelpMtu), mac = usage("-mac", kHelpMac);
    const std::string range = "The value of mtu you input is out of the valid range!\n" + mtu;
    const std::string invalid = "Get invalid parameters!\n" + mtu;
    const std::string count = "The total count of input parameters is wrong!\n";
    const std::string port = "Input port num is invalid.\n", failed = "Cmd execute failed!\n";
    const std::string health = usage("-net_health", kHelpNetHealth);
    const Case cases[] = {
        {{"-mtu", "-s", "size", "67"}, 0x0E, "", range},
        {{"-mtu", "-s", "size", "9703"}, 0x0E, "", range},
        {{"-mtu", "-s", "size", "1500a"}, 0x01, "", invalid},
        {{"-mtu", "-s", "size", "+1500"}, 0x01, "", invalid},
        {{"-mtu", "-s", "Size", "1500"}, 0x03, "", "Get unknown option , do you mean size\n" + mtu},
        {{"-mtu", "-g", "1500"}, 0x05, "", count + mtu},
        {{"-link", "-s", "up"},
         0x03,
         "",
         "Get unknown option, do you mean down\n" + usage("-link", kHelpLink)},
        {{"-mac", "-s", "mac", "01:11:22:33:44:55"}, 0x06, "", kMacRefused},
        {{"-mac", "-s", "mac", "11:22:33:44:55:66"}, 0x06, "", kMacRefused},
        {{"-mac", "-s", "mac", "03:00:00:00:00:08"}, 0x06, "", kMacRefused},
        {{"-mac", "-s", "mac", "01:80:c2:00:00:0E"}, 0x06, "", kMacRefused},
        {{"-mac", "-s", "mac", "00:11:22:33:44:555"}, 0x06, "", kMacRefused},
        {{"-mac", "-s", "mac", "00-11-22-33-44-55"}, 0x06, "", kMacRefused},
        {{"-mac", "-s", "address", "00:11:22:33:44:55"},
         0x03,
         "",
         "Get unknown option, do you mean mac\n" + mac},
        {{"-mac", "-s", "mac"}, 0x05, "", count + mac},
        {{"-udp", "-s", "port", "999"}, 0x02, port, failed},
        {{"-udp", "-s", "port", "100000"}, 0x02, port, failed},
        {{"-udp", "-s", "port", "12a4"}, 0x02, port, failed},
        {{"-udp", "-s", "Port", "4791"},
         0x03,
         "",
         "Get unknown option, do you mean port\n" + usage("-udp", kHelpUdp)},
        {{"-net_health", "-s"}, 0x03, "", "Get unknown option!\n" + health},
        {{"-net_health"}, 0x05, "", count + health},
    };
    const std::string state = sb_.emu({"show"}).out;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args[0] + " " + c.args.back());
        ProcResult r = run(c.args);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(sb_.conf(), "");
        EXPECT_EQ(sb_.emu({"show"}).out, state);
    }
}

TEST_F(PortCommandsTest, QueriesPrintDeviceState)
{
    set_device("link", "2");
    EXPECT_EQ(run({"-link", "-g"}).out, "link status: UP\n");
    ProcResult down = run({"-link", "-s", "down"});
    EXPECT_EQ(down.status, 0);
    EXPECT_EQ(config_lines("start to shutdown link of logic_id\\[0\\]"), 1);
    EXPECT_EQ(run({"-link", "-g"}).out, "link status: DOWN\n");

    EXPECT_EQ(run({"-vnic", "-g"}).out,
              "vnic link status: UP\nvnic ipaddr: 192.168.1.199\nvnic netmask: 255.255.255.0\n");
    EXPECT_EQ(run({"-lldp", "-g"}).out.rfind("Chassis ID TLV\n", 0), 0u);

    set_device("net-health", "8");
    EXPECT_EQ(run({"-net_health", "-g"}).out, "net health status: Detect ip set\n");
    set_device("net-health", "9");
    EXPECT_EQ(run({"-net_health", "-g"}).out, "net health status: Unknown\n");
    set_device("net-health", "10");
    ProcResult bad = run({"-net_health", "-g"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.out, "");
    EXPECT_EQ(bad.err, "Command execute failed!\n");
    EXPECT_EQ(sb_.conf(), "");
}

// A refused word count or operation word is logged by the dispatcher under the command's
// handler name; a refused key word by the operation that read it.
TEST_F(PortCommandsTest, RefusalsAreLoggedUnderTheRefusingHandler)
{
    struct Case {
        std::vector<std::string> args;
        std::string driver, run; // regexes; "" when that log must not name the handler
    };
    const Case cases[] = {
        {{"-mtu"}, "\\[tool_mtu_cmd_execute \\d+\\]err argc\\[0\\]\n", ""},
        {{"-mtu", "-s", "size"}, "\\[tool_mtu_cmd_execute \\d+\\]err argc\\[2\\]\n", ""},
        {{"-mtu", "-x"}, "", "PROMPT MINOR .* cmd\\.cpp:\\d+ >>> invalid operation\n"},
        {{"-link", "-s", "up"},
         "\\[tool_link_cmd_execute \\d+\\]tool_link_set_shutdown fail, ret:8195, logic_id:0\n",
         "PROMPT MINOR .* mtu_link\\.cpp:\\d+ >>> invalid option\n"},
        // A count refused before the operation ran still ends with the operation's failure line.
        {{"-mac", "-g", "x"},
         "\\[tool_mac_cmd_execute \\d+\\]err argc\\[2\\]\n.*\\[tool_mac_cmd_execute "
         "\\d+\\]tool_get_mac fail, ret:8197\n",
         ""},
        {{"-netdetect", "-g", "x"},
         "\\]err argc\\[2\\]\n.*\\[tool_netdetect_cmd_execute \\d+\\]tool_get_netdetect fail, "
         "ret:8197\n",
         ""},
        {{"-netdetect", "-s", "address"},
         "\\]err argc\\[2\\]\n.*\\[tool_netdetect_cmd_execute \\d+\\]tool_set_netdetect fail, "
         "ret:8197\n",
         ""},
        {{"-udp", "-g", "x"}, "\\[tool_roce_port_cmd_execute \\d+\\]err argc\\[2\\]\n", ""},
        {{"-vnic", "-s"}, "", "PROMPT MINOR .* cmd\\.cpp:\\d+ >>> invalid operation\n"},
        {{"-mac", "-s", "address", "00:11:22:33:44:55"},
         "\\[tool_mac_set_cmd \\d+\\]Invalid option\\.\n.*\\[tool_mac_set_cmd \\d+\\]Get unknown "
         "option, "
         "do you mean mac\n",
         ""},
        {{"-net_health", "-s"}, "\\[tool_net_health_cmd_execute \\d+\\]invalid operation\n", ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args[0] + " " + c.args.back());
        std::filesystem::remove(sb_.emu_dir() + "/driver.log");
        std::filesystem::remove(sb_.run_log_path());
        ProcResult r = run(c.args);
        EXPECT_NE(r.status, 0);
        std::string drv = sb_.driver_log(), log = sb_.run_log();
        if (!c.driver.empty()) {
            EXPECT_TRUE(std::regex_search(drv, std::regex(c.driver))) << drv;
        }
        if (!c.run.empty()) {
            EXPECT_TRUE(std::regex_search(log, std::regex(c.run))) << log;
        }
        // Helpers never stand in for the handler in either log.
        EXPECT_EQ(drv.find("[cmd_"), std::string::npos) << drv;
        EXPECT_EQ(log.find("cmd_common.cpp"), std::string::npos) << log;
    }
}

TEST_F(PortCommandsTest, DeviceRefusalPrintsPermissionLineAndSavesNothing)
{
    ASSERT_EQ(sb_.emu({"fault", "add", "--op", "set_mtu", "--result", "-13"}).status, 0);
    ProcResult r = run({"-mtu", "-s", "size", "9000"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, std::string(kPermission) + "Command execute failed!\n");
    EXPECT_EQ(device("mtu"), "1500");
    EXPECT_EQ(sb_.conf(), "");
}

TEST_F(PortCommandsTest, SaveFailureReportsItemAndKeepsDeviceChange)
{
    const std::string tail = " User configurations cannot be persisted";
    const std::vector<std::string> cases[] = {
        {"-mtu", "size", "9000", "mtu", "9000",
         "Failed to write the MTU to the config file, and "
         "user configurations cannot be persisted.\n",
         "]write cfg error[12292], phy_id[0]\n"},
        {"-mac", "mac", "00:11:22:33:44:55", "mac", "00:11:22:33:44:55",
         "Failed to write the MAC address to config file." + tail + "\n",
         "]Write cfg error. (ret=12292; phy_id=0)\n"},
        {"-udp", "port", "5000", "udp-port", "5000",
         "Failed to write the ROCE port to config file." + tail + ".\n",
         "]write cfg error[12292], phy_id[0]\n"},
    };
    std::filesystem::remove(sb_.conf_path());
    std::filesystem::create_directory(sb_.conf_path());
    for (const auto &c : cases) {
        SCOPED_TRACE(c[0]);
        std::filesystem::remove(sb_.emu_dir() + "/driver.log");
        ProcResult r = run({c[0], "-s", c[1], c[2]});
        EXPECT_EQ(r.status, 4);
        EXPECT_EQ(r.err, c[5] + kWriteFailed);
        EXPECT_EQ(device(c[3]), c[4]);
        EXPECT_NE(sb_.driver_log().find(c[6]), std::string::npos) << sb_.driver_log();
    }
}

class PortReplayTest : public PortCommandsTest
{
  protected:
    void SetUp() override
    {
        for (const auto &[k, v] : sb_.env())
            setenv(k.c_str(), v.c_str(), 1);
    }
    DevRef info_{};
};

TEST_F(PortReplayTest, SavedValuesAreSetAgainAndAbsentKeysAreSuccess)
{
    const std::string state = sb_.emu({"show"}).out;
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_mtu_recovery, info_), 0);
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_mac_addr_recovery, info_), 0);
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_roce_port_recovery, info_), 0);
    EXPECT_EQ(sb_.emu({"show"}).out, state);

    sb_.set_conf("mtu_0=9000\nmac_addr_0=00:11:22:33:44:66\nroce_port_0=5000\nmtu_1=67\n");
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_mtu_recovery, info_), 0);
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_mac_addr_recovery, info_), 0);
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_roce_port_recovery, info_), 0);
    EXPECT_EQ(device("mtu"), "9000");
    EXPECT_EQ(device("mac"), "00:11:22:33:44:66");
    EXPECT_EQ(device("udp-port"), "5000");

    // A saved value that the command would refuse is refused on replay too.
    info_.logic_id = 1;
    info_.phy_id = 1;
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_mtu_recovery, info_), 0x200E);

    // A read matches by prefix and the first line wins: device 10's lines, coming first,
    // answer for device 1.
    sb_.set_conf("mtu_10=9000\nmac_addr_10=00:11:22:33:44:77\nroce_port_10=6000\n"
                 "mtu_1=1500\n");
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_mtu_recovery, info_), 0);
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_mac_addr_recovery, info_), 0);
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_roce_port_recovery, info_), 0);
    EXPECT_EQ(sb_.emu({"get", "1", "mtu"}).out, "9000\n");
    EXPECT_EQ(sb_.emu({"get", "1", "mac"}).out, "00:11:22:33:44:77\n");
    EXPECT_EQ(sb_.emu({"get", "1", "udp-port"}).out, "6000\n");
}

} // namespace
