// The -process command: the processes that use the device, one per line with their device
// memory.
#include <cstdio>
#include <cstring>

#include "base/escape.hpp"
#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"

namespace
{

constexpr const char *kHelpProcess = "   [-g]        : get device process info \n";

int32_t tool_process_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_process_record procs[KOPA_PROCESS_MAX] = {};
    uint32_t count = KOPA_PROCESS_MAX;
    int ret = kopa_get_device_process(info->logic_id, procs, &count);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get device process", ret, info->logic_id);
    if (count == 0) {
        printf("no process is running on the device\n");
        return kOk;
    }
    printf("%-10s %-12s %s\n", "PID", "MEMORY(MiB)", "NAME");
    for (uint32_t i = 0; i < count; ++i) {
        const kopa_process_record &p = procs[i];
        printf("%-10u %-12u ", p.pid, p.memory_mb);
        print_field_escaped(stdout, p.name, strnlen(p.name, sizeof(p.name)));
        printf("\n");
    }
    return kOk;
}

constexpr CmdOp kProcessOps[] = {{"-g", 1, false, tool_process_get_cmd}};

} // namespace

extern constexpr CmdDesc kProcessCmd{
    .major = "-i",
    .name = "-process",
    .handler = "tool_process_cmd_execute",
    .description = "process cmd",
    .help = kHelpProcess,
    .ops = kProcessOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
