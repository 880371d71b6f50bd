// The -ping command: echo requests from the device to a remote address, a line per reply as it
// comes, and the statistics of the run. Bounded: at most 100 requests, each answered or timed
// out by the device within a second, at most 10 s apart.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "cmdline/option_parser.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr const char *kHelpPing =
    "   [-g]        : ping a remote address from the device \n"
    "       address %s : destination address, such as x.x.x.x\n"
    "       -s %d   : packet size(bytes), from 0 to 9000, 56 if not given\n"
    "       -c %d   : count of echo requests, from 1 to 100, 4 if not given\n"
    "       -t %d   : interval between requests(ms), from 100 to 10000, 1000 if not given\n";

constexpr uint32_t kSizeMax = 9000;
constexpr uint32_t kSizeDefault = 56;
constexpr uint32_t kCountMax = 100;
constexpr uint32_t kCountDefault = 4;
constexpr uint32_t kIntervalMinMs = 100;
constexpr uint32_t kIntervalMaxMs = 10000;
constexpr uint32_t kIntervalDefaultMs = 1000;
constexpr uint32_t kTimeoutMs = 1000; ///< how long the device waits for each reply
constexpr int kMaxWords = 9;          ///< -g and four options with their values

struct PingArgs {
    uint32_t dst_ip = 0;
    const char *dst_text = nullptr;
    uint32_t size = kSizeDefault;
    uint32_t count = kCountDefault;
    uint32_t interval_ms = kIntervalDefaultMs;
};

/// Reads the options after -g. 0, or the refusal's code after its message.
int32_t read_args(int argc, char **argv, PingArgs &args)
{
    const char *address = nullptr;
    const char *size = nullptr;
    const char *count = nullptr;
    const char *interval = nullptr;
    option_parser parser{};
    int32_t ret = major_command_option(&parser, "address", nullptr, true, &address);
    if (ret == kOk)
        ret = major_command_option(&parser, "-s", nullptr, true, &size);
    if (ret == kOk)
        ret = major_command_option(&parser, "-c", nullptr, true, &count);
    if (ret == kOk)
        ret = major_command_option(&parser, "-t", nullptr, true, &interval);
    if (ret == kOk)
        ret = command_parse(&parser, argc, argv);
    if (ret == kErrOptionUnknown)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean address, -s, -c or -t\n");
    if (ret != kOk)
        return ret;
    if (address == nullptr) {
        DRV_ERR("ping without destination address");
        fprintf(stderr, "The destination address is missing: give address x.x.x.x.\n");
        return kErrParamInvalid;
    }
    if (tool_check_param("address", address) != kOk ||
        tool_inet_pton_ipv4_address(address, &args.dst_ip) != kOk)
        return diag_bad_value(CMD_HERE, address, "address", "an IPv4 address such as 10.0.0.5");
    args.dst_text = address;
    if (size != nullptr &&
        (tool_check_param("-s", size) != kOk || !diag_read_number(size, 0, kSizeMax, &args.size)))
        return diag_bad_value(CMD_HERE, size, "-s", "a packet size from 0 to 9000 bytes");
    if (count != nullptr && !diag_read_number(count, 1, kCountMax, &args.count))
        return diag_bad_value(CMD_HERE, count, "-c", "a count from 1 to 100");
    if (interval != nullptr &&
        !diag_read_number(interval, kIntervalMinMs, kIntervalMaxMs, &args.interval_ms))
        return diag_bad_value(CMD_HERE, interval, "-t", "an interval from 100 to 10000 ms");
    return kOk;
}

struct RttStats {
    uint32_t received = 0;
    uint32_t min_us = 0;
    uint32_t max_us = 0;
    uint64_t sum_us = 0;

    void add(uint32_t rtt_us)
    {
        min_us = received == 0 || rtt_us < min_us ? rtt_us : min_us;
        max_us = rtt_us > max_us ? rtt_us : max_us;
        sum_us += rtt_us;
        ++received;
    }
};

/// Prints the line of one request's outcome; returns whether it was answered.
bool print_outcome(const PingArgs &args, uint32_t seq, const kopa_ping_reply &reply)
{
    switch (reply.status) {
    case KOPA_PING_REPLY:
        diag_progress("%u bytes from %s: icmp_seq=%u ttl=%u time=%u.%03u ms\n", reply.bytes,
                      args.dst_text, seq, reply.ttl, reply.rtt_us / 1000, reply.rtt_us % 1000);
        return true;
    case KOPA_PING_UNREACHABLE:
        diag_progress("From %s icmp_seq=%u Destination Host Unreachable\n", args.dst_text, seq);
        return false;
    case KOPA_PING_TIMEOUT:
        diag_progress("Request timeout for icmp_seq %u\n", seq);
        return false;
    default:
        diag_progress("icmp_seq=%u unknown reply status %u\n", seq, reply.status);
        return false;
    }
}

int32_t tool_ping_get_cmd(int argc, char **argv, cmd_parse_info *info)
{
    cmd_stdout_by_line();
    if (argc < 3 || argc > kMaxWords || argc % 2 == 0)
        return cmd_err_argc(CMD_HERE, argc);
    PingArgs args;
    int32_t check = read_args(argc - 1, argv + 1, args);
    if (check != kOk)
        return check;

    RttStats rtt;
    const uint64_t start = diag_now_us();
    for (uint32_t seq = 1; seq <= args.count; ++seq) {
        // Requests leave one interval apart; one that waited out its timeout does not delay
        // the next beyond its turn.
        const uint64_t due = start + static_cast<uint64_t>(seq - 1) * args.interval_ms * 1000;
        const uint64_t now = diag_now_us();
        if (due > now)
            diag_sleep_ms(static_cast<uint32_t>((due - now + 999) / 1000));
        const kopa_ping_req req{args.dst_ip, args.size, seq, kTimeoutMs};
        kopa_ping_reply reply{};
        int ret = kopa_ping_fun(info->logic_id, &req, &reply);
        if (ret != 0)
            return diag_device_failed(CMD_HERE, "kopa ping fun", ret, info->logic_id);
        if (seq == 1)
            diag_progress("PING %s from device %u: %u data bytes\n", args.dst_text, info->phy_id,
                          args.size);
        if (print_outcome(args, seq, reply))
            rtt.add(reply.rtt_us);
    }
    const double loss = 100.0 * (args.count - rtt.received) / args.count;
    printf("--- %s ping statistics ---\n", args.dst_text);
    printf("%u packets transmitted, %u received, %g%% packet loss\n", args.count, rtt.received,
           loss);
    if (rtt.received == 0) {
        DRV_ERR("ping %s: no reply to %u requests, logic_id[%u]", args.dst_text, args.count,
                info->logic_id);
        return kErrExec;
    }
    const uint64_t avg = rtt.sum_us / rtt.received;
    printf("rtt min/avg/max = %u.%03u/%llu.%03llu/%u.%03u ms\n", rtt.min_us / 1000,
           rtt.min_us % 1000, static_cast<unsigned long long>(avg / 1000),
           static_cast<unsigned long long>(avg % 1000), rtt.max_us / 1000, rtt.max_us % 1000);
    return kOk;
}

constexpr CmdOp kPingOps[] = {{"-g", kOwnCount, false, tool_ping_get_cmd}};

} // namespace

extern constexpr CmdDesc kPingCmd{
    .major = "-i",
    .name = "-ping",
    .handler = "tool_ping_cmd_execute",
    .description = "ping cmd",
    .help = kHelpPing,
    .ops = kPingOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
};
