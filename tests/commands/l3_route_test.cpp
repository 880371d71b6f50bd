// End-to-end tests of -route: add, list, delete and clear, the saved lines and their walk.
#include <filesystem>
#include <thread>

#include "tests/commands/l3_fixture.hpp"

namespace l3
{
namespace
{

class RouteCmdTest : public L3Test
{
  protected:
    ProcResult add(int dev, const std::string &a, const std::string &m, const std::string &g) const
    {
        return run(dev, {"-route", "-a", "address", a, "netmask", m, "gateway", g});
    }
    ProcResult del(int dev, const std::string &a, const std::string &m) const
    {
        return run(dev, {"-route", "-d", "address", a, "netmask", m});
    }
};

TEST_F(RouteCmdTest, AddListAndDeleteKeepFirmwareAndFileInStep)
{
    ASSERT_EQ(add(1, "20.0.0.0", "255.0.0.0", "10.0.0.1").status, 0);
    ASSERT_EQ(add(1, "30.1.0.0", "255.255.0.0", "10.0.0.2").status, 0);
    EXPECT_EQ(sb_.conf(), "route_address_20.0.0.0_netmask_255.0.0.0_1=gateway_10.0.0.1\n"
                          "route_address_30.1.0.0_netmask_255.255.0.0_1=gateway_10.0.0.2\n");
    EXPECT_EQ(device(1, "routes"), "20.0.0.0 255.0.0.0 10.0.0.1\n30.1.0.0 255.255.0.0 10.0.0.2");
    EXPECT_EQ(config_lines("start to add route of logic_id\\[1\\]"), 2);

    ProcResult r = run(1, {"-route", "-g"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Routing table:\nDestination     Netmask         Gateway\n"
                     "20.0.0.0        255.0.0.0       10.0.0.1\n"
                     "30.1.0.0        255.255.0.0     10.0.0.2\n");

    r = del(1, "20.0.0.0", "255.0.0.0");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(sb_.conf(), "route_address_30.1.0.0_netmask_255.255.0.0_1=gateway_10.0.0.2\n");
    EXPECT_EQ(device(1, "routes"), "30.1.0.0 255.255.0.0 10.0.0.2");
    EXPECT_EQ(config_lines("start to delete route of logic_id\\[1\\]"), 1);
}

TEST_F(RouteCmdTest, ReAddingASavedRouteNeedsTheSameGateway)
{
    ASSERT_EQ(add(0, "20.0.0.0", "255.0.0.0", "10.0.0.1").status, 0);
    const std::string conf = sb_.conf();
    ProcResult r = add(0, "20.0.0.0", "255.0.0.0", "10.0.0.1");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Route already exist in routing table!\n");
    EXPECT_EQ(sb_.conf(), conf);

    r = add(0, "20.0.0.0", "255.0.0.0", "10.0.0.9");
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.out, "Route already exist in routing table!\n");
    EXPECT_EQ(r.err, "Failed to check the route table in the config file.\n");
    EXPECT_EQ(sb_.conf(), conf);
    EXPECT_EQ(device(0, "routes"), "20.0.0.0 255.0.0.0 10.0.0.1");
}

TEST_F(RouteCmdTest, DefaultRouteAndHostLinkSegmentAreRefused)
{
    ProcResult r = add(0, "0.0.0.0", "0.0.0.0", "10.0.0.1");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "Can not add default route! Please use vorn_tool gateway cfg cmd!\n");
    EXPECT_EQ(r.err, "Get invalid parameters!\n" + usage("-route", kHelpRoute));

    r = add(0, "192.168.1.0", "255.255.255.0", "10.0.0.1");
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.out, "Route address segment is conflict with vnip ip!\n");
    EXPECT_EQ(r.err, "Failed to check the route table in the config file.\n"
                     "The ip address configured is conflicted!\n");
    EXPECT_EQ(sb_.conf(), "");
    EXPECT_EQ(device(0, "routes"), "");
}

TEST_F(RouteCmdTest, ClearEmptiesOnlyThisDevicesSavedLines)
{
    ASSERT_EQ(add(0, "20.0.0.0", "255.0.0.0", "10.0.0.1").status, 0);
    ASSERT_EQ(add(0, "21.0.0.0", "255.0.0.0", "10.0.0.1").status, 0);
    ASSERT_EQ(add(2, "20.0.0.0", "255.0.0.0", "10.0.0.1").status, 0);
    sb_.set_conf("# route_address_1.0.0.0_netmask_255.0.0.0_0=gateway_1.1.1.1\nx\n" + sb_.conf() +
                 "mtu_0=1500\n");
    ok(0, {"-route", "-c"});
    EXPECT_EQ(sb_.conf(), "# route_address_1.0.0.0_netmask_255.0.0.0_0=gateway_1.1.1.1\nx\n"
                          "route_address_20.0.0.0_netmask_255.0.0.0_2=gateway_10.0.0.1\n"
                          "mtu_0=1500\n");
    EXPECT_EQ(config_lines("start to clear route of logic_id\\[0\\]"), 1);
    // The firmware keeps its routes, but the tool only deletes saved ones.
    EXPECT_EQ(device(0, "routes"), "20.0.0.0 255.0.0.0 10.0.0.1\n21.0.0.0 255.0.0.0 10.0.0.1");
    ProcResult r = del(0, "20.0.0.0", "255.0.0.0");
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.err, "Route not exist in routing table, can not delete!\n");
    EXPECT_EQ(device(0, "routes"), "20.0.0.0 255.0.0.0 10.0.0.1\n21.0.0.0 255.0.0.0 10.0.0.1");
}

// The store's key rules reach across devices whose ids share leading digits: a read of device
// 1's route is answered by device 11's line when it comes first, and clearing device 1's routes
// removes every line that contains its key, device 11's included.
TEST_F(RouteCmdTest, KeysOfDeviceOneReachTheSameRouteOfDeviceEleven)
{
    ToolSandbox big({"--devices", "12"});
    auto tool = [&big](const std::string &dev, std::vector<std::string> args) {
        args.insert(args.begin(), {"-i", dev, "-route"});
        return big.tool(args);
    };
    const std::string line1 = "route_address_20.0.0.0_netmask_255.0.0.0_1=gateway_10.0.0.1\n";
    const std::string line11 = "route_address_20.0.0.0_netmask_255.0.0.0_11=gateway_10.0.0.9\n";
    ASSERT_EQ(
        tool("11", {"-a", "address", "20.0.0.0", "netmask", "255.0.0.0", "gateway", "10.0.0.9"})
            .status,
        0);
    ProcResult r =
        tool("1", {"-a", "address", "20.0.0.0", "netmask", "255.0.0.0", "gateway", "10.0.0.1"});
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.out, "Route already exist in routing table!\n");
    EXPECT_EQ(big.conf(), line11);

    big.set_conf(line1 + line11);
    ASSERT_EQ(tool("1", {"-c"}).status, 0);
    EXPECT_EQ(big.conf(), "");
}

TEST_F(RouteCmdTest, MalformedSavedRouteStopsTheWalk)
{
    const std::string conf = "route_address_20.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.1\n"
                             "route_address_21.0.0_netmask_255.0.0.0_0=gateway_10.0.0.1\n"
                             "route_address_22.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.1\n";
    sb_.set_conf(conf);
    ProcResult r = run(0, {"-route", "-c"});
    EXPECT_EQ(r.status, 244); // -ENOMEM
    EXPECT_EQ(r.err, "Clear route table in config file failed.\nCmd execute failed!\n");
    // The lines before the bad one were cleared, the rest kept.
    EXPECT_EQ(sb_.conf(), conf.substr(conf.find('\n') + 1));

    // Lines that parse but are not in the written form could never be deleted by their key.
    for (const char *bad : {"route_address_+20.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.1\n",
                            "route_address_20.0.0.0_netmask_255.0.0.0_00=gateway_10.0.0.1\n",
                            "route_address_20.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.1 x\n"}) {
        sb_.set_conf(bad);
        r = run(0, {"-route", "-c"});
        EXPECT_EQ(r.status, 244) << bad;
        EXPECT_EQ(sb_.conf(), bad);
    }
}

// Every walk (clear, and the pruning of an address change) names a file it cannot resolve in
// its own words.
TEST_F(RouteCmdTest, WalkOfAnUnresolvableFileFails)
{
    const std::string etc = sb_.conf_path().substr(0, sb_.conf_path().rfind('/'));
    std::filesystem::remove_all(etc);
    const std::vector<std::string> cases[] = {
        {"-route", "-c", "Clear route table in config file failed.\n"},
        {"-ip", "-s", "address", "10.0.0.2", "netmask", "255.255.255.0",
         "Failed to check the route network segment in the config file.\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c[0]);
        std::filesystem::remove(sb_.emu_dir() + "/driver.log");
        ProcResult r = run(0, {c.begin(), c.end() - 1});
        EXPECT_EQ(r.status, 2); // 0x3002
        EXPECT_EQ(r.err, c.back() + "Cmd execute failed!\n");
        EXPECT_NE(
            sb_.driver_log().find("]read path_len > PATH_MAX or conf_path is invalid, err[2]\n"),
            std::string::npos)
            << sb_.driver_log();
    }
    EXPECT_EQ(device(0, "roce-ip"), "0.0.0.0");
}

TEST_F(RouteCmdTest, ConcurrentAddsOnTwoDevicesLoseNoSavedLine)
{
    constexpr int kRoutes = 6;
    auto adder = [this](int dev) {
        for (int i = 0; i < kRoutes; ++i) {
            ProcResult r = add(dev, "20." + std::to_string(i) + ".0.0", "255.255.0.0", "10.0.0.1");
            EXPECT_EQ(r.status, 0) << r.err;
        }
    };
    std::thread a(adder, 0);
    std::thread b(adder, 1);
    a.join();
    b.join();
    const std::string conf = sb_.conf();
    for (int dev = 0; dev < 2; ++dev)
        for (int i = 0; i < kRoutes; ++i) {
            std::string line = "route_address_20." + std::to_string(i) +
                               ".0.0_netmask_255.255.0.0_" + std::to_string(dev) +
                               "=gateway_10.0.0.1\n";
            EXPECT_NE(conf.find(line), std::string::npos) << line;
        }
    EXPECT_EQ(std::count(conf.begin(), conf.end(), '\n'), 2 * kRoutes);
}

} // namespace
} // namespace l3
