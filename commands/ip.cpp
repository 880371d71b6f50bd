// The -ip command: address and netmask of a device's RoCE port, the address-conflict rule, and
// the replay of the saved address.
#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/ip_conflict.hpp"
#include "commands/replay.hpp"
#include "commands/route_store.hpp"
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/device_info.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr uint32_t kGroupSize = 4;
constexpr const char *kHostLinkAddress = "192.168.1.199";
constexpr const char *kHostLinkNetmask = "255.255.255.0";

struct IpText {
    char address[kIpTextSize];
    char netmask[kIpTextSize];
};

// The pairs come in either order; a repeated key leaves the other value empty on purpose, so
// that its validity check refuses the line.
[[nodiscard]] int32_t tool_ip_get_ipaddr(char **argv, IpText *ip)
{
    memset(ip, 0, sizeof(*ip));
    for (int i = 1; i <= 3; i += 2) {
        int32_t ret;
        if (strcmp(argv[i], "address") == 0) {
            ret = cmd_copy_ip_word(CMD_HERE, ip->address, argv[i + 1], "address", true);
        } else if (strcmp(argv[i], "netmask") == 0) {
            ret = cmd_copy_ip_word(CMD_HERE, ip->netmask, argv[i + 1], "netmask", true);
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

[[nodiscard]] int32_t tool_ip_set_address(DevRef dev, const char *address, const char *netmask,
                                          SetMode /*mode*/)
{
    const uint32_t logic_id = dev.logic_id;
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
    if (ret != 0 && !cmd_set_took_effect(ret, [&] {
            kopa_ip_record held{};
            return kopa_get_device_ip_address(logic_id, KOPA_PORT_TYPE_ROCE, 0, &held) == 0 &&
                   held.address == rec.address && held.netmask == rec.netmask;
        })) {
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
    // Read as the conflict rule reads them (inet_addr), before they are validated: a text that
    // does not convert reads as 255.255.255.255, and the routes are pruned against that.
    int32_t ret = tool_read_vorn_conf_handle_action(dev_of(info), RouteAction::kDelOutsideSegment,
                                                    inet_addr(address), inet_addr(netmask));
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
    if (cfg_read_conf(info->phy_id, "gateway", gateway, sizeof(gateway)) == 0) {
        int32_t ret = tool_check_ip_net_segment(address, gateway, netmask);
        if (ret != kOk) {
            DRV_ERR("Not same net segment. (ret=%d)", ret);
            ret = cfg_del_conf(info->phy_id, "gateway");
            if (ret != 0) {
                DRV_ERR("del cfg error! ret[%d] logic_id[%u]", ret, info->logic_id);
                return ret;
            }
        }
    }
    int32_t ret = tool_cfg_replay_now(tool_cfg_gateway_recovery, dev_of(info));
    if (ret != kOk) {
        DRV_ERR("recover gateway cfg fail! ret[%d] phy_id[%u]", ret, info->phy_id);
        return ret;
    }
    ret = tool_cfg_replay_now(tool_cfg_route_recovery, dev_of(info));
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

int32_t tool_set_device_ipaddr(int /*argc*/, char **argv, cmd_parse_info *info)
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
    ret = tool_ip_set_address(dev_of(info), ip.address, ip.netmask, SetMode::kCommand);
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

int32_t tool_get_device_ipaddr(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    const uint32_t logic_id = info->logic_id;
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

constexpr CmdOp kIpOps[] = {
    {"-s", 5, true, tool_set_device_ipaddr, "err ip set cmd argc[%d]"},
    {"-g", 1, false, tool_get_device_ipaddr, "err ip get cmd argc[%d]"},
};

constexpr CmdMask kIpMasks[] = {{"address", 5}, {"netmask", 7}};

constexpr const char *kHelpIp = "   [-s]        : set ip cfg \n"
                                "       address %s : set ip address, such as x.x.x.x\n"
                                "       netmask %s : set netmask, such as x.x.x.x\n"
                                "   [-g]        :get ip address and netmask \n";

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

extern constexpr CmdDesc kIpCmd{
    .major = "-i",
    .name = "-ip",
    .handler = "tool_ip_cmd_execute",
    .description = "ip cfg cmd",
    .help = kHelpIp,
    .ops = kIpOps,
    .unknown_op = {RefusalLog::kNone, nullptr, "Get unknown option.\n"},
    .masks = kIpMasks,
};

namespace
{

// The checks of tool_ip_set_address, without its texts.
int32_t check_address(const char *text)
{
    uint32_t addr = 0;
    return tool_inet_pton_ipv4_address(text, &addr) != kOk || addr == 0 || addr == 0xFFFFFFFFu
               ? kErrReported
               : kOk;
}

int32_t check_netmask(const char *text)
{
    uint32_t mask = 0;
    return tool_inet_pton_ipv4_address(text, &mask) != kOk || !netmask_is_contiguous(mask)
               ? kErrReported
               : kOk;
}

int32_t set_address(DevRef dev, const char *text, const char *netmask, SetMode mode)
{
    return tool_ip_set_address(dev, text, netmask, mode);
}

int32_t set_netmask(DevRef dev, const char *text, const char *address, SetMode mode)
{
    return tool_ip_set_address(dev, address, text, mode);
}

template <uint32_t kopa_ip_record::*kField> ItemLive live_ip(uint32_t logic_id)
{
    kopa_ip_record rec{};
    ItemLive live;
    live.ret = kopa_get_device_ip_address(logic_id, KOPA_PORT_TYPE_ROCE, 0, &rec);
    if (live.ret == 0)
        live.value = item_ipv4_text(rec.*kField);
    return live;
}

} // namespace

extern constexpr SavedItem kAddressItem{
    .key = "address",
    .buffer = kIpTextSize,
    .kind = ItemKind::kIpv4,
    .what = "address",
    .check = check_address,
    .live = live_ip<&kopa_ip_record::address>,
    .replay = tool_cfg_ip_recovery,
    .replay_name = "tool_cfg_ip_recovery",
    .set_words = "-ip -s address {address} netmask {netmask}",
    .canonical = item_canonical_ipv4,
    .partner = "netmask",
    .set_pair = set_address,
    .ansible_module = "vorn_devices",
    .ansible_option = "address",
};

extern constexpr SavedItem kNetmaskItem{
    .key = "netmask",
    .buffer = kIpTextSize,
    .kind = ItemKind::kIpv4,
    .what = "netmask",
    .check = check_netmask,
    .live = live_ip<&kopa_ip_record::netmask>,
    .set_words = "-ip -s address {address} netmask {netmask}",
    .canonical = item_canonical_ipv4,
    .partner = "address",
    .set_pair = set_netmask,
    .ansible_module = "vorn_devices",
    .ansible_option = "netmask",
};

int32_t tool_cfg_ip_recovery(DevRef dev, const ConfView &conf)
{
    char address[kIpTextSize] = {};
    char netmask[kIpTextSize] = {};
    int ret = conf.read_item(dev.phy_id, "address", address, sizeof(address));
    if (ret == 0)
        ret = conf.read_item(dev.phy_id, "netmask", netmask, sizeof(netmask));
    if (ret != 0) {
        DRV_DBG("ip address do not need recover cfg [%d]", ret);
        return kOk;
    }
    return tool_ip_set_address(dev, address, netmask, SetMode::kRecovery);
}
