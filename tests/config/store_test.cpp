// The configuration store on a file in a fresh temporary directory: matching rules, the size
// limit, long lines, missing files and concurrent writers.
#include "config/store.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

#include "tests/support/tool_sandbox.hpp"

namespace
{

class StoreTest : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        const char *tmp = getenv("TMPDIR");
        std::string tmpl =
            std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/vorn-store-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        dir_ = tmpl;
        path_ = dir_ + "/vorn.conf";
    }
    void TearDown() override { (void)system(("rm -rf '" + dir_ + "'").c_str()); }

    void put(const std::string &text) { ASSERT_TRUE(write_file(path_, text)); }
    std::string conf() const { return read_file(path_); }
    std::string read(const char *key, int *ret, uint32_t size = 64)
    {
        char value[512] = {};
        *ret = cfg_inner_read_conf(path_.c_str(), key, value, size);
        return value;
    }

    std::string dir_, path_;
};

TEST_F(StoreTest, WriteReplacesExactKeyAndMovesItToTheEnd)
{
    put("#mtu_1=1\nmtu_1=1500\nx\nnoeq\nmtu_10=9000\naddress_1=1.1.1.1\n");
    EXPECT_EQ(cfg_inner_write_conf(path_.c_str(), "mtu_1", "9000"), 0);
    EXPECT_EQ(conf(), "#mtu_1=1\nx\nnoeq\nmtu_10=9000\naddress_1=1.1.1.1\nmtu_1=9000\n");
    EXPECT_EQ(cfg_inner_write_conf(path_.c_str(), "new_2", ""), 0);
    EXPECT_EQ(conf(), "#mtu_1=1\nx\nnoeq\nmtu_10=9000\naddress_1=1.1.1.1\nmtu_1=9000\nnew_2=\n");
}

TEST_F(StoreTest, ReadTakesFirstLineBeginningWithKeyAndSkipsComments)
{
    put("#address_1=9.9.9.9\nmtu_10=9000\nmtu_1=1500\nab\nempty_1=\n");
    int ret = -1;
    EXPECT_EQ(read("address_1", &ret), "");
    EXPECT_EQ(ret, kErrSysNotFound);
    EXPECT_EQ(read("mtu_1", &ret), "9000");
    EXPECT_EQ(ret, 0);
    EXPECT_EQ(read("empty_1", &ret), "");
    EXPECT_EQ(ret, 0);
}

TEST_F(StoreTest, ReadRefusesValueLongerThanCallerBuffer)
{
    put("k_1=12345\n");
    int ret = -1;
    (void)read("k_1", &ret, 5);
    EXPECT_EQ(ret, kErrSysCopy);
    EXPECT_EQ(read("k_1", &ret, 6), "12345");
    EXPECT_EQ(ret, 0);
    // A value ends at a zero byte, as a line read into a C string does.
    put(std::string("k_1=6000\0zz\n", 12));
    EXPECT_EQ(read("k_1", &ret, 5), "6000");
    EXPECT_EQ(ret, 0);
}

TEST_F(StoreTest, DeleteRemovesEveryLineContainingKey)
{
    put("mtu_1=1500\nkeep_2=a\nmtu_10=9000\nxmtu_1=5\nv_3=mtu_1\nlast_4=1\n");
    EXPECT_EQ(cfg_inner_del_conf(path_.c_str(), "mtu_1"), 0);
    EXPECT_EQ(conf(), "keep_2=a\nlast_4=1\n");
    EXPECT_EQ(cfg_inner_del_conf(path_.c_str(), "absent_1"), 0);
    EXPECT_EQ(conf(), "keep_2=a\nlast_4=1\n");
    EXPECT_EQ(cfg_inner_del_conf(path_.c_str(), "last_4"), 0);
    EXPECT_EQ(conf(), "keep_2=a\n");
}

TEST_F(StoreTest, FullFileRefusedAndLeftUnchanged)
{
    // The limit counts the terminating zero: content may reach kCfgFileMax - 1 bytes.
    const std::string line = "k_1=v\n"; // the line the write adds
    std::string filler(kCfgFileMax - 1 - line.size() - 1, 'f');
    const std::string fits = filler + "\n";
    put(fits);
    EXPECT_EQ(cfg_inner_write_conf(path_.c_str(), "k_1", "v"), 0);
    EXPECT_EQ(conf().size(), kCfgFileMax - 1);

    const std::string full = conf();
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(cfg_inner_write_conf(path_.c_str(), "k_2", "v"), kErrSysCopy);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "vorn.conf size must smaller than 1M.\n");
    EXPECT_TRUE(conf() == full);
}

TEST_F(StoreTest, LinesLongerThanLineBufferSurviveWholeAndDoNotHideKeys)
{
    const std::string long_line = "long_1=" + std::string(1000, 'z') + "\n";
    put(long_line + "mtu_1=1500\n" + long_line);
    int ret = -1;
    EXPECT_EQ(read("mtu_1", &ret), "1500");
    EXPECT_EQ(ret, 0);
    // The first 383-character piece answers; the value is cut at the line buffer.
    EXPECT_EQ(read("long_1", &ret, 512), std::string(383 - 7, 'z'));
    EXPECT_EQ(cfg_inner_write_conf(path_.c_str(), "mtu_1", "9000"), 0);
    EXPECT_EQ(conf(), long_line + long_line + "mtu_1=9000\n");
    EXPECT_EQ(cfg_inner_del_conf(path_.c_str(), "mtu_1"), 0);
    EXPECT_EQ(conf(), long_line + long_line);
}

TEST_F(StoreTest, ZeroByteInDamagedFileCutsOffNoLaterLine)
{
    const std::string damaged = std::string("a_1=x\0y\n", 8) + "mtu_1=1500\nkeep_2=b\n";
    put(damaged);
    EXPECT_EQ(cfg_inner_write_conf(path_.c_str(), "new_3", "z"), 0);
    EXPECT_EQ(conf(), damaged + "new_3=z\n");
    EXPECT_EQ(cfg_inner_del_conf(path_.c_str(), "mtu_1"), 0);
    EXPECT_EQ(conf(), std::string("a_1=x\0y\n", 8) + "keep_2=b\nnew_3=z\n");
}

TEST_F(StoreTest, HandEditedLastLineWithoutNewlineIsNotGluedToTheNextWrite)
{
    put("route_address_1.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.9");
    EXPECT_EQ(cfg_inner_write_conf(path_.c_str(), "mtu_0", "1600"), 0);
    EXPECT_EQ(conf(), "route_address_1.0.0.0_netmask_255.0.0.0_0=gateway_10.0.0.9\nmtu_0=1600\n");
}

TEST_F(StoreTest, UnreadableFileIsAnAccessErrorNotAMissingKey)
{
    ASSERT_EQ(mkdir(path_.c_str(), 0755), 0); // a directory where the file should be
    int ret = -1;
    (void)read("mtu_1", &ret);
    EXPECT_EQ(ret, kErrSysRead);
    EXPECT_EQ(cfg_inner_write_conf(path_.c_str(), "mtu_1", "1"), kErrSysWrite);
    EXPECT_EQ(cfg_inner_del_conf(path_.c_str(), "mtu_1"), kErrSysDelete);
}

TEST_F(StoreTest, MissingFileFailsEveryOperationWithoutCreatingIt)
{
    int ret = -1;
    (void)read("mtu_1", &ret);
    EXPECT_EQ(ret, kErrSysRead);
    EXPECT_EQ(cfg_inner_write_conf(path_.c_str(), "mtu_1", "1"), kErrSysWrite);
    EXPECT_EQ(cfg_inner_del_conf(path_.c_str(), "mtu_1"), kErrSysDelete);
    EXPECT_NE(access(path_.c_str(), F_OK), 0);
    EXPECT_EQ(cfg_inner_write_conf((dir_ + "/no/such/dir/vorn.conf").c_str(), "a", "b"),
              kErrSysNull);
}

TEST_F(StoreTest, OuterCallsUseItemAndPhysicalIdUnderTestRoot)
{
    // cfg_conf_path() is computed once per process: only this test uses the outer calls.
    ASSERT_EQ(setenv("VORN_TEST_ROOT", dir_.c_str(), 1), 0);
    ASSERT_EQ(std::string(cfg_conf_path()), dir_ + "/etc/vorn.conf");
    ASSERT_EQ(mkdir((dir_ + "/etc").c_str(), 0755), 0);
    ASSERT_TRUE(write_file(cfg_conf_path(), ""));
    EXPECT_EQ(cfg_write_conf(3, "address", "10.0.0.2"), 0);
    char value[20] = {};
    EXPECT_EQ(cfg_read_conf(3, "address", value, sizeof(value)), 0);
    EXPECT_STREQ(value, "10.0.0.2");
    EXPECT_EQ(cfg_del_conf(3, "address"), 0);
    EXPECT_EQ(cfg_read_conf(3, "address", value, sizeof(value)), kErrSysNotFound);
    EXPECT_EQ(cfg_write_conf(3, nullptr, "x"), -22);
}

TEST_F(StoreTest, ConcurrentWritersLoseNoKey)
{
    put("");
    constexpr int kProcs = 16, kKeys = 100;
    for (int p = 0; p < kProcs; ++p) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            int failures = 0;
            for (int k = 0; k < kKeys; ++k) {
                std::string key = "p" + std::to_string(p) + "k" + std::to_string(k) + "_0";
                failures += cfg_inner_write_conf(path_.c_str(), key.c_str(), "v") != 0;
            }
            _exit(failures == 0 ? 0 : 1);
        }
    }
    for (int p = 0; p < kProcs; ++p) {
        int status = 0;
        ASSERT_GT(wait(&status), 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    std::istringstream lines(conf());
    std::set<std::string> seen;
    std::string line;
    int count = 0;
    while (std::getline(lines, line)) {
        ++count;
        seen.insert(line);
    }
    EXPECT_EQ(count, kProcs * kKeys);
    EXPECT_EQ(seen.size(), static_cast<size_t>(kProcs * kKeys));
}

} // namespace
