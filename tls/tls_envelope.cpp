// The digital envelope of the pass phrase sent to a device.
#include "tls/tls_envelope.hpp"

#include <memory>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include "base/result.hpp"
#include "log/driver_log.hpp"

namespace
{

struct BioFree {
    void operator()(BIO *b) const { BIO_free(b); }
};
struct PkeyFree {
    void operator()(EVP_PKEY *k) const { EVP_PKEY_free(k); }
};
struct PkeyCtxFree {
    void operator()(EVP_PKEY_CTX *c) const { EVP_PKEY_CTX_free(c); }
};
struct CipherCtxFree {
    void operator()(EVP_CIPHER_CTX *c) const { EVP_CIPHER_CTX_free(c); }
};

using SymmKey = SecureBuffer<kTlsSymmKeyLen>;

// AES-256-GCM of the pass phrase: ciphertext at the password field, its length, the tag.
bool seal_pwd(uint8_t *blob, const SymmKey &key, const uint8_t *pwd, uint32_t len)
{
    std::unique_ptr<EVP_CIPHER_CTX, CipherCtxFree> ctx(EVP_CIPHER_CTX_new());
    SecureBuffer<TLS_CFG_PWD_MAX> ct;
    int n = 0;
    int fin = 0;
    if (!ctx || EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kTlsIvLen),
                            nullptr) != 1 ||
        EVP_EncryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), blob + TLS_CFG_OFF_IV) != 1 ||
        EVP_EncryptUpdate(ctx.get(), ct.data(), &n, pwd, static_cast<int>(len)) != 1 ||
        EVP_EncryptFinal_ex(ctx.get(), ct.data() + n, &fin) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTlsTagLen),
                            blob + TLS_CFG_OFF_TAG) != 1) {
        DRV_ERR("crypto_encrypt_with_aes_gcm failed");
        return false;
    }
    const auto total = static_cast<uint32_t>(n + fin);
    memcpy(blob + TLS_CFG_OFF_PWD, ct.data(), total);
    tls_put_u32(blob, TLS_CFG_OFF_PWD_ENC_LEN, total);
    return true;
}

// RSA-OAEP (SHA-1) of the symmetric key under the device's envelope public key.
bool seal_key(uint8_t *blob, const SymmKey &key, const char *pub_pem, uint32_t pub_len)
{
    tls_put_u32(blob, TLS_CFG_OFF_SYMM_LEN, TLS_CFG_SYMM_KEY_MAX);
    std::unique_ptr<BIO, BioFree> bio(BIO_new_mem_buf(pub_pem, static_cast<int>(pub_len)));
    std::unique_ptr<EVP_PKEY, PkeyFree> pub(
        bio ? PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!pub) {
        DRV_ERR("PEM_read_bio_PUBKEY failed");
        return false;
    }
    std::unique_ptr<EVP_PKEY_CTX, PkeyCtxFree> ctx(EVP_PKEY_CTX_new(pub.get(), nullptr));
    size_t enc_len = TLS_CFG_SYMM_KEY_MAX;
    const int ok = ctx && EVP_PKEY_encrypt_init(ctx.get()) == 1 &&
                   EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_OAEP_PADDING) == 1 &&
                   EVP_PKEY_CTX_set_rsa_oaep_md(ctx.get(), EVP_sha1()) == 1 &&
                   EVP_PKEY_CTX_set_rsa_mgf1_md(ctx.get(), EVP_sha1()) == 1 &&
                   EVP_PKEY_encrypt(ctx.get(), blob + TLS_CFG_OFF_SYMM_KEY, &enc_len, key.data(),
                                    key.size()) == 1;
    if (!ok || enc_len == 0 || enc_len > TLS_CFG_SYMM_KEY_MAX) {
        DRV_ERR("RSA_public_encrypt failed, enc_len:%d, symm_enc_ky_len:%u",
                ok ? static_cast<int>(enc_len) : -1, TLS_CFG_SYMM_KEY_MAX);
        return false;
    }
    tls_put_u32(blob, TLS_CFG_OFF_SYMM_LEN, static_cast<uint32_t>(enc_len));
    return true;
}

void clear_envelope(uint8_t *blob)
{
    OPENSSL_cleanse(blob + TLS_CFG_OFF_IV, kTlsIvLen + kTlsTagLen);
    OPENSSL_cleanse(blob + TLS_CFG_OFF_PWD, TLS_CFG_PWD_MAX + 4 + TLS_CFG_SYMM_KEY_MAX);
    tls_put_u32(blob, TLS_CFG_OFF_PWD_ENC_LEN, 0);
}

} // namespace

int32_t tool_enc_tls_pwd(TlsRecord &blob, const uint8_t *pwd, uint32_t len, const char *pub_pem,
                         uint32_t pub_len)
{
    if (pwd == nullptr || len == 0 || len > TLS_CFG_PWD_MAX || pub_pem == nullptr || pub_len == 0 ||
        pub_len > KOPA_ENVELOPE_KEY_MAX)
        return kErrSysCopy;
    uint8_t *rec = blob.data();
    SymmKey key;
    if (RAND_priv_bytes(key.data(), static_cast<int>(key.size())) != 1 ||
        RAND_priv_bytes(rec + TLS_CFG_OFF_IV, static_cast<int>(kTlsIvLen)) != 1) {
        DRV_ERR("RAND_priv_bytes failed");
        clear_envelope(rec);
        return kErrSysCopy;
    }
    if (!seal_pwd(rec, key, pwd, len) || !seal_key(rec, key, pub_pem, pub_len)) {
        clear_envelope(rec);
        return kErrSysCopy;
    }
    return kOk;
}
