// Tests of the emulated TLS suite: the envelope round trip, the checks of key, pass phrase and
// chain, and the certificate information records.
#include "tests/emu/emu_fixture.hpp"

#include <ctime>
#include <memory>
#include <string>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace
{

using Pkey = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Cert = std::unique_ptr<X509, decltype(&X509_free)>;

Pkey make_key()
{
    return Pkey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), EVP_PKEY_free);
}

Cert make_cert(const char *cn, EVP_PKEY *key, const char *issuer_cn, EVP_PKEY *issuer_key,
               long serial)
{
    Cert cert(X509_new(), X509_free);
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 86400L * 365);
    X509_set_pubkey(cert.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(cert.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>(cn), -1, -1, 0);
    X509_NAME_add_entry_by_txt(X509_get_issuer_name(cert.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>(issuer_cn), -1, -1, 0);
    if (strcmp(cn, issuer_cn) == 0) { // a self-signed certificate here is a CA
        X509_EXTENSION *ext =
            X509V3_EXT_conf_nid(nullptr, nullptr, NID_basic_constraints, "critical,CA:TRUE");
        X509_add_ext(cert.get(), ext, -1);
        X509_EXTENSION_free(ext);
    }
    X509_sign(cert.get(), issuer_key, EVP_sha256());
    return cert;
}

template <typename Write> std::string pem(Write write)
{
    BIO *bio = BIO_new(BIO_s_mem());
    write(bio);
    char *data = nullptr;
    long len = BIO_get_mem_data(bio, &data);
    std::string text(data, static_cast<size_t>(len));
    BIO_free(bio);
    return text;
}

void put_u32(std::vector<uint8_t> &blob, size_t off, uint32_t v)
{
    memcpy(blob.data() + off, &v, 4);
}

} // namespace

class EmuTlsTest : public EmuHostTest
{
  protected:
    void SetUp() override
    {
        EmuHostTest::SetUp();
        ca_key_ = make_key();
        dev_key_ = make_key();
        ca_ = make_cert("Test Root CA", ca_key_.get(), "Test Root CA", ca_key_.get(), 1);
        dev_ = make_cert("device-0", dev_key_.get(), "Test Root CA", ca_key_.get(), 2);
    }

    /// The record the host side builds: key sealed with `passphrase`, pass phrase `typed` sealed
    /// in the device's envelope.
    std::vector<uint8_t> record(EVP_PKEY *key, X509 *leaf, X509 *ca, const char *passphrase,
                                const char *typed)
    {
        std::vector<uint8_t> blob(TLS_CFG_SIZE, 0);
        std::string key_pem = pem([&](BIO *b) {
            PEM_write_bio_PKCS8PrivateKey(b, key, EVP_aes_256_cbc(), passphrase,
                                          static_cast<int>(strlen(passphrase)), nullptr, nullptr);
        });
        std::string leaf_pem = pem([&](BIO *b) { PEM_write_bio_X509(b, leaf); });
        std::string ca_pem = pem([&](BIO *b) { PEM_write_bio_X509(b, ca); });
        memcpy(blob.data() + TLS_CFG_OFF_KEY, key_pem.data(), key_pem.size());
        put_u32(blob, TLS_CFG_OFF_KEY_LEN, static_cast<uint32_t>(key_pem.size()));
        memcpy(blob.data() + TLS_CFG_OFF_CERT, leaf_pem.data(), leaf_pem.size());
        put_u32(blob, TLS_CFG_OFF_CERT_LEN, static_cast<uint32_t>(leaf_pem.size()));
        memcpy(blob.data() + TLS_CFG_OFF_CERT + TLS_CFG_CERT_MAX, ca_pem.data(), ca_pem.size());
        put_u32(blob, TLS_CFG_OFF_CERT_LEN + 4, static_cast<uint32_t>(ca_pem.size()));
        put_u32(blob, TLS_CFG_OFF_CERT_COUNT, 2);
        put_u32(blob, TLS_CFG_OFF_CERT_TOTAL,
                static_cast<uint32_t>(leaf_pem.size() + ca_pem.size()));
        put_u32(blob, TLS_CFG_OFF_PWD_LEN, static_cast<uint32_t>(strlen(typed)));
        seal(blob, typed);
        return blob;
    }

    /// AES-256-GCM over the pass phrase, the AES key under RSA-OAEP with the envelope key.
    void seal(std::vector<uint8_t> &blob, const char *typed)
    {
        CommandResult r = send_command(0, KOPA_OP_get_tls_digital_envelope_pub_ky, nullptr, 0,
                                       sizeof(kopa_envelope_pub_key));
        ASSERT_EQ(r.result, 0);
        ASSERT_EQ(r.out.size(), sizeof(kopa_envelope_pub_key));
        kopa_envelope_pub_key pub{};
        memcpy(&pub, r.out.data(), sizeof pub);
        ASSERT_NE(strstr(pub.key, "-----BEGIN PUBLIC KEY-----"), nullptr);
        BIO *bio = BIO_new_mem_buf(pub.key, static_cast<int>(pub.key_len));
        Pkey envelope(PEM_read_bio_PUBKEY(bio, nullptr, nullptr, nullptr), EVP_PKEY_free);
        BIO_free(bio);
        ASSERT_TRUE(envelope);

        unsigned char aes[32];
        ASSERT_EQ(RAND_bytes(aes, sizeof aes), 1);
        ASSERT_EQ(RAND_bytes(blob.data() + TLS_CFG_OFF_IV, 16), 1);
        EVP_CIPHER_CTX *c = EVP_CIPHER_CTX_new();
        int len = 0, fin = 0;
        EVP_EncryptInit_ex(c, EVP_aes_256_gcm(), nullptr, nullptr, nullptr);
        EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_GCM_SET_IVLEN, 16, nullptr);
        EVP_EncryptInit_ex(c, nullptr, nullptr, aes, blob.data() + TLS_CFG_OFF_IV);
        EVP_EncryptUpdate(c, blob.data() + TLS_CFG_OFF_PWD, &len,
                          reinterpret_cast<const unsigned char *>(typed),
                          static_cast<int>(strlen(typed)));
        EVP_EncryptFinal_ex(c, blob.data() + TLS_CFG_OFF_PWD + len, &fin);
        EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_GCM_GET_TAG, 16, blob.data() + TLS_CFG_OFF_TAG);
        EVP_CIPHER_CTX_free(c);
        put_u32(blob, TLS_CFG_OFF_PWD_ENC_LEN, static_cast<uint32_t>(len + fin));

        EVP_PKEY_CTX *p = EVP_PKEY_CTX_new(envelope.get(), nullptr);
        size_t out = TLS_CFG_SYMM_KEY_MAX;
        ASSERT_EQ(EVP_PKEY_encrypt_init(p), 1);
        EVP_PKEY_CTX_set_rsa_padding(p, RSA_PKCS1_OAEP_PADDING);
        ASSERT_EQ(EVP_PKEY_encrypt(p, blob.data() + TLS_CFG_OFF_SYMM_KEY, &out, aes, sizeof aes),
                  1);
        EVP_PKEY_CTX_free(p);
        put_u32(blob, TLS_CFG_OFF_SYMM_LEN, static_cast<uint32_t>(out));
    }

    static int32_t install(const std::vector<uint8_t> &blob)
    {
        return send_command(0, KOPA_OP_set_tls_cfg, blob.data(), TLS_CFG_SIZE, 0).result;
    }

    static std::vector<kopa_tls_cert_info> records(uint32_t capacity, int32_t *result)
    {
        CommandResult r = send_command(0, KOPA_OP_get_tls_cfg, nullptr, 0, capacity);
        *result = r.result;
        std::vector<kopa_tls_cert_info> list(r.out.size() / sizeof(kopa_tls_cert_info));
        if (!list.empty())
            memcpy(list.data(), r.out.data(), list.size() * sizeof(kopa_tls_cert_info));
        return list;
    }

    static int32_t port_value(uint32_t opcode, uint32_t value)
    {
        return send_record(0, opcode, kopa_port_value_record{0, value}).result;
    }

    Pkey ca_key_{nullptr, EVP_PKEY_free};
    Pkey dev_key_{nullptr, EVP_PKEY_free};
    Cert ca_{nullptr, X509_free};
    Cert dev_{nullptr, X509_free};
};

TEST_F(EmuTlsTest, SealedSuiteInstallsAndIsListed)
{
    int32_t result = 0;
    EXPECT_TRUE(records(16 * 124, &result).empty());
    EXPECT_EQ(result, KOPA_RESULT_NOENT);
    EXPECT_EQ(port_value(KOPA_OP_set_tls_enable, 1), KOPA_RESULT_NOENT);
    EXPECT_EQ(port_value(KOPA_OP_set_tls_alarm, 60), KOPA_RESULT_NOENT);

    ASSERT_EQ(install(record(dev_key_.get(), dev_.get(), ca_.get(), "Secret#123", "Secret#123")),
              0);
    std::vector<kopa_tls_cert_info> list = records(16 * 124, &result);
    ASSERT_EQ(result, 0);
    ASSERT_EQ(list.size(), 2u);
    for (const kopa_tls_cert_info &info : list) {
        EXPECT_STREQ(info.issuer, "/CN=Test Root CA");
        EXPECT_EQ(info.alarm_days, 30u);
        EXPECT_EQ(info.tls_switch, 0u);
        struct tm tm {
        };
        const char *end = strptime(info.end_time, "%a %b %d %H:%M:%S %Y", &tm);
        ASSERT_NE(end, nullptr) << info.end_time;
        EXPECT_EQ(*end, '\0');
        EXPECT_EQ(strlen(info.start_time), 24u) << info.start_time; // asctime without newline
    }

    EXPECT_EQ(port_value(KOPA_OP_set_tls_enable, 1), 0);
    EXPECT_EQ(port_value(KOPA_OP_set_tls_alarm, 181), -22);
    EXPECT_EQ(port_value(KOPA_OP_set_tls_alarm, 90), 0);
    list = records(124, &result); // the caller's capacity bounds the answer
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].tls_switch, 1u);
    EXPECT_EQ(list[0].alarm_days, 90u);

    EXPECT_EQ(send_record(0, KOPA_OP_clear_tls_cfg, uint32_t{0}).result, 0);
    records(16 * 124, &result);
    EXPECT_EQ(result, KOPA_RESULT_NOENT);
}

TEST_F(EmuTlsTest, IllegalSuiteOrBrokenChainIsRefused)
{
    Pkey other_key = make_key();
    Cert other_ca = make_cert("Other CA", other_key.get(), "Other CA", other_key.get(), 3);
    EXPECT_EQ(install(record(dev_key_.get(), dev_.get(), ca_.get(), "Secret#123", "Wrong#1234")),
              KOPA_RESULT_TLS_ILLEGAL);
    EXPECT_EQ(install(record(other_key.get(), dev_.get(), ca_.get(), "Secret#123", "Secret#123")),
              KOPA_RESULT_TLS_ILLEGAL);
    int32_t chain =
        install(record(dev_key_.get(), dev_.get(), other_ca.get(), "Secret#123", "Secret#123"));
    EXPECT_NE(chain, 0);
    EXPECT_NE(chain, KOPA_RESULT_TLS_ILLEGAL);

    // A record sealed for another device's envelope does not open here.
    std::vector<uint8_t> blob =
        record(dev_key_.get(), dev_.get(), ca_.get(), "Secret#123", "Secret#123");
    EXPECT_EQ(send_command(1, KOPA_OP_set_tls_cfg, blob.data(), TLS_CFG_SIZE, 0).result,
              KOPA_RESULT_TLS_ILLEGAL);
    int32_t result = 0;
    records(16 * 124, &result);
    EXPECT_EQ(result, KOPA_RESULT_NOENT); // nothing of the refused suites was kept
}
