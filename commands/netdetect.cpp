// The -netdetect command: the address of the peer that a device probes to judge its link, and
// its replay.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "commands/setting.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr const char *kNetdetectName = "netdetect";

// Unlike a port address, 0.0.0.0 is accepted as a detection address; only the broadcast address
// is refused.
[[nodiscard]] int32_t tool_netdetect_set_address(DevRef dev, const char *text, SetMode /*mode*/)
{
    uint32_t address = 0;
    int32_t ret = tool_inet_pton_ipv4_address(text, &address);
    if (ret != kOk) {
        fprintf(stderr, "The IP address is invalid!\n");
        DRV_ERR("Tool inet pton ipv4 address fail. (ret=%d)", ret);
        return ret;
    }
    if (address == 0xFFFFFFFFu) {
        fprintf(stderr, "The IP address is invalid!\n");
        DRV_ERR("Addr is broadcast ip");
        return kErrReported;
    }
    int kret = kopa_set_net_detect_ip_address(dev.logic_id, address);
    if (kret != 0 && !cmd_set_took_effect(kret, [&] {
            uint32_t held = 0;
            return kopa_get_net_detect_ip_address(dev.logic_id, 0, &held) == 0 && held == address;
        })) {
        DRV_ERR("kopa set net detect fail! ret[%d] logic_id[%u] ip[0x%x]", kret, dev.logic_id,
                address);
        return kopa_err_to_vorn_err(kret);
    }
    return kOk;
}

int32_t tool_set_netdetect(int /*argc*/, char **argv, cmd_parse_info *info)
{
    if (strcmp(argv[1], "address") != 0)
        return cmd_err_unknown_option(CMD_HERE, nullptr, "Get unknown cmd, do you mean address.\n");
    char text[kIpTextSize] = {};
    int32_t ret = cmd_copy_ip_word(CMD_HERE, text, argv[2], "address", true);
    if (ret != kOk)
        return ret;

    RUN_LOG_CONFIG("Start to set net detect ip of logic_id[%u]\n", info->logic_id);
    ret = tool_netdetect_set_address(dev_of(info), text, SetMode::kCommand);
    if (ret != kOk) {
        DRV_ERR("Tool netdetect set address fail. (ret=%d; logic_id=%u)", ret, info->logic_id);
        return ret;
    }
    ret = cfg_write_conf(info->phy_id, kNetdetectName, text);
    if (ret != 0) {
        fprintf(stderr, "Failed to write the IP address of the network detection object to the "
                        "config file, and user configurations cannot be persisted.\n");
        DRV_ERR("Write cfg error. (ret=%d; logic_id=%u)", ret, info->logic_id);
        return ret;
    }
    DRV_DBG("Set logic_id[%u] netdetect address success!", info->logic_id);
    return kOk;
}

int32_t tool_get_netdetect(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    uint32_t address = 0;
    int ret = kopa_get_net_detect_ip_address(info->logic_id, 0, &address);
    if (ret != 0) {
        DRV_ERR("kopa_get_net_detect_ip_address fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    char text[kIpTextSize] = {};
    int32_t cret = tool_ipv4_int_to_str(address, text, sizeof(text));
    if (cret != kOk) {
        DRV_ERR("tool_ipv4_int_to_str fail ret[%d] logic_id[%u]", cret, info->logic_id);
        return cret;
    }
    printf("netdetect address: %s\n", text);
    DRV_DBG("netdetect address: %s", text);
    return kOk;
}

constexpr CmdOp kNetdetectOps[] = {
    {"-s", 3, true, tool_set_netdetect, nullptr, "tool_set_netdetect fail, ret:%d"},
    {"-g", 1, false, tool_get_netdetect, nullptr, "tool_get_netdetect fail, ret:%d"},
};

constexpr CmdMask kNetdetectMasks[] = {{"address", 5}};

constexpr const char *kHelpNetdetect =
    "   [-s]        : set net detect cfg \n"
    "       address %s : set net detect ip address, such as x.x.x.x\n"
    "   [-g]        : get net detect cfg \n";

} // namespace

extern constexpr CmdDesc kNetdetectCmd{
    .major = "-i",
    .name = "-netdetect",
    .handler = "tool_netdetect_cmd_execute",
    .description = "net detect cfg cmd",
    .help = kHelpNetdetect,
    .ops = kNetdetectOps,
    .unknown_op = {RefusalLog::kNone, nullptr, "Get unknown option.\n"},
    .masks = kNetdetectMasks,
};

namespace
{

int32_t check_netdetect(const char *text)
{
    uint32_t address = 0;
    const int32_t ret = tool_inet_pton_ipv4_address(text, &address);
    if (ret != kOk)
        return ret;
    return address == 0xFFFFFFFFu ? kErrReported : kOk;
}

ItemLive live_netdetect(uint32_t logic_id)
{
    uint32_t address = 0;
    ItemLive live;
    live.ret = kopa_get_net_detect_ip_address(logic_id, 0, &address);
    if (live.ret == 0)
        live.value = item_ipv4_text(address);
    return live;
}

} // namespace

extern constexpr SavedItem kNetdetectItem{
    .key = kNetdetectName,
    .buffer = kIpTextSize,
    .kind = ItemKind::kIpv4,
    .what = "network-detection address",
    .check = check_netdetect,
    .live = live_netdetect,
    .replay = tool_cfg_netdetect_recovery,
    .replay_name = "tool_cfg_netdetect_recovery",
    .set_words = "-netdetect -s address {netdetect}",
    .canonical = item_canonical_ipv4,
    .set = tool_netdetect_set_address,
    .ansible_module = "vorn_devices",
    .ansible_option = "netdetect",
};

int32_t tool_cfg_netdetect_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kNetdetectItem, dev, "netdetect address",
                            "netdetect address need recover cfg",
                            "netdetect set address fail ret[%d] logic_id[%u]");
}
