// The replay items of the saved DSCP map, shaper, PFC priorities, traffic classes and priority
// map, called in-process on a host whose physical ids differ from the logical ones.
#include <cstdlib>
#include <string>

#include "commands/replay.hpp"
#include "tests/commands/qos_fixture.hpp"

namespace qos
{
namespace
{

using Item = int32_t (*)(DevRef);
constexpr Item kItems[] = {tool_cfg_dscp_recovery, tool_cfg_shaping_recovery, tool_cfg_pfc_recovery,
                           tool_tc_cfg_recovery, tool_cfg_prio_tc_recovery};

// The store resolves its file once per process, so every test here shares one sandbox and
// starts from a fresh host and an empty file.
class QosReplayTest : public ::testing::Test
{
  protected:
    static inline ToolSandbox *shared_ = nullptr;
    const ToolSandbox &sb_ = *shared_;
    const DevRef dev_{2, 4};
    std::string fresh_;

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
        reinit();
        sb_.set_conf("");
        fresh_ = qos_state(sb_, 4);
    }
    void reinit() const
    {
        ASSERT_EQ(sb_.emu({"init", "--devices", "4", "--phy-ids", "0,1,4,5"}).status, 0);
    }
};

TEST_F(QosReplayTest, WhatTheCommandsSavedIsSetAgainOnAFreshDevice)
{
    for (const char *set :
         {"-dscp_to_tc -s dscp 46 tc 0", "-dscp_to_tc -s dscp 0 tc 7", "-shaping -s bw_limit 25000",
          "-pfc -s bitmap 0,0,0,1,1,0,0,0", "-prio_tc -s prio_tc 0,1,2,3,4,5,6,6",
          "-tc_cfg -s tc_bw 0,20,20,20,20,20,0,0 tc_mode 0,1,1,1,1,1,0,0"})
        ASSERT_EQ(run(sb_, 4, set).status, 0) << set;
    const std::string configured = qos_state(sb_, 4);
    reinit();
    ASSERT_EQ(qos_state(sb_, 4), fresh_);
    for (Item item : kItems)
        EXPECT_EQ(item(dev_), 0);
    EXPECT_EQ(qos_state(sb_, 4), configured);
    EXPECT_EQ(qos_state(sb_, 5), fresh_);
}

// Nothing to replay, and success: absent lines, another device's, a traffic-class configuration
// without its modes, and values longer than their replay buffers, which no command saves.
TEST_F(QosReplayTest, LinesThatCannotBeReadAreNothingToReplay)
{
    sb_.set_conf("dscp_tc_5=1:1\ntc_bw_4=100,0,0,0,0,0,0,0\nbitmap_4=0,0,0,1,0,0,0,0,0\n"
                 "prio_tc_4=0,1,2,3,4,5,6,77\nbw_limit_4=1000000\n");
    for (Item item : kItems)
        EXPECT_EQ(item(dev_), 0);
    EXPECT_EQ(qos_state(sb_, 4), fresh_);
}

TEST_F(QosReplayTest, SavedValuesTheCommandsWouldRefuseFailBeforeAnythingIsSent)
{
    const struct {
        std::string conf;
        Item item;
        int32_t code;
    } cases[] = {
        {"dscp_tc_4=10:3,10:4\n", tool_cfg_dscp_recovery, 0x2001},
        {"dscp_tc_4=10:3,64:1\n", tool_cfg_dscp_recovery, 0x200A},
        {"dscp_tc_4=10:3,11:8\n", tool_cfg_dscp_recovery, 0x200B},
        {"bw_limit_4=0\n", tool_cfg_shaping_recovery, 0x200C},
        {"bitmap_4=0,0,0,1\n", tool_cfg_pfc_recovery, 0x2001},
        {"prio_tc_4=0,1,2,3,4,5,6,9\n", tool_cfg_prio_tc_recovery, 0x200B},
        {"tc_bw_4=50,40,0,0,0,0,0,0\ntc_mode_4=1,1,0,0,0,0,0,0\n", tool_tc_cfg_recovery, 0x2007},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.conf);
        sb_.set_conf(c.conf);
        EXPECT_EQ(c.item(dev_), c.code);
    }
    EXPECT_EQ(qos_state(sb_, 4), fresh_);

    sb_.set_conf("dscp_tc_4=10:3,46:0\n");
    ASSERT_EQ(sb_.emu({"fault", "add", "--op", "set_dscp_map", "--result", "-1"}).status, 0);
    EXPECT_EQ(tool_cfg_dscp_recovery(dev_), 0x4001);
    ASSERT_EQ(sb_.emu({"fault", "clear"}).status, 0);
}

} // namespace
} // namespace qos
