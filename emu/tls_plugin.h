// The C entry points of the emulator's TLS plugin (libkopa_emu_tls.so), which holds the device
// side of the TLS suite and the only use of OpenSSL in the emulated driver. The device-management
// library loads it on the first TLS operation, so that no other call pays for OpenSSL.
#pragma once

#include <cstdint>

#include "emu/state.hpp"

extern "C" {

/// envelope_public_key() of emu/tls_envelope.hpp with the state directory as a C string.
using kopa_emu_tls_public_key_fn = int32_t (*)(const char *dir, uint32_t logic_id,
                                               kopa_envelope_pub_key *out);
/// install_tls_cfg() of emu/tls_envelope.hpp with the state directory as a C string.
using kopa_emu_tls_install_fn = int32_t (*)(const char *dir, uint32_t logic_id, const uint8_t *blob,
                                            kopa_emu::DeviceState *dev);
}

inline constexpr const char *kKopaEmuTlsPublicKeySym = "kopa_emu_tls_public_key";
inline constexpr const char *kKopaEmuTlsInstallSym = "kopa_emu_tls_install";
