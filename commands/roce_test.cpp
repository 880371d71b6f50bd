// The -roce_test command: the RoCE performance test of the port towards a peer. The start
// follows the test while it runs, a line per sample, and ends with its statistics; the status,
// the report and the stop serve a test that runs on (started elsewhere, or left behind).
#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/result.hpp"
#include "base/text.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "commands/keyword_args.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr const char *kHelpRoceTest = "   [-s]        : start roce perftest \n"
                                      "       ip %s   : peer ip address, such as x.x.x.x\n"
                                      "       -n %d   : iterations, from 5 to 20000\n"
                                      "   [-g]        : get roce perftest status \n"
                                      "   [-r]        : get roce perftest report \n"
                                      "   [-c]        : stop roce perftest \n";

constexpr uint32_t kPollMs = 100;        ///< between two samples of a running test
constexpr uint32_t kFollowMaxMs = 60000; ///< how long the start follows the test
constexpr uint32_t kIterTextSize = 8;    ///< "20000" and room to refuse longer numbers
constexpr const char *kStates[] = {"idle", "running", "done", "stopped", "failed"};

const char *state_name(uint32_t state)
{
    return state < std::size(kStates) ? kStates[state] : "unknown";
}

const kopa_roce_perftest_query kQuery{0};

/// "bandwidth min/avg/max = 180.501/185.000/189.420 Gbit/s" of a report with samples.
void print_bandwidth(const kopa_roce_perftest_report &r)
{
    if (r.samples == 0)
        return;
    char lo[32];
    char avg[32];
    char hi[32];
    printf("bandwidth min/avg/max = %s/%s/%s Gbit/s\n", diag_gbps_text(r.bw_min, lo, sizeof(lo)),
           diag_gbps_text(r.bw_avg, avg, sizeof(avg)), diag_gbps_text(r.bw_max, hi, sizeof(hi)));
}

/// Follows a test just started: polls its status and prints each new sample, until it ends or
/// the follow time runs out. 0 with `*final` set to the state it ended in, or a device failure.
int32_t follow(cmd_parse_info *info, const char *peer, uint32_t iterations, uint32_t *final)
{
    uint32_t samples_seen = 0;
    bool headed = false;
    for (uint32_t waited = 0; waited < kFollowMaxMs; waited += kPollMs) {
        diag_sleep_ms(kPollMs);
        kopa_roce_perftest_status st{};
        int ret = kopa_get_roce_perftest_status(info->logic_id, &kQuery, &st);
        if (ret != 0)
            return diag_device_failed(CMD_HERE, "kopa get roce perftest status", ret,
                                      info->logic_id);
        if (!headed) {
            diag_progress("ROCE PERFTEST to %s from device %u: %u iterations\n", peer, info->phy_id,
                          iterations);
            headed = true;
        }
        if (st.iterations_done != samples_seen && st.bandwidth != 0) {
            char bw[32];
            diag_progress("%3u%% %u iterations %s Gbit/s\n", st.percent, st.iterations_done,
                          diag_gbps_text(st.bandwidth, bw, sizeof(bw)));
            samples_seen = st.iterations_done;
        }
        if (st.state != KOPA_PERFTEST_RUNNING) {
            *final = st.state;
            return kOk;
        }
    }
    *final = KOPA_PERFTEST_RUNNING;
    return kOk;
}

int32_t tool_roce_test_start_cmd(int argc, char **argv, cmd_parse_info *info)
{
    cmd_stdout_by_line();
    char peer[kIpTextSize] = {};
    char iter_text[kIterTextSize] = {};
    const KeywordArg args[] = {
        {"ip", peer, sizeof(peer)},
        {"-n", iter_text, sizeof(iter_text), nullptr, "a number of iterations from 5 to 20000"},
    };
    int32_t check = cmd_read_keywords(CMD_HERE, argc - 1, argv + 1, args, WordsFrom::kTyped);
    if (check != kOk)
        return check;
    kopa_roce_perftest_req req{};
    req.iterations = static_cast<uint32_t>(strtoul(iter_text, nullptr, 10));
    check = tool_inet_pton_ipv4_address(peer, &req.peer_ip);
    if (check != kOk)
        return check;

    RUN_LOG_CONFIG("start to run roce perftest of logic_id[%u]\n", info->logic_id);
    int ret = kopa_start_roce_perftest(info->logic_id, &req);
    if (ret == kErrnoBusy) {
        DRV_ERR("roce perftest already running, logic_id[%u]", info->logic_id);
        fprintf(stderr, "A roce perftest is already running on the device: follow it with "
                        "-roce_test -g, stop it with -roce_test -c.\n");
        return kErrKopa;
    }
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa start roce perftest", ret, info->logic_id);

    uint32_t state = KOPA_PERFTEST_RUNNING;
    int32_t followed = follow(info, peer, req.iterations, &state);
    if (followed != kOk)
        return followed;
    if (state == KOPA_PERFTEST_RUNNING) {
        DRV_ERR("roce perftest still running after %u ms, logic_id[%u]", kFollowMaxMs,
                info->logic_id);
        fprintf(stderr,
                "The roce perftest is still running after %u s: follow it with "
                "-roce_test -g, stop it with -roce_test -c.\n",
                kFollowMaxMs / 1000);
        return kErrExec;
    }
    kopa_roce_perftest_report r{};
    ret = kopa_get_roce_perftest_report(info->logic_id, &kQuery, &r);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get roce perftest report", ret, info->logic_id);
    printf("--- %s roce perftest statistics ---\n", peer);
    printf("%u of %u iterations done, %u samples, state %s\n", r.iterations_done, r.iterations,
           r.samples, state_name(r.state));
    print_bandwidth(r);
    if (r.state == KOPA_PERFTEST_FAILED) {
        DRV_ERR("roce perftest to %s failed, logic_id[%u]", peer, info->logic_id);
        return kErrExec;
    }
    return kOk;
}

int32_t tool_roce_test_status_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_roce_perftest_status st{};
    int ret = kopa_get_roce_perftest_status(info->logic_id, &kQuery, &st);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get roce perftest status", ret, info->logic_id);
    printf("state: %s\n", state_name(st.state));
    if (st.state == KOPA_PERFTEST_IDLE)
        return kOk;
    char bw[32];
    printf("progress: %u%% (%u iterations)\n", st.percent, st.iterations_done);
    printf("bandwidth: %s Gbit/s\n", diag_gbps_text(st.bandwidth, bw, sizeof(bw)));
    return kOk;
}

int32_t tool_roce_test_report_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_roce_perftest_report r{};
    int ret = kopa_get_roce_perftest_report(info->logic_id, &kQuery, &r);
    if (ret == KOPA_RESULT_NOENT) {
        DRV_ERR("no roce perftest report, logic_id[%u]", info->logic_id);
        fprintf(stderr, "No roce perftest has run on the device.\n");
        return kErrReported;
    }
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get roce perftest report", ret, info->logic_id);
    char peer[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &r.peer_ip, peer, sizeof(peer));
    printf("state: %s\n", state_name(r.state));
    printf("peer: %s\n", peer);
    printf("iterations: %u of %u\n", r.iterations_done, r.iterations);
    printf("message size: %u bytes\n", r.msg_size);
    printf("samples: %u\n", r.samples);
    print_bandwidth(r);
    return kOk;
}

int32_t tool_roce_test_stop_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to stop roce perftest of logic_id[%u]\n", info->logic_id);
    int ret = kopa_stop_roce_perftest(info->logic_id, &kQuery);
    if (ret == KOPA_RESULT_NOENT) {
        DRV_ERR("no roce perftest running, logic_id[%u]", info->logic_id);
        fprintf(stderr, "No roce perftest is running on the device.\n");
        return kErrReported;
    }
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa stop roce perftest", ret, info->logic_id);
    return kOk;
}

constexpr CmdOp kRoceTestOps[] = {
    {"-s", 5, false, tool_roce_test_start_cmd},
    {"-g", 1, false, tool_roce_test_status_cmd},
    {"-r", 1, false, tool_roce_test_report_cmd},
    {"-c", 1, false, tool_roce_test_stop_cmd},
};

} // namespace

extern constexpr CmdDesc kRoceTestCmd{
    .major = "-i",
    .name = "-roce_test",
    .handler = "tool_roce_test_cmd_execute",
    .description = "roce test cmd",
    .help = kHelpRoceTest,
    .ops = kRoceTestOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
};
