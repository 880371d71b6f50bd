// Whole runs of vorn_tool: help, shape and device-id refusals, exit status, audit lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "main/cmd_table.hpp"
#include "tests/support/tool_sandbox.hpp"

namespace
{

const std::string kEnter = "Enter [ vorn_tool -h ] for more details.\n";

class FrontEndTest : public ::testing::Test
{
  protected:
    ToolSandbox sbx_;

    static int count_of(const std::string &text, const std::string &needle)
    {
        int n = 0;
        for (size_t pos = text.find(needle); pos != std::string::npos;
             pos = text.find(needle, pos + 1))
            ++n;
        return n;
    }
};

TEST_F(FrontEndTest, HelpListsEveryCommandInTableOrder)
{
    for (const char *word : {"-h", "--help"}) {
        ProcResult r = sbx_.tool({word});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "");
        std::vector<std::string> heads;
        std::regex head_re("^vorn_tool (-i devid|-a ) (-[a-z_]+)$", std::regex::multiline);
        for (std::sregex_iterator it(r.out.begin(), r.out.end(), head_re), end; it != end; ++it)
            heads.push_back((*it)[2]);
        std::vector<std::string> rows;
        for (int i = 0; i < kCmdFixedNum; ++i)
            rows.push_back(g_cmd_list[i].cmd->name);
        for (const cmd_record &row : g_cmd_list_ext)
            rows.push_back(row.cmd->name);
        ASSERT_EQ(rows.size(), static_cast<size_t>(kCmdCount));
        EXPECT_EQ(heads, rows) << r.out;
        EXPECT_EQ(std::count(heads.begin(), heads.end(), "-cfg"), 2) << "one row per major type";
        EXPECT_NE(r.out.find("vorn_tool -a  -cfg\n"), std::string::npos);
        EXPECT_NE(r.out.find("vorn_tool -i devid -mtu\n   [-s]        : set mtu cfg \n"
                             "       size %d : set mtu size, from 68 to 9702\n"
                             "   [-g]        : get mtu cfg\n\n"),
                  std::string::npos);
    }
}

TEST_F(FrontEndTest, ShapeAndDeviceRefusalsPrintTheirTextAndExitWithTheLowByte)
{
    struct Case {
        std::vector<std::string> args;
        int code;
        std::string err;
    };
    std::vector<std::string> too_many(63, "x"); // 64 words with the program name
    std::vector<std::string> max_words = {"-i", "0", "-nosuch"};
    max_words.resize(62, "x"); // 63 words: the count passes, the lookup fails
    const std::string major_cmd = "Get invalid major cmd.\n" + kEnter;
    const std::string dev_id = "Get invalid device id.\n";
    const std::vector<Case> cases = {
        {{}, 0x1002, "Get invalid major cmd number. Please check your input.\n" + kEnter},
        {too_many, 0x1002, "Get invalid major cmd number. Please check your input.\n" + kEnter},
        {max_words, 0x1003, major_cmd},
        {{"-h", "x"},
         0x1001,
         "Get invalid major cmd type. The valid major cmd type should be \"-a\" or \"-i\".\n" +
             kEnter},
        {{"-i", "0", "-ipx"}, 0x1003, major_cmd},
        {{"-i", "0"}, 0x1003, major_cmd},
        {{"-a", "-ip", "-g"}, 0x1003, major_cmd},
        {{"-i", "0", std::string(900, 'y')}, 0x1003, major_cmd},
        {{"-i", "0", std::string(901, 'y')}, 0x1007, "Get invalid input param len.\n"},
        {{"-i", "123", "-ip", "-g"}, 0x1005, dev_id},
        {{"-i", "1a", "-ip", "-g"}, 0x1005, dev_id},
        {{"-i", "20", "-ip", "-g", "host"}, 0x1005, dev_id},
        {{"-i", "12", "-ip", "-g"},
         0x4001,
         "Device ID is invalid, device [12] is not in the device list!\nCommand execute failed!\n"},
    };
    for (const Case &c : cases) {
        ProcResult r = sbx_.tool(c.args);
        std::string what =
            c.args.empty() ? "(no args)"
                           : c.args[0] + " " + (c.args.size() > 1 ? c.args[1].substr(0, 8) : "");
        EXPECT_EQ(r.status, c.code & 0xFF) << what;
        EXPECT_EQ(r.err, c.err) << what;
        EXPECT_EQ(r.out, "") << what;
        char tail[64];
        snprintf(tail, sizeof(tail), ">>> vorn tool execution failed! ret:0x%x\n", c.code);
        std::string log = sbx_.run_log();
        ASSERT_GE(log.size(), strlen(tail)) << what;
        EXPECT_EQ(log.substr(log.size() - strlen(tail)), tail) << what;
    }
}

TEST_F(FrontEndTest, HostModeSkipsTheDeviceLookup)
{
    // Device 15 is not emulated; in host mode it is not looked up, and the run reaches the
    // command, which takes no "host" word: its count error, not the device's.
    ProcResult r = sbx_.tool({"-i", "15", "-speed", "-g", "host"});
    EXPECT_EQ(r.err,
              "The total count of input parameters is wrong!\n[ vorn_tool -i dev_id -speed ] "
              "needs the following parameters:\n   [-g]        : get eth port speed \n\n");
    EXPECT_EQ(r.status, 5);
    EXPECT_NE(sbx_.run_log().find("execution failed! ret:0x2005\n"), std::string::npos);
}

TEST_F(FrontEndTest, AuditMasksSecretsAndStrangeCharacters)
{
    (void)sbx_.tool(
        {"-i", "12", "-ip", "-s", "address", "10.0.0.2", "netmask", "255.0.0.0", "a:b"});
    (void)sbx_.tool({"-i", "12", "-tls", "-s", "path", "/x", "crl", "c.crl"});
    const std::string log = sbx_.run_log();
    const std::regex line_re(
        "^PROMPT MINOR [^ ]+\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} 127\\.0\\.0\\.1 "
        "[a-z_]+\\.cpp:\\d+ >>> (.*)$");
    std::vector<std::string> texts;
    size_t start = 0;
    while (start < log.size()) {
        size_t end = log.find('\n', start);
        std::string line = log.substr(start, end - start);
        std::smatch m;
        ASSERT_TRUE(std::regex_match(line, m, line_re)) << line;
        texts.push_back(m[1]);
        start = end + 1;
    }
    const std::vector<std::string> want = {
        "input parameters: argc[10]",
        "parse [0]th argv[" + std::string(vorn_tool_bin()) + "]",
        "parse [1]th argv[-i]",
        "parse [2]th argv[12]",
        "parse [3]th argv[-ip]",
        "parse [4]th argv[-s]",
        "parse [5]th argv[address]",
        "parse [6]th argv[********]",
        "parse [7]th argv[netmask]",
        "parse [8]th argv[********]",
        "parse [9]th argv[a*b]",
        "vorn tool execution failed! ret:0x4001",
        "input parameters: argc[9]",
        "parse [0]th argv[" + std::string(vorn_tool_bin()) + "]",
        "parse [1]th argv[-i]",
        "parse [2]th argv[12]",
        "parse [3]th argv[-tls]",
        "parse [4]th argv[-s]",
        "parse [5]th argv[path]",
        "parse [6]th argv[********]",
        "parse [7]th argv[crl]",
        "parse [8]th argv[********]",
        "vorn tool execution failed! ret:0x4001",
    };
    EXPECT_EQ(texts, want);
}

} // namespace

// Which operations a command has, how many words each takes and whether it takes the setting
// lock are declared in its row, for every command, so the dispatcher checks them all alike.
TEST(CmdTableTest, EveryCommandDeclaresItsOperations)
{
    std::vector<const cmd_record *> rows;
    for (int i = 0; i < kCmdFixedNum; ++i)
        rows.push_back(&g_cmd_list[i]);
    for (const cmd_record &row : g_cmd_list_ext)
        rows.push_back(&row);
    for (const cmd_record *row : rows) {
        EXPECT_FALSE(row->cmd->ops.empty()) << row->cmd->name;
        for (const CmdOp &op : row->cmd->ops)
            EXPECT_NE(op.run, nullptr) << row->cmd->name << " " << op.word;
    }
}
