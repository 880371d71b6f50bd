// The -cfg command: the recovery of saved settings onto one device or onto every device, after a
// device reset or a reboot, and the status of the last recovery, which the device keeps.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/recovery.hpp"
#include "commands/replay.hpp"
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/device_info.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

// The recovery status kept on the device.
enum CfgStatus : uint32_t {
    kStatusNone = 0,
    kStatusStart = 1,
    kStatusFail = 2,
    kStatusSuccess = 3
};

constexpr const char *kHelpCfg = "   [recovery]  : recover the saved cfg of the device \n"
                                 "   [status]    : get the status of the last cfg recovery \n";
constexpr const char *kHelpCfgAll = "   [recovery]  : recover the saved cfg of all devices \n";

void tool_cfg_status_set(DevRef dev, uint32_t status)
{
    int ret = kopa_set_cfg_status(dev.logic_id, status);
    if (ret != 0)
        DRV_ERR("set cfg status fail, (ret=%d; logic_id=%u; status=%u)", ret, dev.logic_id, status);
}

int32_t tool_cfg_cmd_recovery(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    return tool_cfg_recover_device(dev_of(info));
}

// Every device in list order; one that fails never stops the others.
int32_t tool_cfg_cmd_recovery_all(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    cmd_stdout_by_line();
    int count = 0;
    int ret = kopa_get_device_count(&count);
    if (ret != 0 || count < 0 || count > KOPA_MAX_DEVICES) {
        DRV_ERR("kopa_get_device_count fail! ret=%d, count=%d", ret, count);
        return kErrKopa;
    }
    int ids[KOPA_MAX_DEVICES] = {};
    if (count > 0 && (ret = kopa_list_device(ids, count)) != 0) {
        DRV_ERR("kopa_list_device fail! ret=%d, count=%d", ret, count);
        return kErrKopa;
    }
    // Nothing to recover is no failure, yet at boot it is rarely what was meant: the driver may
    // not be up, and a quiet success would hide it.
    if (count == 0)
        fputs("No device was found: no configuration was recovered.\n", stderr);
    // One view of the file serves every device: the setting lock keeps every writer out. A
    // missing file is each device's failure, said by each.
    ConfView conf;
    if (access(cfg_conf_path(), F_OK) == 0)
        (void)conf.open();
    int err_count = 0;
    for (int i = 0; i < count; ++i) {
        const uint32_t logic_id = static_cast<uint32_t>(ids[i]);
        ret = tool_check_dev_health(logic_id);
        if (ret != kOk) {
            ++err_count;
            DRV_ERR("tool_check_dev_health fail! ret=%d, logic_id=%u, err=%d", ret, logic_id,
                    err_count);
            continue;
        }
        unsigned int phy_id = 0;
        ret = kopa_get_phyid_from_logicid(logic_id, &phy_id);
        if (ret != 0) {
            ++err_count;
            DRV_ERR("kopa_get_phyid_from_logicid fail! ret=%d, logic_id=%u, err=%d", ret, logic_id,
                    err_count);
            continue;
        }
        info->logic_id = logic_id;
        info->phy_id = phy_id;
        ret = tool_cfg_recover_device(dev_of(info), conf);
        if (ret == kOk) {
            printf("dev:%u recovery success\n", logic_id);
        } else {
            ++err_count;
            DRV_ERR("tool cfg cmd recovery fail! i=%d, ret=%d, err_count=%d", i, ret, err_count);
        }
    }
    if (err_count == 0)
        return kOk;
    DRV_ERR("tool cfg cmd recovery all fail! err_count=%d", err_count);
    return kErrKopa;
}

int32_t tool_cfg_status_get(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    uint32_t status = 0;
    int ret = kopa_get_cfg_status(info->logic_id, &status);
    if (ret != 0) {
        DRV_ERR("get network status fail, (ret=%d)", ret);
        return kErrKopa;
    }
    static const char *const kWords[] = {"NONE", "START", "FAIL", "SUCCESS"};
    printf("config status:%s\n", status <= kStatusSuccess ? kWords[status] : "FAULT");
    return kOk;
}

constexpr CmdOp kCfgOps[] = {
    {"recovery", 1, true, tool_cfg_cmd_recovery},
    {"status", 1, false, tool_cfg_status_get},
};

constexpr CmdOp kCfgAllOps[] = {
    {"recovery", 1, true, tool_cfg_cmd_recovery_all},
};

constexpr CmdRefusal kUnknownCfgOption{RefusalLog::kNone, nullptr,
                                       "Get unknown option, do you mean recovery\n"};

} // namespace

extern constexpr CmdDesc kCfgCmd{
    .major = "-i",
    .name = "-cfg",
    .handler = "tool_cfg_cmd_execute",
    .description = "cfg cmd",
    .help = kHelpCfg,
    .ops = kCfgOps,
    .unknown_op = kUnknownCfgOption,
};

extern constexpr CmdDesc kCfgAllCmd{
    .major = "-a",
    .name = "-cfg",
    .handler = "tool_cfg_cmd_execute",
    .description = "cfg cmd",
    .help = kHelpCfgAll,
    .ops = kCfgAllOps,
    .unknown_op = kUnknownCfgOption,
};

namespace
{

// The first failing item stops the device. The items are read from `shared` when given, else
// from a view of the file read once for all of them.
int32_t recover_device(DevRef dev, const ConfView *shared)
{
    if (access(cfg_conf_path(), F_OK) != 0) {
        fputs("The config file does not exist. Failed to recover the configuration.\n", stderr);
        DRV_ERR("The config file does not exist. Failed to recover the configuration.");
        return kErrSysConfMissing;
    }
    tool_cfg_status_set(dev, kStatusStart);
    RUN_LOG_CONFIG("start to recover config of phy_id[%u]\n", dev.phy_id);
    ConfView own;
    if (shared == nullptr)
        (void)own.open();
    const ConfView &conf = shared != nullptr ? *shared : own;
    for (const SavedItem *item : g_saved_items) {
        if (item->replay == nullptr)
            continue;
        const int32_t ret = item->replay(dev, conf);
        if (ret != kOk) {
            DRV_ERR("recover cfg fail[%d] phy_id[%u]", ret, dev.phy_id);
            DRV_ERR("failed recovery item: %s", item->replay_name);
            tool_cfg_status_set(dev, kStatusFail);
            return ret;
        }
    }
    tool_cfg_status_set(dev, kStatusSuccess);
    return kOk;
}

} // namespace

int32_t tool_cfg_recover_device(DevRef dev)
{
    return recover_device(dev, nullptr);
}

int32_t tool_cfg_recover_device(DevRef dev, const ConfView &conf)
{
    return recover_device(dev, &conf);
}
