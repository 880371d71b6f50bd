// Runs that change a large configuration file, killed at random instants: whenever a run dies,
// the file is the old one or exactly the new one, never empty, cut or doubled.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <random>
#include <thread>

#include "tests/robust/saved_file.hpp"

namespace robust
{
namespace
{

using Clock = std::chrono::steady_clock;

class KillTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "8"}};

    void restore(const std::string &old) const
    {
        ASSERT_TRUE(write_file(sb_.conf_path(), old));
        ASSERT_EQ(chmod(sb_.conf_path().c_str(), 0640), 0);
    }

    // Kills `rounds` runs of `args` on the file `old`, each after a delay drawn uniformly from
    // [0, 1.5 x the median time of an uncontested run], and checks the file after each.
    void kill_runs(const std::vector<std::string> &args, const std::string &old,
                   const std::string &expected, int rounds)
    {
        std::vector<long> times;
        for (int i = 0; i < 5; ++i) {
            ASSERT_NO_FATAL_FAILURE(restore(old));
            const auto start = Clock::now();
            const pid_t pid = start_tool(sb_, args);
            ASSERT_GT(pid, 0);
            int status = 0;
            ASSERT_EQ(waitpid(pid, &status, 0), pid);
            times.push_back(
                std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start)
                    .count());
            ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
            ASSERT_TRUE(sb_.conf() == expected) << "an uncontested run left another file";
        }
        std::sort(times.begin(), times.end());
        const long run_us = times[2];
        const std::string identity = file_identity(sb_.conf_path());

        const unsigned seed = std::random_device{}();
        std::mt19937 rng(seed);
        std::uniform_int_distribution<long> delay_us(0, run_us * 3 / 2);
        int old_left = 0, new_left = 0, finished = 0, bad = 0;
        for (int i = 0; i < rounds && bad < 3; ++i) {
            ASSERT_NO_FATAL_FAILURE(restore(old));
            const long delay = delay_us(rng);
            const pid_t pid = start_tool(sb_, args);
            ASSERT_GT(pid, 0);
            std::this_thread::sleep_for(std::chrono::microseconds(delay));
            (void)kill(pid, SIGKILL);
            int status = 0;
            ASSERT_EQ(waitpid(pid, &status, 0), pid);
            if (WIFEXITED(status)) {
                ++finished;
                EXPECT_EQ(WEXITSTATUS(status), 0);
            }
            const std::string now = sb_.conf();
            if (now == old) {
                ++old_left;
            } else if (now == expected) {
                ++new_left;
            } else {
                ++bad;
                ADD_FAILURE() << "round " << i << ", killed after " << delay << " us (seed " << seed
                              << "): " << now.size() << " bytes, neither the old " << old.size()
                              << " nor the new " << expected.size();
            }
            EXPECT_EQ(file_identity(sb_.conf_path()), identity) << "round " << i;
        }
        std::cout << "[ kills    ] " << args[2] << " " << args[3] << ": run " << run_us << " us, "
                  << rounds << " kills in [0, " << run_us * 3 / 2 << "] us: old file " << old_left
                  << ", new file " << new_left << " (of which " << finished
                  << " runs ended before the kill), seed " << seed << "\n";
        RecordProperty("run_us", static_cast<int>(run_us));
        RecordProperty("old_file", old_left);
        RecordProperty("new_file", new_left);
        RecordProperty("finished", finished);

        // Whatever the last killed run left beside the file, the next run completes.
        ASSERT_NO_FATAL_FAILURE(restore(old));
        EXPECT_EQ(sb_.tool(args).status, 0);
        EXPECT_TRUE(sb_.conf() == expected);
    }
};

TEST_F(KillTest, KilledRewriteLeavesOldOrNewFile)
{
    const std::string old = saved_file(700 * 1024);
    kill_runs({"-i", "0", "-mtu", "-s", "size", "9000"}, old, after_mtu_set(old, "9000"), 200);
}

TEST_F(KillTest, KilledRouteClearLeavesOldOrNewFile)
{
    // One route in 64 is device 0's, some 160 of 10,500: the run stays short, and more of the
    // kills fall on the replacement of the file.
    const std::string old = saved_file(700 * 1024, 16, 64);
    kill_runs({"-i", "0", "-route", "-c"}, old, after_route_clear(old), 100);
}

} // namespace
} // namespace robust
