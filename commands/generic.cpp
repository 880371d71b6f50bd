// The -generic command (the port's static speed and its optical auto-adaptation: set, get and
// save) and the replay of both saved settings.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/result.hpp"
#include "base/text.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr uint32_t kSpeedValueSize = 7;     ///< replay buffer of the saved speed
constexpr uint32_t kAutoAdaptValueSize = 4; ///< replay buffer of the saved switch
/// The speeds (Mbit/s) the port can be fixed at; 0 takes the static speed back.
constexpr uint32_t kStaticSpeeds[] = {0, 1000, 10000, 25000, 40000, 50000, 100000, 200000};
constexpr const char *kSpeedExpected =
    "0 (none), 1000, 10000, 25000, 40000, 50000, 100000 or 200000";

constexpr const char *kHelpGeneric =
    "   [-s]        : set generic cfg \n"
    "       speed %d : static speed(Mbit/s): 1000, 10000, 25000, 40000, 50000, 100000 or "
    "200000; 0: none\n"
    "       or\n"
    "       auto_adapt %d : optical auto adapt, 0: disable, 1: enable\n"
    "   [-g]        : get static speed and optical auto adapt \n";

/// Checks a speed text (a plain number of at most 6 digits: the saved value must fit its replay
/// buffer) against the port's speeds and sets it. Saves nothing. 0, 0x2001 or 0x4001.
[[nodiscard]] int32_t read_static_speed(const char *text, uint32_t *speed)
{
    const size_t len = strlen(text);
    bool known = false;
    if (len < kSpeedValueSize && is_plain_number(text)) {
        *speed = static_cast<uint32_t>(atoi(text));
        for (uint32_t s : kStaticSpeeds)
            known = known || s == *speed;
    }
    return known ? kOk : kErrParamInvalid;
}

[[nodiscard]] int32_t check_static_speed(const char *text)
{
    uint32_t speed = 0;
    return read_static_speed(text, &speed);
}

[[nodiscard]] int32_t check_auto_adapt(const char *text)
{
    return strcmp(text, "0") == 0 || strcmp(text, "1") == 0 ? kOk : kErrParamInvalid;
}

[[nodiscard]] int32_t tool_set_static_speed(DevRef dev, const char *text, SetMode mode)
{
    uint32_t speed = 0;
    if (read_static_speed(text, &speed) != kOk) {
        DRV_ERR("Invalid static speed. (speed=\"%s\")", text);
        if (mode == SetMode::kCommand)
            fprintf(stderr, "The value \"%s\" of speed is invalid, expected %s.\n", text,
                    kSpeedExpected);
        return kErrParamInvalid;
    }
    const kopa_generic_set rec{KOPA_GENERIC_STATIC_SPEED, speed};
    int ret = kopa_set_generic_info(dev.logic_id, &rec, sizeof(rec));
    if (ret != 0 && !cmd_set_took_effect(ret, [&] {
            kopa_generic_info held{};
            return kopa_get_generic_info(dev.logic_id, &held) == 0 && held.static_speed == speed;
        })) {
        DRV_ERR("kopa set static speed fail ret[%d] logic_id[%u] speed[%u]", ret, dev.logic_id,
                speed);
        return kopa_err_to_vorn_err(ret);
    }
    return kOk;
}

/// Checks a switch text ("0" or "1") and sets the optical auto-adaptation. Saves nothing. 0,
/// 0x2001, or a refusal: 0x4001 for the command, the device operation's own code on replay.
[[nodiscard]] int32_t tool_set_auto_adapt(DevRef dev, const char *text, SetMode mode)
{
    if (check_auto_adapt(text) != kOk) {
        DRV_ERR("Invalid auto adapt. (value=\"%s\")", text);
        if (mode == SetMode::kCommand)
            fprintf(stderr,
                    "The value \"%s\" of auto_adapt is invalid, expected 0 (disable) or 1 "
                    "(enable).\n",
                    text);
        return kErrParamInvalid;
    }
    const kopa_auto_adapt_set rec{static_cast<uint32_t>(text[0] - '0')};
    int ret = kopa_set_optical_auto_adapt(dev.logic_id, &rec, sizeof(rec));
    if (ret != 0 && !cmd_set_took_effect(ret, [&] {
            kopa_generic_info held{};
            return kopa_get_generic_info(dev.logic_id, &held) == 0 && held.auto_adapt == rec.enable;
        })) {
        DRV_ERR("kopa set auto adapt fail ret[%d] logic_id[%u]", ret, dev.logic_id);
        return mode == SetMode::kRecovery ? ret : kopa_err_to_vorn_err(ret);
    }
    return kOk;
}

int32_t tool_generic_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    const bool speed = strcmp(argv[1], "speed") == 0;
    if (!speed && strcmp(argv[1], "auto_adapt") != 0)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean speed or auto_adapt\n");
    RUN_LOG_CONFIG("start to set %s of logic_id[%u]\n", speed ? "static speed" : "auto adapt",
                   info->logic_id);
    int32_t ret = speed ? tool_set_static_speed(dev_of(info), argv[2], SetMode::kCommand)
                        : tool_set_auto_adapt(dev_of(info), argv[2], SetMode::kCommand);
    if (ret != kOk) {
        DRV_ERR("set %s failed, logic_id[%u]", argv[1], info->logic_id);
        return ret;
    }
    // Saved as typed; the device keeps the change even when it cannot be saved.
    const char *value = argv[2];
    if (speed)
        return cmd_save_item(CMD_HERE, info->phy_id, kStaticSpeedItem.key, value,
                             "Failed to write the static speed to the config file, and user "
                             "configurations cannot be persisted.\n");
    return cmd_save_item(CMD_HERE, info->phy_id, kAutoAdaptItem.key, value,
                         "Failed to write the optical auto adapt to the config file, and user "
                         "configurations cannot be persisted.\n");
}

ItemLive live_static_speed(uint32_t logic_id)
{
    kopa_generic_info generic{};
    const int ret = kopa_get_generic_info(logic_id, &generic);
    return item_live_number(ret, generic.static_speed);
}

ItemLive live_auto_adapt(uint32_t logic_id)
{
    kopa_generic_info generic{};
    const int ret = kopa_get_generic_info(logic_id, &generic);
    return item_live_number(ret, generic.auto_adapt);
}

int32_t tool_generic_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_generic_info generic{};
    int ret = kopa_get_generic_info(info->logic_id, &generic);
    if (ret != 0) {
        DRV_ERR("kopa get generic info fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    if (generic.static_speed == 0)
        printf("static speed: none\n");
    else
        printf("static speed: %u Mbit/s\n", generic.static_speed);
    printf("optical auto adapt: %s\n", generic.auto_adapt != 0 ? "enabled" : "disabled");
    return kOk;
}

constexpr CmdOp kGenericOps[] = {
    {"-s", 3, true, tool_generic_set_cmd},
    {"-g", 1, false, tool_generic_get_cmd},
};

} // namespace

extern constexpr CmdDesc kGenericCmd{
    .major = "-i",
    .name = "-generic",
    .handler = "tool_generic_cmd_execute",
    .description = "generic info cmd",
    .help = kHelpGeneric,
    .ops = kGenericOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

extern constexpr SavedItem kStaticSpeedItem{
    .key = "static_speed",
    .buffer = kSpeedValueSize,
    .kind = ItemKind::kNumber,
    .what = "static speed",
    .check = check_static_speed,
    .live = live_static_speed,
    .replay = tool_cfg_generic_recovery,
    .replay_name = "tool_cfg_generic_recovery",
    .set_words = "-generic -s speed {static_speed}",
    .canonical = item_canonical_number,
    .set = tool_set_static_speed,
};

extern constexpr SavedItem kAutoAdaptItem{
    .key = "auto_adapt",
    .buffer = kAutoAdaptValueSize,
    .kind = ItemKind::kNumber,
    .what = "optical auto-adaptation",
    .check = check_auto_adapt,
    .live = live_auto_adapt,
    .set_words = "-generic -s auto_adapt {auto_adapt}",
    .canonical = item_canonical_number,
    .set = tool_set_auto_adapt,
};

// The static speed comes first: the adaptation works at the speed the port runs.
int32_t tool_cfg_generic_recovery(DevRef dev, const ConfView &conf)
{
    char speed[kSpeedValueSize] = {};
    if (cmd_replay_read(CMD_HERE, conf, dev.phy_id, kStaticSpeedItem.key, "static speed", speed,
                        sizeof(speed))) {
        int32_t ret = tool_set_static_speed(dev, speed, SetMode::kRecovery);
        if (ret != kOk) {
            DRV_ERR("tool recovery static speed fail ret[%d] logic_id[%u] speed[%s]", ret,
                    dev.logic_id, speed);
            return ret;
        }
    }
    char adapt[kAutoAdaptValueSize] = {};
    if (!cmd_replay_read(CMD_HERE, conf, dev.phy_id, kAutoAdaptItem.key, "auto adapt", adapt,
                         sizeof(adapt)))
        return kOk;
    int32_t ret = tool_set_auto_adapt(dev, adapt, SetMode::kRecovery);
    if (ret != kOk)
        DRV_ERR("tool recovery auto adapt fail ret[%d] logic_id[%u] value[%s]", ret, dev.logic_id,
                adapt);
    return ret;
}
