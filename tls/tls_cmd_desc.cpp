// The -tls row of the command table: its words, help and audit masks, and the loader that hands
// the command line to the TLS module (tls/tls_module.hpp). Nothing here touches OpenSSL: a run
// of any other command never loads libcrypto.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/identity.hpp"
#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "log/driver_log.hpp"
#include "tls/tls_module.hpp"

#ifndef VORN_TLS_MODULE_DIR
#error "VORN_TLS_MODULE_DIR names the installed module's directory"
#endif

namespace
{

constexpr const char *kHelpTls =
    "   [-s]        : set tls cfg\n"
    "       enable %d : set tls enable, 0: disable, 1: enable\n"
    "       host      : if you want to set tls enable on host, you need to add host flag on the "
    "tail\n"
    "       or\n"
    "       alarm %d  : set tls alarm(days), from 7 to 180\n"
    "       host      : if you want to set tls alarm on host, you need to add host flag on the "
    "tail\n"
    "       or\n"
    "       path %s   : set tls cfg file path, such as xxx\n"
    "       pri %s    : set tls private key, only support pem file format\n"
    "       pub %s    : set tls public cert, only support pem file format\n"
    "       ca1 %s    : set tls first level CA, only support pem file format\n"
    "       ca2 %s    : set tls second level CA, only support pem format\n"
    "       ......            \n"
    "       ca14 %s   : set tls fourteen level CA(the deepest CA level), only support pem format\n"
    "       crl %s    : set tls certificate revocation list, only support crl format\n"
    "       host      : if you want to set tls certificate suite on host, you need to add host "
    "flag on the tail\n"
    "   [-g]        : get tls cfg\n"
    "       host      : if you want to get tls certificate suite on host, you need to add host "
    "flag on the tail\n"
    "   [-c]        : clear tls cfg\n"
    "       host      : if you want to clear tls certificate suite on host, you need to add host "
    "flag on the tail\n";

constexpr CmdMask kTlsMasks[] = {
    {"path", 5},  {"pri", 7},   {"pub", 9},   {"ca1", 11},  {"ca2", 13},  {"ca3", 15},
    {"ca4", 17},  {"ca5", 19},  {"ca6", 21},  {"ca7", 23},  {"ca8", 25},  {"ca9", 27},
    {"ca10", 29}, {"ca11", 31}, {"ca12", 33}, {"ca13", 35}, {"ca14", 37}, {"crl", kMaskAnywhere},
};

// The directory of the running tool ("" when it cannot be read).
std::string tool_dir()
{
    char exe[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    if (n <= 0)
        return "";
    exe[n] = '\0';
    char *slash = strrchr(exe, '/');
    if (slash == nullptr)
        return "";
    *slash = '\0';
    return exe;
}

// Opens a candidate module for loading: a regular file owned by root or by the caller and
// writable by nobody else, since its code runs with the tool's rights. -1 when absent or unfit.
int open_module(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return -1;
    struct stat st {
    };
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || (st.st_uid != 0 && st.st_uid != geteuid()) ||
        (st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        DRV_ERR("tls module %s is not a private regular file, not loaded", path.c_str());
        (void)close(fd);
        return -1;
    }
    return fd;
}

// The module beside the tool (the build tree), else the installed one. Loaded through the
// descriptor that was checked, so the file checked is the file loaded. Kept for the process:
// OpenSSL does not like being unloaded.
VornTlsModuleEntry load_module()
{
    const std::string candidates[] = {tool_dir() + "/" + kVornTlsModuleName,
                                      std::string(VORN_TLS_MODULE_DIR) + "/" + kVornTlsModuleName};
    for (const std::string &path : candidates) {
        const int fd = open_module(path);
        if (fd < 0)
            continue;
        char by_fd[64];
        (void)snprintf(by_fd, sizeof(by_fd), "/proc/self/fd/%d", fd);
        void *handle = dlopen(by_fd, RTLD_NOW | RTLD_LOCAL);
        (void)close(fd);
        if (handle == nullptr) {
            DRV_ERR("dlopen %s failed: %s", path.c_str(), dlerror());
            continue;
        }
        auto entry = reinterpret_cast<VornTlsModuleEntry>(dlsym(handle, kVornTlsModuleEntrySym));
        if (entry != nullptr)
            return entry;
        DRV_ERR("tls module %s has no entry %s", path.c_str(), kVornTlsModuleEntrySym);
    }
    return nullptr;
}

int32_t tool_tls_cmd_load_and_run(int argc, char **argv, cmd_parse_info *info)
{
    const VornTlsModuleEntry entry = load_module();
    if (entry == nullptr) {
        (void)fprintf(stderr, "The TLS module %s could not be loaded (beside the tool or in %s).\n",
                      kVornTlsModuleName, VORN_TLS_MODULE_DIR);
        return kErrExec;
    }
    const VornTlsModuleCall call{kVornTlsModuleAbi,
                                 sizeof(cmd_parse_info),
                                 vorn_get_g_usr_name(),
                                 vorn_get_g_usr_ip(),
                                 argc,
                                 argv,
                                 info};
    return entry(&call);
}

// Each operation checks its own words in the module. TLS settings are kept by the device or by
// the host store under its own lock, never in /etc/vorn.conf: none takes the setting lock (a
// set also waits for the pass phrase at the terminal, which must not hold other runs up).
constexpr CmdOp kTlsOps[] = {
    {"-g", kOwnCount, false, tool_tls_cmd_load_and_run},
    {"-s", kOwnCount, false, tool_tls_cmd_load_and_run},
    {"-c", kOwnCount, false, tool_tls_cmd_load_and_run},
};

} // namespace

extern constexpr CmdDesc kTlsCmd{
    .major = "-i",
    .name = "-tls",
    .handler = "tool_tls_cmd_execute",
    .description = "tls cfg cmd",
    .help = kHelpTls,
    .ops = kTlsOps,
    .unknown_op = {RefusalLog::kDriverLog, nullptr, "Get unknown option!\n"},
    .masks = kTlsMasks,
};
