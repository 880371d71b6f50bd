// The stand-in handler of commands that this build does not carry yet.
#include <cstdio>

#include "commands/handlers.hpp"
#include "main/cmd_table.hpp"
#include "base/result.hpp"

int32_t tool_cmd_not_available(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    const char *name = "";
    if (info != nullptr && info->cmd_index >= 0 && info->cmd_index < kCmdListMax)
        name = g_cmd_list[info->cmd_index].cmd_name;
    (void)fprintf(stderr, "Command %s is not available in this build yet.\n", name);
    return kErrExec;
}
