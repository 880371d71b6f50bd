// The -stat command (the port's packet counters, one per line as `ethtool -S` prints them, and
// their clear) and the -bandwidth command (the traffic rate of the port over a sampling period,
// from two reads of the same counters).
#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "cmdline/option_parser.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr const char *kCounterNames[] = {
#define KOPA_STAT_NAME(name) #name,
    KOPA_NETDEV_STAT_COUNTERS(KOPA_STAT_NAME)
#undef KOPA_STAT_NAME
};
constexpr size_t kCounters = sizeof(kopa_netdev_stat) / sizeof(uint64_t);
static_assert(std::size(kCounterNames) == kCounters, "a name for every counter");

constexpr uint32_t kPeriodMinMs = 100;
constexpr uint32_t kPeriodMaxMs = 10000;
constexpr uint32_t kPeriodDefaultMs = 1000;

constexpr const char *kHelpStat = "   [-g]        : get packet statistics \n"
                                  "   [-c]        : clear packet statistics \n";
constexpr const char *kHelpBandwidth =
    "   [-g]        : get tx and rx bandwidth \n"
    "       -t %d   : sampling period(ms), from 100 to 10000, 1000 if not given\n";

int32_t tool_stat_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_netdev_stat stat{};
    int ret = kopa_get_netdev_stat(info->logic_id, &stat);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get netdev stat", ret, info->logic_id);
    uint64_t values[kCounters];
    memcpy(values, &stat, sizeof(values));
    printf("NIC statistics:\n");
    for (size_t i = 0; i < kCounters; ++i)
        printf("     %s: %llu\n", kCounterNames[i], static_cast<unsigned long long>(values[i]));
    return kOk;
}

int32_t tool_stat_clear_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to clear packet statistics of logic_id[%u]\n", info->logic_id);
    int ret = kopa_clear_netdev_stat(info->logic_id);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa clear netdev stat", ret, info->logic_id);
    return kOk;
}

/// The growth of a counter between two reads; a clear in between counts from zero.
uint64_t grown(uint64_t first, uint64_t last)
{
    return last >= first ? last - first : last;
}

int32_t tool_bandwidth_get_cmd(int argc, char **argv, cmd_parse_info *info)
{
    if (argc != 1 && argc != 3)
        return cmd_err_argc(CMD_HERE, argc);
    const char *period_text = nullptr;
    option_parser parser{};
    int32_t ret = major_command_option(&parser, "-t", nullptr, true, &period_text);
    if (ret == kOk)
        ret = command_parse(&parser, argc - 1, argv + 1);
    if (ret == kErrOptionUnknown)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean -t\n");
    if (ret != kOk)
        return ret;
    uint32_t period = kPeriodDefaultMs;
    if (period_text != nullptr &&
        !diag_read_number(period_text, kPeriodMinMs, kPeriodMaxMs, &period))
        return diag_bad_value(CMD_HERE, period_text, "-t",
                              "a sampling period from 100 to 10000 ms");

    kopa_netdev_stat first{};
    kopa_netdev_stat last{};
    int dev_ret = kopa_get_netdev_stat(info->logic_id, &first);
    const uint64_t start = diag_now_us();
    if (dev_ret == 0) {
        diag_sleep_ms(period);
        dev_ret = kopa_get_netdev_stat(info->logic_id, &last);
    }
    if (dev_ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get netdev stat", dev_ret, info->logic_id);
    // The time between the two answers, as this host measured it.
    uint64_t elapsed_us = diag_now_us() - start;
    if (elapsed_us == 0)
        elapsed_us = 1;
    // Bits per microsecond are Mbit/s.
    const uint64_t rx_mbps = grown(first.rx_bytes, last.rx_bytes) * 8 / elapsed_us;
    const uint64_t tx_mbps = grown(first.tx_bytes, last.tx_bytes) * 8 / elapsed_us;
    const uint64_t rx_pps = grown(first.rx_packets, last.rx_packets) * 1000000 / elapsed_us;
    const uint64_t tx_pps = grown(first.tx_packets, last.tx_packets) * 1000000 / elapsed_us;
    char rx[32];
    char tx[32];
    printf("sampling period: %u ms\n", period);
    printf("rx bandwidth: %s Gbit/s\n", diag_gbps_text(rx_mbps, rx, sizeof(rx)));
    printf("tx bandwidth: %s Gbit/s\n", diag_gbps_text(tx_mbps, tx, sizeof(tx)));
    printf("rx packet rate: %llu packets/s\n", static_cast<unsigned long long>(rx_pps));
    printf("tx packet rate: %llu packets/s\n", static_cast<unsigned long long>(tx_pps));
    return kOk;
}

constexpr CmdOp kStatOps[] = {
    {"-g", 1, false, tool_stat_get_cmd},
    {"-c", 1, false, tool_stat_clear_cmd},
};

constexpr CmdOp kBandwidthOps[] = {{"-g", kOwnCount, false, tool_bandwidth_get_cmd}};

} // namespace

extern constexpr CmdDesc kStatCmd{
    .major = "-i",
    .name = "-stat",
    .handler = "tool_stat_cmd_execute",
    .description = "packet statistics cmd",
    .help = kHelpStat,
    .ops = kStatOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};

extern constexpr CmdDesc kBandwidthCmd{
    .major = "-i",
    .name = "-bandwidth",
    .handler = "tool_bandwidth_cmd_execute",
    .description = "bandwidth cmd",
    .help = kHelpBandwidth,
    .ops = kBandwidthOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
};
