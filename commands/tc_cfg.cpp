// The -tc_cfg command (set, get and save the bandwidth share and scheduling mode of each traffic
// class of the port), the -cur_tc_buf command (the peak buffer use of one traffic class) and
// the replay of the saved traffic classes.
//
// A configuration is saved as two lines, written together in one change: "tc_bw", the percent
// 0 to 100 of traffic classes 0 to 7 ("10,10,10,10,10,10,20,20"), and "tc_mode", their modes,
// 0 strict and 1 weighted ("1,1,1,1,1,1,1,1"). Both are read back into buffers of 384 bytes,
// the store's line, which every accepted list fits. Replay needs both lines.
#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/qos_settings.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr const char *kTcBwName = "tc_bw";
constexpr const char *kTcModeName = "tc_mode";
constexpr uint32_t kTcValueSize = 384; ///< replay buffer of each saved list
constexpr uint32_t kPercentMax = 100;
constexpr size_t kPercentDigits = 3;

constexpr const char *kHelpTcCfg =
    "   [-s]        : set the bandwidth and mode of each traffic class\n"
    "       tc_bw %s : bandwidth percent of tc0~tc7, from 0 to 100, such as "
    "10,10,10,10,10,10,20,20\n"
    "                  the weighted tcs add up to 100, a strict tc takes 0\n"
    "       tc_mode %s : mode of tc0~tc7, 0: strict, 1: weighted(ets), such as "
    "1,1,1,1,1,1,1,1\n"
    "   [-g]        : get the bandwidth percent, mode and buffer size(bytes) of each tc\n";
constexpr const char *kHelpTcBuf =
    "   [-g]        : get the peak buffer usage(bytes) of one traffic class\n"
    "       tc %d   : traffic class, from 0 to 7\n";

const char *mode_name(uint32_t mode)
{
    switch (mode) {
    case kTcModeStrict:
        return "strict";
    case kTcModeEts:
        return "ets";
    default:
        return "unknown";
    }
}

// Both lists, and the rules that tie them: nothing is sent before all of it holds.
[[nodiscard]] int32_t check_tc_cfg(const char *bw_text, const char *mode_text, kopa_tc_cfg_set *cfg)
{
    QosList bw{}, mode{};
    int32_t ret = qos_read_list(bw_text, kPercentDigits, kPercentMax, kErrParamInvalid, bw);
    if (ret != kOk) {
        DRV_ERR("invalid tc_bw, expect percent [0]-[%u] for each of %u tcs", kPercentMax,
                kQosClasses);
        return ret;
    }
    ret = qos_read_list(mode_text, 1, kTcModeEts, kErrParamInvalid, mode);
    if (ret != kOk) {
        DRV_ERR("invalid tc_mode, expect 0 or 1 for each of %u tcs", kQosClasses);
        return ret;
    }
    uint32_t shared = 0;
    bool weighted = false;
    for (uint32_t tc = 0; tc < kQosClasses; ++tc) {
        if (mode[tc] == kTcModeStrict && bw[tc] != 0) {
            fprintf(stderr, "The strict tc %u takes no bandwidth percent, but %u was given.\n", tc,
                    bw[tc]);
            DRV_ERR("strict tc[%u] with bandwidth percent[%u]", tc, bw[tc]);
            return kErrReported;
        }
        weighted = weighted || mode[tc] == kTcModeEts;
        shared += bw[tc];
        cfg->tc_bw[tc] = bw[tc];
        cfg->tc_mode[tc] = mode[tc];
    }
    if (weighted && shared != kPercentMax) {
        fprintf(stderr, "The bandwidth percents of the weighted tcs add up to %u, not 100.\n",
                shared);
        DRV_ERR("weighted tcs share [%u] percent", shared);
        return kErrReported;
    }
    return kOk;
}

[[nodiscard]] int32_t send_tc_cfg(DevRef dev, const kopa_tc_cfg_set &cfg)
{
    int dev_ret = kopa_set_tc_cfg(dev.logic_id, &cfg);
    if (dev_ret != 0 && !cmd_set_took_effect(dev_ret, [&] {
            kopa_tc_cfg_info held{};
            return kopa_get_tc_cfg(dev.logic_id, &held) == 0 &&
                   memcmp(held.tc_bw, cfg.tc_bw, sizeof(cfg.tc_bw)) == 0 &&
                   memcmp(held.tc_mode, cfg.tc_mode, sizeof(cfg.tc_mode)) == 0;
        })) {
        DRV_ERR("kopa set tc cfg fail ret[%d] logic_id[%u]", dev_ret, dev.logic_id);
        return kopa_err_to_vorn_err(dev_ret);
    }
    return kOk;
}

int32_t tool_tc_cfg_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_tc_cfg_info cfg{};
    int ret = kopa_get_tc_cfg(info->logic_id, &cfg);
    if (ret != 0) {
        DRV_ERR("kopa get tc cfg fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    printf("%-3s %-6s %-7s %s\n", "tc", "bw(%)", "mode", "buffer(bytes)");
    for (uint32_t tc = 0; tc < kQosClasses; ++tc)
        printf("%-3u %-6u %-7s %u\n", tc, cfg.tc_bw[tc], mode_name(cfg.tc_mode[tc]),
               cfg.tc_buf[tc]);
    return kOk;
}

int32_t tool_tc_cfg_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    if (strcmp(argv[1], kTcBwName) != 0)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean tc_bw\n");
    if (strcmp(argv[3], kTcModeName) != 0)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean tc_mode\n");
    RUN_LOG_CONFIG("start to set tc cfg of logic_id[%u]\n", info->logic_id);
    kopa_tc_cfg_set cfg{};
    int32_t ret = check_tc_cfg(argv[2], argv[4], &cfg);
    if (ret == kOk)
        ret = send_tc_cfg(dev_of(info), cfg);
    if (ret != kOk) {
        DRV_ERR("set tc cfg failed, logic_id[%u]", info->logic_id);
        return ret;
    }
    // Saved as the lists of the numbers read ("010" as "10"); the device keeps them even when
    // they cannot be saved.
    char bw[kTcValueSize];
    char mode[kTcValueSize];
    const char *failed = "Failed to write the traffic class cfg to the config file, and user "
                         "configurations cannot be persisted.\n";
    if (!qos_format_list(cfg.tc_bw, bw, sizeof(bw)) ||
        !qos_format_list(cfg.tc_mode, mode, sizeof(mode)))
        return qos_save_failed(CMD_HERE, info->phy_id, kErrSysCopy, failed);
    const QosSaved saved[] = {{kTcBwName, bw}, {kTcModeName, mode}};
    return qos_save_items(CMD_HERE, info->phy_id, saved, failed);
}

int32_t tool_tc_buf_get_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    if (strcmp(argv[1], "tc") != 0)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean tc\n");
    uint32_t tc = 0;
    int32_t ret = qos_read_number(argv[2], 1, kTcMax, kErrRangeTc, &tc);
    if (ret != kOk) {
        DRV_ERR("invalid tc, expect [0]-[%u]", kTcMax);
        return ret;
    }
    uint32_t used = 0;
    int dev_ret = kopa_get_current_tc_used(info->logic_id, tc, &used);
    if (dev_ret != 0) {
        DRV_ERR("kopa get current tc used fail ret[%d] logic_id[%u] tc[%u]", dev_ret,
                info->logic_id, tc);
        return kopa_err_to_vorn_err(dev_ret);
    }
    printf("tc %u peak buffer usage: %u bytes\n", tc, used);
    return kOk;
}

constexpr CmdOp kTcCfgOps[] = {
    {"-s", 5, true, tool_tc_cfg_set_cmd},
    {"-g", 1, false, tool_tc_cfg_get_cmd},
};

constexpr CmdOp kTcBufOps[] = {
    {"-g", 3, false, tool_tc_buf_get_cmd},
};

} // namespace

extern constexpr CmdDesc kTcCfgCmd{
    .major = "-i",
    .name = "-tc_cfg",
    .handler = "tool_tc_cfg_cmd_execute",
    .description = "traffic class cfg cmd",
    .help = kHelpTcCfg,
    .ops = kTcCfgOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

extern constexpr CmdDesc kCurTcBufCmd{
    .major = "-i",
    .name = "-cur_tc_buf",
    .handler = "tool_tc_buf_cmd_execute",
    .description = "maximum historical tc usage cmd",
    .help = kHelpTcBuf,
    .ops = kTcBufOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

namespace
{

int32_t check_tc_bw(const char *text)
{
    QosList bw{};
    return qos_read_list(text, kPercentDigits, kPercentMax, kErrParamInvalid, bw);
}

int32_t check_tc_mode(const char *text)
{
    QosList mode{};
    return qos_read_list(text, 1, kTcModeEts, kErrParamInvalid, mode);
}

int32_t set_tc_bw(DevRef dev, const char *text, const char *mode, SetMode set_mode)
{
    return tool_set_tc_cfg(dev, text, mode, set_mode);
}

int32_t set_tc_mode(DevRef dev, const char *text, const char *bw, SetMode set_mode)
{
    return tool_set_tc_cfg(dev, bw, text, set_mode);
}

template <uint32_t (kopa_tc_cfg_info::*kField)[kQosClasses]> ItemLive live_tc(uint32_t logic_id)
{
    kopa_tc_cfg_info tc{};
    ItemLive live;
    live.ret = kopa_get_tc_cfg(logic_id, &tc);
    if (live.ret == 0)
        live.value = item_list_text(tc.*kField, kQosClasses);
    return live;
}

} // namespace

extern constexpr SavedItem kTcBwItem{
    .key = kTcBwName,
    .buffer = kTcValueSize,
    .kind = ItemKind::kNumberList,
    .what = "traffic-class bandwidth",
    .check = check_tc_bw,
    .live = live_tc<&kopa_tc_cfg_info::tc_bw>,
    .replay = tool_tc_cfg_recovery,
    .replay_name = "tool_tc_cfg_recovery",
    .set_words = "-tc_cfg -s tc_bw {tc_bw} tc_mode {tc_mode}",
    .canonical = item_canonical_list,
    .partner = kTcModeName,
    .set_pair = set_tc_bw,
    .ansible_module = "vorn_devices",
    .ansible_option = "traffic_classes",
};

extern constexpr SavedItem kTcModeItem{
    .key = kTcModeName,
    .buffer = kTcValueSize,
    .kind = ItemKind::kNumberList,
    .what = "traffic-class mode",
    .check = check_tc_mode,
    .live = live_tc<&kopa_tc_cfg_info::tc_mode>,
    .set_words = "-tc_cfg -s tc_bw {tc_bw} tc_mode {tc_mode}",
    .canonical = item_canonical_list,
    .partner = kTcBwName,
    .set_pair = set_tc_mode,
    .ansible_module = "vorn_devices",
    .ansible_option = "traffic_classes",
};

int32_t tool_set_tc_cfg(DevRef dev, const char *bw_text, const char *mode_text, SetMode /*mode*/)
{
    kopa_tc_cfg_set cfg{};
    int32_t ret = check_tc_cfg(bw_text, mode_text, &cfg);
    return ret != kOk ? ret : send_tc_cfg(dev, cfg);
}

int32_t tool_tc_cfg_recovery(DevRef dev, const ConfView &conf)
{
    char bw[kTcValueSize] = {};
    char mode[kTcValueSize] = {};
    if (!cmd_replay_read(CMD_HERE, conf, dev.phy_id, kTcBwName, "tc_bw", bw, sizeof(bw)) ||
        !cmd_replay_read(CMD_HERE, conf, dev.phy_id, kTcModeName, "tc_mode", mode, sizeof(mode)))
        return kOk;
    DRV_DBG("tc_cfg need recover cfg");
    int32_t set_ret = tool_set_tc_cfg(dev, bw, mode, SetMode::kRecovery);
    if (set_ret != kOk)
        DRV_ERR("tc cfg set fail ret[%d] logic_id[%u]", set_ret, dev.logic_id);
    return set_ret;
}
