// Broken replies through the real tool and the emulator: nothing is printed that the device did
// not send, and a set whose reply broke after the device applied it is saved all the same.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"

namespace
{

class PortRepliesTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "2"}};

    ProcResult run(std::vector<std::string> args) const
    {
        args.insert(args.begin(), {"-i", "0"});
        return sb_.tool(args);
    }
    void fault(std::vector<std::string> args) const
    {
        args.insert(args.begin(), {"fault", "add"});
        ASSERT_EQ(sb_.emu(args).status, 0);
    }
    std::string device(const std::string &field) const
    {
        std::string out = sb_.emu({"get", "0", field}).out;
        return out.substr(0, out.find_last_not_of('\n') + 1);
    }
};

// Every query whose answer is a fixed-size record, against an empty and a one-byte-short reply.
TEST_F(PortRepliesTest, ShortRepliesToFixedSizeGetsPrintNothing)
{
    struct Case {
        const char *op;
        int size;
        std::vector<std::string> args;
    };
    const Case cases[] = {
        {"get_mtu", 5, {"-mtu", "-g"}},
        {"get_mac_address", 6, {"-mac", "-g"}},
        {"get_roce_port", 6, {"-udp", "-g"}},
        {"get_netdev_link", 4, {"-link", "-g"}},
        {"get_default_gateway_address", 12, {"-gateway", "-g"}},
        {"get_net_detect_ip_address", 4, {"-netdetect", "-g"}},
        {"get_vnic_status", 4, {"-vnic", "-g"}},
    };
    ASSERT_EQ(sb_.emu({"set", "0", "gateway", "10.0.0.1"}).status, 0);
    for (const Case &c : cases) {
        for (int keep : {0, c.size - 1}) {
            SCOPED_TRACE(std::string(c.op) + " keeping " + std::to_string(keep));
            fault({"--op", c.op, "--short", std::to_string(keep), "--count", "1"});
            ProcResult r = run(c.args);
            EXPECT_EQ(r.status, 1);
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(r.err, "Command execute failed!\n");
        }
        EXPECT_EQ(run(c.args).status, 0) << c.op << " once the fault is spent";
    }
}

// The device applied the set and its reply broke: the tool reads the item back, finds the
// requested value and saves it, so device and file agree.
TEST_F(PortRepliesTest, SetWhoseReplyBrokeAfterTheDeviceAppliedItIsSaved)
{
    struct Case {
        const char *op;
        std::vector<std::string> args;
        const char *field, *value, *line;
    };
    const Case cases[] = {
        {"set_mtu", {"-mtu", "-s", "size", "9000"}, "mtu", "9000", "mtu_0=9000\n"},
        {"set_roce_port", {"-udp", "-s", "port", "5000"}, "udp-port", "5000", "roce_port_0=5000\n"},
        {"set_mac_address",
         {"-mac", "-s", "mac", "00:11:22:33:44:55"},
         "mac",
         "00:11:22:33:44:55",
         "mac_addr_0=00:11:22:33:44:55\n"},
        {"set_net_detect_ip_address",
         {"-netdetect", "-s", "address", "10.0.0.9"},
         "netdetect",
         "10.0.0.9",
         "netdetect_0=10.0.0.9\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.op);
        sb_.set_conf("");
        fault({"--op", c.op, "--frag", "1", "--count", "1"});
        ProcResult r = run(c.args);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(device(c.field), c.value);
        EXPECT_EQ(sb_.conf(), c.line);
    }
}

// The library failed before the firmware saw the set: the read-back finds the old value, the
// set fails, and nothing is saved.
TEST_F(PortRepliesTest, SetThatNeverReachedTheDeviceFailsAndSavesNothing)
{
    fault({"--op", "set_mtu", "--func", "kopa_cmd_get_network_device_info", "--result", "-5",
           "--count", "1"});
    ProcResult r = run({"-mtu", "-s", "size", "9000"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Command execute failed!\n");
    EXPECT_EQ(device("mtu"), "1500");
    EXPECT_EQ(sb_.conf(), "");
}

} // namespace
