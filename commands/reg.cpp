// The -reg command: the port's Ethernet registers by offset (the whole block, or one register),
// and the clock-data-recovery (CDR) diagnostics: captures of the CDR registers and of the
// extended CDR log, the dump of the CDR registers of every lane into a log file in the current
// directory, and the CDR state of each MAC lane.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/checkers.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"
#include "log/cdr_reg_log.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr const char *kHelpReg =
    "   [-g]        : get eth register info \n"
    "       offset %s : register offset, decimal or 0x hexadecimal, a multiple of 4 (without "
    "it: every register)\n"
    "   [-cdr]      : clock data recovery diagnostics, followed by one of \n"
    "                 0: capture the cdr registers of every lane\n"
    "                 1: dump the cdr registers of every lane into "
    "device-<id>-CdrReg_<time>.log in the current directory\n"
    "                 2: capture the extended cdr log\n"
    "                 3: get the cdr state of each mac lane\n";

constexpr uint32_t kEthRegsMax = 250; ///< records of a register dump, one packet's worth
constexpr uint32_t kCdrLanes = 4;
constexpr uint32_t kAllLanes = (1U << kCdrLanes) - 1;
/// The CDR registers of a lane that the dump reads: 16 words from this address.
constexpr uint32_t kCdrRegBase = 0x2000;
constexpr uint32_t kCdrRegs = 16;
constexpr const char *kOffsetExpected =
    "a register offset, decimal or 0x hexadecimal, a multiple of 4 below 0x100000000";

void print_register(uint32_t offset, uint32_t value)
{
    printf("0x%08x: 0x%08x\n", offset, value);
}

/// Reads the offset word: str_to_off_t's decimal or 0x hexadecimal, with at least one digit, a
/// 32-bit multiple of 4.
int32_t read_offset(const char *text, uint32_t *offset)
{
    const bool hex = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    int64_t value = 0;
    if (text[hex ? 2 : 0] == '\0' || str_to_off_t(text, &value) < 0 || value > 0xFFFFFFFFll ||
        value % 4 != 0)
        return diag_bad_value(CMD_HERE, text, "offset", kOffsetExpected);
    *offset = static_cast<uint32_t>(value);
    return kOk;
}

int32_t tool_reg_get_cmd(int argc, char **argv, cmd_parse_info *info)
{
    if (argc != 1 && argc != 3)
        return cmd_err_argc(CMD_HERE, argc);
    if (argc == 3) {
        if (strcmp(argv[1], "offset") != 0)
            return cmd_err_unknown_option(CMD_HERE, "invalid option\n",
                                          "Get unknown option, do you mean offset\n");
        uint32_t offset = 0;
        int32_t check = read_offset(argv[2], &offset);
        if (check != kOk)
            return check;
        uint32_t value = 0;
        int ret = kopa_get_network_register(info->logic_id, offset, &value);
        if (ret != 0)
            return diag_device_failed(CMD_HERE, "kopa get network register", ret, info->logic_id);
        print_register(offset, value);
        return kOk;
    }
    kopa_reg_record regs[kEthRegsMax] = {};
    uint32_t count = kEthRegsMax;
    int ret = kopa_get_eth_reg_info(info->logic_id, regs, &count);
    if (ret == 0 && count == 0)
        ret = kErrnoInval; // a register block without a register is no answer
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get eth reg info", ret, info->logic_id);
    for (uint32_t i = 0; i < count; ++i)
        print_register(regs[i].offset, regs[i].value);
    return kOk;
}

// ---- Clock-data-recovery diagnostics ----------------------------------------------------------

using CdrHandler = int32_t (*)(cmd_parse_info *info);

/// One capture of the device: the CDR registers or the extended CDR log of every lane.
int32_t trigger_capture(cmd_parse_info *info, uint32_t type, const char *what)
{
    const kopa_cdr_trigger trigger{type, kAllLanes};
    kopa_cdr_trigger_reply reply{};
    int ret = kopa_trig_query_cdr_info(info->logic_id, &trigger, &reply);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa trig query cdr info", ret, info->logic_id);
    printf("%s captured on %u lanes, capture %u\n", what, reply.lanes, reply.capture);
    return kOk;
}

int32_t tool_trig_query_cdr_reg_info_exe(cmd_parse_info *info)
{
    return trigger_capture(info, KOPA_CDR_TRIG_REG, "cdr registers");
}

int32_t tool_trig_query_ext_cdr_log_exe(cmd_parse_info *info)
{
    return trigger_capture(info, KOPA_CDR_TRIG_EXT_LOG, "extended cdr log");
}

/// Reads the CDR registers of every lane, then writes them into a new dump file; nothing is
/// written when a read fails.
int32_t tool_cdr_reg_dump_exe(cmd_parse_info *info)
{
    kopa_cdr_reg_block values[kCdrLanes] = {};
    for (uint32_t lane = 0; lane < kCdrLanes; ++lane) {
        kopa_cdr_reg_block req{};
        req.lane = lane;
        req.count = kCdrRegs;
        for (uint32_t i = 0; i < kCdrRegs; ++i)
            req.reg[i] = kCdrRegBase + i * 4;
        int ret = kopa_get_cdr_reg_info(info->logic_id, &req, &values[lane]);
        if (ret == 0 && (values[lane].lane != lane || values[lane].count != kCdrRegs))
            ret = kErrnoInval; // the answer of another selection
        if (ret != 0)
            return diag_device_failed(CMD_HERE, "kopa get cdr reg info", ret, info->logic_id);
    }
    if (generate_file_name(static_cast<int>(info->phy_id)) != 0) {
        DRV_ERR("generate cdr reg log file name fail, phy_id[%u]", info->phy_id);
        return kErrSysCopy;
    }
    const char *file = vorn_cdr_file_name();
    VornCdrRegPrintLog("device %u cdr registers, %u lanes\n", info->phy_id, kCdrLanes);
    for (uint32_t lane = 0; lane < kCdrLanes; ++lane) {
        for (uint32_t i = 0; i < kCdrRegs; ++i)
            VornCdrRegPrintLog("lane %u reg 0x%04x: 0x%04x\n", lane, kCdrRegBase + i * 4,
                               values[lane].reg[i]);
    }
    if (!vorn_cdr_dump_ok()) {
        fprintf(stderr, "Cannot write the cdr register log %s in the current directory.\n", file);
        return kErrSysWrite;
    }
    printf("cdr registers of %u lanes written to %s\n", kCdrLanes, file);
    return kOk;
}

int32_t tool_cdr_log_cmd_exe(cmd_parse_info *info)
{
    kopa_mac_lane_cdr_info cdr{};
    int ret = kopa_query_mac_lane_cdr_info(info->logic_id, &cdr);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa query mac lane cdr info", ret, info->logic_id);
    const uint32_t lanes = cdr.lanes < kCdrLanes ? cdr.lanes : kCdrLanes;
    printf("%-6s%-10s%-14s%-18s%-16s%-16s%s\n", "lane", "cdr", "loss-of-lock", "freq-offset(ppm)",
           "eye-height(mV)", "eye-width(mUI)", "snr(dB)");
    for (uint32_t i = 0; i < lanes; ++i) {
        const kopa_cdr_lane_info &l = cdr.lane[i];
        printf("%-6u%-10s%-14u%-18d%-16u%-16u%u.%02u\n", i, l.locked != 0 ? "locked" : "unlocked",
               l.loss_of_lock, l.freq_offset_ppm, l.eye_height_mv, l.eye_width_mui,
               l.snr_centi_db / 100, l.snr_centi_db % 100);
    }
    return kOk;
}

struct CdrCmd {
    uint32_t index;
    CdrHandler run;
};

/// The CDR sub-commands, by the number typed after -cdr.
constexpr CdrCmd g_cmd_handle[] = {
    {0, tool_trig_query_cdr_reg_info_exe},
    {1, tool_cdr_reg_dump_exe},
    {2, tool_trig_query_ext_cdr_log_exe},
    {3, tool_cdr_log_cmd_exe},
};

int32_t tool_cdr_cmd_execute(int /*argc*/, char **argv, cmd_parse_info *info)
{
    const char *text = argv[1];
    for (const CdrCmd &cmd : g_cmd_handle) {
        if (text[0] == static_cast<char>('0' + cmd.index) && text[1] == '\0')
            return cmd.run(info);
    }
    return diag_bad_value(CMD_HERE, text, "-cdr", "0, 1, 2 or 3");
}

constexpr CmdOp kRegOps[] = {
    {"-g", kOwnCount, false, tool_reg_get_cmd},
    {"-cdr", 2, false, tool_cdr_cmd_execute},
};

} // namespace

extern constexpr CmdDesc kRegCmd{
    .major = "-i",
    .name = "-reg",
    .handler = "tool_reg_cmd_execute",
    .description = "get reg cmd",
    .help = kHelpReg,
    .ops = kRegOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
};
