// The setting lock: runs that change settings take turns, from their first device call to their
// last save, so that device and saved file end with the value of the same run.
#pragma once

#include <cstdint>

/// The lock file, under the test root in a test build.
inline constexpr const char *kSettingLockPath = "/run/vorn_tool.lock";

/// How long a run waits for the lock before it gives up.
inline constexpr int kSettingLockWaitMs = 10000;

/// Takes the setting lock for the rest of the process (the descriptor stays open); a process
/// that holds it already takes it again at once. Waits at
/// most kSettingLockWaitMs; then prints one line naming the lock and its holder on standard
/// error and returns kErrBusy. A lock file that cannot be opened (a run without the right to
/// /run, which cannot save settings either) is logged and the run goes on unlocked: 0.
[[nodiscard]] int32_t take_setting_lock();
