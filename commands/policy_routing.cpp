// The replay of policy routing: the rules and routes an administrator saved as command lines
// "ip_rule_<logic_id>=..." and "ip_route_<logic_id>=..." (docs/policy-routing.md). No command
// of the table writes them; each line is parsed whole with the tool's checkers before anything
// is sent.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/result.hpp"
#include "base/text.hpp"
#include "cmdline/checkers.hpp"
#include "commands/cmd_common.hpp"
#include "commands/keyword_args.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "commands/saved_lines.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr uint32_t kDirTextSize = 5;   ///< "from", "to"
constexpr uint32_t kMaskTextSize = 3;  ///< "0" .. "32"
constexpr uint32_t kTableTextSize = 4; ///< "0" .. "255"
constexpr uint32_t kDevTextSize = 8;   ///< "eth0" .. "eth7"
constexpr int kRuleWords = 8;
constexpr int kRouteWords = 10;

/// Whether `line` is a saved line of device `dev` under `key_format` ("ip_rule_%u="): it begins
/// with the key. A line that only contains it further on is not the device's.
[[nodiscard]] bool is_line_of(DevRef dev, const char *key_format, const char *line)
{
    char key[kCfgLineSize];
    if (!format_text(key, sizeof(key), key_format, dev.logic_id) ||
        !cmd_is_saved_line_of(line, key)) {
        DRV_DBG("not a saved line of logic_id[%u], skipped: %s", dev.logic_id, line);
        return false;
    }
    return true;
}

/// The words of the value of a saved line, at most `max`; -1 when there are none or too many.
[[nodiscard]] int saved_words(const char *line, char *buf, char **words, int max)
{
    const int n = cmd_split_saved_line(line, buf, kCfgLineSize, words, max);
    return n == 0 ? -1 : n;
}

// The words have passed their checkers; only the conversion is left.
[[nodiscard]] uint32_t number_of(const char *text)
{
    return static_cast<uint32_t>(strtoul(text, nullptr, 10));
}

[[nodiscard]] uint32_t port_of(const char *dev)
{
    return number_of(dev + strlen("eth"));
}

// A full list is not an error on replay: the entries that fit are in place.
[[nodiscard]] int32_t added(int kret, const char *what, uint32_t logic_id)
{
    if (kret == KOPA_RESULT_ROUTE_FULL) {
        DRV_WARN("%s rows reach max! Can not add anymore!", what);
        return kOk;
    }
    if (kret != 0) {
        DRV_ERR("kopa add %s fail! ret[%d] logic_id[%u]", what, kret, logic_id);
        return kopa_err_to_vorn_err(kret);
    }
    return kOk;
}

int32_t tool_send_ip_rule_recovery_cmd(DevRef dev, const char *line)
{
    if (!is_line_of(dev, "ip_rule_%u=", line))
        return kOk;
    kopa_ip_rule_record rule{};
    const int32_t ret = tool_saved_ip_rule_record(line, &rule);
    if (ret != kOk) {
        DRV_ERR("Invalid ip rule line. (ret=%d; line=\"%s\")", ret, line);
        return ret;
    }
    return added(kopa_add_ip_rule(dev.logic_id, &rule), "ip rule", dev.logic_id);
}

int32_t tool_send_ip_route_recovery_cmd(DevRef dev, const char *line)
{
    if (!is_line_of(dev, "ip_route_%u=", line))
        return kOk;
    kopa_ip_route_record route{};
    const int32_t ret = tool_saved_ip_route_record(line, &route);
    if (ret != kOk) {
        DRV_ERR("Invalid ip route line. (ret=%d; line=\"%s\")", ret, line);
        return ret;
    }
    return added(kopa_add_ip_route(dev.logic_id, &route), "ip route", dev.logic_id);
}

} // namespace

int32_t tool_saved_ip_rule_record(const char *line, kopa_ip_rule_record *rule)
{
    char buf[kCfgLineSize];
    char *words[kRuleWords];
    const int n = saved_words(line, buf, words, kRuleWords);
    char dir[kDirTextSize];
    char ip[kIpTextSize];
    char mask[kMaskTextSize];
    char table[kTableTextSize];
    const KeywordArg args[] = {
        {"dir", dir, sizeof(dir)},
        {"ip", ip, sizeof(ip)},
        {"ip_mask", mask, sizeof(mask)},
        {"table", table, sizeof(table)},
    };
    *rule = kopa_ip_rule_record{};
    int32_t ret =
        n < 0 ? kErrParamInvalid : cmd_read_keywords(CMD_HERE, n, words, args, WordsFrom::kSaved);
    if (ret == kOk)
        ret = tool_inet_pton_ipv4_address(ip, &rule->ip);
    if (ret != kOk)
        return ret;
    rule->dir = strcmp(dir, "from") == 0 ? 0 : 1;
    rule->mask_bits = number_of(mask);
    rule->table = number_of(table);
    return kOk;
}

int32_t tool_saved_ip_route_record(const char *line, kopa_ip_route_record *route)
{
    char buf[kCfgLineSize];
    char *words[kRouteWords];
    const int n = saved_words(line, buf, words, kRouteWords);
    char ip[kIpTextSize];
    char mask[kMaskTextSize];
    char via[kIpTextSize];
    char port[kDevTextSize];
    char table[kTableTextSize];
    const KeywordArg args[] = {
        {"ip", ip, sizeof(ip)},      {"ip_mask", mask, sizeof(mask)}, {"via", via, sizeof(via)},
        {"dev", port, sizeof(port)}, {"table", table, sizeof(table)},
    };
    *route = kopa_ip_route_record{};
    int32_t ret =
        n < 0 ? kErrParamInvalid : cmd_read_keywords(CMD_HERE, n, words, args, WordsFrom::kSaved);
    if (ret == kOk)
        ret = tool_inet_pton_ipv4_address(ip, &route->ip);
    if (ret == kOk)
        ret = tool_inet_pton_ipv4_address(via, &route->via);
    if (ret != kOk)
        return ret;
    route->mask_bits = number_of(mask);
    route->dev = port_of(port);
    route->table = number_of(table);
    return kOk;
}

int32_t tool_cfg_ip_rule_recovery(DevRef dev, const ConfView &conf)
{
    return tool_cfg_cmdline_recovery(dev, conf, "ip_rule_%d=", tool_send_ip_rule_recovery_cmd);
}

int32_t tool_cfg_ip_route_recovery(DevRef dev, const ConfView &conf)
{
    return tool_cfg_cmdline_recovery(dev, conf, "ip_route_%d=", tool_send_ip_route_recovery_cmd);
}

namespace
{

ItemEntry rule_entry(const kopa_ip_rule_record &r)
{
    ItemEntry entry{std::string("dir ") + (r.dir == 0 ? "from" : "to") + " ip " +
                        item_ipv4_text(r.ip) + " ip_mask " + std::to_string(r.mask_bits) +
                        " table " + std::to_string(r.table),
                    "", ""};
    entry.text = entry.id;
    return entry;
}

// Saved in the order "ip A ip_mask N via G dev ethN table T"; the device tells two routes apart
// by everything but the gateway.
ItemEntry ip_route_entry(const kopa_ip_route_record &r)
{
    const std::string head =
        "ip " + item_ipv4_text(r.ip) + " ip_mask " + std::to_string(r.mask_bits);
    const std::string tail =
        "dev eth" + std::to_string(r.dev) + " table " + std::to_string(r.table);
    const std::string via = "via " + item_ipv4_text(r.via);
    return {head + " " + tail, via, head + " " + via + " " + tail};
}

constexpr char kRuleLines[] = "ip_rule";
constexpr char kRouteLines[] = "ip_route";
using RuleList = CmdlineList<kopa_ip_rule_record, tool_saved_ip_rule_record, rule_entry, kRuleLines,
                             kopa_get_ip_rules, KOPA_POLICY_MAX>;
using RouteList = CmdlineList<kopa_ip_route_record, tool_saved_ip_route_record, ip_route_entry,
                              kRouteLines, kopa_get_ip_routes, KOPA_POLICY_MAX>;

} // namespace

extern constexpr SavedItem kIpRulesItem{
    .key = "ip_rules",
    .buffer = 0,
    .kind = ItemKind::kEntries,
    .what = "policy rules",
    .check = RuleList::check,
    .live = RuleList::live,
    .replay = tool_cfg_ip_rule_recovery,
    .replay_name = "tool_cfg_ip_rule_recovery",
    .list_key = RuleList::key,
    .saved_list = RuleList::saved,
    .max_entries = KOPA_POLICY_MAX,
    .line_key = kRuleLines,
};

extern constexpr SavedItem kIpRoutesItem{
    .key = "ip_routes",
    .buffer = 0,
    .kind = ItemKind::kEntries,
    .what = "policy routes",
    .check = RouteList::check,
    .live = RouteList::live,
    .replay = tool_cfg_ip_route_recovery,
    .replay_name = "tool_cfg_ip_route_recovery",
    .list_key = RouteList::key,
    .saved_list = RouteList::saved,
    .max_entries = KOPA_POLICY_MAX,
    .line_key = kRouteLines,
};
