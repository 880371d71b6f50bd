// vornctl show: every device (or one) with every setting the tool knows, live from the device
// beside the saved value, as a table or as JSON (docs/vornctl.schema.json).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "vornctl/host_view.hpp"
#include "vornctl/json_out.hpp"
#include "vornctl/vornctl.hpp"

namespace
{

CtlJson tls_json(const DeviceView &dev)
{
    const TlsView &tls = dev.tls;
    CtlJson j;
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
    j["enabled"] = installed ? CtlJson(tls.enabled != 0) : CtlJson(nullptr);
    j["alarm_days"] = installed ? CtlJson(tls.alarm_days) : CtlJson(nullptr);
    j["not_after"] = tls.not_after.empty() ? CtlJson(nullptr) : CtlJson(tls.not_after);
    j["days_to_expiry"] = tls.days_to_expiry ? CtlJson(*tls.days_to_expiry) : CtlJson(nullptr);
    CtlJson certs = CtlJson::array();
    for (const CertView &c : tls.certs)
        certs.push_back({{"position", c.position},
                         {"issuer", c.issuer},
                         {"not_before", c.not_before},
                         {"not_after", c.not_after}});
    j["certificates"] = certs;
    return j;
}

CtlJson device_json(const DeviceView &dev)
{
    CtlJson j;
    j["phy_id"] = dev.phy_id;
    j["logic_id"] = dev.logic_id;
    j["health"] = {{"value", dev.health_ret == 0 ? CtlJson(dev.health) : CtlJson(nullptr)},
                   {"text", ctl_health_word(dev)}};
    j["readable"] = dev.readable;
    if (dev.cfg_status)
        j["recovery_status"] = {{"value", *dev.cfg_status},
                                {"text", ctl_cfg_status_word(*dev.cfg_status)}};
    else
        j["recovery_status"] = nullptr;
    j["link"] = dev.link_up ? CtlJson(*dev.link_up ? "up" : "down") : CtlJson(nullptr);
    if (dev.vnic) {
        const size_t slash = dev.vnic->find('/');
        j["vnic"] = {{"address", dev.vnic->substr(0, slash)},
                     {"netmask", dev.vnic->substr(slash + 1)}};
    } else {
        j["vnic"] = nullptr;
    }
    j["tls"] = tls_json(dev);
    CtlJson items = CtlJson::object();
    for (const ItemView &item : dev.items)
        items[item.name] = ctl_item_json(item);
    j["items"] = items;
    return j;
}

void print_json(const HostView &host)
{
    CtlJson doc = ctl_doc_head("vornctl-show", host);
    CtlJson devices = CtlJson::array();
    for (const DeviceView &dev : host.devices)
        devices.push_back(device_json(dev));
    doc["devices"] = devices;
    doc["absent"] = ctl_absent_json(host);
    ctl_print_json(doc);
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

/// A block of rows printed in columns as wide as their widest cell, so that a long value never
/// moves the columns after it out of line; lines below a row (list entries, notes) as they are.
struct Table {
    struct Row {
        std::vector<std::string> cells;
        std::vector<std::string> below;
    };
    std::vector<Row> rows;

    [[nodiscard]] std::vector<size_t> widths() const
    {
        std::vector<size_t> width;
        for (const Row &r : rows) {
            width.resize(std::max(width.size(), r.cells.size()));
            for (size_t c = 0; c < r.cells.size(); ++c)
                width[c] = std::max(width[c], r.cells[c].size());
        }
        return width;
    }

    /// Rows `from` to `to` (excluded) in the columns `width`.
    void print(const char *indent, size_t from, size_t to, const std::vector<size_t> &width) const
    {
        for (size_t i = from; i < to; ++i) {
            const Row &r = rows[i];
            std::string line = indent;
            for (size_t c = 0; c < r.cells.size(); ++c) {
                line += r.cells[c];
                if (c + 1 < r.cells.size())
                    line += std::string(width[c] - r.cells[c].size() + 2, ' ');
            }
            puts(line.c_str());
            for (const std::string &b : r.below)
                printf("%s    %s\n", indent, b.c_str());
        }
    }

    void print(const char *indent) const { print(indent, 0, rows.size(), widths()); }
};

Table::Row item_row(const ItemView &item)
{
    Table::Row row;
    if (!item.list) {
        std::string device = item.live.value_or(item.live_error.empty() ? "none" : "-");
        if (item.live && item.def->kind == ItemKind::kDscpMap)
            device = dscp_runs(device);
        if (item.holder && item.live)
            device += " (dev " + std::to_string(*item.holder) + ")";
        row.cells = {item.name, ctl_state_word(item.state), item.saved.value_or("-"), device};
    } else {
        auto count = [](const std::optional<std::vector<std::string>> &entries) {
            return entries ? std::to_string(entries->size()) : std::string("-");
        };
        row.cells = {item.name, ctl_state_word(item.state), count(item.saved_entries) + " saved",
                     count(item.live_entries) + " on the device"};
        for (const std::string &e : item.saved_entries.value_or(std::vector<std::string>{}))
            row.below.push_back("saved:  " + e);
        for (const std::string &e : item.live_entries.value_or(std::vector<std::string>{}))
            row.below.push_back("device: " + e);
    }
    if (!item.saved_error.empty())
        row.below.push_back("note: " + item.saved_error);
    if (!item.live_error.empty() && (item.saved || item.saved_entries))
        row.below.push_back("note: device value: " + item.live_error);
    return row;
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

std::string absent_name(const AbsentId &id)
{
    return id.phy_id ? "dev " + std::to_string(*id.phy_id)
                     : "logical id " + std::to_string(id.logic_id.value_or(0));
}

size_t drift_count(const DeviceView &dev)
{
    return static_cast<size_t>(
        std::count_if(dev.items.begin(), dev.items.end(),
                      [](const ItemView &i) { return i.state == ItemState::kDrift; }));
}

void print_table(const HostView &host)
{
    if (host.conf_ret == 0)
        printf("config file: %s\n", host.conf_path.c_str());
    else
        printf("config file: %s cannot be read (0x%x): nothing saved is shown\n",
               host.conf_path.c_str(), static_cast<unsigned>(host.conf_ret));
    // One set of column widths for every device, so that the blocks line up too.
    Table table;
    std::vector<size_t> starts;
    for (const DeviceView &dev : host.devices) {
        starts.push_back(table.rows.size());
        table.rows.push_back({{"ITEM", "STATE", "SAVED", "DEVICE"}, {}});
        for (const ItemView &item : dev.items)
            table.rows.push_back(item_row(item));
    }
    const std::vector<size_t> width = table.widths();
    for (size_t d = 0; d < host.devices.size(); ++d) {
        const DeviceView &dev = host.devices[d];
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
        table.print("  ", starts[d], d + 1 < starts.size() ? starts[d + 1] : table.rows.size(),
                    width);
    }
    for (const AbsentId &id : host.absent)
        printf("\n%s: saved in %s, but no device has it\n", absent_name(id).c_str(),
               host.conf_path.c_str());
}

// One line per device: health, link, recovery status and the count of drifted items.
void print_brief(const HostView &host)
{
    Table table;
    table.rows.push_back({{"DEV", "LOGIC", "HEALTH", "LINK", "RECOVERY", "DRIFT"}, {}});
    for (const DeviceView &dev : host.devices) {
        table.rows.push_back(
            {{std::to_string(dev.phy_id), std::to_string(dev.logic_id), ctl_health_word(dev),
              dev.link_up ? (*dev.link_up ? "up" : "down") : "-",
              dev.cfg_status ? ctl_cfg_status_word(*dev.cfg_status) : "-",
              dev.readable ? std::to_string(drift_count(dev)) : "-"},
             {}});
    }
    for (const AbsentId &id : host.absent)
        table.rows.push_back(
            {{id.phy_id ? std::to_string(*id.phy_id) : "-",
              id.logic_id ? std::to_string(*id.logic_id) : "-", "absent", "-", "-", "-"},
             {}});
    table.print("");
}

} // namespace

int ctl_show(const CtlOptions &opts)
{
    HostView host;
    if (const int status = ctl_load_host(opts.phy_id, &host); status != kCtlExitOk)
        return status;
    if (opts.json)
        print_json(host);
    else if (opts.brief)
        print_brief(host);
    else
        print_table(host);
    return ctl_stdout_ok() ? kCtlExitOk : kCtlExitFailure;
}
