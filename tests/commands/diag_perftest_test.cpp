// End-to-end tests of -roce_test: a start followed to its end, the status, report and stop of a
// test left running, a peer that does not answer, and the refusals of the grammar.
#include <regex>
#include <string>

#include "tests/commands/diag_fixture.hpp"

namespace diag
{
namespace
{

class DiagPerftestTest : public DiagTest
{
  protected:
    void SetUp() override { emu_set("peers", "10.0.0.9 reachable"); }
};

TEST_F(DiagPerftestTest, StartFollowsTheTestToItsStatistics)
{
    // The iteration count's own checker takes a leading zero.
    ProcResult r = run("-roce_test -s ip 10.0.0.9 -n 01000");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    // A line per sample: a quarter of the iterations each.
    const std::string rate = "\\d{3}\\.\\d{3} Gbit/s\n";
    EXPECT_TRUE(std::regex_match(
        r.out, std::regex("ROCE PERFTEST to 10\\.0\\.0\\.9 from device 0: 1000 iterations\n"
                          " 25% 250 iterations " +
                          rate + " 50% 500 iterations " + rate + " 75% 750 iterations " + rate +
                          "100% 1000 iterations " + rate +
                          "--- 10\\.0\\.0\\.9 roce perftest statistics ---\n"
                          "1000 of 1000 iterations done, 4 samples, state done\n"
                          "bandwidth min/avg/max = (\\d{3}\\.\\d{3})/(\\d{3}\\.\\d{3})/"
                          "(\\d{3}\\.\\d{3}) Gbit/s\n")))
        << r.out;
    EXPECT_TRUE(config_logged("start to run roce perftest of logic_id[0]"));

    ProcResult status = run("-roce_test -g");
    EXPECT_TRUE(std::regex_match(status.out, std::regex("state: done\nprogress: 100% \\(1000 "
                                                        "iterations\\)\nbandwidth: " +
                                                        rate)))
        << status.out;
    ProcResult report = run("-roce_test -r");
    EXPECT_TRUE(report.out.starts_with("state: done\npeer: 10.0.0.9\niterations: 1000 of 1000\n"
                                       "message size: 65536 bytes\nsamples: 4\n"))
        << report.out;
    // The report gives the same statistics as the end of the start.
    EXPECT_EQ(report.out.substr(report.out.find("bandwidth")),
              r.out.substr(r.out.find("bandwidth")));

    ProcResult stop = run("-roce_test -c");
    EXPECT_EQ(stop.status, 7);
    EXPECT_EQ(stop.err, "No roce perftest is running on the device.\n");
}

// The start lost the test on its first status: it runs on, and the other operations serve it.
TEST_F(DiagPerftestTest, StatusReportAndStopServeATestLeftRunning)
{
    refuse_once("get_roce_perftest_status");
    ProcResult start = run("-roce_test -s ip 10.0.0.9 -n 100");
    EXPECT_EQ(start.status, 1);
    EXPECT_EQ(start.out, "");
    EXPECT_EQ(start.err, kDeviceFailed);

    ProcResult status = run("-roce_test -g");
    EXPECT_TRUE(status.out.starts_with("state: running\nprogress: 25% (25 iterations)\n"))
        << status.out;
    ProcResult again = run("-roce_test -s ip 10.0.0.9 -n 100");
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.err, "A roce perftest is already running on the device: follow it with "
                         "-roce_test -g, stop it with -roce_test -c.\n" +
                             kDeviceFailed);

    ProcResult stop = run("-roce_test -c");
    EXPECT_EQ(stop.status, 0) << stop.err;
    EXPECT_EQ(stop.out + stop.err, "");
    EXPECT_TRUE(config_logged("start to stop roce perftest of logic_id[0]"));
    EXPECT_TRUE(run("-roce_test -g").out.starts_with("state: stopped\nprogress: 25% (25 "));
    ProcResult report = run("-roce_test -r");
    EXPECT_TRUE(report.out.starts_with("state: stopped\npeer: 10.0.0.9\niterations: 25 of 100\n"))
        << report.out;
}

TEST_F(DiagPerftestTest, PeerThatDoesNotAnswerFailsTheTest)
{
    ProcResult before = run("-roce_test -r");
    EXPECT_EQ(before.status, 7);
    EXPECT_EQ(before.err, "No roce perftest has run on the device.\n");
    EXPECT_EQ(run("-roce_test -g").out, "state: idle\n");

    ProcResult r = run("-roce_test -s ip 10.0.0.6 -n 5");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "ROCE PERFTEST to 10.0.0.6 from device 0: 5 iterations\n"
                     "--- 10.0.0.6 roce perftest statistics ---\n"
                     "0 of 5 iterations done, 0 samples, state failed\n");
    EXPECT_EQ(r.err, kExecFailed);
    EXPECT_EQ(run("-roce_test -r").out, "state: failed\npeer: 10.0.0.6\niterations: 0 of 5\n"
                                        "message size: 65536 bytes\nsamples: 0\n");
}

TEST_F(DiagPerftestTest, RefusedCommandLinesStartNothing)
{
    const std::string iter = "a number of iterations from 5 to 20000";
    const struct {
        std::string line;
        int status;
        std::string head;
    } cases[] = {
        {"-roce_test -x", 0x03, kUnknown},
        {"-roce_test -g x", 0x05, kCount},
        {"-roce_test -s ip 10.0.0.9", 0x05, kCount},
        {"-roce_test -s ip 10.0.0.9 -n 5 x", 0x05, kCount},
        {"-roce_test -s ip 10.0.0.9 -n 4", 0x01,
         "The value \"4\" of -n is invalid, expected " + iter + ".\n" + kInvalid},
        {"-roce_test -s ip 10.0.0.9 -n 20001", 0x01,
         "The value \"20001\" of -n is invalid, expected " + iter + ".\n" + kInvalid},
        {"-roce_test -s ip 10.0.0 -n 5", 0x01,
         "The value \"10.0.0\" of ip is invalid, expected an IPv4 address such as 10.0.0.5.\n" +
             kInvalid},
        {"-roce_test -s ip 10.0.0.9 -m 5", 0x03,
         "Get unknown option \"-m\", do you mean ip or -n\n"},
        {"-roce_test -s ip 10.0.0.9 ip 10.0.0.9", 0x01,
         "The keyword ip is given more than once.\n" + kInvalid},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        ProcResult r = run(c.line);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, c.head + usage("-roce_test"));
    }
    EXPECT_EQ(run("-roce_test -g").out, "state: idle\n");
}

} // namespace
} // namespace diag
