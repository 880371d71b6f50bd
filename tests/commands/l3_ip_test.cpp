// End-to-end tests of -ip: the set with its conflict rules, the pruning of saved gateway and
// routes after an address change, and the read-back.
#include "tests/commands/l3_fixture.hpp"

namespace l3
{
namespace
{

class IpCmdTest : public L3Test
{
};

TEST_F(IpCmdTest, SetAcceptsKeysInEitherOrderAndSavesTheTypedText)
{
    set_ip(2, "10.0.0.2", "255.255.255.0");
    EXPECT_EQ(sb_.conf(), "address_2=10.0.0.2\nnetmask_2=255.255.255.0\n");
    EXPECT_EQ(config_lines("Start to set ip address and netmask_ip of logic_id\\[2\\]"), 1);

    ok(2, {"-ip", "-s", "netmask", "255.255.0.0", "address", "10.0.0.3"});
    EXPECT_EQ(sb_.conf(), "address_2=10.0.0.3\nnetmask_2=255.255.0.0\n");
    ProcResult r = run(2, {"-ip", "-g"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "ipaddr:10.0.0.3\nnetmask:255.255.0.0\n");
}

TEST_F(IpCmdTest, EdgeValuesFollowTheAddressAndNetmaskRules)
{
    struct Case {
        const char *address;
        const char *netmask;
        int status;
        const char *err;
    };
    const Case cases[] = {
        // The unset RoCE ports of the group read 0.0.0.0, so it is refused as a conflict first.
        {"0.0.0.0", "255.255.255.0", 8, "The ip address configured is conflicted!\n"},
        {"255.255.255.255", "255.255.255.0", 7, "The IP address is invalid!\n"},
        {"10.0.0.2", "255.255.0.255", 7, "The netmask is invalid!\n"},
        {"192.168.1.5", "255.255.255.0", 8, "The ip address configured is conflicted!\n"},
        {"192.168.1.5", "255.255.0.0", 0, ""},
        {"10.0.0.7", "0.0.0.0", 0, ""},
        {"10.0.0.8", "255.255.255.255", 0, ""},
    };
    for (const Case &c : cases) {
        ProcResult r = run(1, {"-ip", "-s", "address", c.address, "netmask", c.netmask});
        EXPECT_EQ(r.status, c.status) << c.address << "/" << c.netmask;
        EXPECT_EQ(r.err, c.err) << c.address << "/" << c.netmask;
        if (c.status == 0) {
            EXPECT_EQ(run(1, {"-ip", "-g"}).out,
                      std::string("ipaddr:") + c.address + "\nnetmask:" + c.netmask + "\n");
        }
    }
}

TEST_F(IpCmdTest, ConflictsAreCheckedWithinTheGroupOfFourOnly)
{
    set_ip(1, "10.0.0.9", "255.255.255.0");
    ProcResult r = run(0, {"-ip", "-s", "address", "10.0.0.9", "netmask", "255.255.255.0"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.err, "The ip address configured is conflicted!\n");
    EXPECT_EQ(sb_.conf(), "address_1=10.0.0.9\nnetmask_1=255.255.255.0\n");

    set_ip(4, "10.0.0.9", "255.255.255.0");
    set_ip(1, "10.0.0.9", "255.255.255.0"); // its own RoCE address
    // Host-link addresses count on every device of the group, the device's own included.
    EXPECT_EQ(run(0, {"-ip", "-s", "address", "192.168.1.199", "netmask", "255.255.0.0"}).status,
              8);
    EXPECT_EQ(run(0, {"-ip", "-s", "address", "192.168.1.200", "netmask", "255.255.0.0"}).status,
              8);
    set_ip(0, "192.168.1.204", "255.255.0.0"); // host link of device 5, other group
}

TEST_F(IpCmdTest, PcieCardExaminesOnlyItsOwnHostLinkAndUnknownBoardSkipsTheRule)
{
    ToolSandbox pcie({"--devices", "2", "--pcie"});
    auto set = [&pcie](const char *dev, const char *address, const char *netmask) {
        return pcie.tool({"-i", dev, "-ip", "-s", "address", address, "netmask", netmask}).status;
    };
    EXPECT_EQ(set("1", "10.0.0.9", "255.255.255.0"), 0);
    EXPECT_EQ(set("0", "10.0.0.9", "255.255.255.0"), 0);
    EXPECT_EQ(set("0", "192.168.1.199", "255.255.0.0"), 8);
    EXPECT_EQ(set("0", "192.168.1.200", "255.255.0.0"), 0);

    // Without the board id nothing is examined, the reserved segment included.
    ASSERT_EQ(sb_.emu({"fault", "add", "--func", "kopa_get_board_id", "--result", "-5"}).status, 0);
    set_ip(0, "192.168.1.5", "255.255.255.0");
}

TEST_F(IpCmdTest, AddressChangeDropsGatewayAndRoutesOutsideTheNewSegment)
{
    sb_.set_conf("# kept\n"
                 "address_0=10.0.0.2\nnetmask_0=255.255.255.0\ngateway_0=10.0.0.1\n"
                 "route_address_20.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.1\n"
                 "route_address_30.0.0.0_netmask_255.0.0.0_0=gateway_10.1.0.1\n"
                 "route_address_20.0.0.0_netmask_255.0.0.0_1=gateway_10.0.0.1\n");
    set_ip(0, "10.1.0.2", "255.255.255.0");
    EXPECT_EQ(sb_.conf(), "# kept\n"
                          "route_address_30.0.0.0_netmask_255.0.0.0_0=gateway_10.1.0.1\n"
                          "route_address_20.0.0.0_netmask_255.0.0.0_1=gateway_10.0.0.1\n"
                          "address_0=10.1.0.2\nnetmask_0=255.255.255.0\n");
    // The surviving route was replayed onto the device; device 1 was not touched.
    ProcResult r = run(0, {"-route", "-g"});
    EXPECT_NE(r.out.find("30.0.0.0"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("20.0.0.0"), std::string::npos) << r.out;
    EXPECT_EQ(run(1, {"-route", "-g"}).out.find("20.0.0.0"), std::string::npos);
    EXPECT_EQ(run(0, {"-gateway", "-g"}).status, 3);
}

TEST_F(IpCmdTest, AddressChangeInsideTheSegmentReplaysTheSavedGateway)
{
    set_ip(0, "10.0.0.2", "255.255.255.0");
    ok(0, {"-gateway", "-s", "gateway", "10.0.0.1"});
    set_ip(0, "10.0.0.3", "255.255.0.0");
    EXPECT_EQ(sb_.conf(), "gateway_0=10.0.0.1\naddress_0=10.0.0.3\nnetmask_0=255.255.0.0\n");
    EXPECT_EQ(run(0, {"-gateway", "-g"}).out, "default gateway:10.0.0.1, Iface:eth0\n");
}

// Pruning reads the texts as the conflict rule does (inet_addr), before they are validated: a
// text that does not convert reads as 255.255.255.255, and "10.0.0" as 10.0.0.0.
TEST_F(IpCmdTest, RoutesArePrunedEvenWhenTheAddressIsThenRefused)
{
    const std::string r1 = "route_address_20.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.1\n";
    const std::string r2 = "route_address_30.0.0.0_netmask_255.0.0.0_0=gateway_255.255.255.9\n";
    const std::string r3 = "route_address_40.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.2\n";
    const std::string bad_address = "The IP address is invalid!\n";
    const std::string bad_netmask = "The netmask is invalid!\n";
    struct Case {
        std::vector<std::string> args; // after -s
        std::string err, kept;
    };
    const Case cases[] = {
        {{"address", "255.255.255.255", "netmask", "255.255.255.0"}, bad_address, r2},
        {{"address", "1.2.3.4.5", "netmask", "255.255.255.0"}, bad_address, r2},
        {{"address", "10.0.0", "netmask", "255.255.255.0"}, bad_address, r1 + r3},
        {{"address", "10.0.0.2", "netmask", "255.255.255.256"}, bad_netmask, r3},
        // A repeated key keeps its last value and leaves the netmask empty.
        {{"address", "10.0.0.9", "address", "10.0.0.2"}, bad_netmask, r3},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args[1] + " " + c.args[3]);
        sb_.set_conf(r1 + r2 + r3);
        std::vector<std::string> args = {"-ip", "-s"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        ProcResult r = run(0, args);
        EXPECT_EQ(r.status, 7);
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(sb_.conf(), c.kept);
    }
    EXPECT_EQ(run(0, {"-ip", "-g"}).out, "ipaddr:0.0.0.0\nnetmask:0.0.0.0\n");
}

} // namespace
} // namespace l3
