// The -send_arp command (the period and switch of the gratuitous ARP the port sends: set, get
// and save) and the replay of the saved pair.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/result.hpp"
#include "base/text.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/keyword_args.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr uint32_t kNetPort = 0;
constexpr const char *kPeriodItem = "send_arp_period";
constexpr const char *kStatusItem = "send_arp_status";
constexpr uint32_t kGarpValueSize = 6; ///< replay buffer of each saved value
constexpr uint32_t kPeriodMin = 1;     ///< seconds
constexpr uint32_t kPeriodMax = 3600;
constexpr size_t kPeriodMaxDigits = 4;
constexpr const char *kPeriodExpected = "a number of seconds from 1 to 3600";
constexpr const char *kStatusExpected = "0 (off) or 1 (on)";

constexpr const char *kHelpSendArp = "   [-s]        : set gratuitous arp, keywords in any order \n"
                                     "       period %d : sending period(s), from 1 to 3600\n"
                                     "       status %d : 0: off, 1: on\n"
                                     "   [-g]        : get gratuitous arp cfg \n";

// A plain number, the length limited before the conversion.
int32_t check_period(const char *text)
{
    if (strlen(text) > kPeriodMaxDigits || !is_plain_number(text))
        return kErrParamInvalid;
    const auto period = static_cast<uint32_t>(atoi(text));
    return period >= kPeriodMin && period <= kPeriodMax ? kOk : kErrParamInvalid;
}

int32_t check_status(const char *text)
{
    return strcmp(text, "0") == 0 || strcmp(text, "1") == 0 ? kOk : kErrParamInvalid;
}

/// Checks the period and switch texts and sets them on the device. Saves nothing. 0, 0x2001 or
/// 0x4001.
[[nodiscard]] int32_t tool_set_gratuitous_arp_info(DevRef dev, const char *period,
                                                   const char *status, SetMode /*mode*/)
{
    if (check_period(period) != kOk || check_status(status) != kOk) {
        DRV_ERR("Invalid gratuitous arp cfg. (period=\"%s\"; status=\"%s\")", period, status);
        return kErrParamInvalid;
    }
    kopa_garp_info rec{};
    rec.port_id = kNetPort;
    rec.period = static_cast<uint32_t>(atoi(period));
    rec.status = static_cast<uint32_t>(atoi(status));
    int ret = kopa_set_gratuitous_arp_info(dev.logic_id, &rec, sizeof(rec));
    if (ret != 0 && !cmd_set_took_effect(ret, [&] {
            kopa_garp_info held{};
            return kopa_get_gratuitous_arp_info(dev.logic_id, kNetPort, &held) == 0 &&
                   held.period == rec.period && held.status == rec.status;
        })) {
        DRV_ERR("kopa set gratuitous arp fail ret[%d] logic_id[%u]", ret, dev.logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    return kOk;
}

// Both values go to the file in one replacement: a replay never finds one without the other.
[[nodiscard]] int32_t save_gratuitous_arp(uint32_t phy_id, const char *period, const char *status)
{
    ConfSession conf(ConfAccess::kWrite);
    int ret = conf.open();
    if (ret == 0)
        ret = conf.write_item(phy_id, kPeriodItem, period);
    if (ret == 0)
        ret = conf.write_item(phy_id, kStatusItem, status);
    if (ret == 0)
        ret = conf.commit();
    if (ret != 0) {
        DRV_ERR("write cfg error[%d], phy_id[%u]", ret, phy_id);
        fputs("Failed to write the gratuitous arp cfg to the config file, and user "
              "configurations cannot be persisted.\n",
              stderr);
    }
    return ret;
}

int32_t tool_send_arp_set_cmd(int argc, char **argv, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to set gratuitous arp of logic_id[%u]\n", info->logic_id);
    char period[kGarpValueSize];
    char status[kGarpValueSize];
    const KeywordArg args[] = {
        {"period", period, sizeof(period), check_period, kPeriodExpected},
        {"status", status, sizeof(status), check_status, kStatusExpected},
    };
    int32_t ret = cmd_read_keywords(CMD_HERE, argc - 1, argv + 1, args, WordsFrom::kTyped);
    if (ret == kOk)
        ret = tool_set_gratuitous_arp_info(dev_of(info), period, status, SetMode::kCommand);
    if (ret != kOk) {
        DRV_ERR("set gratuitous arp failed, logic_id[%u]", info->logic_id);
        return ret;
    }
    // Saved as typed; the device keeps the change even when it cannot be saved.
    return save_gratuitous_arp(info->phy_id, period, status);
}

int32_t set_period(DevRef dev, const char *text, const char *status, SetMode mode)
{
    return tool_set_gratuitous_arp_info(dev, text, status, mode);
}

int32_t set_status(DevRef dev, const char *text, const char *period, SetMode mode)
{
    return tool_set_gratuitous_arp_info(dev, period, text, mode);
}

template <uint32_t kopa_garp_info::*kField> ItemLive live_garp(uint32_t logic_id)
{
    kopa_garp_info garp{};
    const int ret = kopa_get_gratuitous_arp_info(logic_id, kNetPort, &garp);
    return item_live_number(ret, garp.*kField);
}

int32_t tool_send_arp_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_garp_info garp{};
    int ret = kopa_get_gratuitous_arp_info(info->logic_id, kNetPort, &garp);
    if (ret != 0) {
        DRV_ERR("kopa get gratuitous arp fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    char ip[kIpTextSize];
    if (tool_ipv4_int_to_str(garp.ip, ip, sizeof(ip)) != kOk)
        return kErrSysCopy;
    const uint32_t status = garp.status;
    const uint32_t period = garp.period;
    if (status <= 1)
        printf("gratuitous arp status: %s\n", status != 0 ? "on" : "off");
    else
        printf("gratuitous arp status: unknown(%u)\n", status);
    printf("gratuitous arp period: %us\n", period);
    printf("gratuitous arp ip: %s\n", ip);
    printf("gratuitous arp mac: %02x:%02x:%02x:%02x:%02x:%02x\n", garp.mac[0], garp.mac[1],
           garp.mac[2], garp.mac[3], garp.mac[4], garp.mac[5]);
    return kOk;
}

constexpr CmdOp kSendArpOps[] = {
    {"-s", 5, true, tool_send_arp_set_cmd},
    {"-g", 1, false, tool_send_arp_get_cmd},
};

} // namespace

extern constexpr CmdDesc kSendArpCmd{
    .major = "-i",
    .name = "-send_arp",
    .handler = "tool_send_gratuitous_arp_cmd_execute",
    .description = "send gratuitous arp related cmd",
    .help = kHelpSendArp,
    .ops = kSendArpOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

extern constexpr SavedItem kSendArpPeriodItem{
    .key = kPeriodItem,
    .buffer = kGarpValueSize,
    .kind = ItemKind::kNumber,
    .what = "gratuitous ARP period",
    .check = check_period,
    .live = live_garp<&kopa_garp_info::period>,
    .replay = tool_cfg_gratuitous_arp_recovery,
    .replay_name = "tool_cfg_gratuitous_arp_recovery",
    .set_words = "-send_arp -s period {send_arp_period} status {send_arp_status}",
    .canonical = item_canonical_number,
    .partner = kStatusItem,
    .set_pair = set_period,
};

extern constexpr SavedItem kSendArpStatusItem{
    .key = kStatusItem,
    .buffer = kGarpValueSize,
    .kind = ItemKind::kNumber,
    .what = "gratuitous ARP switch",
    .check = check_status,
    .live = live_garp<&kopa_garp_info::status>,
    .set_words = "-send_arp -s period {send_arp_period} status {send_arp_status}",
    .canonical = item_canonical_number,
    .partner = kPeriodItem,
    .set_pair = set_status,
};

// One saved value without the other is nothing to replay.
int32_t tool_cfg_gratuitous_arp_recovery(DevRef dev, const ConfView &conf)
{
    char period[kGarpValueSize] = {};
    char status[kGarpValueSize] = {};
    if (!cmd_replay_read(CMD_HERE, conf, dev.phy_id, kPeriodItem, "send_arp_period", period,
                         sizeof(period)) ||
        !cmd_replay_read(CMD_HERE, conf, dev.phy_id, kStatusItem, "send_arp_status", status,
                         sizeof(status)))
        return kOk;
    DRV_DBG("gratuitous arp need recover cfg");
    int32_t ret = tool_set_gratuitous_arp_info(dev, period, status, SetMode::kRecovery);
    if (ret != kOk)
        DRV_ERR("gratuitous arp set fail ret[%d] logic_id[%u]", ret, dev.logic_id);
    return ret;
}
