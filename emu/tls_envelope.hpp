// The device side of the TLS suite: the envelope key pair and the check of a configuration record.
#pragma once

#include <cstdint>
#include <string>

#include "emu/state.hpp"

namespace kopa_emu
{

/// Fills `out` with the PEM public key of the device's envelope key pair, making the pair (RSA
/// 2048) and keeping it under the state directory on first use. Returns 0 or -5 on failure.
int32_t envelope_public_key(const std::string &dir, uint32_t logic_id, kopa_envelope_pub_key &out);

/// Opens the sealed pass phrase of a TLS_CFG_SIZE-byte record, checks key, certificate and chain
/// and, when they hold, stores the certificate information records in `dev`. Returns 0, -100 when
/// the suite is illegal (sealing, pass phrase, key/certificate mismatch), -1 when the chain or the
/// revocation list does not verify.
int32_t install_tls_cfg(const std::string &dir, uint32_t logic_id, const uint8_t *blob,
                        DeviceState &dev);

} // namespace kopa_emu
