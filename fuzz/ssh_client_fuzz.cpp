// Fuzzes the client address that every run-log line carries, taken from SSH_CLIENT: whatever the
// variable holds, the address is a terminated string of the identity's size, and it is the
// text before the first blank when that is a dotted IPv4 address, "Error IP" when there is no
// blank or the text before it is 33 characters or longer, "Invalid IP" otherwise; "127.0.0.1"
// when the variable is unset.
#include <arpa/inet.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/identity.hpp"
#include "cmdline/identity.hpp"
#include "fuzz/fuzz_support.hpp"

namespace
{

std::string expected_ip(const char *client)
{
    if (client == nullptr)
        return "127.0.0.1";
    const char *blank = strchr(client, ' ');
    if (blank == nullptr || blank - client >= 33)
        return "Error IP";
    const std::string head(client, static_cast<size_t>(blank - client));
    in_addr addr{};
    if (head.size() >= kIdentityLen || inet_pton(AF_INET, head.c_str(), &addr) != 1)
        return "Invalid IP";
    return head;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    fuzz_quiet(argc, argv);
    (void)fuzz_dir();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // An environment value ends at its first zero byte; an empty input stands for "unset". The
    // variable points into a buffer of the target: setenv would keep a copy of every value. A
    // value is cut to the buffer, which changes nothing: only its first 33 characters count.
    static char entry[8192] = "SSH_CLIENT=";
    constexpr size_t kName = sizeof("SSH_CLIENT=") - 1;
    const size_t len = strnlen(reinterpret_cast<const char *>(data),
                               size < sizeof entry - kName - 1 ? size : sizeof entry - kName - 1);
    memcpy(entry + kName, data, len);
    entry[kName + len] = '\0';
    const std::string value(entry + kName, len);
    if (size == 0)
        unsetenv("SSH_CLIENT");
    else if (getenv("SSH_CLIENT") != entry + kName)
        putenv(entry);
    memset(g_vorn_usr_ip, 'x', sizeof g_vorn_usr_ip);
    if (vorn_get_usr_ip() != 0)
        fuzz_fault("ssh_client_fuzz", "the address was refused", value);
    if (memchr(g_vorn_usr_ip, '\0', sizeof g_vorn_usr_ip) == nullptr)
        fuzz_fault("ssh_client_fuzz", "unterminated address", value);
    const std::string want = expected_ip(size == 0 ? nullptr : value.c_str());
    if (want != g_vorn_usr_ip)
        fuzz_fault("ssh_client_fuzz",
                   "address " + std::string(g_vorn_usr_ip) + ", expected " + want, value);
    return 0;
}
