// vornctl verify [--recover] [--json]: every saved item against its device, one line per
// difference (or one JSON document); with --recover, the recovery of the drifted devices only,
// under the setting lock, and a second verification.
#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "base/result.hpp"
#include "cmdline/identity.hpp"
#include "cmdline/setting_lock.hpp"
#include "commands/recovery.hpp"
#include "log/run_log.hpp"
#include "vornctl/host_view.hpp"
#include "vornctl/json_out.hpp"
#include "vornctl/vornctl.hpp"

namespace
{

struct Tally {
    std::set<uint32_t> drifted; ///< physical ids
    size_t differences = 0;
    size_t unverified = 0; ///< saved items (or unhealthy devices) that could not be compared
    size_t devices = 0;
    size_t absent = 0; ///< saved ids without a device
};

Tally tally_of(const HostView &host)
{
    Tally tally;
    tally.devices = host.devices.size();
    tally.absent = host.absent.size();
    for (const DeviceView &dev : host.devices) {
        if (!dev.readable) {
            tally.unverified += ctl_has_saved(dev) ? 1 : 0;
            continue;
        }
        for (const ItemView &item : dev.items) {
            if (item.state == ItemState::kDrift) {
                tally.drifted.insert(dev.phy_id);
                tally.differences += item.diffs.size();
            }
            tally.unverified += item.state == ItemState::kUnknown ? 1 : 0;
        }
    }
    return tally;
}

/// An absent or unverified device wins over drift: drift on the others hides nothing.
int status_of(const Tally &tally)
{
    if (tally.unverified != 0 || tally.absent != 0)
        return kCtlExitDevices;
    return tally.drifted.empty() ? kCtlExitOk : kCtlExitFindings;
}

// One line per difference on standard output; what cannot be verified, and saved lines that
// recovery would not replay, on standard error.
void print_report(const HostView &host, const Tally &tally)
{
    for (const DeviceView &dev : host.devices) {
        if (!dev.readable) {
            if (ctl_has_saved(dev))
                printf("dev %u: not verified, health %s\n", dev.phy_id, ctl_health_word(dev));
            continue;
        }
        for (const ItemView &item : dev.items) {
            if (item.state == ItemState::kDrift) {
                for (const ItemDiff &d : item.diffs)
                    printf("dev %u %s: saved %s, device %s%s\n", dev.phy_id, item.name,
                           d.saved.c_str(), d.live.value_or("none").c_str(), d.note.c_str());
            } else if (item.state == ItemState::kUnknown) {
                printf("dev %u %s: not verified, the device value cannot be read: %s\n", dev.phy_id,
                       item.name, item.live_error.c_str());
            } else if (item.state == ItemState::kUnusable) {
                fprintf(stderr, "note: dev %u %s: %s (see vornctl lint)\n", dev.phy_id, item.name,
                        item.saved_error.c_str());
            }
            for (const std::string &entry : item.unappliable)
                printf("dev %u %s: saved %s cannot be applied: the device holds %u\n", dev.phy_id,
                       item.name, entry.c_str(), item.def->max_entries);
        }
    }
    for (const AbsentId &id : host.absent) {
        if (id.phy_id)
            printf("dev %u: not verified, no device has the physical id\n", *id.phy_id);
        else
            printf("logical id %u: not verified, no device has the logical id\n", *id.logic_id);
    }
    if (!tally.drifted.empty())
        printf("drift: %zu difference(s) on %zu device(s)\n", tally.differences,
               tally.drifted.size());
    if (tally.unverified != 0 || tally.absent != 0)
        printf("not verified: %zu saved item(s) could not be compared, %zu saved device id(s) "
               "without a device\n",
               tally.unverified, tally.absent);
    if (status_of(tally) == kCtlExitOk)
        printf("no drift: %zu device(s) agree with %s\n", tally.devices, host.conf_path.c_str());
}

CtlJson verification_json(const HostView &host, const Tally &tally)
{
    CtlJson devices = CtlJson::array();
    for (const DeviceView &dev : host.devices) {
        CtlJson diffs = CtlJson::array(), unverified = CtlJson::array(),
                unusable = CtlJson::array();
        if (!dev.readable && ctl_has_saved(dev))
            unverified.push_back(
                {{"item", nullptr}, {"error", std::string("health ") + ctl_health_word(dev)}});
        for (const ItemView &item : dev.items) {
            if (!dev.readable)
                break;
            if (item.state == ItemState::kDrift) {
                const CtlJson j = ctl_item_json(item);
                for (const CtlJson &d : j["differences"])
                    diffs.push_back(
                        {{"item", item.name}, {"saved", d["saved"]}, {"live", d["live"]}});
            } else if (item.state == ItemState::kUnknown) {
                unverified.push_back({{"item", item.name}, {"error", item.live_error}});
            }
            if (item.state == ItemState::kUnusable || !item.saved_error.empty())
                unusable.push_back({{"item", item.name}, {"error", item.saved_error}});
        }
        const char *state = !unverified.empty() ? "not-verified"
                            : !diffs.empty()    ? "drift"
                                                : "agree";
        devices.push_back({{"phy_id", dev.phy_id},
                           {"logic_id", dev.logic_id},
                           {"state", state},
                           {"differences", diffs},
                           {"unverified", unverified},
                           {"unusable", unusable}});
    }
    return {{"devices", devices},
            {"absent", ctl_absent_json(host)},
            {"differences", tally.differences},
            {"drifted_devices", tally.drifted.size()},
            {"unverified", tally.unverified},
            {"status", status_of(tally)}};
}

/// The result of the recovery of one drifted device.
struct Recovery {
    uint32_t phy_id;
    uint32_t logic_id;
    int32_t ret;
};

// The drifted devices only, each as -i <id> -cfg recovery replays it. False when nothing could
// run (the user unknown, the setting lock busy).
bool recover(const HostView &host, const Tally &tally, bool quiet, std::vector<Recovery> *done)
{
    if (vorn_get_usr_name() != 0 || vorn_get_usr_ip() != 0) {
        fputs("vornctl: the calling user cannot be identified for the run log\n", stderr);
        return false;
    }
    if (take_setting_lock() != kOk) {
        fputs("vorn_tool is busy, please try again.\n", stderr);
        return false;
    }
    for (const DeviceView &dev : host.devices) {
        if (tally.drifted.count(dev.phy_id) == 0)
            continue;
        RUN_LOG_CONFIG("start to recover drifted config of phy_id[%u] (vornctl verify --recover)\n",
                       dev.phy_id);
        const int32_t ret = tool_cfg_recover_device({dev.logic_id, dev.phy_id});
        done->push_back({dev.phy_id, dev.logic_id, ret});
        if (!quiet && ret == kOk)
            printf("recovery of dev %u: success\n", dev.phy_id);
        else if (!quiet)
            printf("recovery of dev %u: failed (0x%x)\n", dev.phy_id, static_cast<unsigned>(ret));
        RUN_LOG_PROMPT("vornctl recovery of phy_id[%u] %s ret:0x%x\n", dev.phy_id,
                       ret == kOk ? "succeed" : "failed", static_cast<unsigned>(ret));
    }
    return true;
}

int read_host(const CtlOptions &opts, HostView *host)
{
    const int status = ctl_load_host(opts.phy_id, host);
    if (status != kCtlExitOk)
        return status;
    if (host->conf_ret != 0) {
        fprintf(stderr, "vornctl: %s cannot be read (0x%x): nothing to verify against\n",
                host->conf_path.c_str(), static_cast<unsigned>(host->conf_ret));
        return kCtlExitFailure;
    }
    return kCtlExitOk;
}

} // namespace

int ctl_verify(const CtlOptions &opts)
{
    HostView host;
    if (const int status = read_host(opts, &host); status != kCtlExitOk)
        return status;
    const Tally tally = tally_of(host);
    CtlJson doc;
    if (opts.json) {
        doc = ctl_doc_head("vornctl-verify", host);
        doc["verification"] = verification_json(host, tally);
        doc["recovery"] = nullptr;
        doc["after_recovery"] = nullptr;
    } else {
        print_report(host, tally);
    }
    int status = status_of(tally);
    if (opts.recover && !tally.drifted.empty()) {
        std::vector<Recovery> done;
        if (!recover(host, tally, opts.json, &done))
            return kCtlExitFailure;
        // The lock stays held to the exit: the second look sees what the recovery left.
        HostView again;
        if (const int reread = read_host(opts, &again); reread != kCtlExitOk)
            return reread;
        const Tally after = tally_of(again);
        status = status_of(after);
        const bool failed =
            std::any_of(done.begin(), done.end(), [](const Recovery &r) { return r.ret != kOk; });
        if (failed && status != kCtlExitDevices)
            status = kCtlExitFailure;
        if (opts.json) {
            CtlJson runs = CtlJson::array();
            for (const Recovery &r : done)
                runs.push_back({{"phy_id", r.phy_id},
                                {"logic_id", r.logic_id},
                                {"result", r.ret == kOk ? "success" : "failed"},
                                {"code", r.ret}});
            doc["recovery"] = runs;
            doc["after_recovery"] = verification_json(again, after);
        } else {
            print_report(again, after);
        }
    }
    if (opts.json) {
        doc["status"] = status;
        ctl_print_json(doc);
    }
    return ctl_stdout_ok() ? status : kCtlExitFailure;
}
