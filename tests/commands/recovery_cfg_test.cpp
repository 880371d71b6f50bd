// -cfg recovery and status through the real tool and the emulator: the device status, the
// order and the stops of the replay, and -a over devices of which one is unhealthy.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"

namespace
{

class RecoveryTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "3"}};

    ProcResult run(int dev, std::vector<std::string> args) const
    {
        args.insert(args.begin(), {"-i", std::to_string(dev)});
        return sb_.tool(args);
    }
    std::string status(int dev) const { return run(dev, {"-cfg", "status"}).out; }
    std::string device(int dev, const std::string &field) const
    {
        std::string out = sb_.emu({"get", std::to_string(dev), field}).out;
        return out.substr(0, out.find_last_not_of('\n') + 1);
    }
};

TEST_F(RecoveryTest, EmptyFileRecoversWithStatusSuccessAndMissingFileFailsBeforeStart)
{
    EXPECT_EQ(status(0), "config status:NONE\n");
    ProcResult r = run(0, {"-cfg", "recovery"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(status(0), "config status:SUCCESS\n");

    std::remove(sb_.conf_path().c_str());
    r = run(1, {"-cfg", "recovery"});
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "The config file does not exist. Failed to recover the configuration.\n"
                     "Cmd execute failed!\n");
    EXPECT_EQ(status(1), "config status:NONE\n");
}

TEST_F(RecoveryTest, SavedItemsComeBackAfterAReset)
{
    ASSERT_EQ(run(0, {"-ip", "-s", "address", "10.0.0.2", "netmask", "255.255.255.0"}).status, 0);
    ASSERT_EQ(run(0, {"-mtu", "-s", "size", "9000"}).status, 0);
    ASSERT_EQ(run(0, {"-route", "-a", "address", "20.0.0.0", "netmask", "255.0.0.0", "gateway",
                      "10.0.0.1"})
                  .status,
              0);
    ASSERT_EQ(sb_.emu({"init", "--devices", "3"}).status, 0);
    ASSERT_EQ(device(0, "mtu"), "1500");
    ProcResult r = run(0, {"-cfg", "recovery"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(device(0, "mtu"), "9000");
    EXPECT_EQ(device(0, "roce-ip"), "10.0.0.2");
    EXPECT_NE(device(0, "routes").find("20.0.0.0"), std::string::npos) << device(0, "routes");
    EXPECT_EQ(status(0), "config status:SUCCESS\n");
}

// The first failing item stops the device: the items after it are not replayed. The item's code
// is the run's: an item applied through a device operation returns the device's own code.
TEST_F(RecoveryTest, FailingItemLeavesLaterItemsUnappliedAndStatusFail)
{
    struct Case {
        std::string op, result;
        int status;
        std::string err, mac, log;
    };
    const Case cases[] = {
        {"set_mtu", "-1", 1, "Command execute failed!\n", "00:e0:fc:00:00:00",
         "recover cfg fail\\[16385\\] phy_id\\[0\\]\n.*\\]failed recovery item: "
         "tool_cfg_mtu_recovery\n"},
        {"set_dscp_map", "-5", 251, "Cmd execute failed!\n", "00:11:22:33:44:55",
         "recover cfg fail\\[-5\\] phy_id\\[0\\]\n.*\\]failed recovery item: "
         "tool_cfg_dscp_recovery\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.op);
        ASSERT_EQ(sb_.emu({"init", "--devices", "3"}).status, 0);
        std::remove((sb_.emu_dir() + "/driver.log").c_str());
        sb_.set_conf(
            "mtu_0=9000\nmac_addr_0=00:11:22:33:44:55\ndscp_tc_0=10:3\nroce_port_0=5000\n");
        ASSERT_EQ(sb_.emu({"fault", "add", "--op", c.op, "--result", c.result}).status, 0);
        ProcResult r = run(0, {"-cfg", "recovery"});
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(device(0, "mac"), c.mac);
        EXPECT_EQ(device(0, "udp-port"), "4791");
        EXPECT_EQ(status(0), "config status:FAIL\n");
        const std::string drv = sb_.driver_log();
        EXPECT_TRUE(std::regex_search(drv, std::regex(c.log))) << drv;
        ASSERT_EQ(sb_.emu({"fault", "clear"}).status, 0);
    }
}

TEST_F(RecoveryTest, AllDevicesGoOnPastAnUnhealthyOne)
{
    sb_.set_conf("mtu_0=9000\nmtu_1=9000\nmtu_2=9000\n");
    ASSERT_EQ(sb_.emu({"set", "1", "health", "2"}).status, 0);
    ProcResult r = sb_.tool({"-a", "-cfg", "recovery"});
    EXPECT_EQ(r.status, 1); // 0x4001
    EXPECT_EQ(r.out, "dev:0 recovery success\ndev:2 recovery success\n");
    EXPECT_EQ(r.err, "Command execute failed!\n");
    EXPECT_EQ(device(0, "mtu"), "9000");
    EXPECT_EQ(device(1, "mtu"), "1500");
    EXPECT_EQ(device(2, "mtu"), "9000");
}

TEST_F(RecoveryTest, NoDeviceIsSaidOnStandardErrorYetIsNoFailure)
{
    sb_.set_conf("mtu_0=9000\n");
    ASSERT_EQ(sb_.emu({"init", "--devices", "0"}).status, 0);
    ProcResult r = sb_.tool({"-a", "-cfg", "recovery"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "No device was found: no configuration was recovered.\n");
}

// Into a pipe (the journal, say), each device's line arrives as that device is done.
TEST_F(RecoveryTest, EachDeviceLineArrivesThroughAPipeAsItIsDone)
{
    // Each status write of the second device waits half a second.
    ASSERT_EQ(
        sb_.emu({"fault", "add", "--delay-ms", "500", "--op", "set_cfg_status", "--count", "4"})
            .status,
        0);
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        (void)dup2(out[1], STDOUT_FILENO);
        for (const auto &[key, value] : sb_.env())
            (void)setenv(key.c_str(), value.c_str(), 1);
        execl(vorn_tool_bin(), vorn_tool_bin(), "-a", "-cfg", "recovery", nullptr);
        _exit(127);
    }
    close(out[1]);
    std::string first;
    char c;
    while (read(out[0], &c, 1) == 1 && c != '\n')
        first += c;
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, WNOHANG), 0) << "the line came only at the end";
    EXPECT_EQ(first, "dev:0 recovery success");
    while (read(out[0], &c, 1) == 1) {
    }
    close(out[0]);
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(RecoveryTest, OperationWordsAndCounts)
{
    const std::string usage_all = "[ vorn_tool -a dev_id -cfg ] needs the following parameters:\n"
                                  "   [recovery]  : recover the saved cfg of all devices \n\n";
    ProcResult r = sb_.tool({"-a", "-cfg", "status"});
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "Get unknown option, do you mean recovery\n" + usage_all);
    EXPECT_EQ(run(0, {"-cfg", "Recovery"}).status, 3);
    EXPECT_EQ(run(0, {"-cfg"}).status, 5);
    EXPECT_EQ(run(0, {"-cfg", "recovery", "now"}).status, 5);
    EXPECT_EQ(run(0, {"-cfg", "status", "now"}).status, 5);
    ASSERT_EQ(sb_.emu({"set", "2", "cfg-status", "7"}).status, 0);
    EXPECT_EQ(status(2), "config status:FAULT\n");
}

} // namespace
