// The TLS configuration record (TLS_CFG_SIZE bytes, little-endian fields at fixed offsets) as the
// tool fills it for the device or for the host store, and the limits of its items.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/secure_buffer.hpp"
#include "device/ops.hpp"

/// The record lives in one secret buffer: it carries the pass phrase (plain for the host store,
/// sealed for the device) and is wiped on every way out.
using TlsRecord = SecureBuffer<TLS_CFG_SIZE>;

/// Item numbers of a "-s path" command: certificates 0 (pub) to 14 (ca14), the key, the CRL and
/// the host flag.
inline constexpr uint32_t kTlsItemPub = 0;
inline constexpr uint32_t kTlsItemCaMax = 14;
inline constexpr uint32_t kTlsItemPri = 15;
inline constexpr uint32_t kTlsItemCrl = 16;
inline constexpr uint32_t kTlsItemHost = 17;
inline constexpr uint32_t kTlsItemCount = 18;

/// AES-GCM initialisation vector and tag of the sealed pass phrase, and the symmetric key.
inline constexpr size_t kTlsIvLen = 16;
inline constexpr size_t kTlsTagLen = 16;
inline constexpr size_t kTlsSymmKeyLen = 32;

inline uint32_t tls_get_u32(const uint8_t *blob, size_t off)
{
    uint32_t v = 0;
    memcpy(&v, blob + off, sizeof(v));
    return v;
}

inline void tls_put_u32(uint8_t *blob, size_t off, uint32_t v)
{
    memcpy(blob + off, &v, sizeof(v));
}

/// Offset and capacity of the slot of a key, certificate or CRL item.
inline size_t tls_slot_offset(uint32_t item)
{
    if (item == kTlsItemPri)
        return TLS_CFG_OFF_KEY;
    if (item == kTlsItemCrl)
        return TLS_CFG_OFF_CRL;
    return TLS_CFG_OFF_CERT + static_cast<size_t>(TLS_CFG_CERT_MAX) * item;
}

inline size_t tls_slot_size(uint32_t item)
{
    if (item == kTlsItemPri)
        return TLS_CFG_KEY_MAX;
    if (item == kTlsItemCrl)
        return TLS_CFG_CRL_MAX;
    return TLS_CFG_CERT_MAX;
}

/// Offset of the length field of an item.
inline size_t tls_len_offset(uint32_t item)
{
    if (item == kTlsItemPri)
        return TLS_CFG_OFF_KEY_LEN;
    if (item == kTlsItemCrl)
        return TLS_CFG_OFF_CRL_LEN;
    return TLS_CFG_OFF_CERT_LEN + 4u * item;
}
