// The -lldp command (what the device learned from its LLDP neighbour) and the -vnic command
// (link state, address and netmask of the virtual NIC towards the host).
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "base/text.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

constexpr uint32_t kVnicPort = 0;

int32_t tool_get_vnic_ipaddr(uint32_t logic_id, char *ip, char *netmask)
{
    kopa_ip_record record = {};
    int ret = kopa_get_device_ip_address(logic_id, KOPA_PORT_TYPE_VNIC, 0, &record);
    if (ret != 0) {
        DRV_ERR("kopa_get_device_ip_address fail ret=%d, logic_id[%u]", ret, logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    if (inet_ntop(AF_INET, &record.address, ip, kIpTextSize) == nullptr) {
        DRV_ERR("ip[0x%x] transfer error", record.address);
        return kErrSysCopy;
    }
    if (inet_ntop(AF_INET, &record.netmask, netmask, kIpTextSize) == nullptr) {
        DRV_ERR("netmask[0x%x] transfer error", record.netmask);
        return kErrSysCopy;
    }
    return kOk;
}

int32_t tool_lldp_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    int ret = kopa_lldp_get_neighbor_info(info->logic_id);
    if (ret != 0) {
        DRV_ERR("kopa get lldptool fail! ret[%d] logic_id[%u]", ret, info->logic_id);
        return kErrKopa;
    }
    return kOk;
}

int32_t tool_vnic_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    uint32_t link = 0;
    int ret = kopa_get_vnic_status(info->logic_id, kVnicPort, &link);
    if (ret != 0) {
        DRV_ERR("get vnic status fail ret[%d] logic_id[%u] link[%u]", ret, info->logic_id, link);
        return kErrKopa;
    }
    char ip[kIpTextSize] = {};
    char netmask[kIpTextSize] = {};
    int32_t res = tool_get_vnic_ipaddr(info->logic_id, ip, netmask);
    if (res != kOk) {
        DRV_ERR("tool_get_vnic_ipaddr fail ret[%d] logic_id[%u]", res, info->logic_id);
        return res;
    }
    const char *state = link != 0 ? "UP" : "DOWN";
    printf("vnic link status: %s\n", state);
    printf("vnic ipaddr: %s\n", ip);
    printf("vnic netmask: %s\n", netmask);
    RUN_LOG_PROMPT("vnic link status: %s\n", state);
    RUN_LOG_PROMPT("vnic ipaddr: %s\n", ip);
    RUN_LOG_PROMPT("vnic netmask: %s\n", netmask);
    return kOk;
}

constexpr CmdOp kLldpOps[] = {{"-g", 1, false, tool_lldp_get_cmd}};
constexpr CmdOp kVnicOps[] = {{"-g", 1, false, tool_vnic_get_cmd}};

} // namespace

extern constexpr CmdDesc kLldpCmd{
    .major = "-i",
    .name = "-lldp",
    .handler = "tool_lldp_cmd_execute",
    .description = "lldp cfg cmd",
    .help = "   [-g]        : get lldp cfg \n",
    .ops = kLldpOps,
    .unknown_op = {RefusalLog::kRunLog, "Invalid option.\n", "Get unknown option.\n"},
};

extern constexpr CmdDesc kVnicCmd{
    .major = "-i",
    .name = "-vnic",
    .handler = "tool_vnic_cmd_execute",
    .description = "vnic cmd",
    .help = "   [-g]        : get vnic link status, ip address and netmask \n",
    .ops = kVnicOps,
    .unknown_op = {RefusalLog::kRunLog, "invalid operation\n", "Get unknown option!\n"},
};
