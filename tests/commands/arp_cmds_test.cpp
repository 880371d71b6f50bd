// End-to-end tests of -arp, -send_arp, -fec and -generic through the real tool and the emulator,
// on a host whose physical ids differ from the logical ones: ARP lines are keyed by the logical
// id, the other items by the physical one.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"

namespace
{

const char *kHelpArp =
    "   [-a]        : add an arp entry or replace its mac, keywords in any order \n"
    "       dev %s  : eth port, from eth0 to eth7\n"
    "       ip %s   : ip address, such as x.x.x.x\n"
    "       mac %s  : mac address, such as XX:XX:XX:XX:XX:XX\n"
    "   [-d]        : delete an arp entry, keywords in any order \n"
    "       dev %s  : eth port, from eth0 to eth7\n"
    "       ip %s   : ip address, such as x.x.x.x\n"
    "   [-g]        : get arp table, one entry a line \n";
const char *kHelpFec = "   [-s]        : set fec mode \n"
                       "       mode %d : 0: off, 1: rs-fec, 2: base-r fec\n"
                       "   [-g]        : get fec mode \n";
const char *kHelpGeneric = "   [-s]        : set generic cfg \n"
                           "       speed %d : static speed(Mbit/s): 1000, 10000, 25000, 40000, "
                           "50000, 100000 or 200000; 0: none\n"
                           "       or\n"
                           "       auto_adapt %d : optical auto adapt, 0: disable, 1: enable\n"
                           "   [-g]        : get static speed and optical auto adapt \n";
const char *kHelpSendArp = "   [-s]        : set gratuitous arp, keywords in any order \n"
                           "       period %d : sending period(s), from 1 to 3600\n"
                           "       status %d : 0: off, 1: on\n"
                           "   [-g]        : get gratuitous arp cfg \n";
const std::string kInvalid = "Get invalid parameters!\n";
const std::string kCount = "The total count of input parameters is wrong!\n";
const std::string kDeviceFailed = "Command execute failed!\n";
const std::string kPersist = " to the config file, and user configurations cannot be persisted.\n";

std::string usage(const std::string &cmd, const char *help)
{
    return "[ vorn_tool -i dev_id " + cmd + " ] needs the following parameters:\n" + help + "\n";
}

class ArpCommandsTest : public ::testing::Test
{
  protected:
    // Typed device 5 is logical device 1.
    ToolSandbox sb_{{"--devices", "2", "--phy-ids", "3,5"}};

    /// Runs vorn_tool -i 5 and the words of `line` (separated by single blanks).
    ProcResult run(const std::string &line) const
    {
        std::vector<std::string> args = {"-i", "5"};
        for (size_t pos = 0; pos <= line.size();) {
            const size_t end = std::min(line.find(' ', pos), line.size());
            args.push_back(line.substr(pos, end - pos));
            pos = end + 1;
        }
        return sb_.tool(args);
    }
    std::string device(const std::string &field) const { return sb_.emu({"get", "1", field}).out; }
    void fault(const std::string &op, const std::string &result) const
    {
        ASSERT_EQ(sb_.emu({"fault", "add", "--op", op, "--result", result}).status, 0);
    }
};

TEST_F(ArpCommandsTest, EntriesAndTheirLinesStayInStep)
{
    // Lines of other devices, one of whose keys begins like this device's, stay as they are.
    const std::string others = "arp_11=dev eth0 ip 10.0.0.5 mac 00:00:00:00:00:11\n"
                               "arp_0=dev eth0 ip 10.0.0.5 mac 00:00:00:00:00:01\n";
    sb_.set_conf(others);
    struct Step {
        std::string line, lines, table;
    };
    const std::string a5 = "arp_1=dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:aa\n";
    const std::string b5 = "arp_1=dev eth1 ip 10.0.0.5 mac 00:11:22:33:44:bb\n";
    const std::string a55 = "arp_1=dev eth0 ip 10.0.0.55 mac 00:11:22:33:44:cc\n";
    const std::string c5 = "arp_1=dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:dd\n";
    const std::string t_a5 = "eth0 10.0.0.5 00:11:22:33:44:aa\n";
    const std::string t_b5 = "eth1 10.0.0.5 00:11:22:33:44:bb\n";
    const std::string t_a55 = "eth0 10.0.0.55 00:11:22:33:44:cc\n";
    const std::string t_c5 = "eth0 10.0.0.5 00:11:22:33:44:dd\n";
    const Step steps[] = {
        {"-a dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:AA", a5, t_a5},
        {"-a ip 10.0.0.5 dev eth1 mac 00:11:22:33:44:bb", a5 + b5, t_a5 + t_b5},
        {"-a mac 00:11:22:33:44:cc dev eth0 ip 10.0.0.55", a5 + b5 + a55, t_a5 + t_b5 + t_a55},
        // A present entry: its MAC is replaced and its line moves to the end.
        {"-a dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:dd", b5 + a55 + c5, t_c5 + t_b5 + t_a55},
        {"-d ip 10.0.0.5 dev eth1", a55 + c5, t_c5 + t_a55},
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(s.line);
        ProcResult r = run("-arp " + s.line);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out + r.err, "");
        EXPECT_EQ(sb_.conf(), others + s.lines);
        EXPECT_EQ(device("arp"), s.table);
    }
    EXPECT_EQ(run("-arp -g").out, "ip 10.0.0.5 dev eth0 lladdr 00:11:22:33:44:dd\n"
                                  "ip 10.0.0.55 dev eth0 lladdr 00:11:22:33:44:cc\n");
    EXPECT_EQ(sb_.emu({"get", "0", "arp"}).out, "\n");

    // The audit never shows the port, address or MAC.
    const std::string log = sb_.run_log();
    EXPECT_EQ(log.find("10.0.0.5"), std::string::npos);
    EXPECT_EQ(log.find("eth0"), std::string::npos);
    for (const char *masked : {"parse [6]th argv[********]", "parse [8]th argv[********]",
                               "parse [10]th argv[********]"})
        EXPECT_NE(log.find(masked), std::string::npos) << masked;
}

// The device lost an entry (a reset) that the file still holds: the delete removes the line.
// An entry that neither holds is refused.
TEST_F(ArpCommandsTest, DeleteOfAnEntryTheDeviceLacks)
{
    sb_.set_conf("arp_1=dev eth2 ip 10.0.0.7 mac 00:11:22:33:44:55\n");
    ProcResult r = run("-arp -d dev eth2 ip 10.0.0.7");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(sb_.conf(), "");

    r = run("-arp -d dev eth2 ip 10.0.0.7");
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.err, "No arp entry of ip 10.0.0.7 on eth2!\n");
}

// A delete whose reply broke is read back; a table that cannot be read says nothing, and the
// entry and its line stay.
TEST_F(ArpCommandsTest, BrokenDeleteWithAnUnreadableTableKeepsTheLine)
{
    ASSERT_EQ(run("-arp -a dev eth0 ip 10.0.0.9 mac 00:11:22:33:44:55").status, 0);
    const std::string saved = sb_.conf();
    ASSERT_EQ(sb_.emu({"fault", "add", "--func", "kopa_cmd_get_network_device_info", "--result",
                       "-5", "--count", "2"})
                  .status,
              0);
    ProcResult r = run("-arp -d dev eth0 ip 10.0.0.9");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(sb_.conf(), saved);
    EXPECT_NE(device("arp").find("10.0.0.9"), std::string::npos);
}

TEST_F(ArpCommandsTest, SettingsReachDeviceFileAndGet)
{
    struct Case {
        std::string set, field, state, saved, shown;
    };
    const std::string gen = "optical auto adapt: disabled\n";
    const std::string saved = "encoding_5=2\nauto_adapt_5=1\nstatic_speed_5=0\n";
    const Case cases[] = {
        {"-fec -s mode 0", "fec", "0", "encoding_5=0\n", "fec mode: off\n"},
        {"-fec -s mode 2", "fec", "2", "encoding_5=2\n", "fec mode: base-r fec\n"},
        {"-generic -s speed 25000", "speed", "25000", "encoding_5=2\nstatic_speed_5=25000\n",
         "static speed: 25000 Mbit/s\n" + gen},
        {"-generic -s auto_adapt 1", "auto-adapt", "1",
         "encoding_5=2\nstatic_speed_5=25000\nauto_adapt_5=1\n",
         "static speed: 25000 Mbit/s\noptical auto adapt: enabled\n"},
        {"-generic -s speed 0", "speed", "0", saved,
         "static speed: none\noptical auto adapt: enabled\n"},
        // Keywords in any order.
        {"-send_arp -s status 1 period 30", "garp-period", "30",
         saved + "send_arp_period_5=30\nsend_arp_status_5=1\n",
         "gratuitous arp status: on\ngratuitous arp period: 30s\ngratuitous arp ip: 0.0.0.0\n"
         "gratuitous arp mac: 00:e0:fc:00:00:01\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.set);
        ProcResult set = run(c.set);
        EXPECT_EQ(set.status, 0) << set.err;
        EXPECT_EQ(set.out + set.err, "");
        EXPECT_EQ(device(c.field), c.state + "\n");
        EXPECT_EQ(sb_.conf(), c.saved);
        EXPECT_EQ(run(c.set.substr(0, c.set.find(' ')) + " -g").out, c.shown);
    }
    EXPECT_EQ(sb_.emu({"get", "0", "fec"}).out, "1\n");
}

TEST_F(ArpCommandsTest, RefusedCommandLinesLeaveDeviceAndFileAlone)
{
    struct Case {
        std::string line;
        int status;
        std::string err;
    };
    const std::string arp = usage("-arp", kHelpArp), fec = usage("-fec", kHelpFec);
    const std::string gen = usage("-generic", kHelpGeneric);
    const std::string garp = usage("-send_arp", kHelpSendArp);
    auto bad = [](const std::string &value, const std::string &word, const std::string &expected) {
        return "The value \"" + value + "\" of " + word + " is invalid, expected " + expected +
               ".\n" + kInvalid;
    };
    const std::string modes = "0 (off), 1 (rs-fec) or 2 (base-r fec)";
    const std::string speeds = "0 (none), 1000, 10000, 25000, 40000, 50000, 100000 or 200000";
    const std::string seconds = "a number of seconds from 1 to 3600";
    const std::string add = "-arp -a dev eth0 ip 10.0.0.5 ";
    const std::string unicast = "a unicast IPv4 address such as 10.0.0.5";
    const std::string unicast_mac = "a unicast MAC address such as 00:11:22:33:44:55";
    auto bad_ip = [&](const std::string &ip) {
        return Case{"-arp -a dev eth0 ip " + ip + " mac 00:11:22:33:44:55", 1,
                    bad(ip, "ip", unicast) + arp};
    };
    const Case cases[] = {
        {"-arp -a dev eth8 ip 10.0.0.5 mac 00:11:22:33:44:55", 1,
         bad("eth8", "dev", "eth0 to eth7") + arp},
        bad_ip("10.0.0.256"),
        {"-arp -a ip 010.0.0.5 dev eth0 mac 00:11:22:33:44:55", 1,
         bad("010.0.0.5", "ip", unicast) + arp},
        // No neighbour has these addresses or MACs, though the shared checkers take them.
        bad_ip("0.0.0.0"),
        bad_ip("255.255.255.255"),
        bad_ip("127.0.0.1"),
        bad_ip("224.0.0.1"),
        bad_ip("239.1.1.1"),
        {add + "mac 01:00:5e:00:00:01", 1, bad("01:00:5e:00:00:01", "mac", unicast_mac) + arp},
        {add + "mac 03:11:22:33:44:55", 1, bad("03:11:22:33:44:55", "mac", unicast_mac) + arp},
        {add + "mac FF:FF:FF:FF:FF:FF", 1, bad("FF:FF:FF:FF:FF:FF", "mac", unicast_mac) + arp},
        {add + "mac 00:00:00:00:00:00", 1, bad("00:00:00:00:00:00", "mac", unicast_mac) + arp},
        {add + "mac 00-11-22-33-44-55", 1, bad("00-11-22-33-44-55", "mac", unicast_mac) + arp},
        {add + "lladdr 00:11:22:33:44:55", 3,
         "Get unknown option \"lladdr\", do you mean dev, ip or mac\n" + arp},
        {"-arp -a dev eth0 dev eth1 ip 10.0.0.5", 1,
         "The keyword dev is given more than once.\n" + kInvalid + arp},
        {"-arp -a dev eth0 ip 10.0.0.5", 5, kCount + arp},
        {"-arp -d dev eth0 mac 00:11:22:33:44:55", 3,
         "Get unknown option \"mac\", do you mean dev or ip\n" + arp},
        {"-arp -d dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:55", 5, kCount + arp},
        {"-fec -s mode 3", 1, bad("3", "mode", modes) + fec},
        {"-fec -s mode 01", 1, bad("01", "mode", modes) + fec},
        {"-fec -s Mode 1", 3, "Get unknown option, do you mean mode\n" + fec},
        {"-generic -s speed 12345", 1, bad("12345", "speed", speeds) + gen},
        {"-generic -s speed 0100000", 1, bad("0100000", "speed", speeds) + gen},
        {"-generic -s speed -1000", 1, bad("-1000", "speed", speeds) + gen},
        {"-generic -s auto_adapt 2", 1, bad("2", "auto_adapt", "0 (disable) or 1 (enable)") + gen},
        {"-generic -s rate 1000", 3, "Get unknown option, do you mean speed or auto_adapt\n" + gen},
        {"-send_arp -s period 0 status 1", 1, bad("0", "period", seconds) + garp},
        {"-send_arp -s period 3601 status 1", 1, bad("3601", "period", seconds) + garp},
        {"-send_arp -s period 00030 status 1", 1, bad("00030", "period", seconds) + garp},
        {"-send_arp -s period 0030 status 1", 1, bad("0030", "period", seconds) + garp},
        {"-generic -s speed 01000", 1, bad("01000", "speed", speeds) + gen},
        {"-send_arp -s period 30 status on", 1, bad("on", "status", "0 (off) or 1 (on)") + garp},
        {"-send_arp -s period 30 state 1", 3,
         "Get unknown option \"state\", do you mean period or status\n" + garp},
        {"-send_arp -s period 30", 5, kCount + garp},
    };
    const std::string state = sb_.emu({"show"}).out;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.line);
        ProcResult r = run(c.line);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(sb_.conf(), "");
        EXPECT_EQ(sb_.emu({"show"}).out, state);
    }
}

TEST_F(ArpCommandsTest, DeviceRefusalSavesNothing)
{
    const std::string add = "-arp -a dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:55";
    const std::string cases[][4] = {
        {"add_arp_entry", "-5", add, kDeviceFailed},
        {"add_arp_entry", "5000", add,
         "Arp entries reach max! Can not add anymore!\n" + kDeviceFailed},
        {"set_fec_info", "-13", "-fec -s mode 0",
         "permission denied: pls check this cmd run permission.\n" + kDeviceFailed},
        {"set_generic_info", "-5", "-generic -s speed 1000", kDeviceFailed},
        {"set_optical_auto_adapt", "-5", "-generic -s auto_adapt 1", kDeviceFailed},
        {"set_gratuitous_arp_info", "-5", "-send_arp -s period 5 status 1", kDeviceFailed},
    };
    const std::string state = sb_.emu({"show"}).out;
    for (const auto &c : cases) {
        SCOPED_TRACE(c[0] + " " + c[1]);
        fault(c[0], c[1]);
        ProcResult r = run(c[2]);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err, c[3]);
        EXPECT_EQ(sb_.conf(), "");
        EXPECT_EQ(sb_.emu({"show"}).out, state);
        ASSERT_EQ(sb_.emu({"fault", "clear"}).status, 0);
    }
}

TEST_F(ArpCommandsTest, SaveFailureReportsItemAndKeepsDeviceChange)
{
    const std::string written =
        "Write file failed, cmd execute failed! pls check cmd run permission.\n";
    const std::string deleted =
        "Delete file failed, cmd execute failed! pls check cmd run permission.\n";
    const std::string cases[][5] = {
        {"-arp -a dev eth0 ip 10.0.0.5 mac 00:11:22:33:44:55", "4",
         "Failed to write the arp entry" + kPersist + written, "arp",
         "eth0 10.0.0.5 00:11:22:33:44:55\n"},
        {"-arp -d dev eth0 ip 10.0.0.5", "7",
         "Failed to delete the arp entry from the config file, and user configurations cannot "
         "be persisted.\n" +
             deleted,
         "arp", "\n"},
        {"-fec -s mode 0", "4", "Failed to write the FEC mode" + kPersist + written, "fec", "0\n"},
        {"-generic -s speed 1000", "4", "Failed to write the static speed" + kPersist + written,
         "speed", "1000\n"},
        {"-generic -s auto_adapt 1", "4",
         "Failed to write the optical auto adapt" + kPersist + written, "auto-adapt", "1\n"},
        {"-send_arp -s period 5 status 1", "4",
         "Failed to write the gratuitous arp cfg" + kPersist + written, "garp-period", "5\n"},
    };
    std::filesystem::remove(sb_.conf_path());
    std::filesystem::create_directory(sb_.conf_path());
    for (const auto &c : cases) {
        SCOPED_TRACE(c[0]);
        ProcResult r = run(c[0]);
        EXPECT_EQ(r.status, std::stoi(c[1]));
        EXPECT_EQ(r.err, c[2]);
        EXPECT_EQ(device(c[3]), c[4]);
    }
}

} // namespace
