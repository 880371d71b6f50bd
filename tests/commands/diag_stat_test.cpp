// End-to-end tests of -stat and -bandwidth: the counters the port counted, their clear, and the
// rate over a sampling period.
#include <regex>
#include <string>

#include "tests/commands/diag_fixture.hpp"

namespace diag
{
namespace
{

class DiagStatTest : public DiagTest
{
};

TEST_F(DiagStatTest, CountersGrowBetweenReadsAndStartOverAfterAClear)
{
    const ProcResult first = run("-stat -g");
    const ProcResult second = run("-stat -g");
    ASSERT_EQ(first.status, 0) << first.err;
    // 47 counters, one per line as ethtool -S prints them.
    EXPECT_TRUE(
        std::regex_match(first.out, std::regex("NIC statistics:\n(     [a-z0-9_]+: \\d+\n){47}")));
    EXPECT_TRUE(first.out.starts_with("NIC statistics:\n     rx_packets: "));
    EXPECT_NE(first.out.find("\n     roce_tx_cnp: "), std::string::npos);
    for (const char *name : {"rx_packets", "tx_packets", "rx_bytes", "tx_bytes", "rx_unicast"})
        EXPECT_GT(counter(second.out, name), counter(first.out, name)) << name;
    // The parts add up to the whole.
    EXPECT_EQ(counter(second.out, "rx_packets"), counter(second.out, "rx_unicast") +
                                                     counter(second.out, "rx_multicast") +
                                                     counter(second.out, "rx_broadcast"));

    ProcResult clear = run("-stat -c");
    EXPECT_EQ(clear.status, 0) << clear.err;
    EXPECT_EQ(clear.out + clear.err, "");
    EXPECT_TRUE(config_logged("start to clear packet statistics of logic_id[0]"));
    const ProcResult after = run("-stat -g");
    // Cleared, the counters hold what the port counted since: far less than an hour's worth.
    EXPECT_LT(counter(after.out, "rx_packets"), counter(first.out, "rx_packets") / 1000);
    EXPECT_LT(counter(after.out, "rx_crc_errors"), counter(first.out, "rx_crc_errors"));
}

TEST_F(DiagStatTest, CountersStandStillWhileTheLinkIsDown)
{
    emu_set("link", "0");
    const std::string first = run("-stat -g").out;
    EXPECT_EQ(run("-stat -g").out, first);
    ProcResult bw = run("-bandwidth -g -t 100");
    EXPECT_EQ(bw.status, 0) << bw.err;
    EXPECT_EQ(bw.out, "sampling period: 100 ms\nrx bandwidth: 0.000 Gbit/s\n"
                      "tx bandwidth: 0.000 Gbit/s\nrx packet rate: 0 packets/s\n"
                      "tx packet rate: 0 packets/s\n");
}

TEST_F(DiagStatTest, BandwidthIsTheRateOverThePeriodInItsUnits)
{
    ProcResult r = run("-bandwidth -g -t 100");
    ASSERT_EQ(r.status, 0) << r.err;
    std::smatch m;
    ASSERT_TRUE(std::regex_match(r.out, m,
                                 std::regex("sampling period: 100 ms\n"
                                            "rx bandwidth: (\\d+)\\.\\d{3} Gbit/s\n"
                                            "tx bandwidth: (\\d+)\\.\\d{3} Gbit/s\n"
                                            "rx packet rate: (\\d+) packets/s\n"
                                            "tx packet rate: (\\d+) packets/s\n")))
        << r.out;
    for (size_t i = 1; i <= 4; ++i)
        EXPECT_GT(std::stoll(m[i].str()), 0) << i;
}

TEST_F(DiagStatTest, PfcCountersGrowForThePrioritiesThatRunPfc)
{
    ASSERT_EQ(run("-pfc -s bitmap 0,0,0,1,0,0,0,0").status, 0);
    const std::string stat = run("-stat -g").out;
    EXPECT_GT(counter(stat, "rx_pfc_prio3"), 0);
    EXPECT_EQ(counter(stat, "rx_pfc_prio2"), 0);
    ProcResult bp = run("-backpressure -g");
    ASSERT_EQ(bp.status, 0) << bp.err;
    EXPECT_TRUE(std::regex_match(
        bp.out, std::regex("port-backpressure off\n"
                           "prio-backpressure 0:off 1:off 2:off 3:on 4:off 5:off 6:off 7:off\n"
                           "prio-pause-frames 0:0 1:0 2:0 3:[1-9]\\d* 4:0 5:0 6:0 7:0\n")))
        << bp.out;
}

} // namespace
} // namespace diag
