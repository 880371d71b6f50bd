// Unit tests of the rules of the -tls command that end-to-end runs reach only at their edges:
// file size limits and slot terminators, the pass-phrase kinds and dictionaries, the envelope,
// the expiry status and the factory preset.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>

#include "base/result.hpp"
#include "tests/support/tool_sandbox.hpp"
#include "tests/tls/tls_support.hpp"
#include "tls/tls_envelope.hpp"
#include "tls/tls_pwd.hpp"
#include "tls/tool_tls.hpp"

namespace
{

class TlsRulesTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "1"}};
    TempDir dir_;

    void SetUp() override
    {
        for (const auto &[k, v] : sb_.env())
            setenv(k.c_str(), v.c_str(), 1);
    }
    void TearDown() override
    {
        unsetenv("VORN_TEST_ROOT");
        unsetenv("KOPA_EMU_DIR");
    }
};

std::string asctime_utc(time_t t)
{
    struct tm tm {
    };
    char buf[64];
    gmtime_r(&t, &tm);
    asctime_r(&tm, buf);
    return std::string(buf, strcspn(buf, "\n"));
}

kopa_tls_cert_info record(const std::string &issuer, const std::string &end, uint32_t alarm)
{
    kopa_tls_cert_info r{};
    r.alarm_days = alarm;
    memcpy(r.issuer, issuer.data(), std::min(issuer.size(), sizeof(r.issuer)));
    memcpy(r.end_time, end.data(), std::min(end.size(), sizeof(r.end_time)));
    return r;
}

} // namespace

TEST_F(TlsRulesTest, FilesAreHeldToTheLimitOfTheirItem)
{
    struct Case {
        uint32_t item;
        size_t size;
        int32_t ret;
    };
    const Case cases[] = {
        {kTlsItemPub, 2048, kOk},   {kTlsItemPub, 2049, kErrCertLength},
        {kTlsItemCaMax, 2048, kOk}, {kTlsItemCaMax, 2049, kErrCertLength},
        {kTlsItemPri, 5120, kOk},   {kTlsItemPri, 5121, kErrCertLength},
        {kTlsItemCrl, 20480, kOk},  {kTlsItemCrl, 20481, kErrCertLength},
        {kTlsItemPub, 1, kOk},      {kTlsItemPub, 0, kErrSysRead},
    };
    for (const Case &c : cases) {
        const std::string path = dir_.put("f", std::string(c.size, 'x'));
        std::unique_ptr<TlsRecord> blob(new TlsRecord);
        uint8_t *slot = blob->data() + tls_slot_offset(c.item);
        uint32_t len = 7;
        EXPECT_EQ(tool_read_file(path.c_str(), slot, &len, c.item), c.ret)
            << c.item << " " << c.size;
        EXPECT_EQ(len, c.ret == kOk ? c.size : 0u);
        if (c.ret == kOk) {
            EXPECT_EQ(std::string(reinterpret_cast<char *>(slot), c.size),
                      std::string(c.size, 'x'));
        }
    }
    uint8_t buf[8];
    uint32_t len = 0;
    EXPECT_EQ(tool_read_file((dir_.path() + "/absent").c_str(), buf, &len, kTlsItemPub),
              kErrFilePath);
    EXPECT_EQ(tool_read_file(std::string(5000, 'a').c_str(), buf, &len, kTlsItemPub), kErrFilePath);
    EXPECT_EQ(tool_read_file(dir_.path().c_str(), buf, &len, kTlsItemPub), kErrSysRead);
}

TEST_F(TlsRulesTest, TextThatFillsItsSlotLeavesTheNextFieldAlone)
{
    std::unique_ptr<TlsRecord> blob(new TlsRecord);
    uint8_t *rec = blob->data();
    // The pass phrase field, filled before the CRL is read, follows the CRL's slot.
    memcpy(rec + TLS_CFG_OFF_PWD, "Sealed#Phrase", 13);
    uint32_t len = 0;
    const std::string full = dir_.put("full.crl", std::string(TLS_CFG_CRL_MAX, 'c'));
    ASSERT_EQ(tool_read_file(full.c_str(), rec + TLS_CFG_OFF_CRL, &len, kTlsItemCrl), kOk);
    EXPECT_EQ(memcmp(rec + TLS_CFG_OFF_PWD, "Sealed#Phrase", 13), 0);
    // A shorter text is terminated within its slot.
    memset(rec + TLS_CFG_OFF_KEY, 'z', TLS_CFG_KEY_MAX);
    const std::string shorter = dir_.put("k.pem", "key");
    ASSERT_EQ(tool_read_file(shorter.c_str(), rec + TLS_CFG_OFF_KEY, &len, kTlsItemPri), kOk);
    EXPECT_STREQ(reinterpret_cast<char *>(rec + TLS_CFG_OFF_KEY), "key");
}

TEST_F(TlsRulesTest, PassPhraseNeedsTwoKindsOfTheKnownCharacters)
{
    const std::string special = "`~!@#$%^&*()-_=+\\|[{}];:',<.>/? ";
    ASSERT_EQ(special.size(), 32u);
    for (char c : special)
        EXPECT_TRUE(is_special_char(c)) << c;
    for (char c : std::string("\"\t\x7f\x01"))
        EXPECT_FALSE(is_special_char(c)) << static_cast<int>(c);
    struct Case {
        std::string pwd;
        int32_t ret;
    };
    const Case cases[] = {
        {"abcdefgh", kErrPwdComplexity},
        {"ABCDEFGH", kErrPwdComplexity},
        {"12345678", kErrPwdComplexity},
        {"!@#$%^&*", kErrPwdComplexity},
        {"abcdefg1", kOk},
        {"ABCDEFG ", kOk},
        {"1234567~", kOk},
        {"abcd\"EFG", kErrPwdComplexity},
        {"abcd\xe9"
         "EFG",
         kErrPwdComplexity},
    };
    for (const Case &c : cases)
        EXPECT_EQ(tool_check_pwd_complexity(c.pwd.data(), static_cast<uint32_t>(c.pwd.size())),
                  c.ret)
            << c.pwd;
}

TEST_F(TlsRulesTest, WeakPasswordDictionaries)
{
    EXPECT_EQ(weak_dict_path("root"), sb_.root() + "/etc/vorn_weak_dict.conf");
    EXPECT_EQ(weak_dict_path("alice"), sb_.root() + "/home/alice/vorn_weak_dict.conf");
    std::string many;
    for (int i = 0; i < 10000; ++i)
        many += "w" + std::to_string(i) + "\n";
    struct Case {
        const char *what;
        std::string text; // "-" for no file
        int32_t ret;
    };
    const std::string pwd = "Weak#Pass1";
    const Case cases[] = {
        {"absent", "-", kErrPwdNoDict},
        {"empty", "", kErrPwdEmptyDict},
        {"listed", "abc\nWeak#Pass1\nxyz\n", kErrPwdWeak},
        {"listed last, no newline", "abc\nWeak#Pass1", kErrPwdWeak},
        {"case differs", "weak#pass1\n", kOk},
        {"longer line", "Weak#Pass1x\nWeak#Pass\n", kOk},
        {"10000 lines", many, kOk},
        {"10001 lines", many + "x\n", kErrPwdDictTooLong},
        {"1024 characters", std::string(1024, 'a') + "\nWeak#Pass1\n", kErrPwdWeak},
        {"1025 characters", std::string(1025, 'a') + "\nWeak#Pass1\n", kErrSysNull},
    };
    for (const Case &c : cases) {
        const std::string path = dir_.path() + "/dict";
        std::filesystem::remove(path);
        if (c.text != "-")
            dir_.put("dict", c.text);
        EXPECT_EQ(
            crypto_check_weak_pwd(pwd.data(), static_cast<uint32_t>(pwd.size()), path.c_str()),
            c.ret)
            << c.what;
    }
}

TEST_F(TlsRulesTest, ExpiryStatusAgainstTheAlarmThreshold)
{
    const time_t now = time(nullptr);
    struct Case {
        const char *what;
        std::string end;
        uint32_t alarm;
        int32_t ret;
        std::string out, err;
    };
    const std::string s0 =
        "\t tls expiration status[0](0:normal, 1:near expiration, 2:has expired)\n";
    const std::string s1 =
        "\t tls expiration status[1](0:normal, 1:near expiration, 2:has expired)\n";
    const std::string s2 =
        "\t tls expiration status[2](0:normal, 1:near expiration, 2:has expired)\n";
    const Case cases[] = {
        {"ends this second", asctime_utc(now), 30, kErrCertExpired, "", s2},
        {"ended", asctime_utc(now - 3600), 30, kErrCertExpired, "", s2},
        {"inside the threshold", asctime_utc(now + 10 * kDay), 30, kOk, s1, ""},
        {"just inside", asctime_utc(now + 7 * kDay - 60), 7, kOk, s1, ""},
        {"just outside", asctime_utc(now + 7 * kDay + 60), 7, kOk, s0, ""},
        {"far away", asctime_utc(now + 400 * kDay), 180, kOk, s0, ""},
        {"not a time", "yesterday", 30, kErrSysCopy, "", ""},
    };
    for (const Case &c : cases) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(tool_check_cert_expired(record("/CN=x", c.end, c.alarm), 0, 0), c.ret) << c.what;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out) << c.what;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.err) << c.what;
    }

    // An expired item does not end the listing; an unreadable one does.
    kopa_tls_cert_info list[3] = {record("/CN=a", asctime_utc(now - 10), 30), kopa_tls_cert_info{},
                                  record("/CN=c", asctime_utc(now + 100 * kDay), 30)};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(tool_show_tls_cert_info(3, list, 3), kOk);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), s2);
    EXPECT_NE(out.find("dev_id:3, [pub cert] info:\n\t issuer[/CN=a]\n"), std::string::npos);
    EXPECT_EQ(out.find("[ca1 cert]"), std::string::npos) << "an empty record is skipped";
    EXPECT_NE(out.find("dev_id:3, [ca2 cert] info:\n\t issuer[/CN=c]\n"), std::string::npos);
    list[0] = record("/CN=a", "garbage", 30);
    testing::internal::CaptureStdout();
    EXPECT_EQ(tool_show_tls_cert_info(3, list, 3), kErrSysCopy);
    out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.find("[ca2 cert]"), std::string::npos);
}

TEST_F(TlsRulesTest, FactoryPresetAndItemNames)
{
    struct Case {
        std::vector<std::string> issuers;
        uint32_t preset;
    };
    const Case cases[] = {
        {{"/O=Talvor/CN=Talvor IT Product CA"}, 1},
        {{"", "/C=CN/O=Talvor/OU=x/CN=Talvor Equipment CA"}, 1},
        {{"/O=Talvor/CN=Talvor Root CA", "/O=Other/CN=Talvor IT Product CA"}, 0},
        {{"/O=Talvorx/CN=Talvor Equipment CA"}, 1}, // names are matched as substrings
        {{"/CN=Talvor IT Product CA"}, 0},
        {{}, 0},
    };
    for (const Case &c : cases) {
        std::vector<kopa_tls_cert_info> list;
        for (const std::string &issuer : c.issuers)
            list.push_back(record(issuer, "", 30));
        EXPECT_EQ(tool_tls_cert_is_preconfig(list.data(), static_cast<uint32_t>(list.size())),
                  c.preset)
            << testing::PrintToString(c.issuers);
    }
    char name[10];
    EXPECT_STREQ(tool_get_cert_type(0, name), "pub cert");
    EXPECT_STREQ(tool_get_cert_type(1, name), "ca1 cert");
    EXPECT_STREQ(tool_get_cert_type(14, name), "ca14 cert");
    EXPECT_STREQ(tool_get_cert_type(15, name), "crl");
}

TEST_F(TlsRulesTest, EnvelopeThatCannotBeSealedLeavesNothingHalfDone)
{
    // The device's opening of a good envelope is exercised end to end; here the failure.
    const std::string pwd = "Tls#Pass2024";
    std::unique_ptr<TlsRecord> other(new TlsRecord);
    EXPECT_EQ(tool_enc_tls_pwd(*other, reinterpret_cast<const uint8_t *>(pwd.data()),
                               static_cast<uint32_t>(pwd.size()), "not a key", 9),
              kErrSysCopy);
    const uint8_t *o = other->data();
    EXPECT_EQ(tls_get_u32(o, TLS_CFG_OFF_PWD_ENC_LEN), 0u);
    for (size_t i = 0; i < kTlsIvLen + kTlsTagLen; ++i)
        EXPECT_EQ(o[TLS_CFG_OFF_IV + i], 0) << i;
    for (size_t i = 0; i < TLS_CFG_PWD_MAX + 4 + TLS_CFG_SYMM_KEY_MAX; ++i)
        EXPECT_EQ(o[TLS_CFG_OFF_PWD + i], 0) << i;
}
