// Support of the TLS tests: PKI and pseudo-terminal runner.
#include "tests/tls/tls_support.hpp"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace fs = std::filesystem;

Key make_key()
{
    return Key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
}

namespace
{

void set_name(X509_NAME *name, const std::string &dn)
{
    size_t at = 0;
    while (at < dn.size()) {
        const size_t start = dn.find('/', at);
        if (start == std::string::npos)
            break;
        size_t end = dn.find('/', start + 1);
        const std::string pair =
            dn.substr(start + 1, end == std::string::npos ? end : end - start - 1);
        const size_t eq = pair.find('=');
        const std::string field = pair.substr(0, eq);
        const std::string value = pair.substr(eq + 1);
        X509_NAME_add_entry_by_txt(name, field.c_str(), MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char *>(value.c_str()), -1, -1,
                                   0);
        at = end == std::string::npos ? dn.size() : end;
    }
}

void add_ext(X509 *cert, X509 *issuer, int nid, const char *value)
{
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer != nullptr ? issuer : cert, cert, nullptr, nullptr, 0);
    X509_EXTENSION *ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    X509_add_ext(cert, ext, -1);
    X509_EXTENSION_free(ext);
}

template <typename Write> std::string to_pem(Write write)
{
    BIO *bio = BIO_new(BIO_s_mem());
    write(bio);
    char *data = nullptr;
    const long len = BIO_get_mem_data(bio, &data);
    std::string text(data, static_cast<size_t>(len));
    BIO_free(bio);
    return text;
}

} // namespace

Cert make_cert(const std::string &subject, EVP_PKEY *key, X509 *issuer, EVP_PKEY *issuer_key,
               bool ca, long serial, long from, long to)
{
    Cert cert(X509_new());
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), from);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), to);
    X509_set_pubkey(cert.get(), key);
    set_name(X509_get_subject_name(cert.get()), subject);
    X509_set_issuer_name(cert.get(), issuer != nullptr ? X509_get_subject_name(issuer)
                                                       : X509_get_subject_name(cert.get()));
    add_ext(cert.get(), issuer, NID_subject_key_identifier, "hash");
    add_ext(cert.get(), issuer, NID_authority_key_identifier, "keyid:always");
    if (ca) {
        add_ext(cert.get(), issuer, NID_basic_constraints, "critical,CA:TRUE");
        add_ext(cert.get(), issuer, NID_key_usage, "critical,keyCertSign,cRLSign");
    }
    X509_sign(cert.get(), issuer_key, EVP_sha256());
    return cert;
}

std::string pem_of(X509 *cert)
{
    return to_pem([&](BIO *b) { PEM_write_bio_X509(b, cert); });
}

std::string pem_of_key(EVP_PKEY *key, const std::string &passphrase)
{
    return to_pem([&](BIO *b) {
        PEM_write_bio_PKCS8PrivateKey(b, key, EVP_aes_256_cbc(), passphrase.data(),
                                      static_cast<int>(passphrase.size()), nullptr, nullptr);
    });
}

std::string pem_crl(X509 *issuer, EVP_PKEY *issuer_key, const std::vector<long> &revoked, long next)
{
    X509_CRL *crl = X509_CRL_new();
    X509_CRL_set_version(crl, 1);
    X509_CRL_set_issuer_name(crl, X509_get_subject_name(issuer));
    ASN1_TIME *t = X509_gmtime_adj(nullptr, -kDay);
    X509_CRL_set1_lastUpdate(crl, t);
    X509_gmtime_adj(t, next);
    X509_CRL_set1_nextUpdate(crl, t);
    for (long serial : revoked) {
        X509_REVOKED *r = X509_REVOKED_new();
        ASN1_INTEGER *s = ASN1_INTEGER_new();
        ASN1_INTEGER_set(s, serial);
        X509_REVOKED_set_serialNumber(r, s);
        X509_gmtime_adj(t, -3600);
        X509_REVOKED_set_revocationDate(r, t);
        X509_CRL_add0_revoked(crl, r);
        ASN1_INTEGER_free(s);
    }
    ASN1_TIME_free(t);
    X509_CRL_sort(crl);
    X509_CRL_sign(crl, issuer_key, EVP_sha256());
    std::string text = to_pem([&](BIO *b) { PEM_write_bio_X509_CRL(b, crl); });
    X509_CRL_free(crl);
    return text;
}

TempDir::TempDir()
{
    std::string tmpl = (fs::temp_directory_path() / "vorn-tls-XXXXXX").string();
    char *made = mkdtemp(tmpl.data());
    path_ = made != nullptr ? made : "";
}

TempDir::~TempDir()
{
    std::error_code ec;
    if (!path_.empty())
        fs::remove_all(path_, ec);
}

std::string TempDir::put(const std::string &name, const std::string &text) const
{
    const std::string file = path_ + "/" + name;
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
    return file;
}

Suite write_suite(const TempDir &dir, const std::string &passphrase,
                  const std::string &inter_subject, long dev_to)
{
    Suite s;
    s.root_key = make_key();
    s.inter_key = make_key();
    s.dev_key = make_key();
    s.root =
        make_cert("/O=Test/CN=Test Root CA", s.root_key.get(), nullptr, s.root_key.get(), true, 1);
    s.inter = make_cert(inter_subject, s.inter_key.get(), s.root.get(), s.root_key.get(), true, 2);
    s.dev = make_cert("/O=Test/CN=device", s.dev_key.get(), s.inter.get(), s.inter_key.get(), false,
                      3, -kDay, dev_to);
    dir.put("dev.key", pem_of_key(s.dev_key.get(), passphrase));
    dir.put("dev.pem", pem_of(s.dev.get()));
    dir.put("inter.pem", pem_of(s.inter.get()));
    dir.put("root.pem", pem_of(s.root.get()));
    dir.put("inter.crl", pem_crl(s.inter.get(), s.inter_key.get(), {999}));
    return s;
}

std::vector<std::string> suite_words(const std::string &dir)
{
    return {"-s",  "path",      dir,   "pri",      "dev.key", "pub",      "dev.pem",
            "ca1", "inter.pem", "ca2", "root.pem", "crl",     "inter.crl"};
}

PtyResult run_on_pty(const std::vector<std::string> &argv,
                     const std::map<std::string, std::string> &env, const std::string &reply,
                     bool split, const std::string &prompt, bool raw, bool *echo_after)
{
    PtyResult res;
    int out_pipe[2] = {-1, -1};
    int err_pipe[2] = {-1, -1};
    if (split && (pipe2(out_pipe, O_CLOEXEC) != 0 || pipe2(err_pipe, O_CLOEXEC) != 0))
        return res;
    std::vector<std::string> env_strs;
    if (const char *path = std::getenv("PATH"))
        env_strs.push_back(std::string("PATH=") + path);
    for (const auto &[k, v] : env)
        env_strs.push_back(k + "=" + v);
    std::vector<char *> envp;
    for (auto &e : env_strs)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    std::vector<char *> args;
    for (const auto &a : argv)
        args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);

    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    if (pid < 0)
        return res;
    if (pid == 0) {
        if (split && (dup2(out_pipe[1], 1) < 0 || dup2(err_pipe[1], 2) < 0))
            _exit(127);
        execve(args[0], args.data(), envp.data());
        _exit(127);
    }
    if (split) {
        close(out_pipe[1]);
        close(err_pipe[1]);
    }
    pollfd fds[3] = {{master, POLLIN, 0}, {out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
    std::string *sinks[3] = {&res.terminal, &res.out, &res.err};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    char buf[4096];
    int status = 0;
    for (;;) {
        int open_fds = 0;
        for (const pollfd &p : fds)
            open_fds += p.fd >= 0 ? 1 : 0;
        if (open_fds == 0)
            break;
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            break;
        }
        if (poll(fds, 3, 200) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 3; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            const ssize_t n = read(fds[i].fd, buf, sizeof(buf));
            if (n > 0) {
                sinks[i]->append(buf, static_cast<size_t>(n));
            } else if (i == 0) {
                // EIO once the last holder of the terminal is gone; keep the master for the
                // settings check below.
                fds[0].fd = -1;
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
            }
        }
        const std::string &seen = split ? res.out : res.terminal;
        if (!res.prompted && seen.find(prompt) != std::string::npos) {
            const std::string typed = raw ? reply : reply + "\n";
            (void)!write(master, typed.data(), typed.size());
            res.prompted = true;
        }
    }
    if (echo_after != nullptr) {
        struct termios tty {
        };
        *echo_after = tcgetattr(master, &tty) == 0 && (tty.c_lflag & ECHO) != 0;
    }
    close(master);
    waitpid(pid, &status, 0);
    res.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return res;
}
