// End-to-end tests of -dscp_to_tc, -shaping, -pfc, -tc_cfg, -cur_tc_buf and -prio_tc through the
// real tool and the emulator: what a set leaves on the device and in the file, every refusal,
// device failures and save failures.
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/commands/qos_fixture.hpp"

namespace qos
{
namespace
{

const char *kCount = "The total count of input parameters is wrong!\n";
const char *kDeviceFailed = "Command execute failed!\n";

class QosCommandsTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "2"}};

    ProcResult run(const std::string &line) const { return qos::run(sb_, 0, line); }
    std::string state() const { return qos_state(sb_, 0); }
    void fault(const std::string &op, const std::string &what, const std::string &value) const
    {
        ASSERT_EQ(sb_.emu({"fault", "add", "--op", op, what, value, "--count", "1"}).status, 0);
    }
    /// The parameter list the front-end prints after a parameter error of `cmd`.
    std::string usage(const std::string &cmd) const { return run(cmd).err.substr(strlen(kCount)); }
};

// Each set is saved, and shown by the get, in the form its replay reads back.
TEST_F(QosCommandsTest, SetsAtTheirBoundsReachDeviceFileAndGet)
{
    const std::string strict = "strict  65536\n", ets = "ets     65536\n";
    const struct {
        std::string set, shown, saved;
    } cases[] = {
        {"-dscp_to_tc -s dscp 63 tc 0", dscp_table({{63, 0}}), "dscp_tc_0=63:0\n"},
        {"-dscp_to_tc -s dscp 0 tc 7", dscp_table({{0, 7}, {63, 0}}), "dscp_tc_0=0:7,63:0\n"},
        {"-shaping -s bw_limit 400000", "bw_limit: 400000 Mbit/s\nmax_bw: 100000 Mbit/s\n",
         "bw_limit_0=400000\n"},
        {"-shaping -s bw_limit 1", "bw_limit: 1 Mbit/s\nmax_bw: 100000 Mbit/s\n", "bw_limit_0=1\n"},
        {"-pfc -s bitmap 1,0,0,1,0,0,0,1",
         "pfc-cap 8\nprio-pfc 0:on 1:off 2:off 3:on 4:off 5:off 6:off 7:on\n",
         "bitmap_0=1,0,0,1,0,0,0,1\n"},
        {"-prio_tc -s prio_tc 7,0,1,1,2,2,3,3", "prio-tc 0:7 1:0 2:1 3:1 4:2 5:2 6:3 7:3\n",
         "prio_tc_0=7,0,1,1,2,2,3,3\n"},
        {"-tc_cfg -s tc_bw 0,0,0,0,0,0,40,60 tc_mode 0,0,0,0,0,0,1,1",
         "tc  bw(%)  mode    buffer(bytes)\n0   0      " + strict + "1   0      " + strict +
             "2   0      " + strict + "3   0      " + strict + "4   0      " + strict +
             "5   0      " + strict + "6   40     " + ets + "7   60     " + ets,
         "tc_bw_0=0,0,0,0,0,0,40,60\ntc_mode_0=0,0,0,0,0,0,1,1\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.set);
        if (!c.set.starts_with("-dscp_to_tc"))
            sb_.set_conf("");
        ProcResult set = run(c.set);
        EXPECT_EQ(set.status, 0) << set.err;
        EXPECT_EQ(set.out + set.err, "");
        EXPECT_EQ(sb_.conf(), c.saved);
        EXPECT_EQ(run(c.set.substr(0, c.set.find(' ')) + " -g").out, c.shown);
    }
    EXPECT_EQ(run("-tc_cfg -s tc_bw 0,0,0,0,0,0,0,0 tc_mode 0,0,0,0,0,0,0,0").status, 0);
    EXPECT_EQ(run("-cur_tc_buf -g tc 6").out, "tc 6 peak buffer usage: 0 bytes\n");
    EXPECT_EQ(run("-tc_cfg -s tc_bw 100,0,0,0,0,0,0,0 tc_mode 1,0,0,0,0,0,0,0").status, 0);
    EXPECT_EQ(run("-cur_tc_buf -g tc 0").out, "tc 0 peak buffer usage: 32768 bytes\n");
}

// A set of one DSCP value replaces or adds its entry in the saved list and keeps the others; a
// saved list that cannot take the entry stops the set before the device changes.
TEST_F(QosCommandsTest, DscpSetMergesIntoTheSavedList)
{
    sb_.set_conf("dscp_tc_1=5:5\ndscp_tc_0=46:5,10:3\nmtu_0=9000\n");
    for (const char *set : {"dscp 46 tc 0", "dscp 9 tc 2", "dscp 10 tc 3"})
        EXPECT_EQ(run(std::string("-dscp_to_tc -s ") + set).status, 0);
    EXPECT_EQ(sb_.conf(), "dscp_tc_1=5:5\nmtu_0=9000\ndscp_tc_0=9:2,10:3,46:0\n");
    EXPECT_EQ(run("-dscp_to_tc -g").out, dscp_table({{46, 0}, {9, 2}, {10, 3}}));

    const std::string shown = state();
    for (const char *list : {"46:5,", "46:5,,10:3", "46", "46:5,46:1", "64:1", "1:8", " 1:1"}) {
        SCOPED_TRACE(list);
        sb_.set_conf(std::string("dscp_tc_0=") + list + "\n");
        ProcResult r = run("-dscp_to_tc -s dscp 1 tc 1");
        EXPECT_EQ(r.status, 7);
        EXPECT_EQ(r.err, "The saved dscp to tc map of the device is malformed: correct or remove "
                         "the line dscp_tc_0 in " +
                             sb_.conf_path() + ".\n");
        EXPECT_EQ(sb_.conf(), std::string("dscp_tc_0=") + list + "\n");
    }
    EXPECT_EQ(state(), shown);
}

TEST_F(QosCommandsTest, RefusedCommandLinesLeaveDeviceAndFileAlone)
{
    const auto range = [](const char *name) {
        return std::string("The value of ") + name + " you input is out of the valid range!\n";
    };
    const auto unknown = [](const std::string &word) {
        return word.empty() ? "Get unknown option!\n"
                            : "Get unknown option, do you mean " + word + "\n";
    };
    const std::string invalid = "Get invalid parameters!\n", dscp = range("dscp"), tc = range("tc"),
                      bw = range("bw limit");
    // `first`: the line before the command's parameter list, or the whole text of a refusal
    // that prints its own (0x07).
    const struct {
        std::string line;
        int status;
        std::string first;
    } cases[] = {
        {"-dscp_to_tc -s dscp 64 tc 1", 0x0A, dscp},
        {"-dscp_to_tc -s dscp 4294967297 tc 1", 0x0A, dscp},
        {"-dscp_to_tc -s dscp 4a tc 1", 0x01, invalid},
        {"-dscp_to_tc -s dscp '' tc 1", 0x01, invalid},
        {"-dscp_to_tc -s dscp 1 tc 8", 0x0B, tc},
        {"-dscp_to_tc -s DSCP 1 tc 1", 0x03, unknown("dscp")},
        {"-dscp_to_tc -s dscp 1 prio 1", 0x03, unknown("tc")},
        {"-dscp_to_tc -s dscp 1", 0x05, kCount},
        {"-dscp_to_tc -a", 0x03, unknown("")},
        {"-shaping -s bw_limit 0", 0x0C, bw},
        {"-shaping -s bw_limit 400001", 0x0C, bw},
        {"-shaping -s bw_limit 4294967396", 0x0C, bw},
        {"-shaping -s bw_limit 1e3", 0x01, invalid},
        // A leading zero is no number of the tool's, even within the length.
        {"-shaping -s bw_limit 000001", 0x0C, bw},
        {"-dscp_to_tc -s dscp 06 tc 1", 0x0A, dscp},
        {"-tc_cfg -s tc_bw 0,0,0,0,0,0,040,60 tc_mode 0,0,0,0,0,0,1,1", 0x01, invalid},
        {"-shaping -s limit 100", 0x03, unknown("bw_limit")},
        {"-shaping -g 1", 0x05, kCount},
        {"-pfc -s bitmap 0,0,0,1,0,0,0", 0x01, invalid},
        {"-pfc -s bitmap 0,0,0,1,0,0,0,0,0", 0x01, invalid},
        {"-pfc -s bitmap 0,0,0,2,0,0,0,0", 0x01, invalid},
        {"-pfc -s bitmap 0,0,0,1,0,0,0,0,", 0x01, invalid},
        {"-pfc -s pfc 0,0,0,1,0,0,0,0", 0x03, unknown("bitmap")},
        {"-prio_tc -s prio_tc 0,1,2,3,4,5,6,8", 0x0B, tc},
        {"-prio_tc -s prio_tc 0,1,2,3,4,5,6,07", 0x0B, tc},
        {"-prio_tc -s prio_tc 8,1,2,3,4,5,6,x", 0x01, invalid},
        {"-prio_tc -s prio 0,1,2,3,4,5,6,7", 0x03, unknown("prio_tc")},
        {"-tc_cfg -s tc_bw 0,0,0,0,0,0,0,101 tc_mode 1,1,1,1,1,1,1,1", 0x01, invalid},
        {"-tc_cfg -s tc_bw 50,50,0,0,0,0,0,0 tc_mode 1,1,0,0,0,0,0,2", 0x01, invalid},
        {"-tc_cfg -s tc_bw 10,10,10,10,10,10,20,30 tc_mode 1,1,1,1,1,1,1,1", 0x07,
         "The bandwidth percents of the weighted tcs add up to 110, not 100.\n"},
        {"-tc_cfg -s tc_bw 50,40,10,0,0,0,0,0 tc_mode 1,1,0,0,0,0,0,0", 0x07,
         "The strict tc 2 takes no bandwidth percent, but 10 was given.\n"},
        {"-tc_cfg -s bw 0,0,0,0,0,0,0,0 tc_mode 0,0,0,0,0,0,0,0", 0x03, unknown("tc_bw")},
        {"-tc_cfg -s tc_bw 0,0,0,0,0,0,0,0 mode 0,0,0,0,0,0,0,0", 0x03, unknown("tc_mode")},
        {"-tc_cfg -s tc_bw 0,0,0,0,0,0,0,0", 0x05, kCount},
        {"-cur_tc_buf -g tc 8", 0x0B, tc},
        {"-cur_tc_buf -g class 1", 0x03, unknown("tc")},
        {"-cur_tc_buf -s tc 1", 0x03, unknown("")},
    };
    const std::string shown = state();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        ProcResult r = run(c.line);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err,
                  c.first + (c.status == 0x07 ? "" : usage(c.line.substr(0, c.line.find(' ')))));
        EXPECT_EQ(sb_.conf(), "");
    }
    EXPECT_EQ(state(), shown);
}

const struct {
    const char *op, *set, *saved;
} kSets[] = {
    {"set_dscp_map", "-dscp_to_tc -s dscp 46 tc 0", "dscp_tc_0=46:0\n"},
    {"set_port_shaping", "-shaping -s bw_limit 5000", "bw_limit_0=5000\n"},
    {"set_pfc_enabled", "-pfc -s bitmap 0,0,0,1,0,0,0,0", "bitmap_0=0,0,0,1,0,0,0,0\n"},
    {"set_prio_tc_info", "-prio_tc -s prio_tc 1,1,1,1,1,1,1,1", "prio_tc_0=1,1,1,1,1,1,1,1\n"},
    {"set_tc_cfg", "-tc_cfg -s tc_bw 50,50,0,0,0,0,0,0 tc_mode 1,1,0,0,0,0,0,0",
     "tc_bw_0=50,50,0,0,0,0,0,0\ntc_mode_0=1,1,0,0,0,0,0,0\n"},
};

// Per set: the firmware refuses it; then the device applies it but its reply breaks, and the
// value read back is saved.
TEST_F(QosCommandsTest, DeviceRefusalSavesNothingAndABrokenReplyIsReadBack)
{
    for (const auto &c : kSets) {
        SCOPED_TRACE(c.op);
        sb_.set_conf("");
        const std::string before = state();
        fault(c.op, "--result", "-1");
        ProcResult refused = run(c.set);
        EXPECT_EQ(refused.status, 1);
        EXPECT_EQ(refused.err, kDeviceFailed);
        EXPECT_EQ(sb_.conf(), "");
        EXPECT_EQ(state(), before);

        fault(c.op, "--frag", "1");
        EXPECT_EQ(run(c.set).status, 0);
        EXPECT_EQ(sb_.conf(), c.saved);
        EXPECT_NE(state(), before);
    }
}

TEST_F(QosCommandsTest, SaveFailureReportsItemAndKeepsDeviceChange)
{
    const char *things[] = {"dscp to tc map", "bandwidth limit", "pfc bitmap", "priority to tc map",
                            "traffic class cfg"};
    std::filesystem::remove(sb_.conf_path());
    std::filesystem::create_directory(sb_.conf_path());
    for (size_t i = 0; i < std::size(kSets); ++i) {
        SCOPED_TRACE(kSets[i].set);
        const std::string before = state();
        ProcResult r = run(kSets[i].set);
        EXPECT_EQ(r.status, 4);
        EXPECT_EQ(r.err, "Failed to write the " + std::string(things[i]) +
                             " to the config file, and user configurations cannot be persisted.\n"
                             "Write file failed, cmd execute failed! pls check cmd run "
                             "permission.\n");
        EXPECT_NE(state(), before);
    }
}

// The device chooses the length of its priority map: one it did not fill is no map to print.
TEST_F(QosCommandsTest, ShortPriorityMapPrintsNothing)
{
    for (const char *keep : {"0", "7"}) {
        SCOPED_TRACE(keep);
        fault("get_prio_tc_info", "--short", keep);
        ProcResult r = run("-prio_tc -g");
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, kDeviceFailed);
    }
}

} // namespace
} // namespace qos
