// The -tls command: the "-s path" grammar and checks, the files, the pass phrase and its
// envelope, the record sent to the device or the host store, and the other operations.
#include "tls/tool_tls.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "base/escape.hpp"
#include "base/identity.hpp"
#include "base/result.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"
#include "tls/rdfx_tls_interface.hpp"
#include "tls/tls_envelope.hpp"
#include "tls/tls_pwd.hpp"
#include "tls/tls_secrets.hpp"

namespace
{

constexpr const char *kKeyFileWarning =
    "[WARNING] Please delete the private key file after updating for security considerations\n";
constexpr const char *kInvalidOption = "Get invlaid option!\n";
constexpr const char *kSuiteBroken =
    "The TLS suite saved on the host failed its integrity check (damaged or tampered with, or "
    "its sealing key is gone): set the suite again.\n";
constexpr const char *kExpiryStatus =
    "\t tls expiration status[%d](0:normal, 1:near expiration, 2:has expired)\n";
constexpr const char *kExpiryFormat = "%a %b%d%H:%M:%S%Y";
constexpr uint32_t kSecondsPerDay = 86400;
constexpr size_t kNameMax = NAME_MAX; // a file name is shorter than 256 characters

bool word_is(const char *word, const char *expected)
{
    return word != nullptr && strcmp(word, expected) == 0;
}

// What a word of a "-s path" command is, at a place that expects `expected`.
enum class TlsWord { kExpected, kCrl, kCa, kHost, kInvalid };

TlsWord tool_check_tls_param(const char *word, const char *expected)
{
    if (word == nullptr)
        return TlsWord::kInvalid;
    if (strcmp(word, expected) == 0)
        return TlsWord::kExpected;
    if (strcmp(word, "crl") == 0)
        return TlsWord::kCrl;
    if (strncmp(word, "ca", 2) == 0)
        return TlsWord::kCa;
    if (strcmp(word, "host") == 0)
        return TlsWord::kHost;
    return TlsWord::kInvalid;
}

// "ca1" .. "ca14": the name of a CA level.
bool is_ca_level_name(const char *word)
{
    char name[8];
    for (uint32_t level = 1; level <= kTlsItemCaMax; ++level) {
        (void)snprintf(name, sizeof(name), "ca%u", level);
        if (strcmp(word, name) == 0)
            return true;
    }
    return false;
}

// The file name after the item word at `at`: stored as "<directory>/<name>".
int32_t take_file(ToolTlsRec &rec, int at, uint32_t item)
{
    const char *name = at + 1 < rec.argc ? rec.argv[at + 1] : "";
    const size_t len = strnlen(name, kNameMax + 1);
    if (len == 0 || len > kNameMax || strcmp(name, "host") == 0) {
        DRV_ERR("file name len[%u] > [%d](NAME_MAX) or is 0", static_cast<unsigned>(len),
                static_cast<int>(kNameMax));
        return kErrParamInvalid;
    }
    const int n = snprintf(rec.files[item], sizeof(rec.files[item]), "%s/%s", rec.dir, name);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(rec.files[item])) {
        DRV_ERR("snprintf file path of item[%u] failed", item);
        return kErrSysCopy;
    }
    rec.flags[item] = 1;
    return kOk;
}

// The CRL at `at` and what may follow it; `at` moves past it.
int32_t take_crl(ToolTlsRec &rec, int &at)
{
    const int crl_at = at;
    const int32_t ret = take_file(rec, at, kTlsItemCrl);
    if (ret != kOk)
        return ret;
    at += 2;
    if (at < rec.argc && !word_is(rec.argv[at], "host")) {
        DRV_ERR("crl index[%d] < [%d](argc - 1), crl is not the last configuration item, illegal",
                crl_at, rec.argc - 1);
        return kErrTlsCrlLast;
    }
    return kOk;
}

// The CA levels from `at` on, in increasing order; a CA word of another level skips the levels
// before it. `at` moves past them.
int32_t take_ca_levels(ToolTlsRec &rec, int &at)
{
    uint32_t level = 1;
    while (at < rec.argc && level <= kTlsItemCaMax) {
        char name[8];
        (void)snprintf(name, sizeof(name), "ca%u", level);
        const TlsWord kind = tool_check_tls_param(rec.argv[at], name);
        if (kind == TlsWord::kExpected) {
            const int32_t ret = take_file(rec, at, level);
            if (ret != kOk)
                return ret;
            ++rec.cert_count;
            at += 2;
            ++level;
        } else if (kind == TlsWord::kCa) {
            ++level;
        } else if (kind == TlsWord::kInvalid) {
            DRV_ERR("invalid tls cfg item at index[%d]", at);
            return kErrParamInvalid;
        } else {
            return kOk;
        }
    }
    if (at < rec.argc && strncmp(rec.argv[at], "ca", 2) == 0) {
        // A level already passed, or no level at all.
        if (!is_ca_level_name(rec.argv[at])) {
            DRV_ERR("invalid tls cfg item at index[%d]", at);
            return kErrParamInvalid;
        }
        DRV_ERR("ca level at index[%d] is out of order, certificate chain is not consequent", at);
        return kErrTlsChain;
    }
    return kOk;
}

int32_t take_dir(ToolTlsRec &rec)
{
    const char *dir = rec.argv[1];
    const size_t len = strnlen(dir, kTlsPathBufLen);
    if (len >= kTlsPathBufLen || realpath(dir, rec.dir) == nullptr) {
        DRV_ERR("path_len[%u] > [%d](PATH_MAX) or conf_path is invalid, err[%d]",
                static_cast<unsigned>(len), PATH_MAX, errno);
        rec.dir[0] = '\0';
        return kErrFilePath;
    }
    return kOk;
}

int32_t tool_pars_tls_cfg_para(ToolTlsRec &rec, TlsRecord &blob, uint32_t logic_id)
{
    int32_t ret = tool_pars_tls_cfg_words(rec);
    if (ret != kOk)
        return ret;
    ret = tool_check_tls_cfg(rec);
    if (ret != kOk)
        return ret;
    return tool_get_tls_cfg_from_file(rec, blob, logic_id);
}

void tool_tls_cfg_print(const ToolTlsRec &rec, uint32_t logic_id)
{
    char cas[kTlsItemCaMax + 1] = {};
    for (uint32_t level = 1; level <= kTlsItemCaMax; ++level)
        cas[level - 1] = rec.flags[level] != 0 ? '1' : '0';
    RUN_LOG_CONFIG("set tls cfg[pub:%d, ca1-ca14:%s, pri:%u, crl:%u, host:%u] for logic_id[%d]\n",
                   static_cast<int>(rec.flags[kTlsItemPub]), cas, rec.flags[kTlsItemPri],
                   rec.flags[kTlsItemCrl], rec.flags[kTlsItemHost], static_cast<int>(logic_id));
}

// The envelope for the device: its public key, then the sealing of the pass phrase.
int32_t tool_handle_tls_pwd(uint32_t logic_id, TlsRecord &blob, const PwdBuffer &pwd, uint32_t len)
{
    std::unique_ptr<kopa_envelope_pub_key> pub(new (std::nothrow) kopa_envelope_pub_key{});
    if (!pub) {
        DRV_ERR("no memory for pub_info");
        return kErrSysCopy;
    }
    pub->key_len = KOPA_ENVELOPE_KEY_MAX;
    const int kret = kopa_get_tls_digital_envelope_pub_ky(logic_id, pub.get());
    if (kret != 0) {
        DRV_ERR("kopa_get_tls_digital_envelope_pub_ky failed, ret:%d, logic_id:%u", kret, logic_id);
        return kopa_err_to_vorn_err(kret);
    }
    if (pub->key_len == 0 || pub->key_len > KOPA_ENVELOPE_KEY_MAX) {
        DRV_ERR("envelope pub key len[%u] is invalid", pub->key_len);
        return kErrKopa;
    }
    tls_put_u32(blob.data(), TLS_CFG_OFF_PWD_LEN, len);
    return tool_enc_tls_pwd(blob, pwd.data(), len, pub->key, pub->key_len);
}

int32_t tool_get_and_check_tls_pwd(uint32_t logic_id, uint32_t host, TlsRecord &blob)
{
    PwdBuffer pwd;
    int32_t ret = tool_get_passwd(pwd);
    if (ret != kOk)
        return ret;
    uint32_t len = 0;
    ret = tool_check_pwd(pwd, &len, vorn_get_g_usr_name());
    if (ret != kOk || len > kPwdMaxLen) {
        DRV_ERR("tool_check_pwd failed ret:%d or len[%u] > PWD_MAX_LEN[%d]", ret, len,
                static_cast<int>(kPwdMaxLen));
        return ret != kOk ? ret : kErrPwdLength;
    }
    if (host != 0) {
        memcpy(blob.data() + TLS_CFG_OFF_PWD, pwd.data(), len);
        tls_put_u32(blob.data(), TLS_CFG_OFF_PWD_LEN, len);
        return kOk;
    }
    return tool_handle_tls_pwd(logic_id, blob, pwd, len);
}

// The store's verdict in the words of the command. A busy store is passed up silently.
int32_t store_result(int ret, const char *op)
{
    switch (ret) {
    case 0:
        return kOk;
    case kRdfxBusy:
        return kErrBusy;
    case kRdfxNoCerts:
        return kErrTlsNoCerts;
    case kRdfxIllegal:
        return kErrKopaTlsIllegal;
    case kRdfxChain:
        return kErrKopaTlsChain;
    case kRdfxSealBroken:
    case kRdfxNoSealKey:
        (void)fputs(kSuiteBroken, stderr);
        break;
    default:
        break;
    }
    DRV_ERR("%s failed, ret:%d", op, ret);
    return kErrKopa;
}

int32_t tool_tls_handle_cfg(uint32_t logic_id, uint32_t host, TlsRecord &blob)
{
    if (host != 0) {
        tls_put_u32(blob.data(), TLS_CFG_OFF_HOST, 1);
        return store_result(rdfx_set_tls_cfg(logic_id, blob.data(), TLS_CFG_SIZE),
                            "rdfx_set_tls_cfg");
    }
    tls_put_u32(blob.data(), TLS_CFG_OFF_HOST, 0);
    const int ret = kopa_set_tls_cfg(logic_id, blob.data());
    if (ret == 0)
        return kOk;
    DRV_ERR("kopa_set_tls_cfg fail, ret:%d", ret);
    return ret == KOPA_RESULT_TLS_ILLEGAL ? kErrKopaTlsIllegal : kErrKopaTlsChain;
}

// "enable" and "alarm": the value, then an optional "host" as the last word.
int32_t host_tail(int argc, char **argv, uint32_t *host)
{
    *host = 0;
    if (argc != 2 && argc != 3) {
        DRV_ERR("err argc[%d]", argc);
        return kErrArgCount;
    }
    if (argc == 3) {
        if (!word_is(argv[2], "host")) {
            DRV_ERR("host is not the last config item, invalid");
            return kErrHostLast;
        }
        *host = 1;
    }
    return kOk;
}

int32_t tool_set_tls_enable(int argc, char **argv, uint32_t logic_id)
{
    uint32_t host = 0;
    int32_t ret = host_tail(argc, argv, &host);
    if (ret != kOk)
        return ret;
    uint32_t value = 0;
    if (word_is(argv[1], "0")) {
        value = 0;
    } else if (word_is(argv[1], "1")) {
        value = 1;
    } else {
        DRV_ERR("tls enable value is not valid");
        return kErrTlsEnable;
    }
    RUN_LOG_CONFIG("start to set tls enable of logic_id[%d]\n", static_cast<int>(logic_id));
    const int kret =
        host != 0 ? rdfx_set_tls_enable(logic_id, value) : kopa_set_tls_enable(logic_id, value);
    if (kret == kRdfxNoCerts) {
        DRV_ERR("can't set tls enable or disable for logic_id[%d], because it has no certs, please "
                "set certs",
                static_cast<int>(logic_id));
        return kErrTlsNoCerts;
    }
    if (host != 0)
        return store_result(kret, "rdfx_set_tls_enable");
    return kret == 0 ? kOk : kopa_err_to_vorn_err(kret);
}

int32_t tool_set_tls_alarm(int argc, char **argv, uint32_t logic_id)
{
    uint32_t host = 0;
    int32_t ret = host_tail(argc, argv, &host);
    if (ret != kOk)
        return ret;
    const char *text = argv[1];
    const size_t len = strnlen(text, 4);
    bool digits = len >= 1 && len <= 3;
    for (size_t i = 0; digits && i < len; ++i)
        digits = text[i] >= '0' && text[i] <= '9';
    const uint32_t days = digits ? static_cast<uint32_t>(strtoul(text, nullptr, 10)) : 0;
    if (!digits || days < kTlsAlarmMin || days > kTlsAlarmMax) {
        DRV_ERR("alarm days is not valid");
        return kErrTlsAlarm;
    }
    RUN_LOG_CONFIG("start to set tls alarm of device[%d]\n", static_cast<int>(logic_id));
    const int kret =
        host != 0 ? rdfx_set_tls_alarm(logic_id, days) : kopa_set_tls_alarm(logic_id, days);
    if (kret == kRdfxNoCerts) {
        DRV_ERR("can't set tls alarm for logic_id[%d], because it has no certs, please set certs",
                static_cast<int>(logic_id));
        return kErrTlsNoCerts;
    }
    if (host != 0)
        return store_result(kret, "rdfx_set_tls_alarm");
    return kret == 0 ? kOk : kopa_err_to_vorn_err(kret);
}

// "-g" and "-c": the operation word and an optional "host".
int32_t get_or_clear_host(int argc, char **argv, uint32_t *host)
{
    *host = 0;
    if (argc > 2) {
        DRV_ERR("err argc[%d]", argc);
        return kErrArgCount;
    }
    if (argc == 2) {
        if (!word_is(argv[1], "host")) {
            (void)fputs(kInvalidOption, stderr);
            DRV_ERR("Get invlaid option!");
            return kErrUnknownOption;
        }
        *host = 1;
    }
    return kOk;
}

int32_t tool_clear_tls_cfg(int argc, char **argv, uint32_t logic_id)
{
    uint32_t host = 0;
    const int32_t ret = get_or_clear_host(argc, argv, &host);
    if (ret != kOk)
        return ret;
    RUN_LOG_CONFIG("start to clear tls cfg of logic_id[%d]\n", static_cast<int>(logic_id));
    if (host != 0)
        return store_result(rdfx_clear_tls_cfg(logic_id), "rdfx_clear_tls_cfg");
    const int kret = kopa_clear_tls_cfg(logic_id, 0);
    return kret == 0 ? kOk : kopa_err_to_vorn_err(kret);
}

int32_t tool_get_tls_cfg(int argc, char **argv, uint32_t logic_id)
{
    uint32_t host = 0;
    int32_t ret = get_or_clear_host(argc, argv, &host);
    if (ret != kOk)
        return ret;
    kopa_tls_cert_info records[KOPA_TLS_CERT_INFO_MAX] = {};
    const int kret = host != 0 ? rdfx_get_tls_cfg(logic_id, records, KOPA_TLS_CERT_INFO_MAX)
                               : kopa_get_tls_cfg(logic_id, 0, records, KOPA_TLS_CERT_INFO_MAX);
    if (kret == kRdfxNoCerts) {
        RUN_LOG_PROMPT("logic_id[%d] has no certs, please set certs firstly\n",
                       static_cast<int>(logic_id));
        return kErrTlsNoCerts;
    }
    if (kret != 0)
        return host != 0 ? store_result(kret, "rdfx_get_tls_cfg") : kopa_err_to_vorn_err(kret);
    return tool_show_tls_cert_info(logic_id, records, KOPA_TLS_CERT_INFO_MAX);
}

// A fixed-size text field of a record, terminated and with control bytes escaped.
template <size_t N, size_t M> void field_text(char (&out)[M], const char (&field)[N])
{
    static_assert(M >= 4 * N + 1, "room for every byte escaped");
    (void)escape_text(out, M, field, strnlen(field, N));
}

} // namespace

int32_t tool_pars_tls_cfg_words(ToolTlsRec &rec)
{
    rec.item_limit = kTlsItemCount;
    if (rec.argc < kTlsCfgArgcMin || rec.argc > kTlsCfgArgcMax || rec.argv == nullptr) {
        DRV_ERR("err argc[%d]", rec.argc);
        return kErrArgCount;
    }
    int32_t ret = take_dir(rec);
    if (ret != kOk)
        return ret;
    int at = 2;
    if (word_is(rec.argv[at], "pri")) {
        ret = take_file(rec, at, kTlsItemPri);
        if (ret != kOk)
            return ret;
        at += 2;
        const TlsWord kind = tool_check_tls_param(at < rec.argc ? rec.argv[at] : "", "pub");
        if (kind == TlsWord::kInvalid) {
            DRV_ERR("invalid tls cfg item at index[%d]", at);
            return kErrParamInvalid;
        }
        if (kind != TlsWord::kExpected) {
            DRV_ERR("pub cert and key must set together!");
            return kErrTlsKeyCert;
        }
        ret = take_file(rec, at, kTlsItemPub);
        if (ret != kOk)
            return ret;
        rec.cert_count = 1;
        at += 2;
        ret = take_ca_levels(rec, at);
        if (ret != kOk)
            return ret;
    } else if (!word_is(rec.argv[at], "crl")) {
        DRV_ERR("the item after the path must be pri or crl, index[%d]", at);
        return kErrTlsNoKey;
    }
    if (at < rec.argc && word_is(rec.argv[at], "crl")) {
        ret = take_crl(rec, at);
        if (ret != kOk)
            return ret;
    }
    if (at < rec.argc && word_is(rec.argv[at], "host")) {
        if (at != rec.argc - 1) {
            DRV_ERR("host index[%d] < [%d](argc - 1), host is not the last configuration item, "
                    "illegal",
                    at, rec.argc - 1);
            return kErrHostLast;
        }
        rec.flags[kTlsItemHost] = 1;
        rec.host = 1;
        ++at;
    }
    if (at < rec.argc) {
        DRV_ERR("invalid tls cfg item at index[%d]", at);
        return kErrParamInvalid;
    }
    return kOk;
}

int32_t tool_check_tls_cfg(const ToolTlsRec &rec)
{
    if (rec.flags[kTlsItemPri] != rec.flags[kTlsItemPub]) {
        DRV_ERR("pub cert and key must set together!");
        return kErrTlsKeyCert;
    }
    uint32_t deepest = 0;
    for (uint32_t level = 1; level <= kTlsItemCaMax; ++level) {
        if (rec.flags[level] != 0)
            deepest = level;
    }
    if (rec.flags[kTlsItemPub] == 0) {
        if (deepest != 0) {
            DRV_ERR("Update CA certificate must after Updating pub certificate!");
            return kErrTlsNoKey;
        }
        DRV_DBG("no pub cert and no ca cert.");
        return kOk;
    }
    int cnt = 0;
    for (uint32_t j = deepest; j >= 2; --j) {
        if (rec.flags[j] != rec.flags[j - 1])
            ++cnt;
    }
    if (cnt > 1) {
        DRV_ERR("cnt[%d] > 1, certificate chain is not consequent!", cnt);
        return kErrTlsChain;
    }
    return kOk;
}

int32_t tool_read_file_check_size(uint32_t item, long size)
{
    if (item <= kTlsItemCaMax) {
        if (size > static_cast<long>(TLS_CFG_CERT_MAX)) {
            DRV_ERR("cert type[%d] size[%d] is bigger than [%d], invalid", static_cast<int>(item),
                    static_cast<int>(size), static_cast<int>(TLS_CFG_CERT_MAX));
            return kErrCertLength;
        }
        return kOk;
    }
    if (item == kTlsItemPri) {
        if (size > static_cast<long>(TLS_CFG_KEY_MAX)) {
            DRV_ERR("ky size[%d] is bigger than [%d], invalid", static_cast<int>(size),
                    static_cast<int>(TLS_CFG_KEY_MAX));
            return kErrCertLength;
        }
        return kOk;
    }
    if (item == kTlsItemCrl) {
        if (size > static_cast<long>(TLS_CFG_CRL_MAX)) {
            DRV_ERR("crl size[%d] is bigger than [%d], invalid", static_cast<int>(size),
                    static_cast<int>(TLS_CFG_CRL_MAX));
            return kErrCertLength;
        }
        return kOk;
    }
    DRV_ERR("item[%u] has no file", item);
    return kErrSysNull;
}

int32_t tool_read_file(const char *path, uint8_t *buf, uint32_t *len, uint32_t item)
{
    *len = 0;
    char real[kTlsPathBufLen] = {};
    if (path == nullptr || strnlen(path, kTlsPathBufLen) >= kTlsPathBufLen ||
        realpath(path, real) == nullptr) {
        DRV_ERR("path of item[%u] is too long or cannot be resolved, err[%d]", item, errno);
        return kErrFilePath;
    }
    FILE *f = fopen(real, "rbe");
    if (f == nullptr) {
        DRV_ERR("open file of item[%u] failed, errno:%d", item, errno);
        return kErrSysRead;
    }
    // Unbuffered: the text goes straight into its slot, with no copy left in a stdio buffer.
    (void)setvbuf(f, nullptr, _IONBF, 0);
    int32_t ret = kOk;
    long size = 0;
    struct stat st {
    };
    if (fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode)) {
        DRV_ERR("file of item[%u] is not a regular file", item);
        ret = kErrSysRead;
    } else if (fseek(f, 0, SEEK_END) != 0 || (size = ftell(f)) <= 0) {
        DRV_ERR("seek or tell file of item[%u] failed, size[%ld]", item, size);
        ret = kErrSysRead;
    } else if ((ret = tool_read_file_check_size(item, size)) != kOk) {
        // reported by the check
    } else if (fseek(f, 0, SEEK_SET) != 0 ||
               fread(buf, 1, static_cast<size_t>(size), f) != static_cast<size_t>(size)) {
        DRV_ERR("read file of item[%u] failed", item);
        ret = kErrSysRead;
    } else {
        // A text that fills its slot is not terminated here: its terminator would land on the
        // first byte of the next field, which for the CRL is the pass phrase.
        if (static_cast<size_t>(size) < tls_slot_size(item))
            buf[size] = '\0';
        *len = static_cast<uint32_t>(size);
    }
    (void)fclose(f);
    return ret;
}

int32_t tool_get_tls_cfg_from_file(const ToolTlsRec &rec, TlsRecord &blob, uint32_t logic_id)
{
    uint8_t *rb = blob.data();
    uint32_t len = 0;
    int32_t ret = kOk;
    if (rec.flags[kTlsItemPri] != 0) {
        ret = tool_read_file(rec.files[kTlsItemPri], rb + TLS_CFG_OFF_KEY, &len, kTlsItemPri);
        if (ret != kOk) {
            (void)fputs("File pri key is not exist or read failed!\n", stderr);
            return ret;
        }
        tls_put_u32(rb, TLS_CFG_OFF_KEY_LEN, len);
        ret = tool_get_and_check_tls_pwd(logic_id, rec.host, blob);
        if (ret != kOk)
            return ret;
    }
    uint32_t total = 0;
    for (uint32_t item = kTlsItemPub; item <= kTlsItemCaMax; ++item) {
        if (rec.flags[item] == 0)
            continue;
        ret = tool_read_file(rec.files[item], rb + tls_slot_offset(item), &len, item);
        if (ret != kOk) {
            (void)fprintf(stderr, "File ca%d is not exist or read failed!\n",
                          static_cast<int>(item));
            return ret;
        }
        tls_put_u32(rb, tls_len_offset(item), len);
        total += len;
    }
    tls_put_u32(rb, TLS_CFG_OFF_CERT_TOTAL, total);
    tls_put_u32(rb, TLS_CFG_OFF_CERT_COUNT, rec.cert_count);
    if (rec.flags[kTlsItemCrl] != 0) {
        ret = tool_read_file(rec.files[kTlsItemCrl], rb + TLS_CFG_OFF_CRL, &len, kTlsItemCrl);
        if (ret != kOk) {
            (void)fputs("File crl file is not exist or read failed!\n", stderr);
            return ret;
        }
        tls_put_u32(rb, TLS_CFG_OFF_CRL_LEN, len);
    }
    return kOk;
}

int32_t tool_set_tls_cfg(int argc, char **argv, uint32_t logic_id)
{
    if (argc < kTlsCfgArgcMin || argc > kTlsCfgArgcMax) {
        DRV_ERR("err argc[%d]", argc);
        return kErrArgCount;
    }
    std::unique_ptr<ToolTlsRec> rec(new (std::nothrow) ToolTlsRec{});
    std::unique_ptr<TlsRecord> blob(new (std::nothrow) TlsRecord);
    if (!rec || !blob) {
        DRV_ERR("no memory for tls cfg");
        return kErrSysCopy;
    }
    // From the pass phrase to the wipe of the record, the process keeps no core and admits no
    // tracer.
    NoDumpScope no_dump;
    rec->argc = argc;
    rec->argv = argv;
    int32_t ret = tool_pars_tls_cfg_para(*rec, *blob, logic_id);
    if (ret == kOk) {
        tool_tls_cfg_print(*rec, logic_id);
        ret = tool_tls_handle_cfg(logic_id, rec->host, *blob);
    }
    blob->wipe();
    return ret;
}

int32_t tool_set_tls(int argc, char **argv, uint32_t logic_id)
{
    if (argc < 2) {
        DRV_ERR("err argc[%d]", argc);
        return kErrArgCount;
    }
    if (word_is(argv[0], "enable"))
        return tool_set_tls_enable(argc, argv, logic_id);
    if (word_is(argv[0], "alarm"))
        return tool_set_tls_alarm(argc, argv, logic_id);
    if (word_is(argv[0], "path")) {
        const int32_t ret = tool_set_tls_cfg(argc, argv, logic_id);
        (void)fputs(kKeyFileWarning, stdout);
        RUN_LOG_PROMPT("%s", kKeyFileWarning);
        return ret;
    }
    (void)fputs("Get unknown option\n", stderr);
    DRV_ERR("Get unknown option");
    return kErrUnknownOption;
}

const char *tool_get_cert_type(uint32_t pos, char (&name)[10])
{
    if (pos == 0)
        (void)snprintf(name, sizeof(name), "pub cert");
    else if (pos <= kTlsItemCaMax)
        (void)snprintf(name, sizeof(name), "ca%u cert", pos);
    else
        (void)snprintf(name, sizeof(name), "crl");
    return name;
}

uint32_t tool_tls_cert_is_preconfig(const kopa_tls_cert_info *records, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i) {
        char issuer[sizeof(records[i].issuer) + 1] = {};
        memcpy(issuer, records[i].issuer, sizeof(records[i].issuer));
        if (strstr(issuer, "/O=Talvor") != nullptr &&
            (strstr(issuer, "/CN=Talvor IT Product CA") != nullptr ||
             strstr(issuer, "/CN=Talvor Equipment CA") != nullptr))
            return 1;
    }
    return 0;
}

int32_t tool_check_cert_expired(const kopa_tls_cert_info &record, uint32_t index, uint32_t logic_id)
{
    char end_text[sizeof(record.end_time) + 1] = {};
    memcpy(end_text, record.end_time, sizeof(record.end_time));
    struct tm end_tm {
    };
    if (strptime(end_text, kExpiryFormat, &end_tm) == nullptr) {
        DRV_ERR("string to time failed, index:%u, end_time:%s", index, end_text);
        return kErrSysCopy;
    }
    const time_t end = mktime(&end_tm);
    const time_t now = time(nullptr);
    struct tm now_tm {
    };
    if (gmtime_r(&now, &now_tm) == nullptr) {
        DRV_ERR("gmtime_r failed, now:%ld", static_cast<long>(now));
        return kErrSysCopy;
    }
    // Both sides are UTC read back as local time, so the difference is the true one.
    const time_t now_utc = mktime(&now_tm);
    const double diff = difftime(end, now_utc);
    if (diff < 1) {
        (void)fprintf(stderr, kExpiryStatus, 2);
        DRV_WARN("cert[%u] of logic_id[%u] has expired", index, logic_id);
        return kErrCertExpired;
    }
    const auto left = static_cast<uint32_t>(static_cast<int64_t>(diff));
    (void)printf(kExpiryStatus,
                 left > static_cast<uint64_t>(record.alarm_days) * kSecondsPerDay ? 0 : 1);
    return kOk;
}

int32_t tool_show_tls_cert_info(uint32_t logic_id, const kopa_tls_cert_info *records,
                                uint32_t count)
{
    (void)printf("dev_id:%d, tls switch[%u](0:disable, 1:enable), tls preconfigured[%u](0:non-"
                 "preset, 1:preset), tls alarm time threshold[%u]days\n",
                 static_cast<int>(logic_id), records[0].tls_switch,
                 tool_tls_cert_is_preconfig(records, count), records[0].alarm_days);
    for (uint32_t i = 0; i < count; ++i) {
        const kopa_tls_cert_info &r = records[i];
        if (r.issuer[0] == '\0')
            continue;
        char name[10];
        char issuer[4 * sizeof(r.issuer) + 1];
        char start[4 * sizeof(r.start_time) + 1];
        char end[4 * sizeof(r.end_time) + 1];
        field_text(issuer, r.issuer);
        field_text(start, r.start_time);
        field_text(end, r.end_time);
        (void)printf("dev_id:%d, [%s] info:\n\t issuer[%s]\n\t start_time[%s GMT]\n\t "
                     "end_time[%s GMT]\n",
                     static_cast<int>(logic_id), tool_get_cert_type(i, name), issuer, start, end);
        // An expired item is reported by its status line and the listing goes on.
        const int32_t ret = tool_check_cert_expired(r, i, logic_id);
        if (ret != kOk && ret != kErrCertExpired) {
            DRV_ERR("tool_check_cert_expired failed, ret:%d,i:%u, logic_id:%d", ret, i,
                    static_cast<int>(logic_id));
            return ret;
        }
    }
    return kOk;
}

int32_t tool_tls_cmd_execute(int argc, char **argv, cmd_parse_info *info)
{
    if (argc <= 0 || argv == nullptr || info == nullptr) {
        DRV_ERR("err argc[%d]", argc);
        return kErrArgCount;
    }
    const uint32_t logic_id = info->logic_id;
    int32_t ret = kOk;
    if (strncmp(argv[0], "-g", 3) == 0) {
        ret = tool_get_tls_cfg(argc, argv, logic_id);
        if (ret != kOk && ret != kErrTlsNoCerts)
            DRV_ERR("tool_get_tls_cfg fail, ret:%d", ret);
    } else if (strncmp(argv[0], "-s", 3) == 0) {
        ret = tool_set_tls(argc - 1, argv + 1, logic_id);
        if (ret != kOk && ret != kErrBusy)
            DRV_ERR("set tls cfg failed, ret[%d], logic_id[%d]", ret, static_cast<int>(logic_id));
    } else if (strncmp(argv[0], "-c", 3) == 0) {
        ret = tool_clear_tls_cfg(argc, argv, logic_id);
        if (ret != kOk && ret != kErrBusy)
            DRV_ERR("clear tls cfg failed, ret[%d], logic_id[%d]", ret, static_cast<int>(logic_id));
    } else {
        (void)fputs("Get unknown option!\n", stderr);
        DRV_ERR("Get unknown option!");
        ret = kErrUnknownOption;
    }
    return ret;
}
