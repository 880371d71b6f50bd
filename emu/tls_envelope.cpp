// The device side of the TLS suite: envelope key pair, opening the sealed pass phrase, key and
// certificate checks, chain verification and the certificate information records.
#include "emu/tls_envelope.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

namespace kopa_emu
{
namespace
{

constexpr int32_t kIllegal = KOPA_RESULT_TLS_ILLEGAL;
constexpr int32_t kChainFailed = -1;
constexpr int32_t kIoError = -5;
constexpr size_t kSymmKeyLen = 32;
constexpr size_t kIvLen = 16;
constexpr size_t kTagLen = 16;

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
struct X509Free {
    void operator()(X509 *x) const { X509_free(x); }
};
struct CrlFree {
    void operator()(X509_CRL *c) const { X509_CRL_free(c); }
};
struct StoreFree {
    void operator()(X509_STORE *s) const { X509_STORE_free(s); }
};
struct StoreCtxFree {
    void operator()(X509_STORE_CTX *c) const { X509_STORE_CTX_free(c); }
};
using Bio = std::unique_ptr<BIO, BioFree>;
using Pkey = std::unique_ptr<EVP_PKEY, PkeyFree>;
using Cert = std::unique_ptr<X509, X509Free>;
using Crl = std::unique_ptr<X509_CRL, CrlFree>;

/// A fixed buffer for secrets, wiped when it goes.
template <size_t N> struct Secret {
    unsigned char data[N] = {};
    Secret() = default;
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;
    ~Secret() { OPENSSL_cleanse(data, N); }
};

uint32_t u32_at(const uint8_t *blob, size_t off)
{
    uint32_t v = 0;
    memcpy(&v, blob + off, sizeof v);
    return v;
}

Pkey load_envelope_key(const std::string &path)
{
    Bio bio(BIO_new_file(path.c_str(), "r"));
    if (!bio)
        return nullptr;
    return Pkey(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, const_cast<char *>("")));
}

/// Writes a new key pair to `path` (mode 0600) and returns it.
Pkey make_envelope_key(const std::string &path)
{
    Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(2048)));
    if (!key)
        return nullptr;
    Bio mem(BIO_new(BIO_s_mem()));
    if (!mem || PEM_write_bio_PrivateKey(mem.get(), key.get(), nullptr, nullptr, 0, nullptr,
                                         nullptr) != 1) {
        return nullptr;
    }
    char *pem = nullptr;
    long len = BIO_get_mem_data(mem.get(), &pem);
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return nullptr;
    bool ok = write(fd, pem, static_cast<size_t>(len)) == len;
    ok = close(fd) == 0 && ok;
    BIO_reset(mem.get()); // the memory BIO wipes nothing itself; the key file is the one copy
    return ok ? std::move(key) : nullptr;
}

/// Pass phrase callback that never prompts: the phrase comes with the record.
int passphrase_cb(char *buf, int size, int /*rwflag*/, void *u)
{
    const auto *phrase = static_cast<const char *>(u);
    size_t len = strnlen(phrase, TLS_CFG_PWD_MAX);
    if (static_cast<int>(len) > size)
        return -1;
    memcpy(buf, phrase, len);
    return static_cast<int>(len);
}

/// Opens the AES key with the envelope private key and the pass phrase with the AES key.
int32_t open_passphrase(const std::string &dir, uint32_t logic_id, const uint8_t *blob,
                        Secret<TLS_CFG_PWD_MAX + 1> &phrase)
{
    Pkey envelope = load_envelope_key(envelope_key_path(dir, logic_id));
    if (!envelope)
        return kIllegal;

    const uint32_t symm_len = u32_at(blob, TLS_CFG_OFF_SYMM_LEN);
    const uint32_t enc_len = u32_at(blob, TLS_CFG_OFF_PWD_ENC_LEN);
    if (symm_len == 0 || symm_len > TLS_CFG_SYMM_KEY_MAX || enc_len == 0 ||
        enc_len > TLS_CFG_PWD_MAX) {
        return kIllegal;
    }

    Secret<TLS_CFG_SYMM_KEY_MAX> symm;
    size_t symm_out = sizeof symm.data;
    std::unique_ptr<EVP_PKEY_CTX, PkeyCtxFree> pctx(EVP_PKEY_CTX_new(envelope.get(), nullptr));
    if (!pctx || EVP_PKEY_decrypt_init(pctx.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(pctx.get(), RSA_PKCS1_OAEP_PADDING) != 1 ||
        EVP_PKEY_CTX_set_rsa_oaep_md(pctx.get(), EVP_sha1()) != 1 ||
        EVP_PKEY_decrypt(pctx.get(), symm.data, &symm_out, blob + TLS_CFG_OFF_SYMM_KEY, symm_len) !=
            1 ||
        symm_out != kSymmKeyLen) {
        return kIllegal;
    }

    std::unique_ptr<EVP_CIPHER_CTX, CipherCtxFree> cctx(EVP_CIPHER_CTX_new());
    int out_len = 0;
    int final_len = 0;
    if (!cctx ||
        EVP_DecryptInit_ex(cctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(cctx.get(), EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kIvLen),
                            nullptr) != 1 ||
        EVP_DecryptInit_ex(cctx.get(), nullptr, nullptr, symm.data, blob + TLS_CFG_OFF_IV) != 1 ||
        EVP_DecryptUpdate(cctx.get(), phrase.data, &out_len, blob + TLS_CFG_OFF_PWD,
                          static_cast<int>(enc_len)) != 1 ||
        EVP_CIPHER_CTX_ctrl(cctx.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTagLen),
                            const_cast<uint8_t *>(blob + TLS_CFG_OFF_TAG)) != 1 ||
        EVP_DecryptFinal_ex(cctx.get(), phrase.data + out_len, &final_len) != 1) {
        return kIllegal;
    }
    const auto opened = static_cast<uint32_t>(out_len + final_len);
    phrase.data[opened] = 0;
    // The length the host announces is the length that was sealed.
    if (opened != u32_at(blob, TLS_CFG_OFF_PWD_LEN))
        return kIllegal;
    return 0;
}

/// The counts and lengths of the record agree with one another, and the record is meant for a
/// device: a record for the host store carries its pass phrase in clear.
bool record_is_consistent(const uint8_t *blob)
{
    if (u32_at(blob, TLS_CFG_OFF_HOST) != 0)
        return false;
    uint32_t count = 0;
    uint32_t total = 0;
    for (uint32_t i = 0; i < TLS_CFG_CERT_SLOTS; ++i) {
        const uint32_t len = u32_at(blob, TLS_CFG_OFF_CERT_LEN + 4 * i);
        if (len > TLS_CFG_CERT_MAX)
            return false;
        count += len != 0 ? 1 : 0;
        total += len;
    }
    return count == u32_at(blob, TLS_CFG_OFF_CERT_COUNT) &&
           total == u32_at(blob, TLS_CFG_OFF_CERT_TOTAL);
}

Cert load_cert(const uint8_t *blob, uint32_t slot)
{
    const uint32_t len = u32_at(blob, TLS_CFG_OFF_CERT_LEN + 4 * slot);
    if (len == 0 || len > TLS_CFG_CERT_MAX)
        return nullptr;
    Bio bio(
        BIO_new_mem_buf(blob + TLS_CFG_OFF_CERT + TLS_CFG_CERT_MAX * slot, static_cast<int>(len)));
    return Cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
}

/// asctime form without the newline, in UTC; "" when the time does not convert.
void time_text(const ASN1_TIME *t, char (&out)[26])
{
    memset(out, 0, sizeof out);
    struct tm tm {
    };
    char buf[32] = {};
    if (t == nullptr || ASN1_TIME_to_tm(t, &tm) != 1 || asctime_r(&tm, buf) == nullptr)
        return;
    // "Sun Nov 22 02:01:16 2026" is 24 characters; the field holds 25 and the terminator.
    size_t len = strcspn(buf, "\n");
    memcpy(out, buf, len < sizeof out - 1 ? len : sizeof out - 1);
}

void fill_info(kopa_tls_cert_info &info, const DeviceState &dev, X509_NAME *issuer,
               const ASN1_TIME *start, const ASN1_TIME *end)
{
    info = kopa_tls_cert_info{};
    info.alarm_days = dev.tls_alarm_days;
    info.tls_switch = dev.tls_switch;
    X509_NAME_oneline(issuer, info.issuer, sizeof info.issuer);
    time_text(start, info.start_time);
    time_text(end, info.end_time);
}

int32_t verify_chain(X509 *leaf, const Cert (&cas)[TLS_CFG_CERT_SLOTS], X509_CRL *crl)
{
    std::unique_ptr<X509_STORE, StoreFree> store(X509_STORE_new());
    std::unique_ptr<X509_STORE_CTX, StoreCtxFree> ctx(X509_STORE_CTX_new());
    if (!store || !ctx)
        return kChainFailed;
    bool any_ca = false;
    for (uint32_t i = 1; i < TLS_CFG_CERT_SLOTS; ++i) {
        if (cas[i]) {
            X509_STORE_add_cert(store.get(), cas[i].get());
            any_ca = true;
        }
    }
    // Without CA levels there is nothing above the device certificate to check it against.
    if (!any_ca)
        X509_STORE_add_cert(store.get(), leaf);
    // Expired suites are kept: the device reports their expiry status instead.
    unsigned long flags = X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_NO_CHECK_TIME;
    if (crl != nullptr) {
        X509_STORE_add_crl(store.get(), crl);
        flags |= X509_V_FLAG_CRL_CHECK;
    }
    X509_STORE_set_flags(store.get(), flags);
    if (X509_STORE_CTX_init(ctx.get(), store.get(), leaf, nullptr) != 1)
        return kChainFailed;
    return X509_verify_cert(ctx.get()) == 1 ? 0 : kChainFailed;
}

} // namespace

int32_t envelope_public_key(const std::string &dir, uint32_t logic_id, kopa_envelope_pub_key &out)
{
    const std::string path = envelope_key_path(dir, logic_id);
    Pkey key = load_envelope_key(path);
    if (!key)
        key = make_envelope_key(path);
    if (!key)
        return kIoError;
    Bio mem(BIO_new(BIO_s_mem()));
    if (!mem || PEM_write_bio_PUBKEY(mem.get(), key.get()) != 1)
        return kIoError;
    char *pem = nullptr;
    long len = BIO_get_mem_data(mem.get(), &pem);
    if (len <= 0 || static_cast<size_t>(len) >= sizeof out.key)
        return kIoError;
    out = kopa_envelope_pub_key{};
    out.key_len = static_cast<uint32_t>(len);
    memcpy(out.key, pem, static_cast<size_t>(len));
    return 0;
}

int32_t install_tls_cfg(const std::string &dir, uint32_t logic_id, const uint8_t *blob,
                        DeviceState &dev)
{
    const uint32_t key_len = u32_at(blob, TLS_CFG_OFF_KEY_LEN);
    const uint32_t crl_len = u32_at(blob, TLS_CFG_OFF_CRL_LEN);
    if (key_len == 0 || key_len > TLS_CFG_KEY_MAX || crl_len > TLS_CFG_CRL_MAX ||
        !record_is_consistent(blob))
        return kIllegal;

    Secret<TLS_CFG_PWD_MAX + 1> phrase;
    if (int32_t rc = open_passphrase(dir, logic_id, blob, phrase); rc != 0)
        return rc;

    Pkey key;
    {
        Bio bio(BIO_new_mem_buf(blob + TLS_CFG_OFF_KEY, static_cast<int>(key_len)));
        if (bio)
            key.reset(PEM_read_bio_PrivateKey(bio.get(), nullptr, passphrase_cb, phrase.data));
    }
    Cert leaf = load_cert(blob, 0);
    if (!key || !leaf || X509_check_private_key(leaf.get(), key.get()) != 1)
        return kIllegal;

    Cert cas[TLS_CFG_CERT_SLOTS];
    for (uint32_t i = 1; i < TLS_CFG_CERT_SLOTS; ++i) {
        if (u32_at(blob, TLS_CFG_OFF_CERT_LEN + 4 * i) == 0)
            continue;
        cas[i] = load_cert(blob, i);
        if (!cas[i])
            return kChainFailed;
    }
    Crl crl;
    if (crl_len != 0) {
        Bio bio(BIO_new_mem_buf(blob + TLS_CFG_OFF_CRL, static_cast<int>(crl_len)));
        if (bio)
            crl.reset(PEM_read_bio_X509_CRL(bio.get(), nullptr, nullptr, nullptr));
        if (!crl)
            return kChainFailed;
    }
    if (int32_t rc = verify_chain(leaf.get(), cas, crl.get()); rc != 0)
        return rc;

    memset(dev.certs, 0, sizeof dev.certs);
    uint32_t count = 0;
    for (uint32_t i = 0; i < TLS_CFG_CERT_SLOTS; ++i) {
        X509 *cert = i == 0 ? leaf.get() : cas[i].get();
        if (cert == nullptr)
            continue; // a level not given keeps an empty record in its place
        fill_info(dev.certs[i], dev, X509_get_issuer_name(cert), X509_get0_notBefore(cert),
                  X509_get0_notAfter(cert));
        count = i + 1;
    }
    if (crl) {
        const ASN1_TIME *next = X509_CRL_get0_nextUpdate(crl.get());
        fill_info(dev.certs[TLS_CFG_CERT_SLOTS], dev, X509_CRL_get_issuer(crl.get()),
                  X509_CRL_get0_lastUpdate(crl.get()),
                  next != nullptr ? next : X509_CRL_get0_lastUpdate(crl.get()));
        count = TLS_CFG_CERT_SLOTS + 1;
    }
    dev.cert_count = count;
    return 0;
}

} // namespace kopa_emu

// The plugin's entry points (see emu/tls_plugin.h): the only symbols it exports.
extern "C" __attribute__((visibility("default"))) int32_t
kopa_emu_tls_public_key(const char *dir, uint32_t logic_id, kopa_envelope_pub_key *out)
{
    if (dir == nullptr || out == nullptr)
        return -5;
    return kopa_emu::envelope_public_key(dir, logic_id, *out);
}

extern "C" __attribute__((visibility("default"))) int32_t
kopa_emu_tls_install(const char *dir, uint32_t logic_id, const uint8_t *blob,
                     kopa_emu::DeviceState *dev)
{
    if (dir == nullptr || blob == nullptr || dev == nullptr)
        return KOPA_RESULT_TLS_ILLEGAL;
    return kopa_emu::install_tls_cfg(dir, logic_id, blob, *dev);
}
