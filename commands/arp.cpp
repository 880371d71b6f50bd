// The -arp command (add, replace, delete and list the entries of the RoCE port's ARP table), the
// saved lines of its entries and their replay.
//
// An entry is saved as one command line "arp_<logic_id>=dev ethN ip A mac M", keyed by the
// device's logical id like every saved command line, in that canonical form (the MAC in lower
// case), so that the line of an entry can be found by its port and address.
#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

#include "base/result.hpp"
#include "base/text.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/keyword_args.hpp"
#include "commands/port_settings.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "commands/saved_lines.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr uint32_t kDevTextSize = 8; ///< "eth0" .. "eth7"
constexpr uint32_t kMacTextSize = kMacTextLen + 1;
constexpr uint32_t kMacLen = 6;

/// An entry as typed or saved: port, address and (for an add) MAC address.
struct ArpText {
    char dev[kDevTextSize];
    char ip[kIpTextSize];
    char mac[kMacTextSize];
};

// A typed entry names a neighbour: no address or MAC that no single host can have (the
// unspecified and broadcast addresses, loopback, multicast; a group, broadcast or all-zero MAC),
// which would only shadow real traffic. Saved lines are replayed as they were accepted.
int32_t check_neighbour_ip(const char *text)
{
    uint32_t address = 0;
    if (tool_check_param("ip", text) != kOk || tool_inet_pton_ipv4_address(text, &address) != kOk)
        return kErrParamInvalid;
    const uint32_t host = ntohl(address);
    const uint32_t first = host >> 24;
    if (host == 0 || host == 0xFFFFFFFFU || first == 127 || (first & 0xF0) == 0xE0)
        return kErrParamInvalid;
    return kOk;
}

int32_t check_neighbour_mac(const char *text)
{
    uint8_t mac[kMacLen] = {};
    if (tool_check_param("mac", text) != kOk || tool_mac_str2char(text, mac, kMacLen) != kOk)
        return kErrParamInvalid;
    const bool zero = std::all_of(std::begin(mac), std::end(mac), [](uint8_t b) { return b == 0; });
    return (mac[0] & 1) != 0 || zero ? kErrParamInvalid : kOk;
}

[[nodiscard]] int32_t read_arp_words(const CallSite &where, int argc, char **argv, bool with_mac,
                                     WordsFrom from, ArpText *text)
{
    const bool neighbour = with_mac && from == WordsFrom::kTyped;
    const KeywordArg args[] = {
        {"dev", text->dev, sizeof(text->dev)},
        {"ip", text->ip, sizeof(text->ip), neighbour ? check_neighbour_ip : nullptr,
         neighbour ? "a unicast IPv4 address such as 10.0.0.5" : nullptr},
        {"mac", text->mac, sizeof(text->mac), neighbour ? check_neighbour_mac : nullptr,
         neighbour ? "a unicast MAC address such as 00:11:22:33:44:55" : nullptr},
    };
    int32_t ret = cmd_read_keywords(where, argc, argv, std::span(args, with_mac ? 3 : 2), from);
    if (ret != kOk)
        return ret;
    for (char &c : text->mac)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return kOk;
}

// The words have passed their checkers; only the conversion is left.
[[nodiscard]] int32_t arp_record(const ArpText &text, bool with_mac, kopa_arp_record *rec)
{
    *rec = kopa_arp_record{};
    unsigned port = 0;
    if (sscanf(text.dev, "eth%u", &port) != 1) {
        DRV_ERR("Get dev val failed. (dev=\"%s\")", text.dev);
        return kErrParamInvalid;
    }
    rec->dev = port;
    int32_t ret = tool_inet_pton_ipv4_address(text.ip, &rec->ip);
    if (ret == kOk && with_mac)
        ret = tool_mac_str2char(text.mac, rec->mac, kMacLen);
    return ret;
}

/// The start of the saved line of the entry of `text` on device `logic_id`, up to its MAC.
[[nodiscard]] bool arp_line_prefix(uint32_t logic_id, const ArpText &text,
                                   char (&prefix)[kCfgLineSize])
{
    return format_text(prefix, sizeof(prefix), "arp_%u=dev %s ip %s mac ", logic_id, text.dev,
                       text.ip);
}

/// What the device's table says of `rec` (its MAC too when `with_mac`): held, not held, or
/// nothing, when the table cannot be read.
enum class ArpHeld { kYes, kNo, kUnknown };

[[nodiscard]] ArpHeld arp_held(uint32_t logic_id, const kopa_arp_record &rec, bool with_mac)
{
    kopa_arp_record entries[KOPA_ARP_MAX] = {};
    uint32_t count = KOPA_ARP_MAX;
    if (kopa_get_arp_table(logic_id, entries, &count) != 0)
        return ArpHeld::kUnknown;
    for (uint32_t i = 0; i < count; ++i) {
        if (entries[i].dev == rec.dev && entries[i].ip == rec.ip &&
            (!with_mac || memcmp(entries[i].mac, rec.mac, kMacLen) == 0))
            return ArpHeld::kYes;
    }
    return ArpHeld::kNo;
}

// The line of a replaced entry goes and the new one comes at the end, in one replacement of
// the file.
[[nodiscard]] int32_t save_arp_line(uint32_t logic_id, const ArpText &text)
{
    char prefix[kCfgLineSize];
    char key[kCfgLineSize];
    char value[kCfgLineSize];
    int ret = kErrSysCopy;
    if (arp_line_prefix(logic_id, text, prefix) &&
        format_text(key, sizeof(key), "arp_%u", logic_id) &&
        format_text(value, sizeof(value), "dev %s ip %s mac %s", text.dev, text.ip, text.mac)) {
        ConfSession conf(ConfAccess::kWrite);
        ret = conf.open();
        if (ret == 0) {
            (void)conf.del(prefix);
            ret = conf.append(key, value);
        }
        if (ret == 0)
            ret = conf.commit();
    }
    if (ret != 0) {
        DRV_ERR("add arp cfg error! ret[%d] logic_id[%u]", ret, logic_id);
        fputs("Failed to write the arp entry to the config file, and user configurations cannot "
              "be persisted.\n",
              stderr);
    }
    return ret;
}

// An entry the device no longer holds (it was reset and not recovered) may still have its
// line: the delete removes the line and succeeds. Only an entry known to neither is refused.
[[nodiscard]] int32_t forget_arp_line(uint32_t logic_id, const ArpText &text, bool on_device)
{
    char prefix[kCfgLineSize];
    if (!arp_line_prefix(logic_id, text, prefix))
        return kErrSysCopy;
    ConfSession conf(ConfAccess::kDelete);
    int ret = conf.open();
    if (ret == 0) {
        if (!on_device && conf.content().find(prefix) == std::string_view::npos) {
            fprintf(stderr, "No arp entry of ip %s on %s!\n", text.ip, text.dev);
            DRV_ERR("arp entry not exist. logic_id[%u]", logic_id);
            return kErrReported;
        }
        (void)conf.del(prefix);
        ret = conf.commit();
    }
    if (ret != 0) {
        DRV_ERR("delete arp cfg error! ret[%d] logic_id[%u]", ret, logic_id);
        fputs("Failed to delete the arp entry from the config file, and user configurations "
              "cannot be persisted.\n",
              stderr);
    }
    return ret;
}

int32_t tool_arp_add_cmd(int argc, char **argv, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to add arp entry of logic_id[%u]\n", info->logic_id);
    ArpText text{};
    int32_t ret = read_arp_words(CMD_HERE, argc - 1, argv + 1, true, WordsFrom::kTyped, &text);
    kopa_arp_record rec{};
    if (ret == kOk)
        ret = arp_record(text, true, &rec);
    if (ret != kOk)
        return ret;
    int kret = kopa_add_arp_entry(info->logic_id, &rec);
    if (kret == KOPA_RESULT_ROUTE_FULL) {
        fputs("Arp entries reach max! Can not add anymore!\n", stderr);
        DRV_ERR("Arp entries reach max! Can not add anymore!");
        return kErrKopa;
    }
    if (kret != 0 && !cmd_set_took_effect(kret, [&] {
            return arp_held(info->logic_id, rec, true) == ArpHeld::kYes;
        })) {
        DRV_ERR("kopa add arp entry fail! ret[%d] logic_id[%u] dev[%u] ip[0x%x]", kret,
                info->logic_id, rec.dev, rec.ip);
        return kopa_err_to_vorn_err(kret);
    }
    // The device keeps the entry even when it cannot be saved.
    return save_arp_line(info->logic_id, text);
}

int32_t tool_arp_del_cmd(int argc, char **argv, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to delete arp entry of logic_id[%u]\n", info->logic_id);
    ArpText text{};
    int32_t ret = read_arp_words(CMD_HERE, argc - 1, argv + 1, false, WordsFrom::kTyped, &text);
    kopa_arp_record rec{};
    if (ret == kOk)
        ret = arp_record(text, false, &rec);
    if (ret != kOk)
        return ret;
    int kret = kopa_del_arp_entry(info->logic_id, &rec);
    if (kret != 0 && kret != KOPA_RESULT_NOENT && !cmd_set_took_effect(kret, [&] {
            return arp_held(info->logic_id, rec, false) == ArpHeld::kNo;
        })) {
        DRV_ERR("kopa del arp entry fail! ret[%d] logic_id[%u] dev[%u] ip[0x%x]", kret,
                info->logic_id, rec.dev, rec.ip);
        return kopa_err_to_vorn_err(kret);
    }
    return forget_arp_line(info->logic_id, text, kret != KOPA_RESULT_NOENT);
}

int32_t tool_arp_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_arp_record entries[KOPA_ARP_MAX] = {};
    uint32_t count = KOPA_ARP_MAX;
    int ret = kopa_get_arp_table(info->logic_id, entries, &count);
    if (ret != 0) {
        DRV_ERR("kopa get arp table fail! ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    for (uint32_t i = 0; i < count; ++i) {
        const kopa_arp_record &e = entries[i];
        char ip[kIpTextSize];
        if (tool_ipv4_int_to_str(e.ip, ip, sizeof(ip)) != kOk)
            return kErrSysCopy;
        printf("ip %s dev eth%u lladdr %02x:%02x:%02x:%02x:%02x:%02x\n", ip, e.dev, e.mac[0],
               e.mac[1], e.mac[2], e.mac[3], e.mac[4], e.mac[5]);
    }
    return kOk;
}

// A full table is not an error on replay: the entries that fit are in place.
int32_t tool_send_arp_recovery_cmd(DevRef dev, const char *line)
{
    char key[kCfgLineSize];
    if (!format_text(key, sizeof(key), "arp_%u=", dev.logic_id))
        return kErrSysCopy;
    if (!cmd_is_saved_line_of(line, key)) {
        DRV_DBG("not an arp line of logic_id[%u], skipped: %s", dev.logic_id, line);
        return kOk;
    }
    kopa_arp_record rec{};
    int32_t ret = tool_saved_arp_record(line, &rec);
    if (ret != kOk) {
        DRV_ERR("Invalid arp line. (ret=%d; line=\"%s\")", ret, line);
        return ret;
    }
    int kret = kopa_add_arp_entry(dev.logic_id, &rec);
    if (kret == KOPA_RESULT_ROUTE_FULL) {
        DRV_WARN("Arp entries reach max! Can not add anymore!");
        return kOk;
    }
    if (kret != 0) {
        DRV_ERR("kopa add arp entry fail! ret[%d] logic_id[%u] dev[%u] ip[0x%x]", kret,
                dev.logic_id, rec.dev, rec.ip);
        return kopa_err_to_vorn_err(kret);
    }
    return kOk;
}

constexpr CmdOp kArpOps[] = {
    {"-a", 7, true, tool_arp_add_cmd},
    {"-d", 5, true, tool_arp_del_cmd},
    {"-g", 1, false, tool_arp_get_cmd},
};

constexpr CmdMask kArpMasks[] = {
    {"dev", kMaskAnywhere}, {"ip", kMaskAnywhere}, {"mac", kMaskAnywhere}};

constexpr const char *kHelpArp =
    "   [-a]        : add an arp entry or replace its mac, keywords in any order \n"
    "       dev %s  : eth port, from eth0 to eth7\n"
    "       ip %s   : ip address, such as x.x.x.x\n"
    "       mac %s  : mac address, such as XX:XX:XX:XX:XX:XX\n"
    "   [-d]        : delete an arp entry, keywords in any order \n"
    "       dev %s  : eth port, from eth0 to eth7\n"
    "       ip %s   : ip address, such as x.x.x.x\n"
    "   [-g]        : get arp table, one entry a line \n";

} // namespace

extern constexpr CmdDesc kArpCmd{
    .major = "-i",
    .name = "-arp",
    .handler = "tool_arp_table_cmd_execute",
    .description = "arp table cmd",
    .help = kHelpArp,
    .ops = kArpOps,
    .unknown_op = {RefusalLog::kNone, nullptr, "Get unknown option!\n"},
    .masks = kArpMasks,
};

int32_t tool_saved_arp_record(const char *line, kopa_arp_record *entry)
{
    char buf[kCfgLineSize];
    char *words[6];
    const int n = cmd_split_saved_line(line, buf, sizeof(buf), words, 6);
    ArpText text{};
    int32_t ret = n < 0 ? kErrParamInvalid
                        : read_arp_words(CMD_HERE, n, words, true, WordsFrom::kSaved, &text);
    if (ret == kOk)
        ret = arp_record(text, true, entry);
    return ret;
}

int32_t tool_cfg_arp_recovery(DevRef dev, const ConfView &conf)
{
    return tool_cfg_cmdline_recovery(dev, conf, "arp_%d=", tool_send_arp_recovery_cmd);
}

namespace
{

ItemEntry arp_entry(const kopa_arp_record &e)
{
    char mac[kMacTextLen + 1];
    snprintf(mac, sizeof(mac), "%02x:%02x:%02x:%02x:%02x:%02x", e.mac[0], e.mac[1], e.mac[2],
             e.mac[3], e.mac[4], e.mac[5]);
    ItemEntry entry{"dev eth" + std::to_string(e.dev) + " ip " + item_ipv4_text(e.ip),
                    std::string("mac ") + mac, ""};
    entry.text = entry.id + " " + entry.value;
    return entry;
}

constexpr char kArpLines[] = "arp";
using ArpList = CmdlineList<kopa_arp_record, tool_saved_arp_record, arp_entry, kArpLines,
                            kopa_get_arp_table, KOPA_ARP_MAX>;

} // namespace

extern constexpr SavedItem kArpItem{
    .key = "arp",
    .buffer = 0,
    .kind = ItemKind::kEntries,
    .what = "ARP entries",
    .check = ArpList::check,
    .live = ArpList::live,
    .replay = tool_cfg_arp_recovery,
    .replay_name = "tool_cfg_arp_recovery",
    .list_key = ArpList::key,
    .saved_list = ArpList::saved,
    .max_entries = KOPA_ARP_MAX,
    .line_key = kArpLines,
};
