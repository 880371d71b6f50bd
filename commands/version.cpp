// The -version command: the firmware versions the device reports, printed with control
// characters escaped.
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

constexpr const char *kHelpVersion = "   [-g]        : get firmware version \n";
constexpr uint32_t kVersionCapacity = 512;

int32_t tool_version_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    // One spare byte keeps the text terminated whatever the firmware sends.
    char text[kVersionCapacity + 1] = {};
    int ret = kopa_get_firmware_version(info->logic_id, text, kVersionCapacity);
    size_t len = strlen(text);
    // A reply without a character of text is as broken as a refused one.
    if (ret == 0 && len == 0)
        ret = kErrnoInval;
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get firmware version", ret, info->logic_id);
    while (len > 0 && text[len - 1] == '\n')
        --len;
    printf("firmware version: ");
    print_escaped(stdout, text, len);
    printf("\n");
    return kOk;
}

constexpr CmdOp kVersionOps[] = {{"-g", 1, false, tool_version_get_cmd}};

} // namespace

extern constexpr CmdDesc kVersionCmd{
    .major = "-i",
    .name = "-version",
    .handler = "tool_version_cmd_execute",
    .description = "version cmd",
    .help = kHelpVersion,
    .ops = kVersionOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
