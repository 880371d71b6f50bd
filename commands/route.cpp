// The -route command: static routes of a device's RoCE port, their saved lines, and the walk
// over those lines that replays, clears and prunes them.
#include <arpa/inet.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "base/escape.hpp"
#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/ip_conflict.hpp"
#include "commands/replay.hpp"
#include "commands/route_store.hpp"
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

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

struct FreeDeleter {
    void operator()(char *p) const { free(p); }
};

// Key words are positional: address, netmask and, for an add, gateway.
[[nodiscard]] int32_t tool_get_route_para(char **argv, int pairs, RouteText *route)
{
    static constexpr const char *kWords[] = {"address", "netmask", "gateway"};
    char(*targets[])[kIpTextSize] = {&route->address, &route->netmask, &route->gateway};
    memset(route, 0, sizeof(*route));
    for (int i = 0; i < pairs; ++i) {
        if (strcmp(argv[1 + 2 * i], kWords[i]) != 0) {
            fprintf(stderr, "Get unknown cmd, do you mean %s\n", kWords[i]);
            return kErrParamInvalid;
        }
        int32_t ret = cmd_copy_ip_word(CMD_HERE, *targets[i], argv[2 + 2 * i], kWords[i], false,
                                       " destStr length is 20");
        if (ret != kOk)
            return ret;
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
    int ret = cfg_read_conf(info->phy_id, key, value, sizeof(value));
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

int32_t tool_add_route_table(int /*argc*/, char **argv, cmd_parse_info *info)
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
    ret = cfg_read_conf(info->phy_id, key, value, sizeof(value));
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
    ret = cfg_del_conf(info->phy_id, key);
    if (ret != 0) {
        DRV_ERR("delete route cfg error! ret[%d] phy_id[%u]", ret, info->phy_id);
        fprintf(stderr, "Failed to delete the route table from the config file, and user "
                        "configurations cannot be persisted.\n");
        return ret;
    }
    return kOk;
}

int32_t tool_del_route_table(int /*argc*/, char **argv, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to delete route of logic_id[%u]\n", info->logic_id);
    RouteText text;
    int32_t ret = tool_get_route_para(argv, 2, &text);
    return ret != kOk ? ret : tool_del_route(info, text);
}

// The firmware's routes stay; only the saved lines of this device go.
int32_t tool_clear_route_table(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("start to clear route of logic_id[%u]\n", info->logic_id);
    int32_t ret = tool_read_vorn_conf_handle_action(dev_of(info), RouteAction::kDelete, 0, 0);
    if (ret != kOk)
        fprintf(stderr, "Clear route table in config file failed.\n");
    return ret;
}

int32_t tool_get_route_table(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    const uint32_t logic_id = info->logic_id;
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
    printf("Routing table:\n");
    // The firmware's text, as it stands but for control bytes, which are shown escaped.
    print_escaped(stdout, buf.get(), strnlen(buf.get(), kRouteTableSize));
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

// The key names the section, without "=": a deletion removes every line that contains it.
[[nodiscard]] int32_t tool_del_route_by_fd(ConfSession *conf, const SavedRoute &route,
                                           uint32_t logic_id)
{
    char key[kCfgLineSize];
    if (!format_text(key, sizeof(key), "route_address_%s_netmask_%s_%u", route.text.address,
                     route.text.netmask, route.section)) {
        DRV_ERR("snprintf_s route config fail! ret : %d.", -1);
        return kErrSysCopy;
    }
    int ret = conf->del(key);
    if (ret != 0) {
        DRV_ERR("cfg_inner_del_conf_byfd: delete cfg error! ret[%d] logic_id[%u]", ret, logic_id);
        return ret;
    }
    return kOk;
}

// A gateway that does not convert lies in no segment and goes as well.
[[nodiscard]] int32_t tool_del_not_segment_route_by_fd(ConfSession *conf, const SavedRoute &route,
                                                       uint32_t logic_id, uint32_t address,
                                                       uint32_t netmask)
{
    uint32_t gw = 0;
    if (tool_inet_pton_ipv4_address(route.text.gateway, &gw) == kOk &&
        (netmask & (address ^ gw)) == 0)
        return kOk;
    DRV_WARN("route gateway[%s] not in segment, delete it", route.text.gateway);
    return tool_del_route_by_fd(conf, route, logic_id);
}

[[nodiscard]] int32_t tool_select_action_for_route(ConfSession *conf, DevRef dev,
                                                   RouteAction action, const SavedRoute &route,
                                                   uint32_t address, uint32_t netmask)
{
    switch (action) {
    case RouteAction::kReplay:
        return tool_recover_single_route(dev.logic_id, route.text);
    case RouteAction::kDelete:
        return tool_del_route_by_fd(conf, route, dev.logic_id);
    case RouteAction::kDelOutsideSegment:
        return tool_del_not_segment_route_by_fd(conf, route, dev.logic_id, address, netmask);
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
    SavedRouteLine parsed{};
    if (tool_parse_route_line(line, &parsed) != kOk) {
        DRV_ERR("sscanf_s buf(%s) to route config failed. ret(%d)", line, kErrnoNoMem);
        return kErrnoNoMem;
    }
    memcpy(route->text.address, parsed.address, sizeof(parsed.address));
    memcpy(route->text.netmask, parsed.netmask, sizeof(parsed.netmask));
    memcpy(route->text.gateway, parsed.gateway, sizeof(parsed.gateway));
    route->section = parsed.section;
    return kOk;
}

} // namespace

/// How every saved route line begins.
constexpr std::string_view kRouteLineStart = "route";

bool tool_is_route_line(std::string_view line)
{
    return line[0] != '#' && line.size() >= 3 && line.find('=') != std::string_view::npos &&
           line.starts_with(kRouteLineStart);
}

int32_t tool_parse_route_line(const char *line, SavedRouteLine *route)
{
    unsigned a[4], m[4], g[4], section = 0;
    int n = sscanf(line, "route_address_%u.%u.%u.%u_netmask_%u.%u.%u.%u_%u=gateway_%u.%u.%u.%u",
                   &a[0], &a[1], &a[2], &a[3], &m[0], &m[1], &m[2], &m[3], &section, &g[0], &g[1],
                   &g[2], &g[3]);
    if (n != 13 || quad_to_text(a, route->address) != kOk ||
        quad_to_text(m, route->netmask) != kOk || quad_to_text(g, route->gateway) != kOk)
        return kErrnoNoMem;
    route->section = section;
    // Only a line in the form the tool writes can be found again by its key: a deletion that
    // cannot remove the line would restart the walk on it for ever.
    char canonical[kCfgLineSize];
    int len = snprintf(canonical, sizeof(canonical), "route_address_%s_netmask_%s_%u=gateway_%s",
                       route->address, route->netmask, section, route->gateway);
    size_t line_len = strcspn(line, "\n");
    if (len < 0 || static_cast<size_t>(len) != line_len || strncmp(canonical, line, line_len) != 0)
        return kErrnoNoMem;
    return kOk;
}

namespace
{

// The walk over the route lines of `lines` for `dev`, each handed to the action; `conf` takes the
// deletions (null for a replay, which reads only). The route lines are found by searching the
// content (through `index` when the content is a view's), not by looking at every line.
int32_t walk_routes(std::string_view lines, ConfSession *conf, DevRef dev, RouteAction action,
                    uint32_t address, uint32_t netmask, StemIndex *index = nullptr)
{
    return cfg_for_each_piece_with(
        lines, kRouteLineStart,
        [&](std::string_view piece) -> int {
            if (!tool_is_route_line(piece))
                return 0;
            char line[kCfgLineSize];
            memcpy(line, piece.data(), piece.size());
            line[piece.size()] = '\0';
            SavedRoute route{};
            int32_t pret = parse_route_line(line, &route);
            if (pret != kOk)
                return pret;
            if (route.section != dev.phy_id)
                return 0;
            return tool_select_action_for_route(conf, dev, action, route, address, netmask);
        },
        index);
}

} // namespace

int32_t tool_read_vorn_conf_handle_action(DevRef dev, RouteAction action, uint32_t address,
                                          uint32_t netmask)
{
    ConfSession conf(ConfAccess::kWalk);
    int ret = conf.open();
    if (ret != 0)
        return ret;
    // The walk reads the lines as they were at the start; a deletion takes effect in the
    // session at once and reaches the file as one replacement at the end.
    const std::string lines(conf.content());
    ret = walk_routes(lines, &conf, dev, action, address, netmask);
    // The routes handled before a failing one stay handled, as they would line by line.
    const int saved = conf.commit();
    return ret != 0 ? ret : saved;
}

namespace
{

constexpr CmdOp kRouteOps[] = {
    {"-g", 1, false, tool_get_route_table},
    {"-a", 7, true, tool_add_route_table, "tool_route_table_cmd_execute add route err argc[%d]"},
    {"-d", 5, true, tool_del_route_table, "tool_route_table_cmd_execute delete route err argc[%d]"},
    {"-c", 1, true, tool_clear_route_table},
};

constexpr CmdMask kRouteMasks[] = {{"address", 5}, {"netmask", 7}, {"gateway", 9}};

constexpr const char *kHelpRoute = "   [-g]        : get route table\n"
                                   "   [-a]        : add route\n"
                                   "       address %s: destination address, such as x.x.x.x\n"
                                   "       netmask %s: destination netmask, such as x.x.x.x\n"
                                   "       gateway %s: gateway address, such as x.x.x.x\n"
                                   "   [-d]        : del route\n"
                                   "       address %s: destination address, such as x.x.x.x\n"
                                   "       netmask %s: destination netmask, such as x.x.x.x\n"
                                   "   [-c]        : clear route\n";

} // namespace

extern constexpr CmdDesc kRouteCmd{
    .major = "-i",
    .name = "-route",
    .handler = "tool_route_table_cmd_execute",
    .description = "route table cmd",
    .help = kHelpRoute,
    .ops = kRouteOps,
    .unknown_op = {RefusalLog::kNone, nullptr, "Get unknown option!\n"},
    .argc_log = "tool_route_table_cmd_execute err argc[%d]",
    .masks = kRouteMasks,
};

int32_t tool_cfg_route_recovery(DevRef dev, const ConfView &conf)
{
    if (conf.status() != 0)
        return conf.status();
    return walk_routes(conf.content(), nullptr, dev, RouteAction::kReplay, 0, 0, conf.index());
}

namespace
{

constexpr uint32_t kLiveRouteTableSize = 386000; ///< as -route -g reads it

ItemEntry route_entry(uint32_t dest, uint32_t mask, uint32_t gateway)
{
    ItemEntry entry{"address " + item_ipv4_text(dest) + " netmask " + item_ipv4_text(mask),
                    "gateway " + item_ipv4_text(gateway), ""};
    entry.text = entry.id + " " + entry.value;
    return entry;
}

bool parse_ipv4(const char *text, uint32_t *address)
{
    in_addr addr{};
    if (inet_pton(AF_INET, text, &addr) != 1)
        return false;
    *address = addr.s_addr;
    return true;
}

int32_t check_route_line(const char *line)
{
    SavedRouteLine route{};
    return tool_parse_route_line(line, &route);
}

// The route table is text: rows "destination netmask gateway" below a header. A text that
// holds addresses but no such row is a table of another shape, rather than a table without
// routes.
ItemLive live_routes(uint32_t logic_id)
{
    std::string text(kLiveRouteTableSize, '\0');
    ItemLive live;
    live.ret = kopa_get_route_table(logic_id, 0, text.data(), kLiveRouteTableSize);
    if (live.ret != 0)
        return live;
    text.resize(strnlen(text.data(), kLiveRouteTableSize));
    bool addresses = false;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string row = text.substr(start, end - start);
        start = end + 1;
        char words[3][32] = {};
        uint32_t d = 0, m = 0, g = 0;
        if (sscanf(row.c_str(), "%31s %31s %31s", words[0], words[1], words[2]) == 3 &&
            parse_ipv4(words[0], &d) && parse_ipv4(words[1], &m) && parse_ipv4(words[2], &g))
            live.entries.push_back(route_entry(d, m, g));
        for (size_t i = 0; i + 2 < row.size() && !addresses; ++i)
            addresses = isdigit(static_cast<unsigned char>(row[i])) != 0 && row[i + 1] == '.' &&
                        isdigit(static_cast<unsigned char>(row[i + 2])) != 0;
    }
    if (live.entries.empty() && addresses) {
        live.ret = kErrnoInval;
        live.error = "the route table is not in rows of destination, netmask and gateway";
    }
    return live;
}

std::string routes_key(DevRef dev)
{
    return "route_address_A_netmask_M_" + std::to_string(dev.phy_id);
}

// Routes are saved under the physical id; the walk reads every route line of the file and
// stops on the first that is not in the written form, whichever device it names.
ItemSavedList saved_routes(std::string_view conf, DevRef dev)
{
    ItemSavedList list;
    size_t malformed = 0;
    (void)cfg_for_each_piece(conf, [&](std::string_view piece) {
        if (!tool_is_route_line(piece))
            return 0;
        std::string line(piece.data(), strnlen(piece.data(), piece.size()));
        if (!line.empty() && line.back() == '\n')
            line.pop_back();
        SavedRouteLine route{};
        if (tool_parse_route_line(line.c_str(), &route) != kOk) {
            ++malformed;
            return 0;
        }
        uint32_t d = 0, m = 0, g = 0;
        if (route.section == dev.phy_id && parse_ipv4(route.address, &d) &&
            parse_ipv4(route.netmask, &m) && parse_ipv4(route.gateway, &g)) {
            list.entries.push_back(route_entry(d, m, g));
            list.any = true;
        }
        return 0;
    });
    if (malformed != 0)
        list.error = std::to_string(malformed) +
                     " route line(s) of the file are not in the written form: the replay of "
                     "routes stops on them";
    return list;
}

} // namespace

extern constexpr SavedItem kRoutesItem{
    .key = "routes",
    .buffer = 0,
    .kind = ItemKind::kEntries,
    .what = "routes",
    .check = check_route_line,
    .live = live_routes,
    .replay = tool_cfg_route_recovery,
    .replay_name = "tool_cfg_route_recovery",
    .list_key = routes_key,
    .saved_list = saved_routes,
    .ansible_module = "vorn_devices",
    .ansible_option = "routes",
};
