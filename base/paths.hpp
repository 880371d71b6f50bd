// The absolute paths of the system, and the test root that a test build puts in front of them.
#pragma once

#include <string>

inline constexpr const char *kVornConfPath = "/etc/vorn.conf";
inline constexpr const char *kRunLogRootDir = "/var/log/vorn_tool";
inline constexpr const char *kHomeDirFmt = "/home/%s";
inline constexpr const char *kWeakDictRoot = "/etc/vorn_weak_dict.conf";
inline constexpr const char *kWeakDictUserFmt = "/home/%s/vorn_weak_dict.conf";

/// The path under which the tool really opens the absolute path `abs`. In the production build
/// it is `abs` itself. A build configured with VORN_TEST_PATHS=ON puts the directory named by
/// VORN_TEST_ROOT (default /tmp/vorn-test-root) in front, so that tests and the demo never
/// touch the host's own files.
std::string sys_path(const std::string &abs);
