// The -mtu command (set, get and save the port's MTU), the -link command (shut the port down,
// report its link state) and the replay of the saved MTU.
#include <cctype>
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
constexpr uint32_t kLinkDown = 0;
constexpr uint32_t kMtuValueSize = 5; ///< replay buffer of the saved MTU

constexpr const char *kHelpMtu = "   [-s]        : set mtu cfg \n"
                                 "       size %d : set mtu size, from 68 to 9702\n"
                                 "   [-g]        : get mtu cfg\n";
constexpr const char *kHelpLink = "   [-s down]   : shut down eth port \n"
                                  "   [-g]        : get the eth ports link status, UP or DOWN \n";

int32_t tool_mtu_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    int ret = kopa_get_mtu(info->logic_id, kNetPort);
    if (ret != 0) {
        DRV_ERR("kopa get mtu fail ret[%d] logic_id[%u]", ret, info->logic_id);
        DRV_ERR("tool get mtu failed ret %d'", kErrKopa);
        return kErrKopa;
    }
    return kOk;
}

constexpr ItemSetCmd kMtuSet{
    .keyword = "size",
    .item = &kMtuItem,
    .refusal_log = "invalid option\n",
    .refusal_text = "Get unknown option , do you mean size\n",
    .drv_refusal = false,
    .start_what = "mtu",
    .fail_what = "mtu",
    .save_fail = "Failed to write the MTU to the config file, and user configurations cannot be "
                 "persisted.\n",
};

int32_t tool_mtu_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    return cmd_set_item(CMD_HERE, kMtuSet, argv, info);
}

int32_t tool_link_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    if (strcmp(argv[1], "down") != 0)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean down\n");
    RUN_LOG_CONFIG("start to shutdown link of logic_id[%u]\n", info->logic_id);
    int ret = kopa_set_netdev_link(info->logic_id, kNetPort, kLinkDown);
    if (ret != 0) {
        DRV_ERR("kopa set net dev down fail! ret[%d] logic_id[%u]", ret, info->logic_id);
        return kErrKopa;
    }
    return kOk;
}

int32_t tool_link_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    uint32_t state = 0;
    int ret = kopa_get_netdev_link(info->logic_id, kNetPort, &state);
    if (ret != 0) {
        DRV_ERR("kopa gets link status fail! ret[%d] logic_id[%u]", ret, info->logic_id);
        DRV_ERR("tool_link_get_linkstatus fail, ret:%d, logic_id:%u", kErrKopa, info->logic_id);
        return kErrKopa;
    }
    const char *word = state != kLinkDown ? "UP" : "DOWN";
    printf("link status: %s\n", word);
    DRV_DBG("link status: %s", word);
    return kOk;
}

constexpr CmdOp kMtuOps[] = {
    {"-s", 3, true, tool_mtu_set_cmd},
    {"-g", 1, false, tool_mtu_get_cmd},
};

constexpr CmdOp kLinkOps[] = {
    {"-s", 2, true, tool_link_set_cmd, nullptr, "tool_link_set_shutdown fail, ret:%d, logic_id:%u"},
    {"-g", 1, false, tool_link_get_cmd},
};

} // namespace

extern constexpr CmdDesc kMtuCmd{
    .major = "-i",
    .name = "-mtu",
    .handler = "tool_mtu_cmd_execute",
    .description = "mtu cfg cmd",
    .help = kHelpMtu,
    .ops = kMtuOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

extern constexpr CmdDesc kLinkCmd{
    .major = "-i",
    .name = "-link",
    .handler = "tool_link_cmd_execute",
    .description = "link related cmd",
    .help = kHelpLink,
    .ops = kLinkOps,
    .unknown_op = {RefusalLog::kRunLog, "tool_link_cmd_execute invalid operation\n",
                   "Get unknown option!\n"},
};

int32_t tool_check_mtu(const char *text, uint32_t *mtu)
{
    if (text == nullptr || mtu == nullptr) {
        DRV_ERR("Ptr is NULL.");
        return kErrParamInvalid;
    }
    for (const char *p = text; *p != '\0'; ++p) {
        if (isdigit(static_cast<unsigned char>(*p)) == 0) {
            DRV_ERR("Check mtu fail.");
            return kErrParamInvalid;
        }
    }
    // The overflow check reads 8 digits at most; the length is limited here, to what the
    // replay buffer of the saved value holds.
    int32_t ret = strlen(text) >= kMtuValueSize
                      ? kErrRangeMtu
                      : tool_para_overflow_check(text, kMtuMax, kErrRangeMtu);
    if (ret != kOk) {
        DRV_ERR("Mtu str is overflow.");
        return ret;
    }
    *mtu = static_cast<uint32_t>(atoi(text));
    return kOk;
}

namespace
{

int32_t check_mtu(const char *text)
{
    uint32_t mtu = 0;
    int32_t ret = tool_check_mtu(text, &mtu);
    if (ret != kOk)
        return ret;
    return mtu < kMtuMin || mtu > kMtuMax ? kErrRangeMtu : kOk;
}

ItemLive live_mtu(uint32_t logic_id)
{
    uint32_t mtu = 0;
    const int ret = kopa_read_mtu(logic_id, kNetPort, &mtu);
    return item_live_number(ret, mtu);
}

} // namespace

extern constexpr SavedItem kMtuItem{
    .key = "mtu",
    .buffer = kMtuValueSize,
    .kind = ItemKind::kNumber,
    .what = "MTU",
    .check = check_mtu,
    .live = live_mtu,
    .replay = tool_cfg_mtu_recovery,
    .replay_name = "tool_cfg_mtu_recovery",
    .set_words = "-mtu -s size {mtu}",
    .canonical = item_canonical_number,
    .set = tool_set_mtu,
    .ansible_module = "vorn_devices",
    .ansible_option = "mtu",
};

int32_t tool_set_mtu(DevRef dev, const char *text, SetMode /*mode*/)
{
    uint32_t mtu = 0;
    int32_t ret = tool_check_mtu(text, &mtu);
    if (ret != kOk) {
        DRV_ERR("invalid mtu format");
        return ret;
    }
    if (check_mtu(text) != kOk) {
        RUN_LOG_PROMPT("invalid mtu size, expect[%u]-[%u] \n", kMtuMin, kMtuMax);
        return kErrRangeMtu;
    }
    int dev_ret = kopa_set_mtu(dev.logic_id, kNetPort, mtu);
    if (dev_ret != 0 && !cmd_set_took_effect(dev_ret, [&] {
            uint32_t held = 0;
            return kopa_read_mtu(dev.logic_id, kNetPort, &held) == 0 && held == mtu;
        })) {
        DRV_ERR("kopa set mtu fail ret[%d] logic_id[%u] mtu[%u]", dev_ret, dev.logic_id, mtu);
        return kErrKopa;
    }
    return kOk;
}

int32_t tool_cfg_mtu_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kMtuItem, dev, "mtu", "mtu address need recover cfg",
                            "mtu set fail ret[%d] logic_id[%u]");
}
