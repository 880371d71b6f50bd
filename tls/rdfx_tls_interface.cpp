// The host's saved TLS configuration store.
#include "tls/rdfx_tls_interface.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include "base/paths.hpp"
#include "log/driver_log.hpp"
#include "tls/key_store.hpp"
#include "tls/private_files.hpp"
#include "tls/tls_record.hpp"
#include "tls/tls_secrets.hpp"

namespace
{

// A suite file: identity, the record (pass-phrase field zero), then the switch, the alarm
// threshold and the sealed pass phrase. Identity and record are what the seal is bound to.
constexpr char kSuiteMagic[8] = {'V', 'O', 'R', 'N', 'T', 'L', 'S', '1'};
constexpr uint32_t kSuiteVersion = 1;
constexpr size_t kOffVersion = 8;
constexpr size_t kOffLogicId = 12;
constexpr size_t kOffRecord = 16;
constexpr size_t kOffSwitch = kOffRecord + TLS_CFG_SIZE;
constexpr size_t kOffAlarm = kOffSwitch + 4;
constexpr size_t kOffSeal = kOffAlarm + 4;
constexpr size_t kSuiteSize = kOffSeal + sizeof(SealedSecret);
constexpr size_t kBoundLen = kOffSwitch; // identity and record

constexpr uint32_t kMaxLogicId = 15;
constexpr uint32_t kCrlRecord = TLS_CFG_CERT_SLOTS; // position of the CRL's record

using SuiteImage = SecureBuffer<kSuiteSize>;

struct BioFree {
    void operator()(BIO *b) const { BIO_free(b); }
};
struct PkeyFree {
    void operator()(EVP_PKEY *k) const { EVP_PKEY_free(k); }
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
struct StackFree {
    void operator()(STACK_OF(X509) * s) const { sk_X509_free(s); }
};
using Bio = std::unique_ptr<BIO, BioFree>;
using Pkey = std::unique_ptr<EVP_PKEY, PkeyFree>;
using Cert = std::unique_ptr<X509, X509Free>;
using Crl = std::unique_ptr<X509_CRL, CrlFree>;

// The exclusive, non-blocking hold of the store for one operation.
class StoreLock
{
  public:
    int take()
    {
        int ret = private_dir(sys_path(kTlsStoreDir));
        if (ret != 0)
            return ret;
        const std::string path = sys_path(kTlsStoreDir) + "/store.lock";
        fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd_ < 0) {
            DRV_ERR("open %s failed, errno:%d", path.c_str(), errno);
            return -errno;
        }
        while (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
            if (errno == EINTR)
                continue;
            if (errno == EWOULDBLOCK)
                return kRdfxBusy;
            DRV_ERR("flock %s failed, errno:%d", path.c_str(), errno);
            return -errno;
        }
        return 0;
    }
    StoreLock() = default;
    ~StoreLock()
    {
        if (fd_ >= 0)
            (void)close(fd_);
    }
    StoreLock(const StoreLock &) = delete;
    StoreLock &operator=(const StoreLock &) = delete;

  private:
    int fd_ = -1;
};

uint32_t slot_len(const uint8_t *rec, uint32_t item)
{
    return tls_get_u32(rec, tls_len_offset(item));
}

// The lengths the tool writes, and nothing a parser could read past.
bool record_is_well_formed(const uint8_t *rec)
{
    const uint32_t key_len = slot_len(rec, kTlsItemPri);
    const uint32_t crl_len = slot_len(rec, kTlsItemCrl);
    const uint32_t pwd_len = tls_get_u32(rec, TLS_CFG_OFF_PWD_LEN);
    if (key_len == 0 || key_len > TLS_CFG_KEY_MAX || crl_len > TLS_CFG_CRL_MAX || pwd_len == 0 ||
        pwd_len >= TLS_CFG_PWD_MAX || slot_len(rec, kTlsItemPub) == 0)
        return false;
    uint32_t count = 0;
    uint32_t total = 0;
    for (uint32_t i = 0; i < TLS_CFG_CERT_SLOTS; ++i) {
        const uint32_t len = slot_len(rec, i);
        if (len > TLS_CFG_CERT_MAX)
            return false;
        count += len != 0 ? 1 : 0;
        total += len;
    }
    return count == tls_get_u32(rec, TLS_CFG_OFF_CERT_COUNT) &&
           total == tls_get_u32(rec, TLS_CFG_OFF_CERT_TOTAL);
}

Cert load_cert(const uint8_t *rec, uint32_t item)
{
    const uint32_t len = slot_len(rec, item);
    if (len == 0)
        return nullptr;
    Bio bio(BIO_new_mem_buf(rec + tls_slot_offset(item), static_cast<int>(len)));
    return Cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
}

Crl load_crl(const uint8_t *rec)
{
    const uint32_t len = slot_len(rec, kTlsItemCrl);
    if (len == 0)
        return nullptr;
    Bio bio(BIO_new_mem_buf(rec + TLS_CFG_OFF_CRL, static_cast<int>(len)));
    return Crl(bio ? PEM_read_bio_X509_CRL(bio.get(), nullptr, nullptr, nullptr) : nullptr);
}

struct Phrase {
    const uint8_t *text;
    uint32_t len;
};

int phrase_cb(char *buf, int size, int /*rwflag*/, void *u)
{
    const auto *phrase = static_cast<const Phrase *>(u);
    if (phrase == nullptr || static_cast<int>(phrase->len) > size)
        return -1;
    memcpy(buf, phrase->text, phrase->len);
    return static_cast<int>(phrase->len);
}

// The private key opens with the pass phrase and belongs to the device certificate.
int check_key(const uint8_t *rec, const uint8_t *pwd, uint32_t pwd_len)
{
    Cert leaf = load_cert(rec, kTlsItemPub);
    Phrase phrase{pwd, pwd_len};
    Bio bio(BIO_new_mem_buf(rec + TLS_CFG_OFF_KEY, static_cast<int>(slot_len(rec, kTlsItemPri))));
    Pkey key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, phrase_cb, &phrase) : nullptr);
    ERR_clear_error();
    if (!leaf || !key) {
        DRV_ERR("tls %s does not open", !leaf ? "pub cert" : "pri key");
        return kRdfxIllegal;
    }
    if (X509_check_private_key(leaf.get(), key.get()) != 1) {
        ERR_clear_error();
        DRV_ERR("tls pri key does not match the pub cert");
        return kRdfxIllegal;
    }
    return 0;
}

// Verifies the device certificate up to the deepest CA level given, which is the one trust
// anchor; the other levels are intermediates. When that CA is not self-signed the chain may end
// at it (a partial chain). The chain built must be exactly the device certificate followed by
// the given levels in order, so that no level given is left unchecked. Validity periods are
// checked at the current time; with a CRL, the device certificate is checked against it.
int check_chain(const uint8_t *rec)
{
    Cert leaf = load_cert(rec, kTlsItemPub);
    Cert cas[TLS_CFG_CERT_SLOTS];
    uint32_t deepest = 0;
    for (uint32_t i = 1; i < TLS_CFG_CERT_SLOTS; ++i) {
        if (slot_len(rec, i) == 0)
            continue;
        cas[i] = load_cert(rec, i);
        if (!cas[i]) {
            DRV_ERR("tls ca%u does not parse", i);
            return kRdfxChain;
        }
        deepest = i;
    }
    Crl crl;
    if (slot_len(rec, kTlsItemCrl) != 0) {
        crl = load_crl(rec);
        if (!crl) {
            DRV_ERR("tls crl does not parse");
            return kRdfxChain;
        }
    }
    std::unique_ptr<X509_STORE, StoreFree> store(X509_STORE_new());
    std::unique_ptr<X509_STORE_CTX, StoreCtxFree> ctx(X509_STORE_CTX_new());
    std::unique_ptr<STACK_OF(X509), StackFree> untrusted(sk_X509_new_null());
    if (!leaf || !store || !ctx || !untrusted)
        return -ENOMEM;
    X509 *anchor = deepest != 0 ? cas[deepest].get() : leaf.get();
    unsigned long flags = 0;
    if (X509_STORE_add_cert(store.get(), anchor) != 1)
        return -ENOMEM;
    if (deepest == 0 || X509_self_signed(anchor, 1) != 1)
        flags |= X509_V_FLAG_PARTIAL_CHAIN;
    for (uint32_t i = 1; i < deepest; ++i) {
        if (cas[i] && sk_X509_push(untrusted.get(), cas[i].get()) <= 0)
            return -ENOMEM;
    }
    if (crl) {
        if (X509_STORE_add_crl(store.get(), crl.get()) != 1)
            return -ENOMEM;
        flags |= X509_V_FLAG_CRL_CHECK;
    }
    X509_STORE_set_flags(store.get(), flags);
    if (X509_STORE_CTX_init(ctx.get(), store.get(), leaf.get(), untrusted.get()) != 1)
        return -ENOMEM;
    if (X509_verify_cert(ctx.get()) != 1) {
        const int err = X509_STORE_CTX_get_error(ctx.get());
        DRV_ERR("tls chain check failed: %s (depth %d)", X509_verify_cert_error_string(err),
                X509_STORE_CTX_get_error_depth(ctx.get()));
        ERR_clear_error();
        return kRdfxChain;
    }
    STACK_OF(X509) *chain = X509_STORE_CTX_get0_chain(ctx.get());
    int at = 1;
    for (uint32_t i = 1; i <= deepest; ++i) {
        if (!cas[i])
            continue;
        if (at >= sk_X509_num(chain) || X509_cmp(sk_X509_value(chain, at), cas[i].get()) != 0) {
            DRV_ERR("tls ca%u is not the issuer at chain depth %d", i, at);
            return kRdfxChain;
        }
        ++at;
    }
    if (at != sk_X509_num(chain)) {
        DRV_ERR("tls chain is longer than the levels given");
        return kRdfxChain;
    }
    return 0;
}

// asctime form without the newline, in UTC; "" when the time does not convert.
void time_text(const ASN1_TIME *t, char (&out)[26])
{
    memset(out, 0, sizeof(out));
    struct tm tm {
    };
    char buf[64] = {};
    if (t == nullptr || ASN1_TIME_to_tm(t, &tm) != 1 || asctime_r(&tm, buf) == nullptr)
        return;
    const size_t len = strcspn(buf, "\n");
    memcpy(out, buf, len < sizeof(out) - 1 ? len : sizeof(out) - 1);
}

void fill_info(kopa_tls_cert_info &info, uint32_t alarm, uint32_t tls_switch,
               const X509_NAME *issuer, const ASN1_TIME *start, const ASN1_TIME *end)
{
    info = kopa_tls_cert_info{};
    info.alarm_days = alarm;
    info.tls_switch = tls_switch;
    X509_NAME_oneline(issuer, info.issuer, sizeof(info.issuer));
    time_text(start, info.start_time);
    time_text(end, info.end_time);
}

void build_records(const SuiteImage &image, kopa_tls_cert_info (&all)[KOPA_TLS_CERT_INFO_MAX])
{
    const uint8_t *rec = image.data() + kOffRecord;
    const uint32_t alarm = tls_get_u32(image.data(), kOffAlarm);
    const uint32_t tls_switch = tls_get_u32(image.data(), kOffSwitch);
    for (auto &info : all)
        info = kopa_tls_cert_info{};
    for (uint32_t i = 0; i < TLS_CFG_CERT_SLOTS; ++i) {
        Cert cert = load_cert(rec, i);
        if (cert)
            fill_info(all[i], alarm, tls_switch, X509_get_issuer_name(cert.get()),
                      X509_get0_notBefore(cert.get()), X509_get0_notAfter(cert.get()));
    }
    Crl crl = load_crl(rec);
    if (crl) {
        const ASN1_TIME *next = X509_CRL_get0_nextUpdate(crl.get());
        fill_info(all[kCrlRecord], alarm, tls_switch, X509_CRL_get_issuer(crl.get()),
                  X509_CRL_get0_lastUpdate(crl.get()),
                  next != nullptr ? next : X509_CRL_get0_lastUpdate(crl.get()));
    }
    ERR_clear_error();
}

// Reads the suite of `logic_id` into `image` and checks that it authenticates; with `pwd`
// given, the opened pass phrase is left there (else it is wiped at once).
int load_suite(uint32_t logic_id, SuiteImage &image, SecureBuffer<kSealMaxLen + 1> *pwd,
               uint32_t *pwd_len)
{
    int ret = read_private_file(rdfx_tls_suite_path(logic_id), image.data(), image.size());
    if (ret == -ENOENT)
        return kRdfxNoCerts;
    if (ret == -EBADMSG) {
        DRV_ERR("tls suite of logic_id[%u] has a wrong size", logic_id);
        return kRdfxSealBroken;
    }
    if (ret != 0)
        return ret;
    if (memcmp(image.data(), kSuiteMagic, sizeof(kSuiteMagic)) != 0 ||
        tls_get_u32(image.data(), kOffVersion) != kSuiteVersion ||
        tls_get_u32(image.data(), kOffLogicId) != logic_id) {
        DRV_ERR("tls suite of logic_id[%u] is not a suite of this store", logic_id);
        return kRdfxSealBroken;
    }
    SealedSecret sealed{};
    memcpy(&sealed, image.data() + kOffSeal, sizeof(sealed));
    SecureBuffer<kSealMaxLen + 1> opened;
    uint32_t len = 0;
    ret = ks_open(sealed, image.data(), kBoundLen, opened.data(), kSealMaxLen, &len);
    if (ret != 0) {
        DRV_ERR("tls suite of logic_id[%u] does not open, ret:%d", logic_id, ret);
        return ret == -EBADMSG ? kRdfxSealBroken : ret;
    }
    if (pwd != nullptr) {
        memcpy(pwd->data(), opened.data(), len);
        *pwd_len = len;
    }
    return 0;
}

bool logic_id_ok(uint32_t logic_id)
{
    return logic_id <= kMaxLogicId;
}

std::unique_ptr<SuiteImage> new_image()
{
    return std::unique_ptr<SuiteImage>(new (std::nothrow) SuiteImage);
}

// Loads, changes one word of the header part, and stores the suite again.
int update_word(uint32_t logic_id, size_t offset, uint32_t value, bool open_key)
{
    if (!logic_id_ok(logic_id))
        return -EINVAL;
    NoDumpScope no_dump;
    StoreLock lock;
    int ret = lock.take();
    if (ret != 0)
        return ret;
    std::unique_ptr<SuiteImage> image = new_image();
    if (!image)
        return -ENOMEM;
    SecureBuffer<kSealMaxLen + 1> pwd;
    uint32_t pwd_len = 0;
    ret = load_suite(logic_id, *image, open_key ? &pwd : nullptr, &pwd_len);
    if (ret != 0)
        return ret;
    if (open_key) {
        ret = check_key(image->data() + kOffRecord, pwd.data(), pwd_len);
        pwd.wipe();
        if (ret != 0)
            return ret;
    }
    tls_put_u32(image->data(), offset, value);
    return replace_private_file(rdfx_tls_suite_path(logic_id), image->data(), image->size());
}

} // namespace

std::string rdfx_tls_suite_path(uint32_t logic_id)
{
    return sys_path(kTlsStoreDir) + "/suite-" + std::to_string(logic_id) + ".bin";
}

int rdfx_set_tls_cfg(uint32_t logic_id, const uint8_t *blob, uint32_t len)
{
    if (!logic_id_ok(logic_id) || blob == nullptr || len != TLS_CFG_SIZE ||
        tls_get_u32(blob, TLS_CFG_OFF_HOST) != 1 || !record_is_well_formed(blob))
        return -EINVAL;
    NoDumpScope no_dump;
    const uint32_t pwd_len = tls_get_u32(blob, TLS_CFG_OFF_PWD_LEN);
    int ret = check_key(blob, blob + TLS_CFG_OFF_PWD, pwd_len);
    if (ret != 0)
        return ret;
    ret = check_chain(blob);
    if (ret != 0)
        return ret;

    StoreLock lock;
    ret = lock.take();
    if (ret != 0)
        return ret;
    std::unique_ptr<SuiteImage> image = new_image();
    if (!image)
        return -ENOMEM;
    uint32_t tls_switch = 0;
    uint32_t alarm = kTlsStoreDefaultAlarm;
    if (load_suite(logic_id, *image, nullptr, nullptr) == 0) {
        tls_switch = tls_get_u32(image->data(), kOffSwitch);
        alarm = tls_get_u32(image->data(), kOffAlarm);
    }
    image->wipe();
    uint8_t *img = image->data();
    memcpy(img, kSuiteMagic, sizeof(kSuiteMagic));
    tls_put_u32(img, kOffVersion, kSuiteVersion);
    tls_put_u32(img, kOffLogicId, logic_id);
    memcpy(img + kOffRecord, blob, TLS_CFG_SIZE);
    OPENSSL_cleanse(img + kOffRecord + TLS_CFG_OFF_PWD, TLS_CFG_PWD_MAX);
    tls_put_u32(img, kOffSwitch, tls_switch);
    tls_put_u32(img, kOffAlarm, alarm);
    SealedSecret sealed{};
    ret = ks_seal(blob + TLS_CFG_OFF_PWD, pwd_len, img, kBoundLen, &sealed);
    if (ret != 0) {
        DRV_ERR("seal tls pwd failed, ret:%d", ret);
        return ret;
    }
    memcpy(img + kOffSeal, &sealed, sizeof(sealed));
    return replace_private_file(rdfx_tls_suite_path(logic_id), img, image->size());
}

int rdfx_get_tls_cfg(uint32_t logic_id, kopa_tls_cert_info *records, uint32_t count)
{
    if (!logic_id_ok(logic_id) || records == nullptr || count == 0 ||
        count > KOPA_TLS_CERT_INFO_MAX)
        return -EINVAL;
    NoDumpScope no_dump;
    StoreLock lock;
    int ret = lock.take();
    if (ret != 0)
        return ret;
    std::unique_ptr<SuiteImage> image = new_image();
    if (!image)
        return -ENOMEM;
    ret = load_suite(logic_id, *image, nullptr, nullptr);
    if (ret != 0)
        return ret;
    kopa_tls_cert_info all[KOPA_TLS_CERT_INFO_MAX];
    build_records(*image, all);
    memcpy(records, all, sizeof(kopa_tls_cert_info) * count);
    return 0;
}

int rdfx_clear_tls_cfg(uint32_t logic_id)
{
    if (!logic_id_ok(logic_id))
        return -EINVAL;
    StoreLock lock;
    int ret = lock.take();
    if (ret != 0)
        return ret;
    return remove_private_file(rdfx_tls_suite_path(logic_id));
}

int rdfx_set_tls_enable(uint32_t logic_id, uint32_t value)
{
    if (value > 1)
        return -EINVAL;
    return update_word(logic_id, kOffSwitch, value, value == 1);
}

int rdfx_set_tls_alarm(uint32_t logic_id, uint32_t days)
{
    if (days < kTlsAlarmMin || days > kTlsAlarmMax)
        return -EINVAL;
    return update_word(logic_id, kOffAlarm, days, false);
}
