// The replay items of the saved address, gateway, detection address and routes, called in-process
// on a host whose physical ids differ from the logical ones.
#include <cstdlib>

#include "commands/replay.hpp"
#include "tests/commands/l3_fixture.hpp"

namespace l3
{
namespace
{

// The store resolves its file once per process, so every test here shares one sandbox and
// starts from a fresh host and an empty file.
class L3ReplayTest : public ::testing::Test
{
  protected:
    static inline ToolSandbox *shared_ = nullptr;
    const ToolSandbox &sb_ = *shared_;
    DevRef info_{};

    static void SetUpTestSuite()
    {
        shared_ = new ToolSandbox({"--devices", "4", "--phy-ids", "0,1,4,5"});
        for (const auto &[k, v] : shared_->env())
            setenv(k.c_str(), v.c_str(), 1);
    }
    static void TearDownTestSuite()
    {
        delete shared_;
        shared_ = nullptr;
    }
    void SetUp() override
    {
        ASSERT_EQ(sb_.emu({"init", "--devices", "4", "--phy-ids", "0,1,4,5"}).status, 0);
        sb_.set_conf("");
        info_.logic_id = 2;
        info_.phy_id = 4;
    }
    std::string device(const std::string &field) const
    {
        std::string out = sb_.emu({"get", "2", field}).out;
        return out.substr(0, out.find_last_not_of('\n') + 1);
    }
    int32_t replay_all()
    {
        for (auto item : {tool_cfg_ip_recovery, tool_cfg_gateway_recovery,
                          tool_cfg_netdetect_recovery, tool_cfg_route_recovery}) {
            int32_t ret = tool_cfg_replay_now(item, info_);
            if (ret != 0)
                return ret;
        }
        return 0;
    }
};

TEST_F(L3ReplayTest, SavedValuesOfThePhysicalIdAreSetOnTheLogicalDevice)
{
    const std::string state = sb_.emu({"show"}).out;
    EXPECT_EQ(replay_all(), 0);
    EXPECT_EQ(sb_.emu({"show"}).out, state);

    sb_.set_conf("address_2=10.9.9.9\nnetmask_2=255.0.0.0\n"
                 "route_address_40.0.0.0_netmask_255.0.0.0_2=gateway_10.9.9.1\n"
                 "address_4=10.0.0.4\nnetmask_4=255.255.255.0\ngateway_4=10.0.0.1\n"
                 "netdetect_4=10.0.0.50\n"
                 "route_address_20.0.0.0_netmask_255.0.0.0_4=gateway_10.0.0.1\n"
                 "route_address_21.0.0.0_netmask_255.0.0.0_4=gateway_10.0.0.1\n");
    EXPECT_EQ(replay_all(), 0);
    EXPECT_EQ(device("roce-ip"), "10.0.0.4");
    EXPECT_EQ(device("roce-mask"), "255.255.255.0");
    EXPECT_EQ(device("gateway"), "10.0.0.1");
    EXPECT_EQ(device("netdetect"), "10.0.0.50");
    EXPECT_EQ(device("routes"), "20.0.0.0 255.0.0.0 10.0.0.1\n21.0.0.0 255.0.0.0 10.0.0.1");
}

TEST_F(L3ReplayTest, FullRouteTableIsToleratedAndOtherRefusalsFail)
{
    sb_.set_conf("route_address_20.0.0.0_netmask_255.0.0.0_4=gateway_10.0.0.1\n");
    ASSERT_EQ(sb_.emu({"fault", "add", "--op", "add_route_table", "--result", "5000"}).status, 0);
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_route_recovery, info_), 0);
    ASSERT_EQ(sb_.emu({"fault", "clear"}).status, 0);
    ASSERT_EQ(sb_.emu({"fault", "add", "--op", "add_route_table", "--result", "-5"}).status, 0);
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_route_recovery, info_), 0x4001);

    sb_.set_conf("netdetect_4=255.255.255.255\n");
    EXPECT_EQ(tool_cfg_replay_now(tool_cfg_netdetect_recovery, info_), 0x2007);
}

} // namespace
} // namespace l3
