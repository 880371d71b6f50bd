// Who runs the tool: the real user's name and the client address taken from SSH_CLIENT.
#include "cmdline/identity.hpp"

#include <arpa/inet.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/identity.hpp"
#include "base/result.hpp"
#include "log/driver_log.hpp"

namespace
{

void set_ip_text(const char *text)
{
    (void)snprintf(g_vorn_usr_ip, sizeof(g_vorn_usr_ip), "%s", text);
}

} // namespace

int vorn_get_usr_name()
{
    passwd record{};
    passwd *found = nullptr;
    char strings[1024];
    int ret = getpwuid_r(getuid(), &record, strings, sizeof(strings), &found);
    if (ret != 0 || found == nullptr) {
        DRV_ERR("getpwuid_r fail. (ret=%d)", ret);
        explicit_bzero(strings, sizeof(strings));
        return kErrnoInval;
    }
    int result = kOk;
    size_t len = strnlen(record.pw_name, kIdentityLen);
    if (len >= kIdentityLen) {
        DRV_ERR("user name is too long. (max_len=%zu)", kIdentityLen - 1);
        result = kErrSysCopy;
    } else {
        memcpy(g_vorn_usr_name, record.pw_name, len);
        g_vorn_usr_name[len] = '\0';
    }
    // No copy of the password record may outlive the lookup.
    explicit_bzero(&record, sizeof(record));
    explicit_bzero(strings, sizeof(strings));
    return result;
}

int vorn_get_usr_ip()
{
    const char *client = getenv("SSH_CLIENT");
    if (client == nullptr) {
        set_ip_text("127.0.0.1");
        return kOk;
    }
    const char *blank = strchr(client, ' ');
    if (blank == nullptr || blank - client >= 33) {
        set_ip_text("Error IP");
        return kOk;
    }
    size_t len = static_cast<size_t>(blank - client);
    // A 32-character head cannot be an IPv4 address (an IPv6 one can): record it as such
    // rather than refuse to run for the administrator behind it.
    if (len >= kIdentityLen) {
        DRV_ERR("client address copy fail. (len=%zu)", len);
        set_ip_text("Invalid IP");
        return kOk;
    }
    memcpy(g_vorn_usr_ip, client, len);
    g_vorn_usr_ip[len] = '\0';
    in_addr addr{};
    // A client connected over IPv6 is recorded as "Invalid IP" on purpose.
    if (inet_pton(AF_INET, g_vorn_usr_ip, &addr) != 1) {
        explicit_bzero(g_vorn_usr_ip, sizeof(g_vorn_usr_ip));
        set_ip_text("Invalid IP");
    }
    return kOk;
}
