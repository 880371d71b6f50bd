// vornctl verify: a device reset (kopa-emu wipe) is reported item by item and cured by
// --recover on that device alone; unsaved items are no drift; a saved device that is absent or
// cannot be read is not passed as verified (3, over drift); --recover waits for the setting lock
// like any setting run.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tests/vornctl/ctl_support.hpp"

namespace
{

// Every saved item, as its command saves it, for device `id` (addresses in 10.<id>.0.0/24).
std::vector<std::vector<std::string>> settings_of(int id)
{
    const std::string net = "10." + std::to_string(id) + ".0.";
    return {
        {"-ip", "-s", "address", net + "2", "netmask", "255.255.255.0"},
        {"-gateway", "-s", "gateway", net + "1"},
        {"-netdetect", "-s", "address", net + "100"},
        {"-mtu", "-s", "size", "9000"},
        {"-mac", "-s", "mac", "00:11:22:33:44:5" + std::to_string(id)},
        {"-dscp_to_tc", "-s", "dscp", "46", "tc", "3"},
        {"-generic", "-s", "speed", "100000"},
        {"-generic", "-s", "auto_adapt", "1"},
        {"-shaping", "-s", "bw_limit", "50000"},
        {"-route", "-a", "address", "20.0.0.0", "netmask", "255.0.0.0", "gateway", net + "1"},
        {"-udp", "-s", "port", "5000"},
        {"-arp", "-a", "dev", "eth0", "ip", net + "9", "mac", "00:11:22:33:44:99"},
        {"-pfc", "-s", "bitmap", "0,0,0,1,0,0,0,0"},
        {"-tc_cfg", "-s", "tc_bw", "0,10,10,10,10,10,20,30", "tc_mode", "0,1,1,1,1,1,1,1"},
        {"-prio_tc", "-s", "prio_tc", "0,1,2,3,4,5,6,7"},
        {"-fec", "-s", "mode", "2"},
        {"-send_arp", "-s", "period", "30", "status", "1"},
    };
}

class CtlVerifyTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "8"}};

    // Devices 3 and 5 carry every item, in different groups.
    void SetUp() override
    {
        for (int id : {3, 5}) {
            for (const auto &args : settings_of(id))
                set_on(sb_, id, args);
        }
        sb_.set_conf(sb_.conf() + "ip_rule_3=dir from ip 10.1.0.0 ip_mask 16 table 100\n" +
                     "ip_route_3=ip 30.0.0.0 ip_mask 8 via 10.3.0.1 dev eth0 table 100\n");
        ASSERT_EQ(sb_.tool({"-i", "3", "-cfg", "recovery"}).status, 0);
    }

    std::string status_of(int id) const
    {
        return sb_.tool({"-i", std::to_string(id), "-cfg", "status"}).out;
    }
};

TEST_F(CtlVerifyTest, AWipedDeviceDriftsItemByItem)
{
    ProcResult r = run_ctl(sb_, {"verify"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(r.out, "no drift: 8 device(s) agree with " + sb_.conf_path() + "\n");

    ASSERT_EQ(sb_.emu({"wipe", "3"}).status, 0);
    r = run_ctl(sb_, {"verify"});
    EXPECT_EQ(r.status, 1) << r.err;
    for (const char *line : {
             "dev 3 address: saved 10.3.0.2, device 0.0.0.0\n",
             "dev 3 gateway: saved 10.3.0.1, device none\n",
             "dev 3 netdetect: saved 10.3.0.100, device 0.0.0.0\n",
             "dev 3 mtu: saved 9000, device 1500\n",
             "dev 3 mac_addr: saved 00:11:22:33:44:53, device 00:e0:fc:00:00:03\n",
             "dev 3 dscp_tc: saved 46:3, device 46:5\n",
             "dev 3 static_speed: saved 100000, device 0\n",
             "dev 3 bw_limit: saved 50000, device 100000\n",
             "dev 3 routes: saved address 20.0.0.0 netmask 255.0.0.0 gateway 10.3.0.1, device "
             "none\n",
             "dev 3 roce_port: saved 5000, device 4791\n",
             "dev 3 arp: saved dev eth0 ip 10.3.0.9 mac 00:11:22:33:44:99, device none\n",
             "dev 3 ip_rules: saved dir from ip 10.1.0.0 ip_mask 16 table 100, device none\n",
             "dev 3 ip_routes: saved ip 30.0.0.0 ip_mask 8 via 10.3.0.1 dev eth0 table 100, "
             "device none\n",
             "dev 3 bitmap: saved 0,0,0,1,0,0,0,0, device 0,0,0,0,0,0,0,0\n",
             "dev 3 tc_mode: saved 0,1,1,1,1,1,1,1, device 0,0,0,0,0,0,0,0\n",
             "dev 3 encoding: saved 2, device 1\n",
             "dev 3 send_arp_period: saved 30, device 60\n",
         })
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "in:\n" << r.out;
    EXPECT_EQ(r.out.find("dev 5"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("drift: "), std::string::npos);

    // The same, typed, in JSON.
    r = run_ctl(sb_, {"verify", "--json"});
    EXPECT_EQ(r.status, 1) << r.err;
    const auto doc = nlohmann::json::parse(r.out, nullptr, false);
    ASSERT_FALSE(doc.is_discarded()) << r.out;
    const auto &dev3 = doc["verification"]["devices"][3];
    EXPECT_EQ(dev3["state"], "drift");
    EXPECT_NE(std::find(dev3["differences"].begin(), dev3["differences"].end(),
                        nlohmann::json::parse(R"({"item":"mtu","saved":9000,"live":1500})")),
              dev3["differences"].end())
        << dev3;
    EXPECT_NE(
        std::find(dev3["differences"].begin(), dev3["differences"].end(),
                  nlohmann::json::parse(R"({"item":"gateway","saved":"10.3.0.1","live":null})")),
        dev3["differences"].end())
        << dev3;
    EXPECT_EQ(doc["status"], 1);

    // One device at a time: the other one agrees.
    r = run_ctl(sb_, {"verify", "-i", "5"});
    EXPECT_EQ(r.status, 0) << r.out;
}

TEST_F(CtlVerifyTest, RecoverCuresTheDriftedDeviceOnly)
{
    ASSERT_EQ(sb_.emu({"wipe", "3"}).status, 0);
    const ProcResult r = run_ctl(sb_, {"verify", "--recover"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("dev 3 mtu: saved 9000, device 1500\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("recovery of dev 3: success\n"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("recovery of dev 5"), std::string::npos) << r.out;
    EXPECT_EQ(status_of(3), "config status:SUCCESS\n");
    EXPECT_EQ(status_of(5), "config status:NONE\n") << "a device without drift is left alone";
    EXPECT_EQ(run_ctl(sb_, {"verify"}).status, 0);
    EXPECT_NE(sb_.run_log().find("start to recover drifted config of phy_id[3]"),
              std::string::npos);
}

TEST_F(CtlVerifyTest, UnsavedItemsAreNoDrift)
{
    // Device 1 has nothing saved; device 5 has no saved LLDP, link or host-link settings.
    ASSERT_EQ(sb_.emu({"set", "1", "mtu", "1200"}).status, 0);
    ASSERT_EQ(sb_.emu({"set", "5", "link", "0"}).status, 0);
    ASSERT_EQ(sb_.emu({"set", "5", "vnic-ip", "192.168.1.250"}).status, 0);
    const ProcResult r = run_ctl(sb_, {"verify"});
    EXPECT_EQ(r.status, 0) << r.out;
}

// The firmware keeps one gateway per group: a device agrees only when it holds the saved one.
TEST_F(CtlVerifyTest, AGatewayHeldByAnotherDeviceOfTheGroupIsDrift)
{
    sb_.set_conf(sb_.conf() + "gateway_2=10.3.0.1\n");
    const ProcResult r = run_ctl(sb_, {"verify"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "dev 2 gateway: saved 10.3.0.1, device none (the group's gateway 10.3.0.1 is "
                     "on dev 3)\ndrift: 1 difference(s) on 1 device(s)\n");
}

// A saved device that is absent, unhealthy or not answering is never passed as verified, and
// exits 3 even beside drift elsewhere.
TEST_F(CtlVerifyTest, ADeviceNotVerifiedWinsOverDrift)
{
    ASSERT_EQ(sb_.emu({"set", "5", "health", "3"}).status, 0);
    ProcResult r = run_ctl(sb_, {"verify"});
    EXPECT_EQ(r.status, 3) << r.out;
    EXPECT_NE(r.out.find("dev 5: not verified, health critical alarm\n"), std::string::npos)
        << r.out;
    ASSERT_EQ(sb_.emu({"wipe", "3"}).status, 0);
    r = run_ctl(sb_, {"verify"});
    EXPECT_EQ(r.status, 3) << "drift on dev 3 does not hide dev 5:\n" << r.out;
    EXPECT_NE(r.out.find("drift: "), std::string::npos) << r.out;

    ASSERT_EQ(sb_.emu({"set", "5", "health", "0"}).status, 0);
    ASSERT_EQ(sb_.emu({"fault", "add", "--op", "get_mtu", "--result", "-5"}).status, 0);
    r = run_ctl(sb_, {"verify", "-i", "5"});
    EXPECT_EQ(r.status, 3) << r.out;
    EXPECT_NE(r.out.find("dev 5 mtu: not verified"), std::string::npos) << r.out;

    // Settings saved for ids no device has: a physical id, and a logical one.
    sb_.set_conf(sb_.conf() + "mtu_12=9000\narp_14=dev eth0 ip 10.0.0.9 mac 00:11:22:33:44:99\n");
    r = run_ctl(sb_, {"verify", "-i", "4"});
    EXPECT_EQ(r.status, 0) << "one device: the others are not asked for\n" << r.out;
    r = run_ctl(sb_, {"verify"});
    EXPECT_EQ(r.status, 3) << r.out;
    EXPECT_NE(r.out.find("dev 12: not verified, no device has the physical id\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("logical id 14: not verified, no device has the logical id\n"),
              std::string::npos)
        << r.out;
}

TEST_F(CtlVerifyTest, RecoverWaitsForTheSettingLock)
{
    ASSERT_EQ(sb_.emu({"wipe", "3"}).status, 0);
    const std::string lock = sb_.root() + "/run/vorn_tool.lock";
    mkdir((sb_.root() + "/run").c_str(), 0755);
    const int fd = open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    const ProcResult r = run_ctl(sb_, {"verify", "--recover"}, {{"VORN_TEST_LOCK_WAIT_MS", "100"}});
    close(fd);
    EXPECT_EQ(r.status, 4) << r.out;
    EXPECT_NE(r.err.find("vorn_tool is busy, please try again."), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("recovery of dev 3"), std::string::npos);
    EXPECT_EQ(run_ctl(sb_, {"verify"}).status, 1) << "the device was left as it was";
}

} // namespace
