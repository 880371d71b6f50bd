// Fuzzes the run-log line builder and the audit of the command line, through the writer of the
// run log: a user name and a client address of the forms the tool finds, then either the audit
// of an argument vector, one line of arbitrary text, or one line into a log about to rotate.
//
// Input: a mode byte, a user-name length and the name's bytes (mapped onto the characters of
// user names), an address selector, then the mode's data: for the audit, the arguments
// separated by zero bytes; for a line, its text; for a rotation, two bytes of distance to the
// 5 MiB mark and the text.
//
// Every line is checked byte for byte: the formatted text cut after the class word and the user
// name, the time stamp put in, the rest after it; a text too long for the line buffer writes
// nothing. The audit writes one line per argument in order, "********" exactly for the values
// that follow a black-listed option of the command (checked against a table of its own), every
// other argument with each character outside [-./0-9A-Z_a-z] turned into '*'.
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/identity.hpp"
#include "base/paths.hpp"
#include "fuzz/fuzz_support.hpp"
#include "log/run_log.hpp"
#include "main/audit.hpp"
#include "main/cmd_table.hpp"
#include "main/dispatch.hpp"

namespace
{

constexpr off_t kRotateAt = 5242880;
constexpr off_t kMovesAbove = 5241855;
constexpr size_t kStampLen = 23; // "2026-11-13 20:55:53.123"

struct Mask {
    const char *cmd;
    const char *word;
    int position; ///< of the option word in the whole vector; -1 anywhere
};

// The values the audit hides, per command and option word.
constexpr Mask kMasks[] = {
    {"-ip", "address", 5},        {"-ip", "netmask", 7},     {"-gateway", "gateway", 5},
    {"-netdetect", "address", 5}, {"-mac", "mac", 5},        {"-tls", "path", 5},
    {"-tls", "pri", 7},           {"-tls", "pub", 9},        {"-tls", "ca1", 11},
    {"-tls", "ca2", 13},          {"-tls", "ca3", 15},       {"-tls", "ca4", 17},
    {"-tls", "ca5", 19},          {"-tls", "ca6", 21},       {"-tls", "ca7", 23},
    {"-tls", "ca8", 25},          {"-tls", "ca9", 27},       {"-tls", "ca10", 29},
    {"-tls", "ca11", 31},         {"-tls", "ca12", 33},      {"-tls", "ca13", 35},
    {"-tls", "ca14", 37},         {"-tls", "crl", -1},       {"-envelope", "path", 5},
    {"-envelope", "pri", 7},      {"-envelope", "pub", 9},   {"-arp", "dev", -1},
    {"-arp", "ip", -1},           {"-arp", "mac", -1},       {"-route", "address", 5},
    {"-route", "netmask", 7},     {"-route", "gateway", 9},  {"-ip_rule", "dir", -1},
    {"-ip_rule", "ip", -1},       {"-ip_rule", "table", -1}, {"-ip_route", "ip", -1},
    {"-ip_route", "ip_mask", -1}, {"-ip_route", "via", -1},  {"-ip_route", "dev", -1},
    {"-ip_route", "table", -1},
};

bool hidden(const std::vector<std::string> &argv, size_t i)
{
    if (i < 4)
        return false;
    for (const Mask &m : kMasks) {
        if (argv[3] != m.cmd)
            continue;
        if (m.position < 0 ? argv[i - 1] == m.word
                           : i == static_cast<size_t>(m.position) + 1 && argv[m.position] == m.word)
            return true;
    }
    return false;
}

std::string masked(const std::string &word)
{
    std::string out = word;
    for (char &c : out)
        if (!(c == '-' || c == '.' || c == '/' || c == '_' || (c >= '0' && c <= '9') ||
              (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')))
            c = '*';
    return out;
}

std::string g_dir; // the log directory of the current user

bool is_stamp(const std::string &s)
{
    static const char kForm[] = "dddd-dd-dd dd:dd:dd.ddd";
    if (s.size() != kStampLen)
        return false;
    for (size_t i = 0; i < kStampLen; ++i)
        if (kForm[i] == 'd' ? !isdigit(static_cast<unsigned char>(s[i])) : s[i] != kForm[i])
            return false;
    return true;
}

/// The line the writer makes of `text`: cut after the class word and the user name, the stamp
/// in between; checks that `line` is it and returns the stamp-less text.
std::string unstamped(const std::string &line)
{
    const size_t head = 13 + strlen(g_vorn_usr_name);
    const size_t cut = head < line.size() ? head : line.size();
    if (!is_stamp(line.substr(cut, kStampLen)))
        fuzz_fault("run_log_fuzz", "no time stamp after the user name", line);
    return line.substr(0, cut) + line.substr(cut + kStampLen);
}

// Writes `text` as one line (a %s argument, never a format) and returns the log's growth.
void check_line(const std::string &text, const std::string &before, const std::string &after)
{
    if (after.compare(0, before.size(), before) != 0)
        fuzz_fault("run_log_fuzz", "the log lost what it held", "");
    const std::string added = after.substr(before.size());
    if (text.size() >= 1024 || text.size() + kStampLen >= 1025) {
        if (!added.empty())
            fuzz_fault("run_log_fuzz", "a text too long for the line was written", added);
        return;
    }
    // The stamp sits at a fixed place, even in a text shorter than the head.
    const size_t head = 13 + strlen(g_vorn_usr_name);
    const size_t cut = head < text.size() ? head : text.size();
    if (added.size() != text.size() + kStampLen || added.compare(0, cut, text, 0, cut) != 0 ||
        !is_stamp(added.substr(cut, kStampLen)) ||
        added.substr(cut + kStampLen) != text.substr(cut))
        fuzz_fault("run_log_fuzz", "line not as formatted", added);
}

void check_audit(const std::vector<std::string> &words, const std::string &log)
{
    std::vector<std::string> lines;
    for (size_t pos = 0; pos < log.size();) {
        const size_t nl = log.find('\n', pos);
        if (nl == std::string::npos)
            fuzz_fault("run_log_fuzz", "unterminated run-log line", log.substr(pos));
        lines.push_back(unstamped(log.substr(pos, nl + 1 - pos)));
        pos = nl + 1;
    }
    const std::string prefix =
        std::string("PROMPT MINOR ") + g_vorn_usr_name + " " + g_vorn_usr_ip + " audit.cpp:";
    size_t next = 0;
    for (size_t i = 0; i < words.size(); ++i) {
        std::string want;
        if (words[i].size() >= 901)
            want = "Record argv[" + std::to_string(i) + "] failed, ret=-34\n";
        else
            want = "parse [" + std::to_string(i) + "]th argv[" +
                   (hidden(words, i) ? std::string("********") : masked(words[i])) + "]\n";
        // The line as formatted; a line past the buffer is dropped whole.
        const size_t len = prefix.size() + 2 + 5 + want.size();
        bool found = false;
        if (next < lines.size() && lines[next].starts_with(prefix)) {
            const size_t at = lines[next].find(" >>> ", prefix.size());
            found = at != std::string::npos && lines[next].substr(at + 5) == want;
        }
        if (found)
            ++next;
        else if (len + kStampLen < 1010)
            fuzz_fault("run_log_fuzz", "audit line missing or wrong", want);
    }
    if (next != lines.size())
        fuzz_fault("run_log_fuzz", "audit line of no argument", lines[next]);
}

void set_identity(FuzzBytes &in)
{
    // A user name as the password database holds them.
    static const char kChars[] = "abcdefghijklmnopqrstuvwxyz0123456789_-";
    std::string name = in.word(40);
    for (char &c : name)
        c = kChars[static_cast<unsigned char>(c) % (sizeof kChars - 1)];
    if (name.empty() || name.size() >= kIdentityLen || name[0] == '-')
        name = "root";
    memcpy(g_vorn_usr_name, name.c_str(), name.size() + 1);
    const uint8_t a = in.u8();
    char ip[kIdentityLen];
    if (a % 4 == 0)
        snprintf(ip, sizeof ip, "127.0.0.1");
    else if (a % 4 == 1)
        snprintf(ip, sizeof ip, "%s", a & 4 ? "Error IP" : "Invalid IP");
    else
        snprintf(ip, sizeof ip, "%u.%u.%u.%u", in.u8(), in.u8(), in.u8(), in.u8());
    memcpy(g_vorn_usr_ip, ip, sizeof ip);
    g_dir = sys_path(name == "root" ? "/var/log/vorn_tool" : "/home/" + name);
}

void clean_up()
{
    for (const char *file : {"/vorn.log", "/vorn.log.old", "/vorn.lock"})
        (void)unlink((g_dir + file).c_str());
    if (g_dir.find("/home/") != std::string::npos)
        (void)rmdir(g_dir.c_str());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    fuzz_quiet(argc, argv);
    (void)fuzz_dir();
    // The audit looks commands up in the whole table, as a run does after its parse began.
    if (insert_ext_cmd() != 0)
        fuzz_fault("run_log_fuzz", "command table", "");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzBytes in(data, size);
    const uint8_t mode = in.u8() % 4;
    set_identity(in);
    const std::string log = g_dir + "/vorn.log";

    if (mode == 0) {
        // The audit of an argument vector.
        std::vector<std::string> words;
        const std::string rest = in.rest();
        for (size_t pos = 0; pos <= rest.size() && words.size() < 70;) {
            const size_t end = rest.find('\0', pos);
            words.push_back(rest.substr(pos, end == std::string::npos ? end : end - pos));
            if (end == std::string::npos)
                break;
            pos = end + 1;
        }
        FuzzArgv args(words);
        record_cmd_to_log(args.argc(), args.argv());
        check_audit(words, fuzz_slurp(log));
    } else if (mode == 1 || mode == 2) {
        // One line: the callers' form, or a bare text (the cut must stay within it).
        const std::string text = in.rest();
        const std::string arg(text.c_str());
        std::string formatted;
        if (mode == 1) {
            VornPrintLog("PROMPT MINOR %s %s %s:%d >>> %s", g_vorn_usr_name, g_vorn_usr_ip,
                         "fuzz.cpp", 7, arg.c_str());
            formatted = std::string("PROMPT MINOR ") + g_vorn_usr_name + " " + g_vorn_usr_ip +
                        " fuzz.cpp:7 >>> " + arg;
        } else {
            VornPrintLog("%s", arg.c_str());
            formatted = arg;
        }
        check_line(formatted, "", fuzz_slurp(log));
    } else {
        // A log that the line takes to 5 MiB or just short of it.
        const off_t held = kRotateAt - 1 - in.u16() % 2048;
        const std::string arg(in.rest().c_str());
        (void)mkdir(sys_path("/var/log").c_str(), 0755);
        (void)mkdir(sys_path("/home").c_str(), 0755);
        (void)mkdir(g_dir.c_str(), 0640);
        if (!fuzz_spill(log, std::string(), 0640) || truncate(log.c_str(), held) != 0)
            fuzz_fault("run_log_fuzz", "sparse log", log);
        VornPrintLog("CONFIG MAJOR %s %s %s:%d >>> %s", g_vorn_usr_name, g_vorn_usr_ip, "f.cpp", 1,
                     arg.c_str());
        const std::string formatted = std::string("CONFIG MAJOR ") + g_vorn_usr_name + " " +
                                      g_vorn_usr_ip + " f.cpp:1 >>> " + arg;
        const size_t len = formatted.size() + kStampLen;
        struct stat st {
        };
        const bool fits = formatted.size() < 1024 && len < 1025;
        if (!fits || held + static_cast<off_t>(len) < kRotateAt) {
            // Appended in place (or nothing at all).
            if (stat(log.c_str(), &st) != 0 || st.st_size != held + (fits ? off_t(len) : 0))
                fuzz_fault("run_log_fuzz", "log not appended in place", std::to_string(st.st_size));
        } else {
            // held > kMovesAbove always holds here: the log moves to .old and the line opens a
            // new one.
            if (held <= kMovesAbove)
                fuzz_fault("run_log_fuzz", "harness", "rotation threshold");
            if (stat((log + ".old").c_str(), &st) != 0 || st.st_size != held ||
                (st.st_mode & 07777) != 0440)
                fuzz_fault("run_log_fuzz", "log not rotated", std::to_string(st.st_size));
            check_line(formatted, "", fuzz_slurp(log));
        }
    }
    clean_up();
    return 0;
}
