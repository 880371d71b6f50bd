// The command table of vorn_tool, from the rows named in main/cmd_table.hpp.
#include "main/cmd_table.hpp"

#include <cstring>

#define VORN_COMMAND_ROW(name) {&name},
cmd_record g_cmd_list[kCmdListMax] = {VORN_FIXED_COMMANDS(VORN_COMMAND_ROW)};
const cmd_record g_cmd_list_ext[kCmdListExtNum] = {VORN_EXT_COMMANDS(VORN_COMMAND_ROW)};
#undef VORN_COMMAND_ROW

const char *cmd_record::dev_token() const
{
    return strcmp(cmd->major, "-i") == 0 ? "devid" : "";
}
