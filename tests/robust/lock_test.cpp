// The setting lock seen from outside: a held lock turns setting runs away after the wait and
// lets reads through; concurrent setting runs on different items keep every saved line.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <latch>
#include <set>
#include <thread>

#include "tests/robust/saved_file.hpp"

namespace robust
{
namespace
{

using Clock = std::chrono::steady_clock;
const char *kBusy = "vorn_tool is busy, please try again.\n";

// A child process that holds the setting lock until it is killed, as a run that crashed or
// hangs would; it writes its pid into the file unless told not to.
class LockHolder
{
  public:
    LockHolder(const std::string &path, bool names_itself)
    {
        int ready[2];
        if (pipe(ready) != 0)
            return;
        pid_ = fork();
        if (pid_ == 0) {
            const int fd = open(path.c_str(), O_RDWR | O_CREAT, 0600);
            if (fd < 0 || flock(fd, LOCK_EX) != 0 || ftruncate(fd, 0) != 0)
                _exit(1);
            const std::string pid = std::to_string(getpid()) + "\n";
            if (names_itself && write(fd, pid.data(), pid.size()) < 0)
                _exit(1);
            (void)!write(ready[1], "x", 1);
            for (;;)
                pause();
        }
        close(ready[1]);
        char c;
        held_ = pid_ > 0 && read(ready[0], &c, 1) == 1;
        close(ready[0]);
    }
    ~LockHolder() { release(); }
    void release()
    {
        if (pid_ > 0) {
            (void)kill(pid_, SIGKILL);
            (void)waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }
    bool held() const { return held_; }
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = -1;
    bool held_ = false;
};

class SettingLockTest : public ::testing::Test
{
  protected:
    void SetUp() override { ASSERT_EQ(mkdir((sb_.root() + "/run").c_str(), 0755), 0); }

    ToolSandbox sb_{{"--devices", "2"}};
    std::string lock_ = sb_.root() + "/run/vorn_tool.lock";

    ProcResult run(const std::vector<std::string> &args, const char *wait_ms = nullptr) const
    {
        std::vector<std::string> full = {"-i", "0"};
        full.insert(full.end(), args.begin(), args.end());
        if (wait_ms == nullptr)
            return sb_.tool(full);
        return sb_.tool(full, {{"VORN_TEST_LOCK_WAIT_MS", wait_ms}});
    }
    std::string mtu() const { return sb_.emu({"get", "0", "mtu"}).out; }
};

TEST_F(SettingLockTest, HeldLockTurnsSettingRunsAwayAndLetsReadsThrough)
{
    const std::string old = saved_file(20000);
    sb_.set_conf(old);
    LockHolder holder(lock_, true);
    ASSERT_TRUE(holder.held());
    const std::string by = lock_ + " is held by process " + std::to_string(holder.pid()) + ".\n";
    // The run says whom it waits for as it starts waiting, and again when it gives up.
    const std::string held_by = "Waiting for the setting lock: " + by + "The setting lock " + by;

    const auto start = Clock::now();
    ProcResult r = run({"-mtu", "-s", "size", "9000"}, "300");
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(r.status, 0x0B);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, held_by + kBusy);

    const std::vector<std::string> settings[] = {
        {"-route", "-c"},
        {"-route", "-a", "address", "30.0.0.0", "netmask", "255.0.0.0", "gateway", "10.0.0.1"},
        {"-udp", "-s", "port", "5000"},
        {"-mac", "-s", "mac", "00:11:22:33:44:55"},
        {"-link", "-s", "down"},
        {"-ip", "-s", "address", "10.1.0.2", "netmask", "255.255.0.0"},
        {"-gateway", "-s", "gateway", "10.1.0.1"},
        {"-netdetect", "-s", "address", "10.1.0.1"}};
    for (const auto &args : settings) {
        SCOPED_TRACE(args[0]);
        r = run(args, "20");
        EXPECT_EQ(r.status, 0x0B);
        EXPECT_EQ(r.err, held_by + kBusy);
    }
    // Without a shortened wait, a read that waited would take ten seconds and then fail.
    for (const std::string cmd : {"-mtu", "-route", "-link", "-udp", "-mac"}) {
        r = run({cmd, "-g"});
        EXPECT_EQ(r.status, 0) << cmd << ": " << r.err;
    }
    EXPECT_EQ(mtu(), "1500\n");
    EXPECT_TRUE(sb_.conf() == old);

    // A holder that has not named itself yet.
    holder.release();
    LockHolder silent(lock_, false);
    ASSERT_TRUE(silent.held());
    r = run({"-mtu", "-s", "size", "9000"}, "20");
    EXPECT_EQ(r.status, 0x0B);
    EXPECT_EQ(r.err, "Waiting for the setting lock: " + lock_ + " is held by another run.\n" +
                         "The setting lock " + lock_ + " is held by another run.\n" + kBusy);

    // Once the holder is gone, the run goes through.
    silent.release();
    r = run({"-mtu", "-s", "size", "9000"}, "20");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(mtu(), "9000\n");
    EXPECT_TRUE(sb_.conf() == after_mtu_set(old, "9000"));
}

TEST_F(SettingLockTest, WaitingRunGoesOnWhenTheHolderGoesAway)
{
    LockHolder holder(lock_, true);
    ASSERT_TRUE(holder.held());
    ProcResult r;
    std::thread waiter([&] { r = run({"-mtu", "-s", "size", "9000"}, "5000"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    holder.release();
    waiter.join();
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(mtu(), "9000\n");
    EXPECT_EQ(sb_.conf(), "mtu_0=9000\n");
}

// Sixteen runs at once, each setting another item: every run's line is saved once, at the end,
// every other line stays, and each device holds what its run set.
TEST(ConcurrentRunsTest, SixteenRunsOnDifferentItemsLoseNoLine)
{
    ToolSandbox sb({"--devices", "8"});
    const std::string old = saved_file(100 * 1024, 8);
    sb.set_conf(old);
    struct Run {
        std::vector<std::string> args;
        std::string key, field, value;
    };
    std::vector<Run> runs;
    for (int d = 0; d < 8; ++d) {
        const std::string dev = std::to_string(d), mtu = std::to_string(1000 + d);
        runs.push_back({{"-i", dev, "-mtu", "-s", "size", mtu}, "mtu_" + dev, "mtu", mtu});
        if (d % 2 == 0) {
            const std::string port = std::to_string(5000 + d);
            runs.push_back(
                {{"-i", dev, "-udp", "-s", "port", port}, "roce_port_" + dev, "udp-port", port});
        } else {
            const std::string mac = "00:11:22:33:44:0" + dev;
            runs.push_back({{"-i", dev, "-mac", "-s", "mac", mac}, "mac_addr_" + dev, "mac", mac});
        }
    }
    std::latch start(static_cast<std::ptrdiff_t>(runs.size()));
    std::vector<ProcResult> results(runs.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < runs.size(); ++i)
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            results[i] = sb.tool(runs[i].args);
        });
    for (auto &t : threads)
        t.join();

    std::set<std::string> keys, new_lines;
    for (size_t i = 0; i < runs.size(); ++i) {
        SCOPED_TRACE(runs[i].key);
        EXPECT_EQ(results[i].status, 0) << results[i].err;
        EXPECT_EQ(sb.emu({"get", runs[i].args[1], runs[i].field}).out, runs[i].value + "\n");
        keys.insert(runs[i].key + "=");
        new_lines.insert(runs[i].key + "=" + runs[i].value + "\n");
    }
    const std::string kept = filter_lines(
        old, [&](const std::string &l) { return !keys.contains(l.substr(0, l.find('=') + 1)); });
    const std::string now = sb.conf();
    ASSERT_TRUE(now.starts_with(kept)) << "a line that no run replaced is lost or moved";
    const std::string tail = now.substr(kept.size());
    std::set<std::string> saved;
    filter_lines(tail, [&](const std::string &l) { return saved.insert(l + "\n").second; });
    EXPECT_EQ(saved, new_lines);
    EXPECT_EQ(std::count(tail.begin(), tail.end(), '\n'), 16);
}

} // namespace
} // namespace robust
