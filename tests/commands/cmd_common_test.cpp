// Unit tests of the handlers' shared refusal, replay-read and save steps: codes, streams, and
// that every log line names the calling function and line, not the helper's.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "commands/cmd_common.hpp"
#include "tests/support/tool_sandbox.hpp"

namespace {

// Callers with known names; each reports the line of its helper call.
int32_t refuse_count(int argc, int *line)
{
    *line = __LINE__ + 1;
    return cmd_err_argc(argc);
}

int32_t refuse_word(const char *log_text, const char *user_text, int *line)
{
    *line = __LINE__ + 1;
    return cmd_err_unknown_option(log_text, user_text);
}

int32_t refuse_word_drv(int *line)
{
    *line = __LINE__ + 1;
    return cmd_err_unknown_option_drv("Invalid option.", "Get unknown option, do you mean mac\n");
}

bool read_for_replay(uint32_t phy_id, char *value, uint32_t size, int *line)
{
    *line = __LINE__ + 1;
    return cmd_replay_read(phy_id, "mtu", "mtu", value, size);
}

int32_t save_value(uint32_t phy_id, const char *value, int *line)
{
    *line = __LINE__ + 1;
    return cmd_save_item(phy_id, "mtu", value, "Failed to save.\n");
}

class CmdCommonTest : public ::testing::Test {
protected:
    // One sandbox for the whole process: the driver-log level and the configuration path are
    // taken once per process.
    static ToolSandbox &box()
    {
        static ToolSandbox sb({"--devices", "2"});
        static const bool ready = [] {
            for (const auto &[k, v] : sb.env())
                setenv(k.c_str(), v.c_str(), 1);
            return sb.emu({"log-level", "7"}).status == 0;
        }();
        EXPECT_TRUE(ready);
        return sb;
    }
    void SetUp() override
    {
        std::error_code ec;
        std::filesystem::remove_all(sb_.conf_path(), ec);
        sb_.set_conf("");
        std::filesystem::remove(sb_.run_log_path(), ec);
        std::filesystem::remove(sb_.emu_dir() + "/driver.log", ec);
    }

    ToolSandbox &sb_ = box();

    static std::string at(const char *func, int line)
    {
        return "[" + std::string(func) + " " + std::to_string(line) + "]";
    }
};

TEST_F(CmdCommonTest, BareFuncNameDropsReturnTypeScopeAndParameters)
{
    struct Case {
        const char *signature;
        size_t size;
        const char *name;
    };
    const Case cases[] = {
        {"int32_t {anonymous}::tool_mtu_set_cmd(int, char**, cmd_parse_info*)", 64,
         "tool_mtu_set_cmd"},
        {"int32_t tool_mtu_cmd_execute(int, char**, cmd_parse_info*)", 64, "tool_mtu_cmd_execute"},
        {"tool_link_cmd_execute", 64, "tool_link_cmd_execute"},
        {"void ns::Store::flush() const", 64, "flush"},
        {"const char *name_of(int)", 64, "name_of"},
        {"int32_t tool_get_mac(int)", 5, "tool"},
        {"", 8, ""},
        {nullptr, 8, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.signature != nullptr ? c.signature : "(null)");
        char out[64] = "stale";
        cmd_bare_func_name(c.signature, out, c.size);
        EXPECT_STREQ(out, c.name);
    }
}

TEST_F(CmdCommonTest, CountRefusalLogsUnderCallerNameAndLine)
{
    int line = 0;
    EXPECT_EQ(refuse_count(7, &line), 0x2005);
    EXPECT_NE(sb_.driver_log().find("[ERROR]"), std::string::npos);
    EXPECT_NE(sb_.driver_log().find(at("refuse_count", line) + "err argc[7]\n"), std::string::npos)
        << sb_.driver_log();
}

TEST_F(CmdCommonTest, UnknownWordWritesRunLogLineThenUserText)
{
    int line = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(refuse_word("invalid operation\n", "Get unknown option!\n", &line), 0x2003);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Get unknown option!\n");
    std::string log = sb_.run_log();
    std::string tail = " cmd_common_test.cpp:" + std::to_string(line) + " >>> invalid operation\n";
    EXPECT_EQ(log.rfind("PROMPT MINOR ", 0), 0u) << log;
    ASSERT_GE(log.size(), tail.size());
    EXPECT_EQ(log.substr(log.size() - tail.size()), tail) << log;
    EXPECT_EQ(sb_.driver_log(), "");

    // Without a log text nothing is added to the run log.
    testing::internal::CaptureStderr();
    EXPECT_EQ(refuse_word(nullptr, "Get unknown cmd, do you mean address.\n", &line), 0x2003);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Get unknown cmd, do you mean address.\n");
    EXPECT_EQ(sb_.run_log(), log);
}

TEST_F(CmdCommonTest, UnknownWordOnDriverLogEchoesUserLineWithoutItsNewline)
{
    int line = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(refuse_word_drv(&line), 0x2003);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Get unknown option, do you mean mac\n");
    const std::string log = sb_.driver_log();
    const std::string first = at("refuse_word_drv", line) + "Invalid option.\n";
    const std::string second =
        at("refuse_word_drv", line) + "Get unknown option, do you mean mac\n";
    size_t a = log.find(first);
    size_t b = log.find(second);
    ASSERT_NE(a, std::string::npos) << log;
    ASSERT_NE(b, std::string::npos) << log;
    EXPECT_LT(a, b);
    EXPECT_EQ(sb_.run_log(), "");
}

TEST_F(CmdCommonTest, ReplayReadSkipsAnyUnreadableItemWithDebugLine)
{
    int line = 0;
    char value[5] = {};
    EXPECT_FALSE(read_for_replay(1, value, sizeof(value), &line));
    EXPECT_NE(sb_.driver_log().find("[DEBUG]"), std::string::npos);
    const std::string absent = "mtu do not need recover cfg [12294]\n";
    EXPECT_NE(sb_.driver_log().find(at("read_for_replay", line) + absent), std::string::npos)
        << sb_.driver_log();

    // Another device's line never answers; this device's value is read whole.
    sb_.set_conf("mtu_10=9000\nmtu_1=1500\n");
    EXPECT_TRUE(read_for_replay(1, value, sizeof(value), &line));
    EXPECT_STREQ(value, "1500");

    // A value that does not fit is skipped like an absent one, with the store's code.
    sb_.set_conf("mtu_1=150000\n");
    EXPECT_FALSE(read_for_replay(1, value, sizeof(value), &line));
    const std::string too_long = "mtu do not need recover cfg [12289]\n";
    EXPECT_NE(sb_.driver_log().find(at("read_for_replay", line) + too_long), std::string::npos)
        << sb_.driver_log();
}

TEST_F(CmdCommonTest, SaveWritesItemAndReportsFailureOnBothChannels)
{
    int line = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(save_value(0, "9000", &line), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(sb_.conf(), "mtu_0=9000\n");
    EXPECT_EQ(sb_.driver_log().find("write cfg error"), std::string::npos);

    std::filesystem::remove(sb_.conf_path());
    std::filesystem::create_directory(sb_.conf_path());
    testing::internal::CaptureStderr();
    int32_t ret = save_value(3, "1500", &line);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to save.\n");
    EXPECT_NE(ret, 0);
    const std::string failed = "write cfg error[" + std::to_string(ret) + "], phy_id[3]\n";
    EXPECT_NE(sb_.driver_log().find(at("save_value", line) + failed), std::string::npos)
        << sb_.driver_log();
}

}  // namespace
