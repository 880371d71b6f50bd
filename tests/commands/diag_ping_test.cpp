// End-to-end tests of -ping: a line per reply, the statistics, loss, unreachable peers ending in
// bounded time with a failure status, and progress that shows while the run goes on.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/commands/diag_fixture.hpp"

namespace diag
{
namespace
{

class DiagPingTest : public DiagTest
{
  protected:
    void SetUp() override
    {
        emu_set("peers", "10.0.0.9 reachable 120");
        emu_set("peers", "10.0.0.7 lossy 50 200");
        emu_set("peers", "10.0.0.8 unreachable");
    }
};

TEST_F(DiagPingTest, RepliesAndLossesAreLinesAndAddUpInTheStatistics)
{
    const struct {
        std::string line, out;
    } cases[] = {
        {"-ping -g address 10.0.0.9 -t 100",
         "PING 10.0.0.9 from device 0: 56 data bytes\n"
         "64 bytes from 10.0.0.9: icmp_seq=1 ttl=64 time=0.132 ms\n"
         "64 bytes from 10.0.0.9: icmp_seq=2 ttl=64 time=0.144 ms\n"
         "64 bytes from 10.0.0.9: icmp_seq=3 ttl=64 time=0.131 ms\n"
         "64 bytes from 10.0.0.9: icmp_seq=4 ttl=64 time=0.143 ms\n"
         "--- 10.0.0.9 ping statistics ---\n"
         "4 packets transmitted, 4 received, 0% packet loss\n"
         "rtt min/avg/max = 0.131/0.137/0.144 ms\n"},
        {"-ping -g -c 3 -s 1000 -t 100 address 10.0.0.7",
         "PING 10.0.0.7 from device 0: 1000 data bytes\n"
         "1008 bytes from 10.0.0.7: icmp_seq=1 ttl=64 time=0.237 ms\n"
         "Request timeout for icmp_seq 2\n"
         "1008 bytes from 10.0.0.7: icmp_seq=3 ttl=64 time=0.229 ms\n"
         "--- 10.0.0.7 ping statistics ---\n"
         "3 packets transmitted, 2 received, 33.3333% packet loss\n"
         "rtt min/avg/max = 0.229/0.233/0.237 ms\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        ProcResult r = run(c.line);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, "");
    }
}

// Nothing answers: every request gets its line, the run ends within its bound with the loss
// and a failure status.
TEST_F(DiagPingTest, UnansweredPeersEndInBoundedTimeWithAFailure)
{
    const struct {
        std::string line, lines;
    } cases[] = {
        {"-ping -g address 10.0.0.8 -c 2 -t 100",
         "From 10.0.0.8 icmp_seq=1 Destination Host Unreachable\n"
         "From 10.0.0.8 icmp_seq=2 Destination Host Unreachable\n"},
        {"-ping -g address 10.0.0.6 -c 2 -t 100",
         "Request timeout for icmp_seq 1\nRequest timeout for icmp_seq 2\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        const auto start = std::chrono::steady_clock::now();
        ProcResult r = run(c.line);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
        EXPECT_EQ(r.status, 1);
        const std::string peer = c.line.substr(17, 8);
        EXPECT_EQ(r.out, "PING " + peer + " from device 0: 56 data bytes\n" + c.lines + "--- " +
                             peer + " ping statistics ---\n" +
                             "2 packets transmitted, 0 received, 100% packet loss\n");
        EXPECT_EQ(r.err, kExecFailed);
        EXPECT_NE(sb_.driver_log().find("ping " + peer + ": no reply to 2 requests"),
                  std::string::npos);
    }
    // A port that is down reaches nobody.
    emu_set("link", "0");
    EXPECT_EQ(run("-ping -g address 10.0.0.9 -c 1").status, 1);
}

// With a long interval the first reply is on the pipe while the run still waits for its turn
// to send the next request.
TEST_F(DiagPingTest, EachReplyShowsWhileTheRunGoesOn)
{
    int out[2];
    ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
    std::vector<std::string> args{vorn_tool_bin(), "-i", "0", "-ping", "-g",   "address",
                                  "10.0.0.9",      "-c", "2", "-t",    "10000"};
    std::vector<char *> argv;
    for (std::string &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    std::vector<std::string> env_strs;
    for (const auto &[k, v] : sb_.env())
        env_strs.push_back(k + "=" + v);
    std::vector<char *> envp;
    for (std::string &e : env_strs)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, out[1], 1);
    pid_t pid = -1;
    ASSERT_EQ(posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), envp.data()), 0);
    posix_spawn_file_actions_destroy(&fa);
    close(out[1]);

    const std::string want = "PING 10.0.0.9 from device 0: 56 data bytes\n"
                             "64 bytes from 10.0.0.9: icmp_seq=1 ttl=64 time=0.132 ms\n";
    std::string got;
    char buf[256];
    while (got.size() < want.size()) {
        const ssize_t n = read(out[0], buf, sizeof(buf));
        if (n <= 0)
            break;
        got.append(buf, static_cast<size_t>(n));
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, WNOHANG), 0) << "the run ended before its second request";
    kill(pid, SIGTERM);
    waitpid(pid, &status, 0);
    close(out[0]);
    EXPECT_EQ(got, want);
}

} // namespace
} // namespace diag
