// The -dscp_to_tc command (set the traffic class of one DSCP value, get the map of all 64 values,
// save the values set) and the replay of the saved map.
//
// The map is saved as "dscp_tc": the values set through the tool, "dscp:tc" in ascending DSCP
// order separated by "," ("10:3,46:5"), at most 64 entries and 309 characters, read back into a
// buffer of 384 bytes. A set reads the saved list, puts its entry in and writes the list back in
// one change of the file, which stays locked from the read to the write.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/qos_settings.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr const char *kDscpItem = "dscp_tc";
constexpr uint32_t kDscpValueSize = 384; ///< replay buffer of the saved list
constexpr uint32_t kDscpCount = kDscpValues;
constexpr uint32_t kDscpMax = kDscpCount - 1;
constexpr size_t kDscpDigits = 2;
constexpr uint8_t kNotSaved = kDscpNotSaved;
constexpr const char *kSaveFailed = "Failed to write the dscp to tc map to the config file, and "
                                    "user configurations cannot be persisted.\n";

constexpr const char *kHelpDscp = "   [-s]        : set the traffic class of one dscp value\n"
                                  "       dscp %d : dscp value, from 0 to 63\n"
                                  "       tc %d   : traffic class, from 0 to 7\n"
                                  "   [-g]        : get the traffic class of every dscp value\n";

/// The traffic class saved for each DSCP value, kNotSaved where none is.
struct DscpList {
    uint8_t tc[kDscpCount];
};

// Every entry is checked as the command checks its words; a DSCP value given twice makes the
// list malformed, so no list holds more than 64 entries.
[[nodiscard]] int32_t read_dscp_list(std::string_view text, DscpList *list)
{
    memset(list->tc, kNotSaved, sizeof(list->tc));
    while (!text.empty()) {
        const size_t comma = text.find(',');
        const std::string_view entry = text.substr(0, comma);
        const size_t colon = entry.find(':');
        if (colon == std::string_view::npos)
            return kErrParamInvalid;
        uint32_t dscp = 0;
        uint32_t tc = 0;
        int32_t ret =
            qos_read_number(entry.substr(0, colon), kDscpDigits, kDscpMax, kErrRangeDscp, &dscp);
        if (ret == kOk)
            ret = qos_read_number(entry.substr(colon + 1), 1, kTcMax, kErrRangeTc, &tc);
        if (ret != kOk)
            return ret;
        if (list->tc[dscp] != kNotSaved)
            return kErrParamInvalid;
        list->tc[dscp] = static_cast<uint8_t>(tc);
        if (comma == std::string_view::npos)
            break;
        text.remove_prefix(comma + 1);
        // A list ends with an entry, never with ",".
        if (text.empty())
            return kErrParamInvalid;
    }
    return kOk;
}

[[nodiscard]] bool format_dscp_list(const DscpList &list, char *out, size_t size)
{
    size_t used = 0;
    out[0] = '\0';
    for (uint32_t dscp = 0; dscp < kDscpCount; ++dscp) {
        if (list.tc[dscp] == kNotSaved)
            continue;
        const int n =
            snprintf(out + used, size - used, used == 0 ? "%u:%u" : ",%u:%u", dscp, list.tc[dscp]);
        if (n < 0 || static_cast<size_t>(n) >= size - used)
            return false;
        used += static_cast<size_t>(n);
    }
    return true;
}

// A refusal is a device failure (0x4001) to the command; replay applies the entry through the
// device operation itself and returns its code.
[[nodiscard]] int32_t send_dscp(DevRef dev, uint32_t dscp, uint32_t tc, SetMode mode)
{
    const kopa_dscp_map_set entry{static_cast<uint8_t>(dscp), static_cast<uint8_t>(tc), {}};
    int dev_ret = kopa_set_dscp_map(dev.logic_id, &entry);
    if (dev_ret != 0 && !cmd_set_took_effect(dev_ret, [&] {
            kopa_dscp_map held{};
            return kopa_get_dscp_map(dev.logic_id, &held) == 0 && held.tc[dscp] == tc;
        })) {
        DRV_ERR("kopa set dscp map fail ret[%d] logic_id[%u] dscp[%u] tc[%u]", dev_ret,
                dev.logic_id, dscp, tc);
        return mode == SetMode::kRecovery ? dev_ret : kopa_err_to_vorn_err(dev_ret);
    }
    return kOk;
}

// A saved list that cannot be read cannot take the new entry: the set is refused before the
// device changes, rather than losing the other saved values.
[[nodiscard]] int32_t read_saved_list(const ConfSession &conf, uint32_t phy_id, DscpList *list)
{
    char value[kDscpValueSize] = {};
    int ret = conf.read_item(phy_id, kDscpItem, value, sizeof(value));
    if (ret == kErrSysNotFound)
        return read_dscp_list("", list);
    if (ret == 0)
        ret = read_dscp_list(value, list);
    if (ret == 0)
        return kOk;
    DRV_ERR("saved dscp_tc list of phy_id[%u] is malformed, ret[%d]", phy_id, ret);
    fprintf(stderr,
            "The saved dscp to tc map of the device is malformed: correct or remove the line "
            "%s_%u in %s.\n",
            kDscpItem, phy_id, cfg_conf_path());
    return kErrReported;
}

int32_t tool_dscp_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_dscp_map map{};
    int ret = kopa_get_dscp_map(info->logic_id, &map);
    if (ret != 0) {
        DRV_ERR("kopa get dscp map fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    constexpr uint32_t kPerRow = 8;
    for (uint32_t row = 0; row < kDscpCount; row += kPerRow) {
        printf("dscp-tc");
        for (uint32_t dscp = row; dscp < row + kPerRow; ++dscp)
            printf(" %u:%u", dscp, map.tc[dscp]);
        printf("\n");
    }
    return kOk;
}

int32_t tool_dscp_set_cmd(int /*argc*/, char **argv, cmd_parse_info *info)
{
    if (strcmp(argv[1], "dscp") != 0)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean dscp\n");
    if (strcmp(argv[3], "tc") != 0)
        return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                      "Get unknown option, do you mean tc\n");
    RUN_LOG_CONFIG("start to set dscp to tc map of logic_id[%u]\n", info->logic_id);
    uint32_t dscp = 0;
    uint32_t tc = 0;
    int32_t ret = qos_read_number(argv[2], kDscpDigits, kDscpMax, kErrRangeDscp, &dscp);
    if (ret == kOk)
        ret = qos_read_number(argv[4], 1, kTcMax, kErrRangeTc, &tc);
    if (ret != kOk) {
        DRV_ERR("invalid dscp or tc, expect dscp [0]-[%u] and tc [0]-[%u]", kDscpMax, kTcMax);
        return ret;
    }
    // A file that cannot be opened does not stop the set: the device changes and the save
    // failure is reported after, as for every other setting.
    ConfSession conf(ConfAccess::kWrite);
    const int open_ret = conf.open();
    DscpList saved{};
    if (open_ret == 0) {
        ret = read_saved_list(conf, info->phy_id, &saved);
        if (ret != kOk)
            return ret;
    }
    ret = send_dscp(dev_of(info), dscp, tc, SetMode::kCommand);
    if (ret != kOk) {
        DRV_ERR("set dscp to tc map failed, logic_id[%u]", info->logic_id);
        return ret;
    }
    if (open_ret != 0)
        return qos_save_failed(CMD_HERE, info->phy_id, open_ret, kSaveFailed);
    saved.tc[dscp] = static_cast<uint8_t>(tc);
    char value[kDscpValueSize];
    int save_ret = format_dscp_list(saved, value, sizeof(value))
                       ? conf.write_item(info->phy_id, kDscpItem, value)
                       : kErrSysCopy;
    if (save_ret == 0)
        save_ret = conf.commit();
    return save_ret == 0 ? kOk : qos_save_failed(CMD_HERE, info->phy_id, save_ret, kSaveFailed);
}

constexpr CmdOp kDscpOps[] = {
    {"-s", 5, true, tool_dscp_set_cmd},
    {"-g", 1, false, tool_dscp_get_cmd},
};

} // namespace

extern constexpr CmdDesc kDscpCmd{
    .major = "-i",
    .name = "-dscp_to_tc",
    .handler = "tool_dscp_cmd_execute",
    .description = "dscp to tc cmd",
    .help = kHelpDscp,
    .ops = kDscpOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};

int32_t qos_read_dscp_list(std::string_view text, uint8_t (&tc)[kDscpValues])
{
    DscpList list{};
    const int32_t ret = read_dscp_list(text, &list);
    memcpy(tc, list.tc, sizeof(list.tc));
    return ret;
}

namespace
{

int32_t check_dscp(const char *text)
{
    DscpList list{};
    return read_dscp_list(text, &list);
}

// The whole list is checked before the first entry is sent.
int32_t set_dscp_list(DevRef dev, const char *text, SetMode mode)
{
    DscpList list{};
    int32_t ret = read_dscp_list(text, &list);
    if (ret != kOk) {
        DRV_ERR("saved dscp_tc list is malformed, ret[%d] logic_id[%u]", ret, dev.logic_id);
        return ret;
    }
    for (uint32_t dscp = 0; dscp < kDscpCount; ++dscp) {
        if (list.tc[dscp] == kNotSaved)
            continue;
        ret = send_dscp(dev, dscp, list.tc[dscp], mode);
        if (ret != kOk) {
            DRV_ERR("dscp_tc set fail ret[%d] logic_id[%u] dscp[%u]", ret, dev.logic_id, dscp);
            return ret;
        }
    }
    return kOk;
}

ItemLive live_dscp(uint32_t logic_id)
{
    kopa_dscp_map map{};
    ItemLive live;
    live.ret = kopa_get_dscp_map(logic_id, &map);
    if (live.ret == 0) {
        std::string list;
        for (uint32_t d = 0; d < kDscpCount; ++d)
            list += (d == 0 ? "" : ",") + std::to_string(d) + ":" + std::to_string(map.tc[d]);
        live.value = list;
    }
    return live;
}

} // namespace

extern constexpr SavedItem kDscpTcItem{
    .key = kDscpItem,
    .buffer = kDscpValueSize,
    .kind = ItemKind::kDscpMap,
    .what = "DSCP-to-class map",
    .check = check_dscp,
    .live = live_dscp,
    .replay = tool_cfg_dscp_recovery,
    .replay_name = "tool_cfg_dscp_recovery",
    .set_words = "-dscp_to_tc -s dscp {dscp} tc {tc}",
    .canonical = item_canonical_dscp,
    .set = set_dscp_list,
    .ansible_module = "vorn_devices",
    .ansible_option = "dscp_map",
};

int32_t tool_cfg_dscp_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kDscpTcItem, dev, "dscp_tc", "dscp_tc need recover cfg",
                            nullptr);
}
