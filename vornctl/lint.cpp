// vornctl lint: RoCE consistency across the host (MTU, DSCP-to-class map, priority map, PFC,
// traffic classes and UDP port agree; every gateway inside its device's segment) and the
// hazards of /etc/vorn.conf under the store's key rules (a read answered by another device's
// line, lines a deletion takes along, values longer than their recovery buffer, malformed
// lines). Each finding has a severity and a suggested command or edit.
#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.hpp"
#include "commands/qos_settings.hpp"
#include "commands/route_store.hpp"
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/device_info.hpp"
#include "vornctl/host_view.hpp"
#include "vornctl/json_out.hpp"
#include "vornctl/vornctl.hpp"

namespace
{

enum class Severity : uint8_t { kInfo, kWarning, kError };

struct Finding {
    Severity severity;
    size_t line; ///< line of the configuration file, 0 for the host
    std::string text;
    std::string suggestion; ///< a command or an edit; "" when there is nothing to propose
};

constexpr uint32_t kGroupSize = 4; ///< server boards group devices 0..3 and 4 and above

/// One line of the file as the store reads it: a piece of at most 383 characters.
struct Piece {
    std::string text; ///< without its newline, cut at a zero byte as the deletion sees it
    size_t line;      ///< line number, from 1
    bool continued;   ///< a piece after the first of a longer line
    bool comment;
};

std::vector<Piece> pieces_of(std::string_view conf)
{
    std::vector<Piece> pieces;
    size_t line = 1;
    bool continued = false;
    (void)cfg_for_each_piece(conf, [&](std::string_view piece) {
        const bool ends = piece.back() == '\n';
        std::string text(piece.data(), strnlen(piece.data(), piece.size()));
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        pieces.push_back({text, line, continued, !piece.empty() && piece[0] == '#'});
        continued = !ends;
        if (ends)
            ++line;
        return 0;
    });
    return pieces;
}

std::string key_of(std::string_view text)
{
    return std::string(text.substr(0, text.find('=')));
}

std::string value_of(std::string_view text)
{
    const size_t eq = text.find('=');
    return eq == std::string_view::npos ? "" : std::string(text.substr(eq + 1));
}

bool inet_pton_ok(const std::string &text, uint32_t *address)
{
    in_addr addr{};
    if (inet_pton(AF_INET, text.c_str(), &addr) != 1)
        return false;
    *address = addr.s_addr;
    return true;
}

std::string hex(int32_t code)
{
    char text[16];
    snprintf(text, sizeof(text), "0x%x", static_cast<unsigned>(code));
    return text;
}

std::string list_of(const std::vector<uint32_t> &ids)
{
    std::string text;
    for (uint32_t id : ids)
        text += (text.empty() ? "" : ",") + std::to_string(id);
    return text;
}

/// What lint knows of the host: the devices it may check, and the file.
struct LintContext {
    const HostView *host;
    std::vector<Piece> pieces;
    std::set<uint32_t> phy_ids;   ///< present devices (all 16 ids when they cannot be listed)
    std::set<uint32_t> logic_ids; ///< the same, logical
    std::string conf_name;        ///< the file's path, for the texts
    std::vector<Finding> findings;

    void add(Severity s, size_t line, std::string text, std::string suggestion)
    {
        findings.push_back({s, line, std::move(text), std::move(suggestion)});
    }

    /// The value of the first line whose key is exactly `key` (the write's and the
    /// administrator's idea of the line), or nullopt.
    [[nodiscard]] std::optional<std::string> own_value(const std::string &key) const
    {
        for (const Piece &p : pieces) {
            if (!p.comment && !p.continued && key_of(p.text) == key &&
                p.text.find('=') != std::string::npos)
                return value_of(p.text);
        }
        return std::nullopt;
    }
};

// ---- Suggested commands ----------------------------------------------------------------------

/// The words after "vorn_tool -i <id>" that save `item`, with {name} standing for the saved
/// value of the item `name`.
const char *set_words(std::string_view item)
{
    const SavedItem *def = saved_item(item);
    return def != nullptr && def->set_words != nullptr ? def->set_words : "";
}

/// "vorn_tool -i <phy> ..." that saves `item` of device `phy` again with its own saved values
/// (a placeholder "<name>" where it has none), which moves its line to the end of the file.
std::string set_command(const LintContext &ctx, uint32_t phy, std::string_view item,
                        const std::map<std::string, std::string> &given = {})
{
    std::string words = set_words(item);
    size_t open = 0;
    while ((open = words.find('{', open)) != std::string::npos) {
        const size_t close = words.find('}', open);
        const std::string name = words.substr(open + 1, close - open - 1);
        std::optional<std::string> value;
        if (const auto it = given.find(name); it != given.end())
            value = it->second;
        else if (name == "dscp" || name == "tc") {
            // One entry of the list saves the whole list again.
            if (const auto list = ctx.own_value("dscp_tc_" + std::to_string(phy)); list) {
                const std::string first = list->substr(0, list->find(','));
                const size_t colon = first.find(':');
                if (colon != std::string::npos)
                    value = name == "dscp" ? first.substr(0, colon) : first.substr(colon + 1);
            }
        } else {
            value = ctx.own_value(name + "_" + std::to_string(phy));
        }
        const std::string text = value ? *value : "<" + name + ">";
        words.replace(open, close - open + 1, text);
        open += text.size();
    }
    return "vorn_tool -i " + std::to_string(phy) + " " + words;
}

// ---- The file ---------------------------------------------------------------------------------

void lint_line_shapes(LintContext &ctx)
{
    for (const Piece &p : ctx.pieces) {
        if (p.continued) {
            ctx.add(Severity::kWarning, p.line,
                    "the line is longer than 383 characters: the store reads the rest from "
                    "character 384 on as a line of its own",
                    "edit " + ctx.conf_name + ": shorten or remove line " + std::to_string(p.line));
            continue;
        }
        const bool blank = p.text.find_first_not_of(" \t\r") == std::string::npos;
        if (!p.comment && !blank && p.text.find('=') == std::string::npos)
            ctx.add(Severity::kWarning, p.line,
                    "line without \"=\": no read finds it, yet it stays in the file: \"" + p.text +
                        "\"",
                    "edit " + ctx.conf_name + ": remove line " + std::to_string(p.line) +
                        " or make it a comment (#)");
    }
}

// Every saved value that fits goes through its item's own check, as replay runs it: a value it
// refuses fails the device's recovery at that item and leaves every later item unapplied.
void lint_value(LintContext &ctx, const Piece &p, const SavedItem &item, uint32_t phy)
{
    const std::string value = value_of(p.text);
    int32_t ret = item.check(value.c_str());
    const char *who = "recovery";
    if (ret == kOk && item.device_check != nullptr) {
        ret = item.device_check(value.c_str());
        who = "the device";
    }
    if (ret == kOk)
        return;
    ctx.add(Severity::kError, p.line,
            key_of(p.text) + ": " + who + " refuses the " + item.what + " \"" + value + "\" (" +
                hex(ret) + "), so the recovery of device " + std::to_string(phy) +
                " stops there, leaving every later item unapplied",
            set_command(ctx, phy, item.key, {{item.key, "<" + std::string(item.key) + ">"}}));
}

// Values read back into a fixed buffer: a longer one makes the read fail, and recovery takes
// the item for unsaved.
void lint_buffers(LintContext &ctx)
{
    for (const Piece &p : ctx.pieces) {
        if (p.comment || p.continued || p.text.find('=') == std::string::npos)
            continue;
        const std::string key = key_of(p.text);
        const std::string value = value_of(p.text);
        for (const SavedItem *item : g_saved_items) {
            const SavedItem &def = *item;
            const auto phy = def.buffer != 0 ? ctl_key_id(key, def.key) : std::nullopt;
            if (!phy)
                continue;
            const size_t entries = std::count(value.begin(), value.end(), ',') + 1;
            std::string why;
            if (value.size() >= def.buffer)
                why = "its value of " + std::to_string(value.size()) +
                      " characters does not fit the " + std::to_string(def.buffer) +
                      "-byte recovery buffer of " + def.key + ": recovery of device " +
                      std::to_string(*phy) + " skips the item";
            else if (def.kind == ItemKind::kDscpMap && entries > kDscpValues)
                why = "its list of " + std::to_string(entries) + " entries exceeds the " +
                      std::to_string(kDscpValues) + " DSCP values: recovery of device " +
                      std::to_string(*phy) + " refuses it and stops there";
            if (why.empty()) {
                lint_value(ctx, p, def, *phy);
                continue;
            }
            // A DSCP set merges into the saved list, which it refuses to read as it stands.
            std::string suggestion;
            if (def.kind == ItemKind::kDscpMap)
                suggestion = "edit " + ctx.conf_name + ": remove line " + std::to_string(p.line) +
                             ", then set each value again: " +
                             set_command(ctx, *phy, def.key, {{"dscp", "<dscp>"}, {"tc", "<tc>"}});
            else
                suggestion =
                    set_command(ctx, *phy, def.key, {{def.key, "<" + std::string(def.key) + ">"}});
            ctx.add(Severity::kError, p.line, key + ": " + why, suggestion);
        }
    }
}

// A list longer than the device holds: recovery succeeds with what fits, and the rest is never
// applied.
void lint_list_sizes(LintContext &ctx)
{
    std::vector<DevRef> devs;
    for (const DeviceView &dev : ctx.host->devices)
        devs.push_back({dev.logic_id, dev.phy_id});
    if (devs.empty()) {
        for (uint32_t id : ctx.phy_ids)
            devs.push_back({id, id});
    }
    for (const SavedItem *item : g_saved_items) {
        if (item->max_entries == 0)
            continue;
        for (const DevRef &dev : devs) {
            const ItemSavedList list = item->saved_list(ctx.host->conf, dev);
            if (list.entries.size() <= item->max_entries)
                continue;
            ctx.add(Severity::kWarning, 0,
                    item->list_key(dev) + ": " + std::to_string(list.entries.size()) + " saved " +
                        item->what + ", the device holds " + std::to_string(item->max_entries) +
                        ": the " + std::to_string(list.entries.size() - item->max_entries) +
                        " past them cannot be applied",
                    "edit " + ctx.conf_name + ": keep at most " +
                        std::to_string(item->max_entries) + " lines of " + item->list_key(dev));
        }
    }
}

// A read of "<item>_<id>" is answered by the first line that begins with it: "mtu_10=" before
// "mtu_1=" gives device 1 the value of device 10, on recovery and in every command's checks.
void lint_prefix_reads(LintContext &ctx)
{
    for (const SavedItem *item : g_saved_items) {
        const SavedItem &def = *item;
        if (def.buffer == 0)
            continue;
        for (uint32_t phy : ctx.phy_ids) {
            const std::string key = std::string(def.key) + "_" + std::to_string(phy);
            const std::string_view answer = cfg_find_answer(ctx.host->conf, key);
            if (answer.empty() || key_of(answer) == key)
                continue;
            const std::string other = key_of(answer);
            const std::string_view before(
                ctx.host->conf.data(), static_cast<size_t>(answer.data() - ctx.host->conf.data()));
            const size_t line =
                static_cast<size_t>(std::count(before.begin(), before.end(), '\n')) + 1;
            const bool own = ctx.own_value(key).has_value();
            std::string text = "a read of " + key + " (device " + std::to_string(phy) +
                               ") is answered by this line of " + other +
                               ": recovery and the commands give device " + std::to_string(phy) +
                               " its value";
            if (own)
                text += ", and device " + std::to_string(phy) + "'s own line is never read";
            std::string suggestion;
            const auto other_phy = ctl_key_id(other, def.key);
            if (other_phy && ctx.phy_ids.count(*other_phy) != 0) {
                suggestion = set_command(ctx, *other_phy, def.key);
                if (!own)
                    suggestion = set_command(ctx, phy, def.key) + ", then " + suggestion;
                suggestion += " (saves " + other + " again at the end of the file)";
            } else {
                suggestion =
                    "edit " + ctx.conf_name + ": remove or rename line " + std::to_string(line);
            }
            ctx.add(Severity::kError, line, text, suggestion);
        }
    }
}

/// A route line's fields, text and line number.
struct RouteLine {
    SavedRouteLine route;
    std::string text;
    size_t line;
};

std::vector<RouteLine> lint_route_forms(LintContext &ctx)
{
    std::vector<RouteLine> routes;
    for (const Piece &p : ctx.pieces) {
        if (!tool_is_route_line(p.text + "\n"))
            continue;
        SavedRouteLine route{};
        if (tool_parse_route_line(p.text.c_str(), &route) == kOk) {
            routes.push_back({route, p.text, p.line});
            continue;
        }
        ctx.add(Severity::kError, p.line,
                "route line not in the form the route command writes: \"" + p.text +
                    "\": the walk over saved routes stops on it, so no device's routes are "
                    "replayed, cleared or pruned",
                "edit " + ctx.conf_name + ": rewrite line " + std::to_string(p.line) +
                    " as route_address_A_netmask_M_<id>=gateway_G, or remove it");
    }
    return routes;
}

// Saved command lines are replayed through the checkers: the first refused line stops the
// device's recovery.
void lint_cmdlines(LintContext &ctx)
{
    for (const Piece &p : ctx.pieces) {
        if (p.comment || p.continued)
            continue;
        for (const SavedItem *kind : g_saved_items) {
            if (kind->line_key == nullptr)
                continue;
            const auto id = ctl_key_id(key_of(p.text), kind->line_key);
            if (!id || p.text.find('=') == std::string::npos)
                continue;
            if (kind->check(p.text.c_str()) != kOk) {
                ctx.add(Severity::kError, p.line,
                        "the checkers refuse this saved " + std::string(kind->line_key) +
                            " line: \"" + p.text + "\": recovery of logical device " +
                            std::to_string(*id) + " stops here (0x2001)",
                        "edit " + ctx.conf_name + ": correct line " + std::to_string(p.line) +
                            " (docs/policy-routing.md gives the form) or remove it");
            } else if (ctx.logic_ids.count(*id) == 0) {
                ctx.add(Severity::kInfo, p.line,
                        "no device has the logical id " + std::to_string(*id) +
                            ": this line is never replayed unless the device returns",
                        "");
            }
        }
    }
}

// A deletion removes every line that contains its key: deleting device 1's gateway takes every
// line holding "gateway_1" along (device 1x's gateway, routes whose gateway begins with 1), and
// deleting device 1's route takes device 1x's same route along.
void lint_deletions(LintContext &ctx, const std::vector<RouteLine> &routes)
{
    for (uint32_t phy : ctx.phy_ids) {
        // Only a saved gateway is ever deleted.
        const std::string key = "gateway_" + std::to_string(phy);
        if (!ctx.own_value(key))
            continue;
        for (const Piece &p : ctx.pieces) {
            if (p.text.find(key) == std::string::npos || key_of(p.text) == key)
                continue;
            const Severity severity = p.comment ? Severity::kInfo : Severity::kWarning;
            std::string suggestion;
            SavedRouteLine route{};
            if (tool_parse_route_line(p.text.c_str(), &route) == kOk)
                suggestion = "after any change of device " + std::to_string(phy) +
                             "'s gateway: vorn_tool -i " + std::to_string(route.section) +
                             " -route -a address " + route.address + " netmask " + route.netmask +
                             " gateway " + route.gateway;
            else if (const auto other = ctl_key_id(key_of(p.text), "gateway"); other)
                suggestion = "after any change of device " + std::to_string(phy) +
                             "'s gateway: " + set_command(ctx, *other, "gateway");
            ctx.add(severity, p.line,
                    "the line holds " + key + ": deleting device " + std::to_string(phy) +
                        "'s saved gateway (a new gateway in its group, or an address that "
                        "leaves the gateway's segment) removes it too: \"" +
                        p.text + "\"",
                    suggestion);
        }
    }
    for (const RouteLine &r : routes) {
        for (uint32_t phy : ctx.phy_ids) {
            if (phy == r.route.section)
                continue;
            const std::string key = std::string("route_address_") + r.route.address + "_netmask_" +
                                    r.route.netmask + "_" + std::to_string(phy);
            if (r.text.find(key) == std::string::npos)
                continue;
            const bool both = std::any_of(routes.begin(), routes.end(), [&](const RouteLine &o) {
                return o.route.section == phy && strcmp(o.route.address, r.route.address) == 0 &&
                       strcmp(o.route.netmask, r.route.netmask) == 0;
            });
            ctx.add(both ? Severity::kWarning : Severity::kInfo, r.line,
                    "device " + std::to_string(phy) + "'s route key " + key +
                        " is inside this line of device " + std::to_string(r.route.section) +
                        ": deleting or clearing device " + std::to_string(phy) +
                        "'s routes removes it too" +
                        (both ? ""
                              : ", and adding the route on device " + std::to_string(phy) +
                                    " is taken for a route it already has"),
                    "after any change of device " + std::to_string(phy) +
                        "'s routes: vorn_tool -i " + std::to_string(r.route.section) +
                        " -route -a address " + r.route.address + " netmask " + r.route.netmask +
                        " gateway " + r.route.gateway);
        }
    }
}

// Recovery replays an address only with its netmask, the traffic classes only with both lists,
// the gratuitous ARP only with period and switch.
void lint_pairs(LintContext &ctx)
{
    for (const SavedItem *item : g_saved_items) {
        const SavedItem &def = *item;
        if (def.partner == nullptr || strcmp(def.key, def.partner) > 0)
            continue;
        for (uint32_t phy : ctx.phy_ids) {
            const std::string id = std::to_string(phy);
            const bool one = !cfg_find_answer(ctx.host->conf, def.key + ("_" + id)).empty();
            const bool two = !cfg_find_answer(ctx.host->conf, def.partner + ("_" + id)).empty();
            if (one == two)
                continue;
            const char *has = one ? def.key : def.partner;
            const char *lacks = one ? def.partner : def.key;
            ctx.add(Severity::kWarning, 0,
                    "device " + id + " has " + has + " saved without " + lacks +
                        ": recovery replays neither",
                    set_command(ctx, phy, def.key));
        }
    }
}

// ---- The host ---------------------------------------------------------------------------------

/// Values, each with the devices that have it.
using Groups = std::vector<std::pair<std::string, std::vector<uint32_t>>>;

void add_to(Groups *groups, const std::string &value, uint32_t phy_id)
{
    auto it = std::find_if(groups->begin(), groups->end(),
                           [&](const auto &g) { return g.first == value; });
    if (it == groups->end())
        groups->push_back({value, {phy_id}});
    else
        it->second.push_back(phy_id);
}

/// The devices that hold each value of one item (live), most held first.
Groups groups_of(const HostView &host, std::string_view name, std::string_view partner = {})
{
    Groups groups;
    for (const DeviceView &dev : host.devices) {
        const ItemView *item = ctl_find_item(dev, name);
        const ItemView *second = partner.empty() ? nullptr : ctl_find_item(dev, partner);
        if (!dev.readable || item == nullptr || !item->live ||
            (!partner.empty() && (second == nullptr || !second->live)))
            continue;
        add_to(&groups, *item->live + (second != nullptr ? " " + *second->live : ""), dev.phy_id);
    }
    std::stable_sort(groups.begin(), groups.end(), [](const auto &a, const auto &b) {
        return a.second.size() > b.second.size();
    });
    return groups;
}

/// The values the file saves for one item (and its partner) on the present devices, with the
/// devices saving each; a DSCP map as the union of its saved entries ("dscp:tc" each). Empty
/// when saved values disagree (`*disagree` then names them) or nothing is saved.
std::vector<std::string> saved_target(const HostView &host, std::string_view name,
                                      const char *partner, std::string *disagree)
{
    Groups groups;
    std::map<unsigned long, std::string> dscp; // the union: DSCP value -> "dscp:tc"
    bool dscp_clash = false;
    for (const DeviceView &dev : host.devices) {
        const ItemView *item = ctl_find_item(dev, name);
        const ItemView *second = partner == nullptr ? nullptr : ctl_find_item(dev, partner);
        if (item == nullptr || !item->saved_canon || (partner != nullptr && !second->saved_canon))
            continue;
        const std::string value =
            *item->saved_canon + (second != nullptr ? " " + *second->saved_canon : "");
        add_to(&groups, value, dev.phy_id);
        if (item->def->kind != ItemKind::kDscpMap)
            continue;
        for (const std::string &entry : ctl_split(value, ',')) {
            const auto [at, fresh] = dscp.emplace(strtoul(entry.c_str(), nullptr, 10), entry);
            dscp_clash = dscp_clash || (!fresh && at->second != entry);
        }
    }
    const bool is_dscp = !dscp.empty() || dscp_clash;
    if ((is_dscp && !dscp_clash) || (!is_dscp && groups.size() == 1)) {
        if (!is_dscp)
            return {groups[0].first};
        std::vector<std::string> entries;
        for (const auto &[d, entry] : dscp)
            entries.push_back(entry);
        return entries;
    }
    for (const auto &[value, ids] : groups)
        *disagree += (disagree->empty() ? "" : "; ") + value + " on dev " + list_of(ids);
    return {};
}

void lint_consistency(LintContext &ctx)
{
    struct Check {
        const char *name;
        const char *partner;
        const char *what;
    };
    static const Check kChecks[] = {
        {"mtu", nullptr, "MTU"},
        {"roce_port", nullptr, "RoCE UDP port"},
        {"dscp_tc", nullptr, "DSCP-to-class map"},
        {"prio_tc", nullptr, "priority map"},
        {"bitmap", nullptr, "PFC priority list"},
        {"tc_bw", "tc_mode", "traffic-class configuration (bandwidth and mode)"},
    };
    for (const Check &c : kChecks) {
        const auto groups = groups_of(*ctx.host, c.name, c.partner ? c.partner : "");
        if (groups.size() < 2)
            continue;
        const bool dscp = std::string_view(c.name) == "dscp_tc";
        std::string text = std::string(c.what) + " is not the same on every device:";
        for (size_t g = 0; g < groups.size(); ++g)
            text += std::string(g == 0 ? " " : "; ") +
                    (dscp ? "map " + std::to_string(g + 1) : groups[g].first) + " on dev " +
                    list_of(groups[g].second);
        // The value proposed is the one the file saves, never what an unsaved device holds.
        std::string disagree;
        const std::vector<std::string> want = saved_target(*ctx.host, c.name, c.partner, &disagree);
        if (want.empty()) {
            text += disagree.empty() ? ": no device saves it, so there is no value to propose"
                                     : ": the saved values disagree (" + disagree +
                                           "), so there is no value to propose";
            ctx.add(Severity::kWarning, 0, text, "");
            continue;
        }
        std::vector<std::string> cmds;
        for (const auto &[value, ids] : groups) {
            for (uint32_t phy : ids) {
                if (dscp) {
                    const auto have = ctl_split(value, ',');
                    for (const std::string &entry : want) {
                        const size_t d = strtoul(entry.c_str(), nullptr, 10);
                        if (d < have.size() && have[d] != entry)
                            cmds.push_back(
                                set_command(ctx, phy, "dscp_tc",
                                            {{"dscp", std::to_string(d)},
                                             {"tc", entry.substr(entry.find(':') + 1)}}));
                    }
                } else if (value != want[0] && c.partner != nullptr) {
                    const size_t blank = want[0].find(' ');
                    cmds.push_back(set_command(ctx, phy, c.name,
                                               {{c.name, want[0].substr(0, blank)},
                                                {c.partner, want[0].substr(blank + 1)}}));
                } else if (value != want[0]) {
                    cmds.push_back(set_command(ctx, phy, c.name, {{c.name, want[0]}}));
                }
            }
        }
        constexpr size_t kShown = 4;
        std::string suggestion;
        for (size_t k = 0; k < cmds.size() && k < kShown; ++k)
            suggestion += (suggestion.empty() ? "" : "; ") + cmds[k];
        if (cmds.size() > kShown)
            suggestion += "; ... (" + std::to_string(cmds.size() - kShown) + " more)";
        ctx.add(Severity::kWarning, 0, text, suggestion);
    }
}

bool in_segment(const std::string &address, const std::string &netmask, const std::string &gw,
                bool *known)
{
    uint32_t a = 0, m = 0, g = 0;
    *known = inet_pton_ok(address, &a) && inet_pton_ok(netmask, &m) && inet_pton_ok(gw, &g);
    return *known && ((a ^ g) & m) == 0;
}

void lint_gateways(LintContext &ctx)
{
    bool pcie = false;
    if (!ctx.host->devices.empty())
        (void)tool_is_pcie_card(ctx.host->devices.front().logic_id, &pcie);
    std::map<uint32_t, std::vector<uint32_t>> saved_by_group;
    for (const DeviceView &dev : ctx.host->devices) {
        const ItemView *gw = ctl_find_item(dev, "gateway");
        const ItemView *addr = ctl_find_item(dev, "address");
        const ItemView *mask = ctl_find_item(dev, "netmask");
        const std::string id = std::to_string(dev.phy_id);
        bool known = false;
        if (dev.readable && gw->live && gw->holder && *gw->holder == dev.phy_id && addr->live &&
            mask->live && !in_segment(*addr->live, *mask->live, *gw->live, &known) && known)
            ctx.add(Severity::kError, 0,
                    "dev " + id + "'s gateway " + *gw->live + " is outside its address segment " +
                        *addr->live + "/" + *mask->live,
                    "vorn_tool -i " + id + " -gateway -s gateway <an address in " + *addr->live +
                        "/" + *mask->live + ">");
        if (gw->saved && addr->saved && mask->saved &&
            !in_segment(*addr->saved, *mask->saved, *gw->saved, &known) && known)
            ctx.add(Severity::kError, 0,
                    "dev " + id + "'s saved gateway " + *gw->saved +
                        " is outside its saved address segment " + *addr->saved + "/" +
                        *mask->saved + ": recovery sets it all the same",
                    "vorn_tool -i " + id + " -gateway -s gateway <an address in " + *addr->saved +
                        "/" + *mask->saved + ">");
        if (gw->saved) {
            const uint32_t group = pcie ? dev.phy_id : (dev.phy_id < kGroupSize ? 0 : 1);
            saved_by_group[group].push_back(dev.phy_id);
        }
        if (!dev.readable)
            ctx.add(Severity::kInfo, 0,
                    "dev " + id + " not checked against the host: health " + ctl_health_word(dev),
                    "vorn_tool -i " + id + " -net_health -g");
    }
    for (const auto &[group, ids] : saved_by_group) {
        if (ids.size() < 2)
            continue;
        ctx.add(Severity::kWarning, 0,
                "devices " + list_of(ids) +
                    " of one group each have a saved gateway: the group holds one, and "
                    "recovery leaves whichever it replays last",
                "vorn_tool -i " + std::to_string(ids.front()) + " -gateway -s gateway " +
                    ctx.own_value("gateway_" + std::to_string(ids.front())).value_or("<gateway>"));
    }
}

const char *severity_word(Severity s)
{
    switch (s) {
    case Severity::kError:
        return "error";
    case Severity::kWarning:
        return "warning";
    case Severity::kInfo:
        return "info";
    }
    return "info";
}

void print_text(const LintContext &ctx, const size_t count[3])
{
    for (const Finding &f : ctx.findings) {
        if (f.line != 0)
            printf("%s: %s:%zu: %s\n", severity_word(f.severity), ctx.conf_name.c_str(), f.line,
                   f.text.c_str());
        else
            printf("%s: host: %s\n", severity_word(f.severity), f.text.c_str());
        printf("    suggested: %s\n", f.suggestion.empty() ? "none" : f.suggestion.c_str());
    }
    printf("lint: %zu error(s), %zu warning(s), %zu info\n", count[2], count[1], count[0]);
}

void print_json(const LintContext &ctx, const HostView &host, const size_t count[3], int status)
{
    CtlJson doc = ctl_doc_head("vornctl-lint", host);
    doc["config"]["path"] = ctx.conf_name;
    CtlJson findings = CtlJson::array();
    for (const Finding &f : ctx.findings)
        findings.push_back(
            {{"severity", severity_word(f.severity)},
             {"line", f.line != 0 ? CtlJson(f.line) : CtlJson(nullptr)},
             {"text", f.text},
             {"suggestion", f.suggestion.empty() ? CtlJson(nullptr) : CtlJson(f.suggestion)}});
    doc["findings"] = findings;
    doc["counts"] = {{"error", count[2]}, {"warning", count[1]}, {"info", count[0]}};
    doc["status"] = status;
    ctl_print_json(doc);
}

} // namespace

int ctl_lint(const CtlOptions &opts)
{
    HostView host;
    const int32_t list_ret = ctl_read_host(std::nullopt, &host);
    LintContext ctx;
    ctx.host = &host;
    ctx.conf_name = host.conf_path.empty() ? cfg_conf_path() : host.conf_path;
    for (const DeviceView &dev : host.devices) {
        ctx.phy_ids.insert(dev.phy_id);
        ctx.logic_ids.insert(dev.logic_id);
    }
    if (list_ret != kOk) {
        // The file still has its hazards: every id a device may have is checked.
        for (uint32_t id = 0; id < 16; ++id) {
            ctx.phy_ids.insert(id);
            ctx.logic_ids.insert(id);
        }
        ctx.add(Severity::kError, 0,
                "the devices cannot be listed (" + hex(list_ret) + "): only the file is checked",
                "kopa driver: check that the devices are up");
        ConfSession conf(ConfAccess::kRead);
        host.conf_ret = conf.open();
        if (host.conf_ret == 0)
            host.conf = conf.content();
    }
    if (host.conf_ret != 0) {
        const bool missing = access(ctx.conf_name.c_str(), F_OK) != 0;
        ctx.add(Severity::kError, 0,
                ctx.conf_name + (missing ? " does not exist: recovery of every device fails"
                                         : " cannot be read"),
                missing ? "install -m 0640 /dev/null " + ctx.conf_name
                        : "check the owner and mode of " + ctx.conf_name);
    }
    ctx.pieces = pieces_of(host.conf);

    lint_line_shapes(ctx);
    lint_buffers(ctx);
    lint_list_sizes(ctx);
    lint_prefix_reads(ctx);
    const std::vector<RouteLine> routes = lint_route_forms(ctx);
    lint_cmdlines(ctx);
    lint_deletions(ctx, routes);
    lint_pairs(ctx);
    if (list_ret == kOk) {
        lint_consistency(ctx);
        lint_gateways(ctx);
    }

    std::stable_sort(
        ctx.findings.begin(), ctx.findings.end(), [](const Finding &a, const Finding &b) {
            return (a.line == 0 ? SIZE_MAX : a.line) < (b.line == 0 ? SIZE_MAX : b.line);
        });
    size_t count[3] = {};
    for (const Finding &f : ctx.findings)
        ++count[static_cast<int>(f.severity)];
    const int status = list_ret != kOk            ? kCtlExitDevices
                       : count[2] + count[1] != 0 ? kCtlExitFindings
                                                  : kCtlExitOk;
    if (opts.json)
        print_json(ctx, host, count, status);
    else
        print_text(ctx, count);
    return ctl_stdout_ok() ? status : kCtlExitFailure;
}
