// The -fec command (set, get and save the forward error correction mode of the port) and the
// replay of the saved mode.
#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr uint32_t kFecValueSize = 5; ///< replay buffer of the saved mode
constexpr const char *kFecModes[] = {"off", "rs-fec", "base-r fec"};
constexpr uint32_t kFecModeCount = 3;

constexpr const char *kHelpFec = "   [-s]        : set fec mode \n"
                                 "       mode %d : 0: off, 1: rs-fec, 2: base-r fec\n"
                                 "   [-g]        : get fec mode \n";

/// Checks a mode text (one digit, 0 to 2) and sets it on the device. Saves nothing. 0, 0x2001
/// (a typed mode is named on standard error) or 0x4001.
[[nodiscard]] int32_t check_fec(const char *text)
{
    return strlen(text) != 1 || text[0] < '0' || text[0] >= static_cast<char>('0' + kFecModeCount)
               ? kErrParamInvalid
               : kOk;
}

[[nodiscard]] int32_t tool_set_fec_info(DevRef dev, const char *text, SetMode mode)
{
    if (check_fec(text) != kOk) {
        DRV_ERR("Invalid fec mode. (mode=\"%s\")", text);
        if (mode == SetMode::kCommand)
            fprintf(stderr,
                    "The value \"%s\" of mode is invalid, expected 0 (off), 1 (rs-fec) or 2 "
                    "(base-r fec).\n",
                    text);
        return kErrParamInvalid;
    }
    const auto fec = static_cast<uint8_t>(text[0] - '0');
    int ret = kopa_set_fec_info(dev.logic_id, fec);
    if (ret != 0 && !cmd_set_took_effect(ret, [&] {
            uint32_t held = 0;
            return kopa_get_fec_info(dev.logic_id, &held) == 0 && held == fec;
        })) {
        DRV_ERR("kopa set fec fail ret[%d] logic_id[%u] mode[%u]", ret, dev.logic_id, fec);
        return kopa_err_to_vorn_err(ret);
    }
    return kOk;
}

constexpr ItemSetCmd kFecSet{
    .keyword = "mode",
    .item = &kEncodingItem,
    .refusal_log = "invalid option\n",
    .refusal_text = "Get unknown option, do you mean mode\n",
    .drv_refusal = false,
    .start_what = "fec mode",
    .fail_what = "fec",
    .save_fail = "Failed to write the FEC mode to the config file, and user "
                 "configurations cannot be persisted.\n",
};

int32_t tool_fec_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    return cmd_set_item(CMD_HERE, kFecSet, argv, info);
}

ItemLive live_fec(uint32_t logic_id)
{
    uint32_t fec = 0;
    const int ret = kopa_get_fec_info(logic_id, &fec);
    return item_live_number(ret, fec);
}

int32_t tool_fec_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    uint32_t fec = 0;
    int ret = kopa_get_fec_info(info->logic_id, &fec);
    if (ret != 0) {
        DRV_ERR("kopa get fec fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    if (fec < kFecModeCount)
        printf("fec mode: %s\n", kFecModes[fec]);
    else
        printf("fec mode: unknown(%u)\n", fec);
    return kOk;
}

constexpr CmdOp kFecOps[] = {
    {"-s", 3, true, tool_fec_set_cmd},
    {"-g", 1, false, tool_fec_get_cmd},
};

} // namespace

extern constexpr CmdDesc kFecCmd{
    .major = "-i",
    .name = "-fec",
    .handler = "tool_fec_cmd_execute",
    .description = "fec related cmd",
    .help = kHelpFec,
    .ops = kFecOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

extern constexpr SavedItem kEncodingItem{
    .key = "encoding",
    .buffer = kFecValueSize,
    .kind = ItemKind::kNumber,
    .what = "FEC mode",
    .check = check_fec,
    .live = live_fec,
    .replay = tool_cfg_fec_recovery,
    .replay_name = "tool_cfg_fec_recovery",
    .set_words = "-fec -s mode {encoding}",
    .canonical = item_canonical_number,
    .set = tool_set_fec_info,
};

int32_t tool_cfg_fec_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kEncodingItem, dev, "fec", "fec need recover cfg",
                            "fec set fail ret[%d] logic_id[%u]");
}
