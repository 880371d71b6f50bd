// The -backpressure command: whether the link partner holds the port's transmission, per
// priority, and the pause frames that held it, in the style of dcb's output.
#include <cstdio>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"

namespace
{

constexpr const char *kHelpBackpressure = "   [-g]        : get backpressure info \n";
constexpr uint32_t kPriorities = 8;

int32_t tool_bp_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_backpressure_info bp{};
    int ret = kopa_get_ssu_reg(info->logic_id, &bp);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get ssu reg", ret, info->logic_id);
    printf("port-backpressure %s\n", bp.port_paused != 0 ? "on" : "off");
    printf("prio-backpressure");
    for (uint32_t prio = 0; prio < kPriorities; ++prio)
        printf(" %u:%s", prio, (bp.prio_paused >> prio & 1U) != 0 ? "on" : "off");
    printf("\nprio-pause-frames");
    for (uint32_t prio = 0; prio < kPriorities; ++prio)
        printf(" %u:%llu", prio, static_cast<unsigned long long>(bp.prio_pause_frames[prio]));
    printf("\n");
    return kOk;
}

constexpr CmdOp kBackpressureOps[] = {{"-g", 1, false, tool_bp_get_cmd}};

} // namespace

extern constexpr CmdDesc kBackpressureCmd{
    .major = "-i",
    .name = "-backpressure",
    .handler = "tool_bp_cmd_execute",
    .description = "backpressure cmd",
    .help = kHelpBackpressure,
    .ops = kBackpressureOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
