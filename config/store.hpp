// The configuration store: key=value lines of /etc/vorn.conf under an exclusive file lock.
#pragma once

#include <cstdint>
#include <cstdio>

#include "base/result.hpp"

// Store result codes are the tool's own (base/result.hpp): kErrSysCopy (a copy, the size limit,
// memory), kErrSysNull (a path too long or not resolvable), kErrSysWrite, kErrSysRead and
// kErrSysDelete (the file cannot be opened, locked, positioned or written), kErrSysNotFound.

inline constexpr unsigned kCfgLineSize = 384;        ///< line buffer; longer lines in pieces
inline constexpr unsigned kCfgFileMax = 1024000;     ///< whole file, terminating zero included

/// Path of the configuration file ("/etc/vorn.conf", under the test root in a test build).
const char *cfg_conf_path();

/// Reads the value of "<item>_<phy_id>" (first line that begins with the key) into value_out.
[[nodiscard]] int cfg_read_conf(uint32_t phy_id, const char *item, char *value_out,
                                uint32_t value_size);
/// Replaces (or adds) the line "<item>_<phy_id>=<value>"; the line moves to the end.
[[nodiscard]] int cfg_write_conf(uint32_t phy_id, const char *item, const char *value);
/// Removes every line that contains "<item>_<phy_id>".
[[nodiscard]] int cfg_del_conf(uint32_t phy_id, const char *item);

[[nodiscard]] int cfg_inner_read_conf(const char *path, const char *key, char *value_out,
                                      uint32_t value_size);
[[nodiscard]] int cfg_inner_write_conf(const char *path, const char *key, const char *value);
[[nodiscard]] int cfg_inner_del_conf(const char *path, const char *key);

/// The same on a stream that the caller opened and locked (and positioned at the start).
[[nodiscard]] int cfg_inner_read_conf_byfd(FILE *stream, const char *key, char *value_out,
                                           uint32_t value_size);
[[nodiscard]] int cfg_inner_write_conf_byfd(FILE *stream, const char *key, const char *value,
                                            char *buffer, uint32_t buffer_size);
[[nodiscard]] int cfg_inner_del_conf_byfd(FILE *stream, const char *key);
