// The -prio_tc command (set, get and save the traffic class of each priority of the port) and
// the replay of the saved map. The map is saved as "prio_tc": the traffic class 0 to 7 of
// priorities 0 to 7, such as "0,1,2,3,4,5,6,7", always 15 characters (replay buffer 16).
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

constexpr uint32_t kPrioTcValueSize = 16; ///< replay buffer of the saved map
/// What a byte of the map holds until the reply fills it: no traffic class has it.
constexpr uint8_t kNoClass = 0xFF;

constexpr const char *kHelpPrioTc =
    "   [-s]        : set the traffic class of each priority\n"
    "       prio_tc %s : tc 0~7 of priority 0~7, such as 0,1,2,3,4,5,6,7\n"
    "   [-g]        : get the traffic class of each priority\n";

// The device chooses the length of its answer: a map it did not fill, or filled with a class
// that does not exist, is a failed read rather than a map to print.
[[nodiscard]] int read_prio_tc(uint32_t logic_id, kopa_prio_tc_info *map)
{
    memset(map, kNoClass, sizeof(*map));
    int ret = kopa_get_prio_tc_info(logic_id, map, sizeof(*map));
    if (ret != 0)
        return ret;
    for (uint8_t tc : map->tc_of_prio) {
        if (tc > kTcMax) {
            DRV_ERR("kopa get prio tc answers no valid map, logic_id[%u]", logic_id);
            return kErrnoInval;
        }
    }
    return 0;
}

int32_t tool_prio_tc_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_prio_tc_info map{};
    int ret = read_prio_tc(info->logic_id, &map);
    if (ret != 0) {
        DRV_ERR("kopa get prio tc fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    printf("prio-tc");
    for (uint32_t prio = 0; prio < kQosClasses; ++prio)
        printf(" %u:%u", prio, map.tc_of_prio[prio]);
    printf("\n");
    return kOk;
}

// Accepted, the text is the map in its saved form.
constexpr ItemSetCmd kPrioTcSet{
    .keyword = "prio_tc",
    .item = &kPrioTcItem,
    .refusal_log = "invalid option\n",
    .refusal_text = "Get unknown option, do you mean prio_tc\n",
    .drv_refusal = false,
    .start_what = "prio tc",
    .fail_what = "prio tc",
    .save_fail = "Failed to write the priority to tc map to the config file, and user "
                 "configurations cannot be persisted.\n",
};

int32_t tool_prio_tc_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    return cmd_set_item(CMD_HERE, kPrioTcSet, argv, info);
}

constexpr CmdOp kPrioTcOps[] = {
    {"-s", 3, true, tool_prio_tc_set_cmd},
    {"-g", 1, false, tool_prio_tc_get_cmd},
};

} // namespace

extern constexpr CmdDesc kPrioTcCmd{
    .major = "-i",
    .name = "-prio_tc",
    .handler = "tool_prio_tc_cmd_execute",
    .description = "priority map TC cmd",
    .help = kHelpPrioTc,
    .ops = kPrioTcOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

namespace
{

int32_t read_prio_list(const char *text, QosList &tc)
{
    return qos_read_list(text, 1, kTcMax, kErrRangeTc, tc);
}

int32_t check_prio_tc(const char *text)
{
    QosList tc{};
    return read_prio_list(text, tc);
}

ItemLive live_prio_tc(uint32_t logic_id)
{
    kopa_prio_tc_info map{};
    ItemLive live;
    live.ret = read_prio_tc(logic_id, &map);
    if (live.ret == 0) {
        uint32_t tc[kQosClasses];
        for (uint32_t p = 0; p < kQosClasses; ++p)
            tc[p] = map.tc_of_prio[p];
        live.value = item_list_text(tc, kQosClasses);
    }
    return live;
}

} // namespace

extern constexpr SavedItem kPrioTcItem{
    .key = "prio_tc",
    .buffer = kPrioTcValueSize,
    .kind = ItemKind::kNumberList,
    .what = "priority map",
    .check = check_prio_tc,
    .live = live_prio_tc,
    .replay = tool_cfg_prio_tc_recovery,
    .replay_name = "tool_cfg_prio_tc_recovery",
    .set_words = "-prio_tc -s prio_tc {prio_tc}",
    .canonical = item_canonical_list,
    .set = tool_set_prio_tc_info,
    .ansible_module = "vorn_devices",
    .ansible_option = "priority_map",
};

int32_t tool_set_prio_tc_info(DevRef dev, const char *text, SetMode /*mode*/)
{
    QosList tc{};
    int32_t ret = read_prio_list(text, tc);
    if (ret != kOk) {
        DRV_ERR("invalid prio tc map, expect tc [0]-[%u] for each of %u priorities", kTcMax,
                kQosClasses);
        return ret;
    }
    kopa_prio_tc_info map{};
    for (uint32_t prio = 0; prio < kQosClasses; ++prio)
        map.tc_of_prio[prio] = static_cast<uint8_t>(tc[prio]);
    int dev_ret = kopa_set_prio_tc_info(dev.logic_id, &map, sizeof(map));
    if (dev_ret != 0 && !cmd_set_took_effect(dev_ret, [&] {
            kopa_prio_tc_info held{};
            return read_prio_tc(dev.logic_id, &held) == 0 && memcmp(&held, &map, sizeof(map)) == 0;
        })) {
        DRV_ERR("kopa set prio tc fail ret[%d] logic_id[%u]", dev_ret, dev.logic_id);
        return kopa_err_to_vorn_err(dev_ret);
    }
    return kOk;
}

int32_t tool_cfg_prio_tc_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kPrioTcItem, dev, "prio_tc", "prio_tc need recover cfg",
                            "prio tc set fail ret[%d] logic_id[%u]");
}
