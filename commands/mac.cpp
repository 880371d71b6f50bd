// The -mac command (get and set the port's MAC address) and the replay of the saved address.
#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/port_settings.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr uint32_t kMacLen = 6;
constexpr uint32_t kNetPort = 0;
constexpr uint32_t kMacValueSize = 18; ///< replay buffer of the saved address

constexpr CmdMask kMacMasks[] = {{"mac", 5}};

int32_t tool_mac_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    uint8_t mac[kMacLen] = {};
    int ret = kopa_get_mac_address(info->logic_id, kNetPort, mac);
    if (ret != 0) {
        DRV_ERR("KOPA get mac addr fail. (ret=%d; logic_id=%u)", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    printf("mac addr: %02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2], mac[3], mac[4],
           mac[5]);
    return kOk;
}

// The words after "-s" are counted only after the log line, so the operation counts them.
int32_t tool_mac_set_cmd(int argc, char **argv, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to set mac address of logic_id[%u]\n", info->logic_id);
    int32_t ret = kOk;
    if (argc - 1 != 2)
        ret = cmd_err_argc(CMD_HERE, argc - 1);
    else if (strcmp(argv[1], "mac") != 0)
        ret = cmd_err_unknown_option_drv(CMD_HERE, "Invalid option.",
                                         "Get unknown option, do you mean mac\n");
    else
        ret = tool_set_mac(dev_of(info), argv[2], SetMode::kCommand);
    if (ret != kOk) {
        DRV_ERR("set mac failed, logic_id[%u]", info->logic_id);
        return ret;
    }
    // The device keeps the new address even when it cannot be saved.
    return cmd_save_item(CMD_HERE, info->phy_id, kMacAddrItem.key, argv[2],
                         "Failed to write the MAC address to config file. User configurations "
                         "cannot be persisted\n",
                         "Write cfg error. (ret=%d; phy_id=%u)");
}

constexpr CmdOp kMacOps[] = {
    {"-g", 1, false, tool_mac_get_cmd, nullptr, "tool_get_mac fail, ret:%d"},
    {"-s", kOwnCount, true, tool_mac_set_cmd},
};

constexpr const char *kHelpMac = "   [-s]        : set mac address \n"
                                 "       mac %s : such as XX:XX:XX:XX:XX:XX\n"
                                 "   [-g]        : get mac address \n";

} // namespace

extern constexpr CmdDesc kMacCmd{
    .major = "-i",
    .name = "-mac",
    .handler = "tool_mac_cmd_execute",
    .description = "mac cfg cmd",
    .help = kHelpMac,
    .ops = kMacOps,
    .unknown_op = {RefusalLog::kDriverLog, "Invalid option.", "Get unknown option.\n"},
    .masks = kMacMasks,
};

// Both cases of the broadcast and 09:00:2B addresses are listed because the comparison is
// case-sensitive.
const char *const g_mac_filter_list[kMacFilterCount] = {
    "09:00:2B:00:00:04", "09:00:2B:00:00:05", "03:00:00:00:00:08", "03:00:00:00:00:10",
    "03:00:00:00:00:40", "03:00:00:00:01:00", "03:00:00:00:02:00", "03:00:00:00:04:00",
    "03:00:00:00:08:00", "03:00:00:00:10:00", "03:00:00:00:20:00", "03:00:00:00:40:00",
    "03:00:00:40:00:00", "00:00:00:00:00:00", "FF:FF:FF:FF:FF:FF", "ff:ff:ff:ff:ff:ff",
    "09:00:2b:00:00:04", "09:00:2b:00:00:05",
};

int32_t tool_mac_str2char(const char *text, uint8_t *mac_out, uint32_t size)
{
    if (text == nullptr || mac_out == nullptr || size < kMacLen) {
        DRV_ERR("Input param is NULL.");
        return kErrMacInvalid;
    }
    uint8_t mac[kMacLen] = {};
    const int bad = mac_text_scan(text, mac);
    if (bad >= 0) {
        if (bad % 3 == 2)
            DRV_ERR("tool_mac_str2char contain invalid char, index[%d], mac_char[%c]", bad,
                    text[bad]);
        else
            DRV_ERR("tool_mac_str2char contain invalid char[%c]", text[bad]);
        return kErrMacInvalid;
    }
    memcpy(mac_out, mac, kMacLen);
    return kOk;
}

int32_t tool_mac_filter_check(const char *text)
{
    if (text == nullptr)
        return kErrMacInvalid;
    if (strncmp(text, "01:80:C2", 8) == 0) {
        DRV_ERR("strncmp argv error, upper case check failed");
        return kErrMacInvalid;
    }
    if (strncmp(text, "01:80:c2", 8) == 0) {
        DRV_ERR("strncmp argv error, lower case check failed");
        return kErrMacInvalid;
    }
    // Only "1" is tested, not every odd digit: other multicast prefixes are caught by the list
    // or not at all, as the device side does.
    if (text[0] != '\0' && text[1] == '1') {
        DRV_ERR("mac address is likely a multicast mac address");
        return kErrMacInvalid;
    }
    for (int i = 0; i < kMacFilterCount; ++i) {
        if (strncmp(text, g_mac_filter_list[i], kMacTextLen) == 0) {
            DRV_ERR("Strncmp argv error. (index=%d)", i);
            return kErrMacInvalid;
        }
    }
    return kOk;
}

int32_t tool_set_mac(DevRef dev, const char *text, SetMode mode)
{
    // A typed address had its log line written before its words were counted.
    if (mode == SetMode::kRecovery)
        RUN_LOG_CONFIG("start to set mac address of logic_id[%u]\n", dev.logic_id);
    if (strlen(text) != kMacTextLen) {
        DRV_ERR("Check para lenth err.");
        return kErrMacInvalid;
    }
    uint8_t mac[kMacLen] = {};
    if (tool_mac_str2char(text, mac, kMacLen) != kOk) {
        DRV_ERR("Invalid mac_address.");
        return kErrMacInvalid;
    }
    if (tool_mac_filter_check(text) != kOk) {
        DRV_ERR("Tool mac filter check error, invalid mac_address.");
        return kErrMacInvalid;
    }
    int ret = kopa_set_mac_address(dev.logic_id, kNetPort, mac);
    if (ret != 0 && !cmd_set_took_effect(ret, [&] {
            uint8_t held[kMacLen] = {};
            return kopa_get_mac_address(dev.logic_id, kNetPort, held) == 0 &&
                   memcmp(held, mac, kMacLen) == 0;
        })) {
        DRV_ERR("KOPA set mac addr fail. (ret=%d; logic_id=%u)", ret, dev.logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    return kOk;
}

namespace
{

// The checks of tool_set_mac, without its log lines.
int32_t check_mac(const char *text)
{
    uint8_t mac[kMacLen] = {};
    if (strlen(text) != kMacTextLen || mac_text_scan(text, mac) >= 0 ||
        tool_mac_filter_check(text) != kOk)
        return kErrMacInvalid;
    return kOk;
}

ItemLive live_mac(uint32_t logic_id)
{
    uint8_t mac[kMacLen] = {};
    ItemLive live;
    live.ret = kopa_get_mac_address(logic_id, kNetPort, mac);
    if (live.ret == 0) {
        char text[kMacTextLen + 1];
        snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                 mac[3], mac[4], mac[5]);
        live.value = text;
    }
    return live;
}

} // namespace

extern constexpr SavedItem kMacAddrItem{
    .key = "mac_addr",
    .buffer = kMacValueSize,
    .kind = ItemKind::kMac,
    .what = "MAC address",
    .check = check_mac,
    .live = live_mac,
    .replay = tool_cfg_mac_addr_recovery,
    .replay_name = "tool_cfg_mac_addr_recovery",
    .set_words = "-mac -s mac {mac_addr}",
    .canonical = item_canonical_mac,
    .set = tool_set_mac,
    .ansible_module = "vorn_devices",
    .ansible_option = "mac",
};

int32_t tool_cfg_mac_addr_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kMacAddrItem, dev, "mac_addr",
                            "mac_addr need recover cfg", "mac_addr set fail ret[%d] logic_id[%u]");
}
