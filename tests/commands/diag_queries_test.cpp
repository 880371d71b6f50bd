// End-to-end tests of the read-only diagnostics queries (-optical, -status, -speed, -duplex,
// -version, -process, -pci, -context, -reg, -backpressure, -eth_test) and of the grammar and
// device refusals of every diagnostics command.
#include <regex>
#include <string>
#include <vector>

#include "tests/commands/diag_fixture.hpp"

namespace diag
{
namespace
{

class DiagQueriesTest : public DiagTest
{
};

// Each query shows the device's state in words, after the emulator was set to it.
TEST_F(DiagQueriesTest, QueriesShowTheDeviceStateInWords)
{
    const std::string status = "duplex: full\nfec: base-r fec\nmtu: 9000\nautoneg: off\n"
                               "link flaps: 3\nlast link change: 2026-11-22 02:00:00\n";
    const std::string pci = "pci address: 0000:3d:00.0\nvendor id: 0x1f0e\ndevice id: 0xd802\n"
                            "subsystem: 0x1f0e:0x0100\n";
    const struct {
        std::vector<std::pair<std::string, std::string>> set; // emulator fields
        std::string line, out;
    } cases[] = {
        {{}, "-speed -g", "speed: 200000 Mbit/s\n"},
        {{{"speed", "25000"}}, "-speed -g", "speed: 25000 Mbit/s\n"},
        {{{"link", "0"}}, "-speed -g", "speed: unknown\n"},
        {{{"link", "1"}}, "-duplex -g", "duplex: full\n"},
        {{{"duplex", "0"}}, "-duplex -g", "duplex: half\n"},
        {{{"duplex", "1"},
          {"fec", "2"},
          {"mtu", "9000"},
          {"link-flaps", "3"},
          {"link-change", "1795312800"}},
         "-status -g",
         "link: up\nspeed: 25000 Mbit/s\n" + status},
        {{{"link-change", "0"}},
         "-status -g",
         "link: up\nspeed: 25000 Mbit/s\n" +
             std::regex_replace(status, std::regex("2026-11-22 02:00:00"), "never")},
        {{{"firmware", "7.1\\e[2J\\r.9\\n"}},
         "-version -g",
         "firmware version: 7.1\\x1b[2J\\x0d.9\n"},
        {{}, "-process -g", "no process is running on the device\n"},
        {{{"processes", "4242 2048 trainer"}, {"processes", "77 16 agent"}},
         "-process -g",
         "PID        MEMORY(MiB)  NAME\n4242       2048         trainer\n77         16"
         "           agent\n"},
        {{},
         "-pci -g",
         pci + "link speed: 16 GT/s (gen 4)\nlink width: x16\nmax link speed: 16 GT/s (gen 4)\n"
               "max link width: x16\n"},
        {{{"pci-speed", "3"}, {"pci-width", "8"}},
         "-pci -g",
         pci + "link speed: 8 GT/s (gen 3) (downgraded)\nlink width: x8 (downgraded)\n"
               "max link speed: 16 GT/s (gen 4)\nmax link width: x16\n"},
        {{},
         "-context -g qpn 1",
         "qpn: 1\nstate: RTS\ntype: GSI\ndest qpn: 1\ndest ip: -\npath mtu: 256\n"
         "sq psn: 3635633\nrq psn: 40510\nsq depth: 128\nrq depth: 128\nsq head: 13\n"
         "sq tail: 13\nretry count: 7\nrnr retry: 7\ntraffic class: 106\npriority: 3\n"
         "hop limit: 64\n"},
        {{{"peers", "10.0.0.9 reachable"}},
         "-context -g qpn 263",
         "qpn: 263\nstate: RTS\ntype: RC\ndest qpn: 519\ndest ip: 10.0.0.9\npath mtu: 4096\n"
         "sq psn: 16647383\nrq psn: 10652296\nsq depth: 1024\nrq depth: 1024\nsq head: 347\n"
         "sq tail: 347\nretry count: 7\nrnr retry: 7\ntraffic class: 106\npriority: 3\n"
         "hop limit: 64\n"},
        {{}, "-reg -g offset 0xC", "0x0000000c: 0x00002328\n"},
        {{}, "-reg -g offset 4", "0x00000004: 0x00000001\n"},
        {{{"link", "0"}},
         "-eth_test -g",
         "self-check: FAIL\nregister: pass\nmac loopback: pass\nserdes loopback: pass\n"
         "link: FAIL\noptical module: pass\npcs: FAIL\n"},
        {{{"link", "1"}},
         "-eth_test -g",
         "self-check: PASS\nregister: pass\nmac loopback: pass\nserdes loopback: pass\n"
         "link: pass\noptical module: pass\npcs: pass\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        for (const auto &[field, value] : c.set)
            emu_set(field, value);
        ProcResult r = run(c.line, {{"TZ", "UTC"}});
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.out, c.out);
    }
}

TEST_F(DiagQueriesTest, RegisterDumpListsEveryRegisterByOffset)
{
    ProcResult r = run("-reg -g");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.starts_with("0x00000000: 0x45540003\n0x00000004: 0x00000001\n"));
    EXPECT_NE(r.out.find("\n0x0000000c: 0x000005dc\n"), std::string::npos); // the MTU
    EXPECT_TRUE(std::regex_match(r.out, std::regex("(0x[0-9a-f]{8}: 0x[0-9a-f]{8}\n){64}")));
    // An offset the device does not have is its refusal.
    EXPECT_EQ(run("-reg -g offset 0x10000").err, kDeviceFailed);
}

TEST_F(DiagQueriesTest, OpticalReadingsBeyondTheirThresholdsAreMarked)
{
    emu_set("optical-temp", "72.5");                   // above the 70 C warning
    emu_set("optical-voltage", "3.7");                 // above the 3.63 V alarm
    emu_set("optical-rx-power", "0.75,0.02,0.04,3.1"); // low alarm, low warning, high alarm
    ProcResult r = run("-optical -g");
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char *line : {
             "Identifier                                : 0x11 (QSFP28)\n",
             "Vendor name                               : EMU OPTICS\n",
             "Vendor SN                                 : EMU2311000000\n",
             "Module temperature                        : 72.50 degrees C [high warning]\n",
             "Module voltage                            : 3.7000 V [high alarm]\n",
             "Laser bias current (Channel 1)            : 7.500 mA\n",
             "Transmit avg optical power (Channel 1)    : 0.8000 mW / -0.97 dBm\n",
             "Rcvr signal avg optical power (Channel 1) : 0.7500 mW / -1.25 dBm\n",
             "Rcvr signal avg optical power (Channel 2) : 0.0200 mW / -16.99 dBm [low alarm]\n",
             "Rcvr signal avg optical power (Channel 3) : 0.0400 mW / -13.98 dBm [low warning]\n",
             "Rcvr signal avg optical power (Channel 4) : 3.1000 mW / 4.91 dBm [high alarm]\n",
             "Module temperature high warning threshold : 70.00 degrees C\n",
             "Laser rx power low alarm threshold        : 0.0300 mW / -15.23 dBm\n",
         })
        EXPECT_NE(r.out.find(line), std::string::npos) << line;
    // Every line is a label and a value, for awk -F' : '.
    EXPECT_TRUE(std::regex_match(r.out, std::regex("([A-Za-z ()0-9]{41} : [^\n]+\n){38}")));
    EXPECT_NE(run("-eth_test -g").out.find("optical module: FAIL\n"), std::string::npos);

    emu_set("optical-present", "0");
    EXPECT_EQ(run("-optical -g").out, "Optical module                            : not present\n");
}

TEST_F(DiagQueriesTest, LinkDropsCountAsFlaps)
{
    ASSERT_EQ(run("-link -s down").status, 0);
    emu_set("link", "1");
    emu_set("link", "0");
    ProcResult r = run("-status -g");
    EXPECT_TRUE(r.out.starts_with("link: down\nspeed: unknown\n")) << r.out;
    EXPECT_NE(r.out.find("\nlink flaps: 2\n"), std::string::npos) << r.out;
    // The CDR of each lane lost its lock with the link.
    EXPECT_NE(run("-reg -cdr 3").out.find("\n0     unlocked  2             -3 "),
              std::string::npos);
}

TEST_F(DiagQueriesTest, QueuePairNotInUseIsNamed)
{
    ProcResult r = run("-context -g qpn 5");
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "Queue pair 5 is not in use on the device.\n");
}

// Every refusal of a command's grammar, with its code and the text before the usage.
TEST_F(DiagQueriesTest, GrammarRefusalsNameTheWordAndPrintTheUsage)
{
    const auto bad = [](const std::string &value, const std::string &word,
                        const std::string &expected) {
        return "The value \"" + value + "\" of " + word + " is invalid, expected " + expected +
               ".\n" + kInvalid;
    };
    const std::string qpn = "a queue pair number from 0 to 16777215";
    const std::string offset =
        "a register offset, decimal or 0x hexadecimal, a multiple of 4 below 0x100000000";
    const std::string range =
        "The value of roce context param you input is out of the valid range!\n";
    const struct {
        std::string line;
        int status;
        std::string head;
    } cases[] = {
        {"-stat -s", 0x03, kUnknown},
        {"-stat -g x", 0x05, kCount},
        {"-stat -c x", 0x05, kCount},
        {"-optical -s", 0x03, kUnknown},
        {"-optical -g x", 0x05, kCount},
        {"-status -c", 0x03, kUnknown},
        {"-status -g x", 0x05, kCount},
        {"-speed -s", 0x03, kUnknown},
        {"-speed -g x", 0x05, kCount},
        {"-duplex -s", 0x03, kUnknown},
        {"-duplex -g 1", 0x05, kCount},
        {"-version -c", 0x03, kUnknown},
        {"-version -s 1", 0x05, kCount},
        {"-process -x", 0x03, kUnknown},
        {"-process -g x", 0x05, kCount},
        {"-pci -s", 0x03, kUnknown},
        {"-pci -g x", 0x05, kCount},
        {"-backpressure -c", 0x03, kUnknown},
        {"-backpressure -g x", 0x05, kCount},
        {"-eth_test -s", 0x03, kUnknown},
        {"-eth_test -g -g", 0x05, kCount},
        {"-context -s qpn 1", 0x03, kUnknown},
        {"-context -g", 0x05, kCount},
        {"-context -g qpn", 0x05, kCount},
        {"-context -g qp 1", 0x03, "Get unknown option, do you mean qpn\n"},
        {"-context -g qpn 16777216", 0x0D, range},
        {"-context -g qpn 123456789", 0x0D, range},
        {"-context -g qpn 12a", 0x01, bad("12a", "qpn", qpn)},
        {"-context -g qpn ''", 0x01, bad("", "qpn", qpn)},
        {"-reg -s", 0x03, kUnknown},
        {"-reg -g offset", 0x05, kCount},
        {"-reg -g offset 4 x", 0x05, kCount},
        {"-reg -g at 4", 0x03, "Get unknown option, do you mean offset\n"},
        {"-reg -g offset 0x6", 0x01, bad("0x6", "offset", offset)},
        {"-reg -g offset 0x1G", 0x01, bad("0x1G", "offset", offset)},
        {"-reg -g offset 0x", 0x01, bad("0x", "offset", offset)},
        {"-reg -g offset 0x100000000", 0x01, bad("0x100000000", "offset", offset)},
        {"-reg -cdr", 0x05, kCount},
        {"-reg -cdr 4", 0x01, bad("4", "-cdr", "0, 1, 2 or 3")},
        {"-reg -cdr 01", 0x01, bad("01", "-cdr", "0, 1, 2 or 3")},
        {"-bandwidth -s", 0x03, kUnknown},
        {"-bandwidth -g -t", 0x05, kCount},
        {"-bandwidth -g -t 99", 0x01, bad("99", "-t", "a sampling period from 100 to 10000 ms")},
        {"-bandwidth -g -t 10001", 0x01,
         bad("10001", "-t", "a sampling period from 100 to 10000 ms")},
        {"-bandwidth -g -t 0100", 0x01,
         bad("0100", "-t", "a sampling period from 100 to 10000 ms")},
        {"-bandwidth -g -p 100", 0x03, "Get unknown option, do you mean -t\n"},
        {"-ping -g", 0x05, kCount},
        {"-ping -g address", 0x05, kCount},
        {"-ping -s address 10.0.0.9", 0x03, kUnknown},
        {"-ping -g -c 2", 0x01,
         "The destination address is missing: give address x.x.x.x.\n" + kInvalid},
        {"-ping -g address 10.0.0.256", 0x01,
         bad("10.0.0.256", "address", "an IPv4 address such as 10.0.0.5")},
        {"-ping -g address 10.0.0.9 -s 9001", 0x01,
         bad("9001", "-s", "a packet size from 0 to 9000 bytes")},
        {"-ping -g address 10.0.0.9 -s 5x", 0x01,
         bad("5x", "-s", "a packet size from 0 to 9000 bytes")},
        {"-ping -g address 10.0.0.9 -c 0", 0x01, bad("0", "-c", "a count from 1 to 100")},
        {"-ping -g address 10.0.0.9 -c 101", 0x01, bad("101", "-c", "a count from 1 to 100")},
        {"-ping -g address 10.0.0.9 -c 01", 0x01, bad("01", "-c", "a count from 1 to 100")},
        {"-ping -g address 10.0.0.9 -t 50", 0x01,
         bad("50", "-t", "an interval from 100 to 10000 ms")},
        {"-ping -g address 10.0.0.9 -w 5", 0x03,
         "Get unknown option, do you mean address, -s, -c or -t\n"},
        {"-ping -g address 10.0.0.9 -c 2 -c 3", 0x01, kInvalid},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        ProcResult r = run(c.line);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, c.head + usage(c.line.substr(0, c.line.find(' '))));
    }
}

// Every device read refused by the firmware: the front-end's one line, nothing on standard
// output, and the reason in the driver log.
TEST_F(DiagQueriesTest, DeviceRefusalPrintsNothingAndFails)
{
    emu_set("peers", "10.0.0.9 reachable");
    const struct {
        const char *op, *line;
    } cases[] = {
        {"get_netdev_stat", "-stat -g"},
        {"clear_netdev_stat", "-stat -c"},
        {"get_netdev_stat", "-bandwidth -g -t 100"},
        {"get_optical_info", "-optical -g"},
        {"get_netdev_status", "-status -g"},
        {"get_eth_speed", "-speed -g"},
        {"get_eth_duplex", "-duplex -g"},
        {"get_firmware_version", "-version -g"},
        {"get_device_process", "-process -g"},
        {"get_pci_info", "-pci -g"},
        {"get_roce_context", "-context -g qpn 1"},
        {"get_eth_reg_info", "-reg -g"},
        {"get_network_register", "-reg -g offset 4"},
        {"trig_query_cdr_info", "-reg -cdr 0"},
        {"trig_query_cdr_info", "-reg -cdr 2"},
        {"query_mac_lane_cdr_info", "-reg -cdr 3"},
        {"get_ssu_reg", "-backpressure -g"},
        {"get_eth_test_info", "-eth_test -g"},
        {"ping_fun", "-ping -g address 10.0.0.9 -t 100"},
        {"start_roce_perftest", "-roce_test -s ip 10.0.0.9 -n 5"},
        {"get_roce_perftest_status", "-roce_test -g"},
        {"get_roce_perftest_report", "-roce_test -r"},
        {"stop_roce_perftest", "-roce_test -c"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        const size_t logged = sb_.driver_log().size();
        refuse_once(c.op);
        ProcResult r = run(c.line);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, kDeviceFailed);
        EXPECT_NE(sb_.driver_log().find("fail ret[-1] logic_id[0]", logged), std::string::npos);
    }
    EXPECT_EQ(sb_.emu({"fault", "list"}).out, "");
}

// Replies that claim more bytes than the device sent, or that end inside a record: nothing is
// printed and the command fails as the device's fault.
TEST_F(DiagQueriesTest, UnsentOrCutRepliesPrintNothingAndFail)
{
    emu_set("processes", "4242 2048 trainer");
    emu_set("processes", "77 16 agent");
    const struct {
        const char *op, *fault, *value, *line;
    } cases[] = {
        {"get_device_process", "--data-len", "2001", "-process -g"},
        {"get_device_process", "--short", "10", "-process -g"},
        {"get_eth_reg_info", "--data-len", "2001", "-reg -g"},
        {"get_eth_reg_info", "--short", "10", "-reg -g"},
        {"get_firmware_version", "--data-len", "2001", "-version -g"},
        {"get_arp_table", "--data-len", "2001", "-arp -g"},
        {"get_route_table", "--data-len", "2001", "-route -g"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.line) + " " + c.fault + " " + c.value);
        ASSERT_EQ(sb_.emu({"fault", "add", "--op", c.op, c.fault, c.value, "--count", "1"}).status,
                  0);
        ProcResult r = run(c.line);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, kDeviceFailed);
    }
}

} // namespace
} // namespace diag
