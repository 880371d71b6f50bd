// The host view: the saved value of every item of every device read from /etc/vorn.conf with
// the store's rules, the device's own values read live, and their comparison item by item.
#include "vornctl/host_view.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>

#include "base/result.hpp"
#include "base/text.hpp"
#include "commands/qos_settings.hpp"
#include "commands/route_store.hpp"
#include "commands/saved_lines.hpp"
#include "config/store.hpp"
#include "device/device_info.hpp"
#include "device/ops.hpp"
#include "vornctl/items.hpp"

namespace
{

constexpr uint32_t kNetPort = 0;
constexpr uint32_t kRouteTableSize = 386000; ///< as -route -g reads it
constexpr uint32_t kGroupNone = 0xFFFFFFFFu;

std::string ipv4_text(uint32_t address)
{
    char text[INET_ADDRSTRLEN] = {};
    in_addr addr{address};
    return inet_ntop(AF_INET, &addr, text, sizeof(text)) != nullptr ? text : "?";
}

bool parse_ipv4(const std::string &text, uint32_t *address)
{
    in_addr addr{};
    if (inet_pton(AF_INET, text.c_str(), &addr) != 1)
        return false;
    *address = addr.s_addr;
    return true;
}

std::string mac_text(const uint8_t mac[6])
{
    char text[kMacTextLen + 1];
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

template <typename T> std::string list_text(const T *values, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += (i == 0 ? "" : ",") + std::to_string(values[i]);
    return text;
}

/// A route table whose text is not in rows of destination, netmask and gateway.
constexpr int kErrRouteText = -1000000;

std::string read_error(int ret)
{
    if (ret == -13)
        return "permission denied";
    if (ret == kErrRouteText)
        return "the route table is not in rows of destination, netmask and gateway";
    return "the device did not answer (" + std::to_string(ret) + ")";
}

// ---- The device's values ----------------------------------------------------------------

/// Everything a device is asked, with the result of each read.
struct Live {
    int ip_ret = 0;
    kopa_ip_record ip{};
    int vnic_ret = 0;
    kopa_ip_record vnic{};
    int gw_ret = 0;
    uint32_t gw = 0;
    uint32_t gw_holder = kGroupNone;
    int netdetect_ret = 0;
    uint32_t netdetect = 0;
    int mtu_ret = 0;
    uint32_t mtu = 0;
    int mac_ret = 0;
    uint8_t mac[6] = {};
    int link_ret = 0;
    uint32_t link = 0;
    int udp_ret = 0;
    uint32_t udp = 0;
    int dscp_ret = 0;
    kopa_dscp_map dscp{};
    int shaping_ret = 0;
    kopa_shaping_info shaping{};
    int pfc_ret = 0;
    kopa_pfc_info pfc{};
    int tc_ret = 0;
    kopa_tc_cfg_info tc{};
    int prio_ret = 0;
    kopa_prio_tc_info prio{};
    int fec_ret = 0;
    uint32_t fec = 0;
    int generic_ret = 0;
    kopa_generic_info generic{};
    int garp_ret = 0;
    kopa_garp_info garp{};
    int routes_ret = 0;
    std::string routes;
    int arp_ret = 0;
    uint32_t arp_count = KOPA_ARP_MAX;
    kopa_arp_record arp[KOPA_ARP_MAX] = {};
    int rules_ret = 0;
    uint32_t rule_count = KOPA_POLICY_MAX;
    kopa_ip_rule_record rules[KOPA_POLICY_MAX] = {};
    int ip_routes_ret = 0;
    uint32_t ip_route_count = KOPA_POLICY_MAX;
    kopa_ip_route_record ip_routes[KOPA_POLICY_MAX] = {};
    int status_ret = 0;
    uint32_t status = 0;
};

void read_live(uint32_t id, Live *live)
{
    live->ip_ret = kopa_get_device_ip_address(id, KOPA_PORT_TYPE_ROCE, 0, &live->ip);
    live->vnic_ret = kopa_get_device_ip_address(id, KOPA_PORT_TYPE_VNIC, 0, &live->vnic);
    live->gw_ret = kopa_get_default_gateway_address(id, &live->gw, &live->gw_holder);
    live->netdetect_ret = kopa_get_net_detect_ip_address(id, kNetPort, &live->netdetect);
    live->mtu_ret = kopa_read_mtu(id, kNetPort, &live->mtu);
    live->mac_ret = kopa_get_mac_address(id, kNetPort, live->mac);
    live->link_ret = kopa_get_netdev_link(id, kNetPort, &live->link);
    live->dscp_ret = kopa_get_dscp_map(id, &live->dscp);
    live->generic_ret = kopa_get_generic_info(id, &live->generic);
    live->shaping_ret = kopa_get_port_shaping(id, &live->shaping);
    live->routes.assign(kRouteTableSize, '\0');
    live->routes_ret = kopa_get_route_table(id, kNetPort, live->routes.data(), kRouteTableSize);
    live->routes.resize(strnlen(live->routes.data(), kRouteTableSize));
    live->udp_ret = kopa_read_roce_port(id, kNetPort, &live->udp);
    live->arp_ret = kopa_get_arp_table(id, live->arp, &live->arp_count);
    live->rules_ret = kopa_get_ip_rules(id, live->rules, &live->rule_count);
    live->ip_routes_ret = kopa_get_ip_routes(id, live->ip_routes, &live->ip_route_count);
    live->pfc_ret = kopa_get_pfc_enabled(id, &live->pfc);
    live->tc_ret = kopa_get_tc_cfg(id, &live->tc);
    // The device chooses the length of the map: a map it did not fill is no map.
    memset(&live->prio, 0xFF, sizeof(live->prio));
    live->prio_ret = kopa_get_prio_tc_info(id, &live->prio, sizeof(live->prio));
    for (uint8_t tc : live->prio.tc_of_prio) {
        if (live->prio_ret == 0 && tc > kTcMax)
            live->prio_ret = kErrnoInval;
    }
    live->fec_ret = kopa_get_fec_info(id, &live->fec);
    live->garp_ret = kopa_get_gratuitous_arp_info(id, kNetPort, &live->garp);
    live->status_ret = kopa_get_cfg_status(id, &live->status);
}

/// One entry of a list, in the saved form: what identifies it and what it holds.
struct Entry {
    std::string id;    ///< "address A netmask M", "dev ethN ip A", ...
    std::string value; ///< "gateway G", "mac M", ... ("" when the entry is all identity)
    [[nodiscard]] std::string text() const { return value.empty() ? id : id + " " + value; }
};

Entry route_entry(uint32_t dest, uint32_t mask, uint32_t gateway)
{
    return {"address " + ipv4_text(dest) + " netmask " + ipv4_text(mask),
            "gateway " + ipv4_text(gateway)};
}

Entry arp_entry(const kopa_arp_record &e)
{
    return {"dev eth" + std::to_string(e.dev) + " ip " + ipv4_text(e.ip), "mac " + mac_text(e.mac)};
}

Entry rule_entry(const kopa_ip_rule_record &r)
{
    return {std::string("dir ") + (r.dir == 0 ? "from" : "to") + " ip " + ipv4_text(r.ip) +
                " ip_mask " + std::to_string(r.mask_bits) + " table " + std::to_string(r.table),
            ""};
}

// Saved in the order "ip A ip_mask N via G dev ethN table T"; the device tells two routes apart
// by everything but the gateway.
Entry ip_route_entry(const kopa_ip_route_record &r)
{
    return {"ip " + ipv4_text(r.ip) + " ip_mask " + std::to_string(r.mask_bits) + " dev eth" +
                std::to_string(r.dev) + " table " + std::to_string(r.table),
            "via " + ipv4_text(r.via)};
}

std::string ip_route_text(const Entry &e)
{
    // "ip A ip_mask N" + " via G" + " dev ethN table T"
    const size_t dev = e.id.find(" dev ");
    return e.id.substr(0, dev) + " " + e.value + e.id.substr(dev);
}

// The route table is text: rows "destination netmask gateway" below a header. A text that
// holds addresses but no such row is a table of another shape: nullopt, rather than a table
// without routes.
std::optional<std::vector<Entry>> routes_of_text(const std::string &text)
{
    std::vector<Entry> entries;
    bool addresses = false;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string row = text.substr(start, end - start);
        start = end + 1;
        char words[3][32] = {};
        uint32_t d = 0, m = 0, g = 0;
        if (sscanf(row.c_str(), "%31s %31s %31s", words[0], words[1], words[2]) == 3 &&
            parse_ipv4(words[0], &d) && parse_ipv4(words[1], &m) && parse_ipv4(words[2], &g))
            entries.push_back(route_entry(d, m, g));
        for (size_t i = 0; i + 2 < row.size() && !addresses; ++i)
            addresses = isdigit(static_cast<unsigned char>(row[i])) != 0 && row[i + 1] == '.' &&
                        isdigit(static_cast<unsigned char>(row[i + 2])) != 0;
    }
    if (entries.empty() && addresses)
        return std::nullopt;
    return entries;
}

// ---- The saved values -------------------------------------------------------------------

/// What a read of one saved item answered.
struct SavedValue {
    int ret = kErrSysNotFound; ///< 0, kErrSysNotFound, kErrSysCopy (longer than its buffer)
    std::string text;
};

/// The saved lines of one list of a device, read and checked as recovery reads them.
struct SavedList {
    std::vector<Entry> entries;
    std::vector<std::string> refused; ///< lines the checkers refuse
    bool any = false;                 ///< whether the device has any line of the list
};

std::string line_of(std::string_view piece)
{
    if (!piece.empty() && piece.back() == '\n')
        piece.remove_suffix(1);
    return std::string(piece.data(), strnlen(piece.data(), piece.size()));
}

// Routes are saved under the physical id; the walk reads every route line of the file and
// stops on the first that is not in the written form, whichever device it names.
SavedList saved_routes(std::string_view conf, uint32_t phy_id, size_t *malformed)
{
    SavedList list;
    *malformed = 0;
    (void)cfg_for_each_piece(conf, [&](std::string_view piece) {
        if (!tool_is_route_line(piece))
            return 0;
        SavedRouteLine route{};
        const std::string line = line_of(piece);
        if (tool_parse_route_line(line.c_str(), &route) != kOk) {
            ++*malformed;
            return 0;
        }
        if (route.section != phy_id)
            return 0;
        uint32_t d = 0, m = 0, g = 0;
        if (parse_ipv4(route.address, &d) && parse_ipv4(route.netmask, &m) &&
            parse_ipv4(route.gateway, &g)) {
            list.entries.push_back(route_entry(d, m, g));
            list.any = true;
        }
        return 0;
    });
    return list;
}

// Command lines are saved under the logical id, and a line is the device's when it begins with
// its key.
template <typename Record, typename Parse, typename ToEntry>
SavedList saved_cmdlines(std::string_view conf, const char *item, uint32_t logic_id, Parse parse,
                         ToEntry to_entry)
{
    SavedList list;
    const std::string key = std::string(item) + "_" + std::to_string(logic_id) + "=";
    (void)cfg_for_each_piece(conf, [&](std::string_view piece) {
        const std::string line = line_of(piece);
        if (!line.starts_with(key))
            return 0;
        list.any = true;
        Record rec{};
        if (parse(line.c_str(), &rec) == kOk)
            list.entries.push_back(to_entry(rec));
        else
            list.refused.push_back(line);
        return 0;
    });
    return list;
}

// ---- Comparison --------------------------------------------------------------------------

} // namespace

std::optional<std::string> ctl_canonical(ValueKind kind, const std::string &text)
{
    switch (kind) {
    case ValueKind::kIpv4:
    case ValueKind::kGateway: {
        uint32_t address = 0;
        if (!parse_ipv4(text, &address))
            return std::nullopt;
        return ipv4_text(address);
    }
    case ValueKind::kNumber: {
        if (text.empty() || text.size() > 9 ||
            !std::all_of(text.begin(), text.end(), [](char c) { return isdigit(c) != 0; }))
            return std::nullopt;
        return std::to_string(strtoul(text.c_str(), nullptr, 10));
    }
    case ValueKind::kMac: {
        if (text.size() != kMacTextLen || mac_text_scan(text.c_str(), nullptr) != -1)
            return std::nullopt;
        std::string lower = text;
        for (char &c : lower)
            c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        return lower;
    }
    case ValueKind::kList8: {
        std::vector<uint32_t> values;
        size_t start = 0;
        for (;;) {
            const size_t comma = text.find(',', start);
            const std::string entry = text.substr(start, comma - start);
            const auto number = ctl_canonical(ValueKind::kNumber, entry);
            if (!number || entry.size() > 3)
                return std::nullopt;
            values.push_back(static_cast<uint32_t>(strtoul(number->c_str(), nullptr, 10)));
            if (comma == std::string::npos)
                break;
            start = comma + 1;
        }
        if (values.size() != kQosClasses)
            return std::nullopt;
        return list_text(values.data(), values.size());
    }
    case ValueKind::kDscp: {
        uint8_t tc[kDscpValues];
        if (qos_read_dscp_list(text, tc) != kOk)
            return std::nullopt;
        std::string list;
        for (uint32_t d = 0; d < kDscpValues; ++d) {
            if (tc[d] != kDscpNotSaved)
                list += (list.empty() ? "" : ",") + std::to_string(d) + ":" + std::to_string(tc[d]);
        }
        return list;
    }
    default:
        return std::nullopt;
    }
}

namespace
{

const char *kind_words(ValueKind kind)
{
    switch (kind) {
    case ValueKind::kIpv4:
    case ValueKind::kGateway:
        return "an IPv4 address";
    case ValueKind::kNumber:
        return "a number";
    case ValueKind::kMac:
        return "a MAC address";
    case ValueKind::kList8:
        return "a list of eight numbers";
    case ValueKind::kDscp:
        return "a list of dscp:tc entries";
    default:
        return "a value";
    }
}

/// The device value of a value item in the saved form, or why it could not be read.
struct LiveValue {
    std::optional<std::string> text;
    std::string error;
};

LiveValue live_value(const Live &live, std::string_view name)
{
    auto of = [](int ret, auto &&text) -> LiveValue {
        if (ret != 0)
            return {std::nullopt, read_error(ret)};
        return {text(), ""};
    };
    if (name == "address")
        return of(live.ip_ret, [&] { return ipv4_text(live.ip.address); });
    if (name == "netmask")
        return of(live.ip_ret, [&] { return ipv4_text(live.ip.netmask); });
    if (name == "gateway") {
        if (live.gw_ret == KOPA_RESULT_NOENT)
            return {std::nullopt, ""}; // read, and the group holds none
        return of(live.gw_ret, [&] { return ipv4_text(live.gw); });
    }
    if (name == "netdetect")
        return of(live.netdetect_ret, [&] { return ipv4_text(live.netdetect); });
    if (name == "mtu")
        return of(live.mtu_ret, [&] { return std::to_string(live.mtu); });
    if (name == "mac_addr")
        return of(live.mac_ret, [&] { return mac_text(live.mac); });
    if (name == "dscp_tc") {
        return of(live.dscp_ret, [&] {
            std::string list;
            for (uint32_t d = 0; d < kDscpValues; ++d)
                list +=
                    (d == 0 ? "" : ",") + std::to_string(d) + ":" + std::to_string(live.dscp.tc[d]);
            return list;
        });
    }
    if (name == "static_speed")
        return of(live.generic_ret, [&] { return std::to_string(live.generic.static_speed); });
    if (name == "auto_adapt")
        return of(live.generic_ret, [&] { return std::to_string(live.generic.auto_adapt); });
    if (name == "bw_limit")
        return of(live.shaping_ret, [&] { return std::to_string(live.shaping.bw_limit); });
    if (name == "roce_port")
        return of(live.udp_ret, [&] { return std::to_string(live.udp); });
    if (name == "bitmap") {
        return of(live.pfc_ret, [&] {
            uint32_t on[kQosClasses];
            for (uint32_t p = 0; p < kQosClasses; ++p)
                on[p] = live.pfc.bitmap >> p & 1U;
            return list_text(on, kQosClasses);
        });
    }
    if (name == "tc_bw")
        return of(live.tc_ret, [&] { return list_text(live.tc.tc_bw, kQosClasses); });
    if (name == "tc_mode")
        return of(live.tc_ret, [&] { return list_text(live.tc.tc_mode, kQosClasses); });
    if (name == "prio_tc")
        return of(live.prio_ret, [&] { return list_text(live.prio.tc_of_prio, kQosClasses); });
    if (name == "encoding")
        return of(live.fec_ret, [&] { return std::to_string(live.fec); });
    if (name == "send_arp_period")
        return of(live.garp_ret, [&] { return std::to_string(live.garp.period); });
    if (name == "send_arp_status")
        return of(live.garp_ret, [&] { return std::to_string(live.garp.status); });
    return {std::nullopt, "not read"};
}

void compare_dscp(const std::string &saved, const Live &live, ItemView *item)
{
    uint8_t tc[kDscpValues];
    (void)qos_read_dscp_list(saved, tc);
    ItemDiff diff{"", std::string(), ""};
    for (uint32_t d = 0; d < kDscpValues; ++d) {
        if (tc[d] == kDscpNotSaved || tc[d] == live.dscp.tc[d])
            continue;
        const char *sep = diff.saved.empty() ? "" : ",";
        diff.saved += sep + std::to_string(d) + ":" + std::to_string(tc[d]);
        *diff.live += sep + std::to_string(d) + ":" + std::to_string(live.dscp.tc[d]);
    }
    if (!diff.saved.empty())
        item->diffs.push_back(diff);
}

void compare_value(const ItemDef &def, const SavedValue &saved, const SavedValue *partner,
                   const Live *live, const DeviceView &dev, ItemView *item)
{
    item->buffer = def.buffer;
    item->kind = def.kind;
    if (saved.ret == kErrSysCopy) {
        item->saved_error = "the saved value is longer than its " + std::to_string(def.buffer) +
                            "-byte recovery buffer: recovery skips it";
        item->state = ItemState::kUnusable;
    } else if (saved.ret == 0) {
        item->saved = saved.text;
    }
    if (live != nullptr) {
        LiveValue value = live_value(*live, def.name);
        item->live = value.text;
        item->live_error = value.error;
        if (def.kind == ValueKind::kGateway && live->gw_ret == 0)
            item->holder = live->gw_holder;
    } else {
        item->live_error = "the device was not read: it is not healthy";
    }
    if (!item->saved)
        return;
    const auto want = ctl_canonical(def.kind, *item->saved);
    item->saved_canon = want;
    if (partner != nullptr && partner->ret != 0) {
        item->saved_error =
            std::string("saved without ") + def.partner + ": recovery replays neither";
        item->state = ItemState::kUnusable;
        return;
    }
    if (!want) {
        item->saved_error = std::string("the saved value does not read as ") +
                            kind_words(def.kind) + ": recovery refuses it";
        item->state = ItemState::kUnusable;
        return;
    }
    // A gateway read that answered none is known: the device holds no gateway.
    const bool no_gateway =
        def.kind == ValueKind::kGateway && live != nullptr && live->gw_ret == KOPA_RESULT_NOENT;
    if (!item->live && !no_gateway) {
        item->state = ItemState::kUnknown;
        return;
    }
    if (def.kind == ValueKind::kDscp) {
        compare_dscp(*item->saved, *live, item);
    } else if (def.kind == ValueKind::kGateway) {
        const bool held = item->holder && *item->holder == dev.phy_id;
        if (!held || *want != *item->live) {
            ItemDiff diff{*item->saved, std::nullopt, ""};
            if (held)
                diff.live = item->live;
            else if (item->holder)
                diff.note = " (the group's gateway " + *item->live + " is on dev " +
                            std::to_string(*item->holder) + ")";
            item->diffs.push_back(diff);
        }
    } else if (*want != *item->live) {
        item->diffs.push_back({*item->saved, item->live, ""});
    }
    item->state = item->diffs.empty() ? ItemState::kAgree : ItemState::kDrift;
}

void compare_list(const SavedList &saved, const std::vector<Entry> *live, int live_ret,
                  bool ip_route, ItemView *item)
{
    auto text_of = [ip_route](const Entry &e) { return ip_route ? ip_route_text(e) : e.text(); };
    item->list = true;
    if (live != nullptr && live_ret == 0) {
        item->live_entries.emplace();
        for (const Entry &e : *live)
            item->live_entries->push_back(text_of(e));
    } else {
        item->live_error =
            live == nullptr ? "the device was not read: it is not healthy" : read_error(live_ret);
    }
    for (const std::string &line : saved.refused) {
        item->saved_error += (item->saved_error.empty() ? "" : "; ") +
                             ("the checkers refuse the line \"" + line + "\"");
    }
    if (!saved.any)
        return;
    item->saved_entries.emplace();
    for (const Entry &e : saved.entries)
        item->saved_entries->push_back(text_of(e));
    if (!item->live_entries) {
        item->state = ItemState::kUnknown;
        return;
    }
    for (const Entry &want : saved.entries) {
        const auto held = std::find_if(live->begin(), live->end(),
                                       [&](const Entry &e) { return e.id == want.id; });
        if (held == live->end())
            item->diffs.push_back({text_of(want), std::nullopt, ""});
        else if (held->value != want.value)
            item->diffs.push_back({text_of(want), text_of(*held), ""});
    }
    if (!item->diffs.empty())
        item->state = ItemState::kDrift;
    else
        item->state = saved.entries.empty() ? ItemState::kUnusable : ItemState::kAgree;
}

/// The saved side of one device, read under the file's lock before any device is asked.
struct DeviceSaved {
    std::vector<SavedValue> values; ///< by index of g_ctl_items (lists left empty)
    SavedList routes, arp, rules, ip_routes;
    size_t malformed_routes = 0;
};

DeviceSaved read_saved(const ConfSession *conf, std::string_view content, uint32_t logic_id,
                       uint32_t phy_id)
{
    DeviceSaved saved;
    saved.values.resize(g_ctl_items.size());
    if (conf == nullptr)
        return saved;
    for (size_t i = 0; i < g_ctl_items.size(); ++i) {
        const ItemDef &def = g_ctl_items[i];
        if (def.buffer == 0)
            continue;
        std::string buf(def.buffer, '\0');
        SavedValue &value = saved.values[i];
        value.ret = conf->read_item(phy_id, def.name, buf.data(), def.buffer);
        if (value.ret == 0)
            value.text = buf.c_str();
    }
    saved.routes = saved_routes(content, phy_id, &saved.malformed_routes);
    saved.arp =
        saved_cmdlines<kopa_arp_record>(content, "arp", logic_id, tool_saved_arp_record, arp_entry);
    saved.rules = saved_cmdlines<kopa_ip_rule_record>(content, "ip_rule", logic_id,
                                                      tool_saved_ip_rule_record, rule_entry);
    saved.ip_routes = saved_cmdlines<kopa_ip_route_record>(
        content, "ip_route", logic_id, tool_saved_ip_route_record, ip_route_entry);
    return saved;
}

// The ids the file saves settings for, each line read as the store reads it: physical ids of
// item keys and route lines, logical ids of ARP, policy rule and policy route lines. An id no
// device has is absent.
std::vector<AbsentId> absent_ids(std::string_view conf, const std::vector<DeviceView> &devices)
{
    std::set<uint32_t> phy, logic;
    (void)cfg_for_each_piece(conf, [&](std::string_view piece) {
        const std::string line = line_of(piece);
        const size_t eq = line.find('=');
        if (line.empty() || line[0] == '#' || eq == std::string::npos)
            return 0;
        const std::string_view key(line.data(), eq);
        SavedRouteLine route{};
        if (tool_is_route_line(piece)) {
            if (tool_parse_route_line(line.c_str(), &route) == kOk)
                phy.insert(route.section);
            return 0;
        }
        for (const ItemDef &def : g_ctl_items) {
            if (const auto id = def.buffer != 0 ? ctl_key_id(key, def.name) : std::nullopt; id)
                phy.insert(*id);
        }
        for (const char *item : {"arp", "ip_rule", "ip_route"}) {
            if (const auto id = ctl_key_id(key, item); id)
                logic.insert(*id);
        }
        return 0;
    });
    for (const DeviceView &dev : devices) {
        phy.erase(dev.phy_id);
        logic.erase(dev.logic_id);
    }
    std::vector<AbsentId> absent;
    for (uint32_t id : phy)
        absent.push_back({id, std::nullopt});
    for (uint32_t id : logic)
        absent.push_back({std::nullopt, id});
    return absent;
}

void read_tls(uint32_t logic_id, TlsView *tls)
{
    kopa_tls_cert_info records[KOPA_TLS_CERT_INFO_MAX] = {};
    tls->tried = true;
    tls->ret = kopa_get_tls_cfg(logic_id, kNetPort, records, KOPA_TLS_CERT_INFO_MAX);
    if (tls->ret != 0)
        return;
    std::optional<int64_t> first;
    bool settings = false;
    for (uint32_t i = 0; i < KOPA_TLS_CERT_INFO_MAX; ++i) {
        const kopa_tls_cert_info &r = records[i];
        auto text = [](const char *field, size_t size) {
            return std::string(field, strnlen(field, size));
        };
        CertView cert{i, text(r.issuer, sizeof(r.issuer)), text(r.start_time, sizeof(r.start_time)),
                      text(r.end_time, sizeof(r.end_time))};
        if (cert.issuer.empty() && cert.not_after.empty())
            continue;
        if (!settings) {
            tls->enabled = r.tls_switch;
            tls->alarm_days = r.alarm_days;
            settings = true;
        }
        if (const auto end = ctl_asctime_utc(cert.not_after); end && (!first || *end < *first)) {
            first = end;
            tls->not_after = cert.not_after;
        }
        tls->certs.push_back(std::move(cert));
    }
    if (first) {
        const double days = static_cast<double>(*first - time(nullptr)) / 86400.0;
        tls->days_to_expiry = static_cast<int64_t>(std::floor(days));
    }
}

void read_device(const DeviceSaved &saved, DeviceView *dev)
{
    dev->health_ret = kopa_get_device_health(dev->logic_id, &dev->health);
    dev->readable =
        dev->health_ret == 0 && (dev->health == KOPA_HEALTH_OK || dev->health == KOPA_HEALTH_MINOR);
    Live live;
    const Live *seen = nullptr;
    if (dev->readable) {
        read_live(dev->logic_id, &live);
        seen = &live;
        if (live.status_ret == 0)
            dev->cfg_status = live.status;
        if (live.link_ret == 0)
            dev->link_up = live.link != 0;
        if (live.vnic_ret == 0)
            dev->vnic = ipv4_text(live.vnic.address) + "/" + ipv4_text(live.vnic.netmask);
        read_tls(dev->logic_id, &dev->tls);
    }
    for (size_t i = 0; i < g_ctl_items.size(); ++i) {
        const ItemDef &def = g_ctl_items[i];
        ItemView item;
        item.name = def.name;
        item.kind = def.kind;
        if (def.buffer != 0) {
            item.key = std::string(def.name) + "_" + std::to_string(dev->phy_id);
            const SavedValue *partner = nullptr;
            if (def.partner != nullptr)
                partner = &saved.values[ctl_item_index(def.partner)];
            compare_value(def, saved.values[i], partner, seen, *dev, &item);
            dev->items.push_back(std::move(item));
            continue;
        }
        std::vector<Entry> entries;
        int ret = 0;
        const SavedList *list = nullptr;
        switch (def.kind) {
        case ValueKind::kRoutes:
            item.key = "route_address_A_netmask_M_" + std::to_string(dev->phy_id);
            list = &saved.routes;
            ret = live.routes_ret;
            if (seen != nullptr && ret == 0) {
                const auto rows = routes_of_text(live.routes);
                if (rows)
                    entries = *rows;
                else
                    ret = kErrRouteText;
            }
            break;
        case ValueKind::kArp:
            item.key = "arp_" + std::to_string(dev->logic_id);
            list = &saved.arp;
            ret = live.arp_ret;
            for (uint32_t k = 0; seen != nullptr && ret == 0 && k < live.arp_count; ++k)
                entries.push_back(arp_entry(live.arp[k]));
            break;
        case ValueKind::kIpRules:
            item.key = "ip_rule_" + std::to_string(dev->logic_id);
            list = &saved.rules;
            ret = live.rules_ret;
            for (uint32_t k = 0; seen != nullptr && ret == 0 && k < live.rule_count; ++k)
                entries.push_back(rule_entry(live.rules[k]));
            break;
        default:
            item.key = "ip_route_" + std::to_string(dev->logic_id);
            list = &saved.ip_routes;
            ret = live.ip_routes_ret;
            for (uint32_t k = 0; seen != nullptr && ret == 0 && k < live.ip_route_count; ++k)
                entries.push_back(ip_route_entry(live.ip_routes[k]));
            break;
        }
        compare_list(*list, seen != nullptr ? &entries : nullptr, ret,
                     def.kind == ValueKind::kIpRoutes, &item);
        if (def.kind == ValueKind::kRoutes && saved.malformed_routes != 0) {
            item.saved_error = std::to_string(saved.malformed_routes) +
                               " route line(s) of the file are not in the written form: the "
                               "replay of routes stops on them";
        }
        dev->items.push_back(std::move(item));
    }
}

} // namespace

const char *ctl_state_word(ItemState state)
{
    switch (state) {
    case ItemState::kAgree:
        return "agree";
    case ItemState::kDrift:
        return "drift";
    case ItemState::kNotSaved:
        return "not-saved";
    case ItemState::kUnusable:
        return "unusable";
    case ItemState::kUnknown:
        return "unknown";
    }
    return "unknown";
}

const char *ctl_health_word(const DeviceView &dev)
{
    if (dev.health_ret != 0)
        return "unknown";
    switch (dev.health) {
    case KOPA_HEALTH_OK:
        return "ok";
    case KOPA_HEALTH_MINOR:
        return "minor alarm";
    case KOPA_HEALTH_MAJOR:
        return "major alarm";
    case KOPA_HEALTH_CRITICAL:
        return "critical alarm";
    case KOPA_HEALTH_GONE:
        return "gone";
    default:
        return "unknown";
    }
}

const char *ctl_cfg_status_word(uint32_t status)
{
    static const char *const kWords[] = {"NONE", "START", "FAIL", "SUCCESS"};
    return status < 4 ? kWords[status] : "FAULT";
}

std::optional<int64_t> ctl_asctime_utc(std::string_view text)
{
    char buf[32];
    if (text.empty() || text.size() >= sizeof(buf))
        return std::nullopt;
    memcpy(buf, text.data(), text.size());
    buf[text.size()] = '\0';
    tm when{};
    const char *end = strptime(buf, "%a %b %d %H:%M:%S %Y", &when);
    if (end == nullptr || *end != '\0')
        return std::nullopt;
    return static_cast<int64_t>(timegm(&when));
}

std::optional<uint32_t> ctl_key_id(std::string_view key, std::string_view item)
{
    if (key.size() <= item.size() + 1 || !key.starts_with(item) || key[item.size()] != '_')
        return std::nullopt;
    const std::string_view id = key.substr(item.size() + 1);
    if (id.size() > 4 || !std::all_of(id.begin(), id.end(), [](char c) { return isdigit(c) != 0; }))
        return std::nullopt;
    return static_cast<uint32_t>(strtoul(std::string(id).c_str(), nullptr, 10));
}

bool ctl_has_saved(const DeviceView &dev)
{
    return std::any_of(dev.items.begin(), dev.items.end(), [](const ItemView &item) {
        return item.saved || item.saved_entries || !item.saved_error.empty();
    });
}

bool ctl_all_verified(const HostView &host)
{
    if (!host.absent.empty())
        return false;
    return std::none_of(host.devices.begin(), host.devices.end(), [](const DeviceView &dev) {
        return std::any_of(dev.items.begin(), dev.items.end(),
                           [](const ItemView &item) { return item.state == ItemState::kUnknown; });
    });
}

std::vector<std::string> ctl_split(const std::string &text, char sep)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t at = text.find(sep, start);
        parts.push_back(text.substr(start, at - start));
        if (at == std::string::npos)
            return parts;
        start = at + 1;
    }
}

const ItemView *ctl_find_item(const DeviceView &dev, std::string_view name)
{
    for (const ItemView &item : dev.items) {
        if (name == item.name)
            return &item;
    }
    return nullptr;
}

int32_t ctl_read_host(std::optional<uint32_t> only, HostView *host)
{
    dev_list_info list{};
    host->list_ret = tool_get_dev_list_info(&list);
    if (host->list_ret != kOk)
        return host->list_ret;
    std::vector<DeviceView> devices;
    for (uint32_t i = 0; i < list.count; ++i) {
        if (only && list.phy_id[i] != *only)
            continue;
        DeviceView dev;
        dev.logic_id = list.logic_id[i];
        dev.phy_id = list.phy_id[i];
        devices.push_back(dev);
    }
    if (only && devices.empty())
        return kErrDeviceId;
    std::sort(devices.begin(), devices.end(),
              [](const DeviceView &a, const DeviceView &b) { return a.phy_id < b.phy_id; });

    // The file is read once, under its lock, and let go before any device is asked.
    host->conf_path = cfg_conf_path();
    std::vector<DeviceSaved> saved;
    {
        ConfSession conf(ConfAccess::kRead);
        host->conf_ret = conf.open();
        if (host->conf_ret == 0)
            host->conf = conf.content();
        for (const DeviceView &dev : devices)
            saved.push_back(read_saved(host->conf_ret == 0 ? &conf : nullptr, host->conf,
                                       dev.logic_id, dev.phy_id));
    }
    if (!only)
        host->absent = absent_ids(host->conf, devices);
    for (size_t i = 0; i < devices.size(); ++i)
        read_device(saved[i], &devices[i]);
    host->devices = std::move(devices);
    return kOk;
}
