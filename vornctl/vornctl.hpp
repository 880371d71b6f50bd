// The subcommands of vornctl, their options and their exit statuses.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

inline constexpr int kCtlExitOk = 0;
/// verify: a saved item differs on its device; lint: a finding at warning or above.
inline constexpr int kCtlExitFindings = 1;
/// A wrong command line, a host or file that could not be read, a failed write or recovery.
inline constexpr int kCtlExitError = 2;

struct CtlOptions {
    std::optional<uint32_t> phy_id; ///< -i: only this device (physical id)
    bool json = false;              ///< show --json
    bool recover = false;           ///< verify --recover
    std::string output;             ///< metrics --output
    std::string file;               ///< apply: the document of desired settings ("-": stdin)
    bool check = false;             ///< apply --check
    bool no_rollback = false;       ///< apply --no-rollback
};

/// Every device (or one) with every setting, live beside saved: a table, or JSON.
[[nodiscard]] int ctl_show(const CtlOptions &opts);
/// Saved against live; one line per difference. 0 agree, 1 drift, 2 not everything verified.
[[nodiscard]] int ctl_verify(const CtlOptions &opts);
/// RoCE consistency across the host and hazards of the configuration file.
[[nodiscard]] int ctl_lint(const CtlOptions &opts);
/// The node_exporter textfile of the host, written atomically.
[[nodiscard]] int ctl_metrics(const CtlOptions &opts);

/// The desired settings of FILE applied as one transaction, undone when a change fails (unless
/// --no-rollback); --check prints the changes only. 0 applied (or nothing to change), 2 refused
/// or failed.
[[nodiscard]] int ctl_apply(const CtlOptions &opts);

/// Whether standard output took everything written to it; prints the failure on standard
/// error when not.
[[nodiscard]] bool ctl_stdout_ok();
