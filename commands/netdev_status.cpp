// The -status command: the port's state at a glance: link, speed, duplex and FEC mode in words,
// MTU, auto-negotiation, how often the link went down and when it last changed.
#include <cstdio>
#include <ctime>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"

namespace
{

constexpr const char *kHelpStatus = "   [-g]        : get netdev status \n";

int32_t tool_netdev_status_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_netdev_status st{};
    int ret = kopa_get_netdev_status(info->logic_id, &st);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get netdev status", ret, info->logic_id);
    char speed[32];
    char duplex[32];
    char fec[32];
    char changed[32] = "never";
    if (st.last_change != 0) {
        const auto when = static_cast<time_t>(st.last_change);
        tm local{};
        if (localtime_r(&when, &local) == nullptr ||
            strftime(changed, sizeof(changed), "%Y-%m-%d %H:%M:%S", &local) == 0)
            (void)snprintf(changed, sizeof(changed), "%llu",
                           static_cast<unsigned long long>(st.last_change));
    }
    printf("link: %s\n", st.link != 0 ? "up" : "down");
    printf("speed: %s\n", diag_speed_text(st.speed, speed, sizeof(speed)));
    printf("duplex: %s\n", diag_duplex_text(st.duplex, duplex, sizeof(duplex)));
    printf("fec: %s\n", diag_fec_text(st.fec_mode, fec, sizeof(fec)));
    printf("mtu: %u\n", st.mtu);
    printf("autoneg: %s\n", st.autoneg != 0 ? "on" : "off");
    printf("link flaps: %u\n", st.link_flaps);
    printf("last link change: %s\n", changed);
    return kOk;
}

constexpr CmdOp kStatusOps[] = {{"-g", 1, false, tool_netdev_status_get_cmd}};

} // namespace

extern constexpr CmdDesc kStatusCmd{
    .major = "-i",
    .name = "-status",
    .handler = "tool_netdev_status_cmd_execute",
    .description = "netdev status cmd",
    .help = kHelpStatus,
    .ops = kStatusOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
