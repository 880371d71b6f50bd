// The -udp command (set, get and save the UDP port of the device's RoCE traffic) and the replay
// of the saved port.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/port_settings.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr uint32_t kNetPort = 0;
constexpr size_t kPortMinDigits = 4;
constexpr size_t kPortMaxDigits = 5;
constexpr long kPortMin = 4097;            ///< the device's smallest port
constexpr long kPortMax = 65535;           ///< the device's largest port
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

constexpr ItemSetCmd kUdpSet{
    .keyword = "port",
    .item = &kRocePortItem,
    .refusal_log = "invalid option\n",
    .refusal_text = "Get unknown option, do you mean port\n",
    .drv_refusal = true,
    .start_what = "roce_port",
    .fail_what = "roce_port",
    .save_fail = "Failed to write the ROCE port to config file. User configurations "
                 "cannot be persisted.\n",
};

int32_t tool_roce_port_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    return cmd_set_item(CMD_HERE, kUdpSet, argv, info);
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

namespace
{

// Only the form is checked; the device owns the range of usable ports.
int32_t check_roce_port(const char *text)
{
    size_t len = text != nullptr ? strlen(text) : 0;
    return len < kPortMinDigits || len > kPortMaxDigits ||
                   check_str_is_num(text, static_cast<uint32_t>(len)) != 0
               ? kErrSysNull
               : kOk;
}

ItemLive live_roce_port(uint32_t logic_id)
{
    uint32_t port = 0;
    const int ret = kopa_read_roce_port(logic_id, kNetPort, &port);
    return item_live_number(ret, port);
}

// The range the help announces; the tool leaves it to the device.
int32_t device_roce_port(const char *text)
{
    const long port = strtol(text, nullptr, 10);
    return port < kPortMin || port > kPortMax ? kErrKopa : kOk;
}

} // namespace

extern constexpr SavedItem kRocePortItem{
    .key = "roce_port",
    .buffer = kRocePortValueSize,
    .kind = ItemKind::kNumber,
    .what = "RoCE UDP port",
    .check = check_roce_port,
    .live = live_roce_port,
    .replay = tool_cfg_roce_port_recovery,
    .replay_name = "tool_cfg_roce_port_recovery",
    .set_words = "-udp -s port {roce_port}",
    .canonical = item_canonical_number,
    .set = tool_set_roce_port,
    .device_check = device_roce_port,
    .ansible_module = "vorn_devices",
    .ansible_option = "udp_port",
};

int32_t tool_set_roce_port(DevRef dev, const char *text, SetMode /*mode*/)
{
    if (check_roce_port(text) != kOk) {
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

int32_t tool_cfg_roce_port_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kRocePortItem, dev, "roce_port",
                            "roce_port need recover cfg",
                            "Roce port set fail. (ret=%d; logic_id=%u)");
}
