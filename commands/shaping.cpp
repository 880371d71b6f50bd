// The -shaping command (set, get and save the bandwidth limit of the port's shaper) and the
// replay of the saved limit. The limit is saved as "bw_limit" in Mbit/s, 1 to 400000 (a 400G
// port), as typed: at most 6 digits, the replay buffer of 7 bytes.
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

constexpr uint32_t kBwLimitValueSize = 7; ///< replay buffer of the saved limit
constexpr size_t kBwLimitDigits = kBwLimitValueSize - 1;
static_assert(kBwLimitMax <= 999999, "the largest limit fits the replay buffer");

constexpr const char *kHelpShaping =
    "   [-s]        : set the bandwidth limit of the port shaper\n"
    "       bw_limit %d : port bandwidth limit(Mbit/s), from 1 to 400000\n"
    "   [-g]        : get the port shaper: bandwidth limit and maximum bandwidth(Mbit/s)\n";

int32_t tool_shaping_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_shaping_info shaping{};
    int ret = kopa_get_port_shaping(info->logic_id, &shaping);
    if (ret != 0) {
        DRV_ERR("kopa get port shaping fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    printf("bw_limit: %u Mbit/s\nmax_bw: %u Mbit/s\n", shaping.bw_limit, shaping.max_bw);
    return kOk;
}

constexpr ItemSetCmd kShapingSet{
    .keyword = "bw_limit",
    .item = &kBwLimitItem,
    .refusal_log = "invalid option\n",
    .refusal_text = "Get unknown option, do you mean bw_limit\n",
    .drv_refusal = false,
    .start_what = "port shaping",
    .fail_what = "port shaping",
    .save_fail = "Failed to write the bandwidth limit to the config file, and user "
                 "configurations cannot be persisted.\n",
};

int32_t tool_shaping_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    return cmd_set_item(CMD_HERE, kShapingSet, argv, info);
}

constexpr CmdOp kShapingOps[] = {
    {"-s", 3, true, tool_shaping_set_cmd},
    {"-g", 1, false, tool_shaping_get_cmd},
};

} // namespace

extern constexpr CmdDesc kShapingCmd{
    .major = "-i",
    .name = "-shaping",
    .handler = "tool_shaping_cmd_execute",
    .description = "cfg shaper port bw limit cmd",
    .help = kHelpShaping,
    .ops = kShapingOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

namespace
{

int32_t read_bw_limit(const char *text, uint32_t *limit)
{
    int32_t ret = qos_read_number(text, kBwLimitDigits, kBwLimitMax, kErrRangeBwLimit, limit);
    return ret == kOk && *limit < kBwLimitMin ? kErrRangeBwLimit : ret;
}

int32_t check_bw_limit(const char *text)
{
    uint32_t limit = 0;
    return read_bw_limit(text, &limit);
}

ItemLive live_bw_limit(uint32_t logic_id)
{
    kopa_shaping_info shaping{};
    const int ret = kopa_get_port_shaping(logic_id, &shaping);
    return item_live_number(ret, shaping.bw_limit);
}

} // namespace

extern constexpr SavedItem kBwLimitItem{
    .key = "bw_limit",
    .buffer = kBwLimitValueSize,
    .kind = ItemKind::kNumber,
    .what = "port bandwidth limit",
    .check = check_bw_limit,
    .live = live_bw_limit,
    .replay = tool_cfg_shaping_recovery,
    .replay_name = "tool_cfg_shaping_recovery",
    .set_words = "-shaping -s bw_limit {bw_limit}",
    .canonical = item_canonical_number,
    .set = tool_port_shaping_set,
    .ansible_module = "vorn_devices",
    .ansible_option = "bw_limit",
};

int32_t tool_port_shaping_set(DevRef dev, const char *text, SetMode /*mode*/)
{
    uint32_t limit = 0;
    int32_t ret = read_bw_limit(text, &limit);
    if (ret != kOk) {
        DRV_ERR("invalid bw_limit, expect [%u]-[%u] Mbit/s", kBwLimitMin, kBwLimitMax);
        return ret;
    }
    const kopa_shaping_set shaping{limit};
    int dev_ret = kopa_set_port_shaping(dev.logic_id, &shaping);
    if (dev_ret != 0 && !cmd_set_took_effect(dev_ret, [&] {
            kopa_shaping_info held{};
            return kopa_get_port_shaping(dev.logic_id, &held) == 0 && held.bw_limit == limit;
        })) {
        DRV_ERR("kopa set port shaping fail ret[%d] logic_id[%u] bw_limit[%u]", dev_ret,
                dev.logic_id, limit);
        return kopa_err_to_vorn_err(dev_ret);
    }
    return kOk;
}

int32_t tool_cfg_shaping_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kBwLimitItem, dev, "bw_limit",
                            "bw_limit need recover cfg", "bw_limit set fail ret[%d] logic_id[%u]");
}
