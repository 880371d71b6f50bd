// The -context command: the context of one RoCE queue pair, field by field.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr const char *kHelpContext = "   [-g]        : get roce context \n"
                                     "       qpn %d  : queue pair number, from 0 to 16777215\n";
/// Digits of the largest queue pair number: a longer text is out of range whatever it holds.
constexpr size_t kQpnDigitsMax = 8;

constexpr const char *kStates[] = {"RESET", "INIT", "RTR", "RTS", "SQD", "SQE", "ERR"};
constexpr const char *kTypes[] = {"RC", "UC", "UD", "GSI"};

template <size_t N> const char *name_of(const char *const (&names)[N], uint32_t value)
{
    return value < N ? names[value] : "unknown";
}

/// Checks the queue pair number: digits only (else 0x2001), at most 16777215 (else the range
/// code 0x200D).
int32_t read_qpn(const char *text, uint32_t *qpn)
{
    const size_t len = strlen(text);
    if (len == 0 || check_str_is_num(text, static_cast<uint32_t>(len)) != 0)
        return diag_bad_value(CMD_HERE, text, "qpn", "a queue pair number from 0 to 16777215");
    uint64_t value = 0;
    for (size_t i = 0; i < len && len <= kQpnDigitsMax; ++i)
        value = value * 10 + static_cast<uint64_t>(text[i] - '0');
    if (len > kQpnDigitsMax || value > KOPA_QPN_MAX) {
        DRV_ERR("qpn[%s] is out of range [0, %u]", text, KOPA_QPN_MAX);
        return kErrRangeRoceContext;
    }
    *qpn = static_cast<uint32_t>(value);
    return kOk;
}

int32_t tool_roce_context_get_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    if (strcmp(argv[1], "qpn") != 0)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean qpn\n");
    kopa_roce_context_query query{};
    int32_t check = read_qpn(argv[2], &query.qpn);
    if (check != kOk)
        return check;
    kopa_roce_qp_context qp{};
    int ret = kopa_get_roce_context(info->logic_id, &query, &qp);
    if (ret == KOPA_RESULT_NOENT) {
        DRV_ERR("qpn[%u] is not in use, logic_id[%u]", query.qpn, info->logic_id);
        fprintf(stderr, "Queue pair %u is not in use on the device.\n", query.qpn);
        return kErrReported;
    }
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get roce context", ret, info->logic_id);
    char dest_ip[INET_ADDRSTRLEN] = "-";
    if (qp.dest_ip != 0)
        inet_ntop(AF_INET, &qp.dest_ip, dest_ip, sizeof(dest_ip));
    printf("qpn: %u\n", qp.qpn);
    printf("state: %s\n", name_of(kStates, qp.state));
    printf("type: %s\n", name_of(kTypes, qp.type));
    printf("dest qpn: %u\n", qp.dest_qpn);
    printf("dest ip: %s\n", dest_ip);
    printf("path mtu: %u\n", qp.path_mtu);
    printf("sq psn: %u\n", qp.sq_psn);
    printf("rq psn: %u\n", qp.rq_psn);
    printf("sq depth: %u\n", qp.sq_depth);
    printf("rq depth: %u\n", qp.rq_depth);
    printf("sq head: %u\n", qp.sq_head);
    printf("sq tail: %u\n", qp.sq_tail);
    printf("retry count: %u\n", qp.retry_count);
    printf("rnr retry: %u\n", qp.rnr_retry);
    printf("traffic class: %u\n", qp.traffic_class);
    printf("priority: %u\n", qp.priority);
    printf("hop limit: %u\n", qp.hop_limit);
    return kOk;
}

constexpr CmdOp kContextOps[] = {{"-g", 3, false, tool_roce_context_get_cmd}};

} // namespace

extern constexpr CmdDesc kContextCmd{
    .major = "-i",
    .name = "-context",
    .handler = "tool_roce_context_cmd_execute",
    .description = "roce context cmd",
    .help = kHelpContext,
    .ops = kContextOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
