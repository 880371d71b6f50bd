// The -netdetect command: the address of the peer that a device probes to judge its link, and
// its replay.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands/cmd_common.hpp"
#include "commands/handlers.hpp"
#include "commands/replay.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"
#include "main/checkers.hpp"
#include "base/result.hpp"

namespace
{

constexpr uint32_t kIpTextSize = 20;

// Unlike a port address, 0.0.0.0 is accepted as a detection address; only the broadcast address
// is refused.
[[nodiscard]] int32_t tool_netdetect_set_address(uint32_t logic_id, const char *text)
{
    uint32_t address = 0;
    int32_t ret = tool_inet_pton_ipv4_address(text, &address);
    if (ret != kOk) {
        fprintf(stderr, "The IP address is invalid!\n");
        DRV_ERR("Tool inet pton ipv4 address fail. (ret=%d)", ret);
        return ret;
    }
    if (address == 0xFFFFFFFFu) {
        fprintf(stderr, "The IP address is invalid!\n");
        DRV_ERR("Addr is broadcast ip");
        return kErrReported;
    }
    int kret = kopa_set_net_detect_ip_address(logic_id, address);
    if (kret != 0) {
        DRV_ERR("kopa set net detect fail! ret[%d] logic_id[%u] ip[0x%x]", kret, logic_id, address);
        return kopa_err_to_vorn_err(kret);
    }
    return kOk;
}

[[nodiscard]] int32_t tool_set_netdetect(int argc, char **argv, const cmd_parse_info *info)
{
    if (argc != 3)
        return cmd_err_argc(CMD_HERE, argc);
    if (strcmp(argv[1], "address") != 0)
        return cmd_err_unknown_option(CMD_HERE, nullptr, "Get unknown cmd, do you mean address.\n");
    char text[kIpTextSize] = {};
    size_t len = strlen(argv[2]);
    if (len >= kIpTextSize) {
        DRV_ERR("memcpy_s address fail[%d], dlen[%d], slen[%u]", ERANGE, kIpTextSize,
                static_cast<unsigned>(len));
        RUN_LOG_PROMPT("memcpy_s address fail[%d], dlen[%d], slen[%u]\n", ERANGE, kIpTextSize,
                       static_cast<unsigned>(len));
        return kErrSysCopy;
    }
    memcpy(text, argv[2], len + 1);

    RUN_LOG_CONFIG("Start to set net detect ip of logic_id[%u]\n", info->logic_id);
    int32_t ret = tool_netdetect_set_address(info->logic_id, text);
    if (ret != kOk) {
        DRV_ERR("Tool netdetect set address fail. (ret=%d; logic_id=%u)", ret, info->logic_id);
        return ret;
    }
    ret = cfg_write_conf(info->phy_id, "netdetect", text);
    if (ret != 0) {
        fprintf(stderr, "Failed to write the IP address of the network detection object to the "
                        "config file, and user configurations cannot be persisted.\n");
        DRV_ERR("Write cfg error. (ret=%d; logic_id=%u)", ret, info->logic_id);
        return ret;
    }
    DRV_DBG("Set logic_id[%u] netdetect address success!", info->logic_id);
    return kOk;
}

[[nodiscard]] int32_t tool_get_netdetect(int argc, const cmd_parse_info *info)
{
    if (argc != 1)
        return cmd_err_argc(CMD_HERE, argc);
    uint32_t address = 0;
    int ret = kopa_get_net_detect_ip_address(info->logic_id, 0, &address);
    if (ret != 0) {
        DRV_ERR("kopa_get_net_detect_ip_address fail ret[%d] logic_id[%u]", ret, info->logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    char text[kIpTextSize] = {};
    int32_t cret = tool_ipv4_int_to_str(address, text, sizeof(text));
    if (cret != kOk) {
        DRV_ERR("tool_ipv4_int_to_str fail ret[%d] logic_id[%u]", cret, info->logic_id);
        return cret;
    }
    printf("netdetect address: %s\n", text);
    DRV_DBG("netdetect address: %s", text);
    return kOk;
}

} // namespace

int32_t tool_netdetect_cmd_execute(int argc, char **argv, cmd_parse_info *info)
{
    if (argc <= 0 || argv == nullptr || info == nullptr)
        return cmd_err_argc(CMD_HERE, argc);
    int32_t ret;
    if (strcmp(argv[0], "-s") == 0) {
        ret = tool_set_netdetect(argc, argv, info);
        if (ret != kOk)
            DRV_ERR("tool_set_netdetect fail, ret:%d", ret);
    } else if (strcmp(argv[0], "-g") == 0) {
        ret = tool_get_netdetect(argc, info);
        if (ret != kOk)
            DRV_ERR("tool_get_netdetect fail, ret:%d", ret);
    } else {
        ret = cmd_err_unknown_option(CMD_HERE, nullptr, "Get unknown option.\n");
    }
    return ret;
}

int32_t tool_cfg_netdetect_recovery(cmd_parse_info *info)
{
    char text[kIpTextSize] = {};
    if (!cmd_replay_read(CMD_HERE, info->phy_id, "netdetect", "netdetect address", text,
                         sizeof(text)))
        return kOk;
    DRV_DBG("netdetect address need recover cfg");
    int32_t ret = tool_netdetect_set_address(info->logic_id, text);
    if (ret != kOk)
        DRV_ERR("netdetect set address fail ret[%d] logic_id[%u]", ret, info->logic_id);
    return ret;
}
