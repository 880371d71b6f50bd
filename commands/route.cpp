// The -route command: static routes of a device's RoCE port, their saved lines, and the walk
// over those lines that replays, clears and prunes them.
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "commands/cmd_common.hpp"
#include "commands/conf_item.hpp"
#include "commands/handlers.hpp"
#include "commands/ip_conflict.hpp"
#include "commands/replay.hpp"
#include "commands/route_store.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"
#include "main/checkers.hpp"
#include "base/result.hpp"

namespace
{

constexpr uint32_t kIpTextSize = 20;
constexpr uint32_t kRouteTableSize = 386000;

/// Destination address, destination netmask and gateway as dotted quads.
struct RouteText {
    char address[kIpTextSize];
    char netmask[kIpTextSize];
    char gateway[kIpTextSize];
};

/// One saved route line and the section (physical id) it belongs to.
struct SavedRoute {
    RouteText text;
    uint32_t section;
};

/// The configuration stream of one walk; closing it also releases its lock.
class ConfStream
{
  public:
    explicit ConfStream(FILE *f) : f_(f) {}
    ~ConfStream()
    {
        if (f_ != nullptr && fclose(f_) != 0)
            DRV_ERR("Fclose fail. (ret_val=%d; errno=%d)", EOF, errno);
    }
    ConfStream(const ConfStream &) = delete;
    ConfStream &operator=(const ConfStream &) = delete;
    FILE *get() const { return f_; }

  private:
    FILE *f_;
};

struct FreeDeleter {
    void operator()(char *p) const { free(p); }
};

// Key words are positional: address, netmask and, for an add, gateway.
[[nodiscard]] int32_t tool_get_route_para(char **argv, int pairs, RouteText *route)
{
    static constexpr const char *kWords[] = {"address", "netmask", "gateway"};
    char *targets[] = {route->address, route->netmask, route->gateway};
    memset(route, 0, sizeof(*route));
    for (int i = 0; i < pairs; ++i) {
        if (strcmp(argv[1 + 2 * i], kWords[i]) != 0) {
            fprintf(stderr, "Get unknown cmd, do you mean %s\n", kWords[i]);
            return kErrParamInvalid;
        }
        const char *value = argv[2 + 2 * i];
        size_t len = strlen(value);
        if (len >= kIpTextSize) {
            DRV_ERR("memcpy_s %s fail[%d], dlen[%d], slen[%u] destStr length is %d", kWords[i],
                    ERANGE, kIpTextSize, static_cast<unsigned>(len), kIpTextSize);
            return kErrSysCopy;
        }
        memcpy(targets[i], value, len + 1);
    }
    return kOk;
}

[[nodiscard]] int32_t convert_route_word(const char *text, uint32_t *value, const char *name,
                                         const char *message)
{
    int32_t ret = tool_inet_pton_ipv4_address(text, value);
    if (ret != kOk) {
        fputs(message, stderr);
        DRV_ERR("tool_inet_pton_ipv4_address %s fail! ret[%d]", name, ret);
    }
    return ret;
}

[[nodiscard]] int32_t tool_route_table_inet_pton(const RouteText &text, bool with_gateway,
                                                 kopa_route_record *route)
{
    *route = kopa_route_record{};
    int32_t ret = convert_route_word(text.address, &route->destination, "address",
                                     "The address is invalid!\n");
    if (ret == kOk)
        ret = convert_route_word(text.netmask, &route->netmask, "netmask",
                                 "The netmask is invalid!\n");
    if (ret == kOk && with_gateway)
        ret = convert_route_word(text.gateway, &route->gateway, "gateway",
                                 "The gateway is invalid!\n");
    return ret;
}

[[nodiscard]] int32_t route_conf_key(const RouteText &text, char *key, size_t size)
{
    int n = snprintf(key, size, "route_address_%s_netmask_%s", text.address, text.netmask);
    if (n < 0 || static_cast<size_t>(n) >= size) {
        DRV_ERR("snprintf_s route config fail! ret : %d.", n);
        return kErrSysCopy;
    }
    return kOk;
}

[[nodiscard]] int32_t tool_get_gateway_from_conf(const char *value, char *gateway)
{
    int n = sscanf(value, "gateway_%19s", gateway);
    if (n != 1) {
        DRV_ERR("sscanf buf to gateway failed. ret(%d)", n);
        return kErrSysCopy;
    }
    return kOk;
}

// A route may be added again only with the gateway it was saved with; that path is lenient on
// purpose and sends the route to the firmware again.
[[nodiscard]] int32_t tool_check_route(const cmd_parse_info *info, const RouteText &text,
                                       const char *key)
{
    if (is_ipaddr_conflict(info->logic_id, text.address, text.netmask)) {
        printf("Route address segment is conflict with vnip ip!\n");
        DRV_ERR("ipaddr conflict");
        return kErrIpConflict;
    }
    char value[kCfgLineSize] = {};
    int ret = tool_conf_read_item(info->phy_id, key, value, sizeof(value));
    if (ret == kErrSysNotFound)
        return kOk;
    if (ret != 0) {
        DRV_ERR("tool_add_route_table cfg_read_conf err! ret is [%d] route_cfg_len is [0x%x]", ret,
                kCfgLineSize);
        return ret;
    }
    printf("Route already exist in routing table!\n");
    char saved[kIpTextSize] = {};
    int32_t gret = tool_get_gateway_from_conf(value, saved);
    if (gret != kOk)
        return gret;
    if (strcmp(saved, text.gateway) != 0) {
        DRV_ERR("tool_add_route_table: invalid gateway!");
        return kErrReported;
    }
    return kOk;
}

[[nodiscard]] int32_t tool_add_route_table(char **argv, const cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to add route of logic_id[%u]\n", info->logic_id);
    RouteText text;
    int32_t ret = tool_get_route_para(argv, 3, &text);
    if (ret != kOk)
        return ret;
    // The default route belongs to the gateway command.
    if (strncmp(text.address, "0.0.0.0", 7) == 0 || strncmp(text.netmask, "0.0.0.0", 7) == 0) {
        printf("Can not add default route! Please use vorn_tool gateway cfg cmd!\n");
        DRV_ERR("invalid params! can not add default route.");
        return kErrParamInvalid;
    }
    kopa_route_record route;
    ret = tool_route_table_inet_pton(text, true, &route);
    if (ret != kOk)
        return ret;
    char key[kCfgLineSize];
    char value[kCfgLineSize];
    ret = route_conf_key(text, key, sizeof(key));
    if (ret != kOk)
        return ret;
    int n = snprintf(value, sizeof(value), "gateway_%s", text.gateway);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(value)) {
        DRV_ERR("snprintf_s route gateway fail! ret : %d.", n);
        return kErrSysCopy;
    }
    ret = tool_check_route(info, text, key);
    if (ret != kOk) {
        fprintf(stderr, "Failed to check the route table in the config file.\n");
        return ret;
    }
    int kret = kopa_add_route_table(info->logic_id, 0, &route);
    if (kret == KOPA_RESULT_ROUTE_FULL) {
        fprintf(stderr, "Route rows reaches max! Can not add anymore!\n");
        DRV_ERR("Route rows reaches max! Can not add anymore!");
        return kErrKopa;
    }
    if (kret != 0) {
        DRV_ERR("kopa add route table fail! ret[%d] logic_id[%u] address[0x%x] netmask[0x%x] "
                "gateway[0x%x]",
                kret, info->logic_id, route.destination, route.netmask, route.gateway);
        return kopa_err_to_vorn_err(kret);
    }
    ret = cfg_write_conf(info->phy_id, key, value);
    if (ret != 0) {
        DRV_ERR("add route cfg error! ret[%d] logic_id[%u]", ret, info->logic_id);
        fprintf(stderr, "Failed to add the route table to the config file, and user "
                        "configurations cannot be persisted.\n");
        return ret;
    }
    return kOk;
}

// Only saved routes can be deleted with the tool.
[[nodiscard]] int32_t tool_del_route(const cmd_parse_info *info, const RouteText &text)
{
    char key[kCfgLineSize];
    int32_t ret = route_conf_key(text, key, sizeof(key));
    if (ret != kOk)
        return ret;
    char value[kCfgLineSize] = {};
    ret = tool_conf_read_item(info->phy_id, key, value, sizeof(value));
    if (ret == kErrSysNotFound) {
        fprintf(stderr, "Route not exist in routing table, can not delete!\n");
        return kErrReported;
    }
    if (ret != 0) {
        fprintf(stderr, "Failed to read the route table in the config file.\n");
        return ret;
    }
    kopa_route_record route;
    ret = tool_route_table_inet_pton(text, false, &route);
    if (ret != kOk)
        return ret;
    int kret = kopa_del_route_table(info->logic_id, 0, &route);
    if (kret != 0) {
        DRV_ERR("kopa del route table fail! ret[%d] logic_id[%u] address[0x%x] netmask[0x%x]", kret,
                info->logic_id, route.destination, route.netmask);
        return kopa_err_to_vorn_err(kret);
    }
    ret = tool_conf_del_item(info->phy_id, key);
    if (ret != 0) {
        DRV_ERR("delete route cfg error! ret[%d] phy_id[%u]", ret, info->phy_id);
        fprintf(stderr, "Failed to delete the route table from the config file, and user "
                        "configurations cannot be persisted.\n");
        return ret;
    }
    return kOk;
}

[[nodiscard]] int32_t tool_del_route_table(char **argv, const cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to delete route of logic_id[%u]\n", info->logic_id);
    RouteText text;
    int32_t ret = tool_get_route_para(argv, 2, &text);
    return ret != kOk ? ret : tool_del_route(info, text);
}

[[nodiscard]] int32_t tool_check_argc_clear_route(int argc)
{
    if (argc != 1) {
        DRV_ERR("tool_route_table_cmd_execute err argc[%d]", argc);
        return kErrArgCount;
    }
    return kOk;
}

// The firmware's routes stay; only the saved lines of this device go.
[[nodiscard]] int32_t tool_clear_route_table(const cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to clear route of logic_id[%u]\n", info->logic_id);
    int32_t ret = tool_read_vorn_conf_handle_action(info, RouteAction::kDelete, 0, 0);
    if (ret != kOk)
        fprintf(stderr, "Clear route table in config file failed.\n");
    return ret;
}

[[nodiscard]] int32_t tool_get_route_table(uint32_t logic_id)
{
    std::unique_ptr<char, FreeDeleter> buf(static_cast<char *>(calloc(kRouteTableSize, 1)));
    if (!buf) {
        DRV_ERR("tool_route_table_cmd_execute calloc fail.");
        return kErrSysCopy;
    }
    int ret = kopa_get_route_table(logic_id, 0, buf.get(), kRouteTableSize);
    if (ret != 0) {
        DRV_ERR("kopa get route fail logic_id[%u] port[%d] ret[%d]", logic_id, 0, ret);
        return kopa_err_to_vorn_err(ret);
    }
    buf.get()[kRouteTableSize - 1] = '\0';
    printf("Routing table:\n");
    fputs(buf.get(), stdout);
    return kOk;
}

// A full table is not an error on replay: the routes that fit are in place.
[[nodiscard]] int32_t tool_recover_single_route(uint32_t logic_id, const RouteText &text)
{
    kopa_route_record route;
    int32_t ret = tool_route_table_inet_pton(text, true, &route);
    if (ret != kOk)
        return ret;
    int kret = kopa_add_route_table(logic_id, 0, &route);
    if (kret == KOPA_RESULT_ROUTE_FULL) {
        DRV_WARN("Route rows reaches max! Can not add anymore!");
        return kOk;
    }
    if (kret != 0) {
        DRV_ERR("kopa add route table fail! ret[%d] logic_id[%u] address[0x%x] netmask[0x%x] "
                "gateway[0x%x]",
                kret, logic_id, route.destination, route.netmask, route.gateway);
        return kopa_err_to_vorn_err(kret);
    }
    return kOk;
}

[[nodiscard]] int32_t tool_del_route_by_fd(FILE *stream, const SavedRoute &route,
                                           uint32_t logic_id)
{
    // The key ends in "=": section 1 must not take the same route of sections 10 to 15.
    char key[kCfgLineSize];
    int n = snprintf(key, sizeof(key), "route_address_%s_netmask_%s_%u=", route.text.address,
                     route.text.netmask, route.section);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(key)) {
        DRV_ERR("snprintf_s route config fail! ret : %d.", n);
        return kErrSysCopy;
    }
    if (fseek(stream, 0, SEEK_SET) != 0) {
        DRV_ERR("vorn.conf fseek fd[%d] failed! ret[%d] errno[%d]", fileno(stream), -1, errno);
        return kErrSysRead;
    }
    int ret = cfg_inner_del_conf_byfd(stream, key);
    if (ret != 0) {
        DRV_ERR("cfg_inner_del_conf_byfd: delete cfg error! ret[%d] logic_id[%u]", ret, logic_id);
        return ret;
    }
    return kOk;
}

// A gateway that does not convert lies in no segment and goes as well.
[[nodiscard]] int32_t tool_del_not_segment_route_by_fd(FILE *stream, const SavedRoute &route,
                                                       uint32_t logic_id, uint32_t address,
                                                       uint32_t netmask, bool *removed)
{
    uint32_t gw = 0;
    if (tool_inet_pton_ipv4_address(route.text.gateway, &gw) == kOk &&
        (netmask & (address ^ gw)) == 0)
        return kOk;
    DRV_WARN("route gateway[%s] not in segment, delete it", route.text.gateway);
    *removed = true;
    return tool_del_route_by_fd(stream, route, logic_id);
}

[[nodiscard]] int32_t tool_select_action_for_route(FILE *stream, const cmd_parse_info *info,
                                                   RouteAction action, const SavedRoute &route,
                                                   uint32_t address, uint32_t netmask,
                                                   bool *removed)
{
    *removed = false;
    switch (action) {
    case RouteAction::kReplay:
        return tool_recover_single_route(info->logic_id, route.text);
    case RouteAction::kDelete:
        *removed = true;
        return tool_del_route_by_fd(stream, route, info->logic_id);
    case RouteAction::kDelOutsideSegment:
        return tool_del_not_segment_route_by_fd(stream, route, info->logic_id, address, netmask,
                                                removed);
    }
    return kErrParamInvalid;
}

[[nodiscard]] int32_t quad_to_text(const unsigned q[4], char *out)
{
    int n = snprintf(out, kIpTextSize, "%u.%u.%u.%u", q[0], q[1], q[2], q[3]);
    return n < 0 || static_cast<uint32_t>(n) >= kIpTextSize ? kErrSysCopy : kOk;
}

[[nodiscard]] int32_t parse_route_line(const char *line, SavedRoute *route)
{
    unsigned a[4], m[4], g[4], section = 0;
    int n = sscanf(line, "route_address_%u.%u.%u.%u_netmask_%u.%u.%u.%u_%u=gateway_%u.%u.%u.%u",
                   &a[0], &a[1], &a[2], &a[3], &m[0], &m[1], &m[2], &m[3], &section, &g[0], &g[1],
                   &g[2], &g[3]);
    if (n != 13 || quad_to_text(a, route->text.address) != kOk ||
        quad_to_text(m, route->text.netmask) != kOk ||
        quad_to_text(g, route->text.gateway) != kOk) {
        DRV_ERR("sscanf_s buf(%s) to route config failed. ret(%d)", line, n);
        return kErrnoNoMem;
    }
    route->section = section;
    // Only a line in the form the tool writes can be found again by its key: a deletion that
    // cannot remove the line would restart the walk on it for ever.
    char canonical[kCfgLineSize];
    int len = snprintf(canonical, sizeof(canonical), "route_address_%s_netmask_%s_%u=gateway_%s",
                       route->text.address, route->text.netmask, section, route->text.gateway);
    size_t line_len = strcspn(line, "\n");
    if (len < 0 || static_cast<size_t>(len) != line_len ||
        strncmp(canonical, line, line_len) != 0) {
        DRV_ERR("sscanf_s buf(%s) to route config failed. ret(%d)", line, n);
        return kErrnoNoMem;
    }
    return kOk;
}

[[nodiscard]] bool is_route_line(const char *line)
{
    return line[0] != '#' && strlen(line) >= 3 && strchr(line, '=') != nullptr &&
           strncmp(line, "route", 5) == 0;
}

} // namespace

int32_t tool_read_vorn_conf_handle_action(const cmd_parse_info *info, RouteAction action,
                                          uint32_t address, uint32_t netmask)
{
    const char *path = cfg_conf_path();
    char real_path[PATH_MAX] = {};
    if (path == nullptr || strlen(path) >= PATH_MAX || realpath(path, real_path) == nullptr) {
        DRV_ERR("read path_len > PATH_MAX or conf_path is invalid, err[%d]", errno);
        return kErrSysNull;
    }
    ConfStream conf(fopen(real_path, "r+"));
    if (conf.get() == nullptr) {
        DRV_ERR("Open configure file fail errno[%d] real_conf_path[%s]", errno, real_path);
        return kErrSysRead;
    }
    int fd = fileno(conf.get());
    int ret = flock(fd, LOCK_EX);
    if (ret != 0) {
        DRV_ERR("vorn.conf lock fd[%d] failed! ret[%d] errno[%d]", fd, ret, errno);
        return kErrSysRead;
    }
    ret = fseek(conf.get(), 0, SEEK_SET);
    if (ret != 0) {
        DRV_ERR("vorn.conf fseek fd[%d] failed! ret[%d] errno[%d]", fd, ret, errno);
        return kErrSysRead;
    }
    char line[kCfgLineSize];
    while (fgets(line, sizeof(line), conf.get()) != nullptr) {
        if (!is_route_line(line))
            continue;
        SavedRoute route{};
        int32_t pret = parse_route_line(line, &route);
        if (pret != kOk)
            return pret;
        if (route.section != info->phy_id)
            continue;
        bool removed = false;
        pret = tool_select_action_for_route(conf.get(), info, action, route, address, netmask,
                                            &removed);
        if (pret != kOk)
            return pret;
        // A deletion compacts the file under the walk: start again from the top, where the
        // removed line no longer is.
        if (removed && fseek(conf.get(), 0, SEEK_SET) != 0) {
            DRV_ERR("vorn.conf fseek fd[%d] failed! ret[%d] errno[%d]", fd, -1, errno);
            return kErrSysRead;
        }
    }
    return kOk;
}

int32_t tool_route_table_cmd_execute(int argc, char **argv, cmd_parse_info *info)
{
    if (argc <= 0 || argv == nullptr || info == nullptr) {
        DRV_ERR("tool_route_table_cmd_execute err argc[%d]", argc);
        return kErrArgCount;
    }
    if (strcmp(argv[0], "-g") == 0) {
        if (argc != 1) {
            DRV_ERR("tool_route_table_cmd_execute err argc[%d]", argc);
            return kErrArgCount;
        }
        return tool_get_route_table(info->logic_id);
    }
    if (strcmp(argv[0], "-a") == 0) {
        if (argc != 7) {
            DRV_ERR("tool_route_table_cmd_execute add route err argc[%d]", argc);
            return kErrArgCount;
        }
        return tool_add_route_table(argv, info);
    }
    if (strcmp(argv[0], "-d") == 0) {
        if (argc != 5) {
            DRV_ERR("tool_route_table_cmd_execute delete route err argc[%d]", argc);
            return kErrArgCount;
        }
        return tool_del_route_table(argv, info);
    }
    if (strcmp(argv[0], "-c") == 0) {
        int32_t ret = tool_check_argc_clear_route(argc);
        return ret != kOk ? ret : tool_clear_route_table(info);
    }
    return cmd_err_unknown_option(CMD_HERE, nullptr, "Get unknown option!\n");
}

int32_t tool_cfg_route_recovery(cmd_parse_info *info)
{
    return tool_read_vorn_conf_handle_action(info, RouteAction::kReplay, 0, 0);
}
