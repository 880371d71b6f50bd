// The -tls command: installs, lists and clears the TLS certificate suite of a device or of the
// host store, switches TLS on or off and sets the expiry alarm threshold.
#pragma once

#include <climits>
#include <cstdint>

#include "cmdline/cmd.hpp"
#include "device/ops.hpp"
#include "tls/tls_record.hpp"

inline constexpr uint32_t kTlsPathBufLen = PATH_MAX + 1; ///< 4097
inline constexpr int kTlsCfgArgcMin = 6;                 ///< path, directory, key, certificate
inline constexpr int kTlsCfgArgcMax = 37; ///< ... all 14 CA levels, the CRL and "host"

/// The parse of one "-s path" command line, zero-filled on creation.
struct ToolTlsRec {
    int32_t argc; ///< words from "path" on
    char **argv;  ///< borrowed from the command line
    uint32_t index;
    uint32_t item_limit; ///< kTlsItemCount
    uint32_t cert_count; ///< pub and each CA level given
    uint32_t host;
    uint32_t flags[kTlsItemCount]; ///< 1 for each item given
    char dir[kTlsPathBufLen];      ///< the resolved directory
    char files[kTlsItemCount][kTlsPathBufLen];
};

/// The handler of the -tls row: "-g", "-s" or "-c" and their words.
[[nodiscard]] int32_t tool_tls_cmd_execute(int argc, char **argv, cmd_parse_info *info);

/// "-s": the words after it, "enable", "alarm" or "path" first.
[[nodiscard]] int32_t tool_set_tls(int argc, char **argv, uint32_t logic_id);

/// "-s path ...": the words from "path" on.
[[nodiscard]] int32_t tool_set_tls_cfg(int argc, char **argv, uint32_t logic_id);

/// The grammar of the words of `rec` (argc and argv set): fills the resolved directory, the file
/// names, their presence flags, the certificate count and the host flag.
[[nodiscard]] int32_t tool_pars_tls_cfg_words(ToolTlsRec &rec);

/// The consistency of the items given (key with certificate, CA levels in one unbroken run).
[[nodiscard]] int32_t tool_check_tls_cfg(const ToolTlsRec &rec);

/// 0 when a file of `size` bytes fits item `item`, else 0x2019 (0x3002 for an unknown item).
[[nodiscard]] int32_t tool_read_file_check_size(uint32_t item, long size);

/// Reads the file at `path` into `buf`, the slot of `item`, after checking its size;
/// `*len` gets its length. The text is terminated when it leaves room in its slot. 0, 0x2002
/// for a path that does not resolve, 0x2019, or 0x3005.
[[nodiscard]] int32_t tool_read_file(const char *path, uint8_t *buf, uint32_t *len, uint32_t item);

/// Reads the files of `rec` into `blob` in their order (key, with the pass-phrase step, then
/// certificates 0 to 14, then the CRL).
[[nodiscard]] int32_t tool_get_tls_cfg_from_file(const ToolTlsRec &rec, TlsRecord &blob,
                                                 uint32_t logic_id);

/// The name of the item at `pos` of a query: "pub cert", "ca<n> cert" or "crl".
const char *tool_get_cert_type(uint32_t pos, char (&name)[10]);

/// 1 when one of the records is issued by the factory's CA, else 0.
[[nodiscard]] uint32_t tool_tls_cert_is_preconfig(const kopa_tls_cert_info *records,
                                                  uint32_t count);

/// Prints the expiry status of `record` at `now`: 0 (normal) or 1 (near expiration) on standard
/// output, 2 (has expired) on standard error with result 0x3009. Other failures are 0x3001.
[[nodiscard]] int32_t tool_check_cert_expired(const kopa_tls_cert_info &record, uint32_t index,
                                              uint32_t logic_id);

/// Prints the records of a query: the switch, preset and alarm line, then each stored item with
/// its issuer, validity and expiry status.
[[nodiscard]] int32_t tool_show_tls_cert_info(uint32_t logic_id, const kopa_tls_cert_info *records,
                                              uint32_t count);
