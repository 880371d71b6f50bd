// The -udp command (set, get and save the UDP port of the device's RoCE traffic) and the replay
// of the saved port.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/result.hpp"
#include "commands/cmd_common.hpp"
#include "commands/port_settings.hpp"
#include "commands/replay.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"
#include "main/checkers.hpp"
#include "main/cmd.hpp"

namespace
{

constexpr uint32_t kNetPort = 0;
constexpr size_t kPortMinDigits = 4;
constexpr size_t kPortMaxDigits = 5;
constexpr const char *kRocePortItem = "roce_port";
constexpr uint32_t kRocePortValueSize = 6; ///< replay buffer of the saved port

constexpr const char *kHelpUdp = "   [-s]        : set roce port port range 4097~65535\n"
                                 "       port %d : roce UDP port\n"
                                 "   [-g]        : get roce udp port\n";

int32_t tool_roce_port_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    int ret = kopa_get_roce_port(info->logic_id, kNetPort);
    if (ret != 0) {
        DRV_ERR("kopa get roce_port fail ret[%d] logic_id[%u]", ret, info->logic_id);
        DRV_ERR("tool get roce_port failed ret %d'", kErrKopa);
        return kErrKopa;
    }
    return kOk;
}

int32_t tool_roce_port_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    if (strcmp(argv[1], "port") != 0) {
        DRV_ERR("invalid option");
        fputs("Get unknown option, do you mean port\n", stderr);
        return kErrUnknownOption;
    }
    RUN_LOG_CONFIG("start to set roce_port of logic_id[%u]\n", info->logic_id);
    int32_t ret = tool_set_roce_port(dev_of(info), argv[2], SetMode::kCommand);
    if (ret != kOk) {
        DRV_ERR("set roce_port failed, logic_id[%u]", info->logic_id);
        return ret;
    }
    // The device keeps the new port even when it cannot be saved.
    return cmd_save_item(CMD_HERE, info->phy_id, kRocePortItem, argv[2],
                         "Failed to write the ROCE port to config file. User configurations "
                         "cannot be persisted.\n");
}

constexpr CmdOp kUdpOps[] = {
    {"-s", 3, true, tool_roce_port_set_cmd},
    {"-g", 1, false, tool_roce_port_get_cmd},
};

} // namespace

extern constexpr CmdDesc kUdpCmd{
    .major = "-i",
    .name = "-udp",
    .handler = "tool_roce_port_cmd_execute",
    .description = "roce port set cmd",
    .help = kHelpUdp,
    .ops = kUdpOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

int32_t tool_set_roce_port(DevRef dev, const char *text, SetMode /*mode*/)
{
    size_t len = text != nullptr ? strlen(text) : 0;
    // Only the form is checked; the device owns the range of usable ports.
    if (len < kPortMinDigits || len > kPortMaxDigits ||
        check_str_is_num(text, static_cast<uint32_t>(len)) != 0) {
        printf("Input port num is invalid.\n");
        DRV_ERR("Input port num is invalid.");
        return kErrSysNull;
    }
    uint32_t port = static_cast<uint32_t>(atoi(text));
    int ret = kopa_set_roce_port(dev.logic_id, kNetPort, port);
    if (ret != 0 && !cmd_set_took_effect(ret, [&] {
            uint32_t held = 0;
            return kopa_read_roce_port(dev.logic_id, kNetPort, &held) == 0 && held == port;
        })) {
        DRV_ERR("kopa set roce_port fail ret[%d] logic_id[%u] roce_port[%u]", ret, dev.logic_id,
                port);
        return kErrKopa;
    }
    return kOk;
}

int32_t tool_cfg_roce_port_recovery(DevRef dev)
{
    char value[kRocePortValueSize] = {};
    if (!cmd_replay_read(CMD_HERE, dev.phy_id, kRocePortItem, "roce_port", value, sizeof(value)))
        return kOk;
    DRV_DBG("roce_port need recover cfg");
    int32_t set_ret = tool_set_roce_port(dev, value, SetMode::kRecovery);
    if (set_ret != kOk)
        DRV_ERR("Roce port set fail. (ret=%d; logic_id=%u)", set_ret, dev.logic_id);
    return set_ret;
}
