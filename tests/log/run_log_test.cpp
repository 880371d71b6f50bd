// The run log: line layout, directory and modes, link refusal, rotation, and concurrent writers.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "base/paths.hpp"
#include "cmdline/identity.hpp"
#include "log/run_log.hpp"

namespace fs = std::filesystem;

namespace
{

constexpr size_t kRotateAt = 5242880;

class RunLogTest : public ::testing::Test
{
  protected:
    std::string root_;
    std::string dir_;

    void SetUp() override
    {
        std::string tmpl = (fs::temp_directory_path() / "vorn-runlog-XXXXXX").string();
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        root_ = tmpl;
        setenv("VORN_TEST_ROOT", root_.c_str(), 1);
        unsetenv("SSH_CLIENT");
        ASSERT_EQ(vorn_get_usr_name(), 0);
        ASSERT_EQ(vorn_get_usr_ip(), 0);
        std::string user = vorn_get_g_usr_name();
        dir_ = root_ + (user == "root" ? "/var/log/vorn_tool" : "/home/" + user);
    }
    void TearDown() override
    {
        std::error_code ec;
        fs::remove_all(root_, ec);
        unsetenv("VORN_TEST_ROOT");
    }

    std::string log_path() const { return dir_ + "/vorn.log"; }
    std::string old_path() const { return log_path() + ".old"; }

    static std::string slurp(const std::string &path)
    {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }
    static mode_t mode_of(const std::string &path)
    {
        struct stat st {
        };
        return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
    }
    // A log just below the rotation point, made of whole lines.
    void prefill(size_t size) const
    {
        fs::create_directories(dir_);
        std::string line(99, 'p');
        line += '\n';
        std::ofstream out(log_path(), std::ios::binary);
        for (size_t n = 0; n + line.size() <= size; n += line.size())
            out << line;
        out << std::string(size % line.size(), 'q');
    }
};

TEST_F(RunLogTest, StampFollowsTheUserNameWithoutABlank)
{
    RUN_LOG_PROMPT("hello %d\n", 42);
    RUN_LOG_CONFIG("Start to set x of logic_id[%d]\n", 3);
    std::string user = vorn_get_g_usr_name();
    std::string stamp = "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}";
    std::regex want(
        "PROMPT MINOR " + user + stamp +
        " 127\\.0\\.0\\.1 run_log_test\\.cpp:\\d+ >>> hello 42\n"
        "CONFIG MAJOR " +
        user + stamp +
        " 127\\.0\\.0\\.1 run_log_test\\.cpp:\\d+ >>> Start to set x of logic_id\\[3\\]\n");
    EXPECT_TRUE(std::regex_match(slurp(log_path()), want)) << slurp(log_path());
    EXPECT_EQ(mode_of(dir_), 0640u);
    EXPECT_EQ(mode_of(log_path()), 0640u);
}

TEST_F(RunLogTest, OverlongTextIsRefusedWholeAndSaidOnStdout)
{
    testing::internal::CaptureStdout();
    RUN_LOG_PROMPT("%s\n", std::string(1100, 'z').c_str());
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(
        std::regex_match(out, std::regex("copy format to logStr failed, ret\\[-?\\d+\\]\n")))
        << out;
    EXPECT_EQ(slurp(log_path()).find('z'), std::string::npos);
}

TEST_F(RunLogTest, NeverWritesThroughASymbolicLink)
{
    fs::create_directories(dir_);
    std::string target = root_ + "/elsewhere";
    {
        std::ofstream(target) << "keep\n";
    }
    fs::create_symlink(target, log_path());
    RUN_LOG_PROMPT("secret\n");
    EXPECT_EQ(slurp(target), "keep\n");
}

TEST_F(RunLogTest, FullLogBecomesReadOnlyOldAndANewLogStarts)
{
    prefill(5242800);
    std::string before = slurp(log_path());
    // 80 bytes with the stamp and prefix: 5242800 + 80 reaches the rotation point.
    std::string user = vorn_get_g_usr_name();
    std::string probe =
        "PROMPT MINOR " + user + "2026-01-01 00:00:00.000 127.0.0.1 run_log_test.cpp:1 >>> ";
    std::string text(80 - probe.size() - 1, 'n');
    RUN_LOG_PROMPT("%s\n", text.c_str());
    EXPECT_EQ(slurp(old_path()), before);
    EXPECT_EQ(mode_of(old_path()), 0440u);
    std::string fresh = slurp(log_path());
    EXPECT_GE(fresh.size(), 78u);
    EXPECT_NE(fresh.find(text + "\n"), std::string::npos);
    EXPECT_FALSE(fs::exists(dir_ + "/vorn.lock"));

    // The next rotation replaces the first ".old".
    prefill(kRotateAt - 10);
    RUN_LOG_PROMPT("again\n");
    EXPECT_EQ(slurp(old_path()).size(), kRotateAt - 10);
    EXPECT_NE(slurp(log_path()).find("again\n"), std::string::npos);
}

TEST_F(RunLogTest, ConcurrentWritersAcrossARotationKeepEveryLineOnceAndWhole)
{
    constexpr int kProcs = 8;
    constexpr int kLines = 300;
    prefill(kRotateAt - 20000);
    for (int p = 0; p < kProcs; ++p) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            for (int i = 0; i < kLines; ++i)
                RUN_LOG_PROMPT("writer %d line %d end\n", p, i);
            _exit(0);
        }
    }
    for (int p = 0; p < kProcs; ++p) {
        int status = 0;
        ASSERT_GT(wait(&status), 0);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    ASSERT_TRUE(fs::exists(old_path()));
    EXPECT_EQ(mode_of(old_path()), 0440u);
    std::set<std::string> seen;
    std::regex line_re(".* >>> (writer \\d+ line \\d+) end");
    int ours = 0;
    for (const std::string &path : {old_path(), log_path()}) {
        std::istringstream in(slurp(path));
        std::string line;
        while (std::getline(in, line)) {
            if (line.find("PROMPT") == std::string::npos)
                continue;
            std::smatch m;
            ASSERT_TRUE(std::regex_match(line, m, line_re)) << "interleaved: " << line;
            EXPECT_TRUE(seen.insert(m[1]).second) << "twice: " << m[1];
            ++ours;
        }
    }
    EXPECT_EQ(ours, kProcs * kLines);
}

} // namespace
