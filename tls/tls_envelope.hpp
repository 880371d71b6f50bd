// The digital envelope of the pass phrase sent to a device: a fresh AES-256-GCM key seals the
// pass phrase, and the device's envelope public key (RSA-OAEP, SHA-1) seals that key.
#pragma once

#include <cstdint>

#include "tls/tls_record.hpp"

/// Draws the symmetric key and the IV (RAND_priv_bytes), seals `len` (1..16) bytes of `pwd`
/// into the record (IV, tag, ciphertext and its length) and the key under `pub_pem` (a PEM
/// "BEGIN PUBLIC KEY" block of `pub_len` bytes) into the envelope field and its length. The key
/// is wiped before returning. 0, or 0x3001 when a step fails (the record's envelope fields are
/// then zero).
[[nodiscard]] int32_t tool_enc_tls_pwd(TlsRecord &blob, const uint8_t *pwd, uint32_t len,
                                       const char *pub_pem, uint32_t pub_len);
