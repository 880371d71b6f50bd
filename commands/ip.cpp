// The -ip command: address and netmask of a device's RoCE port, the address-conflict rule, and
// the replay of the saved address.
#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands/conf_item.hpp"
#include "commands/cmd_common.hpp"
#include "commands/handlers.hpp"
#include "commands/ip_conflict.hpp"
#include "commands/replay.hpp"
#include "commands/route_store.hpp"
#include "config/store.hpp"
#include "device/device_info.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"
#include "main/checkers.hpp"
#include "base/result.hpp"

namespace
{

constexpr uint32_t kIpTextSize = 20;
constexpr uint32_t kGroupSize = 4;
constexpr const char *kHostLinkAddress = "192.168.1.199";
constexpr const char *kHostLinkNetmask = "255.255.255.0";

struct IpText {
    char address[kIpTextSize];
    char netmask[kIpTextSize];
};

[[nodiscard]] int32_t copy_ip_word(char *dst, const char *src, const char *name)
{
    size_t len = strlen(src);
    if (len >= kIpTextSize) {
        DRV_ERR("memcpy_s %s fail[%d], dlen[%d], slen[%u]", name, ERANGE, kIpTextSize,
                static_cast<unsigned>(len));
        RUN_LOG_PROMPT("memcpy_s %s fail[%d], dlen[%d], slen[%u]\n", name, ERANGE, kIpTextSize,
                       static_cast<unsigned>(len));
        return kErrSysCopy;
    }
    memset(dst, 0, kIpTextSize);
    memcpy(dst, src, len);
    return kOk;
}

// The pairs come in either order; a repeated key leaves the other value empty on purpose, so
// that its validity check refuses the line.
[[nodiscard]] int32_t tool_ip_get_ipaddr(char **argv, IpText *ip)
{
    memset(ip, 0, sizeof(*ip));
    for (int i = 1; i <= 3; i += 2) {
        int32_t ret;
        if (strcmp(argv[i], "address") == 0) {
            ret = copy_ip_word(ip->address, argv[i + 1], "address");
        } else if (strcmp(argv[i], "netmask") == 0) {
            ret = copy_ip_word(ip->netmask, argv[i + 1], "netmask");
        } else {
            ret = cmd_err_unknown_option(CMD_HERE, nullptr,
                                         "Get unknown cmd, do you mean address or netmask\n");
        }
        if (ret != kOk)
            return ret;
    }
    return kOk;
}

[[nodiscard]] bool port_address_is(uint32_t logic_id, int port_type, in_addr_t address)
{
    kopa_ip_record rec{};
    int ret = kopa_get_device_ip_address(logic_id, port_type, 0, &rec);
    if (ret != 0) {
        DRV_ERR("kopa_get_device_ip_address fail ret=%d, logic_id[%u]", ret, logic_id);
        return false;
    }
    return rec.address == address;
}

// Ones of a netmask must run contiguously from the top; 0.0.0.0 and 255.255.255.255 pass.
[[nodiscard]] bool netmask_is_contiguous(uint32_t netmask_net)
{
    uint32_t m = ntohl(netmask_net);
    return ((m - 1) | m) == 0xFFFFFFFFu;
}

[[nodiscard]] int32_t tool_ip_set_address(uint32_t logic_id, const char *address,
                                          const char *netmask)
{
    uint32_t addr = 0;
    if (tool_inet_pton_ipv4_address(address, &addr) != kOk || addr == 0 || addr == 0xFFFFFFFFu) {
        fprintf(stderr, "The IP address is invalid!\n");
        RUN_LOG_PROMPT("Tool set device ipaddr is invalid.\n");
        return kErrReported;
    }
    uint32_t mask = 0;
    if (tool_inet_pton_ipv4_address(netmask, &mask) != kOk || !netmask_is_contiguous(mask)) {
        fprintf(stderr, "The netmask is invalid!\n");
        RUN_LOG_PROMPT("Tool set device netmask is invalid.\n");
        return kErrReported;
    }
    kopa_ip_record rec{addr, mask};
    int ret = kopa_set_device_ip_address(logic_id, KOPA_PORT_TYPE_ROCE, 0, &rec);
    if (ret != 0) {
        DRV_ERR("kopa set ip fail! ret[%d] logic_id[%u] address_ip[0x%x] netmask_ip[0x%x]", ret,
                logic_id, addr, mask);
        return kopa_err_to_vorn_err(ret);
    }
    return kOk;
}

[[nodiscard]] int32_t tool_write_ip_conf(uint32_t phy_id, const char *address, const char *netmask)
{
    int ret = cfg_write_conf(phy_id, "address", address);
    if (ret != 0) {
        DRV_ERR("write address cfg error. (ret=%d; phy_id=%u)", ret, phy_id);
        return ret;
    }
    ret = cfg_write_conf(phy_id, "netmask", netmask);
    if (ret != 0) {
        DRV_ERR("Write netmask cfg error. (ret=%d; phy_id=%u)", ret, phy_id);
        return ret;
    }
    return kOk;
}

// Routes whose gateway leaves the new segment are dropped before the address is validated or
// sent, so a set that fails later has still pruned them.
[[nodiscard]] int32_t tool_check_route_net_segment(const cmd_parse_info *info, const char *address,
                                                   const char *netmask)
{
    in_addr addr{};
    in_addr mask{};
    // An unparsable text names no segment; the validation that follows refuses it.
    if (inet_pton(AF_INET, address, &addr) != 1 || inet_pton(AF_INET, netmask, &mask) != 1)
        return kOk;
    int32_t ret = tool_read_vorn_conf_handle_action(info, RouteAction::kDelOutsideSegment,
                                                    addr.s_addr, mask.s_addr);
    if (ret != 0) {
        fprintf(stderr, "Failed to check the route network segment in the config file.\n");
        DRV_ERR("tool_check_route_net_segment: route not in the same net segment del failed! "
                "ret is %d",
                ret);
    }
    return ret;
}

// The device has the new address: drop a saved gateway that no longer fits, replay gateway and
// routes onto the device, then save the address.
[[nodiscard]] int32_t tool_set_ipaddr_recovery_steps(cmd_parse_info *info, const char *address,
                                                     const char *netmask)
{
    char gateway[kIpTextSize] = {};
    if (tool_conf_read_item(info->phy_id, "gateway", gateway, sizeof(gateway)) == 0) {
        int32_t ret = tool_check_ip_net_segment(address, gateway, netmask);
        if (ret != kOk) {
            DRV_ERR("Not same net segment. (ret=%d)", ret);
            ret = tool_conf_del_item(info->phy_id, "gateway");
            if (ret != 0) {
                DRV_ERR("del cfg error! ret[%d] logic_id[%u]", ret, info->logic_id);
                return ret;
            }
        }
    }
    int32_t ret = tool_cfg_gateway_recovery(info);
    if (ret != kOk) {
        DRV_ERR("recover gateway cfg fail! ret[%d] phy_id[%u]", ret, info->phy_id);
        return ret;
    }
    ret = tool_cfg_route_recovery(info);
    if (ret != kOk) {
        DRV_ERR("recover route cfg fail[%d], phy_id[%u]", ret, info->phy_id);
        return ret;
    }
    ret = tool_write_ip_conf(info->phy_id, address, netmask);
    if (ret != kOk) {
        DRV_ERR("Write cfg error. (ret=%d; logic_id=%u)", ret, info->logic_id);
        return ret;
    }
    return kOk;
}

[[nodiscard]] int32_t tool_set_ipaddr_recovery(cmd_parse_info *info, const char *address,
                                               const char *netmask)
{
    int32_t ret = tool_set_ipaddr_recovery_steps(info, address, netmask);
    if (ret != kOk) {
        DRV_ERR("tool recover after set ipaddr err! ret is [%d]", ret);
        fprintf(stderr, "Failed to write the IP address to the config file. User configurations "
                        "cannot be persisted.\n");
    }
    return ret;
}

[[nodiscard]] int32_t tool_set_device_ipaddr(char **argv, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("Start to set ip address and netmask_ip of logic_id[%u]\n", info->logic_id);
    IpText ip;
    int32_t ret = tool_ip_get_ipaddr(argv, &ip);
    if (ret != kOk) {
        DRV_ERR("Tool ip get ipaddr fail. (ret=%d)", ret);
        return ret;
    }
    if (is_ipaddr_conflict(info->logic_id, ip.address, ip.netmask)) {
        DRV_ERR("Ipaddr conflict.");
        return kErrIpConflict;
    }
    ret = tool_check_route_net_segment(info, ip.address, ip.netmask);
    if (ret != kOk)
        return ret;
    ret = tool_ip_set_address(info->logic_id, ip.address, ip.netmask);
    if (ret != kOk) {
        DRV_ERR("Ip set address fail! (ret=%d; logic_id=%u)", ret, info->logic_id);
        return ret;
    }
    ret = tool_set_ipaddr_recovery(info, ip.address, ip.netmask);
    if (ret != kOk)
        return ret;
    RUN_LOG_PROMPT("Set logic_id[%u] ip success!\n", info->logic_id);
    return kOk;
}

[[nodiscard]] int32_t tool_get_device_ipaddr(uint32_t logic_id)
{
    kopa_ip_record rec{};
    int ret = kopa_get_device_ip_address(logic_id, KOPA_PORT_TYPE_ROCE, 0, &rec);
    if (ret != 0) {
        DRV_ERR("kopa_get_device_ip_address fail ret=%d, logic_id[%u]", ret, logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    char address[kIpTextSize] = {};
    char netmask[kIpTextSize] = {};
    if (inet_ntop(AF_INET, &rec.address, address, sizeof(address)) == nullptr) {
        DRV_ERR("ip[0x%x] transfer error", rec.address);
        return kErrSysCopy;
    }
    if (inet_ntop(AF_INET, &rec.netmask, netmask, sizeof(netmask)) == nullptr) {
        DRV_ERR("netmask[0x%x] transfer error", rec.netmask);
        return kErrSysCopy;
    }
    printf("ipaddr:%s\n", address);
    printf("netmask:%s\n", netmask);
    return kOk;
}

} // namespace

bool is_ipaddr_conflict(uint32_t logic_id, const char *address, const char *netmask)
{
    in_addr_t addr = inet_addr(address);
    in_addr_t mask = inet_addr(netmask);
    int count = 0;
    unsigned int phy_id = 0;
    bool pcie = false;
    // Without the device count, physical id or card type nothing is examined, not even the
    // reserved segment.
    if (kopa_get_device_count(&count) != 0 || kopa_get_phyid_from_logicid(logic_id, &phy_id) != 0 ||
        tool_is_pcie_card(logic_id, &pcie) != kOk) {
        DRV_WARN("conflict check skipped. (logic_id=%u)", logic_id);
        return false;
    }
    if (pcie) {
        if (port_address_is(logic_id, KOPA_PORT_TYPE_VNIC, addr))
            return true;
    } else {
        uint32_t ndev = count > 0 ? static_cast<uint32_t>(count) : 0;
        uint32_t first = phy_id >= kGroupSize ? kGroupSize : 0;
        uint32_t end = phy_id >= kGroupSize ? ndev : std::min(ndev, kGroupSize);
        for (uint32_t d = first; d < end; ++d) {
            if (port_address_is(d, KOPA_PORT_TYPE_VNIC, addr))
                return true;
            if (d != logic_id && port_address_is(d, KOPA_PORT_TYPE_ROCE, addr))
                return true;
        }
    }
    return (addr & mask) == (inet_addr(kHostLinkAddress) & inet_addr(kHostLinkNetmask));
}

int32_t tool_ip_cmd_execute(int argc, char **argv, cmd_parse_info *info)
{
    if (argc <= 0 || argv == nullptr || info == nullptr)
        return cmd_err_argc(CMD_HERE, argc);
    if (strcmp(argv[0], "-s") == 0) {
        if (argc != 5) {
            DRV_ERR("err ip set cmd argc[%d]", argc);
            return kErrArgCount;
        }
        return tool_set_device_ipaddr(argv, info);
    }
    if (strcmp(argv[0], "-g") == 0) {
        if (argc != 1) {
            DRV_ERR("err ip get cmd argc[%d]", argc);
            return kErrArgCount;
        }
        return tool_get_device_ipaddr(info->logic_id);
    }
    return cmd_err_unknown_option(CMD_HERE, nullptr, "Get unknown option.\n");
}

int32_t tool_cfg_ip_recovery(cmd_parse_info *info)
{
    char address[kIpTextSize] = {};
    char netmask[kIpTextSize] = {};
    int ret = tool_conf_read_item(info->phy_id, "address", address, sizeof(address));
    if (ret == 0)
        ret = tool_conf_read_item(info->phy_id, "netmask", netmask, sizeof(netmask));
    if (ret != 0) {
        DRV_DBG("ip address do not need recover cfg [%d]", ret);
        return kOk;
    }
    return tool_ip_set_address(info->logic_id, address, netmask);
}
