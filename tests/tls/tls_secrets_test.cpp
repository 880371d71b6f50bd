// The secrets of the TLS suite: nothing of the pass phrase or of the keys stays in the process's
// memory after a run, the host store keeps the pass phrase sealed and finds out any change, and
// a run of another command does not even load libcrypto.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "base/paths.hpp"
#include "tests/tls/tls_fixture.hpp"
#include "tls/key_store.hpp"
#include "tls/private_files.hpp"
#include "tls/tls_record.hpp"

using namespace std::string_literals;

namespace
{

bool contains(const std::string &hay, const std::string &needle)
{
    return !needle.empty() && hay.find(needle) != std::string::npos;
}

class TlsSecretsTest : public TlsFixture
{
  protected:
    std::string suite_file() const { return sb_.root() + "/var/lib/vorn_tool/tls/suite-0.bin"; }
};

} // namespace

TEST_F(TlsSecretsTest, NoCopyOfPassPhraseOrKeysIsLeftInMemoryAtExit)
{
    write_suite(pki_, pass_);
    const std::string dump = sb_.dir() + "/memory.dump";
    const std::string symm = sb_.dir() + "/symm.key";
    struct Case {
        const char *what;
        bool host;
        std::string typed;
        int status;
    };
    const Case cases[] = {
        {"device accepts", false, pass_, 0},
        {"device refuses the pass phrase", false, "Wrong#Pass24", 0x06},
        {"host store accepts", true, pass_, 0},
        {"host store refuses the pass phrase", true, "Wrong#Pass24", 0x06},
        {"pass phrase too simple", false, "onlylowercase", 0x17},
    };
    for (const Case &c : cases) {
        std::filesystem::remove(dump);
        std::filesystem::remove(symm);
        const PtyResult r = tls_typed(install_words(pki_.path(), c.host), c.typed, "0", false,
                                      {{"LD_PRELOAD", VORN_SECRET_SEAM},
                                       {"ASAN_OPTIONS", "verify_asan_link_order=0"},
                                       {"VORN_TEST_MEMDUMP", dump},
                                       {"VORN_TEST_SYMM_KEY_FILE", symm}});
        ASSERT_EQ(r.status, c.status) << c.what << "\n" << r.err;
        const std::string memory = read_file(dump);
        // The dump holds the process: the words of its command line are in it.
        ASSERT_TRUE(contains(memory, pki_.path() + "\0pri"s)) << c.what << " dump missing";
        EXPECT_FALSE(contains(memory, c.typed)) << c.what << ": pass phrase left in memory";
        const std::string key = read_file(symm);
        EXPECT_EQ(key.size(), c.host || c.status == 0x17 ? 0u : 32u) << c.what;
        EXPECT_FALSE(contains(memory, key)) << c.what << ": symmetric key left in memory";
        const std::string seal_key = read_file(sb_.root() + "/var/lib/vorn_tool/keys/seal.key");
        EXPECT_FALSE(contains(memory, seal_key)) << c.what << ": sealing key left in memory";
    }
}

TEST_F(TlsSecretsTest, ChangedHostSuiteIsRefusedNotOpened)
{
    write_suite(pki_, pass_);
    ASSERT_EQ(tls_typed(install_words(pki_.path(), true), pass_).status, 0);
    const std::string good = read_file(suite_file());
    ASSERT_EQ(good.size(), 16u + TLS_CFG_SIZE + 8u + sizeof(SealedSecret));
    const size_t seal = good.size() - sizeof(SealedSecret);
    const std::string broken = "The TLS suite saved on the host failed its integrity check";
    struct Case {
        const char *what;
        size_t offset; // byte flipped
    };
    const Case cases[] = {
        {"sealed pass phrase", seal + offsetof(SealedSecret, ct)},
        {"tag", seal + offsetof(SealedSecret, tag) + 5},
        {"iv", seal + offsetof(SealedSecret, iv)},
        {"device certificate", 16 + TLS_CFG_OFF_CERT + 100},
        {"private key", 16 + TLS_CFG_OFF_KEY + 200},
        {"logic id", 12},
    };
    for (const Case &c : cases) {
        std::string bad = good;
        bad[c.offset] = static_cast<char>(bad[c.offset] ^ 0x01);
        ASSERT_TRUE(write_file(suite_file(), bad));
        for (const std::vector<std::string> &words :
             {std::vector<std::string>{"-g", "host"}, {"-s", "enable", "1", "host"}}) {
            const ProcResult r = tls(words);
            EXPECT_EQ(r.status, 0x01) << c.what;
            EXPECT_EQ(r.err.rfind(broken, 0), 0u) << c.what << "\n" << r.err;
            EXPECT_EQ(r.out, "") << c.what;
        }
    }
    // A cut file is as broken as a changed one; the untouched file lists again.
    ASSERT_TRUE(write_file(suite_file(), good.substr(0, good.size() - 1)));
    EXPECT_EQ(tls({"-g", "host"}).status, 0x01);
    ASSERT_TRUE(write_file(suite_file(), good));
    EXPECT_EQ(tls({"-g", "host"}).status, 0);
    // Without its key the seal cannot be opened either, and no new key opens it.
    std::filesystem::remove(sb_.root() + "/var/lib/vorn_tool/keys/seal.key");
    const ProcResult lost = tls({"-g", "host"});
    EXPECT_EQ(lost.status, 0x01);
    EXPECT_EQ(lost.err.rfind(broken, 0), 0u) << lost.err;
}

TEST_F(TlsSecretsTest, KeyStoreSealsAndFindsOutEveryChange)
{
    for (const auto &[k, v] : sb_.env())
        setenv(k.c_str(), v.c_str(), 1);
    const std::string secret = "Seal#me2024";
    const std::string bound(300, 'b');
    const auto *plain = reinterpret_cast<const uint8_t *>(secret.data());
    const auto *aad = reinterpret_cast<const uint8_t *>(bound.data());
    SealedSecret sealed{};
    ASSERT_EQ(ks_seal(plain, static_cast<uint32_t>(secret.size()), aad, bound.size(), &sealed), 0);
    EXPECT_EQ(sealed.len, secret.size());
    EXPECT_EQ(std::string(reinterpret_cast<char *>(sealed.ct), sealed.len).find(secret),
              std::string::npos);

    uint8_t out[kSealMaxLen] = {};
    uint32_t len = 0;
    ASSERT_EQ(ks_open(sealed, aad, bound.size(), out, sizeof(out), &len), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), len), secret);

    // One bit changed anywhere, in the seal or in the data it is bound to, fails the open and
    // leaves the output untouched.
    for (size_t bit = 0; bit < 8 * offsetof(SealedSecret, len); bit += 7) {
        SealedSecret bad = sealed;
        reinterpret_cast<uint8_t *>(&bad)[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
        memset(out, 0xAA, sizeof(out));
        EXPECT_EQ(ks_open(bad, aad, bound.size(), out, sizeof(out), &len), -EBADMSG) << bit;
        EXPECT_EQ(out[0], 0xAA);
    }
    for (size_t i = 0; i < secret.size(); ++i) {
        SealedSecret bad = sealed;
        bad.ct[i] ^= 0x80;
        EXPECT_EQ(ks_open(bad, aad, bound.size(), out, sizeof(out), &len), -EBADMSG) << i;
    }
    std::string other = bound;
    other[299] = 'c';
    EXPECT_EQ(ks_open(sealed, reinterpret_cast<const uint8_t *>(other.data()), other.size(), out,
                      sizeof(out), &len),
              -EBADMSG);

    // The key file: private, or refused; gone, and nothing opens.
    const std::string key_file = sys_path(kKeyStoreKeyFile);
    struct stat st {
    };
    ASSERT_EQ(stat(key_file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    ASSERT_EQ(chmod(key_file.c_str(), 0640), 0);
    EXPECT_EQ(ks_open(sealed, aad, bound.size(), out, sizeof(out), &len), -EACCES);
    SealedSecret refused{};
    EXPECT_EQ(ks_seal(plain, 4, aad, bound.size(), &refused), -EACCES);
    ASSERT_EQ(chmod(key_file.c_str(), 0600), 0);
    ASSERT_EQ(chmod(sys_path(kKeyStoreDir).c_str(), 0755), 0);
    EXPECT_EQ(ks_open(sealed, aad, bound.size(), out, sizeof(out), &len), -EACCES);
    ASSERT_EQ(chmod(sys_path(kKeyStoreDir).c_str(), 0700), 0);
    std::filesystem::remove(key_file);
    EXPECT_EQ(ks_open(sealed, aad, bound.size(), out, sizeof(out), &len), -ENOKEY);
    ASSERT_EQ(ks_seal(plain, 4, aad, bound.size(), &sealed), 0); // a new key, made on first use
    ASSERT_EQ(ks_open(sealed, aad, bound.size(), out, sizeof(out), &len), 0);
    unsetenv("VORN_TEST_ROOT");
    unsetenv("KOPA_EMU_DIR");
}

TEST_F(TlsSecretsTest, OnlyTheTlsCommandLoadsLibcrypto)
{
    // The dynamic loader lists what the tool loads at start.
    const ProcResult start = sb_.tool({"-h"}, {{"LD_TRACE_LOADED_OBJECTS", "1"}});
    EXPECT_NE(start.out.find("libdrvkopa_host.so"), std::string::npos) << start.out;
    EXPECT_EQ(start.out.find("libcrypto"), std::string::npos) << start.out;
    // A -tls run works, through its module.
    EXPECT_EQ(tls({"-g"}).status, 0x0F);
}

// A run killed while it writes a new key (here by the file size limit, as a full disk would stop
// it) leaves no file with key bytes behind, and the next run creates the key.
TEST_F(TlsSecretsTest, KilledKeyCreationLeavesNothingBehind)
{
    TempDir dir;
    const std::string key = dir.path() + "/seal.key";
    const std::string bytes(32, 'k');
    const pid_t pid = fork();
    if (pid == 0) {
        const rlimit one{1, 1};
        (void)signal(SIGXFSZ, SIG_DFL);
        _exit(setrlimit(RLIMIT_FSIZE, &one) == 0 ? create_private_file(key, bytes.data(), 32) : 99);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << status;
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    ASSERT_EQ(create_private_file(key, bytes.data(), bytes.size()), 0);
    EXPECT_EQ(read_file(key), bytes);
    EXPECT_EQ(create_private_file(key, bytes.data(), bytes.size()), -EEXIST);
}
