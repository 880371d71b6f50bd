// vornctl verify [--recover]: every saved item against its device, one line per difference;
// with --recover, the recovery of the drifted devices only, under the setting lock, and a
// second verification.
#include <cstdio>
#include <set>
#include <string>

#include "base/result.hpp"
#include "cmdline/identity.hpp"
#include "cmdline/setting_lock.hpp"
#include "commands/recovery.hpp"
#include "log/run_log.hpp"
#include "vornctl/host_view.hpp"
#include "vornctl/vornctl.hpp"

namespace
{

struct Tally {
    std::set<uint32_t> drifted; ///< physical ids
    size_t differences = 0;
    size_t unverified = 0; ///< saved items whose device value could not be read
    size_t devices = 0;
};

int32_t read_host(const CtlOptions &opts, HostView *host)
{
    const int32_t ret = ctl_read_host(opts.phy_id, host);
    if (ret == kErrDeviceId) {
        fprintf(stderr, "vornctl: no device has the physical id %u\n", *opts.phy_id);
        return ret;
    }
    if (ret != kOk) {
        fprintf(stderr, "vornctl: the devices cannot be listed (0x%x)\n",
                static_cast<unsigned>(ret));
        return ret;
    }
    if (host->conf_ret != 0) {
        fprintf(stderr, "vornctl: %s cannot be read (0x%x): nothing to verify against\n",
                host->conf_path.c_str(), static_cast<unsigned>(host->conf_ret));
        return host->conf_ret;
    }
    return kOk;
}

bool has_saved(const DeviceView &dev)
{
    for (const ItemView &item : dev.items) {
        if (item.saved || item.saved_entries)
            return true;
    }
    return false;
}

// One line per difference on standard output; what cannot be verified, and saved lines that
// recovery would not replay, on standard error.
Tally report(const HostView &host)
{
    Tally tally;
    tally.devices = host.devices.size();
    for (const DeviceView &dev : host.devices) {
        if (!dev.readable) {
            if (has_saved(dev)) {
                ++tally.unverified;
                printf("dev %u: not verified, health %s\n", dev.phy_id, ctl_health_word(dev));
            }
            continue;
        }
        for (const ItemView &item : dev.items) {
            switch (item.state) {
            case ItemState::kDrift:
                tally.drifted.insert(dev.phy_id);
                for (const ItemDiff &d : item.diffs) {
                    ++tally.differences;
                    printf("dev %u %s: saved %s, device %s\n", dev.phy_id, item.name,
                           d.saved.c_str(), d.device.c_str());
                }
                break;
            case ItemState::kUnknown:
                ++tally.unverified;
                printf("dev %u %s: not verified, the device value cannot be read: %s\n", dev.phy_id,
                       item.name, item.live_error.c_str());
                break;
            case ItemState::kUnusable:
                fprintf(stderr, "note: dev %u %s: %s (see vornctl lint)\n", dev.phy_id, item.name,
                        item.saved_error.c_str());
                break;
            default:
                break;
            }
            for (const std::string &entry : item.unappliable)
                printf("dev %u %s: saved %s cannot be applied: the device holds %u\n", dev.phy_id,
                       item.name, entry.c_str(), item.def->max_entries);
        }
    }
    return tally;
}

int summarize(const HostView &host, const Tally &tally)
{
    if (!tally.drifted.empty()) {
        printf("drift: %zu difference(s) on %zu device(s)\n", tally.differences,
               tally.drifted.size());
        return kCtlExitFindings;
    }
    if (tally.unverified != 0) {
        printf("not verified: %zu saved item(s) could not be compared\n", tally.unverified);
        return kCtlExitError;
    }
    printf("no drift: %zu device(s) agree with %s\n", tally.devices, host.conf_path.c_str());
    return kCtlExitOk;
}

enum class Recovered : uint8_t { kAll, kSome, kNone };

// The drifted devices only, each as -i <id> -cfg recovery replays it.
Recovered recover(const HostView &host, const Tally &tally)
{
    if (vorn_get_usr_name() != 0 || vorn_get_usr_ip() != 0) {
        fputs("vornctl: the calling user cannot be identified for the run log\n", stderr);
        return Recovered::kNone;
    }
    if (take_setting_lock() != kOk) {
        fputs("vorn_tool is busy, please try again.\n", stderr);
        return Recovered::kNone;
    }
    bool all = true;
    for (const DeviceView &dev : host.devices) {
        if (tally.drifted.count(dev.phy_id) == 0)
            continue;
        RUN_LOG_CONFIG("start to recover drifted config of phy_id[%u] (vornctl verify --recover)\n",
                       dev.phy_id);
        const int32_t ret = tool_cfg_recover_device({dev.logic_id, dev.phy_id});
        if (ret == kOk) {
            printf("recovery of dev %u: success\n", dev.phy_id);
        } else {
            all = false;
            printf("recovery of dev %u: failed (0x%x)\n", dev.phy_id, static_cast<unsigned>(ret));
        }
        RUN_LOG_PROMPT("vornctl recovery of phy_id[%u] %s ret:0x%x\n", dev.phy_id,
                       ret == kOk ? "succeed" : "failed", static_cast<unsigned>(ret));
    }
    return all ? Recovered::kAll : Recovered::kSome;
}

} // namespace

int ctl_verify(const CtlOptions &opts)
{
    HostView host;
    if (read_host(opts, &host) != kOk)
        return kCtlExitError;
    const Tally tally = report(host);
    if (!opts.recover || tally.drifted.empty()) {
        const int status = summarize(host, tally);
        return ctl_stdout_ok() ? status : kCtlExitError;
    }
    const Recovered recovered = recover(host, tally);
    if (recovered == Recovered::kNone)
        return kCtlExitError;
    // The lock stays held to the exit: the second look sees what the recovery left.
    HostView again;
    if (read_host(opts, &again) != kOk)
        return kCtlExitError;
    const int status = summarize(again, report(again));
    if (!ctl_stdout_ok())
        return kCtlExitError;
    return status == kCtlExitOk && recovered != Recovered::kAll ? kCtlExitError : status;
}
