// The recovery of one device's saved settings, for programs that run it in-process rather than
// through the -cfg command.
#pragma once

#include <cstdint>

#include "commands/setting.hpp"

class ConfView;

/// Replays every saved item of `dev` onto it, in the replay order, keeping the recovery status
/// on the device (START, then FAIL at the first failing item or SUCCESS). The caller holds the
/// setting lock (cmdline/setting_lock.hpp), as a run of -cfg recovery does. 0; 12291 when the
/// configuration file is missing (the status is then not touched); or the first failing item's
/// code.
[[nodiscard]] int32_t tool_cfg_recover_device(DevRef dev);
/// As above, reading the saved items from `conf` (one view of the file for every device of a run).
[[nodiscard]] int32_t tool_cfg_recover_device(DevRef dev, const ConfView &conf);
