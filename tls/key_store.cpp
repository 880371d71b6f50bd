// The host's key store: the sealing key and AES-256-GCM seals under it.
#include "tls/key_store.hpp"

#include <cerrno>
#include <climits>
#include <memory>

#include <openssl/evp.h>
#include <openssl/rand.h>

#include "base/paths.hpp"
#include "base/secure_buffer.hpp"
#include "log/driver_log.hpp"
#include "tls/private_files.hpp"

namespace
{

using SealKey = SecureBuffer<kSealKeyLen>;

struct CipherCtxFree {
    void operator()(EVP_CIPHER_CTX *c) const { EVP_CIPHER_CTX_free(c); }
};
using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, CipherCtxFree>;

// Reads the host key; -ENOKEY when there is none.
int read_key(SealKey &key)
{
    int ret = private_dir(sys_path(kKeyStoreDir));
    if (ret != 0)
        return ret;
    ret = read_private_file(sys_path(kKeyStoreKeyFile), key.data(), key.size());
    if (ret == -ENOENT)
        return -ENOKEY;
    if (ret != 0) {
        key.wipe();
        DRV_ERR("read seal key failed, ret:%d", ret);
    }
    return ret;
}

// Reads the host key, making it first when there is none. A key made at the same time by
// another run wins: the file is created, never replaced.
int read_or_make_key(SealKey &key)
{
    int ret = read_key(key);
    if (ret != -ENOKEY)
        return ret;
    if (RAND_priv_bytes(key.data(), static_cast<int>(key.size())) != 1) {
        DRV_ERR("RAND_priv_bytes for the seal key failed");
        return -EIO;
    }
    ret = create_private_file(sys_path(kKeyStoreKeyFile), key.data(), key.size());
    key.wipe();
    if (ret != 0 && ret != -EEXIST) {
        DRV_ERR("create seal key failed, ret:%d", ret);
        return ret;
    }
    return read_key(key);
}

bool aad_fits(size_t aad_len)
{
    return aad_len <= static_cast<size_t>(INT_MAX);
}

} // namespace

int ks_seal(const uint8_t *plain, uint32_t len, const uint8_t *aad, size_t aad_len,
            SealedSecret *out)
{
    if (plain == nullptr || out == nullptr || len == 0 || len > kSealMaxLen ||
        (aad == nullptr && aad_len != 0) || !aad_fits(aad_len))
        return -EINVAL;
    *out = SealedSecret{};
    SealKey key;
    int ret = read_or_make_key(key);
    if (ret != 0)
        return ret;
    if (RAND_bytes(out->iv, sizeof(out->iv)) != 1)
        return -EIO;
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    int n = 0;
    int fin = 0;
    if (!ctx || EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, kSealIvLen, nullptr) != 1 ||
        EVP_EncryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), out->iv) != 1 ||
        (aad_len > 0 &&
         EVP_EncryptUpdate(ctx.get(), nullptr, &n, aad, static_cast<int>(aad_len)) != 1) ||
        EVP_EncryptUpdate(ctx.get(), out->ct, &n, plain, static_cast<int>(len)) != 1 ||
        EVP_EncryptFinal_ex(ctx.get(), out->ct + n, &fin) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, kSealTagLen, out->tag) != 1) {
        DRV_ERR("seal failed");
        *out = SealedSecret{};
        return -EIO;
    }
    out->len = static_cast<uint32_t>(n + fin);
    return 0;
}

int ks_open(const SealedSecret &in, const uint8_t *aad, size_t aad_len, uint8_t *plain, size_t cap,
            uint32_t *len)
{
    if (plain == nullptr || len == nullptr || (aad == nullptr && aad_len != 0) ||
        !aad_fits(aad_len) || cap < kSealMaxLen)
        return -EINVAL;
    *len = 0;
    if (in.len == 0 || in.len > kSealMaxLen)
        return -EBADMSG;
    SealKey key;
    int ret = read_key(key);
    if (ret != 0)
        return ret;
    // The text is opened into a buffer of our own and handed out only once its tag holds.
    SecureBuffer<kSealMaxLen> text;
    SealedSecret copy = in; // the tag is set through a non-const pointer
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    int n = 0;
    int fin = 0;
    if (!ctx || EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, kSealIvLen, nullptr) != 1 ||
        EVP_DecryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), copy.iv) != 1 ||
        (aad_len > 0 &&
         EVP_DecryptUpdate(ctx.get(), nullptr, &n, aad, static_cast<int>(aad_len)) != 1) ||
        EVP_DecryptUpdate(ctx.get(), text.data(), &n, copy.ct, static_cast<int>(copy.len)) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, kSealTagLen, copy.tag) != 1) {
        return -EIO;
    }
    if (EVP_DecryptFinal_ex(ctx.get(), text.data() + n, &fin) != 1) {
        DRV_ERR("sealed secret does not authenticate");
        return -EBADMSG;
    }
    const uint32_t total = static_cast<uint32_t>(n + fin);
    for (uint32_t i = 0; i < total; ++i)
        plain[i] = text.data()[i];
    *len = total;
    return 0;
}
