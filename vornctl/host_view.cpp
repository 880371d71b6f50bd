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
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/device_info.hpp"
#include "device/ops.hpp"

namespace
{

constexpr uint32_t kNetPort = 0;

std::string read_error(int ret)
{
    if (ret == -13)
        return "permission denied";
    return "the device did not answer (" + std::to_string(ret) + ")";
}

std::string live_error(const ItemLive &live)
{
    return live.error.empty() ? read_error(live.ret) : live.error;
}

const char *kind_words(ItemKind kind)
{
    switch (kind) {
    case ItemKind::kIpv4:
        return "an IPv4 address";
    case ItemKind::kNumber:
        return "a number";
    case ItemKind::kMac:
        return "a MAC address";
    case ItemKind::kNumberList:
        return "a list of eight numbers";
    case ItemKind::kDscpMap:
        return "a list of dscp:tc entries";
    default:
        return "a value";
    }
}

/// What a read of one saved item answered.
struct SavedValue {
    int ret = kErrSysNotFound; ///< 0, kErrSysNotFound, kErrSysCopy (longer than its buffer)
    std::string text;
};

// Only the entries the saved list names are compared: the device holds all 64.
void compare_dscp(const std::string &saved, const std::string &live, ItemView *item)
{
    uint8_t want[kDscpValues];
    (void)qos_read_dscp_list(saved, want);
    uint8_t held[kDscpValues];
    (void)qos_read_dscp_list(live, held);
    ItemDiff diff{"", std::string(), ""};
    for (uint32_t d = 0; d < kDscpValues; ++d) {
        if (want[d] == kDscpNotSaved || want[d] == held[d])
            continue;
        const char *sep = diff.saved.empty() ? "" : ",";
        diff.saved += sep + std::to_string(d) + ":" + std::to_string(want[d]);
        *diff.live += sep + std::to_string(d) + ":" + std::to_string(held[d]);
    }
    if (!diff.saved.empty())
        item->diffs.push_back(diff);
}

void compare_value(const SavedItem &def, const SavedValue &saved, const SavedValue *partner,
                   const ItemLive *live, const DeviceView &dev, ItemView *item)
{
    item->buffer = def.buffer;
    if (saved.ret == kErrSysCopy) {
        item->saved_error = "the saved value is longer than its " + std::to_string(def.buffer) +
                            "-byte recovery buffer: recovery skips it";
        item->state = ItemState::kUnusable;
    } else if (saved.ret == 0) {
        item->saved = saved.text;
    }
    // A group's gateway: read, and held by this device, by another, or by none (null).
    const bool group = live != nullptr && live->ret == 0 && (live->holder || live->value == "none");
    if (live != nullptr) {
        item->live = group && !live->holder ? std::nullopt : live->value;
        if (live->ret != 0)
            item->live_error = live_error(*live);
        item->holder = live->holder;
    } else {
        item->live_error = "the device was not read: it is not healthy";
    }
    if (!item->saved)
        return;
    const auto want = def.canonical(*item->saved);
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
    if (def.check(item->saved->c_str()) != kOk) {
        item->saved_error = "recovery refuses the saved value: it cannot be applied";
        item->state = ItemState::kUnusable;
        return;
    }
    if (!item->live && !group) {
        item->state = ItemState::kUnknown;
        return;
    }
    if (def.kind == ItemKind::kDscpMap) {
        compare_dscp(*item->saved, *item->live, item);
    } else if (group) {
        // The device holds the group's gateway when it is the group's holder.
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

void compare_list(const SavedItem &def, const ItemSavedList &saved, const ItemLive *live,
                  ItemView *item)
{
    item->list = true;
    item->saved_error = saved.error;
    if (live != nullptr && live->ret == 0) {
        item->live_entries.emplace();
        for (const ItemEntry &e : live->entries)
            item->live_entries->push_back(e.text);
    } else {
        item->live_error =
            live == nullptr ? "the device was not read: it is not healthy" : live_error(*live);
    }
    for (const std::string &line : saved.refused) {
        item->saved_error += (item->saved_error.empty() ? "" : "; ") +
                             ("the checkers refuse the line \"" + line + "\"");
    }
    if (!saved.any)
        return;
    item->saved_entries.emplace();
    for (const ItemEntry &e : saved.entries)
        item->saved_entries->push_back(e.text);
    if (!item->live_entries) {
        item->state = ItemState::kUnknown;
        return;
    }
    // The device holds so many entries: those past them cannot be applied.
    const size_t fits = def.max_entries != 0 ? def.max_entries : saved.entries.size();
    for (size_t k = 0; k < saved.entries.size(); ++k) {
        const ItemEntry &want = saved.entries[k];
        const auto held = std::find_if(live->entries.begin(), live->entries.end(),
                                       [&](const ItemEntry &e) { return e.id == want.id; });
        if (held != live->entries.end() && held->value == want.value)
            continue;
        if (k >= fits) {
            item->unappliable.push_back(want.text);
            continue;
        }
        item->diffs.push_back(
            {want.text,
             held == live->entries.end() ? std::nullopt : std::optional<std::string>(held->text),
             ""});
    }
    if (!item->unappliable.empty())
        item->saved_error += std::string(item->saved_error.empty() ? "" : "; ") +
                             std::to_string(item->unappliable.size()) + " saved entr" +
                             (item->unappliable.size() == 1 ? "y" : "ies") + " beyond the " +
                             std::to_string(def.max_entries) +
                             " the device holds cannot be applied";
    if (!item->diffs.empty())
        item->state = ItemState::kDrift;
    else if (!item->unappliable.empty())
        item->state = ItemState::kUnusable;
    else
        item->state = saved.entries.empty() ? ItemState::kUnusable : ItemState::kAgree;
}

/// The saved side of one device, read under the file's lock before any device is asked.
struct DeviceSaved {
    std::vector<SavedValue> values;   ///< by index of g_saved_items (lists left empty)
    std::vector<ItemSavedList> lists; ///< by index of g_saved_items (values left empty)
};

DeviceSaved read_saved(const ConfSession *conf, std::string_view content, DevRef dev)
{
    DeviceSaved saved;
    saved.values.resize(g_saved_items.size());
    saved.lists.resize(g_saved_items.size());
    if (conf == nullptr)
        return saved;
    for (size_t i = 0; i < g_saved_items.size(); ++i) {
        const SavedItem &def = *g_saved_items[i];
        if (def.buffer == 0) {
            saved.lists[i] = def.saved_list(content, dev);
            continue;
        }
        std::string buf(def.buffer, '\0');
        SavedValue &value = saved.values[i];
        value.ret = conf->read_item(dev.phy_id, def.key, buf.data(), def.buffer);
        if (value.ret == 0)
            value.text = buf.c_str();
    }
    return saved;
}

size_t item_index(std::string_view key)
{
    for (size_t i = 0; i < g_saved_items.size(); ++i) {
        if (key == g_saved_items[i]->key)
            return i;
    }
    return g_saved_items.size();
}

// The ids the file saves settings for, each line read as the store reads it: physical ids of
// item keys and route lines, logical ids of ARP, policy rule and policy route lines. An id no
// device has is absent.
std::vector<AbsentId> absent_ids(std::string_view conf, const std::vector<DeviceView> &devices)
{
    std::set<uint32_t> phy, logic;
    (void)cfg_for_each_piece(conf, [&](std::string_view piece) {
        const std::string line(piece.substr(0, piece.find_first_of(std::string_view("\n\0", 2))));
        const size_t eq = line.find('=');
        if (eq == std::string::npos || line.starts_with("#"))
            return 0;
        SavedRouteLine route{};
        if (tool_is_route_line(piece)) {
            if (tool_parse_route_line(line.c_str(), &route) == kOk)
                phy.insert(route.section);
            return 0;
        }
        const std::string_view key(line.data(), eq);
        for (const SavedItem *def : g_saved_items) {
            // Values under the physical id, lines of saved commands under the logical one.
            if (const auto id = def->buffer != 0 ? ctl_key_id(key, def->key) : std::nullopt; id)
                phy.insert(*id);
            if (const auto id =
                    def->line_key != nullptr ? ctl_key_id(key, def->line_key) : std::nullopt;
                id)
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
    std::vector<ItemLive> live(g_saved_items.size());
    if (dev->readable) {
        uint32_t link = 0;
        if (kopa_get_netdev_link(dev->logic_id, kNetPort, &link) == 0)
            dev->link_up = link != 0;
        kopa_ip_record vnic{};
        if (kopa_get_device_ip_address(dev->logic_id, KOPA_PORT_TYPE_VNIC, 0, &vnic) == 0)
            dev->vnic = item_ipv4_text(vnic.address) + "/" + item_ipv4_text(vnic.netmask);
        for (size_t i = 0; i < g_saved_items.size(); ++i)
            live[i] = g_saved_items[i]->live(dev->logic_id);
        uint32_t status = 0;
        if (kopa_get_cfg_status(dev->logic_id, &status) == 0)
            dev->cfg_status = status;
        read_tls(dev->logic_id, &dev->tls);
    }
    const DevRef ref{dev->logic_id, dev->phy_id};
    for (size_t i = 0; i < g_saved_items.size(); ++i) {
        const SavedItem &def = *g_saved_items[i];
        const ItemLive *seen = dev->readable ? &live[i] : nullptr;
        ItemView item;
        item.name = def.key;
        item.def = &def;
        if (def.buffer != 0) {
            item.key = std::string(def.key) + "_" + std::to_string(dev->phy_id);
            const SavedValue *partner = nullptr;
            if (def.partner != nullptr)
                partner = &saved.values[item_index(def.partner)];
            compare_value(def, saved.values[i], partner, seen, *dev, &item);
        } else {
            item.key = def.list_key(ref);
            compare_list(def, saved.lists[i], seen, &item);
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
                                       {dev.logic_id, dev.phy_id}));
    }
    if (!only)
        host->absent = absent_ids(host->conf, devices);
    for (size_t i = 0; i < devices.size(); ++i)
        read_device(saved[i], &devices[i]);
    host->devices = std::move(devices);
    return kOk;
}
