// Fuzzes the commands that print a table or a text the device sends (-process -g, -reg -g,
// -arp -g, -route -g, -version -g, -lldp -g, -prio_tc -g), in process, against the scripted
// firmware of fuzz/reply_script: what the command prints must come from what the device sent.
//
// Input: one byte picks the command, one the logical id, the rest is the reply script.
//
// Besides the sanitizers:
// - a command that fails prints nothing on standard output;
// - a command that succeeds prints no more rows than the records the replies carried (for a
//   text, no more lines than its bytes).
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.hpp"
#include "fuzz/reply_script.hpp"
#include "main/cmd_table.hpp"
#include "platform/kopa_platform.h"

namespace
{

struct TableCmd {
    const char *line;    ///< the command name and its words
    uint32_t record;     ///< bytes of one printed row's record; 0 for a text
    uint32_t head_lines; ///< lines printed besides the rows
};

const TableCmd kCmds[] = {
    {"-process -g", sizeof(kopa_process_record), 1},
    {"-reg -g", sizeof(kopa_reg_record), 0},
    {"-arp -g", sizeof(kopa_arp_record), 0},
    {"-prio_tc -g", sizeof(kopa_prio_tc_info), 0},
    {"-route -g", 0, 1},
    {"-version -g", 0, 0},
    {"-lldp -g", 0, 1}, // the text need not end on a newline: the command adds one
};

const CmdDesc *find_cmd(const std::string &name)
{
    for (const cmd_record &row : g_cmd_list)
        if (!row.empty() && name == row.cmd->name)
            return row.cmd;
    for (const cmd_record &row : g_cmd_list_ext)
        if (name == row.cmd->name)
            return row.cmd;
    fuzz_fault("table_print_fuzz", "no such command", name);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    fuzz_quiet(argc, argv);
    (void)fuzz_dir();
    for (const TableCmd &cmd : kCmds)
        (void)find_cmd(fuzz_words(cmd.line).front());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    (void)fuzz_take_stdout();
    FuzzBytes in(data, size);
    const TableCmd &cmd = kCmds[in.u8() % std::size(kCmds)];
    const uint32_t logic_id = in.u8() % KOPA_MAX_DEVICES;
    const ReplyScript &script = reply_script_start(FuzzBytes(in.data(), in.size()));

    std::vector<std::string> words = fuzz_words(cmd.line);
    const CmdDesc *desc = find_cmd(words.front());
    words.erase(words.begin());
    FuzzArgv args(words);
    cmd_parse_info info{};
    info.logic_id = logic_id;
    info.phy_id = logic_id;
    const int32_t ret = cmd_dispatch(*desc, args.argc(), args.argv(), &info);
    const std::string printed = fuzz_take_stdout();
    if (ret != 0) {
        if (!printed.empty())
            fuzz_fault("table_print_fuzz", cmd.line, "printed after a failure: " + printed);
        return 0;
    }
    const uint64_t lines = static_cast<uint64_t>(std::count(printed.begin(), printed.end(), '\n'));
    const uint64_t rows = cmd.record != 0 ? script.copied / cmd.record : script.copied;
    if (lines > cmd.head_lines + rows)
        fuzz_fault("table_print_fuzz", cmd.line,
                   std::to_string(lines) + " lines printed from " + std::to_string(script.copied) +
                       " bytes received");
    return 0;
}
