// The subcommands of vornctl, their options and their exit statuses.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct HostView;

// Exit statuses: a contract that scripts, the recovery unit and monitors rely on.
inline constexpr int kCtlExitOk = 0;
/// verify: a saved item differs on its device; lint: a finding at warning or above.
inline constexpr int kCtlExitFindings = 1;
/// A wrong command line, and nothing else.
inline constexpr int kCtlExitUsage = 2;
/// A device the file saves settings for is absent or could not be verified (not healthy, a
/// value not answered), or the devices cannot be listed. Wins over kCtlExitFindings.
inline constexpr int kCtlExitDevices = 3;
/// Another failure: the file unreadable, the output not written, the setting lock busy, a
/// recovery failed.
inline constexpr int kCtlExitFailure = 4;

struct CtlOptions {
    std::optional<uint32_t> phy_id; ///< -i: only this device (physical id)
    bool json = false;              ///< show, verify, lint --json
    bool brief = false;             ///< show --brief
    bool recover = false;           ///< verify --recover
    std::string output;             ///< metrics --output
    std::string file;               ///< apply: the document of desired settings ("-": stdin)
    bool check = false;             ///< apply --check
    bool no_rollback = false;       ///< apply --no-rollback
};

/// Every device (or one) with every setting, live beside saved: a table, a line per device, or
/// JSON.
[[nodiscard]] int ctl_show(const CtlOptions &opts);
/// Saved against live; one line per difference.
[[nodiscard]] int ctl_verify(const CtlOptions &opts);
/// RoCE consistency across the host and hazards of the configuration file.
[[nodiscard]] int ctl_lint(const CtlOptions &opts);
/// The node_exporter textfile of the host, written atomically.
[[nodiscard]] int ctl_metrics(const CtlOptions &opts);

/// The desired settings of a document applied as one transaction, undone when a change fails
/// (unless --no-rollback); --check prints the changes only.
[[nodiscard]] int ctl_apply(const CtlOptions &opts);

/// Reads the host (every device, or `only`), saying on standard error why it could not:
/// kCtlExitOk, or kCtlExitDevices when the devices cannot be listed or none has the id `only`.
[[nodiscard]] int ctl_load_host(std::optional<uint32_t> only, HostView *host);

/// Whether standard output took everything written to it; prints the failure on standard
/// error when not.
[[nodiscard]] bool ctl_stdout_ok();
