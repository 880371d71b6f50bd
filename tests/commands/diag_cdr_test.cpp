// End-to-end tests of the clock-data-recovery register dump of -reg: the log file it leaves in
// the current directory, named after the device and the time, and what stops it.
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tests/commands/diag_fixture.hpp"

namespace diag
{
namespace
{

namespace fs = std::filesystem;

class DiagCdrTest : public ::testing::Test
{
  protected:
    // Physical ids 3 and 5: the file is named after the id the administrator typed.
    ToolSandbox sb_{{"--devices", "2", "--phy-ids", "3,5"}};
    std::string cwd_;

    void SetUp() override
    {
        std::string tmpl = sb_.dir() + "/cwd-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        cwd_ = tmpl;
    }
    /// Runs vorn_tool -i 5 -reg -cdr 1 in the test's own current directory; `gone`: a current
    /// directory that was removed once the run stood in it, where no file can be made.
    ProcResult dump(bool gone = false) const
    {
        const std::vector<std::string> argv{vorn_tool_bin(), "-i", "5", "-reg", "-cdr", "1"};
        const char *dir = cwd_.c_str();
        return run_process(argv, sb_.env(), "", [dir, gone] {
            if (chdir(dir) != 0 || (gone && rmdir(dir) != 0))
                _exit(126);
        });
    }
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(cwd_))
            names.push_back(entry.path().filename().string());
        return names;
    }
};

TEST_F(DiagCdrTest, DumpWritesEveryLaneIntoANewFileNamedAfterDeviceAndTime)
{
    ProcResult r = dump();
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<std::string> names = files();
    ASSERT_EQ(names.size(), 1u);
    // device-<id>-CdrReg_<year><month><day><hour><minute><second><ms>, plain decimals.
    EXPECT_TRUE(
        std::regex_match(names[0], std::regex("device-5-CdrReg_20\\d{2}[1-9]\\d{5,12}\\.log")))
        << names[0];
    EXPECT_EQ(r.out, "cdr registers of 4 lanes written to " + names[0] + "\n");
    const std::string dump = read_file(cwd_ + "/" + names[0]);
    EXPECT_TRUE(
        std::regex_match(dump, std::regex("device 5 cdr registers, 4 lanes\n"
                                          "(lane [0-3] reg 0x20[0-3][048c]: 0x[0-9a-f]{4}\n){64}")))
        << dump;
    EXPECT_NE(dump.find("\nlane 3 reg 0x203c: "), std::string::npos);
}

TEST_F(DiagCdrTest, DeviceRefusalLeavesNoFile)
{
    ASSERT_EQ(
        sb_.emu({"fault", "add", "--op", "get_cdr_reg_info", "--result", "-1", "--count", "1"})
            .status,
        0);
    ProcResult refused = dump();
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, kDeviceFailed);
    EXPECT_TRUE(files().empty());
}

TEST_F(DiagCdrTest, DirectoryWithoutRoomForTheFileFailsTheDump)
{
    ProcResult r = dump(true);
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(std::regex_match(
        r.err,
        std::regex("Cannot write the cdr register log device-5-CdrReg_\\d+\\.log in the "
                   "current directory\\.\n"
                   "Write file failed, cmd execute failed! pls check cmd run permission\\.\n")))
        << r.err;
}

} // namespace
} // namespace diag
