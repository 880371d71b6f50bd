// Shared helpers of the robustness tests: a configuration file as a host of many devices leaves
// it, the file that a run should leave behind, and a tool run started in the background.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"

namespace robust
{

/// Every saved item of devices 0 to `devices` - 1, then routes until the text reaches `size`
/// bytes: one route in `dev0_every` belongs to device 0, the others go round the other devices.
inline std::string saved_file(size_t size, int devices = 16, int dev0_every = 16)
{
    std::string text = "# settings saved by vorn_tool\n";
    char line[512];
    for (int d = 0; d < devices; ++d) {
        snprintf(line, sizeof(line),
                 "address_%d=10.%d.0.2\nnetmask_%d=255.255.0.0\ngateway_%d=10.%d.0.1\n"
                 "netdetect_%d=10.%d.0.1\nmtu_%d=1500\nmac_addr_%d=00:e0:fc:12:34:%02x\n"
                 "roce_port_%d=4791\n",
                 d, d, d, d, d, d, d, d, d, d, d);
        text += line;
    }
    for (unsigned i = 0; text.size() < size; ++i) {
        const unsigned d = i % dev0_every == 0 ? 0 : 1 + i % (devices - 1);
        snprintf(line, sizeof(line),
                 "route_address_20.%u.%u.0_netmask_255.255.255.0_%u=gateway_10.%u.0.1\n",
                 i / 256 % 256, i % 256, d, d);
        text += line;
    }
    return text;
}

/// The lines of `text` for which `keep` holds, in order.
template <typename Keep> std::string filter_lines(const std::string &text, Keep keep)
{
    std::istringstream in(text);
    std::string out, line;
    while (std::getline(in, line))
        if (keep(line))
            out += line + "\n";
    return out;
}

/// The file after `-i 0 -mtu -s size <value>`: the old mtu_0 line gone, the new one last.
inline std::string after_mtu_set(const std::string &old, const std::string &value)
{
    return filter_lines(old, [](const std::string &l) { return !l.starts_with("mtu_0="); }) +
           "mtu_0=" + value + "\n";
}

/// The file after `-i 0 -route -c`: without the saved routes of device 0.
inline std::string after_route_clear(const std::string &old)
{
    return filter_lines(old, [](const std::string &l) {
        return !(l.starts_with("route_address_") && l.find("_0=gateway_") != std::string::npos);
    });
}

/// Starts vorn_tool (or `program`) in the sandbox with its standard streams on /dev/null;
/// returns its pid (-1 on failure).
inline pid_t start_tool(const ToolSandbox &sb, const std::vector<std::string> &args,
                        const std::string &program = vorn_tool_bin())
{
    std::vector<std::string> strs = {program};
    strs.insert(strs.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (auto &s : strs)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    std::vector<std::string> env_strs = {std::string("PATH=") +
                                         (getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin")};
    for (const auto &[k, v] : sb.env())
        env_strs.push_back(k + "=" + v);
    std::vector<char *> envp;
    for (auto &e : env_strs)
        envp.push_back(e.data());
    envp.push_back(nullptr);

    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    for (int fd = 0; fd <= 2; ++fd)
        posix_spawn_file_actions_addopen(&fa, fd, "/dev/null", fd == 0 ? O_RDONLY : O_WRONLY, 0);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&fa);
    return rc == 0 ? pid : -1;
}

/// Mode bits, owner and group of a file, or "missing".
inline std::string file_identity(const std::string &path)
{
    struct stat st {
    };
    if (stat(path.c_str(), &st) != 0)
        return "missing";
    char text[64];
    snprintf(text, sizeof(text), "%04o %u:%u", st.st_mode & 07777, st.st_uid, st.st_gid);
    return text;
}

} // namespace robust
