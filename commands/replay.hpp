// The replay of saved settings: one routine per saved item, each reading its keys of the
// device's physical id and setting them again through the item's own setting routine. An
// absent key is success: there is nothing to replay.
#pragma once

#include <cstdint>
#include <span>

#include "commands/saved_item.hpp"
#include "commands/setting.hpp"
#include "config/store.hpp"

/// Sends one saved command line (the whole line, its key included, without the newline) to the
/// device again. 0 or the tool's code.
using CmdlineSend = int32_t (*)(DevRef dev, const char *line);

/// Replays the saved command lines of a device: every line of the view `conf` that contains
/// `pattern` ("arp_%d=", "ip_rule_%d=", "ip_route_%d=") filled with the device's
/// LOGICAL id goes to `send`, in file order. The first failure ends the replay with its code; 12293
/// when the file could not be read.
[[nodiscard]] int32_t tool_cfg_cmdline_recovery(DevRef dev, const ConfView &conf,
                                                const char *pattern, CmdlineSend send);

/// Runs the replay step `replay` of `dev` on a view of the file as it stands. 0 or the step's
/// code.
[[nodiscard]] int32_t tool_cfg_replay_now(int32_t (*replay)(DevRef dev, const ConfView &conf),
                                          DevRef dev);

/// The saved command lines of `item` ("arp") of the device of logical id `logic_id` in `conf`:
/// the lines that begin with "<item>_<logic_id>=", each read into an entry by `entry_of` (false
/// when the replay's checkers refuse the line).
[[nodiscard]] ItemSavedList
tool_saved_cmdline_entries(std::string_view conf, const char *item, uint32_t logic_id,
                           bool (*entry_of)(const char *line, ItemEntry *entry));

/// "<item>_<logic_id>", the key of a device's saved command lines.
[[nodiscard]] std::string tool_cmdline_key(const char *item, uint32_t logic_id);

/// The pieces of a list item of saved command lines: the lines "<kItem>_<logic_id>=...", read into
/// a `Record` by the replay's own reader `kRead`, shown as entries by `kEntry`, and the device's
/// records, at most `kMax`, read by `kGet`.
template <typename Record, int32_t (*kRead)(const char *, Record *),
          ItemEntry (*kEntry)(const Record &), const char *kItem,
          int (*kGet)(uint32_t, Record *, uint32_t *), uint32_t kMax>
struct CmdlineList {
    static int32_t check(const char *line)
    {
        Record rec{};
        return kRead(line, &rec);
    }
    static bool saved_entry(const char *line, ItemEntry *entry)
    {
        Record rec{};
        if (kRead(line, &rec) != 0)
            return false;
        *entry = kEntry(rec);
        return true;
    }
    static ItemLive live(uint32_t logic_id)
    {
        Record records[kMax] = {};
        uint32_t count = kMax;
        ItemLive live;
        live.ret = kGet(logic_id, records, &count);
        for (uint32_t k = 0; live.ret == 0 && k < count && k < kMax; ++k)
            live.entries.push_back(kEntry(records[k]));
        return live;
    }
    static std::string key(DevRef dev) { return tool_cmdline_key(kItem, dev.logic_id); }
    static ItemSavedList saved(std::string_view conf, DevRef dev)
    {
        return tool_saved_cmdline_entries(conf, kItem, dev.logic_id, saved_entry);
    }
};

int32_t tool_cfg_ip_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_gateway_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_netdetect_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_mtu_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_mac_addr_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_dscp_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_shaping_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_route_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_roce_port_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_pfc_recovery(DevRef dev, const ConfView &conf);
int32_t tool_tc_cfg_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_prio_tc_recovery(DevRef dev, const ConfView &conf);

/// The static speed ("static_speed"), then the optical auto-adaptation ("auto_adapt"); a
/// failing static speed ends the item before the auto-adaptation.
int32_t tool_cfg_generic_recovery(DevRef dev, const ConfView &conf);
/// The saved ARP entries "arp_<logic_id>=dev ethN ip A mac M".
int32_t tool_cfg_arp_recovery(DevRef dev, const ConfView &conf);
/// The saved policy rules "ip_rule_<logic_id>=dir D ip A ip_mask N table T" and routes
/// "ip_route_<logic_id>=ip A ip_mask N via G dev ethN table T" (keywords in any order). A line
/// that a checker refuses ends the replay with 0x2001.
int32_t tool_cfg_ip_rule_recovery(DevRef dev, const ConfView &conf);
int32_t tool_cfg_ip_route_recovery(DevRef dev, const ConfView &conf);
/// The FEC mode ("encoding").
int32_t tool_cfg_fec_recovery(DevRef dev, const ConfView &conf);
/// The gratuitous ARP period and switch ("send_arp_period", "send_arp_status"), both or none.
int32_t tool_cfg_gratuitous_arp_recovery(DevRef dev, const ConfView &conf);
