// The audit of the command line: every argument written to the run log, secrets masked.
#include "main/audit.hpp"

#include <cstring>
#include <span>

#include "log/run_log.hpp"
#include "main/cmd_table.hpp"

namespace
{

constexpr size_t kArgBufLen = 901;

// Words whose values are masked although no command of the table takes them.
constexpr CmdMask kEnvelopeMasks[] = {{"path", 5}, {"pri", 7}, {"pub", 9}};
constexpr CmdMask kIpRuleMasks[] = {
    {"dir", kMaskAnywhere}, {"ip", kMaskAnywhere}, {"table", kMaskAnywhere}};
constexpr CmdMask kIpRouteMasks[] = {{"ip", kMaskAnywhere},
                                     {"ip_mask", kMaskAnywhere},
                                     {"via", kMaskAnywhere},
                                     {"dev", kMaskAnywhere},
                                     {"table", kMaskAnywhere}};

struct ExtraMasks {
    const char *cmd;
    std::span<const CmdMask> masks;
};
constexpr ExtraMasks kExtraMasks[] = {
    {"-envelope", kEnvelopeMasks}, {"-ip_rule", kIpRuleMasks}, {"-ip_route", kIpRouteMasks}};

bool masks_value(std::span<const CmdMask> masks, int index, char **argv)
{
    for (const CmdMask &mask : masks) {
        if (mask.position == kMaskAnywhere) {
            if (strcmp(argv[index - 1], mask.word) == 0)
                return true;
        } else if (index == mask.position + 1 && strcmp(argv[mask.position], mask.word) == 0) {
            return true;
        }
    }
    return false;
}

bool is_plain_char(unsigned char c)
{
    return c == '-' || c == '.' || c == '/' || c == '_' || (c >= '0' && c <= '9') ||
           (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

} // namespace

// Values after these words are secrets or addresses; each command names its own.
bool check_cmd_is_in_black_list(int index, char **argv)
{
    if (index < 4 || argv == nullptr || argv[3] == nullptr)
        return false;
    for (int i = 0; i < kCmdListMax && !g_cmd_list[i].empty(); ++i) {
        const CmdDesc &cmd = *g_cmd_list[i].cmd;
        if (strcmp(argv[3], cmd.name) == 0 && masks_value(cmd.masks, index, argv))
            return true;
    }
    for (const ExtraMasks &extra : kExtraMasks) {
        if (strcmp(argv[3], extra.cmd) == 0 && masks_value(extra.masks, index, argv))
            return true;
    }
    return false;
}

void record_normal_cmd_to_log(int index, char *text)
{
    for (char *p = text; *p != '\0'; ++p) {
        if (!is_plain_char(static_cast<unsigned char>(*p)))
            *p = '*';
    }
    RUN_LOG_PROMPT("parse [%d]th argv[%s]\n", index, text);
}

void record_black_list_cmd_to_log(int index, char *buffer)
{
    explicit_bzero(buffer, kArgBufLen);
    memcpy(buffer, "********", 9);
    RUN_LOG_PROMPT("parse [%d]th argv[%s]\n", index, buffer);
}

void record_cmd_to_log(int argc, char **argv)
{
    char buffer[kArgBufLen];
    for (int i = 0; i < argc; ++i) {
        size_t len = strnlen(argv[i], kArgBufLen);
        if (len >= kArgBufLen) {
            RUN_LOG_PROMPT("Record argv[%d] failed, ret=%d\n", i, -34);
            continue;
        }
        memcpy(buffer, argv[i], len + 1);
        if (check_cmd_is_in_black_list(i, argv))
            record_black_list_cmd_to_log(i, buffer);
        else
            record_normal_cmd_to_log(i, buffer);
    }
    explicit_bzero(buffer, sizeof(buffer));
}
