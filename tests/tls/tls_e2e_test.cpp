// End-to-end tests of -tls through the real tool, the TLS module and the emulated devices: the
// grammar of "-s path", a suite with a CA chain and a CRL installed on a device and on the host,
// the listing with validity and expiry status, the refusals of bad suites and pass phrases, and
// the other operations.
#include <sys/file.h>
#include <sys/stat.h>

#include <fcntl.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <regex>

#include "tests/tls/tls_fixture.hpp"
#include "tls/rdfx_tls_interface.hpp"

namespace
{

int count_of(const std::string &text, const std::string &what)
{
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

std::string status_line(int status)
{
    return "\t tls expiration status[" + std::to_string(status) +
           "](0:normal, 1:near expiration, 2:has expired)\n";
}

class TlsCommandTest : public TlsFixture
{
};

} // namespace

TEST_F(TlsCommandTest, PathGrammarRefusesOrAcceptsEachForm)
{
    // Accepted forms go on to read the key, which is not there: that is their mark.
    const std::string accepted = "File pri key is not exist or read failed!\n";
    const std::string d = sb_.dir();
    std::vector<std::string> all = {"path", d, "pri", "k", "pub", "c"};
    for (int level = 1; level <= 14; ++level)
        all.insert(all.end(), {"ca" + std::to_string(level), "a"});
    all.insert(all.end(), {"crl", "r", "host"});
    std::vector<std::string> too_many = all;
    too_many.insert(too_many.end() - 1, "x");
    struct Case {
        std::vector<std::string> words; // after "-s"
        int status;
        std::string err;
    };
    const Case cases[] = {
        {{"path", d, "pri", "k", "pub", "c"}, 2, accepted},
        {{"path", d, "pri", "k", "pub", "c", "ca2", "a", "ca3", "b"}, 2, accepted},
        {{"path", d, "pri", "k", "pub", "c", "ca14", "a", "crl", "r", "host"}, 2, accepted},
        {{"path", d, "pri", "k", "pub", "c", "crl", "r", "host"}, 2, accepted},
        {{"path", d, "pri", std::string(255, 'k'), "pub", "c"}, 2, accepted},
        {all, 2, accepted},
        {too_many, 5, "The total count of input parameters is wrong!\n"},
        {{"path", d, "crl", "r"}, 5, "The total count of input parameters is wrong!\n"},
        {{"path", d, "crl", "r", "host"}, 5, "The total count of input parameters is wrong!\n"},
        {{"path", d, "pri", "k", "pub", "c", "ca1", "a", "ca3", "b"},
         0x14,
         "The certificate chain is not continuous!\n"},
        {{"path", d, "pri", "k", "pub", "c", "ca3", "a", "ca1", "b"},
         0x14,
         "The certificate chain is not continuous!\n"},
        {{"path", d, "pri", "k", "ca1", "a"}, 0x13, "Pri key doesn't match to pub cert!\n"},
        {{"path", d, "pri", "k", "crl", "r"}, 0x13, "Pri key doesn't match to pub cert!\n"},
        {{"path", d, "ca1", "a", "pub", "c"},
         0x12,
         "No pri key, cannot assign ca without pri key!\n"},
        {{"path", d, "pri", "k", "pub", "c", "crl", "r", "ca1", "a"},
         0x15,
         "The crl certificate should be the last config item!\n"},
        {{"path", d, "pri", "k", "pub", "c", "host", "crl", "r"},
         0x1E,
         "The host flag should be the last config item!\n"},
        {{"path", d + "/missing", "pri", "k", "pub", "c"}, 2, "The file path input is invalid!\n"},
        {{"path", d, "pri", "host", "pub", "c"}, 1, "Get invalid parameters!\n"},
        {{"path", d, "pri", std::string(256, 'k'), "pub", "c"}, 1, "Get invalid parameters!\n"},
        {{"path", d, "pri", "k", "pub", "c", "ca1"}, 1, "Get invalid parameters!\n"},
        {{"path", d, "pri", "k", "pub", "c", "cax", "a"}, 1, "Get invalid parameters!\n"},
    };
    for (const Case &c : cases) {
        std::vector<std::string> words = {"-s"};
        words.insert(words.end(), c.words.begin(), c.words.end());
        const ProcResult r = tls(words);
        const std::string shown = testing::PrintToString(c.words);
        EXPECT_EQ(r.status, c.status) << shown << "\n" << r.err;
        EXPECT_NE(r.err.find(c.err), std::string::npos) << shown << "\n" << r.err;
        // The key-file warning follows every "-s path", refused or not.
        EXPECT_EQ(r.out.substr(r.out.size() - std::min(r.out.size(), strlen(kKeyWarning))),
                  kKeyWarning)
            << shown;
    }
    // Nothing reached a device.
    EXPECT_EQ(tls({"-g"}).status, 0x0F);
}

TEST_F(TlsCommandTest, SuiteWithChainAndCrlInstallsOnDeviceAndHostAndIsListed)
{
    write_suite(pki_, pass_);
    for (bool host : {false, true}) {
        const PtyResult r = tls_typed(install_words(pki_.path(), host), pass_);
        ASSERT_TRUE(r.prompted);
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        EXPECT_EQ(r.out, std::string(kPassPrompt) + kNoDict + kKeyWarning);
        EXPECT_EQ(r.err, "");
        // The audit names the items; the pass phrase appears nowhere in the logs.
        const std::string line = "set tls cfg[pub:1, ca1-ca14:11000000000000, pri:1, crl:1, "
                                 "host:" +
                                 std::string(host ? "1" : "0") + "] for logic_id[0]\n";
        EXPECT_NE(sb_.run_log().find(line), std::string::npos);
    }
    EXPECT_EQ(sb_.run_log().find(pass_), std::string::npos);
    EXPECT_EQ(sb_.driver_log().find(pass_), std::string::npos);

    const std::regex time("\\[\\w{3} \\w{3} [ \\d]\\d \\d\\d:\\d\\d:\\d\\d \\d{4} GMT\\]");
    for (bool host : {false, true}) {
        const ProcResult r =
            tls(host ? std::vector<std::string>{"-g", "host"} : std::vector<std::string>{"-g"});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.out.rfind("dev_id:0, tls switch[0](0:disable, 1:enable), tls preconfigured[0]"
                              "(0:non-preset, 1:preset), tls alarm time threshold[30]days\n",
                              0),
                  0u)
            << r.out;
        for (const char *item : {"[pub cert]", "[ca1 cert]", "[ca2 cert]", "[crl]"})
            EXPECT_EQ(count_of(r.out, std::string("dev_id:0, ") + item + " info:\n"), 1) << item;
        EXPECT_EQ(count_of(r.out, "\t issuer[/O=Test/CN=Test Intermediate CA]\n"), 2) << r.out;
        EXPECT_EQ(count_of(r.out, "\t issuer[/O=Test/CN=Test Root CA]\n"), 2) << r.out;
        EXPECT_EQ(std::distance(std::sregex_iterator(r.out.begin(), r.out.end(), time),
                                std::sregex_iterator()),
                  8);
        // The CRL's next update is 30 days away, the alarm threshold too: near expiration.
        EXPECT_EQ(count_of(r.out, status_line(0)), 3) << r.out;
        EXPECT_EQ(count_of(r.out, status_line(1)), 1) << r.out;
    }

    // The host's copy: private files in a private directory, the pass phrase sealed.
    struct stat st {
    };
    const std::string suite = sb_.root() + "/var/lib/vorn_tool/tls/suite-0.bin";
    ASSERT_EQ(stat(suite.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    ASSERT_EQ(stat((sb_.root() + "/var/lib/vorn_tool/tls").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    ASSERT_EQ(stat((sb_.root() + "/var/lib/vorn_tool/keys/seal.key").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(st.st_size, 32);
    EXPECT_EQ(read_file(suite).find(pass_), std::string::npos);

    // Clearing one target leaves the other.
    EXPECT_EQ(tls({"-c", "host"}).status, 0);
    EXPECT_EQ(tls({"-g", "host"}).status, 0x0F);
    EXPECT_EQ(tls({"-g"}).status, 0);
    EXPECT_EQ(tls({"-c"}).status, 0);
    const ProcResult none = tls({"-g"});
    EXPECT_EQ(none.status, 0x0F);
    EXPECT_EQ(none.err, "No certificate found, please set certs firstly!\nCmd execute failed!\n");
}

TEST_F(TlsCommandTest, ListingShowsExpiryStatesAndTheFactoryPreset)
{
    struct Case {
        std::string id;
        std::string inter_subject;
        long dev_days;
        int pub_status;
        unsigned preset;
    };
    const Case cases[] = {
        {"0", "/O=Test/CN=Test Intermediate CA", 365, 0, 0},
        {"1", "/C=CN/O=Talvor/CN=Talvor IT Product CA", 10, 1, 1},
        {"2", "/O=Talvor/CN=Talvor Equipment CA", -1, 2, 1},
    };
    for (const Case &c : cases) {
        TempDir dir;
        write_suite(dir, pass_, c.inter_subject, c.dev_days * kDay);
        // A device keeps an expired suite and reports it; the host store refuses it.
        const PtyResult set = tls_typed(install_words(dir.path(), false), pass_, c.id);
        ASSERT_EQ(set.status, 0) << c.id << set.err;
        const ProcResult r = tls({"-g"}, c.id);
        EXPECT_EQ(r.status, 0) << c.id << r.err;
        EXPECT_NE(r.out.find("tls preconfigured[" + std::to_string(c.preset) + "]"),
                  std::string::npos)
            << r.out;
        const size_t pub = r.out.find("[pub cert] info:");
        ASSERT_NE(pub, std::string::npos);
        if (c.pub_status == 2) {
            EXPECT_EQ(r.err, status_line(2));
            // Every record after it is still listed.
            EXPECT_EQ(count_of(r.out, "tls expiration status["), 3) << r.out;
        } else {
            const size_t status = r.out.find("\t tls expiration status[", pub);
            EXPECT_EQ(status, r.out.find(status_line(c.pub_status), pub)) << r.out;
        }
    }

    TempDir expired;
    write_suite(expired, pass_, "/O=Test/CN=Test Intermediate CA", -kDay);
    const PtyResult refused = tls_typed(install_words(expired.path(), true), pass_);
    EXPECT_EQ(refused.status, 0x07);
    EXPECT_NE(refused.err.find("Failed to verify the certificate chain"), std::string::npos);

    // On the host, the threshold decides between near expiration and normal.
    TempDir near;
    write_suite(near, pass_, "/O=Test/CN=Test Intermediate CA", 10 * kDay);
    ASSERT_EQ(tls_typed(install_words(near.path(), true), pass_).status, 0);
    const auto pub_status = [&] {
        const std::string out = tls({"-g", "host"}).out;
        const size_t pub = out.find("[pub cert] info:");
        return out.substr(out.find("tls expiration status[", pub) + 22, 1);
    };
    EXPECT_EQ(pub_status(), "1");
    ASSERT_EQ(tls({"-s", "alarm", "7", "host"}).status, 0);
    EXPECT_EQ(pub_status(), "0");
    EXPECT_NE(tls({"-g", "host"}).out.find("tls alarm time threshold[7]days"), std::string::npos);
}

TEST_F(TlsCommandTest, DeviceAndHostRefuseSuitesThatDoNotHold)
{
    Suite s = write_suite(pki_, pass_);
    Key stranger_key = make_key();
    Cert stranger = make_cert("/O=Elsewhere/CN=Other CA", stranger_key.get(), nullptr,
                              stranger_key.get(), true, 7);
    pki_.put("other.key", pem_of_key(stranger_key.get(), pass_));
    pki_.put("other-ca.pem", pem_of(stranger.get()));
    pki_.put("revoking.crl", pem_crl(s.inter.get(), s.inter_key.get(), {3, 999}));
    const std::string illegal = "The certificates are illegal!\n";
    const std::string chain =
        "Failed to verify the certificate chain, make sure the certificate chain is correct!\n";
    struct Case {
        const char *what;
        std::string file, replacement, typed;
        int status;
        std::string err;
    };
    const Case cases[] = {
        {"wrong pass phrase", "", "", "Wrong#Pass24", 0x06, illegal},
        {"key of another certificate", "dev.key", "other.key", pass_, 0x06, illegal},
        {"CA that did not sign", "inter.pem", "other-ca.pem", pass_, 0x07, chain},
        {"CRL that revokes the device", "inter.crl", "revoking.crl", pass_, 0x07, chain},
    };
    for (bool host : {false, true}) {
        for (const Case &c : cases) {
            std::vector<std::string> words = install_words(pki_.path(), host);
            for (std::string &w : words) {
                if (w == c.file)
                    w = c.replacement;
            }
            const PtyResult r = tls_typed(words, c.typed);
            EXPECT_EQ(r.status, c.status) << c.what << " host:" << host << "\n" << r.err;
            EXPECT_NE(r.err.find(c.err), std::string::npos) << c.what << "\n" << r.err;
            EXPECT_EQ(r.out.substr(r.out.size() - strlen(kKeyWarning)), kKeyWarning);
        }
        EXPECT_EQ(
            tls(host ? std::vector<std::string>{"-g", "host"} : std::vector<std::string>{"-g"})
                .status,
            0x0F)
            << "a refused suite leaves nothing, host:" << host;
    }
}

TEST_F(TlsCommandTest, PassPhraseRulesAndDictionaries)
{
    write_suite(pki_, pass_);
    std::filesystem::create_directories(std::filesystem::path(dict_path()).parent_path());
    std::string long_dict;
    for (int i = 0; i < 10001; ++i)
        long_dict += "Entry#" + std::to_string(i) + "\n";
    const std::string too_weak = "The password you input is too weak, please choose another one!\n";
    struct Case {
        const char *what;
        const char *dict; // nullptr: no dictionary
        std::string typed;
        int status;
        std::string out, err;
    };
    const Case cases[] = {
        {"7 characters", nullptr, "Tls#Pas", 0x16, "",
         "Your input password length is illegal, length must between [8] and [15]\n"},
        {"16 characters", nullptr, "Tls#Pass20242024", 0x16, "",
         "Your input password length is illegal, length must between [8] and [15]\n"},
        {"one kind", nullptr, "tlspassword", 0x17, "",
         "The complexity of password you input is too low, please choose another one!\n"},
        {"double quote", nullptr, "tls\"pass2024", 0x17, "", "The complexity of password"},
        {"in the dictionary", "abc\nTls#Pass2024\n", pass_, 0x1D, "", too_weak},
        {"dictionary past 10000 lines", long_dict.c_str(), pass_, 0x1D, "",
         "You config the weak passwords exceed 10000 entries, invalid!\n"},
        {"no dictionary", nullptr, pass_, 0, kNoDict, ""},
        {"empty dictionary", "", pass_, 0,
         "There is nothing in weak password dictionary, please config to ensure safer\n", ""},
        {"case differs", "tls#pass2024\nTls#Pass2024x\n", pass_, 0, "", ""},
    };
    for (const Case &c : cases) {
        std::filesystem::remove(dict_path());
        if (c.dict != nullptr) {
            ASSERT_TRUE(write_file(dict_path(), c.dict));
        }
        const PtyResult r = tls_typed(install_words(pki_.path(), false), c.typed);
        ASSERT_TRUE(r.prompted) << c.what;
        EXPECT_EQ(r.status, c.status) << c.what << "\n" << r.err;
        EXPECT_NE(r.err.find(c.err), std::string::npos) << c.what << "\n" << r.err;
        EXPECT_EQ(r.out, std::string(kPassPrompt) + c.out + kKeyWarning) << c.what;
    }
}

TEST_F(TlsCommandTest, FilesAreReadInTheirOrderWithTheirLimits)
{
    write_suite(pki_, pass_);
    const std::string cert = read_file(pki_.path() + "/dev.pem");
    pki_.put("big.pem", cert + std::string(2049 - cert.size(), '\n'));
    pki_.put("full.pem", cert + std::string(2048 - cert.size(), '\n'));
    pki_.put("empty.pem", "");
    struct Case {
        std::string from, to;
        bool reaches_prompt;
        int status;
        std::string err;
    };
    const Case cases[] = {
        {"dev.pem", "full.pem", true, 0, ""},
        {"dev.pem", "big.pem", true, 0x19, "The certificate length is invalid!\n"},
        {"root.pem", "missing.pem", true, 0x02, "File ca2 is not exist or read failed!\n"},
        {"inter.crl", "missing.crl", true, 0x02, "File crl file is not exist or read failed!\n"},
        {"inter.pem", "empty.pem", true, 0x05, "File ca1 is not exist or read failed!\n"},
        {"dev.key", "missing.key", false, 0x02, "File pri key is not exist or read failed!\n"},
    };
    for (const Case &c : cases) {
        std::vector<std::string> words = install_words(pki_.path(), false);
        std::replace(words.begin(), words.end(), c.from, c.to);
        const PtyResult r = tls_typed(words, pass_);
        EXPECT_EQ(r.prompted, c.reaches_prompt) << c.to;
        EXPECT_EQ(r.status, c.status) << c.to << "\n" << r.err;
        EXPECT_NE(r.err.find(c.err), std::string::npos) << c.to << "\n" << r.err;
    }
}

TEST_F(TlsCommandTest, EnableAlarmClearAndGetWords)
{
    const std::string usage = "[ vorn_tool -i dev_id -tls ] needs the following parameters:\n";
    struct Case {
        std::vector<std::string> words;
        int before; // no suite installed
        int after;  // with a suite on the device and on the host
        std::string err;
    };
    const Case cases[] = {
        {{"-s", "alarm", "6"}, 0x10, 0x10, "Get invalid alarm time!\n" + usage},
        {{"-s", "alarm", "181"}, 0x10, 0x10, "Get invalid alarm time!\n"},
        {{"-s", "alarm", "0007"}, 0x10, 0x10, "Get invalid alarm time!\n"},
        {{"-s", "alarm", "7a"}, 0x10, 0x10, "Get invalid alarm time!\n"},
        {{"-s", "alarm", "7"}, 0x0F, 0, ""},
        {{"-s", "alarm", "180", "host"}, 0x0F, 0, ""},
        {{"-s", "alarm", "90", "foo"},
         0x1E,
         0x1E,
         "The host flag should be the last config item!\n"},
        {{"-s", "enable", "2"}, 0x11, 0x11, "Get invalid enable value!\n" + usage},
        {{"-s", "enable", "01"}, 0x11, 0x11, "Get invalid enable value!\n"},
        {{"-s", "enable", "1", "foo"},
         0x1E,
         0x1E,
         "The host flag should be the last config item!\n"},
        {{"-s", "enable", "1"}, 0x0F, 0, ""},
        {{"-s", "enable", "1", "host"}, 0x0F, 0, ""},
        {{"-s", "enable", "0", "host", "x"}, 0x05, 0x05, "The total count of input parameters"},
        {{"-s", "enable"}, 0x05, 0x05, "The total count of input parameters is wrong!\n"},
        {{"-s", "speed", "1"}, 0x03, 0x03, "Get unknown option\n" + usage},
        {{"-x"}, 0x03, 0x03, "Get unknown option!\n" + usage},
        {{"-gx"}, 0x03, 0x03, "Get unknown option!\n"},
        {{"-g", "foo"}, 0x03, 0x03, "Get invlaid option!\n" + usage},
        {{"-c", "foo"}, 0x03, 0x03, "Get invlaid option!\n"},
        {{"-g", "host", "x"}, 0x05, 0x05, "The total count of input parameters is wrong!\n"},
    };
    const auto check = [&](bool installed) {
        for (const Case &c : cases) {
            const ProcResult r = tls(c.words);
            const int want = installed ? c.after : c.before;
            EXPECT_EQ(r.status, want) << testing::PrintToString(c.words) << "\n" << r.err;
            if (want == 0x0F) {
                EXPECT_EQ(r.err, "No certificate found, please set certs firstly!\nCmd execute "
                                 "failed!\n");
            } else {
                EXPECT_EQ(r.err.rfind(c.err, 0), 0u) << testing::PrintToString(c.words) << r.err;
            }
        }
    };
    check(false);
    write_suite(pki_, pass_);
    ASSERT_EQ(tls_typed(install_words(pki_.path(), false), pass_).status, 0);
    ASSERT_EQ(tls_typed(install_words(pki_.path(), true), pass_).status, 0);
    check(true);
    // The last accepted values are what both targets list.
    for (const char *target : {"", "host"}) {
        std::vector<std::string> words = {"-g"};
        if (*target != '\0')
            words.push_back(target);
        const std::string out = tls(words).out;
        EXPECT_NE(out.find("tls switch[1]"), std::string::npos) << target << out;
        EXPECT_NE(out.find(*target != '\0' ? "threshold[180]days" : "threshold[7]days"),
                  std::string::npos)
            << target << out;
    }
    EXPECT_NE(sb_.run_log().find("start to set tls alarm of device[0]\n"), std::string::npos);
    EXPECT_NE(sb_.run_log().find("start to set tls enable of logic_id[0]\n"), std::string::npos);
    EXPECT_EQ(tls({"-s", "enable", "0"}).status, 0);
    EXPECT_NE(tls({"-g"}).out.find("tls switch[0]"), std::string::npos);
}

TEST_F(TlsCommandTest, HeldHostStoreMakesHostOperationsBusy)
{
    write_suite(pki_, pass_);
    ASSERT_EQ(tls_typed(install_words(pki_.path(), true), pass_).status, 0);
    const std::string lock_path = sb_.root() + "/var/lib/vorn_tool/tls/store.lock";
    const int fd = open(lock_path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    for (const std::vector<std::string> &words : {std::vector<std::string>{"-g", "host"},
                                                  {"-c", "host"},
                                                  {"-s", "enable", "1", "host"},
                                                  {"-s", "alarm", "30", "host"}}) {
        const ProcResult r = tls(words);
        EXPECT_EQ(r.status, 0x0B) << testing::PrintToString(words);
        EXPECT_EQ(r.err, "vorn_tool is busy, please try again.\n");
    }
    const PtyResult set = tls_typed(install_words(pki_.path(), true), pass_);
    EXPECT_EQ(set.status, 0x0B);
    // The device is not the host: its operations do not wait for the store.
    EXPECT_EQ(tls({"-g"}).status, 0x0F);
    close(fd);
    EXPECT_EQ(tls({"-g", "host"}).status, 0);
}

TEST_F(TlsCommandTest, PassPhraseIsNotEchoedAndTheTerminalIsRestored)
{
    write_suite(pki_, pass_);
    bool echo = false;
    std::vector<std::string> argv = {vorn_tool_bin(), "-i", "0", "-tls"};
    const std::vector<std::string> words = install_words(pki_.path(), false);
    argv.insert(argv.end(), words.begin(), words.end());
    const PtyResult r = run_on_pty(argv, sb_.env(), pass_, false, kPassPrompt, false, &echo);
    ASSERT_TRUE(r.prompted);
    EXPECT_EQ(r.status, 0) << r.terminal;
    EXPECT_EQ(r.terminal.find(pass_), std::string::npos) << r.terminal;
    // Only the newline is echoed, right after the prompt.
    EXPECT_NE(r.terminal.find(std::string(kPassPrompt) + "\r\n"), std::string::npos);
    EXPECT_TRUE(echo);

    // The same harness sees what a terminal with echo shows.
    const PtyResult control = run_on_pty(
        {"/bin/sh", "-c", std::string("printf '") + kPassPrompt + "'; read x"}, {}, pass_);
    EXPECT_NE(control.terminal.find(pass_), std::string::npos) << control.terminal;

    // Ended at the prompt, the run still gives the terminal its echo back.
    echo = false;
    const PtyResult interrupted =
        run_on_pty(argv, sb_.env(), "\x03", false, kPassPrompt, true, &echo);
    EXPECT_EQ(interrupted.status, 128 + SIGINT);
    EXPECT_TRUE(echo);

    // Without a terminal there is no pass phrase to read.
    const ProcResult piped =
        sb_.tool({"-i", "0", "-tls", "-s", "path", pki_.path(), "pri", "dev.key", "pub", "dev.pem"},
                 {}, pass_ + "\n");
    EXPECT_EQ(piped.status, 0x0A);
    EXPECT_EQ(piped.err, "Cmd execute failed!\n");
}
