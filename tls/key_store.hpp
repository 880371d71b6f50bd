// The host's key store: secrets kept at rest on the host (the pass phrase of the host TLS suite)
// are sealed with AES-256-GCM under one host-local 32-byte key. The key lives in a file of its
// own, readable by the tool's user alone (root), made from RAND_priv_bytes on first use; it is
// read only for a seal or an open and wiped at once. A seal carries a tag over the secret and
// over caller-given data (the rest of the record it belongs to), so that a changed byte of
// either is found out instead of opening to garbage.
#pragma once

#include <cstddef>
#include <cstdint>

/// The key store's directory (mode 0700) and key file (mode 0600, exactly 32 raw bytes).
inline constexpr const char *kKeyStoreDir = "/var/lib/vorn_tool/keys";
inline constexpr const char *kKeyStoreKeyFile = "/var/lib/vorn_tool/keys/seal.key";

inline constexpr size_t kSealKeyLen = 32;
inline constexpr size_t kSealIvLen = 12;
inline constexpr size_t kSealTagLen = 16;
inline constexpr size_t kSealMaxLen = 16; ///< longest secret a seal holds

/// A sealed secret as stored (48 bytes, host byte order).
struct SealedSecret {
    uint8_t iv[kSealIvLen];
    uint8_t tag[kSealTagLen];
    uint32_t len; ///< ciphertext bytes used
    uint8_t ct[kSealMaxLen];
};
static_assert(sizeof(SealedSecret) == 48);

/// Seals `len` (1..16) bytes of `plain`, bound to `aad_len` bytes of `aad`, under the host key,
/// which is made on first use. 0, or a negated errno (-EACCES when the key file or its directory
/// is not private, -EBADMSG when the key file is not a key).
[[nodiscard]] int ks_seal(const uint8_t *plain, uint32_t len, const uint8_t *aad, size_t aad_len,
                          SealedSecret *out);

/// Opens `in` with the host key into `plain` (`cap` bytes; `*len` gets the length). -EBADMSG
/// when the seal, the bound data or the key does not authenticate (nothing is written to
/// `plain` then), -ENOKEY when the host has no key, or another negated errno.
[[nodiscard]] int ks_open(const SealedSecret &in, const uint8_t *aad, size_t aad_len,
                          uint8_t *plain, size_t cap, uint32_t *len);
