// A sandboxed host with emulated devices, a PKI directory, and runs of -tls with and without a
// terminal.
#pragma once

#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"
#include "tests/tls/tls_support.hpp"

inline constexpr const char *kKeyWarning =
    "[WARNING] Please delete the private key file after updating for security considerations\n";
inline constexpr const char *kNoDict =
    "You have not configed a weak password dictionary, please config to ensure safer\n";

class TlsFixture : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "4"}};
    TempDir pki_;
    const std::string pass_ = "Tls#Pass2024";

    /// vorn_tool -i <id> -tls <words>, no terminal.
    ProcResult tls(const std::vector<std::string> &words, const std::string &id = "0") const
    {
        std::vector<std::string> args = {"-i", id, "-tls"};
        args.insert(args.end(), words.begin(), words.end());
        return sb_.tool(args);
    }

    /// The same on a terminal, typing `typed` at the prompt; streams split unless `together`.
    PtyResult tls_typed(const std::vector<std::string> &words, const std::string &typed,
                        const std::string &id = "0", bool together = false,
                        const std::map<std::string, std::string> &extra_env = {}) const
    {
        std::vector<std::string> argv = {vorn_tool_bin(), "-i", id, "-tls"};
        argv.insert(argv.end(), words.begin(), words.end());
        auto env = sb_.env();
        for (const auto &[k, v] : extra_env)
            env[k] = v;
        return run_on_pty(argv, env, typed, !together);
    }

    /// The words that install the suite in `dir`, with "host" last when `host`.
    static std::vector<std::string> install_words(const std::string &dir, bool host)
    {
        std::vector<std::string> words = suite_words(dir);
        if (host)
            words.push_back("host");
        return words;
    }

    /// Where the tool looks for the weak-password dictionary of the user running the tests.
    std::string dict_path() const
    {
        const passwd *pw = getpwuid(getuid());
        const std::string user = pw != nullptr ? pw->pw_name : "";
        return user == "root" ? sb_.root() + "/etc/vorn_weak_dict.conf"
                              : sb_.root() + "/home/" + user + "/vorn_weak_dict.conf";
    }
};
