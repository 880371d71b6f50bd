// The -gateway command: the default gateway of a device group, kept in step between the firmware
// and the saved file, and its replay.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/device_info.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr uint32_t kGroupSize = 4;
// The firmware holds no gateway when a read leaves both values at this preset.
constexpr uint32_t kNoGateway = 255;

/// The firmware's gateway and the physical id of the device that holds it.
struct HwGateway {
    uint32_t gateway = kNoGateway;
    uint32_t port = kNoGateway;
    [[nodiscard]] bool held() const { return !(gateway == kNoGateway && port == kNoGateway); }
};

// Finds the first saved gateway among the devices of this device's group: 0 with its value and
// section, 12294 when no device of the group has one, or another failure.
[[nodiscard]] int32_t tool_ip_get_gateway_conf(uint32_t logic_id, uint32_t phy_id,
                                               uint32_t *gateway, uint32_t *conf_phy)
{
    bool pcie = false;
    int32_t ret = tool_is_pcie_card(logic_id, &pcie);
    if (ret != kOk) {
        DRV_ERR("tool_ip_get_gateway_conf check pcie card failed, ret[%d]", ret);
        return ret;
    }
    dev_list_info list{};
    ret = tool_get_dev_list_info(&list);
    if (ret != kOk) {
        DRV_ERR("tool_get_dev_list_info fail, ret[%d]", ret);
        return ret;
    }
    bool upper_group = phy_id >= kGroupSize;
    for (uint32_t i = 0; i < list.count; ++i) {
        if (pcie ? list.logic_id[i] != logic_id : (list.phy_id[i] >= kGroupSize) != upper_group)
            continue;
        char text[kIpTextSize] = {};
        ret = cfg_read_conf(list.phy_id[i], "gateway", text, sizeof(text));
        if (ret == kErrSysNotFound)
            continue;
        if (ret != 0) {
            DRV_ERR("cfg_read_conf fail! phy_id[%u] ret[%d] len[%u]", list.phy_id[i], ret,
                    kIpTextSize);
            return ret;
        }
        uint32_t value = 0;
        ret = tool_inet_pton_ipv4_address(text, &value);
        if (ret != kOk) {
            fprintf(stderr, "The gateway is invalid!\n");
            DRV_ERR("Tool inet pton ipv4 address fail. (ret=%d; logic_id=%u; gw_ip=0x%x)", ret,
                    logic_id, value);
            return ret;
        }
        *gateway = value;
        *conf_phy = list.phy_id[i];
        return kOk;
    }
    return kErrSysNotFound;
}

// Makes the file say what the firmware holds: at most one "gateway" key in the group, in the
// section of the device that carries the firmware's gateway.
[[nodiscard]] int32_t tool_ip_sync_hw_gateway_to_conf(uint32_t logic_id, uint32_t phy_id,
                                                      HwGateway *hw)
{
    *hw = HwGateway{};
    uint32_t conf_gw = 0;
    uint32_t conf_phy = 0;
    int32_t ret = tool_ip_get_gateway_conf(logic_id, phy_id, &conf_gw, &conf_phy);
    if (ret != kOk && ret != kErrSysNotFound) {
        DRV_ERR("tool get gw conf fail[%d] logic_id[%u]", ret, logic_id);
        return ret;
    }
    bool saved = ret == kOk;

    uint32_t gw = kNoGateway;
    uint32_t port = kNoGateway;
    // A read that leaves the preset 255/255 in place means no gateway just as a refused one.
    if (kopa_get_default_gateway_address(logic_id, &gw, &port) != 0 ||
        (gw == kNoGateway && port == kNoGateway)) {
        if (saved) {
            ret = cfg_del_conf(conf_phy, "gateway");
            if (ret != 0) {
                DRV_ERR("del cfg error! ret[%d] phy_id[%u]", ret, conf_phy);
                return ret;
            }
        }
        return kOk;
    }
    hw->gateway = gw;
    hw->port = port;

    char text[kIpTextSize] = {};
    ret = tool_ipv4_int_to_str(gw, text, sizeof(text));
    if (ret != kOk) {
        DRV_ERR("ipv4_int_to_str! ret[%d] gateway[%u]", ret, gw);
        return ret;
    }
    if (saved && conf_gw == gw && conf_phy == port)
        return kOk;
    if (saved) {
        DRV_WARN("hw gateway[0x%x] port[%u], diff conf gw[0x%x] phy_id[%u]", gw, port, conf_gw,
                 conf_phy);
        ret = cfg_del_conf(conf_phy, "gateway");
        if (ret != 0) {
            DRV_ERR("del cfg error! ret[%d] phy_id[%u]", ret, conf_phy);
            return ret;
        }
    } else {
        DRV_WARN("hw gateway[0x%x] port[%u], conf nothing", gw, port);
    }
    ret = cfg_write_conf(port, "gateway", text);
    if (ret != 0) {
        DRV_ERR("write cfg error! ret[%d] phy_id[%u]", ret, port);
        return ret;
    }
    return kOk;
}

// Removes a gateway from the device that held it, in firmware and file.
[[nodiscard]] int32_t tool_ip_del_gateway(uint32_t phy_id, uint32_t port_id, uint32_t gateway)
{
    unsigned int logic_id = 0;
    int ret = kopa_get_logicid_from_phyid(phy_id, &logic_id);
    if (ret != 0) {
        DRV_ERR("kopa_get_logicid_from_phyid err! ret[%d], phy_id[%u]", ret, phy_id);
        return kopa_err_to_vorn_err(ret);
    }
    ret = kopa_del_default_gateway_address(logic_id, port_id, gateway);
    if (ret != 0) {
        DRV_ERR("kopa del default gw fail! ret[%d] logic_id[%u] ip[0x%x]", ret, logic_id, gateway);
        return kopa_err_to_vorn_err(ret);
    }
    ret = cfg_del_conf(phy_id, "gateway");
    if (ret != 0) {
        DRV_ERR("del cfg error! ret[%d] phy_id[%u]", ret, phy_id);
        return ret;
    }
    return kOk;
}

// The new gateway is set before the old one is removed, so the group never goes without one.
[[nodiscard]] int32_t tool_ip_set_gateway(const cmd_parse_info *info, const char *text)
{
    uint32_t gw = 0;
    int32_t ret = tool_inet_pton_ipv4_address(text, &gw);
    if (ret != kOk) {
        fprintf(stderr, "The gateway is invalid!\n");
        DRV_ERR("Tool inet pton ipv4 address fail. (ret=%d; gateway_ip=0x%x)", ret, gw);
        return ret;
    }
    DRV_DBG("logic_id[0x%x] gateway_ip[0x%x]", info->logic_id, gw);

    HwGateway old;
    ret = tool_ip_sync_hw_gateway_to_conf(info->logic_id, info->phy_id, &old);
    if (ret != kOk) {
        DRV_ERR("sync hw gateway to conf fail logic_id[%u] phy_id[%u] ret[%d]", info->logic_id,
                info->phy_id, ret);
        return ret;
    }
    if (old.held() && old.port == info->phy_id && old.gateway == gw) {
        DRV_DBG("cfg logic_id[%u] gw[0x%x] exist", info->logic_id, gw);
        return kOk;
    }
    int kret = kopa_set_default_gateway_address(info->logic_id, 0, gw);
    if (kret != 0) {
        DRV_ERR("kopa set default gw fail! ret[%d] logic_id[%u] ip[0x%x]", kret, info->logic_id,
                gw);
        return kopa_err_to_vorn_err(kret);
    }
    if (old.held())
        return tool_ip_del_gateway(old.port, 0, old.gateway);
    return kOk;
}

[[nodiscard]] int32_t tool_ip_get_gateway(char **argv, char (*gateway)[kIpTextSize])
{
    if (strcmp(argv[1], "gateway") != 0)
        return cmd_err_unknown_option(CMD_HERE, nullptr, "Get unknown cmd, do you mean gateway\n");
    return cmd_copy_ip_word(CMD_HERE, *gateway, argv[2], "gateway", true);
}

int32_t tool_inner_gateway_set_execute(int /*argc*/, char **argv, cmd_parse_info *info)
{
    RUN_LOG_CONFIG("Start to set default gateway address of logic_id[%u]\n", info->logic_id);
    char gateway[kIpTextSize] = {};
    int32_t ret = tool_ip_get_gateway(argv, &gateway);
    if (ret != kOk) {
        DRV_ERR("Tool ip get gateway fail. (ret=%d)", ret);
        return ret;
    }
    // A gateway belongs to a saved address: without one there is no segment to check against.
    char address[kIpTextSize] = {};
    char netmask[kIpTextSize] = {};
    ret = cfg_read_conf(info->phy_id, "address", address, sizeof(address));
    if (ret != 0) {
        fprintf(stderr, "Failed to read the address from the config file.\n");
        DRV_ERR("read address fail! ret[%d] phy_id[%u]", ret, info->phy_id);
        // "Not found" is told by the text above; the front-end adds nothing.
        return ret == kErrSysNotFound ? kErrReported : ret;
    }
    ret = cfg_read_conf(info->phy_id, "netmask", netmask, sizeof(netmask));
    if (ret != 0) {
        fprintf(stderr, "Failed to read the netmask from the config file.\n");
        DRV_ERR("read netmask fail! ret[%d] phy_id[%u]", ret, info->phy_id);
        return ret == kErrSysNotFound ? kErrReported : ret;
    }
    ret = tool_check_ip_net_segment(address, gateway, netmask);
    if (ret != kOk) {
        DRV_ERR("Not the same net segment. (ret=%d)", ret);
        return ret;
    }
    ret = tool_ip_set_gateway(info, gateway);
    if (ret != kOk) {
        DRV_ERR("Tool ip set gateway fail. (ret=%d; logic_id=%u)", ret, info->logic_id);
        return ret;
    }
    ret = cfg_write_conf(info->phy_id, "gateway", gateway);
    if (ret != 0) {
        fprintf(stderr, "Failed to write the gateway to the config file. User configurations "
                        "cannot be persisted.\n");
        DRV_ERR("Write cfg error. (ret=%d; phy_id=%u)", ret, info->phy_id);
        return ret;
    }
    return kOk;
}

int32_t tool_get_gateway(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    const uint32_t logic_id = info->logic_id;
    uint32_t gw = kNoGateway;
    uint32_t port = kNoGateway;
    int ret = kopa_get_default_gateway_address(logic_id, &gw, &port);
    if (ret != 0) {
        DRV_ERR("kopa_get_default_gateway_address fail ret=%d, logic_id[%u]", ret, logic_id);
        return ret == KOPA_RESULT_NOENT ? kErrKopaNoGateway : kErrKopa;
    }
    char text[kIpTextSize] = {};
    int32_t cret = tool_ipv4_int_to_str(gw, text, sizeof(text));
    if (cret != kOk) {
        DRV_ERR("ipv4_int_to_str failed! ret[%d] gateway[0x%x]", cret, gw);
        return cret;
    }
    printf("default gateway:%s, Iface:eth%u\n", text, port);
    return kOk;
}

constexpr CmdOp kGatewayOps[] = {
    {"-s", 3, true, tool_inner_gateway_set_execute},
    {"-g", 1, false, tool_get_gateway},
};

constexpr CmdMask kGatewayMasks[] = {{"gateway", 5}};

constexpr const char *kHelpGateway = "   [-s]        : set gateway cfg \n"
                                     "       gateway %s : set gateway, such as x.x.x.x\n"
                                     "   [-g]        : get gateway address \n";

} // namespace

extern constexpr CmdDesc kGatewayCmd{
    .major = "-i",
    .name = "-gateway",
    .handler = "tool_gateway_cmd_execute",
    .description = "gateway cfg cmd",
    .help = kHelpGateway,
    .ops = kGatewayOps,
    .unknown_op = {RefusalLog::kNone, nullptr, "Get unknown option!\n"},
    .masks = kGatewayMasks,
};

namespace
{

int32_t check_gateway(const char *text)
{
    uint32_t gw = 0;
    return tool_inet_pton_ipv4_address(text, &gw) != kOk ? kErrKopa : kOk;
}

// Sets the gateway as it stands; the group bookkeeping was done when it was saved.
int32_t set_gateway(DevRef dev, const char *text, SetMode /*mode*/)
{
    uint32_t gw = 0;
    int ret = tool_inet_pton_ipv4_address(text, &gw);
    if (ret != kOk) {
        fprintf(stderr, "The gateway is invalid!\n");
        DRV_ERR("Tool inet pton ipv4 address fail. (ret=%d; gateway_ip=0x%x)", ret, gw);
        return kErrKopa;
    }
    ret = kopa_set_default_gateway_address(dev.logic_id, 0, gw);
    if (ret != 0) {
        DRV_ERR("kopa set default gw fail! ret[%d] logic_id[%u] gateway_ip[0x%x]", ret,
                dev.logic_id, gw);
        return kErrKopa;
    }
    return kOk;
}

// The group's gateway and the device that holds it; "none" when the group holds none.
ItemLive live_gateway(uint32_t logic_id)
{
    uint32_t gw = 0;
    uint32_t holder = 0;
    ItemLive live;
    live.ret = kopa_get_default_gateway_address(logic_id, &gw, &holder);
    if (live.ret == KOPA_RESULT_NOENT) {
        live.ret = 0;
        live.value = "none";
    } else if (live.ret == 0) {
        live.value = item_ipv4_text(gw);
        live.holder = holder;
    }
    return live;
}

} // namespace

extern constexpr SavedItem kGatewayItem{
    .key = "gateway",
    .buffer = kIpTextSize,
    .kind = ItemKind::kIpv4,
    .what = "gateway",
    .check = check_gateway,
    .live = live_gateway,
    .replay = tool_cfg_gateway_recovery,
    .replay_name = "tool_cfg_gateway_recovery",
    .set_words = "-gateway -s gateway {gateway}",
    .canonical = item_canonical_ipv4,
    .set = set_gateway,
    .ansible_module = "vorn_devices",
    .ansible_option = "gateway",
};

int32_t tool_cfg_gateway_recovery(DevRef dev, const ConfView &conf)
{
    return cmd_replay_value(CMD_HERE, conf, kGatewayItem, dev, "gateway",
                            "gateway need recover cfg", nullptr);
}
