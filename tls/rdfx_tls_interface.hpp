// The host's saved TLS configuration store: the suite that "-tls ... host" installs, one per
// logical id (the front-end hands 0 for every host-mode run, so a host holds one suite).
//
// Layout: a directory of its own, kTlsStoreDir (0700), holding "suite-<id>.bin" (0600) per id
// and the lock file "store.lock" (0600). Every operation takes an exclusive non-blocking flock
// on the lock file and answers -16 when another run holds it. A suite file is the record as the
// tool built it, with its pass-phrase field zeroed, followed by the switch, the alarm threshold
// and the pass phrase sealed by the key store (tls/key_store.hpp) and bound to the identity and
// the record, so that a changed byte of either is found out. Files are replaced, never rewritten
// in place (tls/private_files.hpp).
//
// A suite is stored only when it holds: the private key opens with the pass phrase and matches
// the device certificate, the certificates form the chain the given CA levels name, none of
// them and no CRL is out of its validity period, and the CRL (of the device certificate's
// issuer) does not revoke the device certificate.
#pragma once

#include <cstdint>
#include <string>

#include "device/ops.hpp"

inline constexpr const char *kTlsStoreDir = "/var/lib/vorn_tool/tls";
inline constexpr uint32_t kTlsStoreDefaultAlarm = 30; ///< days, as on a device
inline constexpr uint32_t kTlsAlarmMin = 7;
inline constexpr uint32_t kTlsAlarmMax = 180;

/// Results of the store besides 0 and negated errno values.
inline constexpr int kRdfxBusy = -16;       ///< another run holds the store
inline constexpr int kRdfxNoCerts = -2;     ///< no suite is stored for the id
inline constexpr int kRdfxIllegal = -100;   ///< the key does not open with the pass phrase, or
                                            ///< does not match the device certificate
inline constexpr int kRdfxChain = -129;     ///< -EKEYREJECTED: chain, validity or CRL check failed
inline constexpr int kRdfxSealBroken = -74; ///< -EBADMSG: the stored suite does not authenticate
inline constexpr int kRdfxNoSealKey = -126; ///< -ENOKEY: the key store has lost its key

/// Path of the suite file of `logic_id` (under the test root in a test build).
[[nodiscard]] std::string rdfx_tls_suite_path(uint32_t logic_id);

/// Checks and stores the record `blob` of `len` (TLS_CFG_SIZE) bytes, whose host flag is 1 and
/// whose pass phrase is in clear. The switch and alarm threshold of a suite it replaces are
/// kept. 0, kRdfxBusy, kRdfxIllegal, kRdfxChain, or a negated errno.
[[nodiscard]] int rdfx_set_tls_cfg(uint32_t logic_id, const uint8_t *blob, uint32_t len);

/// Fills `count` (at most 16) certificate information records built from the stored suite:
/// position 0 the device certificate, 1..14 the CA levels, 15 the CRL; items not stored stay
/// zero. 0, kRdfxNoCerts, kRdfxBusy, kRdfxSealBroken, kRdfxNoSealKey, or a negated errno.
[[nodiscard]] int rdfx_get_tls_cfg(uint32_t logic_id, kopa_tls_cert_info *records, uint32_t count);

/// Removes the stored suite (0 also when there is none). 0, kRdfxBusy or a negated errno.
[[nodiscard]] int rdfx_clear_tls_cfg(uint32_t logic_id);

/// Sets the switch (0 or 1). Switching on opens the key with the sealed pass phrase first, so
/// that a suite that cannot be used is never switched on. 0, kRdfxNoCerts, kRdfxBusy,
/// kRdfxSealBroken, kRdfxNoSealKey, kRdfxIllegal, or a negated errno.
[[nodiscard]] int rdfx_set_tls_enable(uint32_t logic_id, uint32_t value);

/// Sets the alarm threshold (7..180 days). The results of rdfx_get_tls_cfg, and -22.
[[nodiscard]] int rdfx_set_tls_alarm(uint32_t logic_id, uint32_t days);
