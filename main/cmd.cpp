// The parse of one command line: shape checks, command lookup, device id, and the handler call.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/result.hpp"
#include "cmdline/setting_lock.hpp"
#include "device/device_info.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"
#include "main/audit.hpp"
#include "main/dispatch.hpp"
#include "main/errors.hpp"

namespace
{

constexpr uint32_t kMaxLogicId = 15;
constexpr uint32_t kMaxHostPhyId = 15;
constexpr size_t kPhyIdLenMax = 2;

} // namespace

int32_t insert_cmd_list(const cmd_record *records, int count)
{
    int first_empty = 0;
    while (first_empty < kCmdListMax && !g_cmd_list[first_empty].empty())
        ++first_empty;
    if (records == nullptr || count < 0 || first_empty >= kCmdListMax ||
        first_empty + count > kCmdListMax - 1) {
        DRV_ERR("Cmd num out of max cmd num or cmd end ptr is null. (current_cmd_num=%d; "
                "cmd_num=%d)",
                first_empty, count);
        return kErrSysNull;
    }
    memcpy(&g_cmd_list[first_empty], records, sizeof(cmd_record) * static_cast<size_t>(count));
    return kOk;
}

int32_t insert_ext_cmd()
{
    // A process that runs several command lines (vornctl apply) appends the rows once.
    for (const cmd_record &row : g_cmd_list) {
        if (row.cmd == g_cmd_list_ext[0].cmd)
            return kOk;
    }
    return insert_cmd_list(g_cmd_list_ext, kCmdListExtNum);
}

int32_t len_valid(int argc, char **argv)
{
    if (argc < 2 || argc >= kArgcMax) {
        DRV_ERR("Param num error. (argc=%d)", argc);
        return kErrMajorCount;
    }
    for (int i = 0; i < argc; ++i) {
        size_t len = strnlen(argv[i], kArgLenMax + 1);
        if (len > kArgLenMax) {
            DRV_ERR("Param len error. (len=%u)", static_cast<unsigned>(strlen(argv[i])));
            return kErrParamLen;
        }
    }
    return kOk;
}

int is_help(int argc, char **argv)
{
    if (argc == 2 && (strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0))
        return 0;
    return 1;
}

int32_t get_cmd_type(int /*argc*/, char **argv, uint32_t *type, int *position)
{
    if (strcmp(argv[1], "-i") == 0) {
        *type = kCmdTypeOne;
        *position = 3;
        return kOk;
    }
    if (strcmp(argv[1], "-a") == 0) {
        *type = kCmdTypeAll;
        *position = 2;
        return kOk;
    }
    DRV_ERR("Invalid param cmd type.");
    return kErrMajorType;
}

int32_t cmd_attr_check(uint32_t type, const cmd_record *row)
{
    const char *want = type == kCmdTypeOne ? "-i" : "-a";
    return strcmp(row->cmd->major, want) == 0 ? kOk : kErrCmdAttr;
}

int32_t major_cmd_parse(int argc, char **argv, uint32_t type, int position, cmd_parse_info *info)
{
    if (argc <= position)
        return kErrMajorCmd;
    for (int i = 0; i < kCmdListMax && !g_cmd_list[i].empty(); ++i) {
        if (strcmp(argv[position], g_cmd_list[i].cmd->name) != 0)
            continue;
        if (cmd_attr_check(type, &g_cmd_list[i]) != kOk)
            continue;
        info->cmd_index = i;
        info->first_arg = position + 1;
        info->argc = argc;
        info->argv = argv;
        return kOk;
    }
    return kErrMajorCmd;
}

int32_t cmd_check_phy_id(int argc, char **argv, uint32_t *phy_id)
{
    if (argc <= 2 || argv[2] == nullptr) {
        DRV_ERR("Phy_id param is NULL.");
        return kErrSysNull;
    }
    // Only the upper bound of the length is tested: an empty id reads as 0.
    size_t len = strnlen(argv[2], kPhyIdLenMax + 1);
    if (len > kPhyIdLenMax) {
        DRV_ERR("device id length[%d] check fail! valid length is[1 or 2]",
                static_cast<int>(strlen(argv[2])));
        return kErrDeviceId;
    }
    for (size_t i = 0; i < len; ++i) {
        if (argv[2][i] < '0' || argv[2][i] > '9') {
            DRV_ERR("VORN get invalid phy_id.");
            return kErrDeviceId;
        }
    }
    *phy_id = static_cast<uint32_t>(atoi(argv[2]));
    return kOk;
}

int32_t tool_parse_dev(int argc, char **argv, cmd_parse_info *info)
{
    uint32_t phy_id = 0;
    int32_t ret = cmd_check_phy_id(argc, argv, &phy_id);
    if (ret != kOk)
        return ret;
    info->phy_id = phy_id;
    unsigned int logic_id = 0;
    int kret = kopa_get_logicid_from_phyid(phy_id, &logic_id);
    if (kret != 0) {
        (void)fprintf(stderr, "Device ID is invalid, device [%d] is not in the device list!\n",
                      static_cast<int>(phy_id));
        DRV_ERR("Device ID is invalid, device [%d] is not in the device list!",
                static_cast<int>(phy_id));
        DRV_ERR("KOPA get logicid from phyid fail. (ret=%d; phy_id=%d)", kret,
                static_cast<int>(phy_id));
        return kopa_err_to_vorn_err(kret);
    }
    if (logic_id > kMaxLogicId) {
        DRV_ERR("VORN get invalid logic id. (logic_id=%d)", static_cast<int>(logic_id));
        return kErrDeviceId;
    }
    info->logic_id = logic_id;
    ret = tool_check_dev_health(logic_id);
    if (ret != kOk) {
        DRV_ERR("VORN check dev health fail. (logic_id=%d; ret=0x%x)", static_cast<int>(logic_id),
                static_cast<unsigned>(ret));
        return ret;
    }
    return kOk;
}

int32_t tool_parse_dev_para_for_host(int argc, char **argv, cmd_parse_info *info)
{
    uint32_t phy_id = 0;
    int32_t ret = cmd_check_phy_id(argc, argv, &phy_id);
    if (ret != kOk)
        return ret;
    if (phy_id > kMaxHostPhyId) {
        DRV_ERR("VORN get invalid phy_id. (tmp_phy_id=%d)", static_cast<int>(phy_id));
        return kErrDeviceId;
    }
    // No device is looked up in host mode, whatever id was typed.
    info->phy_id = 0;
    info->logic_id = 0;
    return kOk;
}

int32_t cmd_dev_parse(int argc, char **argv, cmd_parse_info *info)
{
    if (info->host_mode != 0)
        return tool_parse_dev_para_for_host(argc, argv, info);
    return tool_parse_dev(argc, argv, info);
}

int32_t parse_cmd(int argc, char **argv, cmd_parse_info *info)
{
    if (info == nullptr) {
        DRV_ERR("Input param is NULL.");
        return kErrSysNull;
    }
    int32_t ret = len_valid(argc, argv);
    if (ret != kOk) {
        DRV_ERR("VORN check input param num fail. (ret=0x%x)", static_cast<unsigned>(ret));
        return ret;
    }
    if (strcmp(argv[argc - 1], "host") == 0)
        info->host_mode = 1;
    else
        info->host_mode = is_help(argc, argv) == 0 ? 1 : 0;

    RUN_LOG_PROMPT("input parameters: argc[%d]\n", argc);

    ret = insert_ext_cmd();
    if (ret != kOk) {
        DRV_ERR("VORN insert ext cmd failed. (ret=0x%x)", static_cast<unsigned>(ret));
        return ret;
    }

    record_cmd_to_log(argc, argv);

    if (is_help(argc, argv) == 0) {
        uda_help_cmd_print();
        return kOk;
    }

    uint32_t type = 0;
    int position = 0;
    ret = get_cmd_type(argc, argv, &type, &position);
    if (ret != kOk) {
        DRV_ERR("Get cmd type fail. (ret=0x%x)", static_cast<unsigned>(ret));
        return ret;
    }
    ret = major_cmd_parse(argc, argv, type, position, info);
    if (ret != kOk) {
        DRV_ERR("Major cmd parse fail. (ret=0x%x)", static_cast<unsigned>(ret));
        return ret;
    }
    if (type == kCmdTypeOne) {
        ret = cmd_dev_parse(argc, argv, info);
        if (ret != kOk) {
            DRV_ERR("Dev cmd parse fail. (ret=0x%x)", static_cast<unsigned>(ret));
            return ret;
        }
    }
    info->cmd_type = type;
    DRV_DBG("Parse cmd success. (cmd_index=%d)", info->cmd_index);
    return cmd_dispatch(*g_cmd_list[info->cmd_index].cmd, argc - info->first_arg,
                        argv + info->first_arg, info);
}
