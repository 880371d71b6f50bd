// End-to-end tests of -gateway (one gateway per group, file kept in step with the firmware) and
// -netdetect.
#include <algorithm>

#include "tests/commands/l3_fixture.hpp"

namespace l3
{
namespace
{

class GatewayCmdTest : public L3Test
{
  protected:
    void SetUp() override
    {
        set_ip(0, "10.0.0.2", "255.255.255.0");
        set_ip(1, "10.0.0.3", "255.255.255.0");
    }
    ProcResult set_gw(int dev, const std::string &gw) const
    {
        return run(dev, {"-gateway", "-s", "gateway", gw});
    }
    long count_op(const std::vector<std::string> &ops, const std::string &op) const
    {
        return std::count(ops.begin(), ops.end(), op);
    }
};

TEST_F(GatewayCmdTest, RefusedOnADeviceWithoutSavedAddress)
{
    const std::string conf = sb_.conf();
    ProcResult r = set_gw(2, "10.0.0.1");
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "Failed to read the address from the config file.\n");
    EXPECT_EQ(sb_.conf(), conf);
    EXPECT_EQ(config_lines("Start to set default gateway address of logic_id\\[2\\]"), 1);
    r = run(2, {"-gateway", "-g"});
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "Get gateway failed, because no gateway was preset there!\n");
}

TEST_F(GatewayCmdTest, RefusedOutsideTheSavedSegment)
{
    ProcResult r = set_gw(0, "10.0.1.1");
    EXPECT_EQ(r.status, 9);
    EXPECT_EQ(r.err, "The segment of configured gateway doesn't match that of the configured ip "
                     "adress!\n");
    EXPECT_EQ(sb_.conf().find("gateway"), std::string::npos);
}

TEST_F(GatewayCmdTest, MovesBetweenDevicesOfAGroupWithOneSetAndOneDelete)
{
    ASSERT_EQ(set_gw(0, "10.0.0.1").status, 0);
    EXPECT_EQ(run(1, {"-gateway", "-g"}).out, "default gateway:10.0.0.1, Iface:eth0\n");

    journal_restart();
    ProcResult r = set_gw(1, "10.0.0.254");
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<std::string> ops = journal_ops();
    EXPECT_EQ(count_op(ops, "1:3"), 1); // set on the new holder
    EXPECT_EQ(count_op(ops, "0:4"), 1); // delete on the old one
    EXPECT_EQ(count_op(ops, "0:3") + count_op(ops, "1:4"), 0);
    EXPECT_LT(std::find(ops.begin(), ops.end(), "1:3"), std::find(ops.begin(), ops.end(), "0:4"));

    EXPECT_EQ(sb_.conf(), "address_0=10.0.0.2\nnetmask_0=255.255.255.0\n"
                          "address_1=10.0.0.3\nnetmask_1=255.255.255.0\n"
                          "gateway_1=10.0.0.254\n");
    EXPECT_EQ(run(0, {"-gateway", "-g"}).out, "default gateway:10.0.0.254, Iface:eth1\n");
    // The other group is not affected.
    EXPECT_EQ(run(4, {"-gateway", "-g"}).status, 3);
}

// A deletion removes every line that contains the key: a route whose saved value
// "gateway_10.0.0.9" contains the key of device 1's gateway goes with it.
TEST_F(GatewayCmdTest, RemovingADevicesGatewayKeyTakesRoutesThatContainIt)
{
    ok(0, {"-route", "-a", "address", "20.0.0.0", "netmask", "255.0.0.0", "gateway", "10.0.0.9"});
    ASSERT_EQ(set_gw(1, "10.0.0.1").status, 0);
    ASSERT_EQ(set_gw(0, "10.0.0.5").status, 0);
    EXPECT_EQ(sb_.conf(), "address_0=10.0.0.2\nnetmask_0=255.255.255.0\n"
                          "address_1=10.0.0.3\nnetmask_1=255.255.255.0\n"
                          "gateway_0=10.0.0.5\n");
}

TEST_F(GatewayCmdTest, SameGatewayTwiceMakesNoSecondFirmwareSet)
{
    ASSERT_EQ(set_gw(0, "10.0.0.1").status, 0);
    journal_restart();
    ASSERT_EQ(set_gw(0, "10.0.0.1").status, 0);
    std::vector<std::string> ops = journal_ops();
    EXPECT_EQ(count_op(ops, "0:3") + count_op(ops, "0:4"), 0);
    EXPECT_EQ(sb_.conf(), "address_0=10.0.0.2\nnetmask_0=255.255.255.0\n"
                          "address_1=10.0.0.3\nnetmask_1=255.255.255.0\n"
                          "gateway_0=10.0.0.1\n");
}

TEST_F(GatewayCmdTest, StaleSavedGatewayIsRepairedAtTheNextSet)
{
    // A saved key whose firmware gateway has vanished.
    sb_.set_conf(sb_.conf() + "gateway_1=10.0.0.1\n");
    ASSERT_EQ(set_gw(0, "10.0.0.5").status, 0);
    EXPECT_EQ(sb_.conf(), "address_0=10.0.0.2\nnetmask_0=255.255.255.0\n"
                          "address_1=10.0.0.3\nnetmask_1=255.255.255.0\n"
                          "gateway_0=10.0.0.5\n");

    // A firmware gateway the file does not know is written to its holder's section first, then
    // moved like any other.
    ASSERT_EQ(set_gw(1, "10.0.0.6").status, 0);
    sb_.set_conf("address_0=10.0.0.2\nnetmask_0=255.255.255.0\n");
    journal_restart();
    ASSERT_EQ(set_gw(0, "10.0.0.7").status, 0);
    EXPECT_EQ(count_op(journal_ops(), "1:4"), 1);
    EXPECT_EQ(sb_.conf(), "address_0=10.0.0.2\nnetmask_0=255.255.255.0\ngateway_0=10.0.0.7\n");
}

TEST_F(GatewayCmdTest, UnknownOptionTextsDifferBetweenGatewayAndNetdetect)
{
    ProcResult r = run(0, {"-gateway", "-x"});
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "Get unknown option!\n" + usage("-gateway", kHelpGateway));
    r = run(0, {"-netdetect", "-x"});
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "Get unknown option.\n" + usage("-netdetect", kHelpNetdetect));
}

TEST_F(GatewayCmdTest, NetdetectAcceptsZeroAndRefusesBroadcast)
{
    ok(3, {"-netdetect", "-s", "address", "0.0.0.0"});
    ok(3, {"-netdetect", "-s", "address", "172.16.0.9"});
    EXPECT_EQ(config_lines("Start to set net detect ip of logic_id\\[3\\]"), 2);
    EXPECT_EQ(run(3, {"-netdetect", "-g"}).out, "netdetect address: 172.16.0.9\n");

    const std::string conf = sb_.conf();
    ProcResult r = run(3, {"-netdetect", "-s", "address", "255.255.255.255"});
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.err, "The IP address is invalid!\n");
    EXPECT_EQ(sb_.conf(), conf);
    EXPECT_NE(conf.find("netdetect_3=172.16.0.9\n"), std::string::npos);
    EXPECT_EQ(run(3, {"-netdetect", "-g"}).out, "netdetect address: 172.16.0.9\n");
}

} // namespace
} // namespace l3
