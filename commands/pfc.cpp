// The -pfc command (set, get and save the priorities of the port that run priority flow
// control) and the replay of the saved list. The list is saved as "bitmap": 1 (on) or 0 (off)
// for priorities 0 to 7, such as "0,0,0,1,0,0,0,0", always 15 characters (replay buffer 16).
// The device's record carries bit i for priority i.
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

constexpr uint32_t kPfcValueSize = 16; ///< replay buffer of the saved list

constexpr const char *kHelpPfc =
    "   [-s]        : set the priorities that run pfc\n"
    "       bitmap %s : 1 (on) or 0 (off) for priority 0~7, such as 0,0,0,1,0,0,0,0\n"
    "   [-g]        : get the pfc state of each priority\n";

int32_t tool_pfc_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_pfc_info pfc{};
    int ret = kopa_get_pfc_enabled(info->logic_id, &pfc);
    if (ret != 0) {
        DRV_ERR("kopa get pfc enabled fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    printf("pfc-cap %u\nprio-pfc", kQosClasses);
    for (uint32_t prio = 0; prio < kQosClasses; ++prio)
        printf(" %u:%s", prio, (pfc.bitmap >> prio & 1U) != 0 ? "on" : "off");
    printf("\n");
    return kOk;
}

// Accepted, the text is the list in its saved form.
constexpr ItemSetCmd kPfcSet{
    .keyword = "bitmap",
    .item = &kBitmapItem,
    .refusal_log = "invalid option\n",
    .refusal_text = "Get unknown option, do you mean bitmap\n",
    .drv_refusal = false,
    .start_what = "pfc",
    .fail_what = "pfc",
    .save_fail = "Failed to write the pfc bitmap to the config file, and user configurations "
                 "cannot be persisted.\n",
};

int32_t tool_pfc_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    return cmd_set_item(CMD_HERE, kPfcSet, argv, info);
}

constexpr CmdOp kPfcOps[] = {
    {"-s", 3, true, tool_pfc_set_cmd},
    {"-g", 1, false, tool_pfc_get_cmd},
};

} // namespace

extern constexpr CmdDesc kPfcCmd{
    .major = "-i",
    .name = "-pfc",
    .handler = "tool_pfc_cmd_execute",
    .description = "pfc enable cfg cmd",
    .help = kHelpPfc,
    .ops = kPfcOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

namespace
{

int32_t read_pfc(const char *text, QosList &on)
{
    return qos_read_list(text, 1, 1, kErrParamInvalid, on);
}

int32_t check_pfc(const char *text)
{
    QosList on{};
    return read_pfc(text, on);
}

ItemLive live_pfc(uint32_t logic_id)
{
    kopa_pfc_info pfc{};
    ItemLive live;
    live.ret = kopa_get_pfc_enabled(logic_id, &pfc);
    if (live.ret == 0) {
        uint32_t on[kQosClasses];
        for (uint32_t p = 0; p < kQosClasses; ++p)
            on[p] = pfc.bitmap >> p & 1U;
        live.value = item_list_text(on, kQosClasses);
    }
    return live;
}

} // namespace

extern constexpr SavedItem kBitmapItem{
    .key = "bitmap",
    .buffer = kPfcValueSize,
    .kind = ItemKind::kNumberList,
    .what = "PFC priority list",
    .check = check_pfc,
    .live = live_pfc,
    .replay = tool_cfg_pfc_recovery,
    .replay_name = "tool_cfg_pfc_recovery",
    .set_words = "-pfc -s bitmap {bitmap}",
    .canonical = item_canonical_list,
    .set = tool_set_pfc,
    .ansible_module = "vorn_devices",
    .ansible_option = "pfc_bitmap",
};

int32_t tool_set_pfc(DevRef dev, const char *text, SetMode /*mode*/)
{
    QosList on{};
    int32_t ret = read_pfc(text, on);
    if (ret != kOk) {
        DRV_ERR("invalid pfc bitmap, expect 0 or 1 for each of %u priorities", kQosClasses);
        return ret;
    }
    kopa_pfc_info pfc{};
    for (uint32_t prio = 0; prio < kQosClasses; ++prio)
        pfc.bitmap = static_cast<uint8_t>(pfc.bitmap | on[prio] << prio);
    int dev_ret = kopa_set_pfc_enabled(dev.logic_id, &pfc, sizeof(pfc));
    if (dev_ret != 0 && !cmd_set_took_effect(dev_ret, [&] {
            kopa_pfc_info held{};
            return kopa_get_pfc_enabled(dev.logic_id, &held) == 0 && held.bitmap == pfc.bitmap;
        })) {
        DRV_ERR("kopa set pfc enabled fail ret[%d] logic_id[%u] bitmap[0x%x]", dev_ret,
                dev.logic_id, pfc.bitmap);
        return kopa_err_to_vorn_err(dev_ret);
    }
    return kOk;
}

int32_t tool_cfg_pfc_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kBitmapItem, dev, "bitmap", "bitmap need recover cfg",
                            "pfc bitmap set fail ret[%d] logic_id[%u]");
}
