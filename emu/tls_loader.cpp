// The firmware's TLS operations, forwarded to the TLS plugin, which is loaded on first use.
#include <dlfcn.h>
#include <limits.h>

#include <cstdio>
#include <cstring>

#include "emu/tls_envelope.hpp"
#include "emu/tls_plugin.h"

namespace kopa_emu
{
namespace
{

constexpr int32_t kIoError = -5;

struct Plugin {
    kopa_emu_tls_public_key_fn public_key = nullptr;
    kopa_emu_tls_install_fn install = nullptr;
};

/// The plugin beside the library that holds this code (the build tree keeps them together, and
/// so does an installation that moves both).
void *open_beside_this_library()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&open_beside_this_library), &info) == 0 ||
        info.dli_fname == nullptr) {
        return nullptr;
    }
    const char *slash = strrchr(info.dli_fname, '/');
    if (slash == nullptr)
        return nullptr;
    char path[PATH_MAX];
    int n = snprintf(path, sizeof path, "%.*s/%s", static_cast<int>(slash - info.dli_fname),
                     info.dli_fname, KOPA_EMU_TLS_PLUGIN_NAME);
    if (n < 0 || static_cast<size_t>(n) >= sizeof path)
        return nullptr;
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

Plugin load_plugin()
{
    Plugin p;
    // Beside the library first, so that an installed emulator never loads a plugin from a
    // build tree; the build path serves the tests, which link the firmware into themselves.
    void *handle = open_beside_this_library();
    if (handle == nullptr)
        handle = dlopen(KOPA_EMU_TLS_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        fprintf(stderr, "kopa-emu: TLS plugin %s not loadable: %s\n", KOPA_EMU_TLS_PLUGIN_NAME,
                dlerror());
        return p;
    }
    // Kept loaded for the life of the process: OpenSSL does not like being unloaded.
    p.public_key =
        reinterpret_cast<kopa_emu_tls_public_key_fn>(dlsym(handle, kKopaEmuTlsPublicKeySym));
    p.install = reinterpret_cast<kopa_emu_tls_install_fn>(dlsym(handle, kKopaEmuTlsInstallSym));
    return p;
}

const Plugin &plugin()
{
    static const Plugin p = load_plugin();
    return p;
}

} // namespace

int32_t envelope_public_key(const std::string &dir, uint32_t logic_id, kopa_envelope_pub_key &out)
{
    const Plugin &p = plugin();
    return p.public_key != nullptr ? p.public_key(dir.c_str(), logic_id, &out) : kIoError;
}

int32_t install_tls_cfg(const std::string &dir, uint32_t logic_id, const uint8_t *blob,
                        DeviceState &dev)
{
    const Plugin &p = plugin();
    return p.install != nullptr ? p.install(dir.c_str(), logic_id, blob, &dev) : kIoError;
}

} // namespace kopa_emu
