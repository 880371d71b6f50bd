// Support of the TLS tests: a small PKI made with OpenSSL in a throw-away directory, and a
// runner that drives vorn_tool on a pseudo-terminal the way an administrator types.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

struct PkeyFree {
    void operator()(EVP_PKEY *k) const { EVP_PKEY_free(k); }
};
struct X509Free {
    void operator()(X509 *x) const { X509_free(x); }
};
using Key = std::unique_ptr<EVP_PKEY, PkeyFree>;
using Cert = std::unique_ptr<X509, X509Free>;

constexpr long kDay = 86400;

/// A P-256 key.
Key make_key();

/// A certificate for `subject` ("/O=Test/CN=Root CA") and `key`, signed by `issuer` with
/// `issuer_key` (self-signed when `issuer` is null), valid from `from` to `to` seconds from now.
/// A CA carries basicConstraints CA:TRUE and may sign certificates and CRLs.
Cert make_cert(const std::string &subject, EVP_PKEY *key, X509 *issuer, EVP_PKEY *issuer_key,
               bool ca, long serial, long from = -kDay, long to = 365 * kDay);

std::string pem_of(X509 *cert);
/// The key as an encrypted PKCS#8 PEM block (AES-256-CBC under `passphrase`).
std::string pem_of_key(EVP_PKEY *key, const std::string &passphrase);
/// A CRL of `issuer` listing `revoked` serials, next update `next` seconds from now.
std::string pem_crl(X509 *issuer, EVP_PKEY *issuer_key, const std::vector<long> &revoked,
                    long next = 30 * kDay);

/// A directory made with mkdtemp, removed with its contents at the end.
class TempDir
{
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    /// Writes `text` to `name` in the directory; returns the file's path.
    std::string put(const std::string &name, const std::string &text) const;

  private:
    std::string path_;
};

/// A device suite in files: dev.key (encrypted with `passphrase`), dev.pem, inter.pem (ca1),
/// root.pem (ca2) and inter.crl (of the intermediate CA, revoking serial 999).
struct Suite {
    Key root_key, inter_key, dev_key;
    Cert root, inter, dev;
};
Suite write_suite(const TempDir &dir, const std::string &passphrase,
                  const std::string &inter_subject = "/O=Test/CN=Test Intermediate CA",
                  long dev_to = 365 * kDay);

/// The words after "-tls" that install the suite of write_suite from `dir`.
std::vector<std::string> suite_words(const std::string &dir);

struct PtyResult {
    int status = -1;       ///< exit status, or 128 + signal
    bool prompted = false; ///< the prompt appeared and the reply was typed
    std::string terminal;  ///< everything the terminal showed
    std::string out;       ///< standard output when split
    std::string err;       ///< standard error when split
};

inline constexpr const char *kPassPrompt = "Please enter pass phrase for pri key:";

/// Runs `argv` with `env` added to a clean environment on a new pseudo-terminal. When `prompt`
/// appears, `reply` is typed (followed by a newline unless `raw`). With `split`, standard output
/// and standard error go to pipes and only standard input is the terminal. Gives up after 60 s.
PtyResult run_on_pty(const std::vector<std::string> &argv,
                     const std::map<std::string, std::string> &env, const std::string &reply,
                     bool split = false, const std::string &prompt = kPassPrompt, bool raw = false,
                     bool *echo_after = nullptr);
