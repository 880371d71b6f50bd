// vornctl show: every device (or one) with every setting the tool knows, live from the device
// beside the saved value, as a table or as JSON (docs/vornctl.schema.json).
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include <nlohmann/json.hpp>

#include "base/result.hpp"
#include "vornctl/host_view.hpp"
#include "vornctl/vornctl.hpp"

namespace
{

using Json = nlohmann::ordered_json;

/// The version of the JSON document; a change that removes or retypes a field raises it.
constexpr int kSchemaVersion = 1;

std::string utc_now()
{
    char text[32] = {};
    const time_t now = time(nullptr);
    tm when{};
    if (gmtime_r(&now, &when) == nullptr ||
        strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &when) == 0)
        return "";
    return text;
}

// ---- JSON -------------------------------------------------------------------------------------

template <typename T> Json or_null(const std::optional<T> &value)
{
    return value ? Json(*value) : Json(nullptr);
}

Json item_json(const ItemView &item)
{
    Json j;
    j["key"] = item.key;
    j["kind"] = item.list ? "list" : "value";
    if (!item.list)
        j["buffer"] = item.buffer;
    j["saved"] = item.list ? or_null(item.saved_entries) : or_null(item.saved);
    j["live"] = item.list ? or_null(item.live_entries) : or_null(item.live);
    if (item.holder)
        j["holder"] = *item.holder;
    j["state"] = ctl_state_word(item.state);
    if (!item.saved_error.empty())
        j["saved_error"] = item.saved_error;
    if (!item.live_error.empty())
        j["live_error"] = item.live_error;
    Json diffs = Json::array();
    for (const ItemDiff &d : item.diffs)
        diffs.push_back({{"saved", d.saved}, {"device", d.device}});
    j["differences"] = diffs;
    return j;
}

Json tls_json(const DeviceView &dev)
{
    const TlsView &tls = dev.tls;
    Json j;
    if (!tls.tried) {
        j["state"] = "unknown";
        j["error"] = "the device was not read: it is not healthy";
    } else if (tls.ret == -2) {
        j["state"] = "no-certificates";
    } else if (tls.ret != 0) {
        j["state"] = "unknown";
        j["error"] = "the device did not answer (" + std::to_string(tls.ret) + ")";
    } else {
        j["state"] = "installed";
    }
    const bool installed = tls.tried && tls.ret == 0;
    j["enabled"] = installed ? Json(tls.enabled != 0) : Json(nullptr);
    j["alarm_days"] = installed ? Json(tls.alarm_days) : Json(nullptr);
    j["not_after"] = tls.not_after.empty() ? Json(nullptr) : Json(tls.not_after);
    j["days_to_expiry"] = or_null(tls.days_to_expiry);
    Json certs = Json::array();
    for (const CertView &c : tls.certs)
        certs.push_back({{"position", c.position},
                         {"issuer", c.issuer},
                         {"not_before", c.not_before},
                         {"not_after", c.not_after}});
    j["certificates"] = certs;
    return j;
}

Json device_json(const DeviceView &dev)
{
    Json j;
    j["phy_id"] = dev.phy_id;
    j["logic_id"] = dev.logic_id;
    j["health"] = {{"value", dev.health_ret == 0 ? Json(dev.health) : Json(nullptr)},
                   {"text", ctl_health_word(dev)}};
    j["readable"] = dev.readable;
    if (dev.cfg_status)
        j["recovery_status"] = {{"value", *dev.cfg_status},
                                {"text", ctl_cfg_status_word(*dev.cfg_status)}};
    else
        j["recovery_status"] = nullptr;
    j["link"] = dev.link_up ? Json(*dev.link_up ? "up" : "down") : Json(nullptr);
    j["vnic"] = or_null(dev.vnic);
    j["tls"] = tls_json(dev);
    Json items = Json::object();
    for (const ItemView &item : dev.items)
        items[item.name] = item_json(item);
    j["items"] = items;
    return j;
}

void print_json(const HostView &host)
{
    Json doc;
    doc["schema"] = "vornctl-show";
    doc["schema_version"] = kSchemaVersion;
    doc["generated"] = utc_now();
    doc["config"] = {{"path", host.conf_path},
                     {"readable", host.conf_ret == 0},
                     {"error", host.conf_ret == 0 ? Json(nullptr) : Json(host.conf_ret)}};
    Json devices = Json::array();
    for (const DeviceView &dev : host.devices)
        devices.push_back(device_json(dev));
    doc["devices"] = devices;
    // Device texts may hold any byte: what is not UTF-8 is replaced rather than refused.
    const std::string text = doc.dump(2, ' ', false, Json::error_handler_t::replace);
    fputs(text.c_str(), stdout);
    fputc('\n', stdout);
}

// ---- Table ------------------------------------------------------------------------------------

// 64 classes compressed into runs: "0-7:0,8-15:1,...".
std::string dscp_runs(const std::string &list)
{
    std::string out;
    int run_start = -1, run_tc = -1, dscp = 0;
    auto flush = [&](int end) {
        if (run_start < 0)
            return;
        if (!out.empty())
            out += ',';
        out += std::to_string(run_start);
        if (end != run_start) {
            out += '-';
            out += std::to_string(end);
        }
        out += ':';
        out += std::to_string(run_tc);
    };
    size_t pos = 0;
    while (pos < list.size()) {
        const size_t comma = list.find(',', pos);
        const std::string entry = list.substr(pos, comma - pos);
        const int tc = atoi(entry.substr(entry.find(':') + 1).c_str());
        if (tc != run_tc) {
            flush(dscp - 1);
            run_start = dscp;
            run_tc = tc;
        }
        ++dscp;
        if (comma == std::string::npos)
            break;
        pos = comma + 1;
    }
    flush(dscp - 1);
    return out;
}

void print_row(const char *name, const std::string &saved, const std::string &device,
               const char *state)
{
    printf("  %-16s %-24s %-24s %s\n", name, saved.c_str(), device.c_str(), state);
}

void print_item(const ItemView &item)
{
    if (!item.list) {
        std::string device = item.live.value_or("-");
        if (item.live && std::string_view(item.name) == "dscp_tc")
            device = dscp_runs(device);
        if (item.holder && item.live && *item.live != "none")
            device += " (dev " + std::to_string(*item.holder) + ")";
        print_row(item.name, item.saved.value_or("-"), device, ctl_state_word(item.state));
    } else {
        auto count = [](const std::optional<std::vector<std::string>> &entries) {
            return entries ? std::to_string(entries->size()) : std::string("-");
        };
        print_row(item.name, count(item.saved_entries) + " saved",
                  count(item.live_entries) + " on the device", ctl_state_word(item.state));
        for (const std::string &e : item.saved_entries.value_or(std::vector<std::string>{}))
            printf("      saved:  %s\n", e.c_str());
        for (const std::string &e : item.live_entries.value_or(std::vector<std::string>{}))
            printf("      device: %s\n", e.c_str());
    }
    if (!item.saved_error.empty())
        printf("      note: %s\n", item.saved_error.c_str());
    if (!item.live_error.empty() && (item.saved || item.saved_entries))
        printf("      note: device value: %s\n", item.live_error.c_str());
}

std::string tls_text(const DeviceView &dev)
{
    const TlsView &tls = dev.tls;
    if (!tls.tried)
        return "tls unknown";
    if (tls.ret == -2)
        return "tls: no certificates";
    if (tls.ret != 0)
        return "tls unknown (" + std::to_string(tls.ret) + ")";
    std::string text = std::string("tls ") + (tls.enabled != 0 ? "on" : "off");
    if (tls.days_to_expiry)
        text += ", expires in " + std::to_string(*tls.days_to_expiry) + " days (" + tls.not_after +
                " UTC)";
    return text;
}

void print_table(const HostView &host)
{
    if (host.conf_ret == 0)
        printf("config file: %s\n", host.conf_path.c_str());
    else
        printf("config file: %s cannot be read (0x%x): nothing saved is shown\n",
               host.conf_path.c_str(), static_cast<unsigned>(host.conf_ret));
    for (const DeviceView &dev : host.devices) {
        printf("\ndev %u (logic %u): health %s", dev.phy_id, dev.logic_id, ctl_health_word(dev));
        if (!dev.readable) {
            printf(", not read\n");
        } else {
            printf(", link %s, recovery %s, %s\n",
                   dev.link_up ? (*dev.link_up ? "up" : "down") : "unknown",
                   dev.cfg_status ? ctl_cfg_status_word(*dev.cfg_status) : "unknown",
                   tls_text(dev).c_str());
            printf("  vnic %s\n", dev.vnic.value_or("unknown").c_str());
        }
        print_row("ITEM", "SAVED", "DEVICE", "STATE");
        for (const ItemView &item : dev.items)
            print_item(item);
    }
}

} // namespace

int ctl_show(const CtlOptions &opts)
{
    HostView host;
    const int32_t ret = ctl_read_host(opts.phy_id, &host);
    if (ret == kErrDeviceId) {
        fprintf(stderr, "vornctl: no device has the physical id %u\n", *opts.phy_id);
        return kCtlExitError;
    }
    if (ret != kOk) {
        fprintf(stderr, "vornctl: the devices cannot be listed (0x%x)\n",
                static_cast<unsigned>(ret));
        return kCtlExitError;
    }
    if (opts.json)
        print_json(host);
    else
        print_table(host);
    return ctl_stdout_ok() ? kCtlExitOk : kCtlExitError;
}
