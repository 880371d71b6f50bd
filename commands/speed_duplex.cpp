// The -speed and -duplex commands: the port's speed and duplex mode, in words.
#include <cstdio>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"

namespace
{

constexpr const char *kHelpSpeed = "   [-g]        : get eth port speed \n";
constexpr const char *kHelpDuplex = "   [-g]        : get eth port duplex mode \n";

int32_t tool_speed_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    uint32_t speed = 0;
    int ret = kopa_get_eth_speed(info->logic_id, &speed);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get eth speed", ret, info->logic_id);
    char text[32];
    printf("speed: %s\n", diag_speed_text(speed, text, sizeof(text)));
    return kOk;
}

int32_t tool_duplex_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    uint32_t duplex = 0;
    int ret = kopa_get_eth_duplex(info->logic_id, &duplex);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get eth duplex", ret, info->logic_id);
    char text[32];
    printf("duplex: %s\n", diag_duplex_text(duplex, text, sizeof(text)));
    return kOk;
}

constexpr CmdOp kSpeedOps[] = {{"-g", 1, false, tool_speed_get_cmd}};
constexpr CmdOp kDuplexOps[] = {{"-g", 1, false, tool_duplex_get_cmd}};

} // namespace

extern constexpr CmdDesc kSpeedCmd{
    .major = "-i",
    .name = "-speed",
    .handler = "tool_speed_cmd_execute",
    .description = "speed related cmd",
    .help = kHelpSpeed,
    .ops = kSpeedOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};

extern constexpr CmdDesc kDuplexCmd{
    .major = "-i",
    .name = "-duplex",
    .handler = "tool_duplex_cmd_execute",
    .description = "duplex related cmd",
    .help = kHelpDuplex,
    .ops = kDuplexOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
