// The audit of the command line: every argument written to the run log, secrets masked.
#include "main/audit.hpp"

#include <cstring>

#include "log/run_log.hpp"

namespace {

constexpr size_t kArgBufLen = 901;
constexpr int kAnywhere = -1;

struct black_list_row {
    const char *cmd;
    const char *option;
    int position; ///< index of the option word in the whole argument vector, or kAnywhere
};

// Values after these words are secrets or addresses.
constexpr black_list_row check_list[] = {
    {"-ip", "address", 5},     {"-ip", "netmask", 7},
    {"-gateway", "gateway", 5},
    {"-netdetect", "address", 5},
    {"-mac", "mac", 5},
    {"-tls", "path", 5},       {"-tls", "pri", 7},        {"-tls", "pub", 9},
    {"-tls", "ca1", 11},       {"-tls", "ca2", 13},       {"-tls", "ca3", 15},
    {"-tls", "ca4", 17},       {"-tls", "ca5", 19},       {"-tls", "ca6", 21},
    {"-tls", "ca7", 23},       {"-tls", "ca8", 25},       {"-tls", "ca9", 27},
    {"-tls", "ca10", 29},      {"-tls", "ca11", 31},      {"-tls", "ca12", 33},
    {"-tls", "ca13", 35},      {"-tls", "ca14", 37},      {"-tls", "crl", kAnywhere},
    {"-envelope", "path", 5},  {"-envelope", "pri", 7},   {"-envelope", "pub", 9},
    {"-arp", "dev", kAnywhere}, {"-arp", "ip", kAnywhere}, {"-arp", "mac", kAnywhere},
    {"-route", "address", 5},  {"-route", "netmask", 7},  {"-route", "gateway", 9},
    {"-ip_rule", "dir", kAnywhere}, {"-ip_rule", "ip", kAnywhere},
    {"-ip_rule", "table", kAnywhere},
    {"-ip_route", "ip", kAnywhere}, {"-ip_route", "ip_mask", kAnywhere},
    {"-ip_route", "via", kAnywhere}, {"-ip_route", "dev", kAnywhere},
    {"-ip_route", "table", kAnywhere},
};
static_assert(sizeof(check_list) / sizeof(check_list[0]) == 40, "the black list has 40 rows");

bool is_plain_char(unsigned char c)
{
    return c == '-' || c == '.' || c == '/' || c == '_' || (c >= '0' && c <= '9') ||
           (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

bool check_cmd_is_in_black_list(int index, char **argv)
{
    if (index < 4 || argv == nullptr || argv[3] == nullptr)
        return false;
    for (const black_list_row &row : check_list) {
        if (strcmp(argv[3], row.cmd) != 0)
            continue;
        if (row.position == kAnywhere) {
            if (strcmp(argv[index - 1], row.option) == 0)
                return true;
        } else if (index == row.position + 1 && strcmp(argv[row.position], row.option) == 0) {
            return true;
        }
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
